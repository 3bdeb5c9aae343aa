#include "reform/bound_propagation.h"

#include <algorithm>
#include <cmath>

#include "reform/reformulation.h"

namespace vlm::reform {

namespace {

// A change smaller than this (relative to the bound's size) is not worth another pass.
constexpr double kMinChange = 1e-6;
constexpr int kMaxPasses = 8;
// Derived bounds are used as they come, without an outward safety margin: rounding in the
// activity sums moves them by far less than the feasibility tolerance, which is all that a
// big-M built from them can cut off, and a margin would make the constants ragged
// (17.000000018 instead of 17, where a user writes 17).

}  // namespace

bool Bounds::tighten_lower(int j, double v) {
  if (std::isnan(v)) return false;
  if (integer[j]) v = std::ceil(v - 1e-6);
  if (std::isfinite(lb[j]) && !(v > lb[j] + kMinChange * std::max(1.0, std::fabs(lb[j])))) return false;
  if (!(v > lb[j])) return false;
  lb[j] = v;
  return true;
}

bool Bounds::tighten_upper(int j, double v) {
  if (std::isnan(v)) return false;
  if (integer[j]) v = std::floor(v + 1e-6);
  if (std::isfinite(ub[j]) && !(v < ub[j] - kMinChange * std::max(1.0, std::fabs(ub[j])))) return false;
  if (!(v < ub[j])) return false;
  ub[j] = v;
  return true;
}

void Bounds::append(double l, double u, bool is_integer) {
  lb.push_back(l);
  ub.push_back(u);
  integer.push_back(is_integer ? 1 : 0);
}

Bounds initial_bounds(const WorkingProblem& p) {
  Bounds b;
  b.lb = p.lower;
  b.ub = p.upper;
  b.integer.resize(p.ncol);
  for (int j = 0; j < p.ncol; ++j) {
    const int t = p.integrality[j];
    b.integer[j] = (t == 1 || t == 3) ? 1 : 0;
    if (t == 2 || t == 3) {  // semi: 0 or within the bounds
      b.lb[j] = std::min(b.lb[j], 0.0);
      b.ub[j] = std::max(b.ub[j], 0.0);
    }
  }
  return b;
}

namespace {

// One pass over the rows; returns whether any bound changed.
bool propagate_rows(const WorkingProblem& p, Bounds& b) {
  bool changed = false;
  for (int i = 0; i < p.nrow; ++i) {
    const double lo = p.rlo[i], up = p.rup[i];
    if (!std::isfinite(lo) && !std::isfinite(up)) continue;
    const int s = p.astart[i], e = p.astart[i + 1];
    // Activity range with the number of infinite contributions kept apart, so that each term
    // can be bounded by the rest of the row.
    double min_act = 0.0, max_act = 0.0;
    int min_inf = 0, max_inf = 0;
    for (int k = s; k < e; ++k) {
      const int j = p.aindex[k];
      const double a = p.aval[k];
      const double lo_c = a > 0 ? a * b.lb[j] : a * b.ub[j];
      const double up_c = a > 0 ? a * b.ub[j] : a * b.lb[j];
      if (std::isfinite(lo_c)) min_act += lo_c; else ++min_inf;
      if (std::isfinite(up_c)) max_act += up_c; else ++max_inf;
    }
    if (min_inf > 1 && max_inf > 1) continue;
    for (int k = s; k < e; ++k) {
      const int j = p.aindex[k];
      const double a = p.aval[k];
      const double lo_c = a > 0 ? a * b.lb[j] : a * b.ub[j];
      const double up_c = a > 0 ? a * b.ub[j] : a * b.lb[j];
      // a x_j <= up - (min activity of the others)
      if (std::isfinite(up)) {
        const bool own_inf = !std::isfinite(lo_c);
        if (min_inf - (own_inf ? 1 : 0) == 0) {
          const double rest = min_act - (own_inf ? 0.0 : lo_c);
          const double v = (up - rest) / a;
          changed |= a > 0 ? b.tighten_upper(j, v) : b.tighten_lower(j, v);
        }
      }
      // a x_j >= lo - (max activity of the others)
      if (std::isfinite(lo)) {
        const bool own_inf = !std::isfinite(up_c);
        if (max_inf - (own_inf ? 1 : 0) == 0) {
          const double rest = max_act - (own_inf ? 0.0 : up_c);
          const double v = (lo - rest) / a;
          changed |= a > 0 ? b.tighten_lower(j, v) : b.tighten_upper(j, v);
        }
      }
    }
  }
  return changed;
}

bool propagate_constructs(const ModelData& d, Bounds& b, const ReformOptions& o) {
  bool changed = false;
  for (int g = 0; g < d.num_genconstrs(); ++g) {
    if (const Reformulation* r = find_reformulation(kind_of(d.genconstrs[g].type))) {
      changed |= r->propagate(d, g, b, o);
    }
  }
  return changed;
}

}  // namespace

void propagate_bounds(const ModelData& d, const WorkingProblem& p, Bounds& b, const ReformOptions& o) {
  for (int pass = 0; pass < kMaxPasses; ++pass) {
    bool changed = propagate_rows(p, b);
    changed |= propagate_constructs(d, b, o);
    if (!changed) break;
  }
}

}  // namespace vlm::reform
