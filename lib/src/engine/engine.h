// The solving engine behind VLMoptimize.
//
// SOS, general and PWL-objective constructs reach HiGHS through the reformulation step
// (reform/pipeline.h), which hands the engine a working problem; the engine never sees them.
// Quadratic constraints, and quadratic objectives with integer columns, are solved by the
// driver in algorithms/quadratic_search.h (branch and bound with outer approximation).
// Linear models with Lazy constraints are solved by algorithms/callback_search.h, which holds
// those rows out of the relaxation and adds them when a point violates them.
// Not implemented yet (each fails with VLM_ERROR_NOT_SUPPORTED naming the element kind):
// 2-norms and nonconvex quadratics. Multiple objectives and scenarios: algorithms/solve.h.
//
// The model keeps its HiGHS instance between optimize calls and passes it only what changed
// since (engine/kept_problem.h); LP re-solves start from the basis HiGHS keeps, MIP re-solves
// from the previous incumbent when it still fits.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/status.h"
#include "engine/kept_problem.h"
#include "model/model.h"
#include "reform/working_problem.h"

namespace vlm::engine {

// Solves the updated model and stores its Solution on the model (a model with one objective
// and no scenarios; algorithms/solve.h dispatches the others). A failure of the engine
// itself is returned; infeasible, unbounded and limit outcomes are statuses, not failures.
Status optimize(Model& m);

// Marks the model as solving for its lifetime (attribute writes and a second optimize are
// refused meanwhile).
struct SolvingScope {
  Model& m;
  explicit SolvingScope(Model& model) : m(model) { m.set_solving(true); }
  ~SolvingScope() { m.set_solving(false); }
  SolvingScope(const SolvingScope&) = delete;
  SolvingScope& operator=(const SolvingScope&) = delete;
};

// The working problem of the updated model (reform::build_working_problem with the model's
// parameters). Fails as that does. O(model size) plus the reformulations' cost.
Status build_problem(Model& m, reform::WorkingProblem& p);
// The same for `d` (a variant of the model's data: a scenario) with the model's parameters.
Status build_problem(Model& m, const ModelData& d, reform::WorkingProblem& p);

// A basis of a whole working problem in the engine's own status codes.
struct EngineBasis {
  std::vector<int> cols, rows;
};

// How solve_problem treats the model's state around one solve.
struct PhaseOptions {
  // One of several solves of one optimize call (objective levels, scenarios): no start or
  // warm-start basis is taken from the model, and neither a basis for the next call nor the
  // engine instance (for ranging) is kept.
  bool part = false;
  // A line logged before the solve's own banner ("" for none).
  std::string title;
  // Seconds this solve may take when less than the TimeLimit parameter (what remains of a
  // sequence's time).
  double time_limit = VLM_INFINITY;
  // A part of a sequence of continuous solves: the basis to start from (the previous part's,
  // for the same columns and at most as many rows), and where to put the final one. Either
  // may be null.
  const EngineBasis* start_basis = nullptr;
  EngineBasis* final_basis = nullptr;
  // A part of a sequence of MIP solves: a solution over all working columns to start from (the
  // previous part's), and where to put the final one. Either may be null.
  const std::vector<double>* start_x = nullptr;
  std::vector<double>* final_x = nullptr;
  // Overrides of the model's settings for this solve: presolve off (0) or on (1), -1 keeps
  // Presolve; a continuous problem by primal (0) or dual (1) simplex, -1 keeps Method.
  int presolve = -1;
  int simplex = -1;
};

// Solves `p` as it is (its costs, sense and constant are the objective; columns and rows
// beyond the user's are ignored in the result) and returns the Solution mapped onto the user's
// elements, without storing it on the model. The caller holds the model in its solving state.
// A failure of the engine itself is returned; infeasible, unbounded and limit outcomes are
// statuses. Cost: one HiGHS solve.
StatusOr<std::unique_ptr<Solution>> solve_problem(Model& m, const reform::WorkingProblem& p,
                                                  const PhaseOptions& phase);

// The sensitivity ranges of a continuous model's optimal basic solution, computed once from the
// kept engine instance; nullptr when the solution has no basis (MIP, interior solution without
// crossover, not optimal).
const Sensitivity* sensitivity(const ModelData& d, const Solution& s);

// How the model's problems reached its kept HiGHS instance so far (whole passes, passes of
// the differences only, fallbacks); nullptr before the first optimize. For tests and
// benchmarks. O(1).
const PassCounts* pass_counts(Model& m);

// Asks the solve running on `m` (from another thread) to stop as soon as it can.
void terminate(Model& m);

}  // namespace vlm::engine
