// Multiple objectives: hierarchical levels that keep earlier optima within their tolerances,
// blending by weight within a priority, both senses, statuses, the per-objective results and
// the log of each level.
#include "reform/reform_fixture.h"

namespace {

class MultiObjTest : public ReformTest {
 protected:
  void objn(int index, int priority, double weight, double abstol, double reltol, std::vector<int> ind,
            std::vector<double> val, double constant = 0.0) {
    ASSERT_EQ(VLMsetobjectiven(m_, index, priority, weight, abstol, reltol, nullptr, constant,
                               static_cast<int>(ind.size()), ind.data(), val.data()),
              VLM_OK)
        << VLMgetmerrormsg(m_);
  }
  double objnval(int k) {
    EXPECT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", k), VLM_OK);
    double v = NAN;
    EXPECT_EQ(VLMgetdblattr(m_, "ObjNVal", &v), VLM_OK) << VLMgetmerrormsg(m_);
    return v;
  }
  // x, y in [0, 10], x + y <= 10; objective 0 (priority 2): -(2x + y), best -20 at (10, 0).
  void two_vars() {
    var(0, 0, 10, 'C', "x");
    var(0, 0, 10, 'C', "y");
    row({0, 1}, {1, 1}, '<', 10);
  }
};

// Objective 1 (priority 1): min x. Exact (abstol 0): 2x + y >= 20 with x + y <= 10 forces
// x = 10. With ObjNRelTol 0.1 on objective 0: 2x + y >= 18, y = 10 - x, so x >= 8: x = 8,
// y = 2, objective 0 at -18. The values carry their constants (+5 on objective 1).
TEST_F(MultiObjTest, LowerPriorityKeepsTheHigherOneWithinItsTolerance) {
  two_vars();
  objn(0, 2, 1.0, 0.0, 0.0, {0, 1}, {-2, -1});
  objn(1, 1, 1.0, 0.0, 0.0, {0}, {1}, 5.0);
  solve();
  EXPECT_EQ(intattr("NumObj"), 2);
  EXPECT_EQ(intattr("IsMultiObj"), 1);
  EXPECT_NEAR(objnval(0), -20, 1e-6);
  EXPECT_NEAR(objnval(1), 15, 1e-6);
  EXPECT_NEAR(objval(), -20, 1e-6);

  objn(0, 2, 1.0, 0.0, 0.1, {0, 1}, {-2, -1});
  solve();
  EXPECT_NEAR(x(0), 8, 1e-6);
  EXPECT_NEAR(x(1), 2, 1e-6);
  EXPECT_NEAR(objnval(0), -18, 1e-6);
  EXPECT_NEAR(objnval(1), 13, 1e-6);
  expect_user_feasible(2, 1);
  // An absolute tolerance of 3 allows 2x + y >= 17 (x >= 7); the larger allowance wins.
  objn(0, 2, 1.0, 3.0, 0.1, {0, 1}, {-2, -1});
  solve();
  EXPECT_NEAR(x(0), 7, 1e-6);
}

// Every way of re-solving the later level reaches the same point (8, 2) of the test above:
// primal or dual simplex from the previous basis, a cold start, with and without presolve.
TEST_F(MultiObjTest, ResolveMethodsAgree) {
  two_vars();
  objn(0, 2, 1.0, 0.0, 0.1, {0, 1}, {-2, -1});
  objn(1, 1, 1.0, 0.0, 0.0, {0}, {1});
  for (int method : {-1, 0, 1, 2}) {
    for (int pre : {-1, 0, 2}) {
      ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "MultiObjMethod", method), VLM_OK);
      ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "MultiObjPre", pre), VLM_OK);
      solve();
      EXPECT_NEAR(x(0), 8, 1e-6) << method << " " << pre;
      EXPECT_NEAR(x(1), 2, 1e-6) << method << " " << pre;
    }
  }
}

// Equal priorities blend: -(2x + y) + 3x = x - y, min at (0, 10): objective 0 is -10,
// objective 1 is 0. With weight 0.5: -1.5x - y, min at (10, 0): values -20 and 10.
TEST_F(MultiObjTest, EqualPrioritiesAreBlendedByWeight) {
  two_vars();
  objn(0, 1, 1.0, 0.0, 0.0, {0, 1}, {-2, -1});
  objn(1, 1, 3.0, 0.0, 0.0, {0}, {1});
  solve();
  EXPECT_NEAR(x(0), 0, 1e-6);
  EXPECT_NEAR(x(1), 10, 1e-6);
  EXPECT_NEAR(objnval(0), -10, 1e-6);
  EXPECT_NEAR(objnval(1), 0, 1e-6);
  objn(1, 1, 0.5, 0.0, 0.0, {0}, {1});
  solve();
  EXPECT_NEAR(objnval(0), -20, 1e-6);
  EXPECT_NEAR(objnval(1), 10, 1e-6);
}

// Objective 0 set as the primary objective (Obj) and only objective 1 through the ObjN list:
// objective 0 is then -(2x + y) (priority 0 after objective 1's priority 1 here: min x first
// gives x = 0, then min -(2x + y) with x <= 1e-6 gives y = 10): values -10 and 0.
TEST_F(MultiObjTest, PrimaryObjectiveStandsForAnEmptyObjectiveZero) {
  var(-2, 0, 10, 'C', "x");
  var(-1, 0, 10, 'C', "y");
  row({0, 1}, {1, 1}, '<', 10);
  objn(1, 1, 1.0, 1e-6, 0.0, {0}, {1});
  solve();
  EXPECT_EQ(intattr("NumObj"), 2);
  EXPECT_NEAR(x(0), 0, 1e-5);
  EXPECT_NEAR(x(1), 10, 1e-5);
  EXPECT_NEAR(objnval(0), -10, 1e-5);
  EXPECT_NEAR(objnval(1), 0, 1e-5);
}

// Maximisation over binaries a, b, c with a + b + c <= 2: objective 0 (priority 5) 3a + 3b + 3c
// is 6 for any two; objective 1 (priority 1) c - a then picks b and c: 1. The level order is
// by priority, not by index: the same with the indices swapped.
TEST_F(MultiObjTest, MaximisationOverBinariesInPriorityOrder) {
  var(0, 0, 1, 'B', "a");
  var(0, 0, 1, 'B', "b");
  var(0, 0, 1, 'B', "c");
  row({0, 1, 2}, {1, 1, 1}, '<', 2);
  maximize();
  objn(0, 1, 1.0, 0.0, 0.0, {0, 2}, {-1, 1});
  objn(1, 5, 1.0, 0.0, 0.0, {0, 1, 2}, {3, 3, 3});
  solve();
  EXPECT_NEAR(x(0), 0, 1e-6);
  EXPECT_NEAR(x(1), 1, 1e-6);
  EXPECT_NEAR(x(2), 1, 1e-6);
  EXPECT_NEAR(objnval(0), 1, 1e-6);
  EXPECT_NEAR(objnval(1), 6, 1e-6);
  expect_user_feasible(3, 1);
}

// The first level decides feasibility: x + y >= 30 over [0, 10]^2 is infeasible, and no
// objective value is available. Unbounded likewise (min -x with x free).
TEST_F(MultiObjTest, FirstLevelDecidesTheStatus) {
  two_vars();
  row({0, 1}, {1, 1}, '>', 30);
  objn(0, 2, 1.0, 0.0, 0.0, {0}, {1});
  objn(1, 1, 1.0, 0.0, 0.0, {1}, {1});
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_INFEASIBLE);
  double v = 0;
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", 1), VLM_OK);
  EXPECT_EQ(VLMgetdblattr(m_, "ObjNVal", &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  // ObjNumber beyond NumObj names the objective.
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", 2), VLM_OK);
  expect_error(VLMgetdblattr(m_, "ObjNVal", &v), VLM_ERROR_INDEX_OUT_OF_RANGE, "Objective 2 does not exist");
}

// The log names each level with its priority and objectives, highest priority first.
TEST_F(MultiObjTest, LogShowsEachLevel) {
  std::vector<std::string> lines;
  ASSERT_EQ(VLMsetlogcallbackfunc(m_, [](const char* msg, void* usr) {
              static_cast<std::vector<std::string>*>(usr)->emplace_back(msg);
            }, &lines), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "OutputFlag", 1), VLM_OK);
  two_vars();
  objn(0, 2, 1.0, 0.0, 0.0, {0, 1}, {-2, -1});
  objn(1, 1, 1.0, 0.0, 0.0, {0}, {1});
  objn(2, 2, 1.0, 0.0, 0.0, {1}, {1});
  solve();
  auto at = [&](const std::string& text) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
      if (lines[i].find(text) != std::string::npos) return static_cast<int>(i);
    }
    return -1;
  };
  const int first = at("Multi-objectives: optimize level 1 of 2 (priority 2, objectives 0, 2)");
  const int second = at("Multi-objectives: optimize level 2 of 2 (priority 1, objective 1)");
  EXPECT_GE(first, 0);
  EXPECT_GT(second, first);
  EXPECT_GT(at("Multi-objectives: 3 objectives in 2 levels"), second);
}

}  // namespace
