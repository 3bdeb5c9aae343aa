// Outer approximation of convex quadratic constraints by tangent cuts.
//
// Every quadratic constraint is brought to the form g(x) = x'Qx + q'x - b <= 0 (a '>'
// constraint is negated) and classified:
//   - linear: Q is empty; the constraint is added as an ordinary row before the first solve;
//   - second-order cone: x'Ax - c t^2 <= 0 with A semidefinite, c > 0, t in no other term, no
//     linear part, b = 0 and t >= 0 (sum_i a_i x_i^2 <= c t^2 is the usual case); with A = F'F
//     (psd_factor) it is ||L x|| <= R x with L = F, R x = sqrt(c) t;
//   - rotated cone: sum_i a_i x_i^2 + c0 - k y z <= 0 with a_i, k > 0, c0 = -b >= 0, no linear
//     part and y, z >= 0; equivalently ||(2 sqrt(a_i) x_i, k y - z, 2 sqrt(c0))|| <= k y + z
//     (with c0 > 0 and no squares this is the hyperbolic constraint k y z >= c0);
//   - convex: Q positive semidefinite on its support;
//   - nonconvex: anything else (also any equality with quadratic terms).
// Cuts, all globally valid:
//   convex:  g(x0) + grad g(x0)'(x - x0) <= 0, divided by |grad g(x0)|;
//   cones:   with n0 = ||L x0|| > 0, (L x0 / n0)'(L x) - R x <= 0, the gradient cut of
//            ||L x|| - R x; times s * n0 (s = 2, rotated: 1/2) it equals the tangent of g at
//            a point of the cone surface, so cut duals times 1/(s n0) add up to g's multiplier.
// The cone form is cut instead of g because x'x - t^2 is not convex: its tangents are not
// valid cuts.
#pragma once

#include <string>
#include <vector>

#include "algorithms/branch_and_bound.h"
#include "core/status.h"
#include "model/model_data.h"

namespace vlm::algorithms {

enum class QuadShape { kLinear, kCone, kRotatedCone, kConvex, kNonconvex };

// The column index that stands for the constant 1 in a linear form of a cone (lrows).
inline constexpr int kConstant = -1;

// One quadratic constraint in '<' form with its classification.
struct QuadConstraint {
  int index = -1;  // position among the user's quadratic constraints
  QuadShape shape = QuadShape::kNonconvex;
  char sense = '<';  // '=' only for a linear one
  std::vector<int> qr, qc, li;
  std::vector<double> qv, lv;
  double rhs = 0.0;
  // Cone form: rows of L (each a sparse linear form) and R; scale s of the cuts. For a convex
  // constraint, lrows holds the factor Q = F'F instead (rows of F).
  std::vector<std::vector<std::pair<int, double>>> lrows;
  std::vector<std::pair<int, double>> rform;
  double scale = 1.0;
  // A lifted cone's rotated cones L_k(x)^2 <= u_k R(x) (lift_cone), or a lifted convex
  // constraint's F_k(x)^2 <= u_k (lift_convex).
  std::vector<QuadConstraint> pieces;

  // g(x) (left-hand side minus right-hand side in '<' form). O(terms).
  double violation(const std::vector<double>& x) const;
  // g(x) / |grad g(x)|: about the distance to the surface g = 0 (g where the gradient is 0).
  double scaled_violation(const std::vector<double>& x) const;
  // For cones, ||L x|| - R x, the violation in the scale of the variables (g is about 2 R x
  // times it, so a small R makes g small long before the point is accurate). O(terms).
  double cone_violation(const std::vector<double>& x) const;
};

// Classifies quadratic constraint `index` of the user's model; `lower` are the column lower
// bounds the cone conditions read. Never fails. O(terms) for cones and linear ones, O(s^3)
// for the semidefiniteness test of a support of s variables.
QuadConstraint classify_qconstr(const QConstrData& q, int index, const std::vector<double>& lower);

// Disaggregates a cone ||L x|| <= R x with three or more rows of L: appends to `p` a column
// u_k >= 0 per row and the row sum_k u_k - R x <= 0, and records the rotated cones
// L_k(x)^2 <= u_k R(x) as pieces of `c`. Together they imply the cone (sum L_k^2 <= R sum u_k
// <= R^2), and tangent cuts of the small cones approximate it with far fewer cuts than cuts
// of the whole cone. Does nothing for other shapes. O(rows of L).
void lift_cone(QuadConstraint& c, reform::WorkingProblem& p);

// Disaggregates a convex constraint x'Qx + q'x <= b whose Q factors into two or more forms
// (Q = F'F): appends a column u_k >= 0 per form and the row sum_k u_k + q'x <= b, and records
// the convex pieces F_k(x)^2 - u_k <= 0 of `c`. Does nothing for other shapes.
// O(terms of the factor kept by classify_qconstr).
void lift_convex(QuadConstraint& c, reform::WorkingProblem& p);

// The name the messages give quadratic constraint `index` (its own, or QC<index>).
std::string qconstr_label(const QConstrData& q, int index);

// Separates every classified constraint (none may be nonconvex) with the cuts above.
// A point is accepted when g(x) <= tol for every constraint and also, in the scale of the
// variables, ||L x|| - R x <= cone_tol for cones and g(x) / |grad g(x)| <= cone_tol for the
// others. Tangent rows are divided by |grad g(x0)| for the same reason.
class QuadraticSeparator : public Separator {
 public:
  // `user_tol` (at least tol) is what acceptable() allows.
  QuadraticSeparator(std::vector<QuadConstraint> cons, double tol, double cone_tol, double user_tol)
      : cons_(std::move(cons)), tol_(tol), cone_tol_(cone_tol), user_tol_(user_tol) {}
  bool separate(const std::vector<double>& x, std::vector<Cut>& out) override;
  // True when g(x) <= user_tol for every constraint.
  bool acceptable(const std::vector<double>& x) override;
  // The linear constraints as rows; for cones |L_k x| <= R x for each row of L; for convex
  // constraints the tangents at +-e_j for columns j of the support with an infinite bound,
  // so that the first relaxation is bounded where the constraints bound it.
  void initial_cuts(std::vector<Cut>& out) override;
  // Call with a number of columns before initial_cuts: the unbounded columns of the support.
  void set_bounds(std::vector<double> lower, std::vector<double> upper) {
    lower_ = std::move(lower);
    upper_ = std::move(upper);
  }

 private:
  Cut tangent(const QuadConstraint& c, const std::vector<double>& x0) const;
  Cut cone_cut(const QuadConstraint& c, const std::vector<double>& lx0) const;
  std::vector<QuadConstraint> cons_;
  double tol_, cone_tol_, user_tol_;
  std::vector<double> lower_, upper_;
};

}  // namespace vlm::algorithms
