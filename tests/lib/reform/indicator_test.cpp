// Indicator constraints solved through big-M rows taken from (propagated) bounds: each sense,
// both trigger values, a fixed indicator needing no bound (rows whose big-M would be infinite
// are branched on: held_constructs_test.cpp).
#include "reform/reform_fixture.h"

namespace {

class IndicatorTest : public ReformTest {
 protected:
  void indicator(int b, int val, std::vector<int> ind, std::vector<double> coef, char sense, double rhs,
                 const char* name = nullptr) {
    ASSERT_EQ(VLMaddgenconstrIndicator(m_, name, b, val, static_cast<int>(ind.size()), ind.data(), coef.data(),
                                       sense, rhs),
              VLM_OK);
  }
};

// max x + y + 8b, x, y in [0, 5], (b == 1) => x + y <= 3.
// b = 1: 3 + 8 = 11; b = 0: 10. Optimum 11 with x + y = 3.
TEST_F(IndicatorTest, LessEqualActiveOnOne) {
  int xv = var(1, 0, 5, 'C', "x");
  int yv = var(1, 0, 5, 'C', "y");
  int b = var(8, 0, 1, 'B', "b");
  maximize();
  indicator(b, 1, {xv, yv}, {1, 1}, '<', 3);
  solve();
  EXPECT_NEAR(objval(), 11.0, 1e-6);
  EXPECT_NEAR(x(b), 1.0, 1e-6);
  EXPECT_LE(x(xv) + x(yv), 3.0 + 1e-6);
  // With a bonus of 4 for b the free choice wins: 10 against 3 + 4.
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", b, 4.0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 10.0, 1e-6);
  EXPECT_NEAR(x(b), 0.0, 1e-6);
  expect_user_feasible(3, 0);
}

// min x + 5b, x in [0, 10], (b == 0) => x >= 4: b = 0 costs 4, b = 1 costs 5: optimum 4.
// With b costing 3 instead: b = 1, x = 0, optimum 3.
TEST_F(IndicatorTest, GreaterEqualActiveOnZero) {
  int xv = var(1, 0, 10, 'C', "x");
  int b = var(5, 0, 1, 'B', "b");
  indicator(b, 0, {xv}, {1}, '>', 4);
  solve();
  EXPECT_NEAR(objval(), 4.0, 1e-6);
  EXPECT_NEAR(x(xv), 4.0, 1e-6);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", b, 3.0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-6);
  EXPECT_NEAR(x(b), 1.0, 1e-6);
}

// (b == 1) => x + y = 3 with x, y in [0, 5]; b earns 8 in a maximisation, 4 in a minimisation
// of -x - y: max x + y + 8b: 11 (upper side binds); max -x - y + 4b: 1 (lower side binds).
TEST_F(IndicatorTest, EqualityBindsOnBothSides) {
  int xv = var(1, 0, 5, 'C', "x");
  int yv = var(1, 0, 5, 'C', "y");
  int b = var(8, 0, 1, 'B', "b");
  maximize();
  indicator(b, 1, {xv, yv}, {1, 1}, '=', 3);
  solve();
  EXPECT_NEAR(objval(), 11.0, 1e-6);
  EXPECT_NEAR(x(xv) + x(yv), 3.0, 1e-6);
  double obj[3] = {-1, -1, 4};
  ASSERT_EQ(VLMsetdblattrarray(m_, "Obj", 0, 3, obj), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 1.0, 1e-6);
  EXPECT_NEAR(x(b), 1.0, 1e-6);
  EXPECT_NEAR(x(xv) + x(yv), 3.0, 1e-6);
}

// max x + 9b, (b == 1) => x <= 2, x >= 0 unbounded above: no finite big-M, so the indicator
// is branched on; b = 0 leaves x unbounded (a search over held constructs reports INF_OR_UNBD
// for a relaxation they do not bound). A row x + y <= 10 bounds x through propagation and
// the big-M path takes over: b = 1 gives 2 + 9 = 11, b = 0 gives 10: optimum 11 with x = 2.
TEST_F(IndicatorTest, MissingBoundIsBranchedOnAndRowBoundSuffices) {
  int xv = var(1, 0, 1e100, 'C', "x");
  int b = var(9, 0, 1, 'B', "b");
  maximize();
  indicator(b, 1, {xv}, {1}, '<', 2, "cap");
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_INF_OR_UNBD);
  EXPECT_EQ(intattr("NumVars"), 2);
  EXPECT_EQ(intattr("NumConstrs"), 0);
  EXPECT_EQ(intattr("NumGenConstrs"), 1);
  int y = var(0, 0, 1e100, 'C', "y");
  row({xv, y}, {1, 1}, '<', 10);
  solve();
  EXPECT_NEAR(objval(), 11.0, 1e-6);
  EXPECT_NEAR(x(xv), 2.0, 1e-6);
  expect_user_feasible(3, 1);
}

// An indicator variable fixed at its trigger value makes the row plain: no bound is needed.
// max x, x >= 0 unbounded, b fixed at 1, (b == 1) => x <= 2: optimum 2.
TEST_F(IndicatorTest, FixedIndicatorNeedsNoBound) {
  int xv = var(1, 0, 1e100, 'C', "x");
  int b = var(0, 1, 1, 'B', "b");
  maximize();
  indicator(b, 1, {xv}, {1}, '<', 2);
  solve();
  EXPECT_NEAR(objval(), 2.0, 1e-6);
  // The working problem is an LP, but the user's model has a general constraint: the results
  // are those of a MIP (a bound, no reduced costs).
  EXPECT_EQ(intattr("IsMIP"), 1);
  double bound = 0, rc = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "ObjBound", &bound), VLM_OK);
  EXPECT_NEAR(bound, 2.0, 1e-6);
  EXPECT_EQ(VLMgetdblattrelement(m_, "RC", xv, &rc), VLM_ERROR_DATA_NOT_AVAILABLE);
  // The reader still reports the user's constraint.
  int binvar = -1, binval = -1, nvars = -1, ind[1];
  double val[1], rhs = 0;
  char sense = 0;
  ASSERT_EQ(VLMgetgenconstrIndicator(m_, 0, &binvar, &binval, &nvars, ind, val, &sense, &rhs), VLM_OK);
  EXPECT_EQ(binvar, b);
  EXPECT_EQ(binval, 1);
  EXPECT_EQ(nvars, 1);
  EXPECT_EQ(sense, '<');
  EXPECT_EQ(rhs, 2.0);
  EXPECT_EQ(intattr("NumGenConstrs"), 1);
}

}  // namespace
