#include "algorithms/spatial_search.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "interfaces/highs_c_api.h"

namespace vlm::algorithms {

bool SpatialChecker::true_point(const std::vector<double>& x, std::vector<double>& xt) const {
  xt = x;
  for (int j = 0; j < p_.ncol; ++j) {
    if (p_.integrality[j] != 1) continue;
    const double r = std::round(x[j]);
    if (std::fabs(x[j] - r) > int_tol_) return false;
    xt[j] = r;
  }
  for (const ProductTerm& t : rel_.terms()) xt[t.w] = xt[t.i] * xt[t.j];
  return true;
}

bool SpatialChecker::feasible(const std::vector<double>& xt) const {
  std::vector<char> product(p_.ncol, 0);
  for (const ProductTerm& t : rel_.terms()) product[t.w] = 1;
  for (int j = 0; j < p_.ncol; ++j) {
    if (product[j]) continue;  // a product column's range is implied by its factors
    if (xt[j] < p_.lower[j] - tol_ || xt[j] > p_.upper[j] + tol_) return false;
  }
  for (int r = 0; r < rel_.first_envelope_row(); ++r) {
    double act = 0.0;
    for (int k = p_.astart[r]; k < p_.astart[r + 1]; ++k) act += p_.aval[k] * xt[p_.aindex[k]];
    if (act < p_.rlo[r] - tol_ || act > p_.rup[r] + tol_) return false;
  }
  return std::all_of(convex_.begin(), convex_.end(), [&](const QuadConstraint& c) {
    return c.shape == QuadShape::kLinear || c.violation(xt) <= tol_;
  });
}

double SpatialChecker::objective(const std::vector<double>& x) const { return p_.objective_value(x); }

bool SpatialSeparator::separate(const std::vector<double>& x, std::vector<Cut>& out) {
  for (const ProductTerm& t : rel_.terms()) {
    if (t.i != t.j) continue;
    const double v = x[t.i];
    if (v * v - x[t.w] <= 1e-7 * std::max(1.0, v * v)) continue;
    // The tangent of x^2 at v: w >= 2 v x - v^2.
    Cut cut;
    cut.ind = {t.w, t.i};
    cut.val = {1.0, -2.0 * v};
    cut.lo = -v * v;
    out.push_back(std::move(cut));
  }
  std::vector<double> xt;
  if (!check_->true_point(x, xt) || !check_->feasible(xt)) return false;
  const double obj = check_->objective(xt);
  offer_(xt, obj);
  // The relaxation's value is the point's own only when the products are (nearly) exact.
  return std::fabs(obj - check_->objective(x)) <= 1e-9 * std::max(1.0, std::fabs(obj));
}

bool SpatialSeparator::acceptable(const std::vector<double>& x) {
  // The search takes an accepted point with the relaxation's value: only exact ones qualify.
  std::vector<double> xt;
  if (!check_->true_point(x, xt) || !check_->feasible(xt)) return false;
  const double obj = check_->objective(xt);
  return std::fabs(obj - check_->objective(x)) <= 1e-9 * std::max(1.0, std::fabs(obj));
}

FixingHeuristic::FixingHeuristic(const reform::WorkingProblem& p, const SpatialRelaxation& rel,
                                 std::shared_ptr<const SpatialChecker> check, OfferFn offer)
    : p_(p), rel_(rel), check_(std::move(check)), offer_(std::move(offer)), cover_(p.ncol, 0) {
  // Greedy vertex cover of the products' graph; a square's variable must be fixed.
  std::vector<int> degree(p.ncol, 0);
  for (const ProductTerm& t : rel.terms()) {
    if (t.i == t.j) {
      cover_[t.i] = 1;
    } else {
      ++degree[t.i];
      ++degree[t.j];
    }
  }
  for (const ProductTerm& t : rel.terms()) {
    if (t.i == t.j || cover_[t.i] || cover_[t.j]) continue;
    cover_[degree[t.i] >= degree[t.j] ? t.i : t.j] = 1;
  }
}

void FixingHeuristic::run(const std::vector<double>& x, const std::vector<double>& lo,
                          const std::vector<double>& up, double seconds) {
  if (p_.mip && !p_.qval.empty()) return;  // HiGHS solves no MIQP
  if (!(seconds > 0.01)) return;
  std::vector<double> cl = p_.lower, cu = p_.upper, val(p_.ncol, 0.0);
  for (int j = 0; j < p_.ncol; ++j) {
    if (!cover_[j]) continue;
    double v = std::clamp(x[j], lo[j], up[j]);
    if (p_.integrality[j] == 1) v = std::round(v);
    val[j] = v;
    cl[j] = cu[j] = v;
  }
  const int nrow = rel_.first_envelope_row();
  std::vector<double> rlo(p_.rlo.begin(), p_.rlo.begin() + nrow), rup(p_.rup.begin(), p_.rup.begin() + nrow);
  std::vector<HighsInt> start(p_.astart.begin(), p_.astart.begin() + nrow + 1);
  std::vector<HighsInt> index(p_.aindex.begin(), p_.aindex.begin() + p_.astart[nrow]);
  std::vector<double> value(p_.aval.begin(), p_.aval.begin() + p_.astart[nrow]);
  for (const ProductTerm& t : rel_.terms()) {
    cl[t.w] = -INFINITY;
    cu[t.w] = INFINITY;
    if (cover_[t.i] && cover_[t.j]) {
      cl[t.w] = cu[t.w] = val[t.i] * val[t.j];
      continue;
    }
    // w = v x_free with the other factor fixed at v.
    const int fixed = cover_[t.i] ? t.i : t.j, free = fixed == t.i ? t.j : t.i;
    index.push_back(t.w);
    value.push_back(1.0);
    index.push_back(free);
    value.push_back(-val[fixed]);
    start.push_back(static_cast<HighsInt>(index.size()));
    rlo.push_back(0.0);
    rup.push_back(0.0);
  }
  std::vector<HighsInt> integrality(p_.integrality.begin(), p_.integrality.end());
  std::vector<HighsInt> qstart;
  if (!p_.qval.empty()) {
    qstart.assign(p_.qstart.begin(), p_.qstart.end());
    qstart.resize(p_.ncol, static_cast<HighsInt>(p_.qval.size()));
  }
  void* h = Highs_create();
  Highs_setBoolOptionValue(h, "output_flag", 0);
  Highs_setDoubleOptionValue(h, "time_limit", seconds);
  const HighsInt nr = static_cast<HighsInt>(rlo.size());
  const HighsInt rc = Highs_passModel(
      h, p_.ncol, nr, static_cast<HighsInt>(value.size()), static_cast<HighsInt>(p_.qval.size()),
      kHighsMatrixFormatRowwise, kHighsHessianFormatTriangular,
      p_.sense == -1 ? kHighsObjSenseMaximize : kHighsObjSenseMinimize, p_.objcon, p_.cost.data(), cl.data(),
      cu.data(), rlo.data(), rup.data(), start.data(), index.data(), value.data(),
      qstart.empty() ? nullptr : qstart.data(), qstart.empty() ? nullptr : p_.qindex.data(),
      qstart.empty() ? nullptr : p_.qval.data(), p_.mip ? integrality.data() : nullptr);
  if (rc != kHighsStatusError && Highs_run(h) != kHighsStatusError &&
      Highs_getModelStatus(h) == kHighsModelStatusOptimal) {
    std::vector<double> sol(p_.ncol), dummy(p_.ncol), rv(nr), rd(nr);
    Highs_getSolution(h, sol.data(), dummy.data(), rv.data(), rd.data());
    std::vector<double> xt;
    if (check_->true_point(sol, xt) && check_->feasible(xt)) {
      ++found_;
      offer_(xt, check_->objective(xt));
    }
  }
  Highs_destroy(h);
}

bool SpatialBranchingRule::branch(const std::vector<double>& x, const std::vector<double>& lower,
                                  const std::vector<double>& upper, Branching& out) {
  if (heuristic_ && (calls_ < 30 || calls_ % 20 == 0)) {
    heuristic_->run(x, lower, upper, std::min(2.0, seconds_left_()));
  }
  ++calls_;
  const auto& terms = rel_.terms();
  std::vector<double> err(terms.size());
  if (weight_.empty()) {
    // How much a unit of error in w moves the objective and the rows.
    weight_.assign(terms.size(), 0.0);
    std::vector<double> col(p_.ncol, 0.0);
    for (int j = 0; j < p_.ncol; ++j) col[j] = std::fabs(p_.cost[j]);
    for (int r = 0; r < rel_.first_envelope_row(); ++r) {
      for (int k = p_.astart[r]; k < p_.astart[r + 1]; ++k) col[p_.aindex[k]] += std::fabs(p_.aval[k]);
    }
    for (std::size_t k = 0; k < terms.size(); ++k) weight_[k] = std::max(col[terms[k].w], 1e-6);
  }
  for (std::size_t k = 0; k < terms.size(); ++k) {
    err[k] = weight_[k] * std::fabs(x[terms[k].w] - x[terms[k].i] * x[terms[k].j]);
  }
  std::vector<std::size_t> order(terms.size());
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return err[a] > err[b]; });
  for (std::size_t k : order) {
    if (err[k] <= 1e-12 * weight_[k]) break;
    const ProductTerm& t = terms[k];
    int best = -1;
    double width = 0.0;
    for (int f : {t.i, t.j}) {
      const double w = upper[f] - lower[f];
      const double guard = 1e-7 * std::max(1.0, std::fabs(x[f]));
      // A factor at a bound of its box makes the envelope exact: splitting it gains nothing.
      if (w <= guard || x[f] - lower[f] <= guard * 1e-2 || upper[f] - x[f] <= guard * 1e-2) continue;
      if (p_.integrality[f] == 1 && w < 1.0) continue;
      if (w > width) {
        width = w;
        best = f;
      }
    }
    if (best < 0) continue;
    const double v = x[best], l = lower[best], u = upper[best];
    out.children.clear();
    if (p_.integrality[best] == 1) {
      const double r = std::round(v);
      if (r >= u) {
        out.children.push_back({{best, l, r - 1}});
        out.children.push_back({{best, r, u}});
      } else {
        out.children.push_back({{best, l, r}});
        out.children.push_back({{best, r + 1, u}});
      }
    } else {
      const double split = (v - l >= 0.1 * width && u - v >= 0.1 * width) ? v : 0.5 * (l + u);
      out.children.push_back({{best, l, split}});
      out.children.push_back({{best, split, u}});
    }
    out.first = v - l < u - v ? 0 : 1;
    return true;
  }
  return false;
}

}  // namespace vlm::algorithms
