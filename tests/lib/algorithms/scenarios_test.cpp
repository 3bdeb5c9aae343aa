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

// Multiple objectives with scenarios: every scenario runs the whole hierarchy.
// min over x, y in [0, 4] with c0: x + y <= 5 and
//   objective 0: -x             priority 2, weight 1
//   objective 2: -y + 3         priority 2, weight 0.25   (level 1: -x - 0.25 y + 0.75)
//   objective 1: -y             priority 1                (level 2)
// Base: x = 4, y = 1; ObjN = (-4, -1, 2).
// 0: rhs(c0) = 7 -> (4, 3): level 1 = -4, ObjN = (-4, -3, 0).
// 1: ub(x) = 2  -> (2, 3): level 1 = -2, ObjN = (-2, -3, 0).
// 2: obj(y) = -1 changes objective 0 to -x - y: level 1 = -x - 1.25 y + 0.75 is best at
//    (1, 4): -5.25, ObjN = (-5, -4, -1); the old objective 0 alone would give (4, 1).
// 3: lb(x) = lb(y) = 3 -> x + y >= 6 > 5: infeasible, ScenNObjVal +infinity.
TEST_F(ScenarioTest, MultipleObjectivesRunInEveryScenario) {
  var(0, 0, 4, 'C', "x");
  var(0, 0, 4, 'C', "y");
  row({0, 1}, {1, 1}, '<', 5);
  const int ix[] = {0}, iy[] = {1};
  const double minus[] = {-1};
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1, 0, 0, "first", 0, 1, ix, minus), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1, 0, 0, "second", 0, 1, iy, minus), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 2, 2, 0.25, 0, 0, "blend", 3, 1, iy, minus), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "NumScenarios", 4), VLM_OK);
  select(0);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNRHS", 0, 7), VLM_OK);
  select(1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNUB", 0, 2), VLM_OK);
  select(2);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNObj", 1, -1), VLM_OK);
  select(3);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNLB", 0, 3), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNLB", 1, 3), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -4, 1e-9);
  EXPECT_NEAR(x(0), 4, 1e-9);
  EXPECT_NEAR(x(1), 1, 1e-9);
  const double first[] = {-4, -2, -5.25};
  const double objn[][3] = {{-4, -3, 0}, {-2, -3, 0}, {-5, -4, -1}};
  const double xy[][2] = {{4, 3}, {2, 3}, {1, 4}};
  for (int k = 0; k < 3; ++k) {
    select(k);
    EXPECT_NEAR(scen("ScenNObjVal"), first[k], 1e-9) << k;
    EXPECT_NEAR(scen("ScenNObjBound"), first[k], 1e-9) << k;
    EXPECT_NEAR(scen_x(0), xy[k][0], 1e-9) << k;
    EXPECT_NEAR(scen_x(1), xy[k][1], 1e-9) << k;
    for (int j = 0; j < 3; ++j) {
      ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", j), VLM_OK);
      EXPECT_NEAR(scen("ObjNVal"), objn[k][j], 1e-9) << k << " " << j;
    }
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", 0), VLM_OK);
  }
  select(3);
  EXPECT_EQ(scen("ScenNObjVal"), VLM_INFINITY);
  double v = 0;
  EXPECT_EQ(VLMgetdblattr(m_, "ObjNVal", &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  // The scenarios changed nothing in the model itself.
  EXPECT_EQ(dblelem("UB", 0), 4);
  EXPECT_EQ(intattr("NumObj"), 3);
}

// A MIP with two objectives and scenarios: ScenNObjBound is the first level's bound, its
// constant included. Binaries a, b, c, c0: a + b + c >= 2;
//   objective 0: 3a + 2b + 4c + 1, priority 2;  objective 1: -c, priority 1.
// Base: a = b = 1: 6; level 2 cannot take c (3a + 2b + 4c <= 5): ObjN = (6, 0).
// 0: obj(c) = 1 -> b = c = 1: 4, ObjN = (4, -1).   1: ub(b) = 0 -> a = c = 1: 8, (8, -1).
// 2: rhs(c0) = 3 -> all three: 10, (10, -1).
TEST_F(ScenarioTest, MipObjectiveBoundsIncludeTheConstant) {
  var(0, 0, 1, 'B', "a");
  var(0, 0, 1, 'B', "b");
  var(0, 0, 1, 'B', "c");
  row({0, 1, 2}, {1, 1, 1}, '>', 2);
  const int all[] = {0, 1, 2}, ic[] = {2};
  const double costs[] = {3, 2, 4}, minus[] = {-1};
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1, 0, 0, nullptr, 1, 3, all, costs), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1, 0, 0, nullptr, 0, 1, ic, minus), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "NumScenarios", 3), VLM_OK);
  select(0);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNObj", 2, 1), VLM_OK);
  select(1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNUB", 1, 0), VLM_OK);
  select(2);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNRHS", 0, 3), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 6, 1e-9);
  const double first[] = {4, 8, 10};
  for (int k = 0; k < 3; ++k) {
    select(k);
    EXPECT_NEAR(scen("ScenNObjVal"), first[k], 1e-9) << k;
    EXPECT_NEAR(scen("ScenNObjBound"), first[k], 1e-6) << k;
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", 1), VLM_OK);
    EXPECT_NEAR(scen("ObjNVal"), -1, 1e-9) << k;
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", 0), VLM_OK);
    EXPECT_NEAR(scen("ObjNVal"), first[k], 1e-9) << k;
  }
}

}  // namespace
