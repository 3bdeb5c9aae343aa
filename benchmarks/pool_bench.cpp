// What the pool search and the tuner cost, through the C API:
//  1. a 0-1 knapsack with 60 items (one row) and a multi-dimensional knapsack with 40 items
//     and 5 rows: the plain solve (PoolSearchMode 0), then mode 2 for 10 and 20 solutions and mode
//     1 for 10 and 50 (time, SolCount, the worst pool objective);
//  2. the tuner on the multi-dimensional knapsack and on a small fixed-charge facility model
//     (8 facilities, 30 customers): tuning time, results, the changes of result 0, and the
//     mean solve time over 3 seeds with the defaults and with result 0.
// Not a test: it prints.
//
// Build and run: cmake --build build/t --target pool_bench && build/t/benchmarks/pool_bench
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "velmor_c.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

struct Lcg {
  unsigned s;
  int next(int lo, int hi) {
    s = s * 1103515245u + 12345u;
    return lo + static_cast<int>((s >> 16) % static_cast<unsigned>(hi - lo + 1));
  }
};

VLMmodel* knapsack(VLMenv* env, int items, int rows, unsigned seed) {
  VLMmodel* m = nullptr;
  if (VLMnewmodel(env, &m, "knapsack", 0, nullptr, nullptr, nullptr, nullptr, nullptr) != 0) return nullptr;
  Lcg g{seed};
  for (int j = 0; j < items; ++j) VLMaddvar(m, 0, nullptr, nullptr, g.next(10, 60), 0, 1, 'B', nullptr);
  for (int i = 0; i < rows; ++i) {
    std::vector<int> ind;
    std::vector<double> val;
    double total = 0;
    for (int j = 0; j < items; ++j) {
      ind.push_back(j);
      val.push_back(g.next(5, 40));
      total += val.back();
    }
    VLMaddconstr(m, items, ind.data(), val.data(), '<', static_cast<double>(static_cast<int>(total / 3)), nullptr);
  }
  VLMsetintattr(m, "ModelSense", -1);
  VLMupdatemodel(m);
  return m;
}

// Capacitated facility location: open y_i (fixed cost), serve each customer's demand from open
// facilities (x_ij fraction), capacity rows and x_ij <= y_i.
VLMmodel* facility(VLMenv* env, int nf, int nc) {
  VLMmodel* m = nullptr;
  if (VLMnewmodel(env, &m, "facility", 0, nullptr, nullptr, nullptr, nullptr, nullptr) != 0) return nullptr;
  Lcg g{777};
  for (int i = 0; i < nf; ++i) VLMaddvar(m, 0, nullptr, nullptr, g.next(200, 400), 0, 1, 'B', nullptr);
  std::vector<int> demand(nc);
  for (int j = 0; j < nc; ++j) demand[j] = g.next(5, 25);
  for (int i = 0; i < nf; ++i)
    for (int j = 0; j < nc; ++j) VLMaddvar(m, 0, nullptr, nullptr, demand[j] * g.next(1, 12), 0, 1, 'C', nullptr);
  auto xv = [nf, nc](int i, int j) { return nf + i * nc + j; };
  for (int j = 0; j < nc; ++j) {
    std::vector<int> ind;
    std::vector<double> val(nf, 1.0);
    for (int i = 0; i < nf; ++i) ind.push_back(xv(i, j));
    VLMaddconstr(m, nf, ind.data(), val.data(), '=', 1.0, nullptr);
  }
  for (int i = 0; i < nf; ++i) {
    std::vector<int> ind{i};
    std::vector<double> val{-static_cast<double>(g.next(60, 120))};
    for (int j = 0; j < nc; ++j) {
      ind.push_back(xv(i, j));
      val.push_back(demand[j]);
      int link[2] = {xv(i, j), i};
      double lv[2] = {1.0, -1.0};
      VLMaddconstr(m, 2, link, lv, '<', 0.0, nullptr);
    }
    VLMaddconstr(m, static_cast<int>(ind.size()), ind.data(), val.data(), '<', 0.0, nullptr);
  }
  VLMupdatemodel(m);
  return m;
}

void pool_runs(VLMmodel* m, const char* label) {
  VLMenv* e = VLMgetenv(m);
  for (auto [mode, k] : {std::pair{0, 10}, {2, 10}, {2, 20}, {1, 10}, {1, 50}}) {
    VLMsetintparam(e, "PoolSearchMode", mode);
    VLMsetintparam(e, "PoolSolutions", k);
    VLMsetintparam(e, "SolutionNumber", 0);
    const auto t0 = std::chrono::steady_clock::now();
    int rc = VLMoptimize(m);
    const double t = seconds_since(t0);
    int count = 0;
    double best = 0, worst = 0;
    VLMgetintattr(m, "SolCount", &count);
    VLMgetdblattr(m, "ObjVal", &best);
    if (count > 0) {
      VLMsetintparam(e, "SolutionNumber", count - 1);
      VLMgetdblattr(m, "PoolObjVal", &worst);
    }
    std::printf("%-22s mode %d, PoolSolutions %2d: rc %d, %6.3f s, SolCount %2d, best %.0f, worst kept %.0f\n", label,
                mode, k, rc, t, count, best, worst);
  }
  VLMsetintparam(e, "PoolSearchMode", 0);
  VLMsetintparam(e, "SolutionNumber", 0);
}

double mean_time(VLMmodel* m) {
  VLMenv* e = VLMgetenv(m);
  double total = 0;
  for (int s = 0; s < 3; ++s) {
    VLMsetintparam(e, "Seed", s);
    VLMoptimize(m);
    double t = 0;
    VLMgetdblattr(m, "Runtime", &t);
    total += t;
  }
  VLMsetintparam(e, "Seed", 0);
  return total / 3;
}

void tune_run(VLMmodel* m, const char* label) {
  VLMenv* e = VLMgetenv(m);
  VLMsetintparam(e, "TuneOutput", 0);
  VLMsetdblparam(e, "TuneTargetTime", 0);
  const double before = mean_time(m);
  const auto t0 = std::chrono::steady_clock::now();
  int rc = VLMtunemodel(m);
  const double t = seconds_since(t0);
  int count = 0;
  VLMgetintattr(m, "TuneResultCount", &count);
  VLMgettuneresult(m, 0);
  const char* path = "/tmp/pool_bench_tune.prm";
  VLMwriteparams(e, path);
  std::ifstream in(path);
  std::string line, changes;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#' || line.rfind("Tune", 0) == 0) continue;
    changes += (changes.empty() ? "" : "; ") + line;
  }
  const double after = mean_time(m);
  std::printf("%-22s tune rc %d in %.1f s: %d results; result 0: [%s]; mean solve %.3f s -> %.3f s\n", label, rc, t,
              count, changes.c_str(), before, after);
}

}  // namespace

int main() {
  VLMenv* env = nullptr;
  VLMemptyenv(&env);
  VLMsetintparam(env, "OutputFlag", 0);
  VLMstartenv(env);
  VLMmodel* k1 = knapsack(env, 60, 1, 4242);
  VLMmodel* k5 = knapsack(env, 40, 5, 12345);
  pool_runs(k1, "knapsack 60x1");
  pool_runs(k5, "knapsack 40x5");
  VLMmodel* fl = facility(env, 8, 30);
  if (std::getenv("POOL_BENCH_NO_TUNE") == nullptr) {
    tune_run(k5, "knapsack 40x5");
    tune_run(fl, "facility 8x30");
  }
  VLMfreemodel(k1);
  VLMfreemodel(k5);
  VLMfreemodel(fl);
  VLMfreeenv(env);
  return 0;
}
