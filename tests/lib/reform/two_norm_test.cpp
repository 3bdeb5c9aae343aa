// y = ||x||_2 as a second-order cone where only y >= ||x|| can bind, and otherwise as an
// equality that needs NonConvex 2.
#include "reform/reform_fixture.h"

namespace {

class TwoNormTest : public ReformTest {
 protected:
  void norm2(int y, std::vector<int> xs, const char* name = "n2") {
    ASSERT_EQ(VLMaddgenconstrNorm(m_, name, y, static_cast<int>(xs.size()), xs.data(), 2.0), VLM_OK);
  }
  double length(std::vector<int> xs) {
    double s = 0.0;
    for (int j : xs) s += x(j) * x(j);
    return std::sqrt(s);
  }
};

// The point of the line x1 + 2 x2 = 5 nearest the origin: min y, y = ||(x1, x2)||, x free.
// The nearest point is (1, 2) at distance 5 / sqrt(5) = sqrt(5).
TEST_F(TwoNormTest, NearestPointOnALine) {
  int x1 = var(0, -1e100, 1e100, 'C', "x1");
  int x2 = var(0, -1e100, 1e100, 'C', "x2");
  int y = var(1, -1e100, 1e100, 'C', "y");
  row({x1, x2}, {1, 2}, '=', 5);
  norm2(y, {x1, x2});
  solve();
  EXPECT_NEAR(objval(), std::sqrt(5.0), 1e-5);
  EXPECT_NEAR(x(x1), 1.0, 1e-3);
  EXPECT_NEAR(x(x2), 2.0, 1e-3);
  EXPECT_NEAR(x(y), length({x1, x2}), 1e-5);
  expect_user_feasible(3, 1);
}

// y may sit in rows where a smaller y is never worse: max 3 x1 + 4 x2 - 2y, y + s <= 10 (s
// free of cost, s >= 0), y = ||x||, x1, x2 >= 0. The objective per unit of length in direction
// (3, 4)/5 is 5 - 2 = 3 > 0, so the length grows to the cap y = 10: x = (6, 8), value
// = 50 - 20 = 30.
TEST_F(TwoNormTest, ConeWithRowCap) {
  int x1 = var(3, 0, 1e100, 'C', "x1");
  int x2 = var(4, 0, 1e100, 'C', "x2");
  int y = var(-2, 0, 1e100, 'C', "y");
  int s = var(0, 0, 1e100, 'C', "s");
  maximize();
  row({y, s}, {1, 1}, '<', 10);
  norm2(y, {x1, x2});
  solve();
  EXPECT_NEAR(objval(), 30.0, 1e-4);
  EXPECT_NEAR(x(y), 10.0, 1e-4);
  EXPECT_NEAR(x(x1), 6.0, 1e-3);
  EXPECT_NEAR(x(x2), 8.0, 1e-3);
  EXPECT_NEAR(x(y), length({x1, x2}), 1e-5);
  expect_user_feasible(4, 1);
}

// A cone and a held SOS1 in one search: the point nearest (3, 4) with x1, x2 >= 0 unbounded
// and at most one of them non-zero. x1 = 0: distance 3 at (0, 4); x2 = 0: 4 at (3, 0).
// The relaxation's (3, 4) at distance 0 has both non-zero. Optimum 3.
TEST_F(TwoNormTest, ConeWithBranchedSet) {
  int x1 = var(0, 0, 1e100, 'C', "x1");
  int x2 = var(0, 0, 1e100, 'C', "x2");
  int d1 = var(0, -1e100, 1e100, 'C', "d1");
  int d2 = var(0, -1e100, 1e100, 'C', "d2");
  int y = var(1, 0, 1e100, 'C', "y");
  row({d1, x1}, {1, -1}, '=', -3);
  row({d2, x2}, {1, -1}, '=', -4);
  sos(1, {x1, x2}, {1, 2});
  norm2(y, {d1, d2});
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-5);
  EXPECT_NEAR(x(x1), 0.0, 1e-6);
  EXPECT_NEAR(x(x2), 4.0, 1e-3);
  EXPECT_NEAR(x(y), length({d1, d2}), 1e-5);
  expect_user_feasible(5, 2);
}

// A norm nothing depends on (no cost, no other use) is solved as its cone and then reported
// exactly: min -x1 - x2, x in [-1, 1]^2, y = ||x|| gives x = (1, 1), y = sqrt(2). With y <= 1
// the cone bounds x: x = (1, 1) / sqrt(2), objective -sqrt(2), y = 1.
TEST_F(TwoNormTest, NormWithoutCostIsReportedExactly) {
  for (double ub : {1e100, 1.0}) {
    SCOPED_TRACE(ub);
    TearDown();
    SetUp();
    nvars_ = 0;
    int x1 = var(-1, -1, 1, 'C', "x1");
    int x2 = var(-1, -1, 1, 'C', "x2");
    int y = var(0, 0, ub, 'C', "y");
    norm2(y, {x1, x2});
    solve();
    const double r = ub == 1.0 ? 1.0 / std::sqrt(2.0) : 1.0;
    EXPECT_NEAR(objval(), -2.0 * r, 1e-5);
    EXPECT_NEAR(x(x1), r, 1e-3);
    EXPECT_NEAR(x(x2), r, 1e-3);
    EXPECT_NEAR(x(y), length({x1, x2}), 1e-9);
    EXPECT_NEAR(x(y), std::sqrt(2.0) * r, 1e-4);
    expect_user_feasible(3, 0);
  }
}

// Where a larger y may pay, the cone alone is not exact and the equality is not convex: the
// solve is refused naming the constraint and NonConvex 2, and the model is unchanged.
//  - max y, y = ||x||, x in [-1, 1]^2: the cone alone would let y grow without bound;
//  - min y with the row y >= 3: the cone alone would give y = 3 at x = 0, where ||x|| = 0.
TEST_F(TwoNormTest, EqualityNeedsNonConvex) {
  for (bool maximise : {true, false}) {
    SCOPED_TRACE(maximise);
    TearDown();
    SetUp();
    nvars_ = 0;
    int x1 = var(0, -1, 1, 'C', "x1");
    int x2 = var(0, -1, 1, 'C', "x2");
    int y = var(1, 0, 1e100, 'C', "y");
    if (maximise) {
      maximize();
    } else {
      row({y}, {1}, '>', 3);
    }
    norm2(y, {x1, x2}, "dist");
    expect_error(VLMoptimize(m_), VLM_ERROR_QCP_EQUALITY_CONSTRAINT,
                 "NORM constraint 'dist' ties its result to the 2-norm from both sides");
    const std::string msg = VLMgetmerrormsg(m_);
    EXPECT_NE(msg.find("set NonConvex to 2"), std::string::npos) << msg;
    EXPECT_EQ(intattr("NumGenConstrs"), 1);
    EXPECT_EQ(intattr("NumQConstrs"), 0);
    EXPECT_EQ(intattr("NumVars"), 3);
  }
}

// A lower bound above 0 on y makes y = max(lb, ||x||) under the cone: not exact either.
// min y, y >= 0.5 (bound), y = ||x||, x in [-1, 1]: refused in the same way.
TEST_F(TwoNormTest, PositiveLowerBoundIsNotConeExact) {
  int x1 = var(0, -1, 1, 'C', "x1");
  int y = var(1, 0.5, 1e100, 'C', "y");
  norm2(y, {x1});
  expect_error(VLMoptimize(m_), VLM_ERROR_QCP_EQUALITY_CONSTRAINT, "NORM constraint 'n2'");
}

}  // namespace
