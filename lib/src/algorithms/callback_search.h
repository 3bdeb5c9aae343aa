// The search behind lazy constraints and callbacks that steer the solve.
//
// A lazy row is a row that every reported solution satisfies but that the relaxation does not
// hold from the start: constraints with Lazy > 0 are held out, and callbacks hand more back at
// candidate solutions (SearchHooks::at_solution) or node relaxations (at_node). Three drivers
// keep the one contract that matters, that no reported solution violates a known lazy row:
//
// - Restart loop: HiGHS's own MIP runs on the rows known so far. Each solution it finds is
//   checked against the lazy rows and given to at_solution; rejected ones add their violated
//   rows. HiGHS prunes with an incumbent whose value only falls, so a run whose final point is
//   accepted stands; otherwise HiGHS runs again with the new rows and the best accepted point
//   as its start. The bound of every run is valid (each solves a relaxation of the full problem).
// - Branch and cut (algorithms/branch_and_bound.h) over HiGHS LP relaxations: the held-out
//   rows are separated from every relaxation point, at_node sees every relaxation point and
//   its cuts and lazy rows join the relaxation, integral points go to at_solution.
// - Hybrid: branch and cut for its first nodes, which finds most lazy rows and a good
//   incumbent cheaply, then the restart loop with those rows and that start, where HiGHS's
//   own cuts close the gap.
//
// Only branch and cut can serve at_node (node relaxations, user cuts) throughout, and only it takes a
// quadratic objective; CallbackSettings says which the caller needs. A proceed from the hooks ends
// the hybrid's branch and cut at once (HiGHS's MIP takes over); the other drivers have one phase. docs/branch-and-cut.md gives the measurements behind the choice.
#pragma once

#include <atomic>
#include <vector>

#include "algorithms/branch_and_bound.h"
#include "algorithms/search_hooks.h"
#include "core/status.h"
#include "engine/solution.h"
#include "model/model_data.h"
#include "reform/working_problem.h"

namespace vlm {
class Env;
}

namespace vlm::algorithms {

enum class CallbackMethod {
  kAuto,          // hybrid; branch and cut with node events; restart with semi-continuous columns
  kRestart,       // HiGHS MIP, interrupted and re-run when a candidate is rejected
  kBranchAndCut,  // our own branch and cut over LP relaxations
  kHybrid,        // branch and cut for a while, then the restart loop seeded with its rows
};

// When the hybrid hands over from its branch and cut to HiGHS's MIP.
enum class SwitchRule {
  kNodes,    // after switch_nodes nodes
  kSeconds,  // after switch_seconds seconds
  kStall,    // when the last switch_window nodes found no lazy row
  kGap,      // when the last switch_window nodes closed less than switch_gap of the gap
};

struct CallbackSettings {
  // Limits, gaps, IntFeasTol, the stop flag and the log sink, as for BranchAndBound.
  SearchSettings search;
  CallbackMethod method = CallbackMethod::kAuto;
  // The hooks want at_node (relaxation points, user cuts): forces branch and cut.
  bool node_events = false;
  // A row is violated when its activity is outside its range by more than this.
  double feas_tol = 1e-6;
  // Hybrid: when the restart loop takes over (the rule and its figures).
  SwitchRule switch_rule = SwitchRule::kNodes;
  double switch_nodes = 1000;
  // The VarBranch parameter: the integer branching rule of the branch and cut
  // (integer_branching_rule in algorithms/pseudo_costs.h).
  int var_branch = -1;
  double switch_seconds = 5.0;
  double switch_window = 200;  // nodes
  double switch_gap = 0.1;     // share of the gap at the window's start
  // A MIP start over the user columns (NaN where unset; empty for none): completed over the
  // rows known, checked against the lazy rows and the hooks, then the first incumbent.
  std::vector<double> start;
  // HiGHS's own log lines of the restart runs reach search.env (set from the instance's
  // output_flag by callback_search).
  bool highs_log = false;
};

// Statistics of a callback search besides those of SearchResult.
struct CallbackStats {
  CallbackMethod method = CallbackMethod::kAuto;  // the driver that ran
  int lazy_rows = 0;  // lazy rows that joined the relaxation (held-out and from the hooks)
  int rejected = 0;   // candidates rejected because they violated a lazy row
  int runs = 0;       // HiGHS MIP runs (restart loop, the MIP heuristic and the hybrid)
};

// Solves `p` with the rows listed in `held_out` (indices of p's rows, ascending) kept out of
// the first relaxation and enforced as lazy rows, calling `hooks` (may be null) at each event.
// `h` is a fresh HiGHS instance whose options the caller has set (gaps, tolerances, threads);
// the restart loop replaces its callbacks, so `settings.search.stop` is the only stop flag
// honoured besides the hooks' terminate. Every solution in the result satisfies every row of
// `p` and every lazy row the hooks returned, within feas_tol; result.bound is a valid bound
// for that problem. A terminate from a hook ends the search with VLM_INTERRUPTED, the
// incumbent kept. A quadratic objective (convex, see lazy_search_serves) is solved by the branch and
// cut over QP relaxations. Fails with VLM_ERROR_INVALID_ARGUMENT for a hook row naming a column
// that is not a user column, VLM_ERROR_INTERNAL when HiGHS rejects the problem.
// Cost: restart loop, one HiGHS MIP run per round whose final point is rejected; branch and cut, one
// LP solve per node and separation round.
StatusOr<SearchResult> callback_search(void* h, const reform::WorkingProblem& p, const std::vector<int>& held_out,
                                       SearchHooks* hooks, const CallbackSettings& settings,
                                       CallbackStats* stats = nullptr);

// Whether callback_search can solve the model of `d` (its working problem `p`): no quadratic
// constraints, and an objective that is linear or convex (concave when maximising).
// Cost: O(Hessian entries) and a factorization of the Hessian's dense block when it has one.
bool lazy_search_serves(const ModelData& d, const reform::WorkingProblem& p);

// The user rows of `p` whose Lazy attribute in `d` is positive, ascending. O(rows).
std::vector<int> lazy_rows_of(const ModelData& d, const reform::WorkingProblem& p);

// Solves the model through callback_search with the Lazy > 0 rows held out and `hooks` (the
// user's callback, or null), and fills `sol` on the user's elements (as solve_quadratic does).
// `node_events`: the hooks want every node relaxation (MIPNODE, user cuts). `stop` is the
// model's terminate flag. Fails as callback_search. Cost: callback_search's.
Status solve_with_lazy_rows(void* h, Env& env, const ModelData& d, const reform::WorkingProblem& p,
                            const std::vector<int>& held_out, SearchHooks* hooks, bool node_events,
                            const std::atomic<bool>* stop, Solution& sol);

}  // namespace vlm::algorithms
