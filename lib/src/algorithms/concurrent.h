// Concurrent solves: one run of the model per concurrent environment, the fastest to finish
// wins.
//
// Each run solves the model under the parameters of its environment (Method, Seed, Presolve,
// MIPFocus, ...; PoolSearchMode too). HiGHS keeps its thread pool per calling thread and tears
// it down on destroy, so runs on short-lived threads are fragile; the runs are therefore raced
// one after another on the calling thread: once a run has finished (optimal, infeasible or
// unbounded), every later run gets at most that run's time, so a later run wins only by
// finishing sooner, as in a race. The winner is the finished run with the shortest time; when
// no run finished, the run with the best objective (the first one on a tie). TimeLimit (of
// the model, and of each environment for its own run) covers all runs together.
#pragma once

#include <memory>

#include "core/status.h"
#include "engine/solution.h"
#include "model/model.h"

namespace vlm::algorithms {

// Runs the updated model (one objective, no scenarios) under each of its concurrent
// environments as the file comment says and returns the winner's Solution, Runtime being the
// time of all runs. The log names each run and the winner. The caller holds the model in its
// solving state. Fails as the engine fails in any run (the message names the run). Cost: one
// solve per environment, each at most as long as the fastest finished one before it.
StatusOr<std::unique_ptr<Solution>> solve_concurrent(Model& m);

}  // namespace vlm::algorithms
