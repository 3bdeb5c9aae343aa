// SOS, indicators and 2-norms solved by our own search, through the C API:
//  1. "sos1": n groups of k supply options, each group an SOS1 (one option per group), rows
//     asking each group for a demand that two cheap options together would meet more cheaply;
//     members without upper bounds (branched on) against the same model with bounds of the
//     total demand (binaries and big-M rows, HiGHS' MIP).
//  2. "indicator": fixed-charge supply, (y_i == 0) >> (x_i <= 0), x_i >= 0 bounded only by
//     the demand rows below (no finite big-M), against x_i <= total demand (big-M).
//  3. "norm2": the point of {x : A x >= b} nearest a target, y = ||x - target||_2 through a
//     NORM constraint on difference columns (a cone in the quadratic search).
// Prints objective, nodes and seconds per instance. Not a test: it asserts nothing.
//
// Build and run:  cmake --build build/t --target held_bench && build/t/benchmarks/held_bench
#include <chrono>
#include <cmath>
#include <cstdio>
#include <vector>

#include "velmor_c.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// A deterministic pseudo-random value in [0, 1).
double rnd(unsigned& s) {
  s = s * 1103515245u + 12345u;
  return ((s >> 8) & 0xffff) / 65536.0;
}

void report(const char* name, VLMmodel* m, std::chrono::steady_clock::time_point t0, int rc) {
  const double t = seconds_since(t0);
  int status = -1;
  double obj = NAN, nodes = NAN;
  VLMgetintattr(m, "Status", &status);
  VLMgetdblattr(m, "ObjVal", &obj);
  VLMgetdblattr(m, "NodeCount", &nodes);
  std::printf("%-34s rc %d status %d obj %.6f nodes %.0f time %.3f s\n", name, rc, status, obj, nodes, t);
}

VLMmodel* sos1_model(VLMenv* env, int groups, int k, bool bounded) {
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "sos1", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  unsigned s = 7;
  const double ub = bounded ? 20.0 * k : 1e100;
  for (int g = 0; g < groups; ++g) {
    std::vector<int> ind(k);
    std::vector<double> w(k), one(k, 1.0);
    for (int i = 0; i < k; ++i) {
      VLMaddvar(m, 0, nullptr, nullptr, 1.0 + 4.0 * rnd(s), 0.0, ub, 'C', nullptr);
      ind[i] = g * k + i;
      w[i] = i + 1.0;
    }
    VLMupdatemodel(m);
    // Two demand rows per group with different yields: mixing options is what the LP likes.
    std::vector<double> a(k), b(k);
    for (int i = 0; i < k; ++i) {
      a[i] = 0.5 + rnd(s);
      b[i] = 0.5 + rnd(s);
    }
    VLMaddconstr(m, k, ind.data(), a.data(), '>', 10.0, nullptr);
    VLMaddconstr(m, k, ind.data(), b.data(), '>', 10.0, nullptr);
    int type = 1, beg = 0;
    VLMaddsos(m, 1, k, &type, &beg, ind.data(), w.data());
  }
  // Linking rows between neighbouring groups, so the groups are not independent.
  for (int g = 0; g + 1 < groups; ++g) {
    int ind[2] = {g * k, (g + 1) * k + k - 1};
    double val[2] = {1.0, 1.0};
    VLMaddconstr(m, 2, ind, val, '>', 1.0, nullptr);
  }
  VLMupdatemodel(m);
  return m;
}

VLMmodel* indicator_model(VLMenv* env, int n, bool bounded) {
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "ind", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  unsigned s = 11;
  const double demand = 100.0;
  const double ub = bounded ? demand / 0.2 : 1e100;  // enough for the poorest option alone
  for (int i = 0; i < n; ++i) VLMaddvar(m, 0, nullptr, nullptr, 1.0 + rnd(s), 0.0, ub, 'C', nullptr);
  for (int i = 0; i < n; ++i) VLMaddvar(m, 0, nullptr, nullptr, 20.0 + 40.0 * rnd(s), 0.0, 1.0, 'B', nullptr);
  VLMupdatemodel(m);
  std::vector<int> ind(n);
  std::vector<double> yield(n), quality(n);
  for (int i = 0; i < n; ++i) {
    ind[i] = i;
    yield[i] = 0.6 + 0.8 * rnd(s);
    quality[i] = 0.2 + 1.6 * rnd(s);
  }
  VLMaddconstr(m, n, ind.data(), yield.data(), '>', demand, nullptr);
  VLMaddconstr(m, n, ind.data(), quality.data(), '>', demand, nullptr);
  for (int i = 0; i < n; ++i) {
    int xi = i;
    double one = 1.0;
    VLMaddgenconstrIndicator(m, nullptr, n + i, 0, 1, &xi, &one, '<', 0.0);
  }
  VLMupdatemodel(m);
  return m;
}

VLMmodel* norm_model(VLMenv* env, int n) {
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "norm", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  unsigned s = 5;
  // x (n, free), d = x - target (n, free), y (cost 1).
  for (int i = 0; i < 2 * n; ++i) VLMaddvar(m, 0, nullptr, nullptr, 0.0, -1e100, 1e100, 'C', nullptr);
  VLMaddvar(m, 0, nullptr, nullptr, 1.0, 0.0, 1e100, 'C', nullptr);
  VLMupdatemodel(m);
  for (int i = 0; i < n; ++i) {
    int ind[2] = {n + i, i};
    double val[2] = {1.0, -1.0};
    VLMaddconstr(m, 2, ind, val, '=', -rnd(s), nullptr);  // d_i = x_i - target_i
  }
  std::vector<int> xs(n);
  for (int i = 0; i < n; ++i) xs[i] = i;
  for (int r = 0; r < n / 2; ++r) {
    std::vector<double> a(n);
    for (int i = 0; i < n; ++i) a[i] = rnd(s);
    VLMaddconstr(m, n, xs.data(), a.data(), '>', 0.25 * n, nullptr);
  }
  std::vector<int> ds(n);
  for (int i = 0; i < n; ++i) ds[i] = n + i;
  VLMaddgenconstrNorm(m, nullptr, 2 * n, n, ds.data(), 2.0);
  VLMupdatemodel(m);
  return m;
}

}  // namespace

int main() {
  VLMenv* env = nullptr;
  VLMemptyenv(&env);
  VLMsetintparam(env, "OutputFlag", 0);
  VLMsetintparam(env, "Threads", 1);
  VLMstartenv(env);
  for (auto [groups, k] : {std::pair{5, 6}, std::pair{10, 8}, std::pair{20, 10}}) {
    for (bool bounded : {false, true}) {
      VLMmodel* m = sos1_model(env, groups, k, bounded);
      const auto t0 = std::chrono::steady_clock::now();
      const int rc = VLMoptimize(m);
      char name[64];
      std::snprintf(name, sizeof name, "sos1 %dx%d %s", groups, k, bounded ? "big-M" : "branched");
      report(name, m, t0, rc);
      VLMfreemodel(m);
    }
  }
  for (int n : {10, 20, 40}) {
    for (bool bounded : {false, true}) {
      VLMmodel* m = indicator_model(env, n, bounded);
      const auto t0 = std::chrono::steady_clock::now();
      const int rc = VLMoptimize(m);
      char name[64];
      std::snprintf(name, sizeof name, "indicator n=%d %s", n, bounded ? "big-M" : "branched");
      report(name, m, t0, rc);
      VLMfreemodel(m);
    }
  }
  for (int n : {5, 20, 50}) {
    VLMmodel* m = norm_model(env, n);
    const auto t0 = std::chrono::steady_clock::now();
    const int rc = VLMoptimize(m);
    char name[64];
    std::snprintf(name, sizeof name, "norm2 n=%d", n);
    report(name, m, t0, rc);
    VLMfreemodel(m);
  }
  VLMfreeenv(env);
  return 0;
}
