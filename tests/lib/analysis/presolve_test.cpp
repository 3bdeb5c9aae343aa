// VLMpresolvemodel on models beyond LP/MIP: quadratic objectives and constraints, SOS, general
// constraints and multiple objectives. Each model is solved before and after presolve, against
// an optimum worked out by hand; the counts show what was removed and what was carried over.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

class PresolveTest : public ModelFixture {
 protected:
  void TearDown() override {
    VLMfreemodel(p_);
    ModelFixture::TearDown();
  }
  void var(double obj, double lb, double ub, char type, const char* name) {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, obj, lb, ub, type, name), VLM_OK);
  }
  void presolve() {
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
    ASSERT_EQ(VLMpresolvemodel(m_, &p_), VLM_OK) << VLMgetmerrormsg(m_);
  }
  static double solved(VLMmodel* m) {
    EXPECT_EQ(VLMoptimize(m), VLM_OK) << VLMgetmerrormsg(m);
    int s = 0;
    EXPECT_EQ(VLMgetintattr(m, "Status", &s), VLM_OK);
    EXPECT_EQ(s, VLM_OPTIMAL);
    double v = NAN;
    EXPECT_EQ(VLMgetdblattr(m, "ObjVal", &v), VLM_OK) << VLMgetmerrormsg(m);
    return v;
  }
  int count(const char* attr) {
    int n = -1;
    EXPECT_EQ(VLMgetintattr(p_, attr, &n), VLM_OK) << attr;
    return n;
  }
  int index_of(const char* name) {
    int i = -1;
    EXPECT_EQ(VLMgetvarbyname(p_, name, &i), VLM_OK) << name;
    return i;
  }
  VLMmodel* p_ = nullptr;
};

// min x^2 + 2xf - 8x + y^2 - 5y + f^2 + z^2 - 2z,  x + y + f <= 8,
// x in [0, 10], y integer in [0, 10], f fixed at 2, z in [-5, 5] in no row.
// With f = 2: x^2 - 4x (x = 2: -4), y^2 - 5y (y = 2 or 3: -6), f^2 = 4, z^2 - 2z (z = 1: -1);
// x + y <= 6 holds. Optimum -7. f leaves (2xf becomes -8x + 4x, f^2 the constant 4); z stays
// although it is in no row (at its favoured bound 5 the objective would be 15, not -1).
TEST_F(PresolveTest, MiqpSubstitutesFixedProductsAndKeepsQuadraticVariables) {
  var(-8, 0, 10, 'C', "x");
  var(-5, 0, 10, 'I', "y");
  var(0, 2, 2, 'C', "f");
  var(-2, -5, 5, 'C', "z");
  row({0, 1, 2}, {1, 1, 1}, '<', 8);
  const std::vector<int> qr = {0, 0, 1, 2, 3}, qc = {0, 2, 1, 2, 3};
  const std::vector<double> qv = {1, 2, 1, 1, 1};
  ASSERT_EQ(VLMaddqpterms(m_, 5, qr.data(), qc.data(), qv.data()), VLM_OK);
  presolve();
  EXPECT_EQ(count("NumVars"), 3);
  EXPECT_EQ(count("NumQNZs"), 3);
  EXPECT_EQ(index_of("z"), 2);
  double con = NAN, cx = NAN, rhs = NAN;
  ASSERT_EQ(VLMgetdblattr(p_, "ObjCon", &con), VLM_OK);
  EXPECT_EQ(con, 4.0);
  ASSERT_EQ(VLMgetdblattrelement(p_, "Obj", 0, &cx), VLM_OK);
  EXPECT_EQ(cx, -4.0);
  ASSERT_EQ(VLMgetdblattrelement(p_, "RHS", 0, &rhs), VLM_OK);
  EXPECT_EQ(rhs, 6.0);
  EXPECT_NEAR(solved(p_), -7.0, 1e-6);
  EXPECT_NEAR(solved(m_), -7.0, 1e-6);
}

// max x + y  s.t.  qc:    x^2 + y^2 + 2f^2 - 2xf + g <= 8,
//                  only:  f^2 <= 3,
// f fixed at 1, g fixed at 2, x and y in [-10, 10].
// qc becomes x^2 - 2x + y^2 <= 4, i.e. (x - 1)^2 + y^2 <= 5: the best x + y is
// 1 + sqrt(5) * sqrt(2) = 1 + sqrt(10). "only" becomes 1 <= 3 and is dropped.
TEST_F(PresolveTest, QuadraticConstraintsTakeFixedValuesIntoLinearTermsAndRhs) {
  var(1, -10, 10, 'C', "x");
  var(1, -10, 10, 'C', "y");
  var(0, 1, 1, 'C', "f");
  var(0, 2, 2, 'C', "g");
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  const int li[] = {3};
  const double lv[] = {1};
  const int qr[] = {0, 1, 2, 0}, qc[] = {0, 1, 2, 2};
  const double qv[] = {1, 1, 2, -2};
  ASSERT_EQ(VLMaddqconstr(m_, 1, li, lv, 4, qr, qc, qv, '<', 8, "qc"), VLM_OK);
  const int fr[] = {2};
  const double one[] = {1};
  ASSERT_EQ(VLMaddqconstr(m_, 0, nullptr, nullptr, 1, fr, fr, one, '<', 3, "only"), VLM_OK);
  presolve();
  EXPECT_EQ(count("NumVars"), 2);
  EXPECT_EQ(count("NumQConstrs"), 1);
  double rhs = NAN;
  ASSERT_EQ(VLMgetdblattrelement(p_, "QCRHS", 0, &rhs), VLM_OK);
  EXPECT_EQ(rhs, 4.0);
  const double best = 1 + std::sqrt(10.0);
  EXPECT_NEAR(solved(p_), best, 1e-4);
  EXPECT_NEAR(solved(m_), best, 1e-4);
}

// max 2a + 3b + c - 0.5 m  s.t.  a + b + c + f <= 4,  capB: b <= 2,  SOS1 {a, b, c},
// m = max(a, b, c); a, b, c in [0, 4], f fixed at 1, m in [0, 10] (in no linear row).
// One of a, b, c is non-zero and m equals it: b = 2 gives 6 - 1 = 5, a = 3 gives 6 - 1.5 =
// 4.5, c = 3 gives 3 - 1.5. Optimum 5 (without the SOS, a = 1, b = 2 would give 7; with m
// fixed at its favoured bound 0, the MAX constraint would force 0).
TEST_F(PresolveTest, SosAndGeneralConstraintsAreCarriedOnRenumberedVariables) {
  var(2, 0, 4, 'C', "a");
  var(3, 0, 4, 'C', "b");
  var(1, 0, 4, 'C', "c");
  var(0, 1, 1, 'C', "f");
  var(-0.5, 0, 10, 'C', "m");
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  row({0, 1, 2, 3}, {1, 1, 1, 1}, '<', 4);
  row({1}, {1}, '<', 2);
  const int types[] = {1}, beg[] = {0}, ind[] = {0, 1, 2};
  const double w[] = {1, 2, 3};
  ASSERT_EQ(VLMaddsos(m_, 1, 3, types, beg, ind, w), VLM_OK);
  const int ops[] = {0, 1, 2};
  ASSERT_EQ(VLMaddgenconstrMax(m_, "peak", 4, 3, ops, -1e100), VLM_OK);
  presolve();
  EXPECT_EQ(count("NumVars"), 4);
  EXPECT_EQ(count("NumConstrs"), 1);
  EXPECT_EQ(count("NumSOS"), 1);
  EXPECT_EQ(count("NumGenConstrs"), 1);
  EXPECT_EQ(index_of("m"), 3);
  int res = -1, nv = -1;
  double k = 0;
  std::vector<int> got(3, -1);
  ASSERT_EQ(VLMgetgenconstrMax(p_, 0, &res, &nv, got.data(), &k), VLM_OK) << VLMgetmerrormsg(p_);
  EXPECT_EQ(res, 3);
  EXPECT_EQ(got, (std::vector<int>{0, 1, 2}));
  double ub = NAN;
  ASSERT_EQ(VLMgetdblattrelement(p_, "UB", 1, &ub), VLM_OK);
  EXPECT_EQ(ub, 2.0);
  EXPECT_NEAR(solved(p_), 5.0, 1e-6);
  EXPECT_NEAR(solved(m_), 5.0, 1e-6);
}

// max, objective 0 (priority 2): x + y;  objective 1 (priority 1): y + u + 3f.
// x + y + f <= 6, x, y in [0, 10], f fixed at 2, u in [0, 5] in no row.
// Level 0: x + y = 4. Level 1 keeps x + y >= 4 and takes y = 4, u = 5: 4 + 5 + 6 = 15.
// f leaves objective 1 as the constant 6; u stays (the primary objective has no cost on it,
// so fixing it by that objective would lose 5).
TEST_F(PresolveTest, MultipleObjectivesKeepTheirValuesAndConstants) {
  var(0, 0, 10, 'C', "x");
  var(0, 0, 10, 'C', "y");
  var(0, 2, 2, 'C', "f");
  var(0, 0, 5, 'C', "u");
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  row({0, 1, 2}, {1, 1, 1}, '<', 6);
  const int i0[] = {0, 1}, i1[] = {1, 3, 2};
  const double v0[] = {1, 1}, v1[] = {1, 1, 3};
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1.0, 1e-6, 0.0, "first", 0.0, 2, i0, v0), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1.0, 1e-6, 0.0, "second", 0.0, 3, i1, v1), VLM_OK);
  presolve();
  EXPECT_EQ(count("NumVars"), 3);
  EXPECT_EQ(count("NumObj"), 2);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(p_), "ObjNumber", 1), VLM_OK);
  double con = NAN;
  ASSERT_EQ(VLMgetdblattr(p_, "ObjNCon", &con), VLM_OK);
  EXPECT_EQ(con, 6.0);
  for (VLMmodel* m : {p_, m_}) {
    solved(m);
    const double want[] = {4.0, 15.0};
    for (int k = 0; k < 2; ++k) {
      double v = NAN;
      ASSERT_EQ(VLMsetintparam(VLMgetenv(m), "ObjNumber", k), VLM_OK);
      ASSERT_EQ(VLMgetdblattr(m, "ObjNVal", &v), VLM_OK) << VLMgetmerrormsg(m);
      EXPECT_NEAR(v, want[k], 1e-6) << "objective " << k;
    }
  }
}

// min -x - 2y - 3z  s.t.  e: x - y = 0,  c1: x + y + z <= 10,  c2: y + 2z <= 12,
//                         c3: x + z >= 1;  x, y, z in [0, 8].
// With x = y: 2y + z <= 10 and y + 2z <= 12 meet at y = 8/3, z = 14/3: -3 (y + z) = -22
// (the other corners give -18 and -15). The library's reductions find nothing here (no fixed
// variable, no one-variable row); the engine's substitute the equality away at least.
TEST_F(PresolveTest, AggressivePresolveUsesTheEnginesReductionsWithOurNames) {
  var(-1, 0, 8, 'C', "x");
  var(-2, 0, 8, 'C', "y");
  var(-3, 0, 8, 'C', "z");
  ASSERT_EQ(VLMaddconstr(m_, 2, std::vector<int>{0, 1}.data(), std::vector<double>{1, -1}.data(), '=', 0, "e"),
            VLM_OK);
  ASSERT_EQ(VLMaddconstr(m_, 3, std::vector<int>{0, 1, 2}.data(), std::vector<double>{1, 1, 1}.data(), '<', 10,
                         "c1"),
            VLM_OK);
  ASSERT_EQ(VLMaddconstr(m_, 2, std::vector<int>{1, 2}.data(), std::vector<double>{1, 2}.data(), '<', 12, "c2"),
            VLM_OK);
  ASSERT_EQ(VLMaddconstr(m_, 2, std::vector<int>{0, 2}.data(), std::vector<double>{1, 1}.data(), '>', 1, "c3"),
            VLM_OK);
  presolve();
  EXPECT_EQ(count("NumVars"), 3);  // the library's own presolve keeps everything
  EXPECT_EQ(count("NumConstrs"), 4);
  VLMfreemodel(p_);
  p_ = nullptr;
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Presolve", 2), VLM_OK);
  presolve();
  const int vars = count("NumVars"), rows = count("NumConstrs");
  EXPECT_LT(vars + rows, 7);
  for (int j = 0; j < vars; ++j) {
    char* name = nullptr;
    ASSERT_EQ(VLMgetstrattrelement(p_, "VarName", j, &name), VLM_OK);
    EXPECT_TRUE(std::string(name) == "x" || std::string(name) == "y" || std::string(name) == "z") << name;
  }
  EXPECT_NEAR(solved(p_), -22.0, 1e-6);
  EXPECT_NEAR(solved(m_), -22.0, 1e-6);
}

// max 5x + 4y + z  s.t.  cap: 6x + 4y <= 24,  lab: x + 2y <= 6,  link: z - x <= 0,
// copy: w - x = 0, x, y integer >= 0, z in [0, 3], w in [0, 10] without cost.
// Integer points: (4, 0) gives 20 + 3 = 23, (3, 1) 19 + 3 = 22, (2, 2) 18 + 2 = 20: optimum 23
// (w = 4). The copy row and w go (the library's presolve keeps both); a maximisation checks
// that the engine's costs and offset come back with our sense.
TEST_F(PresolveTest, AggressivePresolveOfAMaximisingMipKeepsItsOptimum) {
  var(5, 0, 1e100, 'I', "x");
  var(4, 0, 1e100, 'I', "y");
  var(1, 0, 3, 'C', "z");
  var(0, 0, 10, 'C', "w");
  row({0, 1}, {6, 4}, '<', 24);
  row({0, 1}, {1, 2}, '<', 6);
  row({2, 0}, {1, -1}, '<', 0);
  row({3, 0}, {1, -1}, '=', 0);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Presolve", 2), VLM_OK);
  presolve();
  EXPECT_LE(count("NumVars"), 3);
  EXPECT_LE(count("NumConstrs"), 3);
  EXPECT_NEAR(solved(p_), 23.0, 1e-6);
  EXPECT_NEAR(solved(m_), 23.0, 1e-6);
}

// x + y >= 5 with x, y in [0, 2]: infeasible. HiGHS decides that in presolve and hands back
// no problem; the library's reductions then keep the model, so its solve says infeasible.
TEST_F(PresolveTest, AggressivePresolveOfAnInfeasibleModelFallsBackAndStaysInfeasible) {
  var(1, 0, 2, 'C', "x");
  var(1, 0, 2, 'C', "y");
  row({0, 1}, {1, 1}, '>', 5);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Presolve", 2), VLM_OK);
  presolve();
  EXPECT_EQ(count("NumVars"), 2);
  EXPECT_EQ(count("NumConstrs"), 1);
  ASSERT_EQ(VLMoptimize(p_), VLM_OK);
  int s = 0;
  ASSERT_EQ(VLMgetintattr(p_, "Status", &s), VLM_OK);
  EXPECT_EQ(s, VLM_INFEASIBLE);
}

// min x + 2y  s.t.  x + y >= 3,  y - x >= -1  (x, y >= 0): HiGHS removes everything; the
// optimum x = 2, y = 1 (from the two rows as equalities) gives 4, left as the constant.
TEST_F(PresolveTest, AggressivePresolveReducingToNothingKeepsTheOptimumAsConstant) {
  var(1, 0, 1e100, 'C', "x");
  var(2, 0, 1e100, 'C', "y");
  row({0, 1}, {1, 1}, '>', 3);
  row({1, 0}, {1, -1}, '>', -1);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Presolve", 2), VLM_OK);
  presolve();
  EXPECT_NEAR(solved(p_), 4.0, 1e-6);
  EXPECT_NEAR(solved(m_), 4.0, 1e-6);
}

// min pwl(x) + y  s.t.  y + f >= 3,  f fixed at 1;  pwl through (0, 4), (2, 0), (4, 4),
// x in [0, 4] in no row, y >= 0. Optimum x = 2, y = 2: 0 + 2 = 2; only x is left. x has no linear cost, so
// the "in no row" step would put it at 0 (value 4) were it not protected.
TEST_F(PresolveTest, PiecewiseLinearObjectiveVariablesStay) {
  var(0, 0, 4, 'C', "x");
  var(1, 0, 1e100, 'C', "y");
  var(0, 1, 1, 'C', "f");
  row({1, 2}, {1, 1}, '>', 3);
  const double px[] = {0, 2, 4}, py[] = {4, 0, 4};
  ASSERT_EQ(VLMsetpwlobj(m_, 0, 3, px, py), VLM_OK);
  presolve();
  EXPECT_EQ(count("NumVars"), 1);  // y >= 2 becomes a bound, then y goes to it
  EXPECT_EQ(count("NumPWLObjVars"), 1);
  EXPECT_EQ(index_of("x"), 0);
  EXPECT_NEAR(solved(p_), 2.0, 1e-6);
  EXPECT_NEAR(solved(m_), 2.0, 1e-6);
}

}  // namespace
