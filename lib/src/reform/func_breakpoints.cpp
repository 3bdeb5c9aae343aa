#include "reform/func_breakpoints.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>

#include "attrs/attr_table.h"
#include "core/text.h"
#include "reform/func_kinds.h"

namespace vlm::reform {
namespace {

std::string num(double v) {
  if (std::fabs(v) >= VLM_INFINITY) return v > 0 ? "inf" : "-inf";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.6g", v);
  return buf;
}

// `v` written with 6 significant digits, rounded toward the inside of the allowed range (down
// for an upper bound), so that the number in a message is itself a bound that works.
std::string num_inward(double v, bool down) {
  std::string s = num(v);
  double w = *parse_double(s);
  if (down ? w <= v : w >= v) return s;
  double step = std::pow(10.0, std::floor(std::log10(std::fabs(v))) - 5);
  return num(down ? w - step : w + step);
}

// The value of `key` in an options text of Name=value words, or nothing when absent.
std::optional<double> option_in_text(const std::string& options, std::string_view key) {
  std::size_t pos = 0;
  while (pos < options.size()) {
    while (pos < options.size() &&
           (options[pos] == ' ' || options[pos] == ',' || options[pos] == '\t'))
      ++pos;
    std::size_t end = options.find_first_of(" ,\t", pos);
    if (end == std::string::npos) end = options.size();
    std::string_view word(options.data() + pos, end - pos);
    pos = end;
    std::size_t eq = word.find('=');
    if (eq == std::string_view::npos || !iequals(word.substr(0, eq), key)) continue;
    if (auto v = parse_double(word.substr(eq + 1))) return v;
  }
  return std::nullopt;
}

// One piece [p, q] of the approximation with its chord and how far f strays from it.
struct Piece {
  double p, q, fp, fq;
  double below = 0.0;  // max over [p, q] of chord - f, >= 0
  double above = 0.0;  // max over [p, q] of f - chord, >= 0
  int seg = -1;        // convexity stretch holding the whole piece, -1 when it spans a change
  int sigma = 0;       // +1 convex, -1 concave, 0 linear or spanning
  double slope() const { return (fq - fp) / (q - p); }
};

class Builder {
 public:
  Builder(const UnivariateFunction& f, const FuncOptions& opt, std::string who, std::string xname)
      : f_(f), opt_(opt), who_(std::move(who)), xname_(std::move(xname)) {}

  StatusOr<PwlPoints> run(double lo, double hi);

 private:
  Status fail(int code, const std::string& what) const { return Status(code, who_ + ": " + what); }
  // SIZE_LIMIT_EXCEEDED; `needed` is the count when known, else negative.
  Status too_many(double needed) const;
  Status precision_failure(double x, double noise) const;
  int stretch_of(double x) const;
  double solve_slope(double a, double b, double s, int sigma) const;
  void measure(Piece& pc) const;
  double min_abs_f(double p, double q) const;
  double allowed(const Piece& pc) const;
  Status error_driven(double lo, double hi, std::vector<Piece>& out) const;
  Status greedy_stretch(double s, double t, std::vector<Piece>& out) const;
  Piece make_piece(double p, double q) const;
  PwlPoints assemble(const std::vector<Piece>& pieces) const;

  const UnivariateFunction& f_;
  const FuncOptions& opt_;
  std::string who_, xname_;
  std::vector<double> infl_;  // inflection points inside (lo, hi), ascending
  std::vector<int> curv_;     // curvature of each stretch between them (lo, infl..., hi)
  std::vector<double> ext_;   // extrema inside (lo, hi), ascending
  double lo_ = 0.0, hi_ = 0.0;
};

Status Builder::too_many(double needed) const {
  return fail(VLM_ERROR_SIZE_LIMIT_EXCEEDED,
              "the approximation over [" + num(lo_) + ", " + num(hi_) + "] needs " +
                  (needed >= 0.0 ? num(needed) : "more than " + std::to_string(kMaxFuncPieces)) +
                  " pieces, more than the limit of " + std::to_string(kMaxFuncPieces) +
                  "; tighten the bounds of variable '" + xname_ +
                  "' or ask for fewer pieces (FuncPieces, FuncPieceLength, FuncPieceError)");
}

Status Builder::precision_failure(double x, double noise) const {
  std::string s = "FuncPieceError " + num(opt_.piece_error) +
                  " cannot be reached in double precision near x = " + num(x);
  if (noise > 0.0) s += ", where rounding alone reaches " + num(noise);
  return fail(VLM_ERROR_NUMERIC, s + "; use a larger error");
}

// Index of the convexity stretch holding x: 0 left of the first inflection point, and so on.
int Builder::stretch_of(double x) const {
  return static_cast<int>(std::upper_bound(infl_.begin(), infl_.end(), x) - infl_.begin());
}

// A point of [a, b] where f'(x) = s, on a stretch where f' rises (sigma +1) or falls (-1);
// an end when s lies outside f'([a, b]).
double Builder::solve_slope(double a, double b, double s, int sigma) const {
  auto h = [&](double x) { return sigma * (f_.d1(x) - s); };
  if (!(h(a) < 0.0)) return a;
  if (!(h(b) > 0.0)) return b;
  for (int it = 0; it < 100; ++it) {
    double m = 0.5 * (a + b);
    if (m <= a || m >= b) break;
    if (h(m) < 0.0)
      a = m;
    else
      b = m;
  }
  return 0.5 * (a + b);
}

// Fills below/above of a piece. On each convexity stretch inside [p, q] the gap g = chord - f
// is concave (f convex) or convex (f concave), so its extremes lie at the stretch's ends or
// where f' equals the chord slope; evaluating g there gives both maxima exactly.
void Builder::measure(Piece& pc) const {
  const double s = pc.slope();
  auto gap = [&](double x) { return pc.fp + s * (x - pc.p) - f_.value(x); };
  auto first = std::upper_bound(infl_.begin(), infl_.end(), pc.p);
  double a = pc.p;
  double below = 0.0, above = 0.0;
  auto take = [&](double x) {
    double g = gap(x);
    if (std::isnan(g)) g = INFINITY;
    below = std::max(below, g);
    above = std::max(above, -g);
  };
  for (auto it = first;; ++it) {
    double b = (it != infl_.end() && *it < pc.q) ? *it : pc.q;
    int sigma = curv_[static_cast<std::size_t>(stretch_of(0.5 * (a + b)))];
    if (sigma != 0) take(solve_slope(a, b, s, sigma));
    if (b != pc.q) take(b);
    if (b == pc.q) break;
    a = b;
  }
  pc.below = below;
  pc.above = above;
}

// Smallest |f| over [p, q]: 0 when f changes sign, else the least |f| at the ends and extrema.
double Builder::min_abs_f(double p, double q) const {
  double m = INFINITY, fp = f_.value(p);
  bool neg = fp < 0.0, pos = fp > 0.0;
  auto take = [&](double v) {
    m = std::min(m, std::fabs(v));
    neg = neg || v < 0.0;
    pos = pos || v > 0.0;
  };
  take(fp);
  for (auto it = std::upper_bound(ext_.begin(), ext_.end(), p); it != ext_.end() && *it < q; ++it) {
    take(f_.value(*it));
  }
  take(f_.value(q));
  return neg && pos ? 0.0 : m;
}

// The largest gap (below + above, or the larger of them for points on f) that keeps the
// error of this piece within FuncPieceError.
double Builder::allowed(const Piece& pc) const {
  double tol = opt_.piece_error;
  if (opt_.pieces_count == -2) tol *= std::max(1.0, min_abs_f(pc.p, pc.q));
  if (opt_.piece_ratio >= 0.0) tol /= std::max(opt_.piece_ratio, 1.0 - opt_.piece_ratio);
  return tol;
}

Piece Builder::make_piece(double p, double q) const {
  Piece pc{p, q, f_.value(p), f_.value(q)};
  int sp = stretch_of(p);
  // A piece ending exactly on an inflection point still lies within one stretch.
  bool spans = std::upper_bound(infl_.begin(), infl_.end(), p) != infl_.end() &&
               *std::upper_bound(infl_.begin(), infl_.end(), p) < q;
  if (!spans) {
    pc.seg = sp;
    pc.sigma = curv_[static_cast<std::size_t>(sp)];
  }
  return pc;
}

// Greedy over one convexity stretch [s, t]: from the current point take the longest piece
// whose error is allowed. The gap of a chord grows with the piece on a convex or concave
// stretch, so "allowed" is monotone in the end point and the search below is sound; the gap
// grows about with the square of the length, which gives the next guess.
Status Builder::greedy_stretch(double s, double t, std::vector<Piece>& out) const {
  double x0 = s, guess = t - s;
  while (x0 < t) {
    const double rem = t - x0;
    // Lengths are resolved down to a few hundred units in the last place of x0.
    const double floor = 1e-14 * std::fabs(x0) + std::numeric_limits<double>::min();
    double good = 0.0, bad = INFINITY, h = std::min(guess, rem);
    std::optional<Piece> best;
    // Where the gap grows slower than the square of the length (log near 0, where it grows
    // with log(h / x0)), each guess shrinks h only by sqrt(gap / allowed): up to about a
    // hundred guesses from a whole stretch down to the first piece.
    for (int it = 0; it < 300; ++it) {
      double q = h >= rem ? t : x0 + h;
      Piece pc = make_piece(x0, q);
      measure(pc);
      double gap = opt_.piece_ratio >= 0.0 ? pc.below + pc.above : std::max(pc.below, pc.above);
      const double tol = allowed(pc);
      // Below a few units in the last place of f, a measured gap is rounding noise and may
      // even come out 0: such an error cannot be promised.
      const double noise =
          8 * std::numeric_limits<double>::epsilon() * std::max(std::fabs(pc.fp), std::fabs(pc.fq));
      if (tol < noise) return precision_failure(x0, noise);
      double ratio = gap / tol;
      if (std::isnan(ratio)) ratio = INFINITY;
      if (ratio <= 1.0) {
        good = h;
        best = pc;
        if (q == t || ratio >= 0.95) break;
      } else {
        bad = h;
      }
      double next = ratio > 0.0 ? h / std::sqrt(ratio) * 0.985 : 4.0 * h;
      if (!std::isfinite(next)) next = 0.5 * h;
      if (std::isinf(bad)) {
        next = std::min(next, rem);
        if (next <= good) next = std::min(2.0 * good, rem);
      } else if (!(next > good && next < bad)) {
        next = 0.5 * (good + bad);
      }
      if (bad - good <= floor) break;
      h = next;
    }
    // A short piece is fine where the stretch ends; elsewhere it means the search ran into
    // rounding.
    if (!best || (best->q != t && good <= 10 * floor)) {
      return precision_failure(x0, 0.0);
    }
    out.push_back(*best);
    if (out.size() > static_cast<std::size_t>(kMaxFuncPieces)) return too_many(-1.0);
    guess = good;
    x0 = best->q;
  }
  return Status::Ok();
}

Status Builder::error_driven(double lo, double hi, std::vector<Piece>& out) const {
  double s = lo;
  for (std::size_t i = 0; i <= infl_.size(); ++i) {
    double t = i < infl_.size() ? infl_[i] : hi;
    VLM_RETURN_IF_ERROR(greedy_stretch(s, t, out));
    s = t;
  }
  return Status::Ok();
}

// Points of the approximation. A piece's line is its chord moved by -below + ratio * gap, so it
// runs between the line touching f from below and the one touching it from above. In one
// convex stretch the approximation is the upper envelope of these lines (each lies under f
// outside its own piece), so neighbours meet where they cross; concave stretches take the lower
// envelope. A crossing is used only within the two pieces' span, which keeps every point
// within the bound of the piece it lies over.
PwlPoints Builder::assemble(const std::vector<Piece>& pieces) const {
  PwlPoints out;
  const double r = opt_.piece_ratio;
  if (r < 0.0) {
    out.x.push_back(pieces.front().p);
    out.y.push_back(pieces.front().fp);
    for (const Piece& pc : pieces) {
      out.x.push_back(pc.q);
      out.y.push_back(pc.fq);
    }
    return out;
  }
  auto shift = [r](const Piece& pc) { return -pc.below + r * (pc.below + pc.above); };
  auto line = [&](const Piece& pc, double x) {
    return pc.fp + shift(pc) + pc.slope() * (x - pc.p);
  };
  auto push = [&](double x, double y) {
    out.x.push_back(x);
    out.y.push_back(y);
  };
  push(pieces.front().p, line(pieces.front(), pieces.front().p));
  for (std::size_t i = 0; i + 1 < pieces.size(); ++i) {
    const Piece &a = pieces[i], &b = pieces[i + 1];
    if (a.seg >= 0 && a.seg == b.seg && a.sigma != 0 && a.sigma == b.sigma &&
        a.sigma * (b.slope() - a.slope()) > 0.0) {
      double x = a.q + (line(b, a.q) - line(a, a.q)) / (a.slope() - b.slope());
      if (x >= a.p && x <= b.q && x > out.x.back()) {
        push(x, line(a, x));
        continue;
      }
    }
    double ya = line(a, a.q), yb = line(b, a.q);
    push(a.q, ya);
    if (std::fabs(ya - yb) > 1e-12 * std::max(1.0, std::fabs(ya))) push(a.q, yb);
  }
  push(pieces.back().q, line(pieces.back(), pieces.back().q));
  return out;
}

StatusOr<PwlPoints> Builder::run(double lo, double hi) {
  lo_ = lo;
  hi_ = hi;
  if (lo == hi) {
    double v = f_.value(lo);
    return PwlPoints{{lo, lo}, {v, v}};
  }
  const double pc = opt_.pieces_count;
  const bool by_error = pc <= 0.0;
  infl_ = f_.inflections(lo, hi, kMaxFuncPieces);
  if (infl_.size() >= static_cast<std::size_t>(kMaxFuncPieces) &&
      (by_error || opt_.piece_ratio >= 0.0)) {
    // Error-driven pieces need one per convexity stretch, and the ratio rule measures every
    // stretch inside a piece.
    return too_many(-1.0);
  }
  for (std::size_t k = 0; k <= infl_.size(); ++k) {
    curv_.push_back(f_.curvature(k == 0 ? lo : infl_[k - 1], k == infl_.size() ? hi : infl_[k]));
  }
  if (opt_.pieces_count == -2) ext_ = f_.extrema(lo, hi, kMaxFuncPieces);

  std::vector<Piece> pieces;
  if (by_error) {
    VLM_RETURN_IF_ERROR(error_driven(lo, hi, pieces));
  } else {
    std::vector<double> xs;
    if (pc >= 2.0) {
      if (pc > kMaxFuncPieces) return too_many(pc);
      const int n = static_cast<int>(pc);
      for (int i = 0; i < n; ++i) xs.push_back(lo + (hi - lo) * (static_cast<double>(i) / n));
    } else {
      const double len = opt_.piece_length;
      // A remainder below 1e-9 of a length joins the last piece instead of making a sliver.
      double n = std::max(1.0, std::ceil((hi - lo) / len - 1e-9));
      if (!(n <= kMaxFuncPieces)) return too_many(n);
      for (int i = 0; i < static_cast<int>(n); ++i) xs.push_back(lo + len * i);
    }
    xs.push_back(hi);
    // Over a range only a few units in the last place wide, neighbours may round to one x.
    xs.erase(std::unique(xs.begin(), xs.end()), xs.end());
    for (std::size_t i = 0; i + 1 < xs.size(); ++i) {
      Piece p = make_piece(xs[i], xs[i + 1]);
      if (opt_.piece_ratio >= 0.0) measure(p);
      pieces.push_back(p);
    }
  }
  PwlPoints pts = assemble(pieces);
  for (std::size_t i = 0; i < pts.y.size(); ++i) {
    if (!std::isfinite(pts.y[i])) {
      return fail(VLM_ERROR_NUMERIC, "the approximation is not finite at x = " + num(pts.x[i]));
    }
  }
  return pts;
}

Status check_options(const FuncOptions& o, const std::string& who) {
  auto bad = [&](const std::string& what) {
    return Status(VLM_ERROR_VALUE_OUT_OF_RANGE, who + ": " + what);
  };
  const double pc = o.pieces_count;
  if (!(std::floor(pc) == pc) || pc < -2.0) {
    return bad("FuncPieces " + num(pc) + " is not one of 2 or more, 1, 0, -1 or -2");
  }
  if (pc == 1.0 && !(o.piece_length > 0.0 && o.piece_length < VLM_INFINITY)) {
    return bad("FuncPieceLength " + num(o.piece_length) + " must be positive and finite");
  }
  if (pc <= 0.0 && !(o.piece_error > 0.0 && o.piece_error < VLM_INFINITY)) {
    return bad("FuncPieceError " + num(o.piece_error) + " must be positive and finite");
  }
  if (!(o.piece_ratio == -1.0 || (o.piece_ratio >= 0.0 && o.piece_ratio <= 1.0))) {
    return bad("FuncPieceRatio " + num(o.piece_ratio) + " must be -1 or lie in [0, 1]");
  }
  if (!(o.max_val > 0.0)) return bad("FuncMaxVal " + num(o.max_val) + " must be positive");
  return Status::Ok();
}

// |f| must stay within FuncMaxVal (m) over [lo, hi]. The points where |f| can be largest or
// least are the ends, the extrema, and a zero of f on each monotone stretch where f changes
// sign: between two neighbours of that list f is monotone and of one sign, so |f| is monotone
// too. When only the ends go too far, the bound to set is where |f| crosses m between an end
// and its neighbour. `refuse(what, fix)` builds the failure; `fix` is "" when no single bound
// fixes it.
template <class Refuse>
Status check_range(const UnivariateFunction& f, double lo, double hi, double m, Refuse refuse) {
  auto abs_f = [&](double v) {
    double a = std::fabs(f.value(v));
    return std::isnan(a) ? INFINITY : a;
  };
  auto too_far = [&](double v) { return !(abs_f(v) <= m); };
  std::vector<double> ends{lo};
  for (double e : f.extrema(lo, hi, kMaxFuncPieces)) ends.push_back(e);
  ends.push_back(hi);
  std::vector<double> pts{lo};
  for (std::size_t i = 0; i + 1 < ends.size(); ++i) {
    double a = ends[i], b = ends[i + 1];
    const bool neg_a = f.value(a) < 0.0;
    if (neg_a != (f.value(b) < 0.0) && f.value(a) != 0.0 && f.value(b) != 0.0) {
      for (int it = 0; it < 200; ++it) {
        double mid = 0.5 * (a + b);
        if (mid == a || mid == b) break;
        ((f.value(mid) < 0.0) == neg_a ? a : b) = mid;
      }
      pts.push_back(a);
    }
    pts.push_back(ends[i + 1]);
  }
  std::size_t worst = 0, least = 0;
  for (std::size_t i = 0; i < pts.size(); ++i) {
    if (abs_f(pts[i]) > abs_f(pts[worst])) worst = i;
    if (abs_f(pts[i]) < abs_f(pts[least])) least = i;
  }
  if (!too_far(pts[worst])) return Status::Ok();
  if (too_far(pts[least])) {
    return refuse("|y| is at least " + num(abs_f(pts[least])) +
                      " everywhere within the bounds, beyond FuncMaxVal " + num(m),
                  "");
  }
  const std::string what = "|y| reaches " + num(abs_f(pts[worst])) + " at x = " + num(pts[worst]) +
                           ", beyond FuncMaxVal " + num(m);
  for (std::size_t i = 1; i + 1 < pts.size(); ++i) {
    if (too_far(pts[i])) return refuse(what, "");
  }
  auto crossing = [&](double in, double out) {
    for (int it = 0; it < 200; ++it) {
      double mid = 0.5 * (in + out);
      if (mid == in || mid == out) break;
      (too_far(mid) ? out : in) = mid;
    }
    return in;
  };
  std::string fix;
  if (too_far(lo)) fix = "a lower bound of at least " + num_inward(crossing(pts[1], lo), false);
  if (too_far(hi)) {
    if (!fix.empty()) fix += " and ";
    fix += "an upper bound of at most " + num_inward(crossing(pts[pts.size() - 2], hi), true);
  }
  return refuse(what, fix);
}

}  // namespace

FuncOptions func_options(const GenConstrData& g, const ParamSet& params) {
  auto pick = [&](std::string_view key, double param) {
    auto v = option_in_text(g.options, key);
    return v ? *v : param;
  };
  FuncOptions o;
  o.pieces_count = pick("FuncPieces", params.int_param("FuncPieces"));
  o.piece_length = pick("FuncPieceLength", params.dbl_param("FuncPieceLength"));
  o.piece_error = pick("FuncPieceError", params.dbl_param("FuncPieceError"));
  o.piece_ratio = pick("FuncPieceRatio", params.dbl_param("FuncPieceRatio"));
  o.max_val = params.dbl_param("FuncMaxVal");
  return o;
}

FuncOptions func_options(const ModelData& d, int index, const ParamSet& params) {
  const GenConstrData& g = d.genconstrs[static_cast<std::size_t>(index)];
  FuncOptions o = func_options(g, params);
  const auto& cols = d.extra[VLM_KIND_GENCONSTR].num;
  auto attr = [&](const char* name, double& field) {
    auto it = cols.find(find_attr(name));
    if (it == cols.end() || static_cast<std::size_t>(index) >= it->second.v.size()) return;
    double v = it->second.v[static_cast<std::size_t>(index)];
    if (v != -1.0) field = v;
  };
  attr("FuncPieces", o.pieces_count);
  attr("FuncPieceLength", o.piece_length);
  attr("FuncPieceError", o.piece_error);
  attr("FuncPieceRatio", o.piece_ratio);
  return o;
}

StatusOr<PwlPoints> func_breakpoints(const GenConstrData& g, double lb, double ub,
                                     const FuncOptions& opt, std::string_view xname) {
  VLM_ASSIGN_OR_RETURN(UnivariateFunction f, UnivariateFunction::of(g));
  const std::string who = "Function constraint '" + g.name + "' (y = " + f.formula() + ")";
  const std::string x = xname.empty() ? "C" + std::to_string(g.arg) : std::string(xname);
  VLM_RETURN_IF_ERROR(check_options(opt, who));
  auto invalid = [&](const std::string& what) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, who + ": " + what);
  };
  if (std::isnan(lb) || std::isnan(ub)) return invalid("a bound of variable '" + x + "' is NaN");
  if (lb > ub) {
    return invalid("variable '" + x + "' has lower bound " + num(lb) + " above its upper bound " +
                   num(ub));
  }
  const double m = opt.max_val;
  if (m >= VLM_INFINITY && (lb <= -VLM_INFINITY || ub >= VLM_INFINITY)) {
    return invalid(std::string("variable '") + x + "' needs a finite " +
                   (lb <= -VLM_INFINITY ? "lower" : "upper") +
                   " bound for the approximation (FuncMaxVal is infinite, so none is assumed)");
  }
  if (lb > m || ub < -m) {
    return invalid("the bounds [" + num(lb) + ", " + num(ub) + "] of variable '" + x +
                   "' lie beyond FuncMaxVal " + num(m));
  }
  const double lo = std::max(lb, -m), hi = std::min(ub, m);
  const bool lo_clipped = lo != lb, hi_clipped = hi != ub;
  auto bounds_text = [&] {
    std::string s = "its bounds are [" + num(lb) + ", " + num(ub) + "]";
    if (lo_clipped || hi_clipped)
      s += ", clipped to [" + num(lo) + ", " + num(hi) + "] by FuncMaxVal";
    return s;
  };

  UnivariateFunction::DomainCheck dc = f.check_domain(lo, hi);
  if (!dc.ok) {
    return invalid(dc.problem + "; give variable '" + x + "' " + dc.fix + " (" + bounds_text() +
                   ")");
  }

  VLM_RETURN_IF_ERROR(
      check_range(f, lo, hi, m, [&](const std::string& what, const std::string& fix) {
        return invalid(what + "; " +
                       (fix.empty() ? "change the bounds of variable '" + x + "'"
                                    : "give variable '" + x + "' " + fix) +
                       " or raise FuncMaxVal (" + bounds_text() + ")");
      }));

  Builder b(f, opt, who, x);
  return b.run(lo, hi);
}

StatusOr<PwlPoints> func_breakpoints(const ModelData& d, int index, double lb, double ub,
                                     const ParamSet& params) {
  const GenConstrData& g = d.genconstrs[static_cast<std::size_t>(index)];
  std::string xname = g.arg >= 0 && g.arg < d.num_vars() ? d.varname[g.arg] : std::string();
  return func_breakpoints(g, lb, ub, func_options(d, index, params), xname);
}

}  // namespace vlm::reform
