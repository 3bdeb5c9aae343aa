// The solving engine behind VLMoptimize.
//
// SOS, general and PWL-objective constructs reach HiGHS through the reformulation step
// (reform/pipeline.h), which hands the engine a working problem; the engine never sees them.
// Quadratic constraints, and quadratic objectives with integer columns, are solved by the
// driver in algorithms/quadratic_search.h (branch and bound with outer approximation).
// Not implemented yet (each fails with VLM_ERROR_NOT_SUPPORTED naming the element kind):
// function constraints, 2-norms, multiple objectives, scenarios, nonconvex quadratics.
// Not mapped yet: callbacks, MIP starts, warm-start bases, solution pools, sensitivity ranges.
#pragma once

#include "core/status.h"
#include "model/model.h"

namespace vlm::engine {

// Solves the updated model and stores its Solution on the model. A failure of the engine
// itself is returned; infeasible, unbounded and limit outcomes are statuses, not failures.
Status optimize(Model& m);

// The sensitivity ranges of a continuous model's optimal basic solution, computed once from the
// kept engine instance; nullptr when the solution has no basis (MIP, interior solution without
// crossover, not optimal).
const Sensitivity* sensitivity(const ModelData& d, const Solution& s);

// Asks the solve running on `m` (from another thread) to stop as soon as it can.
void terminate(Model& m);

}  // namespace vlm::engine
