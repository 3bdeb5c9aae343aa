// Derived models (VLMrelaxmodel, VLMfixmodel, VLMfeasibility, VLMdualmodel): their optima
// against hand-solved values and the identities that tie them to the source (relaxation bound,
// fixed objective = incumbent, LP duality), their names, and the refusals.
//
// Not tested: SOS and general constraints in a solved source (the engine cannot solve them
// yet); only their removal by relax.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

constexpr double kInf = 1e100;

class DerivedModelTest : public ModelFixture {
 protected:
  void TearDown() override {
    VLMfreemodel(d_);
    ModelFixture::TearDown();
  }
  void var(double obj, double lb, double ub, char type, const char* name) {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, obj, lb, ub, type, name), VLM_OK);
  }
  void row(std::vector<int> ind, std::vector<double> val, char sense, double rhs, const char* name) {
    ASSERT_EQ(VLMaddconstr(m_, static_cast<int>(ind.size()), ind.data(), val.data(), sense, rhs, name), VLM_OK);
  }
  static double solve(VLMmodel* m) {
    EXPECT_EQ(VLMoptimize(m), VLM_OK) << VLMgetmerrormsg(m);
    int s = 0;
    EXPECT_EQ(VLMgetintattr(m, "Status", &s), VLM_OK);
    EXPECT_EQ(s, VLM_OPTIMAL);
    double v = NAN;
    EXPECT_EQ(VLMgetdblattr(m, "ObjVal", &v), VLM_OK) << VLMgetmerrormsg(m);
    return v;
  }
  static int count(VLMmodel* m, const char* attr) {
    int n = -1;
    EXPECT_EQ(VLMgetintattr(m, attr, &n), VLM_OK) << attr;
    return n;
  }
  // max 5x + 4y + z  s.t.  cap: 6x + 4y <= 24,  lab: x + 2y <= 6,  link: z <= x,
  // x, y integer >= 0, z in [0, 3].
  // Integer points: (4, 0) gives 20 + 3 = 23, (3, 1) gives 19 + 3 = 22, (2, 2) 18 + 2 = 20:
  // optimum 23. Relaxation: cap and lab meet at x = 3, y = 1.5: 15 + 6 + 3 = 24.
  void production() {
    var(5, 0, kInf, 'I', "x");
    var(4, 0, kInf, 'I', "y");
    var(1, 0, 3, 'C', "z");
    row({0, 1}, {6, 4}, '<', 24, "cap");
    row({0, 1}, {1, 2}, '<', 6, "lab");
    row({2, 0}, {1, -1}, '<', 0, "link");
    ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  }
  VLMmodel* d_ = nullptr;
};

TEST_F(DerivedModelTest, RelaxationDropsIntegralityAndBoundsTheMip) {
  production();
  ASSERT_EQ(VLMrelaxmodel(m_, &d_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(count(d_, "IsMIP"), 0);
  EXPECT_NEAR(solve(d_), 24.0, 1e-6);
  EXPECT_NEAR(solve(m_), 23.0, 1e-6);
  EXPECT_EQ(count(m_, "NumIntVars"), 2);  // the source keeps its integers
}

// s semi-continuous in {0} u [2, 5] relaxes to [0, 5]; b binary with bounds [-3, 7] stored
// relaxes to [0, 1]; the SOS goes.
TEST_F(DerivedModelTest, RelaxationOfSemiContinuousBinaryAndSos) {
  var(0, 2, 5, 'S', "s");
  var(0, -3, 7, 'B', "b");
  int types[] = {1};
  int beg[] = {0};
  int ind[] = {0, 1};
  double w[] = {1, 2};
  ASSERT_EQ(VLMaddsos(m_, 1, 2, types, beg, ind, w), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMrelaxmodel(m_, &d_), VLM_OK) << VLMgetmerrormsg(m_);
  double lb[2], ub[2];
  ASSERT_EQ(VLMgetdblattrarray(d_, "LB", 0, 2, lb), VLM_OK);
  ASSERT_EQ(VLMgetdblattrarray(d_, "UB", 0, 2, ub), VLM_OK);
  EXPECT_EQ(lb[0], 0.0);
  EXPECT_EQ(ub[0], 5.0);
  EXPECT_EQ(lb[1], 0.0);
  EXPECT_EQ(ub[1], 1.0);
  EXPECT_EQ(count(d_, "NumSOS"), 0);
  EXPECT_EQ(count(d_, "IsMIP"), 0);
  EXPECT_EQ(count(m_, "NumSOS"), 1);
}

// The fixed model of the solved MIP holds x = 4, y = 0 and re-optimises z: 23 again, the
// incumbent's objective, now as an LP with duals (link is slack, z = 3 < x = 4: its dual is 0).
TEST_F(DerivedModelTest, FixedModelReproducesTheIncumbentWithDuals) {
  production();
  EXPECT_EQ(VLMfixmodel(m_, &d_), VLM_ERROR_DATA_NOT_AVAILABLE);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "The model has no MIP solution to fix: solve it first");
  EXPECT_EQ(d_, nullptr);
  const double incumbent = solve(m_);
  ASSERT_EQ(VLMfixmodel(m_, &d_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(count(d_, "IsMIP"), 0);
  double lb[2], ub[2];
  ASSERT_EQ(VLMgetdblattrarray(d_, "LB", 0, 2, lb), VLM_OK);
  ASSERT_EQ(VLMgetdblattrarray(d_, "UB", 0, 2, ub), VLM_OK);
  EXPECT_EQ(lb[0], 4.0);
  EXPECT_EQ(ub[0], 4.0);
  EXPECT_EQ(lb[1], 0.0);
  EXPECT_EQ(ub[1], 0.0);
  EXPECT_NEAR(solve(d_), incumbent, 1e-9);
  double pi = NAN;
  ASSERT_EQ(VLMgetdblattrelement(d_, "Pi", 2, &pi), VLM_OK) << VLMgetmerrormsg(d_);
  EXPECT_NEAR(pi, 0.0, 1e-9);
}

TEST_F(DerivedModelTest, FixedModelOfAnLpIsRefused) {
  var(1, 0, 4, 'C', "x");
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  solve(m_);
  EXPECT_EQ(VLMfixmodel(m_, &d_), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(VLMgetmerrormsg(m_),
               "The model is continuous: a fixed model needs integer variables, SOS or semi-continuous variables");
  EXPECT_EQ(VLMfixmodel(m_, nullptr), VLM_ERROR_NULL_ARGUMENT);
}

// The feasibility model of the production MIP has objective 0 everywhere (constant too).
TEST_F(DerivedModelTest, FeasibilityModelHasNoObjective) {
  production();
  ASSERT_EQ(VLMsetdblattr(m_, "ObjCon", 7.0), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMfeasibility(m_, &d_), VLM_OK) << VLMgetmerrormsg(m_);
  double obj[3];
  ASSERT_EQ(VLMgetdblattrarray(d_, "Obj", 0, 3, obj), VLM_OK);
  EXPECT_EQ(obj[0] + obj[1] + obj[2], 0.0);
  EXPECT_NEAR(solve(d_), 0.0, 1e-12);
  EXPECT_NEAR(solve(m_), 30.0, 1e-6);  // 23 + the constant
}

// max x + y  s.t.  a: x + 2y <= 4,  b: 3x + y <= 6,  x, y >= 0: optimum 2.8 at (1.6, 1.2).
// Dual: min 4a + 6b  s.t.  x: a + 3b >= 1,  y: 2a + b >= 1,  a, b >= 0: 2.8 at (0.4, 0.2).
TEST_F(DerivedModelTest, DualOfMaximisationHasEqualOptimum) {
  var(1, 0, kInf, 'C', "x");
  var(1, 0, kInf, 'C', "y");
  row({0, 1}, {1, 2}, '<', 4, "a");
  row({0, 1}, {3, 1}, '<', 6, "b");
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMdualmodel(m_, &d_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(count(d_, "ModelSense"), 1);
  EXPECT_EQ(count(d_, "NumVars"), 2);
  EXPECT_EQ(count(d_, "NumConstrs"), 2);
  EXPECT_NEAR(solve(d_), 2.8, 1e-9);
  EXPECT_NEAR(solve(m_), 2.8, 1e-9);
  int j = -1;
  ASSERT_EQ(VLMgetvarbyname(d_, "a", &j), VLM_OK);
  double y = NAN;
  ASSERT_EQ(VLMgetdblattrelement(d_, "X", j, &y), VLM_OK);
  EXPECT_NEAR(y, 0.4, 1e-9);
  char sense = 0;
  ASSERT_EQ(VLMgetcharattrelement(d_, "Sense", 0, &sense), VLM_OK);
  EXPECT_EQ(sense, '>');
}

// min 2x + 3y + 1  s.t.  c0: x + y = 4,  c1: x - y >= -2,  x in [1, 3],  y <= 5 (free below).
// With y = 4 - x the objective is 13 - x, so x = 3, y = 1 (c1: 2 >= -2): optimum 10.
// Dual: max 4 c0 - 2 c1 + 1 + lb_x - 3 ub_x - 5 ub_y
//       s.t.  x: c0 + c1 + lb_x - ub_x = 2,  y: c0 - c1 - ub_y = 3,  c1, lb_x, ub_x, ub_y >= 0.
TEST_F(DerivedModelTest, DualOfMinimisationWithBoundsAndEquality) {
  var(2, 1, 3, 'C', "x");
  var(3, -kInf, 5, 'C', "y");
  row({0, 1}, {1, 1}, '=', 4, "c0");
  row({0, 1}, {1, -1}, '>', -2, "c1");
  ASSERT_EQ(VLMsetdblattr(m_, "ObjCon", 1.0), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMdualmodel(m_, &d_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(count(d_, "ModelSense"), -1);
  EXPECT_EQ(count(d_, "NumVars"), 5);
  for (const char* name : {"c0", "c1", "lb_x", "ub_x", "ub_y"}) {
    int j = -1;
    EXPECT_EQ(VLMgetvarbyname(d_, name, &j), VLM_OK) << name;
    EXPECT_GE(j, 0) << name;
  }
  int i = -1;
  EXPECT_EQ(VLMgetconstrbyname(d_, "y", &i), VLM_OK);
  EXPECT_EQ(i, 1);
  EXPECT_NEAR(solve(m_), 10.0, 1e-9);
  EXPECT_NEAR(solve(d_), 10.0, 1e-9);
}

TEST_F(DerivedModelTest, DualRefusesMipAndQuadratic) {
  production();
  EXPECT_EQ(VLMdualmodel(m_, &d_), VLM_ERROR_NOT_FOR_MIP);
  VLMmodel* lp = nullptr;
  ASSERT_EQ(VLMrelaxmodel(m_, &lp), VLM_OK);
  int q = 0;
  double v = 1.0;
  ASSERT_EQ(VLMaddqpterms(lp, 1, &q, &q, &v), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(lp), VLM_OK);
  EXPECT_EQ(VLMdualmodel(lp, &d_), VLM_ERROR_NOT_SUPPORTED);
  EXPECT_STREQ(VLMgetmerrormsg(lp), "Can't dualize a model with a quadratic objective or quadratic constraints");
  EXPECT_EQ(d_, nullptr);
  VLMfreemodel(lp);
}

}  // namespace

namespace {

// min x + 2y + 3z + w + 4f  (f fixed at 2, w in no row, cost 1, w in [1, 5])
//   both:  x + y + f >= 6       ->  x + y >= 4 after f is substituted
//   capX:  2x <= 5              ->  x <= 2.5, row dropped
//   capZ:  z >= 1.5, z integer  ->  z >= 2 (rounded up), row dropped; z is then in no row and
//                                   goes to that bound (cost 3 > 0)
//   done:  f = 2                ->  row without variables once f goes, dropped
// Optimum: x = 2.5, y = 1.5, z = 2, w = 1, f = 2: 2.5 + 3 + 6 + 1 + 8 = 20.5. The presolved
// model keeps x, y and the row "both" (x + y >= 4), constant w + f + z = 1 + 8 + 6 = 15
// (4.5 had z not been rounded).
TEST_F(DerivedModelTest, PresolveKeepsTheOptimumWithFewerElements) {
  var(1, 0, kInf, 'C', "x");
  var(2, 0, kInf, 'C', "y");
  var(3, 0, kInf, 'I', "z");
  var(1, 1, 5, 'C', "w");
  var(4, 2, 2, 'C', "f");
  row({0, 1, 4}, {1, 1, 1}, '>', 6, "both");
  row({0}, {2}, '<', 5, "capX");
  row({2}, {1}, '>', 1.5, "capZ");
  row({4}, {1}, '=', 2, "done");
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMpresolvemodel(m_, &d_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(count(d_, "NumVars"), 2);
  EXPECT_EQ(count(d_, "NumConstrs"), 1);
  int i = -1;
  ASSERT_EQ(VLMgetconstrbyname(d_, "both", &i), VLM_OK);
  EXPECT_EQ(i, 0);
  ASSERT_EQ(VLMgetvarbyname(d_, "y", &i), VLM_OK);
  EXPECT_EQ(i, 1);
  double rhs = 0, con = 0, ub = 0;
  ASSERT_EQ(VLMgetdblattrelement(d_, "RHS", 0, &rhs), VLM_OK);
  EXPECT_EQ(rhs, 4.0);
  ASSERT_EQ(VLMgetdblattr(d_, "ObjCon", &con), VLM_OK);
  EXPECT_EQ(con, 15.0);
  ASSERT_EQ(VLMgetdblattrelement(d_, "UB", 0, &ub), VLM_OK);
  EXPECT_EQ(ub, 2.5);
  EXPECT_NEAR(solve(d_), 20.5, 1e-9);
  EXPECT_NEAR(solve(m_), 20.5, 1e-9);
}

// An integer fixed at 1.5 and a row 0 >= 1 after substitution keep the model infeasible.
TEST_F(DerivedModelTest, PresolveKeepsInfeasibilityVisible) {
  var(0, 1.5, 1.5, 'I', "k");
  var(0, 1, 1, 'C', "c");
  row({1}, {1}, '>', 3, "never");
  row({1, 0}, {1, 1}, '<', 10, "wide");
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMpresolvemodel(m_, &d_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(VLMoptimize(d_), VLM_OK);
  int s = 0;
  ASSERT_EQ(VLMgetintattr(d_, "Status", &s), VLM_OK);
  EXPECT_EQ(s, VLM_INFEASIBLE);
}

}  // namespace
