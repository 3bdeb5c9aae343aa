// The Solution of a search over the working problem, on the user's elements.
#pragma once

#include <vector>

#include "algorithms/branch_and_bound.h"
#include "engine/solution.h"
#include "model/model_data.h"
#include "reform/working_problem.h"

namespace vlm::algorithms {

// Fills `sol` from `r`: status, node and iteration counts, bound, and with a solution its
// point (user columns), objective, gap and the slacks of the linear constraints; when
// `sol.is_mip` (set by the caller) also the pool: the incumbents best first, at most
// `pool_limit`, or the point alone. Cost: O(nonzeros + pool size x variables).
void fill_from_search(const SearchResult& r, const ModelData& d, const reform::WorkingProblem& p, int pool_limit,
                      Solution& sol);

// The user's BranchPriority per working column of `p` (0 for helper columns), for
// SearchSettings::branch_priority; empty when no variable has a priority set. O(columns).
std::vector<int> branch_priorities(const ModelData& d, int ncol);

// The settings every driver of the search takes from the solve's parameters (`env`'s): time,
// node and solution limits, gaps, integrality tolerance, Cutoff, BestObjStop, BestBdStop,
// Heuristics and the user's branch priorities (`ncol` working columns); `stop` and `env` as
// given. Drivers then adjust what is theirs (rounds, tolerances). O(columns).
SearchSettings search_settings(Env& env, const ModelData& d, int ncol, const std::atomic<bool>* stop);

}  // namespace vlm::algorithms
