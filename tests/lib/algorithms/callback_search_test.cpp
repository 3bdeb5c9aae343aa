// The lazy-constraint search with both drivers: a TSP whose subtour rows come only from
// at_solution (optimum checked against enumeration of every tour), heuristic points completed
// and accepted (or refused when infeasible), terminate, node relaxation points, malformed rows
// from a hook, and models whose Lazy constraints give the optimum of the same model with them
// as ordinary constraints.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "algorithms/callback_search.h"
#include "interfaces/highs_c_api.h"
#include "model_fixture.h"
#include "reform/working_problem.h"

namespace {

using vlm::algorithms::CallbackMethod;
using vlm::algorithms::CallbackSettings;
using vlm::algorithms::CallbackStats;
using vlm::algorithms::HookReply;
using vlm::algorithms::SearchHooks;
using vlm::algorithms::SearchProgress;
using vlm::algorithms::SearchResult;
using vlm::algorithms::UserRow;

// A symmetric TSP over fixed points: one binary per edge (i < j), degree rows = 2.
struct Tsp {
  int n;
  std::vector<std::pair<int, int>> edges;
  std::vector<double> cost;
  std::vector<std::vector<double>> dist;

  explicit Tsp(int cities) : n(cities), dist(cities, std::vector<double>(cities)) {
    // Points on a coarse grid pattern, fixed so that the optimum below is reproducible.
    std::vector<double> px(n), py(n);
    for (int i = 0; i < n; ++i) {
      px[i] = (i * 37) % 101;
      py[i] = (i * 61 + 17) % 97;
    }
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j) dist[i][j] = std::hypot(px[i] - px[j], py[i] - py[j]);
    }
    for (int i = 0; i < n; ++i) {
      for (int j = i + 1; j < n; ++j) {
        edges.push_back({i, j});
        cost.push_back(dist[i][j]);
      }
    }
  }

  vlm::reform::WorkingProblem problem() const {
    vlm::reform::WorkingProblem p;
    for (double c : cost) p.add_col(0.0, 1.0, 1, c);
    p.user_cols = p.ncol;
    for (int v = 0; v < n; ++v) {
      std::vector<int> ind;
      for (int e = 0; e < static_cast<int>(edges.size()); ++e) {
        if (edges[e].first == v || edges[e].second == v) ind.push_back(e);
      }
      p.add_row(ind, std::vector<double>(ind.size(), 1.0), 2.0, 2.0);
    }
    p.user_rows = p.nrow;
    p.mip = true;
    return p;
  }

  // The shortest tour by enumerating every permutation that starts at city 0.
  double brute_force() const {
    std::vector<int> perm(n - 1);
    std::iota(perm.begin(), perm.end(), 1);
    double best = INFINITY;
    do {
      double len = dist[0][perm[0]] + dist[perm.back()][0];
      for (int k = 0; k + 1 < n - 1; ++k) len += dist[perm[k]][perm[k + 1]];
      best = std::min(best, len);
    } while (std::next_permutation(perm.begin(), perm.end()));
    return best;
  }

  // Connected components of the edges with value above 1/2.
  std::vector<std::vector<int>> components(const std::vector<double>& x) const {
    std::vector<int> comp(n, -1);
    std::vector<std::vector<int>> out;
    for (int s = 0; s < n; ++s) {
      if (comp[s] >= 0) continue;
      out.emplace_back();
      std::vector<int> stack{s};
      comp[s] = static_cast<int>(out.size()) - 1;
      while (!stack.empty()) {
        const int v = stack.back();
        stack.pop_back();
        out.back().push_back(v);
        for (std::size_t e = 0; e < edges.size(); ++e) {
          if (x[e] <= 0.5) continue;
          int w = edges[e].first == v ? edges[e].second : edges[e].second == v ? edges[e].first : -1;
          if (w >= 0 && comp[w] < 0) {
            comp[w] = comp[s];
            stack.push_back(w);
          }
        }
      }
    }
    return out;
  }

  // sum_{e in E(S)} x_e <= |S| - 1 for each component S, when there are several.
  std::vector<UserRow> subtour_rows(const std::vector<double>& x) const {
    std::vector<UserRow> rows;
    const auto comps = components(x);
    if (comps.size() <= 1) return rows;
    for (const auto& c : comps) {
      UserRow r;
      for (std::size_t e = 0; e < edges.size(); ++e) {
        const bool in1 = std::find(c.begin(), c.end(), edges[e].first) != c.end();
        const bool in2 = std::find(c.begin(), c.end(), edges[e].second) != c.end();
        if (in1 && in2) {
          r.ind.push_back(static_cast<int>(e));
          r.val.push_back(1.0);
        }
      }
      r.sense = '<';
      r.rhs = static_cast<double>(c.size()) - 1.0;
      rows.push_back(r);
    }
    return rows;
  }

  // x is one Hamiltonian cycle of length `obj`.
  void expect_tour(const std::vector<double>& x, double obj) const {
    std::vector<int> degree(n, 0);
    double len = 0.0;
    for (std::size_t e = 0; e < edges.size(); ++e) {
      EXPECT_TRUE(x[e] < 1e-6 || x[e] > 1 - 1e-6) << "edge " << e << " = " << x[e];
      if (x[e] > 0.5) {
        ++degree[edges[e].first];
        ++degree[edges[e].second];
        len += cost[e];
      }
    }
    for (int v = 0; v < n; ++v) EXPECT_EQ(degree[v], 2) << "city " << v;
    EXPECT_EQ(components(x).size(), 1u);
    EXPECT_NEAR(len, obj, 1e-6);
  }
};

double activity(const UserRow& r, const std::vector<double>& x) {
  double a = 0.0;
  for (std::size_t k = 0; k < r.ind.size(); ++k) a += r.val[k] * x[r.ind[k]];
  return a;
}

// Hands back the subtours of every candidate; records what it saw.
class SubtourHooks : public SearchHooks {
 public:
  explicit SubtourHooks(const Tsp& t) : t_(t) {}
  void at_solution(const SearchProgress&, const std::vector<double>& x, double obj, HookReply& r) override {
    r.lazy = t_.subtour_rows(x);
    solutions.push_back(obj);
    if (r.lazy.empty() && terminate_when_accepted) r.terminate = true;
    for (const auto& row : r.lazy) rows.push_back(row);
  }
  void at_node(const SearchProgress&, int status, const std::vector<double>& x, HookReply&) override {
    // Nodes without a point (infeasible, cut off) come with an empty one.
    if (status != VLM_OPTIMAL) {
      EXPECT_TRUE(x.empty()) << status;
      return;
    }
    node_points.push_back(x);
    rows_known.push_back(rows.size());
  }
  void at_progress(const SearchProgress& p, HookReply&) override {
    ++progress_calls;
    EXPECT_GE(p.nodes, last_nodes);
    last_nodes = p.nodes;
  }

  const Tsp& t_;
  bool terminate_when_accepted = false;
  std::vector<double> solutions;
  std::vector<UserRow> rows;
  std::vector<std::vector<double>> node_points;
  std::vector<std::size_t> rows_known;  // per node point: lazy rows handed back before it
  int progress_calls = 0;
  double last_nodes = 0;
};

class CallbackSearchTest : public ::testing::TestWithParam<CallbackMethod> {
 protected:
  void TearDown() override { Highs_destroy(h_); }
  CallbackSettings settings() const {
    CallbackSettings s;
    s.method = GetParam();
    s.search.mip_gap = 1e-9;
    s.search.mip_gap_abs = 1e-9;
    s.search.time_limit = 60;
    return s;
  }
  void* h_ = [] {
    void* h = Highs_create();
    Highs_setBoolOptionValue(h, "output_flag", 0);
    Highs_setDoubleOptionValue(h, "mip_rel_gap", 1e-9);
    Highs_setDoubleOptionValue(h, "mip_abs_gap", 1e-9);
    return h;
  }();
};

// min -x - 2y + z  s.t.  x + y <= 5.5 (held out: lazy),  y - z <= 0,  x semi-continuous in
// {0} or [2, 4], y semi-integer in {0} or {3, 4, 5}, z in [0, 10]. With z = y the parts give
// -4 (y = 0, x = 4), -5.5 (y = 3, x = 2.5), -4 (y = 4, x = 0) and -5 (y = 5, x = 0): optimum
// -5.5, and the lazy row must hold at the returned point.
vlm::reform::WorkingProblem semi_problem() {
  vlm::reform::WorkingProblem p;
  p.add_col(2, 4, 2, -1);
  p.add_col(3, 5, 3, -2);
  p.add_col(0, 10, 0, 1);
  p.add_row({0, 1}, {1, 1}, -INFINITY, 5.5);
  p.add_row({1, 2}, {1, -1}, -INFINITY, 0);
  p.user_cols = p.ncol;
  p.user_rows = p.nrow;
  return p;
}

TEST_P(CallbackSearchTest, SemiContinuousColumnsWithALazyRow) {
  auto r = vlm::algorithms::callback_search(h_, semi_problem(), {0}, nullptr, settings());
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_OPTIMAL);
  EXPECT_NEAR(r->objval, -5.5, 1e-7);
  ASSERT_EQ(r->x.size(), 3u);
  EXPECT_LE(r->x[0] + r->x[1], 5.5 + 1e-6);
  EXPECT_TRUE(r->x[0] < 1e-6 || r->x[0] > 2 - 1e-6);
  EXPECT_NEAR(r->x[1], std::round(r->x[1]), 1e-6);
  EXPECT_TRUE(r->x[1] < 1e-6 || r->x[1] > 3 - 1e-6);
}

// The same model with Cutoff -6: nothing reaches it (the optimum is -5.5), so CUTOFF and no
// solution; with Cutoff -5 the optimum stands.
TEST_P(CallbackSearchTest, CutoffWithALazyRow) {
  CallbackSettings s = settings();
  s.search.cutoff = -6;
  auto r = vlm::algorithms::callback_search(h_, semi_problem(), {0}, nullptr, s);
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_CUTOFF);
  EXPECT_FALSE(r->has_solution);
  s.search.cutoff = -5;
  void* h = Highs_create();
  Highs_setBoolOptionValue(h, "output_flag", 0);
  auto again = vlm::algorithms::callback_search(h, semi_problem(), {0}, nullptr, s);
  Highs_destroy(h);
  ASSERT_TRUE(again.ok()) << again.status().message();
  EXPECT_EQ(again->status, VLM_OPTIMAL);
  EXPECT_NEAR(again->objval, -5.5, 1e-7);
}

// The optimum is the shortest of the 8!/2 tours, found by enumeration; the search sees only
// the degree rows and the subtours its candidates reveal.
TEST_P(CallbackSearchTest, TspWithSubtoursFromCandidatesReachesTheEnumeratedOptimum) {
  const Tsp t(9);
  const double best = t.brute_force();
  SubtourHooks hooks(t);
  CallbackStats stats;
  auto r = vlm::algorithms::callback_search(h_, t.problem(), {}, &hooks, settings(), &stats);
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_OPTIMAL);
  ASSERT_TRUE(r->has_solution);
  EXPECT_NEAR(r->objval, best, 1e-6);
  EXPECT_LE(r->bound, r->objval + 1e-6);
  EXPECT_GE(r->bound, best - 1e-5);
  t.expect_tour(r->x, r->objval);
  // Every incumbent reported on the way is a tour too.
  for (const auto& [obj, x] : r->incumbents) t.expect_tour(x, obj);
  EXPECT_GT(stats.rejected, 0);
  EXPECT_GT(stats.lazy_rows, 0);
  EXPECT_GE(hooks.progress_calls, 1);
}

// terminate from the hook that accepts the first tour: the search stops there with the tour
// kept (INTERRUPTED, or OPTIMAL when that tour already closed the search) and asks nothing more.
TEST_P(CallbackSearchTest, TerminateKeepsTheAcceptedTour) {
  const Tsp t(9);
  SubtourHooks hooks(t);
  hooks.terminate_when_accepted = true;
  auto r = vlm::algorithms::callback_search(h_, t.problem(), {}, &hooks, settings());
  ASSERT_TRUE(r.ok()) << r.status().message();
  ASSERT_TRUE(r->has_solution);
  t.expect_tour(r->x, r->objval);
  if (r->status == VLM_OPTIMAL) {
    EXPECT_NEAR(r->objval, t.brute_force(), 1e-6);
  } else {
    EXPECT_EQ(r->status, VLM_INTERRUPTED);
  }
  EXPECT_LE(r->bound, t.brute_force() + 1e-6);
  // The accepted tour was the last candidate the hook saw.
  ASSERT_FALSE(hooks.solutions.empty());
  EXPECT_NEAR(hooks.solutions.back(), r->objval, 1e-6);
}

// A row naming a column the model does not have fails the search with a message naming it.
TEST_P(CallbackSearchTest, MalformedLazyRowFailsNamingTheIndex) {
  struct BadHooks : SearchHooks {
    void at_solution(const SearchProgress&, const std::vector<double>&, double, HookReply& r) override {
      r.lazy.push_back({{0, 999}, {1.0, 1.0}, '<', 1.0});
    }
    void at_node(const SearchProgress&, int, const std::vector<double>&, HookReply&) override {}
    void at_progress(const SearchProgress&, HookReply&) override {}
  } hooks;
  const Tsp t(6);
  auto r = vlm::algorithms::callback_search(h_, t.problem(), {}, &hooks, settings());
  ASSERT_FALSE(r.ok());
  EXPECT_EQ(r.status().code(), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(r.status().message().find("variable index 999"), std::string::npos) << r.status().message();
}

// max 10a + 13b + 7c + 8d + y  s.t.  3a + 4b + 2c + 3d <= 7,  y + 2c <= 2,  a..d binary, y >= 0.
// Optimum a = b = 1, y = 2: 25 (b + c gives 20, a + d + y 20, a + c 17). The heuristic point
// (1, 1, 0, 0, unspecified) is completed to y = 2 and must be accepted as it stands.
struct Knapsack {
  vlm::reform::WorkingProblem p;
  Knapsack() {
    for (double c : {10.0, 13.0, 7.0, 8.0}) p.add_col(0.0, 1.0, 1, c);
    p.add_col(0.0, INFINITY, 0, 1.0);
    p.add_row({0, 1, 2, 3}, {3, 4, 2, 3}, -INFINITY, 7.0);
    p.add_row({4, 2}, {1, 2}, -INFINITY, 2.0);
    p.user_cols = p.ncol;
    p.user_rows = p.nrow;
    p.sense = -1;
    p.mip = true;
  }
};

class HeuristicHooks : public SearchHooks {
 public:
  explicit HeuristicHooks(std::vector<double> point) : point_(std::move(point)) {}
  void at_solution(const SearchProgress&, const std::vector<double>& x, double obj, HookReply&) override {
    seen.push_back({obj, x});
  }
  void at_node(const SearchProgress&, int, const std::vector<double>&, HookReply&) override {}
  void at_progress(const SearchProgress&, HookReply& r) override {
    if (!given) r.heuristic = point_;
    given = true;
  }
  std::vector<double> point_;
  bool given = false;
  std::vector<std::pair<double, std::vector<double>>> seen;
};

TEST_P(CallbackSearchTest, HeuristicPointIsCompletedAndBecomesTheIncumbent) {
  Knapsack k;
  HeuristicHooks hooks({1, 1, 0, 0, NAN});
  CallbackSettings s = settings();
  s.search.solution_limit = 1;  // the first incumbent ends the search: it must be the point
  auto r = vlm::algorithms::callback_search(h_, k.p, {}, &hooks, s);
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_SOLUTION_LIMIT);
  ASSERT_TRUE(r->has_solution);
  EXPECT_NEAR(r->objval, 25.0, 1e-9);
  EXPECT_NEAR(r->x[4], 2.0, 1e-9);
  EXPECT_GE(r->bound, 25.0 - 1e-9);
  // The completed point went through at_solution like any candidate.
  ASSERT_FALSE(hooks.seen.empty());
  EXPECT_NEAR(hooks.seen[0].first, 25.0, 1e-9);
}

// (1, 1, 1, 0) weighs 9 > 7: no completion exists, the point is dropped, the search finds 25.
TEST_P(CallbackSearchTest, InfeasibleHeuristicPointIsNotTaken) {
  Knapsack k;
  HeuristicHooks hooks({1, 1, 1, 0, NAN});
  auto r = vlm::algorithms::callback_search(h_, k.p, {}, &hooks, settings());
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_OPTIMAL);
  EXPECT_NEAR(r->objval, 25.0, 1e-9);
  for (const auto& [obj, x] : r->incumbents) EXPECT_LE(3 * x[0] + 4 * x[1] + 2 * x[2] + 3 * x[3], 7 + 1e-9);
}

// Held-out rows of the problem itself: knapsack row held out, same optimum 25, and no
// incumbent on the way breaks it.
TEST_P(CallbackSearchTest, HeldOutRowsAreEnforced) {
  Knapsack k;
  auto r = vlm::algorithms::callback_search(h_, k.p, {0}, nullptr, settings());
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_OPTIMAL);
  EXPECT_NEAR(r->objval, 25.0, 1e-9);
  EXPECT_NEAR(r->bound, 25.0, 1e-6);
  for (const auto& [obj, x] : r->incumbents) EXPECT_LE(3 * x[0] + 4 * x[1] + 2 * x[2] + 3 * x[3], 7 + 1e-6);
}

INSTANTIATE_TEST_SUITE_P(Drivers, CallbackSearchTest,
                         ::testing::Values(CallbackMethod::kRestart, CallbackMethod::kBranchAndCut,
                                           CallbackMethod::kHybrid),
                         [](const auto& info) {
                           return info.param == CallbackMethod::kRestart        ? std::string("Restart")
                                  : info.param == CallbackMethod::kBranchAndCut ? std::string("BranchAndCut")
                                                                                : std::string("Hybrid");
                         });

// Node points are relaxation points: each satisfies the degree rows, the bounds and every
// subtour row handed back before it.
TEST(CallbackSearchNodes, NodePointsSatisfyTheRelaxation) {
  const Tsp t(16);
  SubtourHooks hooks(t);
  CallbackSettings s;
  s.node_events = true;
  s.search.mip_gap = 1e-9;
  void* h = Highs_create();
  Highs_setBoolOptionValue(h, "output_flag", 0);
  CallbackStats stats;
  auto r = vlm::algorithms::callback_search(h, t.problem(), {}, &hooks, s, &stats);
  Highs_destroy(h);
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(stats.method, CallbackMethod::kBranchAndCut);
  ASSERT_TRUE(r->has_solution);
  t.expect_tour(r->x, r->objval);
  // The other driver, which never shows node points, agrees on the optimum.
  SubtourHooks plain(t);
  CallbackSettings rs;
  rs.method = CallbackMethod::kRestart;
  rs.search.mip_gap = 1e-9;
  void* h2 = Highs_create();
  Highs_setBoolOptionValue(h2, "output_flag", 0);
  Highs_setDoubleOptionValue(h2, "mip_rel_gap", 1e-9);
  auto r2 = vlm::algorithms::callback_search(h2, t.problem(), {}, &plain, rs);
  Highs_destroy(h2);
  ASSERT_TRUE(r2.ok());
  EXPECT_NEAR(r->objval, r2->objval, 1e-6);
  ASSERT_FALSE(hooks.node_points.empty());
  bool fractional = false;
  for (std::size_t k = 0; k < hooks.node_points.size(); ++k) {
    const auto& x = hooks.node_points[k];
    ASSERT_EQ(x.size(), t.edges.size());
    for (double v : x) {
      EXPECT_GE(v, -1e-7);
      EXPECT_LE(v, 1 + 1e-7);
      fractional = fractional || std::fabs(v - std::round(v)) > 1e-6;
    }
    std::vector<double> degree(t.n, 0.0);
    for (std::size_t e = 0; e < t.edges.size(); ++e) {
      degree[t.edges[e].first] += x[e];
      degree[t.edges[e].second] += x[e];
    }
    for (double d : degree) EXPECT_NEAR(d, 2.0, 1e-6);
    for (std::size_t i = 0; i < hooks.rows_known[k]; ++i) EXPECT_LE(activity(hooks.rows[i], x), hooks.rows[i].rhs + 1e-6);
  }
  EXPECT_TRUE(fractional) << "no node relaxation was fractional: the test proves little";
}

// 30 cities, too many to enumerate: the drivers (restart and branch and cut share no search
// code; the hybrid here hands over after 3 nodes) prove the same optimum, each returning a
// tour, and branch and cut ends OPTIMAL rather than SUBOPTIMAL (which it reports when a
// rejected point can be neither cut nor branched on).
TEST(CallbackSearchDrivers, AgreeOnALargerTour) {
  const Tsp t(30);
  double obj[3] = {0, 0, 0};
  int k = 0;
  for (CallbackMethod m : {CallbackMethod::kRestart, CallbackMethod::kBranchAndCut, CallbackMethod::kHybrid}) {
    SubtourHooks hooks(t);
    CallbackSettings s;
    s.method = m;
    s.switch_nodes = 3;
    s.search.mip_gap = 1e-9;
    s.search.mip_gap_abs = 1e-9;
    void* h = Highs_create();
    Highs_setBoolOptionValue(h, "output_flag", 0);
    Highs_setDoubleOptionValue(h, "mip_rel_gap", 1e-9);
    auto r = vlm::algorithms::callback_search(h, t.problem(), {}, &hooks, s);
    Highs_destroy(h);
    ASSERT_TRUE(r.ok()) << r.status().message();
    EXPECT_EQ(r->status, VLM_OPTIMAL);
    ASSERT_TRUE(r->has_solution);
    t.expect_tour(r->x, r->objval);
    EXPECT_NEAR(r->bound, r->objval, 1e-6 * r->objval);
    obj[k++] = r->objval;
  }
  EXPECT_NEAR(obj[0], obj[1], 1e-6);
  EXPECT_NEAR(obj[0], obj[2], 1e-6);
}

// ---- the Lazy attribute through the C API -----------------------------------------------------

class LazyAttributeTest : public ModelFixture {
 protected:
  void lazy(int row, int level) { ASSERT_EQ(VLMsetintattrelement(m_, "Lazy", row, level), VLM_OK); }
};

// TSP on 7 cities with every subtour row for |S| = 3 (the only splits a 7-city degree-2
// solution can have are 3 + 4): the optimum is the enumerated shortest tour, whether the 35
// subtour rows are ordinary or lazy.
TEST_F(LazyAttributeTest, LazySubtourRowsGiveTheOptimumOfOrdinaryOnes) {
  const Tsp t(7);
  const double best = t.brute_force();
  for (double c : t.cost) ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, c, 0.0, 1.0, 'B', nullptr), VLM_OK);
  for (int v = 0; v < t.n; ++v) {
    std::vector<int> ind;
    for (int e = 0; e < static_cast<int>(t.edges.size()); ++e) {
      if (t.edges[e].first == v || t.edges[e].second == v) ind.push_back(e);
    }
    row(ind, std::vector<double>(ind.size(), 1.0), '=', 2.0);
  }
  int rows = t.n;
  for (int a = 0; a < t.n; ++a) {
    for (int b = a + 1; b < t.n; ++b) {
      for (int c = b + 1; c < t.n; ++c) {
        std::vector<int> ind;
        for (int e = 0; e < static_cast<int>(t.edges.size()); ++e) {
          const auto [i, j] = t.edges[e];
          auto in = [&](int v) { return v == a || v == b || v == c; };
          if (in(i) && in(j)) ind.push_back(e);
        }
        row(ind, {1.0, 1.0, 1.0}, '<', 2.0);
        ++rows;
      }
    }
  }
  solve();
  const double ordinary = objval();
  EXPECT_NEAR(ordinary, best, 1e-6);
  for (int i = t.n; i < rows; ++i) lazy(i, 1 + i % 3);
  solve();
  EXPECT_NEAR(objval(), best, 1e-6);
  EXPECT_LE(dbl("ObjBound"), best + 1e-6);
  std::vector<double> x(t.edges.size());
  ASSERT_EQ(VLMgetdblattrarray(m_, "X", 0, static_cast<int>(x.size()), x.data()), VLM_OK);
  t.expect_tour(x, objval());
  // Slack of every lazy row, from the library, agrees: none is violated.
  for (int i = t.n; i < rows; ++i) EXPECT_GE(dblelem("Slack", i), -1e-6) << "row " << i;
}

// max x + y  s.t.  x + y <= 1.5 (lazy),  x - y <= 0.5,  0 <= x, y <= 1: a continuous model.
// Optimum 1.5 (x = 1, y = 0.5 or any point on x + y = 1.5 within the box and x - y <= 0.5).
TEST_F(LazyAttributeTest, LazyRowOfAContinuousModel) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1.0, 0.0, 1.0, 'C', nullptr), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1.0, 0.0, 1.0, 'C', nullptr), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  row({0, 1}, {1, 1}, '<', 1.5);
  row({0, 1}, {1, -1}, '<', 0.5);
  lazy(0, 1);
  solve();
  EXPECT_NEAR(objval(), 1.5, 1e-6);
  EXPECT_LE(x(0) + x(1), 1.5 + 1e-6);
  EXPECT_LE(x(0) - x(1), 0.5 + 1e-6);
}

// min x + 2y  s.t.  x + y >= 3.5 (lazy),  x <= 2,  x, y integer >= 0. Optimum x = 2, y = 2: 6.
TEST_F(LazyAttributeTest, LazyRowCutsOffTheRelaxedOptimum) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1.0, 0.0, 10.0, 'I', nullptr), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 2.0, 0.0, 10.0, 'I', nullptr), VLM_OK);
  row({0, 1}, {1, 1}, '>', 3.5);
  row({0}, {1}, '<', 2.0);
  lazy(0, 2);
  solve();
  EXPECT_NEAR(objval(), 6.0, 1e-9);
  EXPECT_NEAR(x(0), 2.0, 1e-9);
  EXPECT_NEAR(x(1), 2.0, 1e-9);
  EXPECT_NEAR(dbl("ObjBound"), 6.0, 1e-6);
}

}  // namespace
