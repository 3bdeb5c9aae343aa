// Piecewise-linear constraints y = f(x): optima at breakpoints, the SOS2 condition that keeps
// (x, y) on the graph of a non-convex function, jumps, the pieces continued beyond the points,
// and the refusal of an x that may leave the points without a bound.
#include "reform/reform_fixture.h"

namespace {

class PwlTest : public ReformTest {
 protected:
  void pwl(int xv, int yv, std::vector<double> xs, std::vector<double> ys, const char* name = nullptr) {
    ASSERT_EQ(VLMaddgenconstrPWL(m_, name, xv, yv, static_cast<int>(xs.size()), xs.data(), ys.data()), VLM_OK);
  }
};

// y = f(x) through (0,0), (1,2), (3,3), (4,0), x in [0, 4]; max y - x/4: at the breakpoints
// 0, 1.75, 2.25, -1: optimum 2.25 at x = 3, y = 3.
TEST_F(PwlTest, OptimumAtABreakpoint) {
  int xv = var(-0.25, 0, 4, 'C', "x");
  int yv = var(1, -1e100, 1e100, 'C', "y");
  maximize();
  pwl(xv, yv, {0, 1, 3, 4}, {0, 2, 3, 0});
  solve();
  EXPECT_NEAR(objval(), 2.25, 1e-6);
  EXPECT_NEAR(x(xv), 3.0, 1e-6);
  EXPECT_NEAR(x(yv), 3.0, 1e-6);
  expect_user_feasible(2, 0);
}

// A hat (0,0), (1,5), (2,0) with x in [0.5, 1.5]: min y is f(0.5) = f(1.5) = 2.5. A convex
// combination of the two outer points would give 0 at x = 1; the SOS2 forbids it.
TEST_F(PwlTest, NonConvexFunctionStaysOnTheGraph) {
  int xv = var(0, 0.5, 1.5, 'C', "x");
  int yv = var(1, -1e100, 1e100, 'C', "y");
  pwl(xv, yv, {0, 1, 2}, {0, 5, 0});
  solve();
  EXPECT_NEAR(objval(), 2.5, 1e-6);
  const double xs = x(xv);
  EXPECT_TRUE(std::fabs(xs - 0.5) < 1e-6 || std::fabs(xs - 1.5) < 1e-6) << xs;
}

// A jump at x = 1: (0,0), (1,1), (1,3), (2,4). With x fixed at 1, y is 1 or 3 and nothing in
// between: max y = 3, min y = 1, and y = 2 is infeasible.
TEST_F(PwlTest, JumpTakesEitherSideNeverBetween) {
  int xv = var(0, 1, 1, 'C', "x");
  int yv = var(1, -1e100, 1e100, 'C', "y");
  pwl(xv, yv, {0, 1, 1, 2}, {0, 1, 3, 4});
  maximize();
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-6);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", 1), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 1.0, 1e-6);
  row({yv}, {1}, '=', 2);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_INFEASIBLE);
}

// Beyond its points the function continues along its end pieces: through (0,0), (1,1) with
// x in [-2, 3], min y = -2 (at x = -2) and max y = 3 (at x = 3).
TEST_F(PwlTest, EndPiecesContinueToTheBoundsOfX) {
  int xv = var(0, -2, 3, 'C', "x");
  int yv = var(1, -1e100, 1e100, 'C', "y");
  pwl(xv, yv, {0, 1}, {0, 1});
  solve();
  EXPECT_NEAR(objval(), -2.0, 1e-6);
  EXPECT_NEAR(x(xv), -2.0, 1e-6);
  maximize();
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-6);
}

// x >= 0 unbounded above may leave the points to the right: refused naming x. The row
// x <= 5 bounds it: max y with y = f(x) through (0,0), (2,1), (4,0) extended (slope -1/2
// after 4): max 1 at x = 2.
TEST_F(PwlTest, UnboundedXIsNamedAndARowBoundSuffices) {
  int xv = var(0, 0, 1e100, 'C', "x");
  int yv = var(1, -1e100, 1e100, 'C', "y");
  maximize();
  pwl(xv, yv, {0, 2, 4}, {0, 1, 0}, "f");
  expect_error(VLMoptimize(m_), VLM_ERROR_NOT_SUPPORTED,
               "PWL constraint 'f' needs a finite upper bound on variable 'x' (x may lie above the last point x = 4");
  EXPECT_EQ(intattr("NumVars"), 2);
  EXPECT_EQ(intattr("NumGenConstrs"), 1);
  row({xv}, {1}, '<', 5);
  solve();
  EXPECT_NEAR(objval(), 1.0, 1e-6);
  EXPECT_NEAR(x(xv), 2.0, 1e-6);
  // The reader still shows the user's three points, not the extended ones.
  int npts = 0;
  ASSERT_EQ(VLMgetgenconstrPWL(m_, 0, nullptr, nullptr, &npts, nullptr, nullptr), VLM_OK);
  EXPECT_EQ(npts, 3);
  expect_user_feasible(2, 1);
}

}  // namespace
