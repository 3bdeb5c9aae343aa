// Breakpoints of function constraints: accuracy of the approximation against the true function
// (computed here with <cmath>, not through the library's own evaluation), the side the ratio
// asks for, piece counts, option precedence, and every refusal with its code and message.
//
// Not tested here: how reform_pwl models the points (its own tests).
#include "reform/func_breakpoints.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

#include "attrs/attr_table.h"
#include "capi/handles.h"
#include "model_fixture.h"

namespace vlm::reform {
namespace {

using Fn = std::function<double(double)>;

GenConstrData func(GenType t, double a = 0.0, std::vector<double> coeffs = {}) {
  GenConstrData g;
  g.type = t;
  g.name = "g";
  g.arg = 0;
  g.res = 1;
  g.a = a;
  g.vals = std::move(coeffs);
  return g;
}

FuncOptions opts(double pieces, double err = 1e-3, double ratio = -1.0, double len = 1e-2,
                 double maxval = 1e6) {
  return FuncOptions{pieces, len, err, ratio, maxval};
}

// Worst deviation of the piecewise-linear function from f over a dense grid on every piece
// (vertical steps are covered by their end points).
struct Deviation {
  double above = 0.0;     // max of pwl - f
  double below = 0.0;     // max of f - pwl
  double relative = 0.0;  // max of |pwl - f| / max(1, |f|)
};
Deviation deviation(const PwlPoints& p, const Fn& f) {
  Deviation d;
  for (std::size_t k = 0; k + 1 < p.x.size(); ++k) {
    const double x0 = p.x[k], x1 = p.x[k + 1];
    EXPECT_LE(x0, x1) << "points out of order at " << k;
    for (int i = 0; i <= 200; ++i) {
      double t = i / 200.0, x = x0 + t * (x1 - x0);
      double pwl = p.y[k] + t * (p.y[k + 1] - p.y[k]);
      double e = pwl - f(x);
      d.above = std::max(d.above, e);
      d.below = std::max(d.below, -e);
      d.relative = std::max(d.relative, std::fabs(e) / std::max(1.0, std::fabs(f(x))));
    }
  }
  return d;
}

int sloped_pieces(const PwlPoints& p) {
  int n = 0;
  for (std::size_t k = 0; k + 1 < p.x.size(); ++k) n += p.x[k + 1] > p.x[k] ? 1 : 0;
  return n;
}

PwlPoints points(const GenConstrData& g, double lb, double ub, const FuncOptions& o) {
  auto r = func_breakpoints(g, lb, ub, o, "x");
  EXPECT_TRUE(r.ok()) << r.status().message();
  return r.ok() ? r.value() : PwlPoints{};
}

struct Case {
  const char* label;
  GenConstrData g;
  double lb, ub;
  Fn f;
};

std::vector<Case> every_kind() {
  return {
      {"poly 2x^3+1.5x^2+1", func(GenType::kPoly, 0, {2, 1.5, 0, 1}), -2, 2,
       [](double x) { return 2 * x * x * x + 1.5 * x * x + 1; }},
      {"exp", func(GenType::kExp), -2, 3, [](double x) { return std::exp(x); }},
      {"2^x", func(GenType::kExpA, 2), -3, 4, [](double x) { return std::pow(2.0, x); }},
      {"0.5^x", func(GenType::kExpA, 0.5), -3, 4, [](double x) { return std::pow(0.5, x); }},
      {"log", func(GenType::kLog), 0.1, 10, [](double x) { return std::log(x); }},
      {"log_10", func(GenType::kLogA, 10), 0.5, 100, [](double x) { return std::log10(x); }},
      {"log_0.5", func(GenType::kLogA, 0.5), 0.5, 8, [](double x) { return std::log2(x) * -1.0; }},
      {"logistic", func(GenType::kLogistic), -6, 6,
       [](double x) { return 1 / (1 + std::exp(-x)); }},
      {"sqrt", func(GenType::kPow, 0.5), 0, 4, [](double x) { return std::sqrt(x); }},
      {"x^3", func(GenType::kPow, 3), -2, 2, [](double x) { return x * x * x; }},
      {"x^-1", func(GenType::kPow, -1), 0.5, 4, [](double x) { return 1 / x; }},
      {"x^2.5", func(GenType::kPow, 2.5), 0, 3, [](double x) { return std::pow(x, 2.5); }},
      {"sin", func(GenType::kSin), -5, 5, [](double x) { return std::sin(x); }},
      {"cos", func(GenType::kCos), 0, 7, [](double x) { return std::cos(x); }},
      {"tan", func(GenType::kTan), -1.2, 1.2, [](double x) { return std::tan(x); }},
  };
}

// ---- accuracy and the ratio rule over every kind --------------------------------------------

TEST(FuncBreakpointsTest, ErrorDrivenPiecesStayWithinTheErrorForEveryKind) {
  for (const Case& c : every_kind()) {
    for (double err : {1e-2, 1e-4}) {
      PwlPoints p = points(c.g, c.lb, c.ub, opts(-1, err));
      ASSERT_GE(p.x.size(), 2u) << c.label;
      EXPECT_EQ(p.x.front(), c.lb) << c.label;
      EXPECT_EQ(p.x.back(), c.ub) << c.label;
      Deviation d = deviation(p, c.f);
      EXPECT_LE(std::max(d.above, d.below), err * (1 + 1e-6)) << c.label << " err " << err;
      // Points lie on f.
      for (std::size_t k = 0; k < p.x.size(); ++k)
        EXPECT_NEAR(p.y[k], c.f(p.x[k]), 1e-9) << c.label;
    }
  }
}

TEST(FuncBreakpointsTest, RatioZeroStaysBelowOneAboveAndHalfSplitsTheError) {
  const double err = 1e-3;
  for (const Case& c : every_kind()) {
    PwlPoints below = points(c.g, c.lb, c.ub, opts(0, err, 0.0));
    Deviation d0 = deviation(below, c.f);
    EXPECT_LE(d0.above, 1e-9) << c.label << ": ratio 0 must not rise above f";
    EXPECT_LE(d0.below, err * (1 + 1e-6)) << c.label;

    PwlPoints above = points(c.g, c.lb, c.ub, opts(0, err, 1.0));
    Deviation d1 = deviation(above, c.f);
    EXPECT_LE(d1.below, 1e-9) << c.label << ": ratio 1 must not fall below f";
    EXPECT_LE(d1.above, err * (1 + 1e-6)) << c.label;

    PwlPoints half = points(c.g, c.lb, c.ub, opts(0, err, 0.5));
    Deviation dh = deviation(half, c.f);
    EXPECT_LE(std::max(dh.above, dh.below), err * (1 + 1e-6)) << c.label;
    // Half-way lines may use chords with twice the gap, so they need fewer pieces.
    EXPECT_LT(sloped_pieces(half), sloped_pieces(below)) << c.label;
    EXPECT_EQ(half.x.front(), c.lb) << c.label;
    EXPECT_EQ(half.x.back(), c.ub) << c.label;
  }
}

TEST(FuncBreakpointsTest, FixedPieceCountsKeepTheRatioSideEvenAcrossInflections) {
  // Equal pieces ignore where f turns from concave to convex; the side must still hold.
  for (const Case& c : every_kind()) {
    for (double ratio : {0.0, 1.0}) {
      PwlPoints p = points(c.g, c.lb, c.ub, opts(5, 1e-3, ratio));
      Deviation d = deviation(p, c.f);
      if (ratio == 0.0) {
        EXPECT_LE(d.above, 1e-9) << c.label;
      }
      if (ratio == 1.0) {
        EXPECT_LE(d.below, 1e-9) << c.label;
      }
      EXPECT_EQ(sloped_pieces(p), 5) << c.label << " ratio " << ratio;
      EXPECT_EQ(p.x.front(), c.lb);
      EXPECT_EQ(p.x.back(), c.ub);
    }
  }
}

TEST(FuncBreakpointsTest, RelativeErrorGrowsWithTheFunction) {
  // exp on [0, 10] reaches 22026: a relative error of 1e-3 allows wide pieces at the top.
  GenConstrData g = func(GenType::kExp);
  auto f = [](double x) { return std::exp(x); };
  PwlPoints rel = points(g, 0, 10, opts(-2, 1e-3));
  PwlPoints abs = points(g, 0, 10, opts(-1, 1e-3));
  EXPECT_LE(deviation(rel, f).relative, 1e-3 * (1 + 1e-6));
  EXPECT_GT(deviation(rel, f).above, 1e-3);  // truly relative: above the absolute error
  EXPECT_LT(sloped_pieces(rel) * 10, sloped_pieces(abs));
  // Where |f| < 1 the relative mode falls back to the absolute error: sin crosses 0.
  auto s = [](double x) { return std::sin(x); };
  PwlPoints sn = points(func(GenType::kSin), -3, 3, opts(-2, 1e-3));
  EXPECT_LE(deviation(sn, s).relative, 1e-3 * (1 + 1e-6));
  EXPECT_LE(std::max(deviation(sn, s).above, deviation(sn, s).below), 1e-3 * (1 + 1e-6));
}

// ---- exact points on small cases, derived by hand ---------------------------------------------

// x^2 on [0, 2], two equal pieces. Chords: y = x on [0, 1], y = 3x - 2 on [1, 2]; both lie
// above x^2 by at most 1/4 (at 0.5 and 1.5, where 2x equals the chord slope).
// Ratio 0: lines x - 1/4 and 3x - 9/4 (tangents at 0.5, 1.5), crossing at x = 1, y = 0.75.
// Ratio 0.5: x - 1/8 and 3x - 17/8, crossing at 1, y = 0.875. Ratio 1 / -1: the chords.
TEST(FuncBreakpointsTest, ConvexPiecesMeetWhereTheirLinesCross) {
  GenConstrData sq = func(GenType::kPoly, 0, {1, 0, 0});
  struct Want {
    double ratio;
    std::vector<double> x, y;
  };
  for (const Want& w :
       {Want{0.0, {0, 1, 2}, {-0.25, 0.75, 3.75}}, Want{0.5, {0, 1, 2}, {-0.125, 0.875, 3.875}},
        Want{1.0, {0, 1, 2}, {0, 1, 4}}, Want{-1.0, {0, 1, 2}, {0, 1, 4}}}) {
    PwlPoints p = points(sq, 0, 2, opts(2, 1e-3, w.ratio));
    ASSERT_EQ(p.x.size(), w.x.size()) << "ratio " << w.ratio;
    for (std::size_t k = 0; k < p.x.size(); ++k) {
      EXPECT_NEAR(p.x[k], w.x[k], 1e-9) << "ratio " << w.ratio << " point " << k;
      EXPECT_NEAR(p.y[k], w.y[k], 1e-9) << "ratio " << w.ratio << " point " << k;
    }
  }
  // Concave mirror -x^2 with ratio 1: tangents from above, -x + 1/4 and -3x + 9/4.
  PwlPoints m = points(func(GenType::kPoly, 0, {-1, 0, 0}), 0, 2, opts(2, 1e-3, 1.0));
  ASSERT_EQ(m.x.size(), 3u);
  EXPECT_NEAR(m.y[0], 0.25, 1e-9);
  EXPECT_NEAR(m.y[1], -0.75, 1e-9);
  EXPECT_NEAR(m.y[2], -3.75, 1e-9);
}

// x^3 on [-1, 1], two pieces, ratio 0. [-1, 0] is concave: chord y = x lies below x^3, so it
// is kept. [0, 1] is convex: chord y = x lies above by max (x - x^3) = 2/(3 sqrt 3) = 0.3849 at
// x = 1/sqrt 3, so its line is x - 0.3849. At the inflection 0 the approximation steps from 0
// down to -0.3849, both at or below f(0) = 0.
TEST(FuncBreakpointsTest, CurvatureChangeGivesAVerticalStepOnTheAskedSide) {
  PwlPoints p = points(func(GenType::kPow, 3), -1, 1, opts(2, 1e-3, 0.0));
  const double d = 2 / (3 * std::sqrt(3.0));
  ASSERT_EQ(p.x.size(), 4u);
  std::vector<double> wx{-1, 0, 0, 1}, wy{-1, 0, -d, 1 - d};
  for (std::size_t k = 0; k < 4; ++k) {
    EXPECT_NEAR(p.x[k], wx[k], 1e-12) << k;
    EXPECT_NEAR(p.y[k], wy[k], 1e-9) << k;
  }
}

// ---- piece counts -----------------------------------------------------------------------------

TEST(FuncBreakpointsTest, PieceCountsFollowFuncPiecesAndFuncPieceLength) {
  GenConstrData e = func(GenType::kExp);
  PwlPoints seven = points(e, -1, 2.5, opts(7));
  ASSERT_EQ(seven.x.size(), 8u);
  for (int k = 0; k <= 7; ++k) EXPECT_NEAR(seven.x[k], -1 + 0.5 * k, 1e-12);
  EXPECT_EQ(seven.x.back(), 2.5);

  // Length 0.3 on [0, 1]: 0, 0.3, 0.6, 0.9 and the remainder to 1.
  PwlPoints l3 = points(e, 0, 1, opts(1, 1e-3, -1, 0.3));
  ASSERT_EQ(l3.x.size(), 5u);
  EXPECT_NEAR(l3.x[3], 0.9, 1e-12);
  EXPECT_EQ(l3.x[4], 1.0);
  // Length 0.1 divides [0, 1] (up to rounding): ten pieces, no sliver at the end.
  EXPECT_EQ(points(e, 0, 1, opts(1, 1e-3, -1, 0.1)).x.size(), 11u);

  // Error-driven x^2 on [0, 10] with error 1e-3: a chord over length h is off by h^2/4, so
  // h <= sqrt(4e-3) = 0.063246 and at least 10/0.063246 = 158.1, i.e. 159 pieces are needed.
  // The search accepts a piece once its error reaches 95% of the allowed one, so at most
  // 10 / (sqrt(0.95) * 0.063246) = 162.2, i.e. 163 pieces. Halfway lines (ratio 0.5) may
  // have twice the gap: 10/sqrt(8e-3) = 111.8 -> between 112 and 115 pieces.
  GenConstrData sq = func(GenType::kPoly, 0, {1, 0, 0});
  int n = sloped_pieces(points(sq, 0, 10, opts(-1, 1e-3)));
  EXPECT_GE(n, 159);
  EXPECT_LE(n, 163);
  int h = sloped_pieces(points(sq, 0, 10, opts(0, 1e-3, 0.5)));
  EXPECT_GE(h, 112);
  EXPECT_LE(h, 115);

  // A range narrower than the rounding floor of the search is one piece, not a failure; a
  // sine over [-1e-13, 1] has a stretch of 1e-13 left of its inflection point at 0.
  EXPECT_EQ(points(e, 1, 1 + 1e-14, opts(0)).x.size(), 2u);
  EXPECT_EQ(points(func(GenType::kSin), -1e-13, 1, opts(0)).x.front(), -1e-13);
  // log looks the same on [x, cx] at every scale, so [1e-300, 1] is covered by pieces of one
  // ratio c. The chord of [x, cx] is off by ln((c-1)/ln c) - 1 + ln c/(c-1), which is 1e-3 at
  // c = 1.09357: at least ln(1e300)/ln(c) = 7723 pieces; accepting pieces at 95% of the error
  // (c - 1 at least sqrt(0.95) as large) at most 7915.
  PwlPoints tiny = points(func(GenType::kLog), 1e-300, 1, opts(-1, 1e-3));
  EXPECT_GE(sloped_pieces(tiny), 7723);
  EXPECT_LE(sloped_pieces(tiny), 7915);
  EXPECT_LE(deviation(tiny, [](double x) { return std::log(x); }).below, 1e-3 * (1 + 1e-6));
  // Equal pieces over a range a few units in the last place wide keep distinct points.
  PwlPoints narrow =
      points(e, 1, std::nextafter(std::nextafter(1.0, 2.0), 2.0), opts(10, 1e-3, 0.0));
  EXPECT_EQ(narrow.x.size(), 3u);
  // A fixed x gives one zero-length piece.
  PwlPoints fixed = points(e, 1, 1, opts(0));
  ASSERT_EQ(fixed.x.size(), 2u);
  EXPECT_EQ(fixed.x[0], 1.0);
  EXPECT_DOUBLE_EQ(fixed.y[1], std::exp(1.0));
}

TEST(FuncBreakpointsTest, InfiniteBoundsAreClippedToFuncMaxVal) {
  // log on [1, inf) with FuncMaxVal 1e4 spans [1, 1e4]; logistic on (-inf, inf) spans +-1e4.
  PwlPoints lg = points(func(GenType::kLog), 1, VLM_INFINITY, opts(-1, 1e-3, -1, 1e-2, 1e4));
  EXPECT_EQ(lg.x.front(), 1.0);
  EXPECT_EQ(lg.x.back(), 1e4);
  EXPECT_LE(deviation(lg, [](double x) { return std::log(x); }).below, 1e-3 * (1 + 1e-6));
  PwlPoints ls =
      points(func(GenType::kLogistic), -VLM_INFINITY, VLM_INFINITY, opts(-1, 1e-3, -1, 1e-2, 1e4));
  EXPECT_EQ(ls.x.front(), -1e4);
  EXPECT_EQ(ls.x.back(), 1e4);
  EXPECT_LT(sloped_pieces(ls), 200);
  Deviation dl = deviation(ls, [](double x) { return 1 / (1 + std::exp(-x)); });
  EXPECT_LE(std::max(dl.above, dl.below), 1e-3 * (1 + 1e-6));
  // Far left, exp and its derivatives underflow to 0; the left tail must still be measured as
  // convex. A chord of e^x over length h is off by at most e^x h^2 / 8, so about
  // integral sqrt(e^x / 8e-3) dx = 2 e^(2/2) / sqrt(8e-3) = 60.8 pieces cover (-inf, 2].
  PwlPoints ex = points(func(GenType::kExp), -VLM_INFINITY, 2, opts(-1, 1e-3, 0.0, 1e-2, 1e4));
  EXPECT_EQ(ex.x.front(), -1e4);
  Deviation de = deviation(ex, [](double x) { return std::exp(x); });
  EXPECT_LE(de.below, 1e-3 * (1 + 1e-6));
  EXPECT_LE(de.above, 1e-12);
  EXPECT_GE(sloped_pieces(ex), 61);
  EXPECT_LE(sloped_pieces(ex), 66);
}

// ---- options ----------------------------------------------------------------------------------

TEST(FuncOptionsTest, AttributeBeatsOptionsTextBeatsParameter) {
  ParamSet params;  // defaults: FuncPieces 0, length 1e-2, error 1e-3, ratio -1, max 1e6
  ASSERT_TRUE(params.set_dbl(*params.lookup("FuncPieceError"), 1e-2).ok());
  ModelData d;
  GenConstrData g = func(GenType::kExp);
  g.options = "funcpieces=5, FuncPieceRatio=0.25";
  d.genconstrs = {func(GenType::kSin), g};

  FuncOptions plain = func_options(d, 0, params);
  EXPECT_EQ(plain.pieces_count, 0);
  EXPECT_EQ(plain.piece_length, 1e-2);
  EXPECT_EQ(plain.piece_error, 1e-2);
  EXPECT_EQ(plain.piece_ratio, -1);
  EXPECT_EQ(plain.max_val, 1e6);

  FuncOptions text = func_options(d, 1, params);
  EXPECT_EQ(text.pieces_count, 5);
  EXPECT_EQ(text.piece_ratio, 0.25);
  EXPECT_EQ(text.piece_error, 1e-2);

  // An attribute column holding -1 (unset) leaves the text in force; another value wins.
  auto& cols = d.extra[VLM_KIND_GENCONSTR].num;
  cols[find_attr("FuncPieces")].v = {-1, 9};
  cols[find_attr("FuncPieceRatio")].v = {-1, -1};
  cols[find_attr("FuncPieceLength")].v = {0.5, -1};
  FuncOptions attr1 = func_options(d, 1, params);
  EXPECT_EQ(attr1.pieces_count, 9);
  EXPECT_EQ(attr1.piece_ratio, 0.25);
  EXPECT_EQ(attr1.piece_length, 1e-2);
  EXPECT_EQ(func_options(d, 0, params).piece_length, 0.5);
}

// The same through the C API, so that the options are read where the library stores them:
// parameters on the model's environment, attributes set by element, the options text.
// exp(x) on [0, 1] with FuncPieces 4 set as an attribute gives 4 pieces, 5 points.
class FuncOptionsStoreTest : public ModelFixture {};

TEST_F(FuncOptionsStoreTest, OptionsSetThroughTheLibraryReachTheBreakpoints) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 1, 'C', "x"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 10, 'C', "y"), VLM_OK);
  ASSERT_EQ(VLMaddgenconstrExp(m_, "e1", 0, 1, "FuncPieceRatio=1"), VLM_OK);
  ASSERT_EQ(VLMaddgenconstrExp(m_, "e2", 0, 1, nullptr), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "FuncPieceError", 0.05), VLM_OK);
  ASSERT_EQ(VLMsetintattrelement(m_, "FuncPieces", 0, 4), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  const ModelData& d = m_->model->data();
  const ParamSet& params = m_->model->env().params();

  FuncOptions o1 = func_options(d, 0, params), o2 = func_options(d, 1, params);
  EXPECT_EQ(o1.pieces_count, 4);
  EXPECT_EQ(o1.piece_ratio, 1);
  EXPECT_EQ(o2.pieces_count, 0);
  EXPECT_EQ(o2.piece_error, 0.05);
  PwlPoints p1 = points(d.genconstrs[0], d.lb[0], d.ub[0], o1);
  EXPECT_EQ(sloped_pieces(p1), 4);
  EXPECT_LE(deviation(p1, [](double x) { return std::exp(x); }).below, 1e-12);

  // The one-call form gives the same points, and names x as the model does.
  auto direct = func_breakpoints(d, 0, 0, 1, params);
  ASSERT_TRUE(direct.ok());
  EXPECT_EQ(direct->x, p1.x);
  EXPECT_EQ(direct->y, p1.y);
  auto refused = func_breakpoints(d, 1, 0, VLM_INFINITY, params);
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(
      refused.status().message(),
      "Function constraint 'e2' (y = exp(x)): |y| reaches inf at x = 1e+06, beyond FuncMaxVal "
      "1e+06; give variable 'x' an upper bound of at most 13.8155 or raise FuncMaxVal (its "
      "bounds are [0, inf], clipped to [0, 1e+06] by FuncMaxVal)");
}

// ---- refusals ---------------------------------------------------------------------------------

void expect_error(const GenConstrData& g, double lb, double ub, const FuncOptions& o, int code,
                  const std::string& message) {
  auto r = func_breakpoints(g, lb, ub, o, "x");
  ASSERT_FALSE(r.ok()) << message;
  EXPECT_EQ(r.status().code(), code) << r.status().message();
  EXPECT_EQ(r.status().message(), message);
}

TEST(FuncBreakpointsErrorTest, DomainViolationsNameTheConstraintAndTheBoundToSet) {
  const int inv = VLM_ERROR_INVALID_ARGUMENT;
  expect_error(
      func(GenType::kLog), 0, 5, opts(0), inv,
      "Function constraint 'g' (y = log(x)): log(x) is undefined for x <= 0; give variable 'x' "
      "a lower bound above 0 (its bounds are [0, 5])");
  expect_error(
      func(GenType::kLogA, 2), -VLM_INFINITY, 5, opts(0), inv,
      "Function constraint 'g' (y = log_2(x)): log_2(x) is undefined for x <= 0; give variable 'x' "
      "a lower bound above 0 (its bounds are [-inf, 5], clipped to [-1e+06, 5] by FuncMaxVal)");
  expect_error(
      func(GenType::kPow, 0.5), -1, 4, opts(0), inv,
      "Function constraint 'g' (y = x^0.5): x^0.5 with a fractional exponent is undefined for "
      "x < 0; give variable 'x' a lower bound of at least 0 (its bounds are [-1, 4])");
  expect_error(
      func(GenType::kPow, -0.5), 0, 4, opts(0), inv,
      "Function constraint 'g' (y = x^-0.5): x^-0.5 is undefined at x = 0; give variable 'x' a "
      "lower bound above 0 (its bounds are [0, 4])");
  expect_error(
      func(GenType::kPow, -1), -1, 1, opts(0), inv,
      "Function constraint 'g' (y = x^-1): x^-1 is undefined at x = 0; give variable 'x' bounds "
      "on one side of 0 (its bounds are [-1, 1])");
  expect_error(
      func(GenType::kTan), 0, 2, opts(0), inv,
      "Function constraint 'g' (y = tan(x)): tan(x) has a pole at x = 1.5708 inside the bounds; "
      "give variable 'x' bounds inside (-1.5708, 1.5708) (its bounds are [0, 2])");
  // Free x: the advice is the interval around 0.
  expect_error(
      func(GenType::kTan), -VLM_INFINITY, VLM_INFINITY, opts(0), inv,
      "Function constraint 'g' (y = tan(x)): tan(x) has a pole at x = 1.5708 inside the bounds; "
      "give variable 'x' bounds inside (-1.5708, 1.5708) (its bounds are [-inf, inf], clipped to "
      "[-1e+06, 1e+06] by FuncMaxVal)");
  // A bound exactly on the pole is refused too (tan is infinite there).
  expect_error(
      func(GenType::kTan), 2, std::numbers::pi / 2 + std::numbers::pi, opts(0), inv,
      "Function constraint 'g' (y = tan(x)): tan(x) has a pole at x = 4.71239 inside the bounds; "
      "give variable 'x' bounds inside (1.5708, 4.71239) (its bounds are [2, 4.71239])");
}

TEST(FuncBreakpointsErrorTest, ValuesBeyondFuncMaxValSayWhichBoundToSet) {
  const int inv = VLM_ERROR_INVALID_ARGUMENT;
  // exp(x) <= 1e6 needs x <= ln 1e6 = 13.8155.
  expect_error(
      func(GenType::kExp), 0, VLM_INFINITY, opts(0), inv,
      "Function constraint 'g' (y = exp(x)): |y| reaches inf at x = 1e+06, beyond FuncMaxVal "
      "1e+06; "
      "give variable 'x' an upper bound of at most 13.8155 or raise FuncMaxVal (its bounds are "
      "[0, inf], clipped to [0, 1e+06] by FuncMaxVal)");
  // 0.5^x <= 100 needs x >= -log2(100) = -6.64386.
  expect_error(
      func(GenType::kExpA, 0.5), -10, 0, opts(0, 1e-3, -1, 1e-2, 100), inv,
      "Function constraint 'g' (y = 0.5^x): |y| reaches 1024 at x = -10, beyond FuncMaxVal 100; "
      "give variable 'x' a lower bound of at least -6.64385 or raise FuncMaxVal (its bounds are "
      "[-10, 0])");
  // 1 - 400x^2 on [-1, 1] reaches -399 at both ends; |y| <= 100 needs x^2 <= 101/400, so
  // |x| <= 0.5024938, written inward as 0.502493.
  expect_error(func(GenType::kPoly, 0, {-400, 0, 1}), -1, 1, opts(0, 1e-3, -1, 1e-2, 100), inv,
               "Function constraint 'g' (y = -400x^2 + 1): |y| reaches 399 at x = -1, beyond "
               "FuncMaxVal 100; "
               "give variable 'x' a lower bound of at least -0.502493 and an upper bound of at "
               "most 0.502493 "
               "or raise FuncMaxVal (its bounds are [-1, 1])");
  expect_error(
      func(GenType::kPoly, 0, {-400, 0, 1000}), -2, 2, opts(0, 1e-3, -1, 1e-2, 100), inv,
      "Function constraint 'g' (y = -400x^2 + 1000): |y| reaches 1000 at x = 0, beyond FuncMaxVal "
      "100; change the bounds of variable 'x' or raise FuncMaxVal (its bounds are [-2, 2])");
  // x^3 on free x: both ends too far, the bounds go where x^3 = -+1e6 (x = -+100).
  expect_error(
      func(GenType::kPow, 3), -VLM_INFINITY, VLM_INFINITY, opts(0), inv,
      "Function constraint 'g' (y = x^3): |y| reaches 1e+18 at x = -1e+06, beyond FuncMaxVal "
      "1e+06; "
      "give variable 'x' a lower bound of at least -100 and an upper bound of at most 100 or raise "
      "FuncMaxVal (its bounds are [-inf, inf], clipped to [-1e+06, 1e+06] by FuncMaxVal)");
  // exp on [20, 30] is at least e^20 = 4.85165e8 throughout.
  expect_error(
      func(GenType::kExp), 20, 30, opts(0), inv,
      "Function constraint 'g' (y = exp(x)): |y| is at least 4.85165e+08 everywhere within the "
      "bounds, beyond FuncMaxVal 1e+06; change the bounds of variable 'x' or raise FuncMaxVal (its "
      "bounds are [20, 30])");
  expect_error(
      func(GenType::kSin), 0, VLM_INFINITY, opts(0, 1e-3, -1, 1e-2, VLM_INFINITY), inv,
      "Function constraint 'g' (y = sin(x)): variable 'x' needs a finite upper bound for the "
      "approximation (FuncMaxVal is infinite, so none is assumed)");
  expect_error(
      func(GenType::kSin), 2e6, 3e6, opts(0), inv,
      "Function constraint 'g' (y = sin(x)): the bounds [2e+06, 3e+06] of variable 'x' lie beyond "
      "FuncMaxVal 1e+06");
}

TEST(FuncBreakpointsErrorTest, TooManyPiecesAndUnreachableErrorsAreRefused) {
  const int big = VLM_ERROR_SIZE_LIMIT_EXCEEDED;
  // sin over +-1e6 changes curvature 636,620 times: more stretches than pieces allowed.
  const std::string advice =
      " pieces, more than the limit of 100000; tighten the bounds of variable 'x' or ask for fewer "
      "pieces (FuncPieces, FuncPieceLength, FuncPieceError)";
  expect_error(
      func(GenType::kSin), -VLM_INFINITY, VLM_INFINITY, opts(0), big,
      "Function constraint 'g' (y = sin(x)): the approximation over [-1e+06, 1e+06] needs more "
      "than 100000" +
          advice);
  // x^2 on [0, 1000] with error 1e-5 needs 1000 / sqrt(4e-5) = 158,114 pieces.
  expect_error(
      func(GenType::kPow, 2), 0, 1000, opts(-1, 1e-5), big,
      "Function constraint 'g' (y = x^2): the approximation over [0, 1000] needs more than 100000" +
          advice);
  expect_error(
      func(GenType::kExp), 0, 1, opts(1, 1e-3, -1, 1e-6), big,
      "Function constraint 'g' (y = exp(x)): the approximation over [0, 1] needs 1e+06" + advice);
  expect_error(
      func(GenType::kExp), 0, 1, opts(100001), big,
      "Function constraint 'g' (y = exp(x)): the approximation over [0, 1] needs 100001" + advice);
  // Near 13, exp is 4.4e5 and one unit in its last place 5.8e-11: an error of 1e-12 is below
  // what the arithmetic can tell. The noise floor is 8 * 2.220446e-16 * exp(13.001) = 7.8667e-10.
  expect_error(
      func(GenType::kExp), 13, 13.001, opts(-1, 1e-12), VLM_ERROR_NUMERIC,
      "Function constraint 'g' (y = exp(x)): FuncPieceError 1e-12 cannot be reached in double "
      "precision near x = 13, where rounding alone reaches 7.8667e-10; use a larger error");
}

TEST(FuncBreakpointsErrorTest, BadOptionsAndBadInputAreRefused) {
  const int range = VLM_ERROR_VALUE_OUT_OF_RANGE, inv = VLM_ERROR_INVALID_ARGUMENT;
  GenConstrData e = func(GenType::kExp);
  expect_error(e, 0, 1, opts(-3), range,
               "Function constraint 'g' (y = exp(x)): FuncPieces -3 is not one of 2 or more, 1, 0, "
               "-1 or -2");
  expect_error(e, 0, 1, opts(2.5), range,
               "Function constraint 'g' (y = exp(x)): FuncPieces 2.5 is not one of 2 or more, 1, "
               "0, -1 or -2");
  expect_error(
      e, 0, 1, opts(0, 1e-3, 1.5), range,
      "Function constraint 'g' (y = exp(x)): FuncPieceRatio 1.5 must be -1 or lie in [0, 1]");
  expect_error(
      e, 0, 1, opts(1, 1e-3, -1, 0), range,
      "Function constraint 'g' (y = exp(x)): FuncPieceLength 0 must be positive and finite");
  expect_error(
      e, 0, 1, opts(-2, -1), range,
      "Function constraint 'g' (y = exp(x)): FuncPieceError -1 must be positive and finite");
  expect_error(e, 2, 1, opts(0), inv,
               "Function constraint 'g' (y = exp(x)): variable 'x' has lower bound 2 above its "
               "upper bound 1");
  expect_error(e, std::nan(""), 1, opts(0), inv,
               "Function constraint 'g' (y = exp(x)): a bound of variable 'x' is NaN");
  GenConstrData mx = func(GenType::kMax);
  expect_error(mx, 0, 1, opts(0), inv,
               "General constraint 'g' of type MAX is not a function constraint");
  // Without a name for x, messages use the default column name.
  auto r = func_breakpoints(func(GenType::kLog), -1, 1, opts(0));
  ASSERT_FALSE(r.ok());
  EXPECT_NE(r.status().message().find("give variable 'C0' a lower bound above 0"),
            std::string::npos);
}

}  // namespace
}  // namespace vlm::reform
