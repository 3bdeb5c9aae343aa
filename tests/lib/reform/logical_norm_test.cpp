// AND, OR and NORM constraints: the logical rows in both directions, the 1-, infinity- and
// 0-norms (the 2-norm is in two_norm_test.cpp).
#include "reform/reform_fixture.h"

namespace {

// r = x1 AND x2 AND x3 over binaries.
// max 5r - x1 - x2 - x3: r = 1 needs all three: 5 - 3 = 2.
// max -5r + x1 + x2 + x3: all three would force r = 1 (3 - 5 = -2), two give 2.
TEST_F(ReformTest, AndIsOneExactlyWhenAllAre) {
  int x1 = var(-1, 0, 1, 'B', "x1");
  int x2 = var(-1, 0, 1, 'B', "x2");
  int x3 = var(-1, 0, 1, 'B', "x3");
  int r = var(5, 0, 1, 'B', "r");
  maximize();
  int ops[] = {x1, x2, x3};
  ASSERT_EQ(VLMaddgenconstrAnd(m_, "and", r, 3, ops), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 2.0, 1e-6);
  EXPECT_NEAR(x(r), 1.0, 1e-6);
  double obj[4] = {1, 1, 1, -5};
  ASSERT_EQ(VLMsetdblattrarray(m_, "Obj", 0, 4, obj), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 2.0, 1e-6);
  EXPECT_NEAR(x(r), 0.0, 1e-6);
  EXPECT_NEAR(x(x1) + x(x2) + x(x3), 2.0, 1e-6);
  expect_user_feasible(4, 0);
}

// An operand made continuous after the constraint was added is refused at solve time.
TEST_F(ReformTest, AndOperandNoLongerBinaryIsRefused) {
  int x1 = var(0, 0, 1, 'B', "x1");
  int r = var(1, 0, 1, 'B', "r");
  ASSERT_EQ(VLMaddgenconstrAnd(m_, "and", r, 1, &x1), VLM_OK);
  ASSERT_EQ(VLMsetcharattrelement(m_, "VType", x1, 'C'), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", x1, 3.0), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_INVALID_ARGUMENT,
               "AND constraint 'and': operand 'x1' must be binary, and it no longer is");
}

// r = x1 OR x2. max 2r - x1 - x2: r = 1 needs one operand: 1.
// max -3r + x1 + x2: any operand forces r = 1 (2 - 3 = -1); none gives 0.
TEST_F(ReformTest, OrIsOneExactlyWhenAnyIs) {
  int x1 = var(-1, 0, 1, 'B', "x1");
  int x2 = var(-1, 0, 1, 'B', "x2");
  int r = var(2, 0, 1, 'B', "r");
  maximize();
  int ops[] = {x1, x2};
  ASSERT_EQ(VLMaddgenconstrOr(m_, "or", r, 2, ops), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 1.0, 1e-6);
  EXPECT_NEAR(x(x1) + x(x2), 1.0, 1e-6);
  double obj[3] = {1, 1, -3};
  ASSERT_EQ(VLMsetdblattrarray(m_, "Obj", 0, 3, obj), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 0.0, 1e-6);
  EXPECT_NEAR(x(r), 0.0, 1e-6);
}

// x in [-2, 3], y in [-1, 1].
// 1-norm: max r - x: x = -2, |y| = 1: r = 3, objective 5 (x = 3 gives 4 - 3 = 1).
// infinity-norm: max r - x: x = -2: r = 2, objective 4.
TEST_F(ReformTest, OneAndInfinityNorms) {
  int xv = var(-1, -2, 3, 'C', "x");
  int yv = var(0, -1, 1, 'C', "y");
  int r = var(1, 0, 1e100, 'C', "r");
  maximize();
  int ops[] = {xv, yv};
  ASSERT_EQ(VLMaddgenconstrNorm(m_, "n1", r, 2, ops, 1.0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 5.0, 1e-6);
  EXPECT_NEAR(x(r), std::fabs(x(xv)) + std::fabs(x(yv)), 1e-6);
  int del = 0;
  ASSERT_EQ(VLMdelgenconstrs(m_, 1, &del), VLM_OK);
  ASSERT_EQ(VLMaddgenconstrNorm(m_, "ninf", r, 2, ops, 1e100), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 4.0, 1e-6);
  EXPECT_NEAR(x(r), std::max(std::fabs(x(xv)), std::fabs(x(yv))), 1e-6);
  expect_user_feasible(3, 0);
}

// 0-norm of (x, y, z), x in [-1, 1], y, z in [0, 2].
// max r with x + y + z <= 0: x = -1 and y, z positive: r = 3.
// min r with x + y + z >= 2.5: no single variable reaches 2.5: r = 2.
TEST_F(ReformTest, ZeroNormCountsNonZeros) {
  int xv = var(0, -1, 1, 'C', "x");
  int yv = var(0, 0, 2, 'C', "y");
  int zv = var(0, 0, 2, 'C', "z");
  int r = var(1, 0, 1e100, 'C', "r");
  maximize();
  int ops[] = {xv, yv, zv};
  ASSERT_EQ(VLMaddgenconstrNorm(m_, "n0", r, 3, ops, 0.0), VLM_OK);
  row({xv, yv, zv}, {1, 1, 1}, '<', 0);
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-6);
  EXPECT_LT(x(xv), -1e-6);
  EXPECT_GT(x(yv), 1e-6);
  EXPECT_GT(x(zv), 1e-6);
  int del = 0;
  ASSERT_EQ(VLMdelconstrs(m_, 1, &del), VLM_OK);
  row({xv, yv, zv}, {1, 1, 1}, '>', 2.5);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", 1), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 2.0, 1e-6);
  int nonzero = 0;
  for (int j : {xv, yv, zv}) nonzero += std::fabs(x(j)) > 1e-9 ? 1 : 0;
  EXPECT_EQ(nonzero, 2);
}

}  // namespace
