// Nonconvex quadratic models solved with NonConvex=2 (spatial branch and bound), hyperbolic
// constraints recognised as convex, products with a binary factor, and the propagation the
// search runs at every node. Every returned point is checked against the model's own data.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "algorithms/spatial_relaxation.h"
#include "quadratic_fixture.h"
#include "reform/working_problem.h"

namespace {

using quadtest::kInf;
using quadtest::kTol;

class SpatialSolveTest : public quadtest::QuadraticSolveTest {
 protected:
  void SetUp() override {
    QuadraticSolveTest::SetUp();
    param("NonConvex", 2);
    param("OutputFlag", 0);
  }
  void objective_terms(std::vector<int> r, std::vector<int> c, std::vector<double> v) {
    ASSERT_EQ(VLMaddqpterms(m_, static_cast<int>(v.size()), r.data(), c.data(), v.data()), VLM_OK);
  }
  void solve_optimal() {
    ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
    ASSERT_EQ(status(), VLM_OPTIMAL);
    expect_feasible();
  }
  // The optimum within MIPGap (default 1e-4) of `value`, and a bound on the right side of it.
  void expect_objective(double value) {
    const double gap = 1e-4 * std::max(1.0, std::fabs(value));
    EXPECT_NEAR(dbl("ObjVal"), value, gap);
    const double bound = dbl("ObjBound");
    int sense = 1;
    EXPECT_EQ(VLMgetintattr(m_, "ModelSense", &sense), VLM_OK);
    if (sense == 1) {
      EXPECT_LE(bound, value + 1e-9 * std::max(1.0, std::fabs(value)));
      EXPECT_GE(bound, value - gap);
    } else {
      EXPECT_GE(bound, value - 1e-9 * std::max(1.0, std::fabs(value)));
      EXPECT_LE(bound, value + gap);
    }
  }
};

// Least value of f over the grid of n+1 points per side of [xl, xu] x [yl, yu].
double grid_min(const std::function<double(double, double)>& f, double xl, double xu, double yl, double yu, int n,
                const std::function<bool(double, double)>& ok) {
  double best = INFINITY;
  for (int a = 0; a <= n; ++a) {
    for (int b = 0; b <= n; ++b) {
      const double x = xl + (xu - xl) * a / n, y = yl + (yu - yl) * b / n;
      if (ok(x, y)) best = std::min(best, f(x, y));
    }
  }
  return best;
}

// ---- continuous nonconvex models -------------------------------------------------------------

// Pooling: crudes A (3% sulfur, cost 6) and B (1%, cost 13) meet in one pool of quality q;
// crude C (2%, cost 10) goes straight to the products. Product X (at most 2.5%, price 9, at
// most 100) and Y (at most 1.5%, price 15, at most 200). Maximise the profit.
// By hand: Y needs q <= 1.5 and then takes C at most (3 - 2q) per unit of pool, at a unit cost
// (93 - 47q) / (8 - 4q), decreasing in q: q = 1.5, Y all from the pool (A = 50, B = 150) earns
// 200 * (15 - 11.25) = 750, and X loses money at q = 1.5 (pool 11.25, C 10, price 9). With
// q > 1.5 only X is made: at best q = 2.5, 100 * (9 - 7.75) = 125, a local optimum.
TEST_F(SpatialSolveTest, PoolingReachesTheGlobalOptimum) {
  // a, b, xp, yp, cx, cy, q
  var(-6, 0, 300);
  var(-13, 0, 300);
  var(9, 0, 300);
  var(15, 0, 300);
  var(9 - 10, 0, 300);
  var(15 - 10, 0, 300);
  var(0, 1, 3);
  maximise();
  row({0, 1, 2, 3}, {1, 1, -1, -1}, '=', 0);
  row({2, 4}, {1, 1}, '<', 100);
  row({3, 5}, {1, 1}, '<', 200);
  // Pool balance: q (xp + yp) = 3a + b.
  qc({{0, 1}, {-3, -1}, {6, 6}, {2, 3}, {1, 1}, '=', 0}, "pool");
  // Qualities: q xp + 2 cx <= 2.5 (xp + cx) and q yp + 2 cy <= 1.5 (yp + cy).
  qc({{2, 4}, {-2.5, -0.5}, {6}, {2}, {1}, '<', 0}, "X");
  qc({{3, 5}, {-1.5, 0.5}, {6}, {3}, {1}, '<', 0}, "Y");
  solve_optimal();
  expect_objective(750);
  EXPECT_NEAR(elem("X", 6), 1.5, 1e-3);
  EXPECT_NEAR(elem("X", 3) + elem("X", 5), 200, 1e-3);
}

// min x^2 - y^2 + 3xy - x + 2y over [-1, 2] x [-2, 1] with x + y <= 1.5: indefinite, so the
// minimum lies on the boundary; it is checked against a grid of 3,001 x 3,001 points, whose
// spacing (1e-3) and the gradient (at most 15) bound the grid's error by 0.015.
TEST_F(SpatialSolveTest, BoxQpMatchesAFineGrid) {
  var(-1, -1, 2);
  var(2, -2, 1);
  objective_terms({0, 1, 0}, {0, 1, 1}, {1, -1, 3});
  row({0, 1}, {1, 1}, '<', 1.5);
  solve_optimal();
  auto f = [](double x, double y) { return x * x - y * y + 3 * x * y - x + 2 * y; };
  const double grid = grid_min(f, -1, 2, -2, 1, 3000, [](double x, double y) { return x + y <= 1.5 + 1e-12; });
  const double got = dbl("ObjVal");
  EXPECT_LE(got, grid + 1e-6);
  EXPECT_GE(got, grid - 0.015);
  EXPECT_NEAR(f(elem("X", 0), elem("X", 1)), got, 1e-6);
  expect_objective(got);
}

// x y = 4 on [1, 8] x [0.5, 8]. min x + 2y: x = 2y gives y = sqrt(2), value 4 sqrt(2).
// max x + y: at an end of the curve, x = 8, y = 0.5, value 8.5 (the other end gives 5).
// The minimum is flat (f(y) = 4/y + 2y): y is pinned only with a gap far below the default.
TEST_F(SpatialSolveTest, EqualityProductBothSenses) {
  var(1, 1, 8);
  var(2, 0.5, 8);
  qc({{}, {}, {0}, {1}, {1}, '=', 4}, "curve");
  param("MIPGap", 1e-9);
  solve_optimal();
  expect_objective(4 * std::sqrt(2.0));
  // x y = 4 holds within FeasibilityTol (1e-6), which moves the value by at most about 1e-6.
  EXPECT_NEAR(dbl("ObjVal"), 4 * std::sqrt(2.0), 1e-6);
  EXPECT_NEAR(elem("X", 1), std::sqrt(2.0), 1e-3);

  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 1, 1.0), VLM_OK);
  maximise();
  solve_optimal();
  expect_objective(8.5);
  EXPECT_NEAR(elem("X", 0), 8, 1e-5);
}

// x y = 4 cannot hold on [0, 1] x [0, 3]; x y = 4 with x + y <= 3.9 on [0, 4]^2 cannot either
// (x y <= (3.9 / 2)^2 = 3.8025), which propagation alone does not see.
TEST_F(SpatialSolveTest, InfeasibleProductsAreReported) {
  var(1, 0, 1);
  var(1, 0, 3);
  qc({{}, {}, {0}, {1}, {1}, '=', 4});
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_INFEASIBLE);

  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 4.0), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 1, 4.0), VLM_OK);
  row({0, 1}, {1, 1}, '<', 3.9);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_INFEASIBLE);
}

// Bounds the rows imply are enough: min -x y with x + y <= 3, x, y >= 0 (no upper bounds of
// their own) is -9/4 at x = y = 1.5.
TEST_F(SpatialSolveTest, BoundsImpliedByRowsSuffice) {
  var(0, 0, kInf);
  var(0, 0, kInf);
  objective_terms({0}, {1}, {-1});
  row({0, 1}, {1, 1}, '<', 3);
  solve_optimal();
  expect_objective(-2.25);
  // Solving again without NonConvex=2 refuses the objective, solved model or not.
  param("NonConvex", 0);
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_Q_NOT_PSD);
}

// x^2 + y^2 = 1 with x and y free: propagation through the circle bounds both by [-1, 1] (the
// squares' columns are >= 0 and sum to 1). min x + 2y is -sqrt(5) at -(1, 2) / sqrt(5).
TEST_F(SpatialSolveTest, CircleEqualityWithFreeVariables) {
  var(1, -kInf, kInf);
  var(2, -kInf, kInf);
  qc({{}, {}, {0, 1}, {0, 1}, {1, 1}, '=', 1}, "circle");
  param("MIPGap", 1e-7);
  solve_optimal();
  EXPECT_NEAR(dbl("ObjVal"), -std::sqrt(5.0), 1e-6);
  EXPECT_NEAR(elem("X", 1), -2 / std::sqrt(5.0), 1e-3);
}

// Limits: a node limit of 1 stops the pooling search before its tree is done, with a bound
// that is still valid (at least the optimum 750 for this maximisation).
TEST_F(SpatialSolveTest, NodeLimitKeepsAValidBound) {
  var(-6, 0, 300);
  var(-13, 0, 300);
  var(9, 0, 300);
  var(15, 0, 300);
  var(-1, 0, 300);
  var(5, 0, 300);
  var(0, 1, 3);
  maximise();
  row({0, 1, 2, 3}, {1, 1, -1, -1}, '=', 0);
  row({2, 4}, {1, 1}, '<', 100);
  row({3, 5}, {1, 1}, '<', 200);
  qc({{0, 1}, {-3, -1}, {6, 6}, {2, 3}, {1, 1}, '=', 0});
  qc({{2, 4}, {-2.5, -0.5}, {6}, {2}, {1}, '<', 0});
  qc({{3, 5}, {-1.5, 0.5}, {6}, {3}, {1}, '<', 0});
  param("NodeLimit", 1.0);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  const int st = status();
  EXPECT_TRUE(st == VLM_NODE_LIMIT || st == VLM_OPTIMAL) << st;
  EXPECT_GE(dbl("ObjBound"), 750 - 1e-6);
  double count = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "NodeCount", &count), VLM_OK);
  EXPECT_LE(count, 1.0);
  if (st == VLM_NODE_LIMIT) {
    int sols = 0;
    ASSERT_EQ(VLMgetintattr(m_, "SolCount", &sols), VLM_OK);
    if (sols > 0) {
      expect_feasible();
    }
  }
}

// max x y with x integer in [0, 5], y in [0, 3], x + 2y <= 7: y = (7 - x) / 2 gives x (7 - x) / 2,
// 6 at x = 3 and at x = 4 (x = 1 has y = 3 only: 3).
TEST_F(SpatialSolveTest, IntegerTimesContinuous) {
  var(0, 0, 5, 'I');
  var(0, 0, 3);
  objective_terms({0}, {1}, {1});
  row({0, 1}, {1, 2}, '<', 7);
  maximise();
  solve_optimal();
  expect_objective(6);
  EXPECT_NEAR(elem("X", 0), std::round(elem("X", 0)), 1e-9);
}

// A dense indefinite box QP of 25 variables is not closed in a quarter of a second: the search
// stops on the limit with a feasible incumbent and a bound below it.
TEST_F(SpatialSolveTest, TimeLimitKeepsIncumbentAndBound) {
  const int n = 25;
  unsigned long long seed = 7;
  auto uniform = [&seed] {
    seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
    return 2.0 * static_cast<double>((seed >> 11) & ((1ULL << 53) - 1)) / static_cast<double>(1ULL << 53) - 1.0;
  };
  for (int j = 0; j < n; ++j) var(uniform(), 0, 1);
  std::vector<int> r, c;
  std::vector<double> v;
  for (int i = 0; i < n; ++i) {
    for (int j = i; j < n; ++j) {
      r.push_back(i);
      c.push_back(j);
      v.push_back(uniform());
    }
  }
  objective_terms(r, c, v);
  param("TimeLimit", 0.25);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(status(), VLM_TIME_LIMIT);
  expect_feasible();
  const std::vector<double> x = this->x();
  double f = 0;
  for (int j = 0; j < n; ++j) f += elem("Obj", j) * x[j];
  for (std::size_t k = 0; k < v.size(); ++k) f += v[k] * x[r[k]] * x[c[k]];
  EXPECT_NEAR(dbl("ObjVal"), f, 1e-9);
  EXPECT_LT(dbl("ObjBound"), dbl("ObjVal"));
}

// ---- products with a binary factor --------------------------------------------------------

// max 2 x b + y - 3 b  s.t.  x b + y <= 8, x + y <= 12, x in [0, 10], y in [0, 5], b binary.
// b = 1: max 2x + y - 3 with x + y <= 8: 13 at x = 8, y = 0. b = 0: y = 5, value 5. So 13.
class BinaryProductTest : public SpatialSolveTest {
 protected:
  void build_quadratic() {
    var(0, 0, 10);
    var(1, 0, 5);
    var(-3, 0, 1, 'B');
    maximise();
    objective_terms({0}, {2}, {2});
    row({0, 1}, {1, 1}, '<', 12);
    qc({{1}, {1}, {0}, {2}, {1}, '<', 8}, "cap");
  }
};

// Solved three ways: by the spatial search (products relaxed, exact once b is integral), by
// the presolve linearisation without NonConvex, and written linear by hand.
TEST_F(BinaryProductTest, QuadraticFormMatchesTheLinearOne) {
  build_quadratic();
  param("PreQLinearize", 0);
  solve_optimal();
  expect_objective(13);
  EXPECT_NEAR(elem("X", 2), 1.0, 1e-6);
  EXPECT_NEAR(elem("X", 0), 8.0, 1e-5);

  // Kept as products and without NonConvex=2 the model is refused.
  param("NonConvex", 0);
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_Q_NOT_PSD);
  // Linearised in presolve (the default) it is convex.
  param("PreQLinearize", -1);
  solve_optimal();
  EXPECT_NEAR(dbl("ObjVal"), 13, 1e-6);
  EXPECT_NEAR(elem("X", 0), 8.0, 1e-5);
  EXPECT_NEAR(elem("QCSlack", 0), 0.0, 1e-6);

  // The same model written linear: w = x b through w <= 10 b, w <= x, w >= x - 10 (1 - b).
  VLMfreemodel(m_);
  m_ = nullptr;
  ASSERT_EQ(VLMnewmodel(env_, &m_, "linear", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  lb_.clear();
  ub_.clear();
  type_.clear();
  rows_.clear();
  quads_.clear();
  var(0, 0, 10);
  var(1, 0, 5);
  var(-3, 0, 1, 'B');
  var(2, 0, 10);  // w
  maximise();
  row({0, 1}, {1, 1}, '<', 12);
  row({3, 1}, {1, 1}, '<', 8);
  row({3, 2}, {1, -10}, '<', 0);
  row({3, 0}, {1, -1}, '<', 0);
  row({3, 0, 2}, {1, -1, -10}, '>', -10);
  solve_optimal();
  EXPECT_NEAR(dbl("ObjVal"), 13, 1e-6);
}

// ---- hyperbolic constraints are convex -----------------------------------------------------

// x y >= 1 with x, y >= 0: min x + y is 2 at x = y = 1 (AM-GM). 2 x y >= 8 is x y >= 4: min
// x + 4y is 2 sqrt(16) = 8 at x = 4, y = 1. Both solve without NonConvex.
TEST_F(SpatialSolveTest, HyperbolicConstraintIsAConvexCone) {
  param("NonConvex", -1);
  var(1, 0, kInf);
  var(1, 0, kInf);
  qc({{}, {}, {0}, {1}, {1}, '>', 1}, "hyp");
  solve_optimal();
  EXPECT_NEAR(dbl("ObjVal"), 2.0, 1e-6);
  EXPECT_NEAR(elem("X", 0), 1.0, 1e-3);

  ASSERT_EQ(VLMdelqconstrs(m_, 1, std::vector<int>{0}.data()), VLM_OK);
  quads_.clear();
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 1, 4.0), VLM_OK);
  qc({{}, {}, {0}, {1}, {2}, '>', 8}, "hyp4");
  solve_optimal();
  EXPECT_NEAR(dbl("ObjVal"), 8.0, 1e-6);
  EXPECT_NEAR(elem("X", 1), 1.0, 1e-3);

  // With a square as well: w^2 + 4 <= x y with w in [1, 2] is x y >= 5 at w = 1, so min x + 4y
  // is 2 sqrt(4 * 5) = 4 sqrt(5).
  ASSERT_EQ(VLMdelqconstrs(m_, 1, std::vector<int>{0}.data()), VLM_OK);
  quads_.clear();
  var(0, 1, 2);
  qc({{}, {}, {2, 0}, {2, 1}, {1, -1}, '<', -4}, "rotated");
  solve_optimal();
  EXPECT_NEAR(dbl("ObjVal"), 4 * std::sqrt(5.0), 1e-6);
}

// A hyperbola with a variable that may be negative is not convex: refused, then solved with
// NonConvex=2. min x - y with x y >= 1, x and y in [-2, 3]: on the branch x, y > 0 the least
// is x = 1/3, y = 3, value -8/3; on the branch x, y < 0, x = -2 needs y <= -1/2, value -1.5.
TEST_F(SpatialSolveTest, HyperbolaThroughNegativeValuesNeedsNonConvex) {
  param("NonConvex", -1);
  var(1, -2, 3);
  var(-1, -2, 3);
  qc({{}, {}, {0}, {1}, {1}, '>', 1}, "both");
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_Q_NOT_PSD);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("'both'"), std::string::npos) << VLMgetmerrormsg(m_);
  param("NonConvex", 2);
  solve_optimal();
  expect_objective(-8.0 / 3.0);
}

// ---- errors -----------------------------------------------------------------------------------

TEST_F(SpatialSolveTest, MissingBoundNamesTheVariable) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 4, 'C', "x"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, -kInf, kInf, 'C', "free"), VLM_OK);
  objective_terms({0}, {1}, {-1});
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(std::string(VLMgetmerrormsg(m_)),
            "Variable 'free' of a nonconvex product in the objective has no finite lower bound, and the constraints "
            "imply none; NonConvex=2 needs finite bounds on the variables of nonconvex terms");
  EXPECT_EQ(status(), VLM_LOADED);
}

// Without NonConvex=2 the nonconvex objective of a continuous QP is refused as before.
TEST_F(SpatialSolveTest, NonConvexZeroStillRefuses) {
  param("NonConvex", 0);
  var(0, 0, 1);
  var(0, 0, 1);
  objective_terms({0}, {1}, {-1});
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_Q_NOT_PSD);
}

// ---- propagation ------------------------------------------------------------------------------

// w = x y with w fixed to 4 by a row and y in [1, 2]: x must lie in [2, 4]; with x <= 3 as well,
// y >= 4/3. A row x + y <= 2 with y >= 1 leaves x <= 1, so no x y = 4: empty.
TEST(SpatialPropagationTest, ProductsAndRowsTightenBothWays) {
  using vlm::algorithms::SpatialRelaxation;
  vlm::reform::WorkingProblem p;
  p.add_col(0, 10, 0);
  p.add_col(1, 2, 0);
  SpatialRelaxation rel;
  const int w = rel.lift(0, 1, "test", p);
  p.add_row({w}, {1.0}, 4, 4);
  std::vector<double> lo = p.lower, up = p.upper;
  ASSERT_TRUE(rel.propagate(p, lo, up, 10));
  EXPECT_NEAR(lo[0], 2.0, 1e-6);
  EXPECT_NEAR(up[0], 4.0, 1e-6);
  up[0] = 3.0;
  ASSERT_TRUE(rel.propagate(p, lo, up, 10));
  EXPECT_NEAR(lo[1], 4.0 / 3.0, 1e-6);

  p.add_row({0, 1}, {1.0, 1.0}, -INFINITY, 2);
  lo = p.lower;
  up = p.upper;
  EXPECT_FALSE(rel.propagate(p, lo, up, 10));
}

TEST(SpatialPropagationTest, ProductRanges) {
  using vlm::algorithms::product_range;
  EXPECT_EQ(product_range(false, -1, 2, -3, 1), std::make_pair(-6.0, 3.0));
  EXPECT_EQ(product_range(true, -1, 2, -1, 2), std::make_pair(0.0, 4.0));
  EXPECT_EQ(product_range(true, -3, -2, -3, -2), std::make_pair(4.0, 9.0));
  EXPECT_EQ(product_range(false, 0, 1, -INFINITY, 5), std::make_pair(-static_cast<double>(INFINITY), 5.0));
}

}  // namespace
