// What the reformulation step costs, through the C API:
//  1. a plain LP (no constructs) solved repeatedly: the path every ordinary model takes, which
//     the reformulation step must leave as fast as it was;
//  2. 10,000 indicator constraints (y_i == 0) >> (x_i <= 0) with x_i in [0, 100], against the
//     same MILP written by hand as x_i - 100 y_i <= 0. Timed: building the model (add calls
//     and update), then VLMoptimize with TimeLimit 0, which runs the reformulation, hands the
//     problem to HiGHS and returns at once; so the difference is reformulation + hand-off.
//
// Build and run:  cmake --build build/t --target reform_bench && build/t/benchmarks/reform_bench
// Not a test: it asserts nothing about time, it prints.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "velmor_c.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

VLMmodel* new_model(VLMenv* env) {
  VLMmodel* m = nullptr;
  if (VLMnewmodel(env, &m, "bench", 0, nullptr, nullptr, nullptr, nullptr, nullptr) != 0) return nullptr;
  return m;
}

// A transportation-like LP: 60 sources x 60 sinks, 3,600 columns, 120 rows.
VLMmodel* plain_lp(VLMenv* env) {
  const int s = 60;
  VLMmodel* m = new_model(env);
  std::vector<double> obj(s * s);
  for (int i = 0; i < s; ++i) {
    for (int j = 0; j < s; ++j) obj[i * s + j] = 1.0 + ((i * 7 + j * 13) % 17);
  }
  VLMaddvars(m, s * s, 0, nullptr, nullptr, nullptr, obj.data(), nullptr, nullptr, nullptr, nullptr);
  std::vector<int> ind(s);
  std::vector<double> one(s, 1.0);
  for (int i = 0; i < s; ++i) {
    for (int j = 0; j < s; ++j) ind[j] = i * s + j;
    VLMaddconstr(m, s, ind.data(), one.data(), '<', 10.0 + i % 5, nullptr);
  }
  for (int j = 0; j < s; ++j) {
    for (int i = 0; i < s; ++i) ind[i] = i * s + j;
    VLMaddconstr(m, s, ind.data(), one.data(), '>', 8.0, nullptr);
  }
  VLMupdatemodel(m);
  return m;
}

void bench_lp(VLMenv* env) {
  const int runs = 30;
  std::vector<double> t;
  double obj = 0.0;
  for (int r = 0; r < runs; ++r) {
    VLMmodel* m = plain_lp(env);
    auto t0 = std::chrono::steady_clock::now();
    int rc = VLMoptimize(m);
    t.push_back(seconds_since(t0));
    if (rc != 0) std::printf("plain LP: optimize failed (%d)\n", rc);
    VLMgetdblattr(m, "ObjVal", &obj);
    VLMfreemodel(m);
  }
  std::sort(t.begin(), t.end());
  std::printf("plain LP 3600x120: optimize median %.2f ms, min %.2f ms (%d runs), objective %.1f\n",
              1e3 * t[runs / 2], 1e3 * t[0], runs, obj);
}

// n pairs (x_i in [0, 100], binary y_i); sum x_i >= n; objective sum x_i + 10 y_i.
VLMmodel* indicator_model(VLMenv* env, int n, bool by_hand) {
  VLMmodel* m = new_model(env);
  std::vector<double> obj(2 * n), lb(2 * n, 0.0), ub(2 * n);
  std::vector<char> type(2 * n);
  for (int i = 0; i < n; ++i) {
    obj[2 * i] = 1.0;
    ub[2 * i] = 100.0;
    type[2 * i] = 'C';
    obj[2 * i + 1] = 10.0;
    ub[2 * i + 1] = 1.0;
    type[2 * i + 1] = 'B';
  }
  VLMaddvars(m, 2 * n, 0, nullptr, nullptr, nullptr, obj.data(), lb.data(), ub.data(), type.data(), nullptr);
  for (int i = 0; i < n; ++i) {
    int x = 2 * i;
    double one = 1.0;
    if (by_hand) {
      int ind[2] = {x, x + 1};
      double val[2] = {1.0, -100.0};
      VLMaddconstr(m, 2, ind, val, '<', 0.0, nullptr);
    } else {
      VLMaddgenconstrIndicator(m, nullptr, x + 1, 0, 1, &x, &one, '<', 0.0);
    }
  }
  std::vector<int> all(n);
  std::vector<double> ones(n, 1.0);
  for (int i = 0; i < n; ++i) all[i] = 2 * i;
  VLMaddconstr(m, n, all.data(), ones.data(), '>', static_cast<double>(n), nullptr);
  VLMupdatemodel(m);
  return m;
}

void bench_indicators(VLMenv* env) {
  const int n = 10000;
  for (bool by_hand : {true, false}) {
    double best_build = 1e9, best_solve = 1e9;
    int rc = 0;
    for (int r = 0; r < 5; ++r) {
      auto t0 = std::chrono::steady_clock::now();
      VLMmodel* m = indicator_model(env, n, by_hand);
      const double build = seconds_since(t0);
      VLMsetdblparam(VLMgetenv(m), "TimeLimit", 0.0);
      t0 = std::chrono::steady_clock::now();
      rc = VLMoptimize(m);
      best_solve = std::min(best_solve, seconds_since(t0));
      best_build = std::min(best_build, build);
      VLMfreemodel(m);
    }
    std::printf("%-28s build %.1f ms, reformulate + hand-off %.1f ms, total %.1f ms%s\n",
                by_hand ? "10,000 big-M rows by hand:" : "10,000 indicators:", 1e3 * best_build,
                1e3 * best_solve, 1e3 * (best_build + best_solve), rc != 0 ? " (optimize refused)" : "");
  }
}

}  // namespace

int main() {
  VLMenv* env = nullptr;
  if (VLMemptyenv(&env) != 0) return 1;
  VLMsetintparam(env, "OutputFlag", 0);
  VLMsetintparam(env, "Threads", 1);
  if (VLMstartenv(env) != 0) return 1;
  bench_lp(env);
  bench_indicators(env);
  VLMfreeenv(env);
  return 0;
}
