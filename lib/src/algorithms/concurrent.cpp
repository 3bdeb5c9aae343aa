#include "algorithms/concurrent.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "algorithms/param_override.h"
#include "algorithms/solve.h"
#include "params/param_table.h"

namespace vlm::algorithms {

namespace {

bool finished(const Solution& s) {
  return s.status == VLM_OPTIMAL || s.status == VLM_INFEASIBLE || s.status == VLM_UNBOUNDED ||
         s.status == VLM_INF_OR_UNBD || s.status == VLM_CUTOFF;
}

}  // namespace

StatusOr<std::unique_ptr<Solution>> solve_concurrent(Model& m) {
  const auto t0 = std::chrono::steady_clock::now();
  auto elapsed = [&t0] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(); };
  const int sense = m.data().sense;
  const double model_limit = m.env().params().dbl_param("TimeLimit");
  const int runs = static_cast<int>(m.concurrent_envs().size());
  const int tl = find_param("TimeLimit");
  std::unique_ptr<Solution> best;
  int winner = -1;
  double best_time = VLM_INFINITY;  // time of the fastest finished run
  double iters = 0.0, bariters = 0.0, nodes = 0.0, work = 0.0;
  for (int k = 0; k < runs; ++k) {
    const double left = model_limit - elapsed();
    if (left <= 0.0 && best != nullptr) break;
    ParamSet ps = m.concurrent_envs()[k]->params();
    const double limit = std::max(0.0, std::min({ps.get_dbl(tl), left, best_time}));
    VLM_RETURN_IF_ERROR(ps.set_dbl(tl, limit));
    char line[96];
    std::snprintf(line, sizeof line, "Concurrent: run %d of %d", k + 1, runs);
    m.env().message(line);
    StatusOr<std::unique_ptr<Solution>> run = [&] {
      ParamOverride settings(m, ps);
      return solve_single(m);
    }();
    if (!run.ok()) {
      return Status(run.status().code(), "Concurrent run " + std::to_string(k) + ": " + run.status().message());
    }
    std::unique_ptr<Solution> sol = std::move(run.value());
    iters += sol->itercount;
    bariters += sol->baritercount;
    nodes += sol->nodecount;
    work += sol->work;
    bool better;
    if (best == nullptr) {
      better = true;
    } else if (finished(*sol) != finished(*best)) {
      better = finished(*sol);
    } else if (finished(*sol)) {
      better = sol->runtime < best->runtime;
    } else {
      const bool has = sol->sol_count > 0, had = best->sol_count > 0;
      better = has && (!had || (sense == -1 ? sol->objval > best->objval : sol->objval < best->objval));
    }
    if (finished(*sol)) best_time = std::min(best_time, sol->runtime);
    if (better) {
      best = std::move(sol);
      winner = k;
    }
  }
  char line[128];
  std::snprintf(line, sizeof line, "Concurrent: run %d wins (%.2f seconds for %d runs)", winner + 1, elapsed(), runs);
  m.env().message(line);
  best->runtime = elapsed();
  best->itercount = iters;
  best->baritercount = bariters;
  best->nodecount = nodes;
  best->work = work;
  return best;
}

}  // namespace vlm::algorithms
