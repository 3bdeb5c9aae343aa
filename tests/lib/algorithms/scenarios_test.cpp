// Multiple scenarios: every scenario's changes (bounds, objective, right-hand sides) applied to
// its own copy, each solved in the one optimize call, with the base model's results as usual.
#include "reform/reform_fixture.h"

namespace {

class ScenarioTest : public ReformTest {
 protected:
  void select(int k) { ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ScenarioNumber", k), VLM_OK); }
  double scen(const char* name) {
    double v = NAN;
    EXPECT_EQ(VLMgetdblattr(m_, name, &v), VLM_OK) << VLMgetmerrormsg(m_);
    return v;
  }
  double scen_x(int j) {
    double v = NAN;
    EXPECT_EQ(VLMgetdblattrelement(m_, "ScenNX", j, &v), VLM_OK) << VLMgetmerrormsg(m_);
    return v;
  }
};

// min -3x - 2y, x + y <= 4, x in [0, 3], y in [0, 10]. Base: x = 3, y = 1: -11.
// 0: ub(x) = 1 -> (1, 3): -9.        1: rhs 6 -> (3, 3): -15.
// 2: obj(y) = -5 -> (0, 4): -20.     3: lb(y) = 5 -> infeasible (ScenNObjVal +infinity).
TEST_F(ScenarioTest, EveryScenarioSolvesInOneCall) {
  var(-3, 0, 3, 'C', "x");
  var(-2, 0, 10, 'C', "y");
  row({0, 1}, {1, 1}, '<', 4);
  ASSERT_EQ(VLMsetintattr(m_, "NumScenarios", 4), VLM_OK);
  select(0);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNUB", 0, 1), VLM_OK);
  select(1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNRHS", 0, 6), VLM_OK);
  select(2);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNObj", 1, -5), VLM_OK);
  select(3);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNLB", 1, 5), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -11, 1e-9);
  EXPECT_NEAR(x(0), 3, 1e-9);
  const double want[] = {-9, -15, -20};
  const double wx[][2] = {{1, 3}, {3, 3}, {0, 4}};
  for (int k = 0; k < 3; ++k) {
    select(k);
    EXPECT_NEAR(scen("ScenNObjVal"), want[k], 1e-9) << k;
    EXPECT_NEAR(scen("ScenNObjBound"), want[k], 1e-9) << k;
    EXPECT_NEAR(scen_x(0), wx[k][0], 1e-9) << k;
    EXPECT_NEAR(scen_x(1), wx[k][1], 1e-9) << k;
  }
  select(3);
  EXPECT_EQ(scen("ScenNObjVal"), VLM_INFINITY);
  double v = 0;
  EXPECT_EQ(VLMgetdblattrelement(m_, "ScenNX", 0, &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  // The base model is as it was: no scenario's change leaked into it.
  double ub = 0;
  ASSERT_EQ(VLMgetdblattrelement(m_, "UB", 0, &ub), VLM_OK);
  EXPECT_EQ(ub, 3);
  select(4);
  expect_error(VLMgetdblattr(m_, "ScenNObjVal", &v), VLM_ERROR_INDEX_OUT_OF_RANGE, "Scenario 4 does not exist");
}

// A scenario's bounds reach the reformulation: the indicator (b = 0) => x <= 0 takes its big-M
// from the upper bound of x. max x - 2b: in the base model (x <= 1) b = 1 gains 1 - 2 < 0, so
// b = 0, x = 0: 0. Scenario 0 raises the bound to 5: b = 1, x = 5: 3, which a big-M taken
// from the base bound would cut off at x = 1.
TEST_F(ScenarioTest, ScenarioBoundsReachTheReformulation) {
  var(1, 0, 1, 'C', "x");
  var(-2, 0, 1, 'B', "b");
  maximize();
  const int ind[] = {0};
  const double val[] = {1};
  ASSERT_EQ(VLMaddgenconstrIndicator(m_, "ind", 1, 0, 1, ind, val, '<', 0.0), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "NumScenarios", 1), VLM_OK);
  select(0);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNUB", 0, 5), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 0, 1e-9);
  EXPECT_NEAR(scen("ScenNObjVal"), 3, 1e-9);
  EXPECT_NEAR(scen_x(0), 5, 1e-9);
  EXPECT_NEAR(scen_x(1), 1, 1e-9);
}

// Multiple objectives together with scenarios are refused, and the model stays as it was.
TEST_F(ScenarioTest, ScenariosWithMultipleObjectivesAreRefused) {
  var(1, 0, 1, 'C', "x");
  ASSERT_EQ(VLMsetintattr(m_, "NumScenarios", 1), VLM_OK);
  const int ind[] = {0};
  const double val[] = {1};
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 0, 1, 0, 0, nullptr, 0, 1, ind, val), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_NOT_SUPPORTED, "multiple objectives and multiple scenarios");
  EXPECT_EQ(intattr("NumScenarios"), 1);
  EXPECT_EQ(intattr("NumObj"), 1);
}

}  // namespace
