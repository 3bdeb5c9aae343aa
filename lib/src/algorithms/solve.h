// The optimize entry: dispatches a model to the algorithm its contents need.
#pragma once

#include <memory>

#include "core/status.h"
#include "engine/solution.h"
#include "model/model.h"

namespace vlm::algorithms {

// Updates and solves the model, storing its Solution: a model with objectives in its ObjN list
// through optimize_multiobj, one with scenarios through optimize_scenarios, one with concurrent
// environments through solve_concurrent, a MIP with PoolSearchMode 1 or 2 through solve_pool,
// any other through the engine directly. Fails with VLM_ERROR_NOT_SUPPORTED for multiple
// objectives together with scenarios, else as those do. Cost: theirs.
Status optimize(Model& m);

// Builds the working problem of the updated model under its current parameters and solves it:
// through the pool search when that applies, else with one engine solve. Returns the Solution
// without storing it. The caller holds the model in its solving state. Fails as building or the
// engine fails. Cost: one solve (pool search: several).
StatusOr<std::unique_ptr<Solution>> solve_single(Model& m);

}  // namespace vlm::algorithms
