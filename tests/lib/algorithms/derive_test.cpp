// Derived models: the linearized model solves to the same optimum as the original and holds
// only ordinary rows and columns; the single-scenario model is the base with one scenario's
// changes, and a scenario that does not exist is named.
#include "reform/reform_fixture.h"

namespace {

class DeriveTest : public ReformTest {
 protected:
  void TearDown() override {
    if (derived_ != nullptr) VLMfreemodel(derived_);
    ReformTest::TearDown();
  }
  int dattr(const char* name) {
    int v = -1;
    EXPECT_EQ(VLMgetintattr(derived_, name, &v), VLM_OK) << name;
    return v;
  }
  double dobj() {
    double v = NAN;
    EXPECT_EQ(VLMoptimize(derived_), VLM_OK) << VLMgetmerrormsg(derived_);
    EXPECT_EQ(VLMgetdblattr(derived_, "ObjVal", &v), VLM_OK);
    return v;
  }
  VLMmodel* derived_ = nullptr;
};

// max 2a + 3b + c with a, b, c in [0, 4] and SOS1 {a, b}; u = c - 3 and y = |u| with y <= 0.5
// keep c within [2.5, 3.5]: b = 4 (3 per unit beats a's 2), c = 3.5: 12 + 3.5 = 15.5.
// The linearized model has no SOS or general constraint, more columns, and the same optimum.
TEST_F(DeriveTest, LinearizedModelSolvesToTheSameOptimum) {
  var(2, 0, 4, 'C', "a");
  var(3, 0, 4, 'C', "b");
  var(1, 0, 4, 'C', "c");
  int u = var(0, -10, 10, 'C', "u");
  int y = var(0, 0, 0.5, 'C', "y");
  maximize();
  sos(1, {0, 1}, {1, 2});
  row({u, 2}, {1, -1}, '=', -3);
  ASSERT_EQ(VLMaddgenconstrAbs(m_, "abs", y, u), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 15.5, 1e-6);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  derived_ = VLMlinearizemodel(m_);
  ASSERT_NE(derived_, nullptr) << VLMgetmerrormsg(m_);
  EXPECT_EQ(dattr("NumSOS"), 0);
  EXPECT_EQ(dattr("NumGenConstrs"), 0);
  EXPECT_GT(dattr("NumVars"), 5);
  EXPECT_EQ(dattr("IsMIP"), 1);
  EXPECT_NEAR(dobj(), 15.5, 1e-6);
  // The original is as it was.
  EXPECT_EQ(intattr("NumSOS"), 1);
  EXPECT_EQ(intattr("NumGenConstrs"), 1);
  EXPECT_EQ(intattr("NumVars"), 5);
}

// A construct that needs a bound it lacks fails as optimize would, naming the variable; an
// indicator without a finite big-M is kept as an indicator on the slack of its row, and the
// linearized model solves to the same optimum: min x + y - 2b, x + y >= -1, x, y free,
// (b == 1) => x >= 3: both b give x + y = -1, so b = 1: -3.
TEST_F(DeriveTest, LinearizeReportsWhatOptimizeWould) {
  var(-2, 0, 1, 'B', "b");
  var(1, -1e100, 1e100, 'C', "x");
  var(1, -1e100, 1e100, 'C', "y");
  var(0, -1e100, 1e100, 'C', "r");
  row({1, 2}, {1, 1}, '>', -1);
  const int ops[] = {1, 2};
  ASSERT_EQ(VLMaddgenconstrMin(m_, "mn", 3, 2, ops, 1e100), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(VLMlinearizemodel(m_), nullptr);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("'x'"), std::string::npos) << VLMgetmerrormsg(m_);
  const int first = 0;
  ASSERT_EQ(VLMdelgenconstrs(m_, 1, &first), VLM_OK);
  const int ind[] = {1};
  const double val[] = {1};
  ASSERT_EQ(VLMaddgenconstrIndicator(m_, "on", 0, 1, 1, ind, val, '>', 3), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  derived_ = VLMlinearizemodel(m_);
  ASSERT_NE(derived_, nullptr) << VLMgetmerrormsg(m_);
  EXPECT_EQ(dattr("NumGenConstrs"), 1);
  EXPECT_NEAR(dobj(), -3.0, 1e-9);
  solve();
  EXPECT_NEAR(objval(), -3.0, 1e-9);
  EXPECT_GE(x(1), 3.0 - 1e-6);
}

// min -3x - 2y, x + y <= 4, x in [0, 3]: scenario 1 raises the rhs to 6: (3, 3), -15. The
// single-scenario model has that rhs, no scenarios, and solves to -15. ScenarioNumber 2 of 2
// does not exist.
TEST_F(DeriveTest, SingleScenarioModelAppliesTheSelectedScenario) {
  var(-3, 0, 3, 'C', "x");
  var(-2, 0, 10, 'C', "y");
  row({0, 1}, {1, 1}, '<', 4);
  ASSERT_EQ(VLMsetintattr(m_, "NumScenarios", 2), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ScenarioNumber", 1), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNRHS", 0, 6), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  derived_ = VLMsinglescenariomodel(m_);
  ASSERT_NE(derived_, nullptr) << VLMgetmerrormsg(m_);
  EXPECT_EQ(dattr("NumScenarios"), 0);
  double rhs = 0;
  ASSERT_EQ(VLMgetdblattrelement(derived_, "RHS", 0, &rhs), VLM_OK);
  EXPECT_EQ(rhs, 6);
  EXPECT_NEAR(dobj(), -15, 1e-9);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ScenarioNumber", 2), VLM_OK);
  EXPECT_EQ(VLMsinglescenariomodel(m_), nullptr);
  EXPECT_EQ(std::string(VLMgetmerrormsg(m_)), "Scenario 2 does not exist (NumScenarios is 2)");
}

}  // namespace
