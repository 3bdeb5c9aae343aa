// What concurrent solves and parallel tuning cost in wall time against the plain ways, through
// the C API:
//  1. a 70 x 70 transportation LP: plain (Method -1), Method 3 (primal, dual simplex and barrier
//     side by side) and two concurrent environments (primal simplex, barrier);
//  2. a 0-1 knapsack with 40 items and 5 rows: plain, ConcurrentMIP 2 and 4;
//  3. tuning the 30 x 4 knapsack with TuneJobs 0 and 2 (1 trial per set, no target time).
// Each solve runs three times; the median wall time is printed with the winner's algorithm.
// Not a test: it prints. Timings depend on the load of the machine.
//
// Build and run: cmake --build build/t --target concurrent_bench && build/t/benchmarks/concurrent_bench
#include <algorithm>
#include <chrono>
#include <cstdio>
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

VLMmodel* new_model(VLMenv* env, const char* name) {
  VLMmodel* m = nullptr;
  if (VLMnewmodel(env, &m, name, 0, nullptr, nullptr, nullptr, nullptr, nullptr) != 0) return nullptr;
  VLMsetintparam(VLMgetenv(m), "OutputFlag", 0);
  return m;
}

// Supplies 20 + (7i mod 13), demands balanced, costs from a fixed sequence.
VLMmodel* transport(VLMenv* env, int k) {
  VLMmodel* m = new_model(env, "transport");
  Lcg g{99};
  for (int i = 0; i < k; ++i) {
    for (int j = 0; j < k; ++j) VLMaddvar(m, 0, nullptr, nullptr, g.next(1, 50), 0, 1e100, 'C', nullptr);
  }
  double supply_total = 0;
  for (int i = 0; i < k; ++i) {
    std::vector<int> ind;
    std::vector<double> val(k, 1.0);
    for (int j = 0; j < k; ++j) ind.push_back(i * k + j);
    const double supply = 20 + (7 * i) % 13;
    supply_total += supply;
    VLMaddconstr(m, k, ind.data(), val.data(), '<', supply, nullptr);
  }
  for (int j = 0; j < k; ++j) {
    std::vector<int> ind;
    std::vector<double> val(k, 1.0);
    for (int i = 0; i < k; ++i) ind.push_back(i * k + j);
    VLMaddconstr(m, k, ind.data(), val.data(), '>', supply_total / k, nullptr);
  }
  VLMupdatemodel(m);
  return m;
}

VLMmodel* knapsack(VLMenv* env, int items, int rows, unsigned seed) {
  VLMmodel* m = new_model(env, "knapsack");
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

// Solves three times from scratch (VLMreset) and prints the median wall time.
void timed_solve(VLMmodel* m, const char* what) {
  std::vector<double> times;
  double obj = 0;
  int win = -1;
  for (int r = 0; r < 3; ++r) {
    VLMreset(m, 1);
    const auto t0 = std::chrono::steady_clock::now();
    if (VLMoptimize(m) != 0) {
      std::printf("  %-36s failed: %s\n", what, VLMgetmerrormsg(m));
      return;
    }
    times.push_back(seconds_since(t0));
  }
  std::sort(times.begin(), times.end());
  VLMgetdblattr(m, "ObjVal", &obj);
  VLMgetintattr(m, "ConcurrentWinMethod", &win);
  std::printf("  %-36s %8.3f s  objective %.6g  ConcurrentWinMethod %d\n", what, times[1], obj, win);
}

}  // namespace

int main() {
  VLMenv* env = nullptr;
  if (VLMloadenv(&env, nullptr) != 0) return 1;
  VLMsetintparam(env, "OutputFlag", 0);

  std::printf("Transportation LP 70 x 70 (4900 columns, 140 rows)\n");
  VLMmodel* lp = transport(env, 70);
  timed_solve(lp, "plain (Method -1)");
  VLMsetintparam(VLMgetenv(lp), "Method", 3);
  timed_solve(lp, "Method 3 (primal, dual, barrier)");
  VLMsetintparam(VLMgetenv(lp), "Method", -1);
  VLMsetintparam(VLMgetconcurrentenv(lp, 0), "Method", 0);
  VLMsetintparam(VLMgetconcurrentenv(lp, 1), "Method", 2);
  timed_solve(lp, "environments (primal, barrier)");
  VLMfreemodel(lp);

  std::printf("Knapsack MIP, 40 items x 5 rows\n");
  VLMmodel* mip = knapsack(env, 40, 5, 777);
  timed_solve(mip, "plain");
  VLMsetintparam(VLMgetenv(mip), "ConcurrentMIP", 2);
  timed_solve(mip, "ConcurrentMIP 2");
  VLMsetintparam(VLMgetenv(mip), "ConcurrentMIP", 4);
  timed_solve(mip, "ConcurrentMIP 4");
  VLMfreemodel(mip);

  std::printf("Tuning the knapsack MIP, 30 items x 4 rows (1 trial per set)\n");
  for (int jobs : {0, 2}) {
    VLMmodel* t = knapsack(env, 30, 4, 12345);
    VLMsetintparam(VLMgetenv(t), "TuneOutput", 0);
    VLMsetintparam(VLMgetenv(t), "TuneTrials", 1);
    VLMsetdblparam(VLMgetenv(t), "TuneTargetTime", 0);
    VLMsetdblparam(VLMgetenv(t), "TuneTimeLimit", 60);
    VLMsetintparam(VLMgetenv(t), "TuneJobs", jobs);
    const auto t0 = std::chrono::steady_clock::now();
    const int rc = VLMtunemodel(t);
    int results = 0;
    VLMgetintattr(t, "TuneResultCount", &results);
    std::printf("  TuneJobs %d: %s in %.2f s, %d results\n", jobs, rc == 0 ? "tuned" : "failed", seconds_since(t0),
                results);
    VLMfreemodel(t);
  }
  VLMfreeenv(env);
  return 0;
}
