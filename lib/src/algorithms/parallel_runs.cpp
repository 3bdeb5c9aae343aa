#include "algorithms/parallel_runs.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string>

#include "algorithms/solve.h"
#include "engine/engine.h"
#include "engine/solver_threads.h"
#include "params/param_table.h"

namespace vlm::algorithms {

bool finished_status(int status) {
  return status == VLM_OPTIMAL || status == VLM_INFEASIBLE || status == VLM_UNBOUNDED || status == VLM_INF_OR_UNBD ||
         status == VLM_CUTOFF;
}

int run_copies(std::vector<CopyRun>& runs, int width, std::atomic<bool>& stop, bool race,
               std::chrono::steady_clock::time_point deadline) {
  const int n = static_cast<int>(runs.size());
  width = std::max(1, width);
  std::mutex mutex;
  std::condition_variable changed;
  int running = 0, next = 0, first = -1;

  auto start = [&](int k) {
    CopyRun& run = runs[k];
    run.started = true;
    ++running;
    engine::run_on_solver_thread([&, k] {
      CopyRun& r = runs[k];
      const auto t0 = std::chrono::steady_clock::now();
      Status st = Status::Ok();
      try {
        st = optimize(*r.copy);
      } catch (const std::exception& e) {
        st = Status(VLM_ERROR_INTERNAL, std::string("A parallel run failed: ") + e.what());
      } catch (...) {
        st = Status(VLM_ERROR_INTERNAL, "A parallel run failed with an unknown error");
      }
      const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
      std::lock_guard<std::mutex> lock(mutex);
      r.status = std::move(st);
      r.seconds = seconds;
      r.ended = true;
      --running;
      if (race && first < 0 && r.status.ok() && r.copy->solution() != nullptr &&
          finished_status(r.copy->solution()->status)) {
        first = k;
        stop.store(true);
      }
      changed.notify_all();
    });
  };

  std::unique_lock<std::mutex> lock(mutex);
  for (;;) {
    const bool stopping = stop.load();
    if (next < n && std::chrono::steady_clock::now() >= deadline) next = n;
    while (!stopping && next < n && running < width) start(next++);
    if (running == 0 && (stopping || next >= n)) break;
    if (stopping) {
      // A copy whose solve has not registered its flag yet misses a terminate: repeat it until
      // every run has ended.
      for (CopyRun& r : runs) {
        if (r.started && !r.ended) engine::terminate(*r.copy);
      }
    }
    changed.wait_for(lock, std::chrono::milliseconds(5));
  }
  return first;
}

std::unique_ptr<Model> run_copy(Model& m, const ParamSet& params, bool quiet) {
  auto copy = std::make_unique<Model>(m);
  ParamSet& ps = copy->env().params();
  ps = params;
  if (quiet) (void)ps.set_int(find_param("OutputFlag"), 0);
  (void)ps.set_int(find_param("ConcurrentMIP"), 1);
  const int method = find_param("Method");
  if (ps.get_int(method) >= 3) (void)ps.set_int(method, -1);
  for (const auto& e : m.multiobj_envs()) {
    copy->multiobj_envs().push_back(e ? std::make_unique<Env>(*e) : nullptr);
    if (e && quiet) (void)copy->multiobj_envs().back()->params().set_int(find_param("OutputFlag"), 0);
  }
  return copy;
}

}  // namespace vlm::algorithms
