#include "reform/convexity.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>

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

}  // namespace

bool factor_psd_dense(std::vector<double>& h, int k, double tol,
                      std::vector<std::vector<std::pair<int, double>>>* forms) {
  auto at = [&](int i, int j) -> double& { return h[static_cast<std::size_t>(i) * k + j]; };
  double scale = 0.0;
  for (double v : h) scale = std::max(scale, std::fabs(v));
  const double eps = tol * std::max(scale, 1e-300);
  std::vector<int> left(k);
  std::iota(left.begin(), left.end(), 0);
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
      std::vector<std::pair<int, double>> f{{p, r}};
      for (int i : left) {
        if (at(i, p) != 0.0) f.push_back({i, at(i, p) / r});
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

CurvatureCheck check_psd(const std::vector<int>& row, const std::vector<int>& col,
                         const std::vector<double>& val, bool negate) {
  CurvatureCheck out;
  const double sign = negate ? -1.0 : 1.0;
  int nmax = 0;
  for (std::size_t t = 0; t < val.size(); ++t) {
    if (val[t] != 0.0) nmax = std::max(nmax, std::max(row[t], col[t]) + 1);
  }
  // Union-find over the variables; a product term joins its two variables.
  Blocks blocks(nmax);
  std::vector<char> used(static_cast<std::size_t>(nmax), 0);
  for (std::size_t t = 0; t < val.size(); ++t) {
    if (val[t] == 0.0) continue;
    used[row[t]] = used[col[t]] = 1;
    if (row[t] != col[t]) blocks.join(row[t], col[t]);
  }
  // Variables ordered by (block, index): each block is a run, its first entry its least.
  std::vector<std::pair<int, int>> members;
  for (int v = 0; v < nmax; ++v) {
    if (used[v]) members.emplace_back(blocks.find(v), v);
  }
  std::sort(members.begin(), members.end());
  struct Run {
    std::size_t begin, end;  // in members
    int least;
  };
  std::vector<Run> runs;
  for (std::size_t a = 0; a < members.size();) {
    std::size_t b = a + 1;
    while (b < members.size() && members[b].first == members[a].first) ++b;
    runs.push_back({a, b, members[a].second});
    a = b;
  }
  // Terms by block.
  std::vector<std::pair<int, std::size_t>> terms;
  std::vector<double> diag(static_cast<std::size_t>(nmax), 0.0);  // 1x1 blocks only
  for (std::size_t t = 0; t < val.size(); ++t) {
    if (val[t] == 0.0) continue;
    if (row[t] == col[t]) diag[row[t]] += sign * val[t];
    terms.emplace_back(blocks.find(row[t]), t);
  }
  std::sort(terms.begin(), terms.end());
  // Blocks in order of their least variable, so that the culprit reported is deterministic.
  std::sort(runs.begin(), runs.end(), [](const Run& x, const Run& y) { return x.least < y.least; });
  std::vector<int> local(static_cast<std::size_t>(nmax), -1);
  for (const Run& run : runs) {
    const int k = static_cast<int>(run.end - run.begin);
    bool psd = true;
    if (k == 1) {
      psd = diag[members[run.begin].second] >= 0.0;  // a 1x1 block is its diagonal entry
    } else if (k > kMaxDenseBlock) {
      out.unchecked_vars += k;
      continue;
    } else {
      for (std::size_t m = run.begin; m < run.end; ++m) local[members[m].second] = static_cast<int>(m - run.begin);
      std::vector<double> h(static_cast<std::size_t>(k) * k, 0.0);
      const int root = members[run.begin].first;
      auto it = std::lower_bound(terms.begin(), terms.end(), std::make_pair(root, std::size_t{0}));
      for (; it != terms.end() && it->first == root; ++it) {
        const std::size_t t = it->second;
        const int a = local[row[t]], b = local[col[t]];
        const double v = sign * val[t];
        if (a == b) {
          h[a * k + a] += v;
        } else {
          h[a * k + b] += v / 2;
          h[b * k + a] += v / 2;
        }
      }
      psd = factor_psd_dense(h, k, 1e-9, nullptr);
    }
    if (!psd) {
      out.psd = false;
      for (std::size_t m = run.begin; m < run.end; ++m) out.culprit.push_back(members[m].second);
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
