// The driver for models HiGHS cannot take as they are because of quadratic terms: quadratic
// constraints (QCP, SOCP, MIQCP) and quadratic objectives with integer columns (MIQP).
//
// Convex quadratic constraints become tangent cuts of an outer approximation
// (algorithms/quadratic_cuts.h) on the relaxation of the branch and bound
// (algorithms/branch_and_bound.h); without integer columns the search is its root alone,
// iterated until the relaxation point satisfies every quadratic constraint.
//
// Products with a binary factor are first linearised exactly (PreQLinearize, reform/
// binary_products.h). With NonConvex = 2 the nonconvex objective and constraints that remain
// are relaxed by envelopes and solved by spatial branching (algorithms/spatial_search.h) on
// the same search. Semi-continuous and semi-integer columns are branched on by the search.
//
// Not mapped: MIP starts, callbacks.
#pragma once

#include <atomic>

#include "core/status.h"
#include "engine/solution.h"
#include "model/model_data.h"
#include "reform/working_problem.h"

namespace vlm {
class Env;
}

namespace vlm::algorithms {

// True when the model needs this driver rather than one HiGHS run: it has quadratic
// constraints (the user's, or rows the reformulation emitted, p.qrows), or a quadratic objective together with integer columns. O(1).
bool needs_quadratic_search(const ModelData& d, const reform::WorkingProblem& p);

// Solves `p` (built from `d`) and fills `sol` with the result on the user's elements.
// `h` is a fresh HiGHS instance with the solve's options and callbacks set; `stop` is the
// model's terminate flag. Fails, before any solve, unless NonConvex is 2, with
// VLM_ERROR_Q_NOT_PSD for a nonconvex objective or quadratic inequality and
// VLM_ERROR_QCP_EQUALITY_CONSTRAINT for an equality with quadratic terms (the message names the
// constraint; for an emitted row, the general constraint it stands for); with NonConvex 2,
// VLM_ERROR_INVALID_ARGUMENT naming a variable of a nonconvex product without finite bounds
// (after propagation); VLM_ERROR_NOT_SUPPORTED for what the
// header lists. Limits, and relaxations HiGHS fails on (NUMERIC, SUBOPTIMAL), are statuses.
// Cost: one HiGHS solve per node and cut round.
Status solve_quadratic(void* h, Env& env, const ModelData& d, const reform::WorkingProblem& p,
                       const std::atomic<bool>* stop, Solution& sol);

}  // namespace vlm::algorithms
