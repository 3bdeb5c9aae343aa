#include "reform/reform_pwl.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "reform/reform_sos2.h"

namespace vlm::reform {

namespace {

// Slope of the first / last piece; 0 when that piece is vertical (a jump at the end).
double first_slope(const std::vector<double>& xs, const std::vector<double>& ys) {
  return xs[1] > xs[0] ? (ys[1] - ys[0]) / (xs[1] - xs[0]) : 0.0;
}
double last_slope(const std::vector<double>& xs, const std::vector<double>& ys) {
  const std::size_t n = xs.size();
  return xs[n - 1] > xs[n - 2] ? (ys[n - 1] - ys[n - 2]) / (xs[n - 1] - xs[n - 2]) : 0.0;
}

// The values f takes at t (two at a jump), extended beyond the ends.
void values_at(const std::vector<double>& xs, const std::vector<double>& ys, double t, std::vector<double>& out) {
  const std::size_t n = xs.size();
  if (t <= xs[0]) {
    out.push_back(ys[0] + first_slope(xs, ys) * (t - xs[0]));
    if (t < xs[0]) return;
  }
  if (t >= xs[n - 1]) {
    out.push_back(ys[n - 1] + last_slope(xs, ys) * (t - xs[n - 1]));
    if (t > xs[n - 1]) return;
  }
  for (std::size_t k = 0; k < n; ++k) {
    if (xs[k] == t) out.push_back(ys[k]);
    if (k + 1 < n && xs[k] < t && t < xs[k + 1]) {
      out.push_back(ys[k] + (ys[k + 1] - ys[k]) * (t - xs[k]) / (xs[k + 1] - xs[k]));
    }
  }
}

}  // namespace

std::pair<double, double> pwl_range(const std::vector<double>& xs, const std::vector<double>& ys, double lo,
                                    double hi) {
  double mn = INFINITY, mx = -INFINITY;
  std::vector<double> v;
  for (std::size_t k = 0; k < xs.size(); ++k) {
    if (xs[k] >= lo && xs[k] <= hi) v.push_back(ys[k]);
  }
  if (std::isfinite(lo)) values_at(xs, ys, lo, v);
  if (std::isfinite(hi)) values_at(xs, ys, hi, v);
  for (double y : v) {
    mn = std::min(mn, y);
    mx = std::max(mx, y);
  }
  // An open end moves along its extended piece without limit.
  if (!std::isfinite(lo)) {
    const double s = first_slope(xs, ys);
    if (s > 0) mn = -INFINITY;
    if (s < 0) mx = INFINITY;
  }
  if (!std::isfinite(hi)) {
    const double s = last_slope(xs, ys);
    if (s > 0) mx = INFINITY;
    if (s < 0) mn = -INFINITY;
  }
  return {mn, mx};
}

Status add_pwl(Builder& b, int x, int y, std::vector<double> xs, std::vector<double> ys, const BigMContext& c) {
  // The ends of the extended pieces are constants from the bounds of x, taken before
  // anything is added.
  double lo = b.lb(x), hi = b.ub(x);
  if (lo < xs.front()) {
    BigMContext cl{c.who, "x may lie below the first point x = " + format_value(xs.front()) +
                              ", where the function continues along its first piece, and the formulation "
                              "needs the end of that piece"};
    VLM_ASSIGN_OR_RETURN(lo, finite_lower(b, x, cl));
  }
  if (hi > xs.back()) {
    BigMContext cu{c.who, "x may lie above the last point x = " + format_value(xs.back()) +
                              ", where the function continues along its last piece, and the formulation "
                              "needs the end of that piece"};
    VLM_ASSIGN_OR_RETURN(hi, finite_upper(b, x, cu));
  }
  if (lo < xs.front()) {
    const double s = first_slope(xs, ys);
    ys.insert(ys.begin(), ys.front() + s * (lo - xs.front()));
    xs.insert(xs.begin(), lo);
  }
  if (hi > xs.back()) {
    const double s = last_slope(xs, ys);
    ys.push_back(ys.back() + s * (hi - xs.back()));
    xs.push_back(hi);
  }
  const int n = static_cast<int>(xs.size());
  std::vector<char> allowed(n - 1);
  bool any = false;
  for (int k = 0; k + 1 < n; ++k) {
    allowed[k] = xs[k + 1] > xs[k] ? 1 : 0;
    any = any || allowed[k];
  }
  if (!any) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, c.who + " has all its points at x = " + format_value(xs.front()) +
                                                  ", so it defines no function");
  }
  std::vector<int> lambda(n);
  for (int k = 0; k < n; ++k) lambda[k] = b.add_continuous(0.0, 1.0);
  std::vector<int> ind(lambda);
  ind.push_back(x);
  std::vector<double> val(xs);
  val.push_back(-1.0);
  b.add_eq(ind, val, 0.0);  // x = sum lambda_k x_k
  ind.back() = y;
  val.assign(ys.begin(), ys.end());
  val.push_back(-1.0);
  b.add_eq(ind, val, 0.0);  // y = sum lambda_k y_k
  b.add_eq(lambda, std::vector<double>(n, 1.0), 1.0);
  // The lambdas' bounds are [0, 1], so the SOS2 step cannot fail on a bound.
  return add_sos2(b, lambda, &allowed, c);
}

namespace {

class PwlReformulation final : public Reformulation {
 public:
  const char* name() const override { return "PWL"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesContinuous | kCreatesRows; }
  Status apply(const ModelData& d, int index, Builder& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    return add_pwl(b, g.arg, g.res, g.vals, g.ypts, BigMContext{describe_genconstr(d, index), ""});
  }
  bool propagate(const ModelData& d, int index, Bounds& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    auto [mn, mx] = pwl_range(g.vals, g.ypts, b.lb[g.arg], b.ub[g.arg]);
    bool changed = false;
    if (std::isfinite(mn)) changed |= b.tighten_lower(g.res, mn);
    if (std::isfinite(mx)) changed |= b.tighten_upper(g.res, mx);
    return changed;
  }
};

}  // namespace

const Reformulation& pwl_reformulation() {
  static const PwlReformulation unit;
  return unit;
}

}  // namespace vlm::reform
