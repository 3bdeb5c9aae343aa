// The primal heuristics and the probe of BranchAndBound: the parts of the search that solve
// relaxations other than the node's own and put the node back afterwards.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "algorithms/branch_and_bound.h"
#include "algorithms/node_propagation.h"
#include "core/platform.h"
#include "interfaces/highs_c_api.h"

namespace vlm::algorithms {

namespace {

// The relaxation state a heuristic or probe overwrites, kept to put back.
struct Saved {
  std::vector<double> x, col_dual, row_value, row_dual;
  double obj;
};

bool is_discrete(int t) { return t != 0; }

}  // namespace

double BranchAndBound::check_point(const std::vector<double>& x) const {
  constexpr double kTol = 1e-6;
  for (int j = 0; j < p_.ncol; ++j) {
    const double lo = root_lo_[j], up = root_up_[j];
    if (x[j] < lo - kTol * (1 + std::fabs(lo)) || x[j] > up + kTol * (1 + std::fabs(up))) return NAN;
  }
  if (!integrality_satisfied(p_, x, 1e-9)) return NAN;
  for (int i = 0; i < p_.nrow; ++i) {
    double a = 0.0;
    for (int k = p_.astart[i]; k < p_.astart[i + 1]; ++k) a += p_.aval[k] * x[p_.aindex[k]];
    if (a < p_.rlo[i] - kTol * (1 + std::fabs(p_.rlo[i])) || a > p_.rup[i] + kTol * (1 + std::fabs(p_.rup[i]))) {
      return NAN;
    }
  }
  // Only separators that can judge a point from outside the tree (acceptable) may pass it.
  for (const auto& sep : seps_) {
    if (!sep->acceptable(x)) return NAN;
  }
  return p_.sense * p_.objective_value(x);
}

double BranchAndBound::probe(const std::vector<BoundChange>& changes, int iterations) {
  if (current_ == nullptr) return NAN;
  Saved keep{x_, col_dual_, row_value_, row_dual_, relax_obj_};
  Node trial = *current_;
  trial.changes.insert(trial.changes.end(), changes.begin(), changes.end());
  apply(trial);
  HighsInt old_limit = 0;
  const bool limited = iterations > 0 && p_.qval.empty();
  if (limited) {
    Highs_getIntOptionValue(h_, "simplex_iteration_limit", &old_limit);
    Highs_setIntOptionValue(h_, "simplex_iteration_limit", iterations);
  }
  const int ms = solve_relaxation();
  double value = NAN;
  if (ms == kHighsModelStatusOptimal) {
    value = p_.sense * relax_obj_;
  } else if (ms == kHighsModelStatusInfeasible) {
    value = INFINITY;
  } else if (ms == kHighsModelStatusIterationLimit) {
    // The dual simplex stopped early: its value still estimates how far the child rises.
    value = p_.sense * Highs_getObjectiveValue(h_);
  }
  if (limited) Highs_setIntOptionValue(h_, "simplex_iteration_limit", old_limit);
  apply(*current_);
  x_ = std::move(keep.x);
  col_dual_ = std::move(keep.col_dual);
  row_value_ = std::move(keep.row_value);
  row_dual_ = std::move(keep.row_dual);
  relax_obj_ = keep.obj;
  return value;
}

bool BranchAndBound::try_rounding(const std::vector<double>& lo, const std::vector<double>& up) {
  std::vector<double> y = x_;
  for (int j = 0; j < p_.ncol; ++j) {
    const int t = p_.integrality[j];
    if (t == 1 || t == 3) y[j] = std::round(y[j]);
    if ((t == 2 || t == 3) && y[j] > 0 && y[j] < semi_lower_[j]) y[j] = y[j] < 0.5 * semi_lower_[j] ? 0.0 : semi_lower_[j];
    if (is_discrete(t)) y[j] = std::clamp(y[j], lo[j], up[j]);
  }
  const double obj = check_point(y);
  if (std::isnan(obj) || obj >= incumbent_) return false;
  r_.heuristic_solutions += 1;
  take_incumbent(y, obj, "by rounding");
  return true;
}

bool BranchAndBound::try_fix_and_solve(const std::vector<double>& lo0, const std::vector<double>& up0) {
  // Discrete columns, ordered for fixing: the most decided first, then (second attempt) the
  // ones leaning upwards first, which for "at most k of n" rows fixes the k strongest to 1
  // and lets propagation fix the others to 0.
  std::vector<int> cols;
  for (int j = 0; j < p_.ncol; ++j) {
    if (is_discrete(p_.integrality[j]) && lo0[j] < up0[j]) cols.push_back(j);
  }
  if (cols.empty()) return false;
  const bool propagate_each =
      propagator_ && static_cast<double>(cols.size()) * static_cast<double>(p_.aval.size()) < 2e7;
  const std::vector<double> x = x_;
  bool found = false;
  for (int attempt = 0; attempt < 2 && !found; ++attempt) {
    std::vector<int> order = cols;
    if (attempt == 0) {
      std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
        return std::fabs(x[a] - std::round(x[a])) < std::fabs(x[b] - std::round(x[b]));
      });
    } else {
      std::stable_sort(order.begin(), order.end(),
                       [&](int a, int b) { return x[a] - std::floor(x[a]) > x[b] - std::floor(x[b]); });
    }
    std::vector<double> lo = lo0, up = up0;
    std::vector<int> moved;
    bool ok = true;
    for (int j : order) {
      if (lo[j] >= up[j]) continue;
      double v = attempt == 0 ? std::round(x[j]) : std::ceil(x[j] - 1e-9);
      if (p_.integrality[j] == 2) v = x[j] < 0.5 * semi_lower_[j] && attempt == 0 ? 0.0 : std::max(x[j], semi_lower_[j]);
      if (p_.integrality[j] == 3 && v > 0) v = std::max(v, semi_lower_[j]);
      v = std::clamp(v, lo[j], up[j]);
      // A semi-continuous column fixed at a positive value keeps its range: the solve picks it.
      if (p_.integrality[j] == 2 && v > 0) {
        lo[j] = std::max(lo[j], semi_lower_[j]);
      } else {
        lo[j] = up[j] = v;
      }
      if (propagate_each && !propagator_->propagate(lo, up, moved)) {
        ok = false;
        break;
      }
    }
    if (ok && propagator_ && !propagate_each) ok = propagator_->propagate(lo, up, moved);
    if (!ok) continue;
    Node fixed{-INFINITY, 0, {}};
    for (int j = 0; j < p_.ncol; ++j) {
      if (lo[j] != root_lo_[j] || up[j] != root_up_[j]) fixed.changes.push_back({j, lo[j], up[j]});
    }
    apply(fixed);
    if (solve_relaxation() != kHighsModelStatusOptimal) continue;
    std::vector<double> y = x_;
    for (int j : cols) {
      if (p_.integrality[j] == 1 || p_.integrality[j] == 3) y[j] = std::round(y[j]);
    }
    const double obj = check_point(y);
    if (std::isnan(obj) || obj >= incumbent_) continue;
    r_.heuristic_solutions += 1;
    take_incumbent(y, obj, "by fix-and-solve");
    found = true;
  }
  return found;
}

bool BranchAndBound::try_dive(const Node& node) {
  // Fractional diving: fix the discrete columns nearest to a feasible value (a tenth of the
  // fractional ones at a time), propagate, re-solve; stop at an integral point, an
  // infeasible one, one the incumbent prunes, or after 20 solves.
  std::vector<double> lo, up;
  node_bounds(node, lo, up);
  std::vector<int> moved;
  for (int step = 0; step < 20; ++step) {
    std::vector<std::pair<double, int>> frac;
    for (int j = 0; j < p_.ncol; ++j) {
      const int t = p_.integrality[j];
      if (t == 0 || lo[j] >= up[j]) continue;
      double d = 0.0;
      if (t == 1 || t == 3) d = std::fabs(x_[j] - std::round(x_[j]));
      if ((t == 2 || t == 3) && x_[j] > s_.int_tol && x_[j] < semi_lower_[j] - s_.int_tol) {
        d = std::max(d, std::min(x_[j], semi_lower_[j] - x_[j]));
      }
      if (d > s_.int_tol) frac.push_back({d, j});
    }
    if (frac.empty()) {
      const double obj = check_point(x_);
      if (std::isnan(obj) || obj >= incumbent_) return false;
      r_.heuristic_solutions += 1;
      take_incumbent(x_, obj, "by diving");
      return true;
    }
    std::sort(frac.begin(), frac.end());
    const std::size_t take = std::max<std::size_t>(1, frac.size() / 10);
    for (std::size_t k = 0; k < take; ++k) {
      const int j = frac[k].second;
      const int t = p_.integrality[j];
      if ((t == 2 || t == 3) && x_[j] < semi_lower_[j]) {
        if (x_[j] < 0.5 * semi_lower_[j]) {
          lo[j] = up[j] = 0.0;
        } else {
          lo[j] = std::max(lo[j], semi_lower_[j]);
        }
      } else {
        lo[j] = up[j] = std::clamp(std::round(x_[j]), lo[j], up[j]);
      }
    }
    if (propagator_ && !propagator_->propagate(lo, up, moved)) return false;
    Node dive{-INFINITY, 0, {}};
    for (int j = 0; j < p_.ncol; ++j) {
      if (lo[j] != root_lo_[j] || up[j] != root_up_[j]) dive.changes.push_back({j, lo[j], up[j]});
    }
    apply(dive);
    if (solve_relaxation() != kHighsModelStatusOptimal) return false;
    if (p_.sense * relax_obj_ >= incumbent_ - gap_target(incumbent_)) return false;
  }
  return false;
}

void BranchAndBound::run_heuristics(const Node& node) {
  const double t0 = wall_seconds();
  std::vector<double> lo, up;
  node_bounds(node, lo, up);
  try_rounding(lo, up);
  // The solving heuristics at the root and then at 10, 20, 40, ... nodes, while they have
  // taken at most a tenth of the time.
  const bool due = node.depth == 0 || (r_.nodes >= next_heuristic_node_ && heuristic_seconds_ <= 0.1 * elapsed());
  if (due && elapsed() < s_.time_limit) {
    next_heuristic_node_ = std::max(10.0, 2 * r_.nodes);
    Saved keep{x_, col_dual_, row_value_, row_dual_, relax_obj_};
    try_fix_and_solve(lo, up);
    x_ = keep.x;
    if (elapsed() < s_.time_limit) try_dive(node);
    apply(node);
    x_ = std::move(keep.x);
    col_dual_ = std::move(keep.col_dual);
    row_value_ = std::move(keep.row_value);
    row_dual_ = std::move(keep.row_dual);
    relax_obj_ = keep.obj;
  }
  heuristic_seconds_ += wall_seconds() - t0;
}

}  // namespace vlm::algorithms
