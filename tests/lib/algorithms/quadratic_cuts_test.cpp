// The semidefiniteness test, the classification of quadratic constraints and the validity of
// their cuts: every cut must cut off the point it was made at and keep every feasible point.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "algorithms/psd.h"
#include "algorithms/quadratic_cuts.h"

namespace vlm::algorithms {
namespace {

TEST(PsdTest, DefiniteSemidefiniteAndIndefiniteForms) {
  // x^2 + 2y^2
  EXPECT_TRUE(is_psd({0, 1}, {0, 1}, {1, 2}));
  // x^2 + 2xy + y^2 = (x + y)^2: singular but semidefinite
  EXPECT_TRUE(is_psd({0, 0, 1}, {0, 1, 1}, {1, 2, 1}));
  // The same cross term given as two halves, (0,1) and (1,0), adds up
  EXPECT_TRUE(is_psd({0, 0, 1, 1}, {0, 1, 0, 1}, {1, 1, 1, 1}));
  // xy alone, x^2 - y^2, x^2 + 3xy + y^2 (eigenvalues 2.5, -0.5)
  EXPECT_FALSE(is_psd({0}, {1}, {1}));
  EXPECT_FALSE(is_psd({0, 1}, {0, 1}, {1, -1}));
  EXPECT_FALSE(is_psd({0, 0, 1}, {0, 1, 1}, {1, 3, 1}));
  // Only the support counts: columns 5 and 9 of a larger model
  EXPECT_TRUE(is_psd({5, 9}, {5, 9}, {1, 1}));
}

QConstrData quad(std::vector<int> r, std::vector<int> c, std::vector<double> v, char sense, double rhs,
                 std::vector<int> li = {}, std::vector<double> lv = {}) {
  QConstrData q;
  q.qrow = std::move(r);
  q.qcol = std::move(c);
  q.qval = std::move(v);
  q.lind = std::move(li);
  q.lval = std::move(lv);
  q.sense = sense;
  q.rhs = rhs;
  return q;
}

TEST(QuadClassifyTest, ConesNeedTheirUsualFormAndSigns) {
  const std::vector<double> free(4, -INFINITY), nonneg(4, 0.0);
  // x^2 + y^2 - t^2 <= 0
  const QConstrData soc = quad({0, 1, 2}, {0, 1, 2}, {1, 1, -1}, '<', 0);
  EXPECT_EQ(classify_qconstr(soc, 0, nonneg).shape, QuadShape::kCone);
  EXPECT_EQ(classify_qconstr(soc, 0, free).shape, QuadShape::kNonconvex);
  // (x - y)^2 + y^2 - t^2 <= 0 written out; t inside a cross term is no cone
  EXPECT_EQ(classify_qconstr(quad({0, 0, 1, 2}, {0, 1, 1, 2}, {1, -2, 2, -1}, '<', 0), 0, nonneg).shape,
            QuadShape::kCone);
  EXPECT_EQ(classify_qconstr(quad({0, 1, 0, 2}, {0, 1, 2, 2}, {1, 1, 1, -1}, '<', 0), 0, nonneg).shape,
            QuadShape::kNonconvex);
  // x^2 - y z <= 0
  const QConstrData rot = quad({0, 1}, {0, 2}, {1, -1}, '<', 0);
  EXPECT_EQ(classify_qconstr(rot, 0, nonneg).shape, QuadShape::kRotatedCone);
  EXPECT_EQ(classify_qconstr(rot, 0, free).shape, QuadShape::kNonconvex);
  // -x^2 - y^2 >= -1 is the disc
  EXPECT_EQ(classify_qconstr(quad({0, 1}, {0, 1}, {-1, -1}, '>', -1), 0, free).shape, QuadShape::kConvex);
  // x^2 + y^2 >= 1 is the outside of the disc
  EXPECT_EQ(classify_qconstr(quad({0, 1}, {0, 1}, {1, 1}, '>', 1), 0, free).shape, QuadShape::kNonconvex);
  // Equalities with quadratic terms are never convex; terms that cancel leave a linear row
  EXPECT_EQ(classify_qconstr(quad({0}, {0}, {1}, '=', 1), 0, free).shape, QuadShape::kNonconvex);
  EXPECT_EQ(classify_qconstr(quad({0, 0}, {0, 0}, {1, -1}, '=', 1, {1}, {2}), 0, free).shape, QuadShape::kLinear);
}

double row_value(const Cut& c, const std::vector<double>& x) {
  double s = 0;
  for (std::size_t k = 0; k < c.ind.size(); ++k) s += c.val[k] * x[c.ind[k]];
  return s;
}

// Cuts made at violating points cut them off and keep feasible points on the surface: the
// cone x^2 + y^2 <= t^2 (lifted and not), the rotated cone x^2 <= y z and the ellipse
// x^2 + xy + y^2 <= 3.
TEST(QuadCutTest, CutsSeparateAndKeepFeasiblePoints) {
  const std::vector<double> lower(6, 0.0), upper(6, INFINITY);
  std::vector<QuadConstraint> cons = {
      classify_qconstr(quad({0, 1, 2}, {0, 1, 2}, {1, 1, -1}, '<', 0), 0, lower),
      classify_qconstr(quad({0, 1}, {0, 2}, {1, -1}, '<', 0), 1, lower),
      classify_qconstr(quad({0, 0, 1}, {0, 1, 1}, {1, 1, 1}, '<', 3), 2, lower)};
  std::vector<std::vector<double>> bad = {{3, 1, 1}, {1, 2, 0.1}, {0.5, 0.5, 0.2}, {2, 2, 2}};
  // Feasible points on each surface.
  std::vector<std::vector<std::vector<double>>> good(3);
  for (int k = 0; k < 12; ++k) {
    const double a = 0.13 * k;
    good[0].push_back({std::cos(a), std::sin(a), 1.0});
    good[1].push_back({1.0, std::exp(a - 1), std::exp(1 - a)});
    const double r = std::sqrt(3.0 / (1 + std::cos(a) * std::sin(a)));
    good[2].push_back({r * std::cos(a), r * std::sin(a), 0});
  }
  for (int i = 0; i < 3; ++i) {
    QuadraticSeparator sep({cons[i]}, 1e-9, 1e-9, 1e-6);
    for (const auto& x : bad) {
      std::vector<Cut> cuts;
      const bool ok = sep.separate(x, cuts);
      if (cons[i].violation(x) <= 1e-9) continue;
      ASSERT_FALSE(ok);
      ASSERT_EQ(cuts.size(), 1u) << "constraint " << i;
      EXPECT_GT(row_value(cuts[0], x), cuts[0].up + 1e-9) << "constraint " << i;
      for (const auto& y : good[i]) EXPECT_LE(row_value(cuts[0], y), cuts[0].up + 1e-9) << "constraint " << i;
    }
  }
}

// The lifted cone adds one column per row of L and keeps the cone's solutions: at a point of
// the cone with u_k = L_k^2 / t every piece holds.
TEST(QuadCutTest, LiftedConeKeepsConePoints) {
  reform::WorkingProblem p;
  for (int j = 0; j < 4; ++j) p.add_col(j == 3 ? 0.0 : -INFINITY, INFINITY, 0);
  QuadConstraint c = classify_qconstr(quad({0, 1, 2, 3}, {0, 1, 2, 3}, {1, 4, 1, -1}, '<', 0), 0, p.lower);
  ASSERT_EQ(c.shape, QuadShape::kCone);
  lift_cone(c, p);
  ASSERT_EQ(p.ncol, 7);
  ASSERT_EQ(p.nrow, 1);
  ASSERT_EQ(c.pieces.size(), 3u);
  // x = (1, 1, 2), t = sqrt(1 + 4 + 4) = 3; u_k = L_k(x)^2 / t, which sum to t.
  std::vector<double> x = {1, 1, 2, 3, 0, 0, 0};
  double sum_sq = 0;
  for (int k = 0; k < 3; ++k) {
    double l = 0;
    for (const auto& [j, a] : c.lrows[k]) l += a * x[j];
    x[4 + k] = l * l / 3;
    sum_sq += l * l;
  }
  EXPECT_NEAR(sum_sq, 9.0, 1e-12);  // the factor reproduces x^2 + 4y^2 + z^2
  for (const auto& piece : c.pieces) EXPECT_NEAR(piece.violation(x), 0.0, 1e-12);
  double row = 0;
  for (int k = p.astart[0]; k < p.astart[1]; ++k) row += p.aval[k] * x[p.aindex[k]];
  EXPECT_NEAR(row, 0.0, 1e-12);
}

}  // namespace
}  // namespace vlm::algorithms
