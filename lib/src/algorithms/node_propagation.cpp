#include "algorithms/node_propagation.h"

#include <algorithm>
#include <cmath>

namespace vlm::algorithms {

NodePropagator::NodePropagator(const reform::WorkingProblem& p, std::vector<double> semi_lower)
    : p_(p), semi_lower_(std::move(semi_lower)) {
  cstart_.assign(p.ncol + 1, 0);
  for (int k = 0; k < p.astart[p.nrow]; ++k) ++cstart_[p.aindex[k] + 1];
  for (int j = 0; j < p.ncol; ++j) cstart_[j + 1] += cstart_[j];
  crow_.resize(cstart_[p.ncol]);
  std::vector<int> fill(cstart_.begin(), cstart_.end() - 1);
  for (int i = 0; i < p.nrow; ++i) {
    for (int k = p.astart[i]; k < p.astart[i + 1]; ++k) crow_[fill[p.aindex[k]]++] = i;
  }
}

bool NodePropagator::propagate(std::vector<double>& lower, std::vector<double>& upper, std::vector<int>& changed,
                               int passes) const {
  changed.clear();
  if (p_.nrow == 0) return true;
  std::vector<double> lo = lower, up = upper;
  std::vector<char> dirty(p_.nrow, 1), next(p_.nrow, 0);
  constexpr double kFeas = 1e-6;

  // Rounds an implied bound to the column's domain; returns the bound to keep.
  auto round_lower = [&](int j, double v) {
    const int t = p_.integrality[j];
    if (t == 1 || t == 3) v = std::ceil(v - kFeas);
    if ((t == 2 || t == 3) && v > kFeas) v = std::max(v, semi_lower_[j]);
    return v;
  };
  auto round_upper = [&](int j, double v) {
    const int t = p_.integrality[j];
    if (t == 1 || t == 3) v = std::floor(v + kFeas);
    if ((t == 2 || t == 3) && v < semi_lower_[j] - kFeas && v >= -kFeas) v = 0.0;
    return v;
  };
  // A continuous column moves only for a real gain: tiny steps would revisit rows forever.
  auto worth = [&](int j, double old_b, double new_b) {
    if (p_.integrality[j] != 0) return true;
    const double width = std::isfinite(lo[j]) && std::isfinite(up[j]) ? up[j] - lo[j] : 1.0;
    return !std::isfinite(old_b) || std::fabs(new_b - old_b) > 1e-3 * std::max(1.0, width);
  };
  auto mark = [&](int j) {
    for (int k = cstart_[j]; k < cstart_[j + 1]; ++k) next[crow_[k]] = 1;
  };

  for (int pass = 0; pass < passes; ++pass) {
    bool any = false;
    for (int i = 0; i < p_.nrow; ++i) {
      if (!dirty[i]) continue;
      const double rlo = p_.rlo[i], rup = p_.rup[i];
      if (!std::isfinite(rlo) && !std::isfinite(rup)) continue;
      double minact = 0, maxact = 0;
      int mininf = 0, maxinf = 0;
      for (int k = p_.astart[i]; k < p_.astart[i + 1]; ++k) {
        const double a = p_.aval[k];
        const int j = p_.aindex[k];
        const double lmin = a > 0 ? lo[j] : up[j], lmax = a > 0 ? up[j] : lo[j];
        if (std::isfinite(lmin)) minact += a * lmin; else ++mininf;
        if (std::isfinite(lmax)) maxact += a * lmax; else ++maxinf;
      }
      const double scale = 1.0 + std::max(std::fabs(rlo) < INFINITY ? std::fabs(rlo) : 0.0,
                                          std::fabs(rup) < INFINITY ? std::fabs(rup) : 0.0);
      if (mininf == 0 && minact > rup + kFeas * scale) return false;
      if (maxinf == 0 && maxact < rlo - kFeas * scale) return false;
      for (int k = p_.astart[i]; k < p_.astart[i + 1]; ++k) {
        const double a = p_.aval[k];
        const int j = p_.aindex[k];
        if (a == 0.0) continue;
        const double lmin = a > 0 ? lo[j] : up[j], lmax = a > 0 ? up[j] : lo[j];
        // Activity of the other terms: finite only when at most this term is infinite.
        double rest_min = -INFINITY, rest_max = INFINITY;
        if (mininf == 0) rest_min = minact - a * lmin;
        else if (mininf == 1 && !std::isfinite(lmin)) rest_min = minact;
        if (maxinf == 0) rest_max = maxact - a * lmax;
        else if (maxinf == 1 && !std::isfinite(lmax)) rest_max = maxact;
        double new_lo = -INFINITY, new_up = INFINITY;
        if (std::isfinite(rup) && std::isfinite(rest_min)) {
          const double b = (rup - rest_min) / a;
          (a > 0 ? new_up : new_lo) = b;
        }
        if (std::isfinite(rlo) && std::isfinite(rest_max)) {
          const double b = (rlo - rest_max) / a;
          if (a > 0) new_lo = std::max(new_lo, b);
          else new_up = std::min(new_up, b);
        }
        if (new_lo > lo[j] + kFeas) {
          const double v = round_lower(j, new_lo);
          if (v > lo[j] && worth(j, lo[j], v)) {
            lo[j] = v;
            mark(j);
            any = true;
          }
        }
        if (new_up < up[j] - kFeas) {
          const double v = round_upper(j, new_up);
          if (v < up[j] && worth(j, up[j], v)) {
            up[j] = v;
            mark(j);
            any = true;
          }
        }
        if (lo[j] > up[j] + kFeas * (1.0 + std::fabs(up[j]))) return false;
      }
    }
    if (!any) break;
    dirty.swap(next);
    std::fill(next.begin(), next.end(), 0);
  }
  for (int j = 0; j < p_.ncol; ++j) {
    if (p_.integrality[j] == 0) continue;
    if (lo[j] != lower[j] || up[j] != upper[j]) {
      // Crossing by rounding noise is settled on the side of the domain.
      if (lo[j] > up[j]) return false;
      lower[j] = lo[j];
      upper[j] = up[j];
      changed.push_back(j);
    }
  }
  return true;
}

}  // namespace vlm::algorithms
