#include "algorithms/psd.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace vlm::algorithms {

namespace {

// Pivoted symmetric elimination: a semidefinite matrix keeps a non-negative largest remaining
// diagonal, and a zero pivot needs a zero row. With `forms`, each positive pivot d at p
// contributes the form (a(p, j) / sqrt(d))_j over p and the columns left.
bool factor(const std::vector<int>& row, const std::vector<int>& col, const std::vector<double>& val, double tol,
            std::vector<std::vector<std::pair<int, double>>>* forms) {
  std::unordered_map<int, int> pos;
  std::vector<int> var;
  auto index = [&](int j) {
    auto [it, added] = pos.emplace(j, static_cast<int>(var.size()));
    if (added) var.push_back(j);
    return it->second;
  };
  for (std::size_t k = 0; k < val.size(); ++k) {
    index(row[k]);
    index(col[k]);
  }
  const int n = static_cast<int>(var.size());
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
  for (std::size_t k = 0; k < a.size(); ++k) scale = std::max(scale, std::fabs(a[k]));
  const double eps = tol * std::max(scale, 1e-300);
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
    if (forms) {
      const double r = std::sqrt(d);
      std::vector<std::pair<int, double>> f{{var[p], r}};
      for (int i : left) {
        if (at(i, p) != 0.0) f.push_back({var[i], at(i, p) / r});
      }
      forms->push_back(std::move(f));
    }
    for (int i : left) {
      const double f = at(i, p) / d;
      if (f == 0.0) continue;
      for (int j : left) at(i, j) -= f * at(p, j);
    }
  }
  return true;
}

}  // namespace

bool is_psd(const std::vector<int>& row, const std::vector<int>& col, const std::vector<double>& val, double tol) {
  return factor(row, col, val, tol, nullptr);
}

bool psd_factor(const std::vector<int>& row, const std::vector<int>& col, const std::vector<double>& val,
                std::vector<std::vector<std::pair<int, double>>>& forms, double tol) {
  forms.clear();
  return factor(row, col, val, tol, &forms);
}

}  // namespace vlm::algorithms
