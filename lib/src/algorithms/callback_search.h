// The branch-and-cut search over HiGHS LP relaxations that runs when a callback needs lazy
// constraints, user cuts or node relaxations, or when constraints carry the Lazy attribute.
#pragma once

#include "algorithms/search_hooks.h"
#include "core/status.h"
#include "model/model.h"

namespace vlm::algorithms {

// Solves the updated model with the branch-and-cut search, storing its Solution on the model as
// engine::optimize does. `hooks` may be null (constraints with the Lazy attribute only).
Status solve_with_search(Model& m, SearchHooks* hooks);

}  // namespace vlm::algorithms
