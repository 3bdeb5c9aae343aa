// BranchAndBound: the one search that every driver needing control over the tree plugs into.
//
// The relaxation is the working problem without integrality (an LP, or a convex QP when the
// objective has a Hessian), held by one HiGHS instance for the whole search. A node is the
// root's column bounds plus the bound changes on its path; moving to a node resets the
// columns the previous node changed and applies the new ones, then re-runs HiGHS, which
// starts from the basis it has (warm start by bound changes only). Separators add globally
// valid rows (cuts) that stay in the relaxation for the rest of the search; branching rules
// split a node into children by bound changes.
//
// Node selection: best bound first, with diving (after a branching the child in the
// direction of the relaxation value is processed next, until the dive ends in a prune or an
// incumbent).
//
// Invariants: internally the objective is minimised (values are multiplied by `sense`); a
// node's bound never decreases from parent to child; an incumbent satisfies the rows,
// bounds, integrality within IntFeasTol and every separator's feasibility check.
#pragma once

#include <atomic>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "algorithms/search_hooks.h"
#include "core/status.h"
#include "reform/working_problem.h"

namespace vlm {
class Env;
}

namespace vlm::algorithms {

// One row a separator adds: lo <= sum val[k] x[ind[k]] <= up. `owner` is the separator's own
// tag (which of its constraints the cut belongs to), kept for reading duals back.
struct Cut {
  std::vector<int> ind;
  std::vector<double> val;
  double lo = -INFINITY, up = INFINITY;
  int owner = -1;
  double weight = 1.0;  // the row is `weight` times the owner's own cut (for reading duals)
};

// Adds rows that cut off a relaxation point violating a constraint the relaxation lacks.
class Separator {
 public:
  virtual ~Separator() = default;
  // Appends to `out` cuts violated by `x` (all columns of the working problem). Returns true
  // when `x` satisfies every constraint this separator stands for (within its tolerance); a
  // false return with no cut appended means it cannot separate this point.
  virtual bool separate(const std::vector<double>& x, std::vector<Cut>& out) = 0;
  // Whether `x`, which separation no longer moves, is still good enough to be a solution
  // (within the user's tolerances, looser than the separator's own). Default: no.
  virtual bool acceptable(const std::vector<double>& x) {
    (void)x;
    return false;
  }
  // Cuts to add before the first solve (may be none), e.g. to bound the first relaxation.
  virtual void initial_cuts(std::vector<Cut>& out) { (void)out; }
};

// A bound change on one column.
struct BoundChange {
  int col = -1;
  double lower = 0.0, upper = 0.0;
};

// A split of a node into children; `first` is the child to dive into.
struct Branching {
  std::vector<std::vector<BoundChange>> children;
  int first = 0;
};

// Chooses how to split a node whose relaxation point `x` is not acceptable.
class BranchingRule {
 public:
  virtual ~BranchingRule() = default;
  // Fills `out` and returns true when the rule branches on `x`; false when the rule sees
  // nothing to branch on (the next rule is asked). `lower`/`upper` are the node's bounds.
  virtual bool branch(const std::vector<double>& x, const std::vector<double>& lower,
                      const std::vector<double>& upper, Branching& out) = 0;
};

// Branches on the integer column whose value is most fractional (ties: lowest index):
// x_j <= floor(v) and x_j >= ceil(v), diving into the nearer side.
class MostFractionalRule : public BranchingRule {
 public:
  MostFractionalRule(std::vector<int> integers, double int_tol)
      : integers_(std::move(integers)), tol_(int_tol) {}
  bool branch(const std::vector<double>& x, const std::vector<double>& lower,
              const std::vector<double>& upper, Branching& out) override;

 private:
  std::vector<int> integers_;
  double tol_;
};

struct SearchSettings {
  double time_limit = INFINITY;  // seconds
  double node_limit = INFINITY;  // nodes processed
  int solution_limit = 2000000000;  // incumbents found
  double mip_gap = 1e-4, mip_gap_abs = 1e-10;
  double int_tol = 1e-5;
  // Separation rounds at a node whose point is fractional (the root gets root_rounds); a
  // point that is integral is separated until it is feasible or max_rounds is reached.
  int node_rounds = 10, root_rounds = 100, max_rounds = 5000;
  // Primal feasibility tolerance of the relaxations (0: the instance's own). Separators that
  // accept a point within tol need relaxations solved tighter than tol, or their cuts, violated
  // by less than HiGHS' tolerance, would leave the point where it is.
  double relaxation_feas_tol = 0.0;
  // Rounds in a row in which the cuts left the point where it was before separation stops.
  int stall_rounds = 5;
  const std::atomic<bool>* stop = nullptr;  // set from another thread: INTERRUPTED
  Env* env = nullptr;                       // log sink (incumbents, summary); may be null
  // Called before each node is processed (after the limits are checked), e.g. to report
  // progress or offer an incumbent found elsewhere; may be empty.
  std::function<void()> before_node;
  // Fix integer columns whose reduced cost shows that moving them off their bound cannot beat
  // the incumbent (LP relaxations only); the fixings hold in the node's subtree.
  bool reduced_cost_fixing = false;
  // Cuts found in the last round of a node (when separation stops on the round limit or a
  // stall) are added before branching instead of dropped: for separators that hand each row
  // over only once.
  bool keep_pending_cuts = false;
  // Called once for a node whose relaxation ends without a point to separate: VLM_INFEASIBLE,
  // VLM_CUTOFF (its bound cannot beat the incumbent), VLM_UNBOUNDED or VLM_NUMERIC (HiGHS
  // failed on it); may be empty.
  std::function<void(int status)> node_status;
};

struct SearchResult {
  int status = 0;  // a VLM_ status: OPTIMAL, INFEASIBLE, UNBOUNDED, INF_OR_UNBD, TIME_LIMIT, ...
  bool has_solution = false;
  std::vector<double> x;                   // best point, all working columns
  double objval = 0.0, bound = 0.0;        // in the model's sense
  double nodes = 0, lp_iterations = 0, relaxations = 0, cuts = 0;
  double fixed = 0;  // column bounds tightened by reduced-cost fixing
  // With reduced_cost_fixing and a solution: bounds that every solution better than the
  // incumbent by more than the gap satisfies, from the root's reduced costs.
  std::vector<BoundChange> root_fixings;
  double highs_seconds = 0;  // time spent inside Highs_run
  // Incumbents in the order found (each improving on the one before), model's sense.
  std::vector<std::pair<double, std::vector<double>>> incumbents;
  // Duals of the last relaxation when the search ended at the root with an optimal point:
  // rows (the working problem's, then the cuts) and columns; empty otherwise.
  std::vector<double> row_dual, col_dual;
  std::vector<int> cut_owner;      // per cut row, in order
  std::vector<double> cut_weight;  // per cut row: Cut::weight
};

class BranchAndBound {
 public:
  // `h` is a fresh HiGHS instance whose options (tolerances, threads, callbacks) the caller has
  // set; the search passes the relaxation into it. `p` must outlive the search.
  BranchAndBound(void* h, const reform::WorkingProblem& p, SearchSettings settings);

  // Rules are asked in the order added; separators are all called at every point.
  void add_branching_rule(std::unique_ptr<BranchingRule> rule) { rules_.push_back(std::move(rule)); }
  void add_separator(std::unique_ptr<Separator> sep) { seps_.push_back(std::move(sep)); }

  // Runs the search. Fails with VLM_ERROR_INTERNAL when HiGHS rejects the relaxation. Limits
  // are statuses, not failures; a node whose relaxation HiGHS fails to solve is dropped and
  // the result is then SUBOPTIMAL (with a solution) or NUMERIC.
  // Cost: one HiGHS solve per node and separation round.
  StatusOr<SearchResult> run();

  // The state of a running search (for progress reports from separators and before_node).
  // O(1).
  SearchProgress progress() const;
  // Offers `x` (all working columns, already checked by the caller against every row, bound,
  // integrality and separator) with objective `obj` in the model's sense as an incumbent; it
  // is taken when it improves on the incumbent. O(columns).
  void offer_incumbent(const std::vector<double>& x, double obj);
  // Reduced costs of the last relaxation solved to optimality (HiGHS' sign convention for the
  // model's sense; empty before the first). O(1).
  const std::vector<double>& reduced_costs() const { return col_dual_; }
  // Drops every incumbent found so far for which `invalid` is true (rows added since made it
  // infeasible); the best remaining one, if any, becomes the incumbent. Nodes pruned with a
  // dropped incumbent may hold solutions as good as it, so its value caps the final bound and
  // the search can no longer end OPTIMAL above it (dropped() tells). O(incumbents x cost of
  // `invalid`).
  void drop_incumbents(const std::function<bool(const std::vector<double>&)>& invalid);
  // Whether drop_incumbents dropped an incumbent that had pruned. O(1).
  bool dropped() const { return std::isfinite(ceiling_); }
  // The current incumbent (all working columns); empty when there is none. O(1).
  const std::vector<double>& incumbent() const { return r_.x; }

 private:
  struct Node {
    double bound;  // minimised sense
    int depth;
    std::vector<BoundChange> changes;  // from the root, later entries win
  };
  enum class Outcome { kPruned, kInfeasible, kUnbounded, kIncumbent, kBranched, kStopped, kError };

  Status load();
  void apply(const Node& node);
  Outcome process(Node& node, std::vector<Node>& children, int& dive_child);
  // Runs HiGHS on the current relaxation; returns its model status, or -1 on failure.
  int solve_relaxation();
  bool add_cuts(std::vector<Cut>& cuts);
  void fix_by_reduced_cost(Node& node, double obj);
  bool limit_reached(int& status) const;
  double elapsed() const;
  double gap_target(double incumbent) const;
  void log(const std::string& line) const;

  void* h_;
  const reform::WorkingProblem& p_;
  SearchSettings s_;
  std::vector<std::unique_ptr<BranchingRule>> rules_;
  std::vector<std::unique_ptr<Separator>> seps_;
  std::vector<int> changed_;  // columns whose bounds differ from the root's in the instance
  std::vector<double> x_, col_dual_, row_value_, row_dual_, last_x_;
  SearchResult r_;
  double incumbent_ = INFINITY;  // minimised sense
  // The lowest incumbent value that pruned nodes or fixed columns (minimised sense), and the
  // lowest such value of incumbents dropped since: the final bound cannot exceed it.
  double pruned_at_ = INFINITY, ceiling_ = INFINITY;
  int node_status_ = 0;  // how the last node's relaxation ended, when not optimal (VLM_ status)
  int unbounded_rays_ = 0;
  bool trouble_ = false;  // a point neither accepted nor cut: optimality is not proven
  double start_ = 0.0;
  // Open nodes and their best bound (minimised sense), kept for progress().
  double open_nodes_ = 0, open_bound_ = -INFINITY;
};

}  // namespace vlm::algorithms
