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
// incumbent). Before its relaxation a node's bounds are tightened by propagation through the
// rows (algorithms/node_propagation.h); after it, fractional points feed the primal heuristics
// (branch_and_bound_heuristics.cpp). Semi-continuous columns are branched by the search itself.
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
  // The same for a node whose relaxation is unbounded and that no separator could cut: `x` is
  // a point far along the unbounded ray. For rules whose constraints may bound the problem
  // where the relaxation does not (held SOS, indicators). Default: never.
  virtual bool branch_unbounded(const std::vector<double>& x, const std::vector<double>& lower,
                                const std::vector<double>& upper, Branching& out) {
    (void)x, (void)lower, (void)upper, (void)out;
    return false;
  }
  // Told, once the relaxation of a child this rule made is solved, how far the child's value
  // rose above its parent's (`gain`, minimised sense; +inf for an infeasible child). `child`
  // is the child's own bound changes from the Branching, `parent_x` the parent's relaxation
  // value of child[0].col. Default: ignored.
  virtual void observe(const std::vector<BoundChange>& child, double parent_x, double gain) {
    (void)child;
    (void)parent_x;
    (void)gain;
  }
};

// What a branching rule may ask of the search about the node it is splitting.
class NodeProbe {
 public:
  virtual ~NodeProbe() = default;
  // The relaxation value (minimised sense) of the node being split with `changes` applied on
  // top, solved with at most `iterations` simplex iterations (a lower estimate when the limit
  // stops it); +inf when the child is infeasible; NaN when HiGHS could not tell. The node's own
  // relaxation point, as the rule was given it, is left as it was. Cost: one HiGHS solve.
  virtual double probe(const std::vector<BoundChange>& changes, int iterations) = 0;
  // The relaxation value of the node being split (minimised sense). O(1).
  virtual double node_value() const = 0;
};

// Whether `x` meets every integrality requirement of `p` within `tol`: integer columns
// (codes 1, 3) integral, semi-continuous ones (codes 2, 3) at 0 or at least their lower
// bound p.lower[j]. O(columns).
bool integrality_satisfied(const reform::WorkingProblem& p, const std::vector<double>& x, double tol);

// Branches on the integer column whose value is most fractional (ties: lowest index):
// x_j <= floor(v) and x_j >= ceil(v), diving into the nearer side. With `priority` (one entry
// per column, the user's BranchPriority) only the fractional columns of the highest priority
// compete.
class MostFractionalRule : public BranchingRule {
 public:
  MostFractionalRule(std::vector<int> integers, double int_tol, std::vector<int> priority = {})
      : integers_(std::move(integers)), tol_(int_tol), priority_(std::move(priority)) {}
  bool branch(const std::vector<double>& x, const std::vector<double>& lower,
              const std::vector<double>& upper, Branching& out) override;

 private:
  std::vector<int> integers_;
  double tol_;
  std::vector<int> priority_;
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
  // The user's BranchPriority per working column for the most-fractional rule (empty: none).
  std::vector<int> branch_priority;
  // Called with a node's bounds before its first relaxation: may tighten them (the tightened
  // bounds hold in the node's subtree) and update rows whose coefficients depend on the box.
  // Returns false when the node holds no feasible point. May be empty.
  std::function<bool(std::vector<double>& lower, std::vector<double>& upper)> node_bounds;
  // Objective stops in the model's sense; an infinite value is off. cutoff: nodes and points
  // that cannot beat it are discarded, and a search that finds nothing better ends CUTOFF.
  // best_obj_stop: an incumbent at least this good ends the search (USER_OBJ_LIMIT).
  // best_bd_stop: a best bound at least this bad ends it (USER_OBJ_LIMIT).
  double cutoff = INFINITY, best_obj_stop = INFINITY, best_bd_stop = INFINITY;
  // Activity-based bound propagation through the rows before each node's relaxation solve.
  bool propagate = true;
  // Primal heuristics in the tree (rounding of relaxation points, dives, and for quadratic
  // objectives a fix-and-solve), each bounded in effort; see docs/branch-and-bound.md.
  bool heuristics = true;
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
  double propagated = 0;  // nodes proven infeasible by bound propagation (no relaxation solved)
  double tightened = 0;   // column bounds tightened by bound propagation
  double heuristic_solutions = 0;  // incumbents found by the primal heuristics
  double dropped = 0;     // nodes whose relaxation HiGHS failed on, even after the retries
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

class NodePropagator;

class BranchAndBound : public NodeProbe {
 public:
  // `h` is a fresh HiGHS instance whose options (tolerances, threads, callbacks) the caller has
  // set; the search passes the relaxation into it. `p` must outlive the search.
  BranchAndBound(void* h, const reform::WorkingProblem& p, SearchSettings settings);
  ~BranchAndBound() override;

  // Rules are asked in the order added; separators are all called at every point.
  void add_branching_rule(std::unique_ptr<BranchingRule> rule) { rules_.push_back(std::move(rule)); }
  void add_separator(std::unique_ptr<Separator> sep) { seps_.push_back(std::move(sep)); }

  // Runs the search. Fails with VLM_ERROR_INTERNAL when HiGHS rejects the relaxation. Limits
  // are statuses, not failures; a node whose relaxation HiGHS fails to solve, even after a cold
  // start, presolve, another method and a fresh instance, is dropped: its bound still counts
  // in the result's bound, and the result is SUBOPTIMAL (with a solution) or NUMERIC.
  // Semi-continuous and semi-integer columns (codes 2, 3) are branched by the search itself
  // (x = 0 or x >= lower bound) before the rules added here are asked.
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

  double probe(const std::vector<BoundChange>& changes, int iterations) override;
  double node_value() const override { return node_value_; }

 private:
  struct Node {
    double bound;  // minimised sense
    int depth;
    std::vector<BoundChange> changes;  // from the root, later entries win
    // The split that made this node, for BranchingRule::observe: the rule (-1: none or the
    // search's own), where in `changes` its changes start and how many, the parent's value and x.
    int rule = -1, split_at = 0, split = 0;
    double parent_obj = 0.0, parent_x = 0.0;
  };
  enum class Outcome { kPruned, kInfeasible, kUnbounded, kIncumbent, kBranched, kStopped, kError };

  Status load();
  void apply(const Node& node);
  Outcome process(Node& node, std::vector<Node>& children, int& dive_child);
  // Runs HiGHS on the current relaxation; returns its model status, or -1 on failure.
  int solve_relaxation();
  bool add_cuts(std::vector<Cut>& cuts);
  // Asks the rules' branch_unbounded at the relaxation's feasible point moved along `ray`;
  // false when there is no such point or no rule branches.
  bool branch_along_ray(const std::vector<double>& ray, const Node& node, std::vector<Node>& children,
                        int& dive_child);
  void fix_by_reduced_cost(Node& node, double obj);
  void node_bounds(const Node& node, std::vector<double>& lo, std::vector<double>& up) const;
  bool branch_semi(const std::vector<double>& lo, const std::vector<double>& up, Branching& out) const;
  void tell_rule(const Node& node, double gain);
  // Takes `x` (objective `obj`, minimised sense) as the incumbent when it improves on it.
  void take_incumbent(const std::vector<double>& x, double obj, const std::string& how);
  // Retries of a failed relaxation solve; returns HiGHS' model status or -1.
  int retry_relaxation();
  int solve_fresh();
  // Primal heuristics (branch_and_bound_heuristics.cpp), at the node just solved.
  void run_heuristics(const Node& node);
  bool try_rounding(const std::vector<double>& lo, const std::vector<double>& up);
  bool try_dive(const Node& node);
  bool try_fix_and_solve(const std::vector<double>& lo, const std::vector<double>& up);
  // Checks `x` against the rows, bounds and integrality of the working problem and every
  // separator; returns its objective (minimised sense) or NaN when it fails.
  double check_point(const std::vector<double>& x) const;
  bool stop_value_reached(int& status, double open_bound) const;
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
  // Least bound of the nodes pruned because they were within the gap of the incumbent.
  double gap_pruned_ = INFINITY;
  // The lowest incumbent value that pruned nodes or fixed columns (minimised sense), and the
  // lowest such value of incumbents dropped since: the final bound cannot exceed it.
  double pruned_at_ = INFINITY, ceiling_ = INFINITY;
  int node_status_ = 0;  // how the last node's relaxation ended, when not optimal (VLM_ status)
  int unbounded_rays_ = 0;
  // Optimality is not proven: a point neither accepted nor cut, or dropped nodes or incumbents
  // whose bounds leave the gap open.
  bool trouble_ = false;
  double start_ = 0.0;
  // Open nodes and their best bound (minimised sense), kept for progress().
  double open_nodes_ = 0, open_bound_ = -INFINITY;
  // Relaxation bounds of the root: a semi-continuous column's lower bound there is 0.
  std::vector<double> root_lo_, root_up_;
  std::vector<double> semi_lower_;  // nonzero part's lower bound of semi columns, else 0
  bool has_semi_ = false;
  std::unique_ptr<NodePropagator> propagator_;
  double cutoff_ = INFINITY;          // minimised sense
  double dropped_bound_ = INFINITY;   // least bound of the dropped nodes, minimised sense
  const Node* current_ = nullptr;     // the node being processed (for probe)
  double node_value_ = 0.0;
  double heuristic_seconds_ = 0.0;    // time spent in the heuristics
  double next_heuristic_node_ = 0.0;  // node count at which the heuristics run next
  bool stop_by_objective_ = false;    // BestObjStop was met by an incumbent
  std::vector<double> fresh_x_;       // a point solved in a fresh instance (solve_fresh)
  double relax_obj_ = 0.0;            // value of the last relaxation solved, model's sense
};

}  // namespace vlm::algorithms
