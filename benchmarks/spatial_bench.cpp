// Measures the spatial branch and bound (NonConvex=2) on generated nonconvex models:
//   box QP:    min 1/2 x'Qx + c'x over [0, 1]^n, Q symmetric with entries uniform in [-1, 1]
//              (indefinite), c uniform in [-1, 1];
//   bilinear:  min x'Ay + c'x + d'y with sum x = 1, sum y = 1, x, y in [0, 1]^n (a disjoint
//              bilinear program, every x_i y_j a product).
// Usage: spatial_bench [time limit in s] [n ...]   (defaults 60 and 5 10 15 20). Prints one line
// per model: status, objective, bound, gap, nodes and time.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "velmor_c.h"

namespace {

struct Rng {
  unsigned long long s = 2024;
  double uniform() {
    s = s * 6364136223846793005ULL + 1442695040888963407ULL;
    return 2.0 * static_cast<double>((s >> 11) & ((1ULL << 53) - 1)) / static_cast<double>(1ULL << 53) - 1.0;
  }
};

void report(const char* name, int n, VLMmodel* m, double seconds) {
  int status = 0;
  double obj = NAN, bound = NAN, nodes = 0;
  VLMgetintattr(m, "Status", &status);
  VLMgetdblattr(m, "ObjVal", &obj);
  VLMgetdblattr(m, "ObjBound", &bound);
  VLMgetdblattr(m, "NodeCount", &nodes);
  const double gap = std::fabs(obj - bound) / std::max(1e-10, std::fabs(obj));
  std::printf("%-9s n=%-3d status=%-2d obj=%.8g bound=%.8g gap=%.2e nodes=%.0f time=%.2fs\n", name, n, status, obj,
              bound, gap, nodes, seconds);
}

double solve(VLMmodel* m) {
  const auto t0 = std::chrono::steady_clock::now();
  if (VLMoptimize(m) != VLM_OK) std::printf("error: %s\n", VLMgetmerrormsg(m));
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

void box_qp(VLMenv* env, int n) {
  Rng r;
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "boxqp", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  for (int j = 0; j < n; ++j) VLMaddvar(m, 0, nullptr, nullptr, r.uniform(), 0, 1, 'C', nullptr);
  std::vector<int> qr, qc;
  std::vector<double> qv;
  for (int i = 0; i < n; ++i) {
    for (int j = i; j < n; ++j) {
      // 1/2 x'Qx: Q_ii/2 on the square, Q_ij on the product.
      const double v = r.uniform();
      qr.push_back(i);
      qc.push_back(j);
      qv.push_back(i == j ? v / 2 : v);
    }
  }
  VLMaddqpterms(m, static_cast<int>(qv.size()), qr.data(), qc.data(), qv.data());
  report("box QP", n, m, solve(m));
  VLMfreemodel(m);
}

void bilinear(VLMenv* env, int n) {
  Rng r;
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "bilinear", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  for (int j = 0; j < 2 * n; ++j) VLMaddvar(m, 0, nullptr, nullptr, r.uniform(), 0, 1, 'C', nullptr);
  std::vector<int> ind(n);
  std::vector<double> one(n, 1.0);
  for (int side = 0; side < 2; ++side) {
    for (int j = 0; j < n; ++j) ind[j] = side * n + j;
    VLMaddconstr(m, n, ind.data(), one.data(), '=', 1.0, nullptr);
  }
  std::vector<int> qr, qc;
  std::vector<double> qv;
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) {
      qr.push_back(i);
      qc.push_back(n + j);
      qv.push_back(r.uniform());
    }
  }
  VLMaddqpterms(m, static_cast<int>(qv.size()), qr.data(), qc.data(), qv.data());
  report("bilinear", n, m, solve(m));
  VLMfreemodel(m);
}

}  // namespace

int main(int argc, char** argv) {
  const double limit = argc > 1 ? std::atof(argv[1]) : 60.0;
  std::vector<int> sizes;
  for (int a = 2; a < argc; ++a) sizes.push_back(std::atoi(argv[a]));
  if (sizes.empty()) sizes = {5, 10, 15, 20};
  VLMenv* env = nullptr;
  VLMemptyenv(&env);
  VLMsetintparam(env, "OutputFlag", 0);
  VLMstartenv(env);
  VLMsetintparam(env, "NonConvex", 2);
  VLMsetdblparam(env, "TimeLimit", limit);
  for (int n : sizes) box_qp(env, n);
  for (int n : sizes) bilinear(env, n);
  VLMfreeenv(env);
  return 0;
}
