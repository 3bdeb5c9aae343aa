#include "algorithms/pseudo_costs.h"

#include <algorithm>
#include <cmath>

namespace vlm::algorithms {

PseudoCostRule::PseudoCostRule(std::vector<int> integers, double int_tol, NodeProbe* probe, PseudoCostOptions options)
    : integers_(std::move(integers)), tol_(int_tol), probe_(probe), o_(options) {
  int n = 0;
  for (int j : integers_) n = std::max(n, j + 1);
  for (int d = 0; d < 2; ++d) {
    sum_[d].assign(n, 0.0);
    count_[d].assign(n, 0);
  }
}

double PseudoCostRule::cost(int col, int dir) const {
  if (col >= 0 && col < static_cast<int>(count_[dir].size()) && count_[dir][col] > 0) {
    return sum_[dir][col] / count_[dir][col];
  }
  return total_count_[dir] > 0 ? total_[dir] / total_count_[dir] : 1.0;
}

void PseudoCostRule::record(int col, int dir, double per_unit) {
  if (!std::isfinite(per_unit) || col < 0 || col >= static_cast<int>(count_[dir].size())) return;
  per_unit = std::max(per_unit, 0.0);
  sum_[dir][col] += per_unit;
  count_[dir][col] += 1;
  total_[dir] += per_unit;
  total_count_[dir] += 1;
}

void PseudoCostRule::observe(const std::vector<BoundChange>& child, double parent_x, double gain) {
  if (child.empty()) return;
  const BoundChange& b = child[0];
  const bool up = b.lower > parent_x;
  const double f = up ? std::ceil(parent_x) - parent_x : parent_x - std::floor(parent_x);
  if (f <= tol_) return;
  record(b.col, up ? 1 : 0, gain / f);
}

bool PseudoCostRule::branch(const std::vector<double>& x, const std::vector<double>& lower,
                            const std::vector<double>& upper, Branching& out) {
  constexpr double kEps = 1e-6;
  struct Cand {
    int col;
    double f, score, down, up;
  };
  std::vector<Cand> cands;
  for (int j : integers_) {
    const double f = x[j] - std::floor(x[j]);
    if (f <= tol_ || f >= 1.0 - tol_) continue;
    const double down = f * cost(j, 0), up = (1.0 - f) * cost(j, 1);
    cands.push_back({j, f, std::max(kEps, down) * std::max(kEps, up), down, up});
  }
  if (cands.empty()) return false;
  std::sort(cands.begin(), cands.end(), [](const Cand& a, const Cand& b) {
    return a.score > b.score || (a.score == b.score && a.col < b.col);
  });
  std::size_t best = 0;
  if (probe_ != nullptr) {
    const double base = probe_->node_value();
    int probed = 0, since_better = 0;
    for (std::size_t k = 0; k < cands.size() && probed < o_.max_probes && since_better < o_.lookahead; ++k) {
      Cand& c = cands[k];
      const int j = c.col;
      if (std::min(count_[0][j], count_[1][j]) >= o_.reliability) continue;
      const double v = x[j];
      const double dv = probe_->probe({{j, lower[j], std::floor(v)}}, o_.iterations);
      const double uv = probe_->probe({{j, std::ceil(v), upper[j]}}, o_.iterations);
      probes_ += 2;
      ++probed;
      if (std::isnan(dv) || std::isnan(uv)) continue;
      const double dg = std::max(0.0, dv - base), ug = std::max(0.0, uv - base);
      if (std::isfinite(dg)) record(j, 0, dg / c.f);
      if (std::isfinite(ug)) record(j, 1, ug / (1.0 - c.f));
      c.down = dg;
      c.up = ug;
      // A child that cannot be solved makes this column the best choice at once: one side goes.
      c.score = std::isfinite(dg) && std::isfinite(ug) ? std::max(kEps, dg) * std::max(kEps, ug) : INFINITY;
      if (c.score > cands[best].score || k == best) {
        if (k != best) since_better = 0;
        best = k;
      } else {
        ++since_better;
      }
      if (!std::isfinite(c.score)) break;
    }
  }
  const Cand& c = cands[best];
  const double v = x[c.col];
  out.children.clear();
  out.children.push_back({{c.col, lower[c.col], std::floor(v)}});
  out.children.push_back({{c.col, std::ceil(v), upper[c.col]}});
  out.first = v - std::floor(v) < 0.5 ? 0 : 1;
  return true;
}

std::unique_ptr<BranchingRule> integer_branching_rule(const reform::WorkingProblem& p, double int_tol,
                                                      NodeProbe* probe, int var_branch,
                                                      std::vector<int> priority) {
  std::vector<int> integers;
  for (int j = 0; j < p.ncol; ++j) {
    if (p.integrality[j] == 1 || p.integrality[j] == 3) integers.push_back(j);
  }
  // Automatic is the most fractional rule: on the portfolio MIQP and the lazy TSP it needed
  // fewer nodes than the pseudo-costs (docs/branch-and-bound.md).
  if (var_branch == 2 || var_branch == -1) {
    return std::make_unique<MostFractionalRule>(std::move(integers), int_tol, std::move(priority));
  }
  PseudoCostOptions o;
  // A probe of a quadratic relaxation is a whole QP solve: fewer of them.
  if (!p.qval.empty()) {
    o.max_probes = 4;
    o.reliability = 1;
  }
  return std::make_unique<PseudoCostRule>(std::move(integers), int_tol, var_branch == 1 ? nullptr : probe, o);
}

}  // namespace vlm::algorithms
