#include "reform/convexity.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <unordered_map>

#include "velmor_codes.h"

namespace vlm::reform {

namespace {

// Union-find over dense positions, to split the variables into connected blocks.
struct Blocks {
  std::vector<int> parent;
  explicit Blocks(int n) : parent(n) { std::iota(parent.begin(), parent.end(), 0); }
  int find(int a) {
    while (parent[a] != a) {
      parent[a] = parent[parent[a]];
      a = parent[a];
    }
    return a;
  }
  void join(int a, int b) { parent[find(a)] = find(b); }
};

// Pivoted Cholesky test of the dense symmetric k x k matrix `h` (row-major, overwritten).
bool dense_psd(std::vector<double>& h, int k) {
  double scale = 0.0;
  for (double v : h) scale = std::max(scale, std::fabs(v));
  if (scale == 0.0) return true;
  const double tol = 1e-9 * scale;
  std::vector<int> left(k);
  std::iota(left.begin(), left.end(), 0);
  while (!left.empty()) {
    auto best = std::max_element(left.begin(), left.end(),
                                 [&](int a, int b) { return h[a * k + a] < h[b * k + b]; });
    const int p = *best;
    const double d = h[p * k + p];
    if (d < -tol) return false;
    if (d <= tol) {
      // A PSD matrix whose largest diagonal entry is zero is zero.
      for (int i : left) {
        for (int j : left) {
          if (std::fabs(h[i * k + j]) > tol) return false;
        }
      }
      return true;
    }
    left.erase(best);
    for (int i : left) {
      const double f = h[i * k + p] / d;
      if (f == 0.0) continue;
      for (int j : left) h[i * k + j] -= f * h[p * k + j];
    }
  }
  return true;
}

}  // namespace

CurvatureCheck check_psd(const std::vector<int>& row, const std::vector<int>& col,
                         const std::vector<double>& val, bool negate) {
  CurvatureCheck out;
  // Dense positions of the variables with a non-zero term.
  std::unordered_map<int, int> pos;
  std::vector<int> var;
  auto at = [&](int v) {
    auto [it, fresh] = pos.emplace(v, static_cast<int>(var.size()));
    if (fresh) var.push_back(v);
    return it->second;
  };
  for (std::size_t t = 0; t < val.size(); ++t) {
    if (val[t] == 0.0) continue;
    at(row[t]);
    at(col[t]);
  }
  const int n = static_cast<int>(var.size());
  Blocks blocks(n);
  for (std::size_t t = 0; t < val.size(); ++t) {
    if (val[t] != 0.0 && row[t] != col[t]) blocks.join(pos[row[t]], pos[col[t]]);
  }
  std::unordered_map<int, std::vector<int>> by_root;  // root -> dense positions
  for (int i = 0; i < n; ++i) by_root[blocks.find(i)].push_back(i);
  // Blocks in order of their smallest variable, so that the culprit reported is deterministic.
  std::vector<std::pair<int, std::vector<int>>> members(by_root.begin(), by_root.end());
  auto least = [&](const std::vector<int>& b) {
    int m = var[b[0]];
    for (int a : b) m = std::min(m, var[a]);
    return m;
  };
  std::sort(members.begin(), members.end(),
            [&](const auto& x, const auto& y) { return least(x.second) < least(y.second); });
  std::unordered_map<int, std::vector<std::size_t>> terms;  // root -> term indices
  for (std::size_t t = 0; t < val.size(); ++t) {
    if (val[t] != 0.0) terms[blocks.find(pos[row[t]])].push_back(t);
  }

  const double sign = negate ? -1.0 : 1.0;
  for (auto& [root, idx] : members) {
    const int k = static_cast<int>(idx.size());
    if (k > kMaxDenseBlock) {
      out.unchecked_vars += k;
      continue;
    }
    std::unordered_map<int, int> local;
    for (int a = 0; a < k; ++a) local[idx[a]] = a;
    std::vector<double> h(static_cast<std::size_t>(k) * k, 0.0);
    for (std::size_t t : terms[root]) {
      const int a = local[pos[row[t]]], b = local[pos[col[t]]];
      const double v = sign * val[t];
      if (a == b) {
        h[a * k + a] += v;
      } else {
        h[a * k + b] += v / 2;
        h[b * k + a] += v / 2;
      }
    }
    if (!dense_psd(h, k)) {
      out.psd = false;
      for (int a : idx) out.culprit.push_back(var[a]);
      std::sort(out.culprit.begin(), out.culprit.end());
      return out;
    }
  }
  return out;
}

Status check_objective_curvature(const ModelData& d) {
  if (d.qval.empty()) return Status::Ok();
  const bool maximise = d.sense == -1;
  CurvatureCheck c = check_psd(d.qrow, d.qcol, d.qval, maximise);
  if (c.psd) return Status::Ok();
  std::string names;
  const std::size_t shown = std::min<std::size_t>(c.culprit.size(), 5);
  for (std::size_t k = 0; k < shown; ++k) names += (k ? ", '" : "'") + d.varname[c.culprit[k]] + "'";
  if (c.culprit.size() > shown) names += ", ...";
  return Status(VLM_ERROR_Q_NOT_PSD,
                std::string("Q matrix isn't Positive Semi-Definite: the quadratic objective of this ") +
                    (maximise ? "maximisation is not concave" : "minimisation is not convex") +
                    " in the terms over " + names +
                    "; HiGHS solves only convex quadratic objectives");
}

}  // namespace vlm::reform
