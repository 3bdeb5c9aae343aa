// MAX, MIN and ABS constraints solved through their binaries: optima where the relaxation
// without the linking binaries would be better, and a missing bound named.
#include "reform/reform_fixture.h"

namespace {

// r = max(x, y, 2), x in [0, 4], y in [1, 3]; max r - x. With x = 0 the maximum is y = 3:
// objective 3 (x = 4 gives 4 - 4 = 0). Without the binaries r could reach 4 with x = 0.
TEST_F(ReformTest, MaxResultEqualsTheLargestOperand) {
  int xv = var(-1, 0, 4, 'C', "x");
  int yv = var(0, 1, 3, 'C', "y");
  int r = var(1, -1e100, 1e100, 'C', "r");
  maximize();
  int ops[] = {xv, yv};
  ASSERT_EQ(VLMaddgenconstrMax(m_, "m", r, 2, ops, 2.0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-6);
  EXPECT_NEAR(x(r), std::max({x(xv), x(yv), 2.0}), 1e-6);
  EXPECT_NEAR(x(r), 3.0, 1e-6);
  expect_user_feasible(3, 0);
}

// r = min(x, y, 5), x in [0, 10], y in [0, 8]; min r - x - y: x = 10, y = 8 make r = 5 (the
// constant): objective 5 - 18 = -13. Without the binaries r could sit at 0: -18.
TEST_F(ReformTest, MinResultEqualsTheSmallestOperandOrConstant) {
  int xv = var(-1, 0, 10, 'C', "x");
  int yv = var(-1, 0, 8, 'C', "y");
  int r = var(1, -1e100, 1e100, 'C', "r");
  int ops[] = {xv, yv};
  ASSERT_EQ(VLMaddgenconstrMin(m_, "m", r, 2, ops, 5.0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -13.0, 1e-6);
  EXPECT_NEAR(x(r), std::min({x(xv), x(yv), 5.0}), 1e-6);
  // The reader keeps the user's constant.
  double constant = 0;
  int nvars = 0;
  ASSERT_EQ(VLMgetgenconstrMin(m_, 0, nullptr, &nvars, nullptr, &constant), VLM_OK);
  EXPECT_EQ(nvars, 2);
  EXPECT_EQ(constant, 5.0);
}

// r = |x|, x in [-3, 2]: max r is 3 at x = -3; max r + x is 4 at x = 2 (the relaxation would
// take r = 3 with x = 2: 5).
TEST_F(ReformTest, AbsTakesTheSignOfItsArgument) {
  int xv = var(0, -3, 2, 'C', "x");
  int r = var(1, 0, 1e100, 'C', "r");
  maximize();
  ASSERT_EQ(VLMaddgenconstrAbs(m_, "a", r, xv), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-6);
  EXPECT_NEAR(x(xv), -3.0, 1e-6);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", xv, 1.0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 4.0, 1e-6);
  EXPECT_NEAR(x(r), std::fabs(x(xv)), 1e-6);
  expect_user_feasible(2, 0);
}

// r = |x| with x free: refused naming x. An upper bound 4 on r bounds x to [-4, 4] through
// propagation: max r - x/2 is then 4 + 2 = 6 at x = -4.
TEST_F(ReformTest, AbsOfAFreeVariableNeedsABound) {
  int xv = var(-0.5, -1e100, 1e100, 'C', "x");
  int r = var(1, 0, 1e100, 'C', "r");
  maximize();
  ASSERT_EQ(VLMaddgenconstrAbs(m_, "a", r, xv), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_NOT_SUPPORTED,
               "ABS constraint 'a' needs a finite lower bound on variable 'x' (the argument may take both signs");
  EXPECT_EQ(intattr("NumVars"), 2);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", r, 4.0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 6.0, 1e-6);
  EXPECT_NEAR(x(xv), -4.0, 1e-6);
}

// r = max(x, y) with y unbounded above and r free: the big-M is infinite; the message names y.
TEST_F(ReformTest, MaxWithAnUnboundedOperandIsNamed) {
  int xv = var(0, 0, 4, 'C', "x");
  int yv = var(0, 0, 1e100, 'C', "y");
  int r = var(1, -1e100, 1e100, 'C', "r");
  int ops[] = {xv, yv};
  ASSERT_EQ(VLMaddgenconstrMax(m_, "m", r, 2, ops, -1e100), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_NOT_SUPPORTED, "MAX constraint 'm' needs a finite upper bound on variable 'y'");
}

}  // namespace
