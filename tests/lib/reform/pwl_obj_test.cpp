// Piecewise-linear objective terms: convex ones as a pure LP (no bound needed, continuous
// model), non-convex ones through SOS2, and the PWL term replacing the linear coefficient.
#include "reform/reform_fixture.h"

namespace {

// f(x) through (0,4), (2,0), (4,2): convex, slopes -2 and 1, continued beyond 4 with slope 1.
// x >= 0 without an upper bound, linear coefficient 5 (replaced by f): min f = 0 at x = 2.
// With the row x >= 6: f(6) = 2 + (6 - 4) = 4. The model stays continuous.
TEST_F(ReformTest, ConvexPwlObjectiveIsAPureLp) {
  int xv = var(5, 0, 1e100, 'C', "x");
  double px[] = {0, 2, 4}, py[] = {4, 0, 2};
  ASSERT_EQ(VLMsetpwlobj(m_, xv, 3, px, py), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 0.0, 1e-6);
  EXPECT_NEAR(x(xv), 2.0, 1e-6);
  EXPECT_EQ(intattr("IsMIP"), 0);
  row({xv}, {1}, '>', 6);
  solve();
  EXPECT_NEAR(objval(), 4.0, 1e-6);
  expect_user_feasible(1, 1);
  // The continuous model reports duals of the user's row only: d f / d x = 1 at x = 6.
  double pi = 0;
  ASSERT_EQ(VLMgetdblattrelement(m_, "Pi", 0, &pi), VLM_OK);
  EXPECT_NEAR(pi, 1.0, 1e-6);
}

// f through (0,0), (2,4), (4,0) is a hat, not convex. min f over x in [1, 3]: f(1) = f(3) = 2.
// A convex combination of the outer points would reach 0 at x = 2; the SOS2 forbids it.
// A maximisation of the same hat is concave: LP, max f = 4 at x = 2.
TEST_F(ReformTest, NonConvexPwlObjectiveUsesSos2) {
  int xv = var(0, 1, 3, 'C', "x");
  double px[] = {0, 2, 4}, py[] = {0, 4, 0};
  ASSERT_EQ(VLMsetpwlobj(m_, xv, 3, px, py), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 2.0, 1e-6);
  EXPECT_TRUE(std::fabs(x(xv) - 1.0) < 1e-6 || std::fabs(x(xv) - 3.0) < 1e-6);
  maximize();
  solve();
  EXPECT_NEAR(objval(), 4.0, 1e-6);
  EXPECT_NEAR(x(xv), 2.0, 1e-6);
}

// The non-convex hat with x unbounded above is refused naming x; with x <= 5 (f continues
// with slope -2 after 4: f(5) = -2) min f = -2.
TEST_F(ReformTest, NonConvexPwlObjectiveNeedsBoundsOfX) {
  int xv = var(0, 1, 1e100, 'C', "x");
  double px[] = {0, 2, 4}, py[] = {0, 4, 0};
  ASSERT_EQ(VLMsetpwlobj(m_, xv, 3, px, py), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_NOT_SUPPORTED,
               "piecewise-linear objective of variable 'x' (not convex) needs a finite upper bound on variable 'x'");
  EXPECT_EQ(intattr("NumVars"), 1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", xv, 5.0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -2.0, 1e-6);
  EXPECT_NEAR(x(xv), 5.0, 1e-6);
}

// Several constructs in one model: two sites with fixed costs 5 and 3, at most one open
// (SOS1 over the open binaries), flows x1, x2 in [0, 10] only at an open site (indicators),
// demand x1 + x2 >= 8, unit cost 1 at site 1 as a PWL objective through (0,0), (10,10) and 2
// at site 2, and 0.1 for m = max(x1, x2).
// Site 1: 5 + 8 + 0.8 = 13.8; site 2: 3 + 16 + 0.8 = 19.8. Optimum 13.8, x1 = m = 8.
TEST_F(ReformTest, SeveralConstructsInOneModel) {
  int b1 = var(5, 0, 1, 'B', "b1");
  int b2 = var(3, 0, 1, 'B', "b2");
  int x1 = var(0, 0, 10, 'C', "x1");
  int x2 = var(2, 0, 10, 'C', "x2");
  int mv = var(0.1, -1e100, 1e100, 'C', "m");
  row({x1, x2}, {1, 1}, '>', 8);
  sos(1, {b1, b2}, {1, 2});
  double one = 1.0;
  ASSERT_EQ(VLMaddgenconstrIndicator(m_, "off1", b1, 0, 1, &x1, &one, '<', 0.0), VLM_OK);
  ASSERT_EQ(VLMaddgenconstrIndicator(m_, "off2", b2, 0, 1, &x2, &one, '<', 0.0), VLM_OK);
  int ops[] = {x1, x2};
  ASSERT_EQ(VLMaddgenconstrMax(m_, "peak", mv, 2, ops, -1e100), VLM_OK);
  double px[] = {0, 10}, py[] = {0, 10};
  ASSERT_EQ(VLMsetpwlobj(m_, x1, 2, px, py), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 13.8, 1e-6);
  EXPECT_NEAR(x(b1), 1.0, 1e-6);
  EXPECT_NEAR(x(b2), 0.0, 1e-6);
  EXPECT_NEAR(x(x1), 8.0, 1e-6);
  EXPECT_NEAR(x(mv), 8.0, 1e-6);
  expect_user_feasible(5, 1);
  EXPECT_EQ(intattr("NumGenConstrs"), 3);
  EXPECT_EQ(intattr("NumSOS"), 1);
  int type = -1;
  ASSERT_EQ(VLMgetintattrelement(m_, "GenConstrType", 2, &type), VLM_OK);
  EXPECT_EQ(type, 0);  // MAX
  char* name = nullptr;
  ASSERT_EQ(VLMgetstrattrelement(m_, "GenConstrName", 1, &name), VLM_OK);
  EXPECT_STREQ(name, "off2");
  int npts = 0;
  ASSERT_EQ(VLMgetpwlobj(m_, x1, &npts, nullptr, nullptr), VLM_OK);
  EXPECT_EQ(npts, 2);
  // The pool holds user-sized solutions only.
  int count = intattr("SolCount");
  ASSERT_GE(count, 1);
  std::vector<double> xn(5);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "SolutionNumber", count - 1), VLM_OK);
  ASSERT_EQ(VLMgetdblattrarray(m_, "Xn", 0, 5, xn.data()), VLM_OK);
  EXPECT_EQ(VLMgetdblattrarray(m_, "Xn", 0, 6, xn.data()), VLM_ERROR_INDEX_OUT_OF_RANGE);
}

}  // namespace
