// Measures the lazy-constraint search on the symmetric TSP: seeded random Euclidean cities in
// a 1000 x 1000 square, one binary per edge, degree rows = 2, and subtour elimination rows
// sum_{e in E(S)} x_e <= |S| - 1 handed back at every candidate (at_solution) for each
// connected component S of the candidate's tour graph.
//
// Usage: tsp_lazy [method] [n ...]   method: hybrid, restart, bandc, naive or all (default all); sizes
// default 50 100 150. "naive" solves HiGHS's MIP to optimality, adds the violated subtours
// and solves again. Every reported tour is checked to be one Hamiltonian cycle whose length
// equals the reported objective. Relative gap 1e-6, one thread per HiGHS instance.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "algorithms/callback_search.h"
#include "interfaces/highs_c_api.h"
#include "reform/working_problem.h"

namespace {

using vlm::algorithms::CallbackMethod;

struct Tsp {
  int n = 0;
  std::vector<std::pair<int, int>> edges;
  std::vector<double> cost;
};

Tsp make_tsp(int n, unsigned long long seed) {
  unsigned long long s = seed;
  auto next = [&s]() {
    s = s * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>((s >> 11) & ((1ULL << 53) - 1)) / static_cast<double>(1ULL << 53);
  };
  std::vector<double> px(n), py(n);
  for (int i = 0; i < n; ++i) {
    px[i] = 1000 * next();
    py[i] = 1000 * next();
  }
  Tsp t;
  t.n = n;
  for (int i = 0; i < n; ++i) {
    for (int j = i + 1; j < n; ++j) {
      t.edges.push_back({i, j});
      t.cost.push_back(std::hypot(px[i] - px[j], py[i] - py[j]));
    }
  }
  return t;
}

vlm::reform::WorkingProblem formulation(const Tsp& t) {
  vlm::reform::WorkingProblem p;
  for (double c : t.cost) p.add_col(0.0, 1.0, 1, c);
  p.user_cols = p.ncol;
  std::vector<std::vector<int>> at(t.n);
  for (int e = 0; e < static_cast<int>(t.edges.size()); ++e) {
    at[t.edges[e].first].push_back(e);
    at[t.edges[e].second].push_back(e);
  }
  for (int i = 0; i < t.n; ++i) p.add_row(at[i], std::vector<double>(at[i].size(), 1.0), 2.0, 2.0);
  p.user_rows = p.nrow;
  p.mip = true;
  return p;
}

// Components of the graph of edges with value above 1/2.
std::vector<std::vector<int>> components(const Tsp& t, const std::vector<double>& x) {
  std::vector<int> parent(t.n);
  for (int i = 0; i < t.n; ++i) parent[i] = i;
  auto find = [&](int a) {
    while (parent[a] != a) a = parent[a] = parent[parent[a]];
    return a;
  };
  for (std::size_t e = 0; e < t.edges.size(); ++e) {
    if (x[e] > 0.5) parent[find(t.edges[e].first)] = find(t.edges[e].second);
  }
  std::vector<std::vector<int>> by_root(t.n);
  for (int i = 0; i < t.n; ++i) by_root[find(i)].push_back(i);
  std::vector<std::vector<int>> out;
  for (auto& c : by_root) {
    if (!c.empty()) out.push_back(std::move(c));
  }
  return out;
}

std::vector<vlm::algorithms::UserRow> subtours(const Tsp& t, const std::vector<double>& x) {
  std::vector<vlm::algorithms::UserRow> rows;
  auto comps = components(t, x);
  if (comps.size() <= 1) return rows;
  std::vector<int> which(t.n);
  for (std::size_t c = 0; c < comps.size(); ++c) {
    for (int v : comps[c]) which[v] = static_cast<int>(c);
  }
  for (std::size_t c = 0; c < comps.size(); ++c) {
    vlm::algorithms::UserRow r;
    for (std::size_t e = 0; e < t.edges.size(); ++e) {
      if (which[t.edges[e].first] == static_cast<int>(c) && which[t.edges[e].second] == static_cast<int>(c)) {
        r.ind.push_back(static_cast<int>(e));
        r.val.push_back(1.0);
      }
    }
    r.sense = '<';
    r.rhs = static_cast<double>(comps[c].size()) - 1.0;
    rows.push_back(std::move(r));
  }
  return rows;
}

class SubtourHooks : public vlm::algorithms::SearchHooks {
 public:
  explicit SubtourHooks(const Tsp& t) : t_(t) {}
  void at_solution(const vlm::algorithms::SearchProgress&, const std::vector<double>& x, double,
                   vlm::algorithms::HookReply& r) override {
    r.lazy = subtours(t_, x);
  }
  void at_node(const vlm::algorithms::SearchProgress&, int, const std::vector<double>&,
               vlm::algorithms::HookReply&) override {}
  void at_progress(const vlm::algorithms::SearchProgress&, vlm::algorithms::HookReply&) override {}

 private:
  const Tsp& t_;
};

// Checks that `x` is one tour of length `obj`; prints the fault otherwise.
bool check_tour(const Tsp& t, const std::vector<double>& x, double obj) {
  std::vector<int> degree(t.n, 0);
  double len = 0.0;
  for (std::size_t e = 0; e < t.edges.size(); ++e) {
    if (x[e] > 0.5) {
      ++degree[t.edges[e].first];
      ++degree[t.edges[e].second];
      len += t.cost[e];
    }
  }
  for (int d : degree) {
    if (d != 2) return std::printf("  FAULT: a city of degree %d\n", d), false;
  }
  if (components(t, x).size() != 1) return std::printf("  FAULT: the tour has subtours\n"), false;
  if (std::fabs(len - obj) > 1e-6 * std::max(1.0, len)) {
    return std::printf("  FAULT: tour length %.6f, reported %.6f\n", len, obj), false;
  }
  return true;
}

void* new_highs() {
  void* h = Highs_create();
  Highs_setBoolOptionValue(h, "output_flag", 0);
  Highs_setDoubleOptionValue(h, "mip_rel_gap", 1e-6);
  Highs_setIntOptionValue(h, "threads", 1);
  return h;
}

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

void run_search(const Tsp& t, CallbackMethod method, const char* name) {
  const auto p = formulation(t);
  SubtourHooks hooks(t);
  vlm::algorithms::CallbackSettings s;
  s.method = method;
  s.search.mip_gap = 1e-6;
  s.search.time_limit = std::getenv("TSP_TIME") ? std::atof(std::getenv("TSP_TIME")) : 300;
  // TSP_VARBRANCH: the branch and cut's integer rule, as the VarBranch parameter sets it.
  if (const char* v = std::getenv("TSP_VARBRANCH")) s.var_branch = std::atoi(v);
  // TSP_SWITCH picks the hybrid's hand-over rule: nodes:N, time:S, stall:W or gap:W:F.
  if (const char* rule = std::getenv("TSP_SWITCH")) {
    const std::string r = rule;
    const double a = std::atof(r.c_str() + r.find(':') + 1);
    if (r.rfind("nodes", 0) == 0) {
      s.switch_nodes = a;
    } else if (r.rfind("time", 0) == 0) {
      s.switch_rule = vlm::algorithms::SwitchRule::kSeconds;
      s.switch_seconds = a;
    } else if (r.rfind("stall", 0) == 0) {
      s.switch_rule = vlm::algorithms::SwitchRule::kStall;
      s.switch_window = a;
    } else if (r.rfind("gap", 0) == 0) {
      s.switch_rule = vlm::algorithms::SwitchRule::kGap;
      s.switch_window = a;
      if (r.find(':', r.find(':') + 1) != std::string::npos) s.switch_gap = std::atof(r.c_str() + r.rfind(':') + 1);
    }
  }
  vlm::algorithms::CallbackStats stats;
  void* h = new_highs();
  const auto t0 = std::chrono::steady_clock::now();
  auto r = vlm::algorithms::callback_search(h, p, {}, &hooks, s, &stats);
  const double secs = seconds_since(t0);
  Highs_destroy(h);
  if (!r.ok()) {
    std::printf("%-8s n=%3d failed: %s\n", name, t.n, r.status().message().c_str());
    return;
  }
  const bool ok = r->has_solution && check_tour(t, r->x, r->objval);
  std::printf("%-8s n=%3d status %d obj %.4f bound %.4f nodes %.0f fixed %.0f runs %d lazy %d rejected %d time %.2fs (HiGHS %.2fs) %s\n", name,
              t.n, r->status, r->objval, r->bound, r->nodes, r->fixed, stats.runs, stats.lazy_rows, stats.rejected, secs, r->highs_seconds,
              ok ? "tour ok" : "TOUR NOT CHECKED");
}

// The loop a user writes without callbacks: solve, add every violated subtour, solve again.
void run_naive(const Tsp& t) {
  const auto p = formulation(t);
  void* h = new_highs();
  std::vector<HighsInt> integrality(p.ncol, 1);
  Highs_passModel(h, p.ncol, p.nrow, p.num_nonzeros(), 0, kHighsMatrixFormatRowwise, kHighsHessianFormatTriangular,
                  kHighsObjSenseMinimize, 0.0, p.cost.data(), p.lower.data(), p.upper.data(), p.rlo.data(),
                  p.rup.data(), p.astart.data(), p.aindex.data(), p.aval.data(), nullptr, nullptr, nullptr,
                  integrality.data());
  const auto t0 = std::chrono::steady_clock::now();
  int runs = 0, lazy = 0;
  double nodes = 0;
  std::vector<double> x(p.ncol);
  for (;;) {
    Highs_run(h);
    ++runs;
    int64_t nn = 0;
    Highs_getInt64InfoValue(h, "mip_node_count", &nn);
    nodes += static_cast<double>(nn);
    Highs_getSolution(h, x.data(), nullptr, nullptr, nullptr);
    auto rows = subtours(t, x);
    if (rows.empty()) break;
    for (auto& r : rows) {
      Highs_addRow(h, -INFINITY, r.rhs, static_cast<HighsInt>(r.ind.size()), r.ind.data(), r.val.data());
      ++lazy;
    }
  }
  const double secs = seconds_since(t0);
  const double obj = Highs_getObjectiveValue(h);
  Highs_destroy(h);
  const bool ok = check_tour(t, x, obj);
  std::printf("%-8s n=%3d obj %.4f nodes %.0f runs %d lazy %d time %.2fs %s\n", "naive", t.n, obj, nodes, runs, lazy,
              secs, ok ? "tour ok" : "TOUR NOT CHECKED");
}

}  // namespace

int main(int argc, char** argv) {
  std::string method = "all";
  std::vector<int> sizes;
  for (int i = 1; i < argc; ++i) {
    if (std::isdigit(static_cast<unsigned char>(argv[i][0]))) {
      sizes.push_back(std::atoi(argv[i]));
    } else {
      method = argv[i];
    }
  }
  if (sizes.empty()) sizes = {50, 100, 150};
  for (int n : sizes) {
    const Tsp t = make_tsp(n, 1000 + static_cast<unsigned long long>(n));
    if (method == "all" || method == "restart") run_search(t, CallbackMethod::kRestart, "restart");
    if (method == "all" || method == "bandc") run_search(t, CallbackMethod::kBranchAndCut, "bandc");
    if (method == "all" || method == "naive") run_naive(t);
    if (method == "all" || method == "hybrid") run_search(t, CallbackMethod::kHybrid, "hybrid");
    std::fflush(stdout);
  }
  return 0;
}
