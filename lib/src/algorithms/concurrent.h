// Concurrent solves: several differently configured runs of one model at the same time, each on
// a copy of the model on a solver thread (algorithms/parallel_runs.h); the first run to finish
// (optimal, infeasible, unbounded or cut off) wins and the others are stopped.
//
// The runs come from, in this order of precedence:
// - the model's concurrent environments: one run per environment, under its parameters; any
//   model the library solves (multiple objectives and scenarios too);
// - ConcurrentMIP k > 1 on a MIP with one objective and no scenarios: k searches, search i with
//   Seed + i and MIPFocus cycling through the model's own, 1, 2 and 3;
// - Method 3 on a continuous linear model with one objective and no scenarios: the algorithms
//   ConcurrentMethod names (primal simplex, dual simplex, barrier), one run each.
// The model's Threads (0: HiGHS' default) are shared out evenly among the runs, at least one
// each; an environment that sets its own Threads keeps it. TimeLimit covers the whole solve.
// When no run finishes (limits, terminate), the run with the best objective gives the result.
// User callbacks are not called during a concurrent solve, and the runs write no log of their
// own: the log names the runs, the winner and its summary.
#pragma once

#include <memory>

#include "core/status.h"
#include "engine/solution.h"
#include "model/model.h"

namespace vlm::algorithms {

// True when optimize should solve the updated model concurrently (the list above). O(columns).
bool concurrent_applies(Model& m);

// Runs the concurrent solve of the updated model and returns the winner's Solution: its
// statuses, values and counts, with Runtime the wall time of the whole solve, Work the
// processor time of all runs, and ConcurrentWinMethod (continuous models) the algorithm of the
// winner: 0 primal simplex, 1 dual simplex, 2 barrier. The model takes the winner's basis for
// its next solve. The caller holds the model in its solving state. Fails as the engine fails
// when every run failed or none finished (the message names the run). Cost: the runs, side by
// side.
StatusOr<std::unique_ptr<Solution>> solve_concurrent(Model& m);

}  // namespace vlm::algorithms
