// What the reformulation step costs, through the C API:
//  1. a plain LP (no constructs) solved repeatedly: the path every ordinary model takes, which
//     the reformulation step must leave as fast as it was;
//  2. 10,000 indicator constraints (y_i == 0) >> (x_i <= 0) with x_i in [0, 100], against the
//     same MILP written by hand as x_i - 100 y_i <= 0. Timed: building the model (add calls
//     and update), then VLMoptimize with TimeLimit 0, which runs the reformulation, hands the
//     problem to HiGHS and returns at once; so the difference is reformulation + hand-off;
//  3. 1,000 PWL constraints y_i = f(x_i) through 5 points, against the same convex-combination
//     MILP written by hand (lambdas, one binary per piece), timed the same way;
//  4. with the argument "facility": a capacitated fixed-charge facility model (20 sites, 100
//     customers, 2,000 indicators (y_i == 0) >> (x_ij <= 0), x_ij >= 0 without upper bounds)
//     solved to optimality, against the same model with the rows x_ij <= cap_i y_i a user
//     would write by hand. Takes minutes.
//
// Build and run:  cmake --build build/t --target reform_bench && build/t/benchmarks/reform_bench
// Not a test: it asserts nothing about time, it prints.
#include <algorithm>
#include <cstdlib>
#include <string>
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

// Best of 15 builds of a model and hand-offs to HiGHS (optimize with a zero time limit, which
// runs the reformulation and passes the model but searches nothing).
struct HandOff {
  double build = 1e9, solve = 1e9;
  int rc = 0;
};

template <class Build>
HandOff best_hand_off(Build build) {
  HandOff best;
  for (int r = 0; r < 15; ++r) {
    auto t0 = std::chrono::steady_clock::now();
    VLMmodel* m = build();
    best.build = std::min(best.build, seconds_since(t0));
    VLMsetdblparam(VLMgetenv(m), "TimeLimit", 0.0);
    t0 = std::chrono::steady_clock::now();
    best.rc = VLMoptimize(m);
    best.solve = std::min(best.solve, seconds_since(t0));
    VLMfreemodel(m);
  }
  return best;
}

void bench_indicators(VLMenv* env) {
  const int n = 10000;
  for (bool by_hand : {true, false}) {
    const HandOff t = best_hand_off([&] { return indicator_model(env, n, by_hand); });
    std::printf("%-28s build %.1f ms, reformulate + hand-off %.1f ms, total %.1f ms%s\n",
                by_hand ? "10,000 big-M rows by hand:" : "10,000 indicators:", 1e3 * t.build,
                1e3 * t.solve, 1e3 * (t.build + t.solve), t.rc != 0 ? " (optimize refused)" : "");
  }
}

// n pairs (x_i in [0, 4], free y_i), y_i = f(x_i) through (0,0), (1,2), (2,1), (3,3), (4,0);
// objective sum y_i - x_i / 2.
VLMmodel* pwl_model(VLMenv* env, int n, bool by_hand) {
  const double px[5] = {0, 1, 2, 3, 4}, py[5] = {0, 2, 1, 3, 0};
  VLMmodel* m = new_model(env);
  for (int i = 0; i < n; ++i) {
    double obj[2] = {-0.5, 1.0}, lb[2] = {0, -1e100}, ub[2] = {4, 1e100};
    VLMaddvars(m, 2, 0, nullptr, nullptr, nullptr, obj, lb, ub, nullptr, nullptr);
  }
  if (!by_hand) {
    for (int i = 0; i < n; ++i) VLMaddgenconstrPWL(m, nullptr, 2 * i, 2 * i + 1, 5, px, py);
    VLMupdatemodel(m);
    return m;
  }
  // lambda_0..4 and the piece binaries z_0..3 of pair i at 2n + 9i.
  for (int i = 0; i < n; ++i) {
    double lb[9] = {0}, ub[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    char type[9] = {'C', 'C', 'C', 'C', 'C', 'B', 'B', 'B', 'B'};
    VLMaddvars(m, 9, 0, nullptr, nullptr, nullptr, nullptr, lb, ub, type, nullptr);
  }
  for (int i = 0; i < n; ++i) {
    const int l = 2 * n + 9 * i, z = l + 5;
    int ind[6];
    double val[6];
    for (int k = 0; k < 5; ++k) ind[k] = l + k;
    ind[5] = 2 * i;
    for (int k = 0; k < 5; ++k) val[k] = px[k];
    val[5] = -1;
    VLMaddconstr(m, 6, ind, val, '=', 0.0, nullptr);
    ind[5] = 2 * i + 1;
    for (int k = 0; k < 5; ++k) val[k] = py[k];
    VLMaddconstr(m, 6, ind, val, '=', 0.0, nullptr);
    for (int k = 0; k < 5; ++k) val[k] = 1;
    VLMaddconstr(m, 5, ind, val, '=', 1.0, nullptr);
    for (int k = 0; k < 5; ++k) {  // lambda_k <= z_{k-1} + z_k
      int r[3] = {l + k, 0, 0};
      double v[3] = {1, -1, -1};
      int cnt = 1;
      if (k > 0) r[cnt++] = z + k - 1;
      if (k < 4) r[cnt++] = z + k;
      VLMaddconstr(m, cnt, r, v, '<', 0.0, nullptr);
    }
    int zs[4] = {z, z + 1, z + 2, z + 3};
    double ones[4] = {1, 1, 1, 1};
    VLMaddconstr(m, 4, zs, ones, '<', 1.0, nullptr);
  }
  VLMupdatemodel(m);
  return m;
}

void bench_pwl(VLMenv* env) {
  const int n = 1000;
  for (bool by_hand : {true, false}) {
    const HandOff t = best_hand_off([&] { return pwl_model(env, n, by_hand); });
    // Solved in full once, as a check that both models are the same: each pair's best is
    // f(4) - 4/2 = -2, so -2000.
    VLMmodel* m = pwl_model(env, n, by_hand);
    VLMoptimize(m);
    double obj = 0.0;
    VLMgetdblattr(m, "ObjVal", &obj);
    VLMfreemodel(m);
    std::printf("%-28s build %.1f ms, reformulate + hand-off %.1f ms, total %.1f ms%s; optimum %.1f\n",
                by_hand ? "1,000 PWL by hand:" : "1,000 PWL constraints:", 1e3 * t.build, 1e3 * t.solve,
                1e3 * (t.build + t.solve), t.rc != 0 ? " (optimize refused)" : "", obj);
  }
}

// Deterministic instance data: demands 5..35, capacities 60..180, fixed costs 300..700,
// transport costs from positions on a 100 x 100 square.
struct Facility {
  int sites = 20, customers = 100;
  std::vector<double> demand, cap, fixed, cost;  // cost[i * customers + j]
  Facility() {
    unsigned seed = 2026;
    auto next = [&seed](int mod) {
      seed = seed * 1103515245u + 12345u;
      return static_cast<int>((seed >> 16) % mod);
    };
    std::vector<double> sx, sy, cx, cy;
    for (int i = 0; i < sites; ++i) {
      cap.push_back(60 + next(121));
      fixed.push_back(300 + next(401));
      sx.push_back(next(100));
      sy.push_back(next(100));
    }
    for (int j = 0; j < customers; ++j) {
      demand.push_back(5 + next(31));
      cx.push_back(next(100));
      cy.push_back(next(100));
    }
    for (int i = 0; i < sites; ++i) {
      for (int j = 0; j < customers; ++j) {
        cost.push_back(0.1 * (std::abs(sx[i] - cx[j]) + std::abs(sy[i] - cy[j])));
      }
    }
  }
};

VLMmodel* facility_model(VLMenv* env, const Facility& f, bool by_hand) {
  VLMmodel* m = new_model(env);
  const int S = f.sites, C = f.customers;
  // x_ij at i * C + j, then y_i at S * C + i.
  std::vector<double> obj(f.cost), lb(S * C + S, 0.0), ub(S * C + S, 1e100);
  std::vector<char> type(S * C + S, 'C');
  for (int i = 0; i < S; ++i) {
    obj.push_back(f.fixed[i]);
    ub[S * C + i] = 1.0;
    type[S * C + i] = 'B';
  }
  VLMaddvars(m, S * C + S, 0, nullptr, nullptr, nullptr, obj.data(), lb.data(), ub.data(), type.data(), nullptr);
  std::vector<int> ind;
  std::vector<double> val;
  for (int j = 0; j < C; ++j) {  // each customer served in full
    ind.clear();
    for (int i = 0; i < S; ++i) ind.push_back(i * C + j);
    val.assign(S, 1.0);
    VLMaddconstr(m, S, ind.data(), val.data(), '=', f.demand[j], nullptr);
  }
  for (int i = 0; i < S; ++i) {  // capacity
    ind.clear();
    for (int j = 0; j < C; ++j) ind.push_back(i * C + j);
    val.assign(C, 1.0);
    VLMaddconstr(m, C, ind.data(), val.data(), '<', f.cap[i], nullptr);
  }
  for (int i = 0; i < S; ++i) {
    for (int j = 0; j < C; ++j) {
      int x = i * C + j;
      if (by_hand) {
        int ij[2] = {x, S * C + i};
        double v[2] = {1.0, -f.cap[i]};
        VLMaddconstr(m, 2, ij, v, '<', 0.0, nullptr);
      } else {
        double one = 1.0;
        VLMaddgenconstrIndicator(m, nullptr, S * C + i, 0, 1, &x, &one, '<', 0.0);
      }
    }
  }
  VLMupdatemodel(m);
  return m;
}

void bench_facility(VLMenv* env) {
  Facility f;
  for (bool by_hand : {true, false}) {
    VLMmodel* m = facility_model(env, f, by_hand);
    VLMsetdblparam(VLMgetenv(m), "TimeLimit", 600.0);
    auto t0 = std::chrono::steady_clock::now();
    int rc = VLMoptimize(m);
    const double t = seconds_since(t0);
    double obj = 0.0, bound = 0.0, nodes = 0.0;
    int status = 0;
    VLMgetintattr(m, "Status", &status);
    VLMgetdblattr(m, "ObjVal", &obj);
    VLMgetdblattr(m, "ObjBound", &bound);
    VLMgetdblattr(m, "NodeCount", &nodes);
    std::printf("facility 20x100, %-26s %.1f s, status %d, objective %.2f, bound %.2f, %.0f nodes%s\n",
                by_hand ? "big-M rows x <= cap y:" : "2,000 indicators:", t, status, obj, bound, nodes,
                rc != 0 ? " (optimize failed)" : "");
    VLMfreemodel(m);
  }
}

}  // namespace

int main(int argc, char** argv) {
  VLMenv* env = nullptr;
  if (VLMemptyenv(&env) != 0) return 1;
  VLMsetintparam(env, "OutputFlag", 0);
  VLMsetintparam(env, "Threads", 1);
  if (VLMstartenv(env) != 0) return 1;
  if (argc > 1 && std::string(argv[1]) == "facility") {
    bench_facility(env);
  } else {
    bench_lp(env);
    bench_indicators(env);
    bench_pwl(env);
  }
  VLMfreeenv(env);
  return 0;
}
