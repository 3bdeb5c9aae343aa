// Sensitivity ranges of LP solutions (SAObjLow/Up, SALBLow/Up, SAUBLow/Up, SARHSLow/Up):
// hand-derived ranges on small LPs in both senses with <=, >=, = and range rows, and a check
// of every finite and infinite range against re-solves of the perturbed model (inside the
// range the optimal basis stays optimal, so the objective moves linearly with the dual
// or the primal value; just beyond a finite end it does not).
//
// Not tested here: ranges of MIPs (not available, tested in optimize_test.cpp) and of
// degenerate optima, where ranges depend on the basis HiGHS returns.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

constexpr double kInf = VLM_INFINITY;

class SensitivityTest : public ModelFixture {
 protected:
  void var(double obj, double lb, double ub, const char* name) {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, obj, lb, ub, 'C', name), VLM_OK);
  }
  double attr(const char* name, int e) {
    double v = NAN;
    EXPECT_EQ(VLMgetdblattrelement(m_, name, e, &v), VLM_OK) << name << ": " << VLMgetmerrormsg(m_);
    return v;
  }
  // Range [lo, up] of attribute pair `low`/`up` for element e.
  std::pair<double, double> range(const char* low, const char* up, int e) { return {attr(low, e), attr(up, e)}; }

  // The objective after setting attribute `what` of element e to v and re-solving; the value
  // is restored afterwards. NaN when the changed model has no optimum.
  double resolve_with(const char* what, int e, double v) {
    double old = attr(what, e);
    EXPECT_EQ(VLMsetdblattrelement(m_, what, e, v), VLM_OK);
    EXPECT_EQ(VLMoptimize(m_), VLM_OK);
    int s = 0;
    EXPECT_EQ(VLMgetintattr(m_, "Status", &s), VLM_OK);
    double obj = s == VLM_OPTIMAL ? dbl("ObjVal") : NAN;
    EXPECT_EQ(VLMsetdblattrelement(m_, what, e, old), VLM_OK);
    EXPECT_EQ(VLMupdatemodel(m_), VLM_OK);  // reads show the model as of the last update
    return obj;
  }

  // For each element and each of the three kinds of range: inside the range the objective is
  // the linear prediction (objective + slope * change); a step beyond a finite end breaks it.
  // The slope is the dual (RHS), the primal value (Obj) or the reduced cost (bounds of a
  // nonbasic variable).
  void check_against_resolves() {
    solve();
    const double obj = dbl("ObjVal");
    int n = 0, m = 0;
    ASSERT_EQ(VLMgetintattr(m_, "NumVars", &n), VLM_OK);
    ASSERT_EQ(VLMgetintattr(m_, "NumConstrs", &m), VLM_OK);
    struct Kind {
      const char *what, *low, *up;
      bool row;
    };
    const Kind kinds[] = {{"RHS", "SARHSLow", "SARHSUp", true}, {"Obj", "SAObjLow", "SAObjUp", false},
                          {"LB", "SALBLow", "SALBUp", false}, {"UB", "SAUBLow", "SAUBUp", false}};
    std::vector<std::vector<double>> ranges;
    for (const Kind& k : kinds) {
      const int count = k.row ? m : n;
      for (int e = 0; e < count; ++e) {
        solve();
        const double value = attr(k.what, e);
        const double lo = attr(k.low, e), up = attr(k.up, e);
        double slope = 0.0;
        if (k.row) {
          slope = attr("Pi", e);
        } else if (std::string(k.what) == "Obj") {
          slope = attr("X", e);
        } else {
          int vb = 0;
          EXPECT_EQ(VLMgetintattrelement(m_, "VBasis", e, &vb), VLM_OK);
          const bool active = std::string(k.what) == "LB" ? vb == -1 : vb == -2;
          slope = active ? attr("RC", e) : 0.0;
        }
        SCOPED_TRACE(std::string(k.what) + " of element " + std::to_string(e) + ": [" + std::to_string(lo) +
                     ", " + std::to_string(up) + "], value " + std::to_string(value));
        EXPECT_LE(lo, value + 1e-9);
        EXPECT_GE(up, value - 1e-9);
        // Inside: halfway to a finite end, or 5 units towards an infinite one.
        for (double end : {lo, up}) {
          const double inside = std::fabs(end) >= kInf ? value + (end > 0 ? 5.0 : -5.0) : (value + end) / 2;
          if (std::string(k.what) == "UB" && inside < attr("LB", e)) continue;
          if (std::string(k.what) == "LB" && inside > attr("UB", e)) continue;
          const double got = resolve_with(k.what, e, inside);
          EXPECT_NEAR(got, obj + slope * (inside - value), 1e-7) << "inside at " << inside;
        }
        // Beyond a finite end the basis changes: the linear prediction no longer holds.
        for (double end : {lo, up}) {
          if (std::fabs(end) >= kInf || std::fabs(end - value) < 1e-9) continue;
          const double beyond = end + (end > value ? 0.5 : -0.5);
          const double got = resolve_with(k.what, e, beyond);
          if (std::isnan(got)) continue;  // infeasible beyond: also a change of basis
          EXPECT_GT(std::fabs(got - (obj + slope * (beyond - value))), 1e-6) << "beyond at " << beyond;
        }
      }
    }
  }
};

// min 2x + 3y  s.t.  c1: x + y >= 4,  c2: x + 3y >= 6,  c3: x + y <= 10 (never binding),
// x, y >= 0. Optimum (3, 1), value 9, duals 1.5 and 0.5.
// RHS: c1 in [2, 6] (y = (6 - b)/2 >= 0, x = (3b - 6)/2 >= 0), c2 in [4, 12], c3 in [4, inf]
// (down to its activity 4). Obj: x in [1, 3], y in [2, 6] (the gradient stays between the
// normals (1,1) and (1,3)). Bounds of the basic x: LB in [-inf, 3], UB in [3, inf].
TEST_F(SensitivityTest, DietLpRangesByHand) {
  var(2, 0, kInf, "x");
  var(3, 0, kInf, "y");
  row({0, 1}, {1, 1}, '>', 4);
  row({0, 1}, {1, 3}, '>', 6);
  row({0, 1}, {1, 1}, '<', 10);
  solve();
  EXPECT_NEAR(dbl("ObjVal"), 9, 1e-9);
  using R = std::pair<double, double>;
  auto near = [](R got, R want) {
    EXPECT_NEAR(got.first, want.first, 1e-9);
    EXPECT_NEAR(got.second, want.second, 1e-9);
  };
  near(range("SARHSLow", "SARHSUp", 0), R{2, 6});
  near(range("SARHSLow", "SARHSUp", 1), R{4, 12});
  EXPECT_NEAR(attr("SARHSLow", 2), 4, 1e-9);
  EXPECT_EQ(attr("SARHSUp", 2), kInf);
  near(range("SAObjLow", "SAObjUp", 0), R{1, 3});
  near(range("SAObjLow", "SAObjUp", 1), R{2, 6});
  EXPECT_EQ(attr("SALBLow", 0), -kInf);
  EXPECT_NEAR(attr("SALBUp", 0), 3, 1e-9);
  EXPECT_NEAR(attr("SAUBLow", 0), 3, 1e-9);
  EXPECT_EQ(attr("SAUBUp", 0), kInf);
  check_against_resolves();
}

// The same LP maximising -2x - 3y: the same point and RHS ranges; the cost ranges mirror:
// x in [-3, -1], y in [-6, -2]. A non-binding >= row (c4: x >= -5) ranges over [-inf, 3].
TEST_F(SensitivityTest, MaximisingMirrorsTheCostRanges) {
  var(-2, 0, kInf, "x");
  var(-3, 0, kInf, "y");
  row({0, 1}, {1, 1}, '>', 4);
  row({0, 1}, {1, 3}, '>', 6);
  row({0, 1}, {1, 1}, '<', 10);
  row({0}, {1}, '>', -5);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  solve();
  EXPECT_NEAR(dbl("ObjVal"), -9, 1e-9);
  EXPECT_NEAR(attr("SAObjLow", 0), -3, 1e-9);
  EXPECT_NEAR(attr("SAObjUp", 0), -1, 1e-9);
  EXPECT_NEAR(attr("SAObjLow", 1), -6, 1e-9);
  EXPECT_NEAR(attr("SAObjUp", 1), -2, 1e-9);
  EXPECT_NEAR(attr("SARHSLow", 0), 2, 1e-9);
  EXPECT_NEAR(attr("SARHSUp", 0), 6, 1e-9);
  EXPECT_EQ(attr("SARHSUp", 2), kInf);
  EXPECT_EQ(attr("SARHSLow", 3), -kInf);
  EXPECT_NEAR(attr("SARHSUp", 3), 3, 1e-9);
  check_against_resolves();
}

// min x + y + z  s.t.  e: x + 2y = 4,  r: 1 <= x + z <= 3 (a range row),  x, y, z >= 0.
// y = (4 - x)/2 makes the objective 2 + x/2 + z: optimum x = 1, y = 1.5, z = 0, value 2.5.
// RHS: e in [1, inf] (y >= 0 while b >= x = 1); r (its lower end 1 is its RHS) in [0, 4]
// (x = b >= 0, y = (4 - b)/2 >= 0). Obj: z (nonbasic, reduced cost 0.5) in [0.5, inf];
// x in [0.5, 1.5]; y in [0, 2]. LB of z (x = 1 - l): [-3, 1].
TEST_F(SensitivityTest, EqualityAndRangeRowsByHand) {
  var(1, 0, kInf, "x");
  var(1, 0, kInf, "y");
  var(1, 0, kInf, "z");
  row({0, 1}, {1, 2}, '=', 4);
  int ind[] = {0, 2};
  double val[] = {1, 1};
  ASSERT_EQ(VLMaddrangeconstr(m_, 2, ind, val, 1, 3, "r"), VLM_OK);
  solve();
  EXPECT_NEAR(dbl("ObjVal"), 2.5, 1e-9);
  EXPECT_NEAR(attr("SARHSLow", 0), 1, 1e-9);
  EXPECT_EQ(attr("SARHSUp", 0), kInf);
  EXPECT_NEAR(attr("SARHSLow", 1), 0, 1e-9);
  EXPECT_NEAR(attr("SARHSUp", 1), 4, 1e-9);
  EXPECT_NEAR(attr("SAObjLow", 2), 0.5, 1e-9);
  EXPECT_EQ(attr("SAObjUp", 2), kInf);
  EXPECT_NEAR(attr("SAObjLow", 0), 0.5, 1e-9);
  EXPECT_NEAR(attr("SAObjUp", 0), 1.5, 1e-9);
  EXPECT_NEAR(attr("SAObjLow", 1), 0, 1e-9);
  EXPECT_NEAR(attr("SAObjUp", 1), 2, 1e-9);
  EXPECT_NEAR(attr("SALBLow", 2), -3, 1e-9);
  EXPECT_NEAR(attr("SALBUp", 2), 1, 1e-9);
  check_against_resolves();
}

// max 5a + 4b + 3c  s.t.  2a + 3b + c <= 5,  4a + b + 2c <= 11,  3a + 4b + 2c <= 8,
// a, b >= 0, 0 <= c <= 0.8. The first row binds (dual 2.5): c sits at its upper bound
// (reduced cost 3 - 2.5 = 0.5), a = (5 - 0.8)/2 = 2.1, b = 0 (reduced cost 4 - 7.5 < 0):
// value 10.5 + 2.4 = 12.9; the other two rows are basic. SAUB of c: with upper bound u,
// a = (5 - u)/2 and row 3 reads 7.5 + u/2 <= 8, so u <= 1; below, u meets c's lower bound 0:
// [0, 1].
TEST_F(SensitivityTest, VariableAtItsUpperBoundInAMaximisation) {
  var(5, 0, kInf, "a");
  var(4, 0, kInf, "b");
  var(3, 0, 0.8, "c");
  row({0, 1, 2}, {2, 3, 1}, '<', 5);
  row({0, 1, 2}, {4, 1, 2}, '<', 11);
  row({0, 1, 2}, {3, 4, 2}, '<', 8);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  solve();
  EXPECT_NEAR(dbl("ObjVal"), 12.9, 1e-9);
  EXPECT_EQ(attr("SARHSUp", 1), kInf);
  EXPECT_EQ(attr("SARHSUp", 2), kInf);
  EXPECT_NEAR(attr("SAUBLow", 2), 0, 1e-9);
  EXPECT_NEAR(attr("SAUBUp", 2), 1, 1e-9);
  check_against_resolves();
}

}  // namespace
