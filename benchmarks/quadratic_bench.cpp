// Measures the quadratic driver on generated portfolio models: a robust portfolio with a
// second-order cone (continuous), a Markowitz model with a variance constraint (convex
// quadratic constraint), and a cardinality-constrained mean-variance MIQP.
// Usage: quadratic_bench [n ...]   (default sizes 20 50 100). Prints one line per model with
// the objective, status, run time, nodes and relaxation iterations; the driver's own summary
// line (relaxations, cuts) goes to the log with OutputFlag 1 (BENCH_LOG set). BENCH_ONLY=card
// runs the MIQP alone; BENCH_VARBRANCH and BENCH_HEURISTICS set VarBranch and Heuristics;
// BENCH_FACTORS adds the MIQP with its covariance in factor rows.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "velmor_c.h"

namespace {

struct Rng {
  unsigned long long s = 12345;
  double next() {
    s = s * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>((s >> 11) & ((1ULL << 53) - 1)) / static_cast<double>(1ULL << 53);
  }
};

struct Data {
  int n, k;
  std::vector<double> mu, sigma;   // expected returns, idiosyncratic deviations
  std::vector<std::vector<double>> f;  // k x n factor loadings
};

Data make(int n, int k) {
  Rng r;
  Data d{n, k, {}, {}, {}};
  for (int i = 0; i < n; ++i) {
    d.mu.push_back(0.02 + 0.1 * r.next());
    d.sigma.push_back(0.05 + 0.2 * r.next());
  }
  d.f.assign(k, std::vector<double>(n));
  for (auto& row : d.f)
    for (double& v : row) v = 0.1 * (r.next() - 0.5);
  return d;
}

void report(VLMmodel* m, const char* what, int n) {
  if (const char* e = VLMgetmerrormsg(m); e && *e) std::printf("%s: %s\n", what, e);
  int status = 0;
  double obj = NAN, t = 0, nodes = 0, iters = 0;
  VLMgetintattr(m, "Status", &status);
  VLMgetdblattr(m, "ObjVal", &obj);
  VLMgetdblattr(m, "Runtime", &t);
  VLMgetdblattr(m, "NodeCount", &nodes);
  VLMgetdblattr(m, "IterCount", &iters);
  std::printf("%-22s n=%-4d status=%d obj=%.9g time=%.3fs nodes=%.0f iterations=%.0f\n", what, n, status, obj, t,
              nodes, iters);
}

// Adds the factor exposures y = F x as columns n..n+k-1 with rows y_f - F_f x = 0.
void add_factors(VLMmodel* m, const Data& d) {
  for (int f = 0; f < d.k; ++f) {
    VLMaddvar(m, 0, nullptr, nullptr, 0, -1e100, 1e100, 'C', nullptr);
  }
  for (int f = 0; f < d.k; ++f) {
    std::vector<int> ind;
    std::vector<double> val;
    for (int i = 0; i < d.n; ++i) {
      ind.push_back(i);
      val.push_back(-d.f[f][i]);
    }
    ind.push_back(d.n + f);
    val.push_back(1);
    VLMaddconstr(m, static_cast<int>(ind.size()), ind.data(), val.data(), '=', 0, nullptr);
  }
}

void budget(VLMmodel* m, int n) {
  std::vector<int> ind(n);
  std::vector<double> one(n, 1.0);
  for (int i = 0; i < n; ++i) ind[i] = i;
  VLMaddconstr(m, n, ind.data(), one.data(), '=', 1, nullptr);
}

// max mu'x - 2 t  s.t. sum x = 1, x >= 0, ||(F x, diag(sigma) x)|| <= t.
void robust(VLMenv* env, const Data& d) {
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "robust", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  for (int i = 0; i < d.n; ++i) VLMaddvar(m, 0, nullptr, nullptr, d.mu[i], 0, 1e100, 'C', nullptr);
  add_factors(m, d);
  const int t = d.n + d.k;
  VLMaddvar(m, 0, nullptr, nullptr, -2, 0, 1e100, 'C', nullptr);
  budget(m, d.n);
  std::vector<int> q;
  std::vector<double> v;
  for (int i = 0; i < d.n; ++i) {
    q.push_back(i);
    v.push_back(d.sigma[i] * d.sigma[i]);
  }
  for (int f = 0; f < d.k; ++f) {
    q.push_back(d.n + f);
    v.push_back(1);
  }
  q.push_back(t);
  v.push_back(-1);
  VLMaddqconstr(m, 0, nullptr, nullptr, static_cast<int>(q.size()), q.data(), q.data(), v.data(), '<', 0, "risk");
  VLMsetintattr(m, "ModelSense", -1);
  VLMoptimize(m);
  report(m, "robust SOCP", d.n);
  VLMfreemodel(m);
}

// max mu'x  s.t. sum x = 1, x >= 0, x'(F'F + diag(sigma^2))x <= 0.02 (through y = F x).
void markowitz(VLMenv* env, const Data& d) {
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "markowitz", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  for (int i = 0; i < d.n; ++i) VLMaddvar(m, 0, nullptr, nullptr, d.mu[i], 0, 1e100, 'C', nullptr);
  add_factors(m, d);
  budget(m, d.n);
  std::vector<int> q;
  std::vector<double> v;
  for (int i = 0; i < d.n + d.k; ++i) {
    q.push_back(i);
    v.push_back(i < d.n ? d.sigma[i] * d.sigma[i] : 1.0);
  }
  VLMaddqconstr(m, 0, nullptr, nullptr, static_cast<int>(q.size()), q.data(), q.data(), v.data(), '<', 0.002, "var");
  VLMsetintattr(m, "ModelSense", -1);
  VLMoptimize(m);
  report(m, "Markowitz QCP", d.n);
  VLMfreemodel(m);
}

// min x'(F'F + diag(sigma^2))x - mu'x  s.t. sum x = 1, x_i <= b_i, sum b <= 5, b binary, with
// the covariance written out in the objective (no factor rows).
void cardinality(VLMenv* env, const Data& d) {
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "card", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  for (int i = 0; i < d.n; ++i) VLMaddvar(m, 0, nullptr, nullptr, -d.mu[i], 0, 1e100, 'C', nullptr);
  const int b0 = d.n;
  for (int i = 0; i < d.n; ++i) VLMaddvar(m, 0, nullptr, nullptr, 0, 0, 1, 'B', nullptr);
  budget(m, d.n);
  std::vector<int> ind;
  std::vector<double> one;
  for (int i = 0; i < d.n; ++i) {
    int r[2] = {i, b0 + i};
    double c[2] = {1, -1};
    VLMaddconstr(m, 2, r, c, '<', 0, nullptr);
    ind.push_back(b0 + i);
    one.push_back(1);
  }
  VLMaddconstr(m, d.n, ind.data(), one.data(), '<', 5, nullptr);
  std::vector<int> qr, qc;
  std::vector<double> v;
  for (int i = 0; i < d.n; ++i) {
    for (int j = i; j < d.n; ++j) {
      double c = 0;
      for (int f = 0; f < d.k; ++f) c += d.f[f][i] * d.f[f][j];
      if (i == j) c += d.sigma[i] * d.sigma[i];
      else c *= 2;  // the pair (i, j) stands for both off-diagonal entries
      qr.push_back(i);
      qc.push_back(j);
      v.push_back(c);
    }
  }
  VLMaddqpterms(m, static_cast<int>(v.size()), qr.data(), qc.data(), v.data());
  VLMoptimize(m);
  report(m, "cardinality MIQP", d.n);
  VLMfreemodel(m);
}

// The same MIQP with the covariance in factor form: min sum sigma_i^2 x_i^2 + sum y_f^2 - mu'x
// with y = F x as rows (small coefficients), on which HiGHS' QP solver has failed at child
// nodes; the search then retries the relaxation before it drops a node.
void cardinality_factors(VLMenv* env, const Data& d) {
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "cardf", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  for (int i = 0; i < d.n; ++i) VLMaddvar(m, 0, nullptr, nullptr, -d.mu[i], 0, 1e100, 'C', nullptr);
  add_factors(m, d);
  const int b0 = d.n + d.k;
  for (int i = 0; i < d.n; ++i) VLMaddvar(m, 0, nullptr, nullptr, 0, 0, 1, 'B', nullptr);
  budget(m, d.n);
  std::vector<int> ind;
  std::vector<double> one;
  for (int i = 0; i < d.n; ++i) {
    int r[2] = {i, b0 + i};
    double c[2] = {1, -1};
    VLMaddconstr(m, 2, r, c, '<', 0, nullptr);
    ind.push_back(b0 + i);
    one.push_back(1);
  }
  VLMaddconstr(m, d.n, ind.data(), one.data(), '<', 5, nullptr);
  std::vector<int> q;
  std::vector<double> v;
  for (int i = 0; i < d.n + d.k; ++i) {
    q.push_back(i);
    v.push_back(i < d.n ? d.sigma[i] * d.sigma[i] : 1.0);
  }
  VLMaddqpterms(m, static_cast<int>(v.size()), q.data(), q.data(), v.data());
  VLMoptimize(m);
  report(m, "cardinality MIQP (F)", d.n);
  VLMfreemodel(m);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<int> sizes;
  for (int a = 1; a < argc; ++a) sizes.push_back(std::atoi(argv[a]));
  if (sizes.empty()) sizes = {20, 50, 100};
  VLMenv* env = nullptr;
  VLMemptyenv(&env);
  VLMsetintparam(env, "OutputFlag", std::getenv("BENCH_LOG") ? 1 : 0);
  VLMsetdblparam(env, "TimeLimit", std::getenv("BENCH_TL") ? std::atof(std::getenv("BENCH_TL")) : 120);
  if (std::getenv("BENCH_QCPDUAL")) VLMsetintparam(env, "QCPDual", 1);
  // The search's own settings, to compare branching rules and heuristics on the same data.
  if (const char* v = std::getenv("BENCH_VARBRANCH")) VLMsetintparam(env, "VarBranch", std::atoi(v));
  if (const char* v = std::getenv("BENCH_HEURISTICS")) VLMsetdblparam(env, "Heuristics", std::atof(v));
  VLMstartenv(env);
  for (int n : sizes) {
    const Data d = make(n, 5);
    // BENCH_ONLY=card runs the MIQP alone.
    const bool all = std::getenv("BENCH_ONLY") == nullptr;
    if (all) robust(env, d);
    if (all) markowitz(env, d);
    cardinality(env, d);
    if (std::getenv("BENCH_FACTORS")) cardinality_factors(env, d);
  }
  VLMfreeenv(env);
  return 0;
}
