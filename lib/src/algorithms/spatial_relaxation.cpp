#include "algorithms/spatial_relaxation.h"

#include <algorithm>
#include <cmath>

#include "interfaces/highs_c_api.h"

namespace vlm::algorithms {

namespace {

double mul(double u, double v) { return (u == 0.0 || v == 0.0) ? 0.0 : u * v; }

// Tightenings smaller than this (relative) are not worth another sweep.
constexpr double kMinGain = 1e-6;
// Derived bounds are moved out by this much (relative) so that rounding never cuts off a
// feasible point.
constexpr double kSafety = 1e-9;

bool raise(std::vector<double>& lo, int j, double v, bool integer) {
  if (!std::isfinite(v)) return false;
  v = integer ? std::ceil(v - 1e-6) : v - kSafety * (1.0 + std::fabs(v));
  if (std::isfinite(lo[j]) && v <= lo[j] + kMinGain * std::max(1.0, std::fabs(v))) return false;
  lo[j] = v;
  return true;
}

bool lower(std::vector<double>& up, int j, double v, bool integer) {
  if (!std::isfinite(v)) return false;
  v = integer ? std::floor(v + 1e-6) : v + kSafety * (1.0 + std::fabs(v));
  if (std::isfinite(up[j]) && v >= up[j] - kMinGain * std::max(1.0, std::fabs(v))) return false;
  up[j] = v;
  return true;
}

}  // namespace

std::pair<double, double> product_range(bool square, double a, double b, double c, double d) {
  if (square) {
    if (a >= 0) return {mul(a, a), mul(b, b)};
    if (b <= 0) return {mul(b, b), mul(a, a)};
    return {0.0, std::max(mul(a, a), mul(b, b))};
  }
  const double p[4] = {mul(a, c), mul(a, d), mul(b, c), mul(b, d)};
  return {*std::min_element(p, p + 4), *std::max_element(p, p + 4)};
}

int SpatialRelaxation::lift(int i, int j, const std::string& where, reform::WorkingProblem& p) {
  if (i > j) std::swap(i, j);
  auto it = index_.find({i, j});
  if (it != index_.end()) return terms_[it->second].w;
  ProductTerm t;
  t.i = i;
  t.j = j;
  t.w = p.add_col(-INFINITY, INFINITY, 0);
  t.where = where;
  index_[{i, j}] = static_cast<int>(terms_.size());
  terms_.push_back(t);
  return t.w;
}

void SpatialRelaxation::envelope(const ProductTerm& t, double a, double b, double c, double d,
                                 std::vector<Row>& out) {
  out.clear();
  if (t.i == t.j) {
    out.push_back({1.0, -(a + b), 0.0, -INFINITY, -a * b});
    out.push_back({1.0, -2.0 * a, 0.0, -a * a, INFINITY});
    out.push_back({1.0, -2.0 * b, 0.0, -b * b, INFINITY});
    return;
  }
  out.push_back({1.0, -c, -a, -a * c, INFINITY});
  out.push_back({1.0, -d, -b, -b * d, INFINITY});
  out.push_back({1.0, -d, -a, -INFINITY, -a * d});
  out.push_back({1.0, -c, -b, -INFINITY, -b * c});
}

bool SpatialRelaxation::propagate(const reform::WorkingProblem& p, std::vector<double>& lo, std::vector<double>& up,
                                  int passes) const {
  const int nrow = env_row_ >= 0 ? env_row_ : p.nrow;
  auto is_int = [&](int j) { return p.integrality[j] == 1; };
  auto empty = [&](int j) { return lo[j] > up[j] + 1e-6 * std::max(1.0, std::fabs(up[j])); };
  for (int pass = 0; pass < passes; ++pass) {
    bool changed = false;
    for (int r = 0; r < nrow; ++r) {
      if (!std::isfinite(p.rlo[r]) && !std::isfinite(p.rup[r])) continue;
      // Activity bounds with the number of infinite contributions.
      double amin = 0, amax = 0;
      int nmin = 0, nmax = 0;
      for (int k = p.astart[r]; k < p.astart[r + 1]; ++k) {
        const double a = p.aval[k];
        const int j = p.aindex[k];
        const double l = a > 0 ? lo[j] : up[j], u = a > 0 ? up[j] : lo[j];
        if (std::isfinite(l)) amin += a * l; else ++nmin;
        if (std::isfinite(u)) amax += a * u; else ++nmax;
      }
      for (int k = p.astart[r]; k < p.astart[r + 1]; ++k) {
        const double a = p.aval[k];
        const int j = p.aindex[k];
        const double l = a > 0 ? lo[j] : up[j], u = a > 0 ? up[j] : lo[j];
        // The rest of the row's least and greatest activity without this term.
        double rest_min = INFINITY, rest_max = -INFINITY;
        if (nmin == 0) rest_min = amin - a * l;
        else if (nmin == 1 && !std::isfinite(l)) rest_min = amin;
        if (nmax == 0) rest_max = amax - a * u;
        else if (nmax == 1 && !std::isfinite(u)) rest_max = amax;
        if (std::isfinite(p.rup[r]) && std::isfinite(rest_min)) {
          const double v = (p.rup[r] - rest_min) / a;  // a x_j <= rup - rest_min
          changed = (a > 0 ? lower(up, j, v, is_int(j)) : raise(lo, j, v, is_int(j))) || changed;
        }
        if (std::isfinite(p.rlo[r]) && std::isfinite(rest_max)) {
          const double v = (p.rlo[r] - rest_max) / a;  // a x_j >= rlo - rest_max
          changed = (a > 0 ? raise(lo, j, v, is_int(j)) : lower(up, j, v, is_int(j))) || changed;
        }
        if (empty(j)) return false;
      }
    }
    for (const ProductTerm& t : terms_) {
      const bool sq = t.i == t.j;
      const auto [wl, wu] = product_range(sq, lo[t.i], up[t.i], lo[t.j], up[t.j]);
      changed = raise(lo, t.w, wl, false) || changed;
      changed = lower(up, t.w, wu, false) || changed;
      if (empty(t.w)) return false;
      if (sq) {
        // x^2 in [wl, wu]: |x| <= sqrt(wu), and |x| >= sqrt(wl) on a side of 0.
        if (std::isfinite(up[t.w]) && up[t.w] >= 0) {
          const double r = std::sqrt(up[t.w]);
          changed = lower(up, t.i, r, is_int(t.i)) || changed;
          changed = raise(lo, t.i, -r, is_int(t.i)) || changed;
        }
        if (lo[t.w] > 0) {
          const double r = std::sqrt(lo[t.w]);
          if (lo[t.i] >= 0) changed = raise(lo, t.i, r, is_int(t.i)) || changed;
          if (up[t.i] <= 0) changed = lower(up, t.i, -r, is_int(t.i)) || changed;
        }
        if (empty(t.i)) return false;
        continue;
      }
      // x_i = w / x_j when x_j's range excludes 0, and the same for x_j.
      for (int side = 0; side < 2; ++side) {
        const int f = side == 0 ? t.i : t.j, g = side == 0 ? t.j : t.i;
        if (!(lo[g] > 0 || up[g] < 0)) continue;
        const double inv_lo = std::isfinite(up[g]) ? 1.0 / up[g] : 0.0;
        const double inv_up = std::isfinite(lo[g]) ? 1.0 / lo[g] : 0.0;
        const auto [fl, fu] = product_range(false, lo[t.w], up[t.w], inv_lo, inv_up);
        changed = raise(lo, f, fl, is_int(f)) || changed;
        changed = lower(up, f, fu, is_int(f)) || changed;
        if (empty(f)) return false;
      }
    }
    if (!changed) break;
  }
  // Ranges crossed by less than the tolerance are a fixing.
  for (std::size_t j = 0; j < lo.size(); ++j) {
    if (lo[j] > up[j]) lo[j] = up[j];
  }
  return true;
}

Status SpatialRelaxation::prepare(const ModelData& d, reform::WorkingProblem& p) {
  env_row_ = p.nrow;
  std::vector<double> lo = p.lower, up = p.upper;
  if (propagate(p, lo, up, 20)) {
    p.lower = lo;
    p.upper = up;
  }
  for (const ProductTerm& t : terms_) {
    for (int f : {t.i, t.j}) {
      if (std::isfinite(p.lower[f]) && std::isfinite(p.upper[f])) continue;
      const std::string name = f < d.num_vars() ? "Variable '" + d.varname[f] + "'" : "An auxiliary variable";
      return Status(VLM_ERROR_INVALID_ARGUMENT,
                    name + " of a nonconvex product in " + t.where + " has no finite " +
                        (std::isfinite(p.lower[f]) ? "upper" : "lower") +
                        " bound, and the constraints imply none; NonConvex=2 needs finite bounds on the variables "
                        "of nonconvex terms");
    }
  }
  std::vector<Row> rows;
  written_.clear();
  for (ProductTerm& t : terms_) {
    const auto [wl, wu] = product_range(t.i == t.j, p.lower[t.i], p.upper[t.i], p.lower[t.j], p.upper[t.j]);
    p.lower[t.w] = std::max(p.lower[t.w], wl);
    p.upper[t.w] = std::min(p.upper[t.w], wu);
    const std::array<double, 4> box{p.lower[t.i], p.upper[t.i], p.lower[t.j], p.upper[t.j]};
    envelope(t, box[0], box[1], box[2], box[3], rows);
    t.row = p.nrow;
    for (const Row& r : rows) {
      if (t.i == t.j) {
        p.add_row({t.w, t.i}, {r.cw, r.ci}, r.lo, r.up);
      } else {
        p.add_row({t.w, t.i, t.j}, {r.cw, r.ci, r.cj}, r.lo, r.up);
      }
    }
    written_.push_back(box);
  }
  return Status::Ok();
}

void SpatialRelaxation::update_rows(void* h, const std::vector<double>& lo, const std::vector<double>& up) {
  std::vector<Row> rows;
  for (std::size_t k = 0; k < terms_.size(); ++k) {
    const ProductTerm& t = terms_[k];
    const std::array<double, 4> box{lo[t.i], up[t.i], lo[t.j], up[t.j]};
    if (box == written_[k]) continue;
    written_[k] = box;
    envelope(t, box[0], box[1], box[2], box[3], rows);
    for (std::size_t r = 0; r < rows.size(); ++r) {
      const HighsInt row = t.row + static_cast<HighsInt>(r);
      Highs_changeCoeff(h, row, t.i, rows[r].ci);
      if (t.i != t.j) Highs_changeCoeff(h, row, t.j, rows[r].cj);
      Highs_changeRowBounds(h, row, rows[r].lo, rows[r].up);
    }
  }
}

}  // namespace vlm::algorithms
