// Function constraints solved through their piecewise-linear approximation: optima within the
// approximation error of the true optimum, the true violation |y - f(x)| reported as
// ConstrVio, per-constraint options honoured, fixed x, and the refusals (a bound needed, a
// domain left) that leave the model as it was.
#include "reform/reform_fixture.h"

#include <algorithm>

namespace {

constexpr double kFree = 1e100;

class FuncTest : public ReformTest {
 protected:
  double dblattr(const char* name) {
    double v = NAN;
    EXPECT_EQ(VLMgetdblattr(m_, name, &v), VLM_OK) << name << ": " << VLMgetmerrormsg(m_);
    return v;
  }
  // |y - f(x)| in the returned solution.
  double true_gap(int xv, int yv, double (*f)(double)) { return std::fabs(x(yv) - f(x(xv))); }
};

double exp_f(double v) { return std::exp(v); }
double log_f(double v) { return std::log(v); }
double sin_f(double v) { return std::sin(v); }

// y = e^x, x in [0, 2], min y - 2x: e^x = 2 at x = ln 2, optimum 2 - 2 ln 2 = 0.6137056.
// The chords lie above the convex e^x, so the approximate optimum is no lower than the true one
// and no higher by more than FuncPieceError (1e-3 by default).
TEST_F(FuncTest, ExpMinimumWithinTheDefaultError) {
  int xv = var(-2, 0, 2, 'C', "x");
  int yv = var(1, -kFree, kFree, 'C', "y");
  ASSERT_EQ(VLMaddgenconstrExp(m_, "e", xv, yv, ""), VLM_OK);
  solve();
  const double best = 2 - 2 * std::log(2.0);
  EXPECT_GE(objval(), best - 1e-7);
  EXPECT_LE(objval(), best + 1e-3);
  EXPECT_NEAR(x(xv), std::log(2.0), 0.05);
  EXPECT_LE(dblattr("ConstrVio"), 1e-3 + 1e-9);
  EXPECT_NEAR(dblattr("ConstrVio"), true_gap(xv, yv, exp_f), 1e-12);
  EXPECT_EQ(intattr("NumVars"), 2);
  EXPECT_EQ(intattr("NumGenConstrs"), 1);
}

// y = ln x, x in [0.5, 4], max y - x/2: 1/x = 1/2 at x = 2, optimum ln 2 - 1 = -0.3068528.
// The chords lie below the concave ln, so the approximate optimum is no higher.
TEST_F(FuncTest, LogMaximumWithinTheDefaultError) {
  int xv = var(-0.5, 0.5, 4, 'C', "x");
  int yv = var(1, -kFree, kFree, 'C', "y");
  maximize();
  ASSERT_EQ(VLMaddgenconstrLog(m_, "l", xv, yv, ""), VLM_OK);
  solve();
  const double best = std::log(2.0) - 1;
  EXPECT_LE(objval(), best + 1e-7);
  EXPECT_GE(objval(), best - 1e-3);
  EXPECT_LE(true_gap(xv, yv, log_f), 1e-3 + 1e-9);
}

// y = x^2, x in [-1, 3], FuncPieces=4 in the option text: points -1, 0, 1, 2, 3 on the curve.
// min y - 2x is -1 at x = 1, a breakpoint, so the approximation is exact there.
TEST_F(FuncTest, PowWithEqualPiecesFromTheOptionText) {
  int xv = var(-2, -1, 3, 'C', "x");
  int yv = var(1, -kFree, kFree, 'C', "y");
  ASSERT_EQ(VLMaddgenconstrPow(m_, "p", xv, yv, 2.0, "FuncPieces=4"), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -1.0, 1e-7);
  EXPECT_NEAR(x(xv), 1.0, 1e-7);
  EXPECT_NEAR(dblattr("ConstrVio"), 0.0, 1e-7);
}

// y = sin x, x in [0, 7]: sin is concave on [0, pi], convex on [pi, 2 pi], concave again, so
// only the SOS2 keeps (x, y) on the approximation. max y = 1 at pi/2 (sin 7 = 0.657);
// min y = -1 at 3 pi / 2. Points lie on sin, so the optima are within the error inside.
TEST_F(FuncTest, SinOverSeveralCurvatureChanges) {
  int xv = var(0, 0, 7, 'C', "x");
  int yv = var(1, -kFree, kFree, 'C', "y");
  ASSERT_EQ(VLMaddgenconstrSin(m_, "s", xv, yv, ""), VLM_OK);
  maximize();
  solve();
  EXPECT_LE(objval(), 1.0 + 1e-9);
  EXPECT_GE(objval(), 1.0 - 1e-3);
  EXPECT_NEAR(x(xv), M_PI / 2, 0.1);
  EXPECT_LE(true_gap(xv, yv, sin_f), 1e-3 + 1e-9);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", 1), VLM_OK);
  solve();
  EXPECT_GE(objval(), -1.0 - 1e-9);
  EXPECT_LE(objval(), -1.0 + 1e-3);
  EXPECT_NEAR(x(xv), 3 * M_PI / 2, 0.1);
}

// The reported violation is the true one. y = e^x, x in [0, 2], FuncPieces=2 through the
// constraint's attribute (points 0, 1, 2); the row x + w >= 0.5 with w in [0, 1] costing 10
// holds x at 0.5 without fixing its bounds. min y + 10 w: w = 0, x = 0.5, and y on the chord
// from (0, 1) to (1, e): y = (1 + e) / 2 = 1.8591409, while e^0.5 = 1.6487213. ConstrVio is
// the difference 0.2104196, at index 1 (one row, then general constraint 0).
TEST_F(FuncTest, ConstrVioIsTheTrueDistanceFromTheFunction) {
  int xv = var(0, 0, 2, 'C', "x");
  int yv = var(1, -kFree, kFree, 'C', "y");
  int wv = var(10, 0, 1, 'C', "w");
  row({xv, wv}, {1, 1}, '>', 0.5);
  ASSERT_EQ(VLMaddgenconstrExp(m_, "e", xv, yv, ""), VLM_OK);
  ASSERT_EQ(VLMsetintattrelement(m_, "FuncPieces", 0, 2), VLM_OK);
  solve();
  const double y = (1 + std::exp(1.0)) / 2;
  EXPECT_NEAR(objval(), y, 1e-7);
  EXPECT_NEAR(x(xv), 0.5, 1e-7);
  EXPECT_NEAR(dblattr("ConstrVio"), y - std::exp(0.5), 1e-7);
  EXPECT_EQ(intattr("ConstrVioIndex"), 1);
  EXPECT_NEAR(dblattr("ConstrVioSum"), y - std::exp(0.5), 1e-7);
  // FuncPieceRatio 0 puts every piece on or under e^x: the same x now gives a y below e^0.5.
  ASSERT_EQ(VLMsetdblattrelement(m_, "FuncPieceRatio", 0, 0.0), VLM_OK);
  solve();
  EXPECT_LE(x(yv), std::exp(x(xv)) + 1e-9);
}

// Pieces without a step go through binary-coded pieces; each must still hold y on its own
// chord. y = sin x, x in [0, 5], FuncPieces=5; x = t + p - n with p, n in [0, 1] costing 10
// holds x at t (|slope| <= 1 < 10), and bound tightening makes the range [max(0, t - 1),
// min(5, t + 1)], split into 5 equal pieces. The t below fall into pieces 0, 1, 2, 3 and 4.
// y is the chord's value at t whether y is minimised or maximised: anything else would mix
// points of different pieces.
TEST_F(FuncTest, EveryPieceKeepsItsOwnChord) {
  int xv = var(0, 0, 5, 'C', "x");
  int yv = var(0, -kFree, kFree, 'C', "y");
  int pv = var(10, 0, 1, 'C', "p");
  int nv = var(10, 0, 1, 'C', "n");
  row({xv, pv, nv}, {1, -1, 1}, '=', 0.1);
  ASSERT_EQ(VLMaddgenconstrSin(m_, "s", xv, yv, "FuncPieces=5"), VLM_OK);
  const double ts[] = {0.1, 0.5, 1.5, 4.5, 4.95};
  for (int k = 0; k < 5; ++k) {
    const double t = ts[k], lo = std::max(0.0, t - 1), hi = std::min(5.0, t + 1), h = (hi - lo) / 5;
    const int piece = static_cast<int>((t - lo) / h);
    ASSERT_EQ(piece, k);
    const double a = lo + piece * h, b = a + h;
    const double chord = std::sin(a) + (std::sin(b) - std::sin(a)) * (t - a) / h;
    ASSERT_EQ(VLMsetdblattrelement(m_, "RHS", 0, t), VLM_OK);
    for (double sign : {1.0, -1.0}) {
      ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", yv, sign), VLM_OK);
      solve();
      EXPECT_NEAR(x(xv), t, 1e-7) << t;
      EXPECT_NEAR(x(yv), chord, 1e-7) << t << " sign " << sign;
    }
  }
}

// A function constraint bounds its y for the constants of other constructs, even those built
// before it: y = e^x with x in [0, 1] lies in [1, e], so the indicator (b = 1) => y <= 1.5
// (added first) gets its big-M although y has no bounds of its own. max x + b: b = 1 allows
// x <= ln 1.5 = 0.4054651, so 1.4054651 beats b = 0, x = 1. The chords lie above e^x, so
// x stops a little short of ln 1.5 (by at most FuncPieceError / 1.5 in x).
TEST_F(FuncTest, FunctionBoundsItsResultForOtherConstructs) {
  int xv = var(1, 0, 1, 'C', "x");
  int yv = var(0, -kFree, kFree, 'C', "y");
  int bv = var(1, 0, 1, 'B', "b");
  maximize();
  const int ind[] = {yv};
  const double val[] = {1};
  ASSERT_EQ(VLMaddgenconstrIndicator(m_, "cap", bv, 1, 1, ind, val, '<', 1.5), VLM_OK);
  ASSERT_EQ(VLMaddgenconstrExp(m_, "e", xv, yv, ""), VLM_OK);
  solve();
  const double best = 1 + std::log(1.5);
  EXPECT_LE(objval(), best + 1e-7);
  EXPECT_GE(objval(), best - 1e-3);
  EXPECT_NEAR(x(bv), 1.0, 1e-9);
  // The same with pieces on either side of e^x (ratio 0.5, error-driven): the bound widens by
  // the error and the model still solves.
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "FuncPieceRatio", 0.5), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), best, 1e-3);
}

// x fixed by its bounds: y = f(x) exactly, ln 1 = 0 and e^2 = 7.3890561 (no pieces at all).
TEST_F(FuncTest, FixedArgumentGivesTheExactValue) {
  int xv = var(0, 1, 1, 'C', "x");
  int yv = var(1, -kFree, kFree, 'C', "y");
  int uv = var(0, 2, 2, 'C', "u");
  int vv = var(1, -kFree, kFree, 'C', "v");
  ASSERT_EQ(VLMaddgenconstrLog(m_, "l", xv, yv, ""), VLM_OK);
  ASSERT_EQ(VLMaddgenconstrExp(m_, "e", uv, vv, ""), VLM_OK);
  solve();
  EXPECT_NEAR(x(yv), 0.0, 1e-9);
  EXPECT_NEAR(x(vv), std::exp(2.0), 1e-9);
  EXPECT_NEAR(objval(), std::exp(2.0), 1e-9);
  EXPECT_LE(dblattr("ConstrVio"), 1e-9);
}

// Refusals leave the model as it was, and the same model solves once the bound is there.
// - FuncMaxVal infinite, x free: NOT_SUPPORTED naming x, as for a big-M.
// - FuncMaxVal 1e6 (default), x free: e^x passes 1e6 above x = ln 1e6 = 13.8155; the bound is
//   missing, so NOT_SUPPORTED too.
// - y = x^0.5 with x in [-1, 4]: the square root is undefined left of 0; the bounds are there
//   but wrong for it: INVALID_ARGUMENT. So is e^x over [0, 100] (e^100 > 1e6).
TEST_F(FuncTest, RefusalsNameTheVariableAndTheBound) {
  int xv = var(0, -kFree, kFree, 'C', "x");
  int yv = var(1, -kFree, kFree, 'C', "y");
  ASSERT_EQ(VLMaddgenconstrExp(m_, "e", xv, yv, ""), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "FuncMaxVal", 1e101), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_NOT_SUPPORTED, "needs a finite lower bound on variable 'x'");
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "FuncMaxVal", 1e6), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_NOT_SUPPORTED, "an upper bound of at most 13.8155");
  ASSERT_EQ(VLMsetdblattrelement(m_, "LB", xv, 0), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", xv, 100), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_INVALID_ARGUMENT, "an upper bound of at most 13.8155");
  EXPECT_EQ(intattr("NumVars"), 2);
  EXPECT_EQ(intattr("NumConstrs"), 0);
  EXPECT_EQ(intattr("NumGenConstrs"), 1);
  // With x in [-1, 1]: min e^x is e^-1 = 0.3678794, at the end point (exact).
  ASSERT_EQ(VLMsetdblattrelement(m_, "LB", xv, -1), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", xv, 1), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), std::exp(-1.0), 1e-9);

  int uv = var(0, -1, 4, 'C', "u");
  int vv = var(0, -kFree, kFree, 'C', "v");
  ASSERT_EQ(VLMaddgenconstrPow(m_, "root", uv, vv, 0.5, ""), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_INVALID_ARGUMENT, "'u'");
  ASSERT_EQ(VLMsetdblattrelement(m_, "LB", uv, 0), VLM_OK);
  solve();
}

}  // namespace
