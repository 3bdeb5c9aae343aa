#include "reform/reform_func.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "reform/big_m.h"
#include "reform/func_breakpoints.h"
#include "reform/func_kinds.h"
#include "reform/reform_pwl.h"

namespace vlm::reform {

namespace {

// y = f(x) over points without a jump, x within them, by the logarithmic formulation: the
// convex combination x = sum l_j x_j, y = sum l_j y_j, sum l_j = 1, and the SOS2 condition
// through ceil(log2 n) binaries z_k for n pieces. Piece s gets the reflected Gray code
// s ^ (s >> 1), so neighbouring pieces differ in one bit; for each bit k
//     sum of l_j over points whose every adjacent piece has bit k set    <= z_k
//     sum of l_j over points whose every adjacent piece has bit k clear  <= 1 - z_k
// leaves non-zero only the two points of the piece whose code z spells (a code no piece has
// leaves none, so it is infeasible). Against one binary per piece this keeps the search small
// for the hundreds or thousands of pieces an error-driven approximation makes.
void add_pwl_logarithmic(Builder& b, int x, int y, const std::vector<double>& xs, const std::vector<double>& ys) {
  const int np = static_cast<int>(xs.size()), pieces = np - 1;
  int bits = 1;
  while ((1 << bits) < pieces) ++bits;
  std::vector<int> lambda(np);
  for (int j = 0; j < np; ++j) lambda[j] = b.add_continuous(0.0, 1.0);
  std::vector<int> ind(lambda);
  ind.push_back(x);
  std::vector<double> val(xs);
  val.push_back(-1.0);
  b.add_eq(ind, val, 0.0);
  ind.back() = y;
  val.assign(ys.begin(), ys.end());
  val.push_back(-1.0);
  b.add_eq(ind, val, 0.0);
  b.add_eq(lambda, std::vector<double>(np, 1.0), 1.0);
  auto gray = [](int s) { return s ^ (s >> 1); };
  for (int k = 0; k < bits; ++k) {
    const int z = b.add_binary();
    std::vector<int> set_ind, clear_ind;
    for (int j = 0; j < np; ++j) {
      bool all_set = true, all_clear = true;
      for (int s : {j - 1, j}) {
        if (s < 0 || s >= pieces) continue;
        const bool bit = ((gray(s) >> k) & 1) != 0;
        all_set = all_set && bit;
        all_clear = all_clear && !bit;
      }
      if (all_set) set_ind.push_back(lambda[j]);
      if (all_clear) clear_ind.push_back(lambda[j]);
    }
    std::vector<double> ones(set_ind.size(), 1.0);
    set_ind.push_back(z);
    ones.push_back(-1.0);
    b.add_le(set_ind, ones, 0.0);
    ones.assign(clear_ind.size(), 1.0);
    clear_ind.push_back(z);
    ones.push_back(1.0);
    b.add_le(clear_ind, ones, 1.0);
  }
}

const ParamSet& params_of(const Builder& b) {
  static const ParamSet defaults;
  return b.options().params != nullptr ? *b.options().params : defaults;
}

class FuncReformulation final : public Reformulation {
 public:
  const char* name() const override { return "FUNCTION"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesContinuous | kCreatesRows; }

  using Reformulation::propagate;
  // y lies within the range of the approximation. With the points on f (FuncPieceRatio -1)
  // the approximation takes convex combinations of values of f over [L, U], so y lies in
  // [min f, max f] there; with an error-driven approximation off f by at most E (or
  // E max(1, |f|)), that range widened by it. A fixed piece count or length with a ratio in
  // [0, 1] has no error known before the points exist: nothing then (apply narrows y later).
  bool propagate(const ModelData& d, int index, Bounds& b, const ReformOptions& o) const override {
    const GenConstrData& g = d.genconstrs[index];
    static const ParamSet defaults;
    const FuncOptions opt = func_options(d, index, o.params != nullptr ? *o.params : defaults);
    double lo = b.lb[g.arg], hi = b.ub[g.arg];
    lo = std::max(lo, -opt.max_val);
    hi = std::min(hi, opt.max_val);
    if (!std::isfinite(lo) || !std::isfinite(hi) || lo > hi) return false;
    double widen = 0.0;
    if (opt.piece_ratio != -1.0) {
      if (opt.pieces_count > 0) return false;
      widen = opt.piece_error;
    }
    auto f = UnivariateFunction::of(g);
    if (!f.ok() || !f->check_domain(lo, hi).ok) return false;
    constexpr int kLimit = 1000;
    std::vector<double> at = f->extrema(lo, hi, kLimit);
    if (static_cast<int>(at.size()) > kLimit) return false;
    at.push_back(lo);
    at.push_back(hi);
    double mn = INFINITY, mx = -INFINITY;
    for (double t : at) {
      const double v = f->value(t);
      if (!std::isfinite(v)) return false;
      mn = std::min(mn, v);
      mx = std::max(mx, v);
    }
    if (opt.pieces_count == -2) widen *= std::max({1.0, std::fabs(mn), std::fabs(mx)});
    bool changed = b.tighten_lower(g.res, mn - widen);
    changed |= b.tighten_upper(g.res, mx + widen);
    return changed;
  }

  Status apply(const ModelData& d, int index, Builder& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    const std::string who = describe_genconstr(d, index);
    const ParamSet& ps = params_of(b);
    double lo = b.lb(g.arg), hi = b.ub(g.arg);
    // With FuncMaxVal finite an open bound is clipped by the breakpoints; with it infinite the
    // approximation has no end, which is the same missing-bound case as a big-M's.
    if (!(func_options(d, index, ps).max_val < VLM_INFINITY)) {
      const BigMContext c{who, "the piecewise-linear approximation of the function spans the range of x, and "
                               "FuncMaxVal is infinite, so no range is assumed"};
      VLM_ASSIGN_OR_RETURN(lo, finite_lower(b, g.arg, c));
      VLM_ASSIGN_OR_RETURN(hi, finite_upper(b, g.arg, c));
    }
    StatusOr<PwlPoints> made = func_breakpoints(d, index, lo, hi, ps);
    if (!made.ok()) {
      // Refused over a range that an infinite bound of x opened (|f| past FuncMaxVal, the domain
      // left): the bound to set is missing, the same case as a big-M's.
      const Status& st = made.status();
      if (st.code() == VLM_ERROR_INVALID_ARGUMENT && (std::isinf(lo) || std::isinf(hi))) {
        return Status(VLM_ERROR_NOT_SUPPORTED, st.message());
      }
      return st;
    }
    PwlPoints pts = std::move(*made);
    if (pts.x.front() == pts.x.back()) {
      // x is fixed: the points are one point twice, which defines no piece.
      b.add_eq({g.res}, {1.0}, pts.y.front());
      b.tighten(g.res, pts.y.front(), pts.y.front());
      return Status::Ok();
    }
    // The points span the (clipped) bounds; narrowing x to them keeps add_pwl from extending
    // the end pieces towards a clipped-away infinite bound.
    b.tighten(g.arg, pts.x.front(), pts.x.back());
    const auto [mn, mx] = pwl_range(pts.x, pts.y, pts.x.front(), pts.x.back());
    const bool jump = std::adjacent_find(pts.x.begin(), pts.x.end()) != pts.x.end();
    if (jump || pts.x.size() <= 2) {
      // A step needs add_pwl's forbidden vertical pair; one piece needs no binary at all.
      VLM_RETURN_IF_ERROR(add_pwl(b, g.arg, g.res, std::move(pts.x), std::move(pts.y), BigMContext{who, ""}));
    } else {
      add_pwl_logarithmic(b, g.arg, g.res, pts.x, pts.y);
    }
    b.tighten(g.res, mn, mx);
    return Status::Ok();
  }
};

}  // namespace

const Reformulation& func_reformulation() {
  static const FuncReformulation unit;
  return unit;
}

}  // namespace vlm::reform
