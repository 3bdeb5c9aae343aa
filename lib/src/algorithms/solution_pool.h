// Solution pool search: PoolSearchMode 1 and 2 by repeated MIP solves with no-good rows.
//
// Mode 0 needs no driver: the engine keeps the incumbents HiGHS reports. For modes 1 and 2 the
// working problem is solved, the integer assignment of each solution found is excluded by a
// no-good row, and the problem is solved again, until PoolSolutions solutions are known, no
// further solution exists, or a limit stops a solve. Two solutions differ when some integer
// variable of the user's (PoolIgnore 0, not fixed) takes different values; the continuous
// variables of each pool solution are the best for its integer part (mode 2) or what the solve
// found (mode 1).
//
// Exclusion of an assignment v (integers rounded):
//     sum_{binary j, v_j = 0} x_j + sum_{binary j, v_j = 1} (1 - x_j)
//       + sum_{general j} (dn_j + up_j)  >=  1
// with binaries dn_j (x_j <= v_j - 1 when dn_j = 1: x_j + (u_j - v_j + 1) dn_j <= u_j) and
// up_j (x_j >= v_j + 1: x_j - (v_j + 1 - l_j) up_j >= l_j), built from the finite bounds
// [l_j, u_j] of a general integer; dn_j is left out when v_j = l_j, up_j when v_j = u_j.
// After the first solve with optimum z the objective is kept within the pool's gap:
//     c'x <= z + max(PoolGapAbs, PoolGap |z|)   (minimisation; >= z - ... for maximisation).
// Mode 2 solves every problem to optimality (MIPGap 0), so its pool holds the k best distinct
// assignments, proven. Mode 1 solves the first problem as a normal solve, then stops each
// later solve at its first solution (SolutionLimit 1) and also keeps the other solutions HiGHS
// reports, which is fast but carries no quality guarantee.
// docs/solution-pool.md has the formulation and what was measured.
#pragma once

#include <memory>

#include "core/status.h"
#include "engine/solution.h"
#include "model/model.h"
#include "reform/working_problem.h"

namespace vlm::algorithms {

// Whether `p` of model `m` is solved through the pool search: PoolSearchMode 1 or 2 and a
// working problem with integer columns. O(1).
bool pool_search_applies(Model& m, const reform::WorkingProblem& p);

// Runs the pool search on `p` (the working problem of the updated model `m`, which the caller
// holds in its solving state) and returns the Solution: X, slacks and ObjBound of the first
// solve; the pool (Xn, PoolObjVal, SolCount) best first, at most PoolSolutions entries, all
// within the pool's gap of the best; PoolObjBound a bound on the objective of every solution
// not in the pool; Runtime, IterCount and NodeCount summed over the solves. Status: that of the
// first solve when it is not optimal (the pool is then what that solve reported), else OPTIMAL
// unless a later solve stopped at a limit (TimeLimit covers all solves), whose status is kept.
// Fails with VLM_ERROR_NOT_SUPPORTED when a general integer variable that tells solutions apart
// has an infinite bound, naming it, and as the engine fails. Cost: one MIP solve per pool
// solution, plus one (mode 2 solves are to optimality).
StatusOr<std::unique_ptr<Solution>> solve_pool(Model& m, const reform::WorkingProblem& p);

}  // namespace vlm::algorithms
