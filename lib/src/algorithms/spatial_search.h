// The parts the spatial branch and bound plugs into the shared search (branch_and_bound.h)
// for nonconvex quadratic models (NonConvex = 2): the relaxation of the products is
// SpatialRelaxation (spatial_relaxation.h); here are the checks of candidate points, the
// separator (tangents under squares, acceptance of points that satisfy the original model),
// the branching rule on continuous variables and the fixing heuristic that finds feasible
// points for the upper bound.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "algorithms/branch_and_bound.h"
#include "algorithms/quadratic_cuts.h"
#include "algorithms/spatial_relaxation.h"
#include "reform/working_problem.h"

namespace vlm::algorithms {

// Receives a point of the original model (all working columns) and its objective in the
// model's sense.
using OfferFn = std::function<void(const std::vector<double>&, double)>;

// Judges points of the lifted working problem against the original model.
class SpatialChecker {
 public:
  // `convex` are the quadratic constraints the outer approximation handles (checked here as
  // they are); the lifted rows of `p` below rel.first_envelope_row() stand for the rest.
  SpatialChecker(const reform::WorkingProblem& p, const SpatialRelaxation& rel, std::vector<QuadConstraint> convex,
                 double feas_tol, double int_tol)
      : p_(p), rel_(rel), convex_(std::move(convex)), tol_(feas_tol), int_tol_(int_tol) {}
  // Writes to `xt` the point `x` stands for: integer columns rounded and every product column
  // set to its product. False when an integer column is further than IntFeasTol from an
  // integer. O(columns + terms).
  bool true_point(const std::vector<double>& x, std::vector<double>& xt) const;
  // Whether `xt` (from true_point) satisfies the bounds, the rows that are not envelope rows
  // and the convex quadratic constraints within FeasibilityTol. O(nonzeros + terms).
  bool feasible(const std::vector<double>& xt) const;
  // The objective of the working problem at `x`, in the model's sense. O(columns + Hessian).
  double objective(const std::vector<double>& x) const;

 private:
  const reform::WorkingProblem& p_;
  const SpatialRelaxation& rel_;
  std::vector<QuadConstraint> convex_;
  double tol_, int_tol_;
};

// Cuts the relaxation below squares by tangents (globally valid) and accepts a relaxation
// point only when the point it stands for is feasible with the same objective (so the
// relaxation's value is the true one). Every feasible point seen is offered as an incumbent.
class SpatialSeparator : public Separator {
 public:
  SpatialSeparator(std::shared_ptr<const SpatialChecker> check, const SpatialRelaxation& rel, OfferFn offer)
      : check_(std::move(check)), rel_(rel), offer_(std::move(offer)) {}
  bool separate(const std::vector<double>& x, std::vector<Cut>& out) override;
  // The same test as separate(): the search takes an accepted point with the relaxation's
  // value, so it must be the point's own.
  bool acceptable(const std::vector<double>& x) override;

 private:
  std::shared_ptr<const SpatialChecker> check_;
  const SpatialRelaxation& rel_;
  OfferFn offer_;
};

// Finds feasible points: fixes a set of factors that covers every product (each square's
// variable, and one end of each product, the one in more products first) at the relaxation
// point and solves the remaining LP (MIP with integers; QP with a convex objective) by HiGHS.
class FixingHeuristic {
 public:
  FixingHeuristic(const reform::WorkingProblem& p, const SpatialRelaxation& rel,
                  std::shared_ptr<const SpatialChecker> check, OfferFn offer);
  // Tries once from `x` (values clipped to the node's box [lo, up]); offers what it finds.
  // Cost: one HiGHS solve of the problem's size, at most `seconds`.
  void run(const std::vector<double>& x, const std::vector<double>& lo, const std::vector<double>& up,
           double seconds);
  // How many runs found a feasible point. O(1).
  int found() const { return found_; }

 private:
  const reform::WorkingProblem& p_;
  const SpatialRelaxation& rel_;
  std::shared_ptr<const SpatialChecker> check_;
  OfferFn offer_;
  std::vector<char> cover_;
  int found_ = 0;
};

// Branches on the factor of the product whose relaxation is furthest from it, |w - x_i x_j|
// times the sum of the absolute coefficients of w's column (objective and rows):
// of the factors strictly inside their box, the widest; split at the relaxation point when it
// lies in the middle 80% of the range, else at the midpoint. Factors narrower than 1e-7
// (relative) are never split. Integer factors split at their integral value. Runs the fixing
// heuristic on the first 30 branchings and every 20th after.
class SpatialBranchingRule : public BranchingRule {
 public:
  SpatialBranchingRule(const reform::WorkingProblem& p, const SpatialRelaxation& rel, FixingHeuristic* heuristic,
                       std::function<double()> seconds_left)
      : p_(p), rel_(rel), heuristic_(heuristic), seconds_left_(std::move(seconds_left)) {}
  bool branch(const std::vector<double>& x, const std::vector<double>& lower, const std::vector<double>& upper,
              Branching& out) override;

 private:
  const reform::WorkingProblem& p_;
  const SpatialRelaxation& rel_;
  FixingHeuristic* heuristic_;
  std::function<double()> seconds_left_;
  int calls_ = 0;
  std::vector<double> weight_;  // per product: the sum of |coefficients| of its column
};

}  // namespace vlm::algorithms
