#include "algorithms/search_solution.h"

#include <cmath>

#include "attrs/attr_engine.h"

namespace vlm::algorithms {

void fill_from_search(const SearchResult& r, const ModelData& d, const reform::WorkingProblem& p, int pool_limit,
                      Solution& sol) {
  const int n = d.num_vars(), m = d.num_constrs();
  sol.status = r.status;
  sol.nodecount = r.nodes;
  sol.itercount = r.lp_iterations;
  sol.objbound = std::isfinite(r.bound) ? r.bound : r.bound > 0 ? VLM_INFINITY : -VLM_INFINITY;
  if (!r.has_solution) return;
  sol.sol_count = 1;
  sol.objval = r.objval;
  sol.x.assign(r.x.begin(), r.x.begin() + n);
  sol.mipgap = sol.objval == 0.0 ? (sol.objbound == 0.0 ? 0.0 : VLM_INFINITY)
                                 : std::fabs(sol.objval - sol.objbound) / std::fabs(sol.objval);
  sol.slack.resize(m);
  for (int i = 0; i < m; ++i) {
    double act = 0.0;
    for (int k = p.astart[i]; k < p.astart[i + 1]; ++k) act += p.aval[k] * r.x[p.aindex[k]];
    sol.slack[i] = d.rhs[i] - act;
  }
  if (!sol.is_mip) return;
  // Incumbents were found in improving order: the last is the best.
  for (auto it = r.incumbents.rbegin(); it != r.incumbents.rend() && static_cast<int>(sol.pool_x.size()) < pool_limit;
       ++it) {
    sol.pool_obj.push_back(it->first);
    sol.pool_x.emplace_back(it->second.begin(), it->second.begin() + n);
  }
  if (sol.pool_x.empty()) {
    sol.pool_obj.push_back(r.objval);
    sol.pool_x.push_back(sol.x);
  }
  sol.sol_count = static_cast<int>(sol.pool_x.size());
}

std::vector<int> branch_priorities(const ModelData& d, int ncol) {
  const auto& cols = d.extra[VLM_KIND_VAR].num;
  auto it = cols.find(find_attr("BranchPriority"));
  if (it == cols.end()) return {};
  std::vector<int> pri(static_cast<std::size_t>(ncol), 0);
  for (int j = 0; j < d.num_vars() && j < ncol; ++j) pri[j] = static_cast<int>(it->second.v[j]);
  return pri;
}

SearchSettings search_settings(Env& env, const ModelData& d, int ncol, const std::atomic<bool>* stop) {
  const ParamSet& ps = env.params();
  auto from_lib = [](double v) { return v >= VLM_INFINITY ? INFINITY : v <= -VLM_INFINITY ? -INFINITY : v; };
  SearchSettings s;
  s.time_limit = from_lib(ps.dbl_param("TimeLimit"));
  s.node_limit = from_lib(ps.dbl_param("NodeLimit"));
  s.solution_limit = ps.int_param("SolutionLimit");
  s.mip_gap = ps.dbl_param("MIPGap");
  s.mip_gap_abs = ps.dbl_param("MIPGapAbs");
  s.int_tol = ps.dbl_param("IntFeasTol");
  s.cutoff = from_lib(ps.dbl_param("Cutoff"));
  s.best_obj_stop = from_lib(ps.dbl_param("BestObjStop"));
  s.best_bd_stop = from_lib(ps.dbl_param("BestBdStop"));
  s.heuristics = ps.dbl_param("Heuristics") > 0;
  s.branch_priority = branch_priorities(d, ncol);
  s.stop = stop;
  s.env = &env;
  return s;
}

}  // namespace vlm::algorithms
