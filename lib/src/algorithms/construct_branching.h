// Branching on SOS sets and indicators that have no finite big-M.
//
// The reformulation holds such a construct out of the relaxation (reform::HeldConstruct) and
// the shared branch and bound enforces it:
//   - SOS1 (members x_1..x_n in weight order): a point with two or more non-zero members is
//     split at position r (the weighted mean of the non-zeros, kept strictly between the first
//     and the last): one child fixes x_1..x_r to 0, the other x_{r+1}..x_n.
//   - SOS2: a point whose non-zeros span more than two consecutive members (first a, last c,
//     c - a >= 2) is split at r with a < r < c: one child fixes the members after r to 0, the
//     other those before r; r belongs to both windows.
//   - Indicator (b == v) => row: a point that violates the row, with b not at 1 - v, gives a
//     child with b = v and the row's slack fixed to 0 (the row in force) and, unless the node
//     already fixes b to v, a child with b = 1 - v.
// Each child cuts off the point, and the children's union keeps every point that satisfies the
// construct, so the search is exact. A point is feasible only when every held construct holds.
// Among violated constructs the most violated is branched on (the members' mass outside the
// best one or two members; the row's violation for indicators).
#pragma once

#include <atomic>
#include <vector>

#include "algorithms/branch_and_bound.h"
#include "core/status.h"
#include "engine/solution.h"
#include "model/model_data.h"
#include "reform/working_problem.h"

namespace vlm {
class Env;
}

namespace vlm::algorithms {

// How far `x` is from satisfying construct `c` (0 when it holds). A member counts as non-zero
// when its magnitude exceeds `tol`; an indicator's row is violated by more than `tol` and b
// counts as off when within `int_tol` of 1 - v. O(members or row terms).
double construct_violation(const reform::HeldConstruct& c, const std::vector<double>& x, double tol, double int_tol);

// Checks every held construct at each relaxation point; it has no cuts to offer, so a point
// it rejects goes to the branching rules. Never accepts a violated point.
class ConstructChecker : public Separator {
 public:
  ConstructChecker(const std::vector<reform::HeldConstruct>& held, double tol, double int_tol)
      : held_(held), tol_(tol), int_tol_(int_tol) {}
  bool separate(const std::vector<double>& x, std::vector<Cut>& out) override;
  bool acceptable(const std::vector<double>& x) override;

 private:
  const std::vector<reform::HeldConstruct>& held_;
  double tol_, int_tol_;
};

// Branches on the most violated held construct as the header describes; false when none is
// violated.
class ConstructBranchingRule : public BranchingRule {
 public:
  ConstructBranchingRule(const std::vector<reform::HeldConstruct>& held, double tol, double int_tol)
      : held_(held), tol_(tol), int_tol_(int_tol) {}
  bool branch(const std::vector<double>& x, const std::vector<double>& lower, const std::vector<double>& upper,
              Branching& out) override;
  // An unbounded relaxation: the same rule at the far point, so that a held construct that
  // bounds the ray (an indicator's row, a set's other members) is enforced in the children.
  bool branch_unbounded(const std::vector<double>& x, const std::vector<double>& lower,
                        const std::vector<double>& upper, Branching& out) override {
    return branch(x, lower, upper, out);
  }

 private:
  const std::vector<reform::HeldConstruct>& held_;
  double tol_, int_tol_;
};

// Adds the checker and the rule for `p.held` to `search` (nothing when it is empty). The rule
// is asked after the rules already added. `p` must outlive the search.
void add_construct_branching(BranchAndBound& search, const reform::WorkingProblem& p, double tol, double int_tol);

// Solves `p` (built from `d`, with held constructs) by branch and bound with the construct
// rule first and the most fractional integer rule after it, and fills `sol` as the other
// search drivers do. `lazy_or_hooked`: the solve also has lazy rows or a callback that needs a
// search of its own; that combination is refused with VLM_ERROR_NOT_SUPPORTED naming the first
// held construct. Limits are statuses. Cost: one HiGHS solve per node.
Status solve_with_held_constructs(void* h, Env& env, const ModelData& d, const reform::WorkingProblem& p,
                                  bool lazy_or_hooked, const std::atomic<bool>* stop, Solution& sol);

}  // namespace vlm::algorithms
