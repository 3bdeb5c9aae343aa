#include "algorithms/solution_pool.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "algorithms/param_override.h"
#include "attrs/attr_table.h"
#include "engine/engine.h"
#include "params/param_table.h"

namespace vlm::algorithms {

namespace {

// An integer column that tells pool solutions apart, with its integral bounds.
struct Key {
  int col;
  double lo, up;
  bool binary() const { return lo == 0.0 && up == 1.0; }
};

struct Entry {
  double obj;
  std::vector<double> x;  // the user's columns
};

// The distinguishing columns: the user's integer columns that are not fixed and not marked
// PoolIgnore. A general integer needs finite bounds for its exclusion rows.
StatusOr<std::vector<Key>> keys_of(Model& m, const reform::WorkingProblem& p) {
  const ModelData& d = m.data();
  const auto& extra = d.extra[VLM_KIND_VAR].num;
  const auto ignore = extra.find(find_attr("PoolIgnore"));
  std::vector<Key> keys;
  for (int j = 0; j < p.user_cols; ++j) {
    if (p.integrality[j] != 1) continue;
    if (ignore != extra.end() && ignore->second.v[j] != 0.0) continue;
    const double lo = std::ceil(p.lower[j] - 1e-9), up = std::floor(p.upper[j] + 1e-9);
    if (lo == up) continue;
    if (!std::isfinite(lo) || !std::isfinite(up)) {
      return Status(VLM_ERROR_NOT_SUPPORTED,
                    "PoolSearchMode " + std::to_string(m.env().params().int_param("PoolSearchMode")) +
                        " needs finite bounds on the integer variable '" + d.varname[j] +
                        "' to tell pool solutions apart");
    }
    keys.push_back({j, lo, up});
  }
  return keys;
}

bool same_assignment(const std::vector<Key>& keys, const std::vector<double>& a, const std::vector<double>& b) {
  return std::all_of(keys.begin(), keys.end(),
                     [&](const Key& k) { return std::lround(a[k.col]) == std::lround(b[k.col]); });
}

// Adds the rows (and binaries) that cut the integer assignment of `x` off `p`.
void exclude(reform::WorkingProblem& p, const std::vector<Key>& keys, const std::vector<double>& x) {
  std::vector<int> ind;
  std::vector<double> val;
  double rhs = 1.0;
  for (const Key& k : keys) {
    const double v = static_cast<double>(std::lround(x[k.col]));
    if (k.binary()) {
      ind.push_back(k.col);
      val.push_back(v == 0.0 ? 1.0 : -1.0);
      if (v != 0.0) rhs -= 1.0;
      continue;
    }
    if (v > k.lo) {
      const int dn = p.add_col(0.0, 1.0, 1);
      p.add_row({k.col, dn}, {1.0, k.up - v + 1.0}, -INFINITY, k.up);
      ind.push_back(dn);
      val.push_back(1.0);
    }
    if (v < k.up) {
      const int up = p.add_col(0.0, 1.0, 1);
      p.add_row({k.col, up}, {1.0, -(v + 1.0 - k.lo)}, k.lo, INFINITY);
      ind.push_back(up);
      val.push_back(1.0);
    }
  }
  p.add_row(ind, val, rhs, INFINITY);
}

// Keeps the objective within `limit` (the worst objective a pool solution may have).
void add_cutoff(reform::WorkingProblem& p, double limit) {
  std::vector<int> ind;
  std::vector<double> val;
  for (int j = 0; j < p.ncol; ++j) {
    if (p.cost[j] != 0.0) {
      ind.push_back(j);
      val.push_back(p.cost[j]);
    }
  }
  if (ind.empty()) return;
  if (p.sense == -1) {
    p.add_row(ind, val, limit - p.objcon, INFINITY);
  } else {
    p.add_row(ind, val, -INFINITY, limit - p.objcon);
  }
}

// Whether every solution's objective is an integer plus the constant: only integer columns
// carry costs, and those costs are integers.
bool integral_objective(const reform::WorkingProblem& p) {
  for (int j = 0; j < p.ncol; ++j) {
    if (p.cost[j] == 0.0) continue;
    if (p.integrality[j] != 1 || p.cost[j] != std::round(p.cost[j])) return false;
  }
  return p.qval.empty();
}

bool is_limit(int status) {
  return status != VLM_OPTIMAL && status != VLM_INFEASIBLE && status != VLM_CUTOFF && status != VLM_INF_OR_UNBD &&
         status != VLM_UNBOUNDED && status != VLM_SOLUTION_LIMIT;
}

}  // namespace

bool pool_search_applies(Model& m, const reform::WorkingProblem& p) {
  return p.mip && m.env().params().int_param("PoolSearchMode") > 0;
}

StatusOr<std::unique_ptr<Solution>> solve_pool(Model& m, const reform::WorkingProblem& base) {
  const auto t0 = std::chrono::steady_clock::now();
  auto elapsed = [&t0] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(); };
  const ParamSet user = m.env().params();
  const int mode = user.int_param("PoolSearchMode");
  const int limit = user.int_param("PoolSolutions");
  const double gap = user.dbl_param("PoolGap"), gapabs = user.dbl_param("PoolGapAbs");
  const double time_limit = user.dbl_param("TimeLimit");
  const int sense = base.sense;
  VLM_ASSIGN_OR_RETURN(std::vector<Key> keys, keys_of(m, base));

  // Mode 2 proves every solve optimal; mode 1 takes any solution after the first solve.
  ParamSet first = user, later = user;
  if (mode == 2) {
    VLM_RETURN_IF_ERROR(first.set_dbl(find_param("MIPGap"), 0.0));
    // With an objective that takes only integer values, a gap below 1 is a proof already.
    if (integral_objective(base)) VLM_RETURN_IF_ERROR(first.set_dbl(find_param("MIPGapAbs"), 0.5));
    later = first;
  } else {
    VLM_RETURN_IF_ERROR(later.set_int(find_param("SolutionLimit"), 1));
  }

  reform::WorkingProblem p = base;
  std::unique_ptr<Solution> result;
  std::vector<Entry> pool;
  double worst_allowed = sense == -1 ? -INFINITY : INFINITY;  // the gap's cutoff
  double pool_bound = NAN;
  bool complete = false;
  int solves = 0;
  double iters = 0.0, bariters = 0.0, nodes = 0.0, work = 0.0;
  const double eps_scale = 1e-6;

  auto admit = [&](double obj, const std::vector<double>& x) {
    if (static_cast<int>(pool.size()) >= limit) return false;
    if (sense == -1 ? obj < worst_allowed : obj > worst_allowed) return false;
    for (const Entry& e : pool) {
      if (same_assignment(keys, e.x, x)) return false;
    }
    pool.push_back({obj, x});
    exclude(p, keys, x);
    return true;
  };

  while (static_cast<int>(pool.size()) < limit) {
    engine::PhaseOptions phase;
    phase.part = true;
    phase.time_limit = std::max(0.0, time_limit - elapsed());
    char title[96];
    std::snprintf(title, sizeof title, "Solution pool: solve %d (%zu solution%s so far)", solves + 1, pool.size(),
                  pool.size() == 1 ? "" : "s");
    phase.title = title;
    std::unique_ptr<Solution> sol;
    {
      ParamOverride settings(m, solves == 0 ? first : later);
      VLM_ASSIGN_OR_RETURN(sol, engine::solve_problem(m, p, phase));
    }
    ++solves;
    iters += sol->itercount;
    bariters += sol->baritercount;
    nodes += sol->nodecount;
    work += sol->work;
    const bool found = sol->sol_count > 0 && !sol->x.empty();
    if (solves == 1) {
      // Without an optimum the search has no reference: report the solve as it is.
      if (!found || sol->status != VLM_OPTIMAL) {
        result = std::move(sol);
        break;
      }
      const double z = sol->objval;
      // The library's infinity means no gap (and must not meet a zero objective).
      const double rel = gap >= VLM_INFINITY ? INFINITY : gap * std::fabs(z);
      const double allowance = std::min(gapabs >= VLM_INFINITY ? INFINITY : gapabs, rel);
      if (std::isfinite(allowance)) {
        const double slack = allowance + eps_scale * std::max(1.0, std::fabs(z));
        worst_allowed = sense == -1 ? z - slack : z + slack;
        add_cutoff(p, worst_allowed);
      }
      admit(sol->objval, sol->x);
      if (mode == 1) {
        for (std::size_t k = 1; k < sol->pool_x.size(); ++k) admit(sol->pool_obj[k], sol->pool_x[k]);
      }
      result = std::move(sol);
      // Without distinguishing columns every solution is the same pool entry.
      if (keys.empty()) {
        complete = true;
        pool_bound = worst_allowed;
        break;
      }
      continue;
    }
    if (!found) {
      if (sol->status == VLM_INFEASIBLE || sol->status == VLM_INF_OR_UNBD || sol->status == VLM_CUTOFF) {
        complete = true;
        pool_bound = worst_allowed;
      } else {
        result->status = sol->status;
        if (mode == 2) pool_bound = sol->objbound;
      }
      break;
    }
    // Mode 2 stops at a limit with the solution of that solve unproven: it is kept, as the
    // pool's last entry, and the solve's bound is the pool's.
    if (mode == 2 && sol->status != VLM_OPTIMAL) {
      admit(sol->objval, sol->x);
      if (is_limit(sol->status)) result->status = sol->status;
      pool_bound = sol->objbound;
      break;
    }
    bool added = false;
    if (mode == 2) {
      added = admit(sol->objval, sol->x);
    } else {
      for (std::size_t k = 0; k < sol->pool_x.size(); ++k) added = admit(sol->pool_obj[k], sol->pool_x[k]) || added;
    }
    // A solve that returns an excluded assignment has found nothing new (numerics): stop.
    if (!added) break;
  }

  result->runtime = elapsed();
  result->itercount = iters;
  result->baritercount = bariters;
  result->nodecount = nodes;
  result->work = work;
  if (!pool.empty()) {
    // Mode 1 collects solutions in any order; X stays the first solve's optimum, which is
    // among the best.
    std::stable_sort(pool.begin(), pool.end(),
                     [sense](const Entry& a, const Entry& b) { return sense == -1 ? a.obj > b.obj : a.obj < b.obj; });
    result->pool_x.clear();
    result->pool_obj.clear();
    for (Entry& e : pool) {
      const bool within = sense == -1 ? e.obj >= worst_allowed : e.obj <= worst_allowed;
      if (!within) continue;
      result->pool_obj.push_back(e.obj);
      result->pool_x.push_back(std::move(e.x));
    }
    result->sol_count = static_cast<int>(result->pool_x.size());
    if (mode == 2 && std::isnan(pool_bound)) pool_bound = result->pool_obj.back();
    if (mode == 1) pool_bound = result->objbound;
    if (std::isinf(pool_bound)) pool_bound = pool_bound > 0 ? VLM_INFINITY : -VLM_INFINITY;
    result->pool_objbound = pool_bound;
  }
  char line[160];
  std::snprintf(line, sizeof line, "Solution pool: %d solution%s found in %d solve%s (%.2f seconds)%s",
                result->sol_count, result->sol_count == 1 ? "" : "s", solves, solves == 1 ? "" : "s",
                result->runtime, complete ? ", no further solution exists" : "");
  m.env().message(line);
  return result;
}

}  // namespace vlm::algorithms
