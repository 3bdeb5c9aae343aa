#include "algorithms/concurrent.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "algorithms/parallel_runs.h"
#include "engine/engine_log.h"
#include "engine/sigint.h"
#include "engine/solver_threads.h"
#include "engine/stop_flag.h"
#include "params/param_table.h"

namespace vlm::algorithms {

namespace {

struct PlannedRun {
  ParamSet params;
  std::string label;
  bool own_threads = false;  // the run's settings name their own thread count
};

bool is_mip(const ModelData& d) {
  return !d.sos.empty() || !d.genconstrs.empty() ||
         std::any_of(d.vtype.begin(), d.vtype.end(), [](char c) { return c != 'C'; });
}

bool single(const ModelData& d) { return d.objn.empty() && d.scenarios.empty(); }

const char* method_name(int method) {
  switch (method) {
    case 0: return "primal simplex";
    case 1: return "dual simplex";
    default: return "barrier";
  }
}

std::vector<PlannedRun> plan(Model& m) {
  const ParamSet& ps = m.env().params();
  const int threads = find_param("Threads");
  std::vector<PlannedRun> runs;
  if (!m.concurrent_envs().empty()) {
    int k = 0;
    for (const auto& e : m.concurrent_envs()) {
      const ParamSet& own = e ? e->params() : ps;
      runs.push_back({own, "environment " + std::to_string(k++), own.get_int(threads) != ps.get_int(threads)});
    }
    return runs;
  }
  const ModelData& d = m.data();
  if (is_mip(d)) {
    const int seed = find_param("Seed"), focus = find_param("MIPFocus");
    const int k = ps.int_param("ConcurrentMIP");
    for (int i = 0; i < k; ++i) {
      ParamSet run = ps;
      (void)run.set_int(seed, std::min<long long>(static_cast<long long>(ps.get_int(seed)) + i, VLM_MAXINT));
      if (i % 4 != 0) (void)run.set_int(focus, i % 4);
      runs.push_back({run, "search " + std::to_string(i) + " (MIPFocus " + std::to_string(run.get_int(focus)) +
                               ", Seed " + std::to_string(run.get_int(seed)) + ")"});
    }
    return runs;
  }
  std::vector<int> methods;
  switch (ps.int_param("ConcurrentMethod")) {
    case 1: methods = {2, 1}; break;
    case 2: methods = {2, 0}; break;
    case 3: methods = {0, 1}; break;
    default: methods = {0, 1, 2}; break;
  }
  for (int method : methods) {
    ParamSet run = ps;
    (void)run.set_int(find_param("Method"), method);
    runs.push_back({run, method_name(method)});
  }
  return runs;
}

// The algorithm of a continuous run: the one its Method names, else what HiGHS chose (it
// chooses dual simplex unless it ran the interior point method).
int win_method(const ParamSet& ps, const Solution& s) {
  const int method = ps.int_param("Method");
  if (method >= 0 && method <= 2) return method;
  return s.baritercount > 0 ? 2 : 1;
}

}  // namespace

bool concurrent_applies(Model& m) {
  if (!m.concurrent_envs().empty()) return true;
  const ModelData& d = m.data();
  if (!single(d)) return false;
  const ParamSet& ps = m.env().params();
  if (is_mip(d)) return ps.int_param("ConcurrentMIP") > 1;
  return ps.int_param("Method") == 3 && d.qval.empty() && d.qconstrs.empty();
}

StatusOr<std::unique_ptr<Solution>> solve_concurrent(Model& m) {
  const auto t0 = std::chrono::steady_clock::now();
  std::vector<PlannedRun> planned = plan(m);
  const int n = static_cast<int>(planned.size());
  const int want = m.env().params().int_param("Threads");
  const int share = std::max(1, (want > 0 ? want : engine::default_highs_threads()) / n);
  const int threads = find_param("Threads"), time_limit = find_param("TimeLimit");
  const double model_limit = m.env().params().dbl_param("TimeLimit");
  std::vector<CopyRun> runs(n);
  for (int k = 0; k < n; ++k) {
    ParamSet& ps = planned[k].params;
    if (!planned[k].own_threads) VLM_RETURN_IF_ERROR(ps.set_int(threads, share));
    if (ps.get_dbl(time_limit) > model_limit) VLM_RETURN_IF_ERROR(ps.set_dbl(time_limit, model_limit));
    runs[k].copy = run_copy(m, ps);
  }
  {
    std::string names;
    for (const PlannedRun& r : planned) names += (names.empty() ? "" : ", ") + r.label;
    m.env().message("Concurrent solve: " + std::to_string(n) + " runs (" + names + "), " + std::to_string(share) +
                    (share == 1 ? " thread" : " threads") + " per run");
  }

  engine::StopFlag stop(&m);
  engine::SigintScope sigint(m.take_signal_request(), &stop.flag);
  const int first = run_copies(runs, n, stop.flag, true);

  const int sense = m.data().sense;
  int winner = first;
  double work = 0.0;
  for (int k = 0; k < n; ++k) {
    const Solution* s = runs[k].status.ok() ? runs[k].copy->solution() : nullptr;
    if (s == nullptr) continue;
    work += s->work;
    if (first >= 0) continue;
    // No run finished: the best objective found, else the first run that ended.
    const Solution* w = winner >= 0 ? runs[winner].copy->solution() : nullptr;
    const bool better = w == nullptr || (s->sol_count > 0 && (w->sol_count == 0 || sense * s->objval < sense * w->objval));
    if (better) winner = k;
  }
  if (winner < 0) {
    for (int k = 0; k < n; ++k) {
      if (!runs[k].status.ok()) {
        return Status(runs[k].status.code(),
                      "Concurrent run " + std::to_string(k) + " (" + planned[k].label + "): " + runs[k].status.message());
      }
    }
    return Status(VLM_ERROR_INTERNAL, "No concurrent run ended");
  }
  // Another run gives the result: a failed run is only reported.
  for (int k = 0; k < n; ++k) {
    if (!runs[k].status.ok()) {
      m.env().message("Concurrent: run " + std::to_string(k) + " (" + planned[k].label +
                      ") failed: " + runs[k].status.message());
    }
  }
  Model& won = *runs[winner].copy;
  std::unique_ptr<Solution> sol = won.take_solution();
  const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  char line[160];
  std::snprintf(line, sizeof line, "Concurrent: run %d (%s) %s after %.2f seconds", winner, planned[winner].label.c_str(),
                first >= 0 ? "finished first" : "has the best result", runs[winner].seconds);
  m.env().message(line);
  sol->runtime = elapsed;
  sol->work = work;
  sol->concurrent_win_method = sol->is_mip ? -1 : win_method(planned[winner].params, *sol);
  if (const Model::WarmBasis* b = won.warm_basis()) m.set_warm_basis(*b);
  engine::log_summary(m.env(), *sol);
  return sol;
}

}  // namespace vlm::algorithms
