// Feasibility relaxation through VLMfeasrelax: each penalty type with and without minrelax
// against relaxations worked out by hand, bound and constraint penalties, the names of the
// artificial elements, and refusals that leave the model unchanged.
//
// Not tested: quadratic constraints (the engine cannot solve them yet), so neither the
// relaxation of quadratic constraints nor minrelax with type 1 followed by a solve.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

constexpr double kInf = 1e100;

class FeasRelaxTest : public ModelFixture {
 protected:
  void var(double obj, double lb, double ub, char type, const char* name) {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, obj, lb, ub, type, name), VLM_OK);
  }
  void row(std::vector<int> ind, std::vector<double> val, char sense, double rhs, const char* name) {
    ASSERT_EQ(VLMaddconstr(m_, static_cast<int>(ind.size()), ind.data(), val.data(), sense, rhs, name), VLM_OK);
  }
  int count(const char* attr) {
    int n = -1;
    EXPECT_EQ(VLMgetintattr(m_, attr, &n), VLM_OK);
    return n;
  }
  double solve() {
    EXPECT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
    double v = NAN;
    EXPECT_EQ(VLMgetdblattr(m_, "ObjVal", &v), VLM_OK) << VLMgetmerrormsg(m_);
    return v;
  }
  double x_of(const char* name) {
    int j = -1;
    EXPECT_EQ(VLMgetvarbyname(m_, name, &j), VLM_OK) << name;
    double v = NAN;
    EXPECT_EQ(VLMgetdblattrelement(m_, "X", j, &v), VLM_OK) << name;
    return v;
  }
  // min x + y,  x, y >= 0;  demand: x + y >= 10,  capX: x <= 3,  capY: y <= 4.
  // Infeasible by 3 units: demand short by 3, or the capacities over by 3 together.
  void staffing() {
    var(1, 0, kInf, 'C', "x");
    var(1, 0, kInf, 'C', "y");
    row({0, 1}, {1, 1}, '>', 10, "demand");
    row({0}, {1}, '<', 3, "capX");
    row({1}, {1}, '<', 4, "capY");
  }
};

// Linear penalties (demand 5, capX 1, capY 2 per unit): the cheapest way is x = 6 (capX over
// by 3): penalty 3. Phase 2 keeps min x + y with penalty <= 3, which only x = 6, y = 4 meets
// (any unit of demand or capY violation costs more than a unit of capX): objective 10.
TEST_F(FeasRelaxTest, LinearMinRelaxKeepsOriginalObjectiveAmongLeastViolations) {
  staffing();
  // A stop on the user's objective has no meaning for the penalty of phase 1.
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "Cutoff", 1.0), VLM_OK);
  const double rhspen[] = {5, 1, 2};
  double obj = -1;
  ASSERT_EQ(VLMfeasrelax(m_, 0, 1, nullptr, nullptr, rhspen, &obj), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_NEAR(obj, 3.0, 1e-7);
  // Artificials: ArtN_demand, ArtP_capX, ArtP_capY; one more row: FeasRelaxObj.
  EXPECT_EQ(count("NumVars"), 5);
  EXPECT_EQ(count("NumConstrs"), 4);
  int idx = -1;
  EXPECT_EQ(VLMgetconstrbyname(m_, "FeasRelaxObj", &idx), VLM_OK);
  EXPECT_EQ(idx, 3);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "Cutoff", 1e100), VLM_OK);
  EXPECT_NEAR(solve(), 10.0, 1e-6);
  EXPECT_NEAR(x_of("x"), 6.0, 1e-6);
  EXPECT_NEAR(x_of("y"), 4.0, 1e-6);
  EXPECT_NEAR(x_of("ArtP_capX"), 3.0, 1e-6);
  EXPECT_NEAR(x_of("ArtN_demand"), 0.0, 1e-6);
  EXPECT_NEAR(x_of("ArtP_capY"), 0.0, 1e-6);
}

// Without minrelax the penalty is the objective: unit penalties make any split of the 3 units
// optimal, value 3; the model's own objective is gone (x and y cost nothing).
TEST_F(FeasRelaxTest, LinearWithoutMinRelaxMakesPenaltyTheObjective) {
  staffing();
  const double rhspen[] = {1, 1, 1};
  double obj = -1;
  ASSERT_EQ(VLMfeasrelax(m_, 0, 0, nullptr, nullptr, rhspen, &obj), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(obj, 0.0);
  EXPECT_NEAR(solve(), 3.0, 1e-6);
  int j = -1;
  ASSERT_EQ(VLMgetvarbyname(m_, "x", &j), VLM_OK);
  double c = -1;
  ASSERT_EQ(VLMgetdblattrelement(m_, "Obj", j, &c), VLM_OK);
  EXPECT_EQ(c, 0.0);
}

// Quadratic penalties 1, 1, 2: min n^2 + p^2 + 2 q^2 with n + p + q = 3. Stationarity:
// 2n = 2p = 4q = L, so n = p = 1.2, q = 0.6 and the penalty is 1.44 + 1.44 + 0.72 = 3.6.
TEST_F(FeasRelaxTest, QuadraticPenaltySpreadsTheViolation) {
  staffing();
  const double rhspen[] = {1, 1, 2};
  ASSERT_EQ(VLMfeasrelax(m_, 1, 0, nullptr, nullptr, rhspen, nullptr), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_NEAR(solve(), 3.6, 1e-5);
  EXPECT_NEAR(x_of("ArtN_demand"), 1.2, 1e-4);
  EXPECT_NEAR(x_of("ArtP_capY"), 0.6, 1e-4);
}

// Cardinality penalties demand 3, capX 2, capY 5: one violated constraint suffices, the
// cheapest being capX (x = 6): penalty 2. Binaries Card_Art... mark the violated ones.
TEST_F(FeasRelaxTest, CardinalityCountsViolatedElements) {
  staffing();
  const double rhspen[] = {3, 2, 5};
  double obj = -1;
  ASSERT_EQ(VLMfeasrelax(m_, 2, 1, nullptr, nullptr, rhspen, &obj), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_NEAR(obj, 2.0, 1e-6);
  // 3 artificials + 3 binaries; 3 big-M rows + FeasRelaxObj.
  EXPECT_EQ(count("NumVars"), 8);
  EXPECT_EQ(count("NumConstrs"), 7);
  EXPECT_EQ(count("NumBinVars"), 3);
  EXPECT_NEAR(solve(), 10.0, 1e-6);
  EXPECT_NEAR(x_of("Card_ArtP_capX"), 1.0, 1e-6);
  EXPECT_NEAR(x_of("Card_ArtN_demand"), 0.0, 1e-6);
}

// Bounds only: x in [0, 3], y in [0, 4], demand x + y >= 10. Only x's upper bound may move
// (penalty 1): x = 6, penalty 3; y's bounds and the row stay as they are.
TEST_F(FeasRelaxTest, BoundPenaltiesRelaxOnlyTheChosenBounds) {
  var(0, 0, 3, 'C', "x");
  var(0, 0, 4, 'C', "y");
  row({0, 1}, {1, 1}, '>', 10, "demand");
  const double ubpen[] = {1, kInf};
  double obj = -1;
  ASSERT_EQ(VLMfeasrelax(m_, 0, 1, nullptr, ubpen, nullptr, &obj), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_NEAR(obj, 3.0, 1e-7);
  EXPECT_EQ(count("NumVars"), 3);  // ArtU_x
  int idx = -1;
  EXPECT_EQ(VLMgetconstrbyname(m_, "ArtUB_x", &idx), VLM_OK);
  EXPECT_GE(idx, 0);
  double ub = 0;
  ASSERT_EQ(VLMgetdblattrelement(m_, "UB", 0, &ub), VLM_OK);
  EXPECT_GE(ub, kInf);
  ASSERT_EQ(VLMgetdblattrelement(m_, "UB", 1, &ub), VLM_OK);
  EXPECT_EQ(ub, 4.0);
  solve();
  EXPECT_NEAR(x_of("x"), 6.0, 1e-6);
  EXPECT_NEAR(x_of("ArtU_x"), 3.0, 1e-6);
}

// Integer x in [0, 10] with 2x = 3: the nearest even numbers are 2 and 4, one unit away, so
// the least violation of the equality (both directions relaxable) is 1.
TEST_F(FeasRelaxTest, MipEqualityRelaxesBothWays) {
  var(0, 0, 10, 'I', "x");
  row({0}, {2}, '=', 3, "odd");
  const double rhspen[] = {1};
  double obj = -1;
  ASSERT_EQ(VLMfeasrelax(m_, 0, 1, nullptr, nullptr, rhspen, &obj), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_NEAR(obj, 1.0, 1e-6);
  int idx = -1;
  EXPECT_EQ(VLMgetvarbyname(m_, "ArtP_odd", &idx), VLM_OK);
  EXPECT_EQ(VLMgetvarbyname(m_, "ArtN_odd", &idx), VLM_OK);
}

TEST_F(FeasRelaxTest, RefusalsLeaveTheModelUnchanged) {
  staffing();
  const double rhspen[] = {1, 1, 1};
  EXPECT_EQ(VLMfeasrelax(m_, 3, 0, nullptr, nullptr, rhspen, nullptr), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "Invalid relaxation type 3: expected 0 (linear), 1 (quadratic) or 2 (cardinality)");
  const double bad[] = {1, -1, 1};
  EXPECT_EQ(VLMfeasrelax(m_, 0, 0, nullptr, nullptr, bad, nullptr), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "Penalty -1.000000 in rhspen[1] is not a non-negative number");
  // Nothing relaxable: phase 1 is as infeasible as the model.
  const double none[] = {kInf, kInf, kInf};
  EXPECT_EQ(VLMfeasrelax(m_, 0, 1, nullptr, nullptr, none, nullptr), VLM_ERROR_DATA_NOT_AVAILABLE);
  EXPECT_EQ(count("NumVars"), 2);
  EXPECT_EQ(count("NumConstrs"), 3);
  EXPECT_EQ(VLMfeasrelax(nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr), VLM_ERROR_NULL_ARGUMENT);
}

}  // namespace
