#include "algorithms/scenarios.h"

#include <cstdio>
#include <string>
#include <vector>

#include "algorithms/multiobj.h"
#include "engine/engine.h"

namespace vlm::algorithms {

ModelData scenario_model(const ModelData& d, int s) {
  ModelData c = d;
  const Scenario& sc = d.scenarios[static_cast<std::size_t>(s)];
  for (const auto& [j, v] : sc.lb) c.lb[j] = v;
  for (const auto& [j, v] : sc.ub) c.ub[j] = v;
  for (const auto& [j, v] : sc.obj) c.obj[j] = v;
  if (!c.objn.empty() && !sc.obj.empty()) {
    // The changes go to objective 0 as it is solved: made explicit first, so that an objective
    // 0 standing for the primary objective keeps the primary's other coefficients.
    c.objn[0] = effective_objectives(d)[0];
    for (const auto& [j, v] : sc.obj) c.objn[0].coef[j] = v;
  }
  for (const auto& [i, v] : sc.rhs) c.rhs[i] = v;
  c.scenarios.clear();
  return c;
}

namespace {

Status in_scenario(const Status& s, int k, const std::string& name) {
  std::string who = "Scenario " + std::to_string(k);
  if (!name.empty()) who += " ('" + name + "')";
  return Status(s.code(), who + ": " + s.message());
}

// The multi-objective sequence for the base model and then for every scenario.
Status optimize_multiobj_scenarios(Model& m) {
  const ModelData& d = m.data();
  const double limit = m.env().params().dbl_param("TimeLimit");
  VLM_ASSIGN_OR_RETURN(MultiobjResult base, solve_multiobj(m, d, "Scenarios: base model: ", limit, false));
  std::unique_ptr<Solution> sol = std::move(base.sol);
  const double none = d.sense == -1 ? -VLM_INFINITY : VLM_INFINITY;
  const int count = static_cast<int>(d.scenarios.size());
  sol->scenarios.resize(count);
  for (int k = 0; k < count; ++k) {
    const ModelData sd = scenario_model(d, k);
    char title[96];
    std::snprintf(title, sizeof title, "Scenarios: scenario %d of %d: ", k + 1, count);
    // The base model's first level is a start of the right shape for the scenario's first.
    auto r = solve_multiobj(m, sd, title, limit - sol->runtime, false, &base);
    if (!r.ok()) return in_scenario(r.status(), k, d.scenarios[k].name);
    const Solution& s = *r->sol;
    ScenarioResult& out = sol->scenarios[k];
    out.status = s.status;
    if (s.sol_count > 0 && !s.x.empty()) {
      out.x = s.x;
      out.objval = r->first_obj;
      out.objbound = r->first_bound;
      out.objn_val = s.objn_val;
    } else {
      out.objval = none;
      out.objbound = s.status == VLM_INFEASIBLE ? none : -none;
    }
    sol->runtime += s.runtime;
    sol->itercount += s.itercount;
    sol->nodecount += s.nodecount;
    sol->work += s.work;
  }
  char line[128];
  std::snprintf(line, sizeof line, "Multi-objectives: %zu objectives, %d scenarios and the base model solved in %.2f seconds",
                d.objn.size(), count, sol->runtime);
  m.env().message(line);
  m.set_solution(std::move(sol));
  return Status::Ok();
}

}  // namespace

Status optimize_scenarios(Model& m) {
  const ModelData& d = m.data();
  if (!d.objn.empty()) return optimize_multiobj_scenarios(m);
  reform::WorkingProblem base;
  VLM_RETURN_IF_ERROR(engine::build_problem(m, base));
  engine::PhaseOptions phase;
  phase.part = true;
  phase.title = "Scenarios: solve the base model";
  // Scenarios change bounds, costs and right-hand sides only, so the base model's basis (or
  // solution, for a MIP) is a start of the right shape; the engine uses it only when it fits.
  engine::EngineBasis base_basis;
  std::vector<double> base_x;
  phase.final_basis = &base_basis;
  phase.final_x = &base_x;
  VLM_ASSIGN_OR_RETURN(std::unique_ptr<Solution> sol, engine::solve_problem(m, base, phase));
  const double none = d.sense == -1 ? -VLM_INFINITY : VLM_INFINITY;
  const int count = static_cast<int>(d.scenarios.size());
  sol->scenarios.resize(count);
  phase.final_basis = nullptr;
  phase.final_x = nullptr;
  phase.start_basis = base_basis.cols.empty() ? nullptr : &base_basis;
  phase.start_x = base_x.empty() ? nullptr : &base_x;
  for (int k = 0; k < count; ++k) {
    const ModelData sd = scenario_model(d, k);
    reform::WorkingProblem p;
    Status built = engine::build_problem(m, sd, p);
    if (!built.ok()) return in_scenario(built, k, d.scenarios[k].name);
    char title[96];
    std::snprintf(title, sizeof title, "Scenarios: solve scenario %d of %d", k + 1, count);
    phase.title = title;
    phase.time_limit = m.env().params().dbl_param("TimeLimit") - sol->runtime;
    auto r = engine::solve_problem(m, p, phase);
    if (!r.ok()) return in_scenario(r.status(), k, d.scenarios[k].name);
    const Solution& s = **r;
    ScenarioResult& out = sol->scenarios[k];
    out.status = s.status;
    if (s.sol_count > 0 && !s.x.empty()) {
      out.x = s.x;
      out.objval = s.objval;
      out.objbound = s.objbound;
    } else {
      out.objval = none;
      // Infeasible: nothing to bound, so the bound meets the value; otherwise no bound is known.
      out.objbound = s.status == VLM_INFEASIBLE ? none : -none;
    }
    sol->runtime += s.runtime;
    sol->itercount += s.itercount;
    sol->nodecount += s.nodecount;
    sol->work += s.work;
  }
  m.set_solution(std::move(sol));
  return Status::Ok();
}

}  // namespace vlm::algorithms
