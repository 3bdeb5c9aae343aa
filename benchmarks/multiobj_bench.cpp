// What hierarchical objectives and scenarios cost, through the C API, on a transportation LP
// (60 sources x 60 sinks, 3,600 columns, 120 rows):
//  1. the LP with one objective (VLMoptimize as usual);
//  2. the same costs as objective 0 of three priority levels (objective 1 and 2 other cost
//     patterns): three solves, the later ones with one degradation row each;
//  3. the LP with 10 scenarios, each changing 60 right-hand sides: 11 solves;
//  4. both: the three levels for the base model and each of the 10 scenarios: 33 solves.
// Best of 5 repetitions each. Not a test: it prints.
//
// Build and run: cmake --build build/t --target multiobj_bench && build/t/benchmarks/multiobj_bench
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "velmor_c.h"

namespace {

constexpr int kS = 60;

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

double cost(int pattern, int i, int j) {
  switch (pattern) {
    case 0: return 1.0 + ((i * 7 + j * 13) % 17);
    case 1: return 1.0 + ((i * 11 + j * 3) % 23);
    default: return 1.0 + ((i + j * 5) % 7);
  }
}

VLMmodel* transport(VLMenv* env) {
  VLMmodel* m = nullptr;
  if (VLMnewmodel(env, &m, "bench", 0, nullptr, nullptr, nullptr, nullptr, nullptr) != 0) return nullptr;
  std::vector<double> obj(kS * kS);
  for (int i = 0; i < kS; ++i)
    for (int j = 0; j < kS; ++j) obj[i * kS + j] = cost(0, i, j);
  VLMaddvars(m, kS * kS, 0, nullptr, nullptr, nullptr, obj.data(), nullptr, nullptr, nullptr, nullptr);
  std::vector<int> ind(kS);
  std::vector<double> one(kS, 1.0);
  for (int i = 0; i < kS; ++i) {
    for (int j = 0; j < kS; ++j) ind[j] = i * kS + j;
    VLMaddconstr(m, kS, ind.data(), one.data(), '<', 10.0 + i % 5, nullptr);
  }
  for (int j = 0; j < kS; ++j) {
    for (int i = 0; i < kS; ++i) ind[i] = i * kS + j;
    VLMaddconstr(m, kS, ind.data(), one.data(), '>', 8.0, nullptr);
  }
  VLMupdatemodel(m);
  return m;
}

void add_objectives(VLMmodel* m) {
  std::vector<int> ind(kS * kS);
  std::vector<double> val(kS * kS);
  for (int k = 0; k < 3; ++k) {
    for (int i = 0; i < kS; ++i) {
      for (int j = 0; j < kS; ++j) {
        ind[i * kS + j] = i * kS + j;
        val[i * kS + j] = cost(k, i, j);
      }
    }
    VLMsetobjectiven(m, k, 3 - k, 1.0, 0.0, 0.01, nullptr, 0.0, kS * kS, ind.data(), val.data());
  }
}

void add_scenarios(VLMmodel* m, VLMenv* env) {
  VLMsetintattr(m, "NumScenarios", 10);
  for (int s = 0; s < 10; ++s) {
    VLMsetintparam(VLMgetenv(m), "ScenarioNumber", s);
    for (int i = 0; i < kS; ++i) VLMsetdblattrelement(m, "ScenNRHS", i, 10.0 + (i + s) % 7);
  }
  (void)env;
}

void run(const char* what, VLMenv* env, void (*setup)(VLMmodel*, VLMenv*)) {
  double best = 1e30, value = 0.0;
  for (int rep = 0; rep < 5; ++rep) {
    VLMmodel* m = transport(env);
    setup(m, env);
    VLMupdatemodel(m);
    auto t0 = std::chrono::steady_clock::now();
    int rc = VLMoptimize(m);
    best = std::min(best, seconds_since(t0));
    if (rc == 0) VLMgetdblattr(m, "ObjVal", &value);
    VLMfreemodel(m);
  }
  std::printf("%-40s %8.1f ms   ObjVal %.2f\n", what, best * 1e3, value);
}

}  // namespace

int main() {
  VLMenv* env = nullptr;
  if (VLMemptyenv(&env) != 0) return 1;
  VLMsetintparam(env, "OutputFlag", 0);
  VLMsetintparam(env, "Threads", 1);
  if (VLMstartenv(env) != 0) return 1;
  run("one objective", env, [](VLMmodel*, VLMenv*) {});
  run("three objectives in three levels", env, [](VLMmodel* m, VLMenv*) { add_objectives(m); });
  run("ten scenarios (and the base model)", env, add_scenarios);
  run("three levels in ten scenarios (and base)", env, [](VLMmodel* m, VLMenv* e) {
    add_objectives(m);
    add_scenarios(m, e);
  });
  VLMfreeenv(env);
  return 0;
}
