#include "algorithms/psd.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace vlm::algorithms {

bool is_psd(const std::vector<int>& row, const std::vector<int>& col, const std::vector<double>& val, double tol) {
  std::unordered_map<int, int> pos;
  for (std::size_t k = 0; k < val.size(); ++k) {
    pos.emplace(row[k], static_cast<int>(pos.size()));
    pos.emplace(col[k], static_cast<int>(pos.size()));
  }
  const int n = static_cast<int>(pos.size());
  std::vector<double> a(static_cast<std::size_t>(n) * n, 0.0);
  auto at = [&](int i, int j) -> double& { return a[static_cast<std::size_t>(i) * n + j]; };
  for (std::size_t k = 0; k < val.size(); ++k) {
    const int i = pos[row[k]], j = pos[col[k]];
    if (i == j) {
      at(i, i) += val[k];
    } else {
      at(i, j) += val[k] / 2;
      at(j, i) += val[k] / 2;
    }
  }
  double scale = 0.0;
  for (int i = 0; i < n; ++i) scale = std::max(scale, std::fabs(at(i, i)));
  for (std::size_t k = 0; k < a.size(); ++k) scale = std::max(scale, std::fabs(a[k]));
  const double eps = tol * std::max(scale, 1e-300);
  // Symmetric elimination with diagonal pivoting: a semidefinite matrix keeps a non-negative
  // largest remaining diagonal, and a zero pivot needs a zero row.
  std::vector<int> left(n);
  for (int i = 0; i < n; ++i) left[i] = i;
  while (!left.empty()) {
    auto best = std::max_element(left.begin(), left.end(), [&](int p, int q) { return at(p, p) < at(q, q); });
    const int p = *best;
    const double d = at(p, p);
    left.erase(best);
    if (d < -eps) return false;
    if (d <= eps) {
      for (int i : left) {
        if (std::fabs(at(i, p)) > std::sqrt(eps * std::max(eps, scale))) return false;
        if (at(i, i) < -eps) return false;
      }
      continue;
    }
    for (int i : left) {
      const double f = at(i, p) / d;
      if (f == 0.0) continue;
      for (int j : left) at(i, j) -= f * at(p, j);
    }
  }
  return true;
}

}  // namespace vlm::algorithms
