#include "algorithms/psd.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "reform/convexity.h"

namespace vlm::algorithms {

namespace {

// Dense copy of the form on its support, factorised by the library's one test
// (reform::factor_psd_dense); the forms come back in the model's column indices.
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
  if (!reform::factor_psd_dense(a, n, tol, forms)) return false;
  if (forms) {
    for (auto& f : *forms) {
      for (auto& [j, v] : f) j = var[j];
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
