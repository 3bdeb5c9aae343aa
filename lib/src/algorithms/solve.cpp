#include "algorithms/solve.h"

#include "algorithms/concurrent.h"
#include "algorithms/multiobj.h"
#include "algorithms/scenarios.h"
#include "algorithms/solution_pool.h"
#include "callbacks/session.h"
#include "engine/engine.h"

namespace vlm::algorithms {

StatusOr<std::unique_ptr<Solution>> solve_single(Model& m) {
  reform::WorkingProblem p;
  VLM_RETURN_IF_ERROR(engine::build_problem(m, p));
  if (pool_search_applies(m, p)) return solve_pool(m, p);
  return engine::solve_problem(m, p, engine::PhaseOptions{});
}

Status optimize(Model& m) {
  VLM_RETURN_IF_ERROR(m.update());
  const ModelData& d = m.data();
  // The user's callback is called throughout the solve, whichever driver runs it (the engine
  // runs the branch-and-cut search when the callback needs it).
  callbacks::SessionScope session(m);
  const bool concurrent = concurrent_applies(m);
  if (d.objn.empty() && d.scenarios.empty() && !concurrent) {
    if (m.env().params().int_param("PoolSearchMode") == 0) return engine::optimize(m);
    engine::SolvingScope solving(m);
    StatusOr<std::unique_ptr<Solution>> sol = solve_single(m);
    VLM_RETURN_IF_ERROR(sol.status());
    m.set_solution(std::move(sol.value()));
    return Status::Ok();
  }
  if (concurrent) {
    engine::SolvingScope solving(m);
    StatusOr<std::unique_ptr<Solution>> sol = solve_concurrent(m);
    VLM_RETURN_IF_ERROR(sol.status());
    m.set_solution(std::move(sol.value()));
    return Status::Ok();
  }
  engine::SolvingScope solving(m);
  // With scenarios too, the scenario driver runs the multi-objective sequence per scenario.
  return d.scenarios.empty() ? optimize_multiobj(m) : optimize_scenarios(m);
}

}  // namespace vlm::algorithms
