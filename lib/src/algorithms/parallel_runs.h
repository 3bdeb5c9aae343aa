// Solves of copies of a model on the library's solver threads, at the same time: the runs of a
// concurrent solve and the trials of a parallel tuning run.
//
// Each run owns a copy of the model (Model's copy: the updated data and a copy of the
// environment) configured by the caller, so that the runs share nothing but the read-only
// source they were copied from. The calling thread starts the runs and watches them; it stops
// running copies through their terminate flag, which is the only thing other threads touch.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "core/status.h"
#include "model/model.h"

namespace vlm::algorithms {

// One solve of one copy.
struct CopyRun {
  std::unique_ptr<Model> copy;  // set up by the caller; holds the solution afterwards
  Status status = Status::Ok();  // what algorithms::optimize returned
  bool started = false;
  bool ended = false;
  double seconds = 0.0;  // wall time from the run's start to its end
};

// True for the statuses that end a solve by its own result rather than by a limit: optimal,
// infeasible, unbounded, infeasible or unbounded, cutoff. O(1).
bool finished_status(int status);

// Solves the copy of every run with algorithms::optimize on solver threads, at most `width`
// at once, in order, and returns when every started run has ended. The calling thread looks
// at `stop` every few milliseconds: once it reads true, running copies are terminated and runs
// not yet started stay unstarted. With `race`, the first run to end with a finished status
// raises `stop` for the others. No run starts after `deadline`. Returns the index of that first
// finished run (-1 when none finished first, or without `race`). Failures are left in each
// run's status. Cost: the solves.
int run_copies(std::vector<CopyRun>& runs, int width, std::atomic<bool>& stop, bool race,
               std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max());

// A copy of `m` for a run: the updated data, the environment with `params`, the environments
// of the objective levels; it never starts a concurrent solve of its own, and with `quiet` its
// log is silenced (runs side by side would interleave their lines). O(model size).
std::unique_ptr<Model> run_copy(Model& m, const ParamSet& params, bool quiet = true);

}  // namespace vlm::algorithms
