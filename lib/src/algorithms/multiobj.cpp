#include "algorithms/multiobj.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "algorithms/param_override.h"
#include "callbacks/session.h"
#include "engine/engine.h"

namespace vlm::algorithms {

namespace {

double coef_of(const ObjectiveN& o, int j) { return j < static_cast<int>(o.coef.size()) ? o.coef[j] : 0.0; }

double value_of(const std::vector<double>& c, const std::vector<double>& x) {
  double v = 0.0;
  for (std::size_t j = 0; j < c.size() && j < x.size(); ++j) v += c[j] * x[j];
  return v;
}

std::string level_title(const ObjectiveLevel& L, std::size_t k, std::size_t n) {
  std::string objs;
  for (int i : L.members) objs += (objs.empty() ? "" : ", ") + std::to_string(i);
  char line[160];
  std::snprintf(line, sizeof line, "Multi-objectives: optimize level %zu of %zu (priority %d, objective%s %s)", k + 1,
                n, L.priority, L.members.size() > 1 ? "s" : "", objs.c_str());
  return line;
}

}  // namespace

std::vector<ObjectiveN> effective_objectives(const ModelData& d) {
  std::vector<ObjectiveN> objs = d.objn;
  const int n = d.num_vars();
  for (ObjectiveN& o : objs) o.coef.resize(n, 0.0);
  if (!objs.empty()) {
    ObjectiveN& first = objs[0];
    const bool empty = first.con == 0.0 && std::all_of(first.coef.begin(), first.coef.end(), [](double c) { return c == 0.0; });
    const bool primary = d.objcon != 0.0 || std::any_of(d.obj.begin(), d.obj.end(), [](double c) { return c != 0.0; });
    if (empty && primary) {
      first.coef = d.obj;
      first.con = d.objcon;
    }
  }
  return objs;
}

std::vector<ObjectiveLevel> objective_levels(const ModelData& d) {
  std::map<int, ObjectiveLevel, std::greater<int>> by_priority;
  const int n = d.num_vars();
  const std::vector<ObjectiveN> objs = effective_objectives(d);
  for (int k = 0; k < static_cast<int>(objs.size()); ++k) {
    const ObjectiveN& o = objs[k];
    ObjectiveLevel& L = by_priority[o.priority];
    if (L.members.empty()) {
      L.priority = o.priority;
      L.cost.assign(n, 0.0);
    }
    L.members.push_back(k);
    for (int j = 0; j < n; ++j) L.cost[j] += o.weight * coef_of(o, j);
    L.constant += o.weight * o.con;
    L.abstol = std::max(L.abstol, o.abstol);
    L.reltol = std::max(L.reltol, o.reltol);
  }
  std::vector<ObjectiveLevel> out;
  for (auto& [p, L] : by_priority) out.push_back(std::move(L));
  return out;
}

Status optimize_multiobj(Model& m) {
  VLM_ASSIGN_OR_RETURN(MultiobjResult r,
                       solve_multiobj(m, m.data(), "", m.env().params().dbl_param("TimeLimit"), true));
  m.set_solution(std::move(r.sol));
  return Status::Ok();
}

StatusOr<MultiobjResult> solve_multiobj(Model& m, const ModelData& d, const std::string& title_prefix,
                                        double time_limit, bool log_summary, const MultiobjResult* start) {
  MultiobjResult result;
  reform::WorkingProblem p;
  VLM_RETURN_IF_ERROR(engine::build_problem(m, d, p));
  // The objectives are linear; the primary objective's Hessian and PWL terms are not used.
  p.qstart.clear();
  p.qindex.clear();
  p.qval.clear();
  const std::vector<ObjectiveLevel> levels = objective_levels(d);
  const int n = d.num_vars();
  const int method = m.env().params().int_param("MultiObjMethod");
  // MultiObjPre 0 turns presolve off for every level; 1 and 2 turn it on (HiGHS has one
  // presolve level); -1 keeps the Presolve parameter.
  const int pre = m.env().params().int_param("MultiObjPre");
  std::unique_ptr<Solution> best;
  // Each level of a continuous model starts from the previous level's basis, which stays
  // primal feasible under the new degradation row.
  engine::EngineBasis basis[2];
  // MIP levels start from the previous level's solution, which satisfies the new row.
  std::vector<double> full_x[2];
  double runtime = 0.0, iters = 0.0, bariters = 0.0, nodes = 0.0, work = 0.0;
  for (std::size_t k = 0; k < levels.size(); ++k) {
    const ObjectiveLevel& L = levels[k];
    std::fill(p.cost.begin(), p.cost.end(), 0.0);
    std::copy(L.cost.begin(), L.cost.end(), p.cost.begin());
    p.objcon = L.constant;
    engine::PhaseOptions phase;
    phase.part = true;
    phase.title = title_prefix + level_title(L, k, levels.size());
    phase.presolve = pre < 0 ? -1 : pre == 0 ? 0 : 1;
    phase.time_limit = time_limit - runtime;
    basis[k % 2].cols.clear();
    // MultiObjMethod 2 discards the previous basis (Method decides); 0 / 1 re-solve a later
    // level by primal / dual simplex from it; -1 leaves the choice to the engine.
    phase.start_basis = k > 0 && method != 2 ? &basis[(k + 1) % 2] : nullptr;
    if (k == 0 && start != nullptr && !start->first_basis.cols.empty()) phase.start_basis = &start->first_basis;
    phase.simplex = k > 0 ? method : -1;
    phase.final_basis = &basis[k % 2];
    full_x[k % 2].clear();
    phase.start_x = k > 0 ? &full_x[(k + 1) % 2] : nullptr;
    if (k == 0 && start != nullptr && !start->first_x.empty()) phase.start_x = &start->first_x;
    phase.final_x = &full_x[k % 2];
    // A level's multi-objective environment, when the user made one, sets its parameters.
    std::optional<ParamOverride> level_settings;
    if (k < m.multiobj_envs().size() && m.multiobj_envs()[k] != nullptr) {
      phase.title += " with the settings of its environment";
      level_settings.emplace(m, m.multiobj_envs()[k]->params());
    }
    // VLMcbstoponemultiobj during this level's solve interrupts it; the search then goes on
    // with the next level from the level's best solution.
    callbacks::Session* session = callbacks::active(m);
    if (session != nullptr) {
      session->stop_objective() = -1;
      session->take_proceed();
      session->in_level() = true;
    }
    auto solved = engine::solve_problem(m, p, phase);
    if (session != nullptr) session->in_level() = false;
    VLM_ASSIGN_OR_RETURN(std::unique_ptr<Solution> sol, std::move(solved));
    // A proceed ends the level like a stop of this objective.
    const bool stopped_one = session != nullptr &&
                             (std::exchange(session->stop_objective(), -1) >= 0 || session->take_proceed()) &&
                             sol->status == VLM_INTERRUPTED;
    level_settings.reset();
    runtime += sol->runtime;
    iters += sol->itercount;
    bariters += sol->baritercount;
    nodes += sol->nodecount;
    work += sol->work;
    const bool found = sol->sol_count > 0 && !sol->x.empty();
    if (!found) {
      // The first level decides feasibility; a later one without a solution (a limit) keeps
      // the previous level's solution under its own status.
      if (best == nullptr) {
        best = std::move(sol);
      } else {
        best->status = sol->status;
      }
      break;
    }
    const bool optimal = sol->status == VLM_OPTIMAL || stopped_one;
    if (k == 0) {
      result.first_basis = basis[0];
      result.first_x = full_x[0];
      result.first_obj = value_of(L.cost, sol->x) + L.constant;
      // A continuous optimum is its own bound; a MIP level's bound is the engine's, for the
      // level's costs and constant as the working problem carries them.
      result.first_bound = !sol->is_mip && sol->status == VLM_OPTIMAL ? result.first_obj : sol->objbound;
    }
    best = std::move(sol);
    if (session != nullptr) {
      callbacks::Point at;
      at.objcnt = static_cast<int>(k + 1);
      at.solutions = 1;
      at.x = best->x.data();
      session->call(VLM_CB_MULTIOBJ, at);
      // A stop asked for here, after the level, has nothing left to stop.
      session->stop_objective() = -1;
    }
    if (!optimal) break;
    if (k + 1 < levels.size()) {
      const double z = value_of(L.cost, best->x);
      const double t = std::max(L.abstol, L.reltol * std::fabs(z));
      std::vector<int> ind;
      std::vector<double> val;
      for (int j = 0; j < n; ++j) {
        if (L.cost[j] != 0.0) {
          ind.push_back(j);
          val.push_back(L.cost[j]);
        }
      }
      if (!ind.empty()) {
        if (d.sense == -1) {
          p.add_row(ind, val, z - t, INFINITY);
        } else {
          p.add_row(ind, val, -INFINITY, z + t);
        }
      }
    }
  }
  best->runtime = runtime;
  best->itercount = iters;
  best->baritercount = bariters;
  best->nodecount = nodes;
  best->work = work;
  if (best->sol_count > 0 && !best->x.empty()) {
    const std::vector<ObjectiveN> objs = effective_objectives(d);
    best->objn_val.resize(objs.size());
    for (std::size_t k = 0; k < objs.size(); ++k) {
      double v = objs[k].con;
      for (int j = 0; j < n; ++j) v += coef_of(objs[k], j) * best->x[j];
      best->objn_val[k] = v;
    }
    best->objval = best->objn_val.empty() ? 0.0 : best->objn_val[0];
    // A continuous optimum is exact: objective 0's value is its own bound.
    if (!best->is_mip && best->status == VLM_OPTIMAL) best->objbound = best->objval;
    best->pool_x.assign(1, best->x);
    best->pool_obj.assign(1, best->objval);
    best->sol_count = 1;
  }
  if (levels.size() > 1) {
    best->has_duals = false;
    best->has_basis = false;
    best->rc.clear();
    best->pi.clear();
    best->vbasis.clear();
    best->cbasis.clear();
  }
  if (log_summary) {
    char line[128];
    std::snprintf(line, sizeof line, "Multi-objectives: %zu objectives in %zu levels solved in %.2f seconds",
                  d.objn.size(), levels.size(), runtime);
    m.env().message(line);
  }
  result.sol = std::move(best);
  return result;
}

}  // namespace vlm::algorithms
