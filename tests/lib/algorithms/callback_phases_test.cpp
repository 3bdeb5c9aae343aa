// The callback search beyond its basic contract: an incumbent that a later lazy row cuts off
// is dropped and never reported, a MIP start is checked and used, a convex quadratic objective
// is solved with lazy rows, node statuses other than optimal reach at_node, at_poll fires from
// inside engine runs, and a proceed ends the hybrid's first phase.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "algorithms/callback_search.h"
#include "interfaces/highs_c_api.h"
#include "reform/working_problem.h"

namespace {

using vlm::algorithms::CallbackMethod;
using vlm::algorithms::CallbackSettings;
using vlm::algorithms::CallbackStats;
using vlm::algorithms::HookReply;
using vlm::algorithms::SearchHooks;
using vlm::algorithms::SearchProgress;
using vlm::algorithms::UserRow;

// max 5a + 4b + 3c + 2d  s.t.  a + b + c + d <= 2, binary. Without more rows a = b = 1 gives 9;
// with a + b <= 1 the best is a + c: 8.
vlm::reform::WorkingProblem pick_two() {
  vlm::reform::WorkingProblem p;
  for (double c : {5.0, 4.0, 3.0, 2.0}) p.add_col(0.0, 1.0, 1, c);
  p.add_row({0, 1, 2, 3}, {1, 1, 1, 1}, -INFINITY, 2.0);
  p.user_cols = p.ncol;
  p.user_rows = p.nrow;
  p.sense = -1;
  p.mip = true;
  return p;
}

// A multi-dimensional 0-1 knapsack from a fixed generator (maximise), large enough that HiGHS
// iterates its simplex for a while.
vlm::reform::WorkingProblem knapsack(int n) {
  vlm::reform::WorkingProblem p;
  unsigned s = 4711;
  auto rnd = [&] { return (s = s * 1103515245u + 12345u) >> 16 & 0x7fff; };
  for (int j = 0; j < n; ++j) p.add_col(0.0, 1.0, 1, 10.0 + rnd() % 90);
  for (int k = 0; k < 4; ++k) {
    std::vector<int> ind;
    std::vector<double> val;
    double sum = 0.0;
    for (int j = 0; j < n; ++j) {
      ind.push_back(j);
      val.push_back(5.0 + rnd() % 60);
      sum += val.back();
    }
    p.add_row(ind, val, -INFINITY, std::floor(sum / 3));
  }
  p.user_cols = p.ncol;
  p.user_rows = p.nrow;
  p.sense = -1;
  p.mip = true;
  return p;
}

double value(const UserRow& r, const std::vector<double>& x) {
  double a = 0.0;
  for (std::size_t k = 0; k < r.ind.size(); ++k) a += r.val[k] * x[r.ind[k]];
  return a;
}

void* quiet_highs() {
  void* h = Highs_create();
  Highs_setBoolOptionValue(h, "output_flag", 0);
  Highs_setDoubleOptionValue(h, "mip_rel_gap", 1e-9);
  Highs_setDoubleOptionValue(h, "mip_abs_gap", 1e-9);
  return h;
}

CallbackSettings exact(CallbackMethod m) {
  CallbackSettings s;
  s.method = m;
  s.search.mip_gap = 1e-9;
  s.search.mip_gap_abs = 1e-9;
  s.search.time_limit = 60;
  return s;
}

// Accepts every candidate, but once one was accepted hands back a + b <= 1 at the next
// progress or node call: a row that cuts off what it accepted.
class LateRowHooks : public SearchHooks {
 public:
  void at_solution(const SearchProgress&, const std::vector<double>& x, double obj, HookReply&) override {
    seen.push_back({obj, x});
  }
  void at_node(const SearchProgress&, int, const std::vector<double>&, HookReply& r) override { late_row(r); }
  void at_progress(const SearchProgress&, HookReply& r) override { late_row(r); }
  void late_row(HookReply& r) {
    if (seen.empty() || given) return;
    given = true;
    r.lazy.push_back(row);
  }
  const UserRow row{{0, 1}, {1.0, 1.0}, '<', 1.0};
  bool given = false;
  std::vector<std::pair<double, std::vector<double>>> seen;
};

class CallbackPhasesTest : public ::testing::TestWithParam<CallbackMethod> {
 protected:
  void TearDown() override { Highs_destroy(h_); }
  void* h_ = quiet_highs();
};

// The start a = b = 1 (objective 9) is accepted first; the row handed back afterwards cuts it
// off. The result is the optimum with the row, 8, and no reported solution breaks the row.
TEST_P(CallbackPhasesTest, IncumbentCutOffByALaterLazyRowIsNeverReported) {
  LateRowHooks hooks;
  CallbackSettings s = exact(GetParam());
  s.start = {1, 1, 0, 0};
  auto r = vlm::algorithms::callback_search(h_, pick_two(), {}, &hooks, s);
  ASSERT_TRUE(r.ok()) << r.status().message();
  ASSERT_TRUE(hooks.given);
  ASSERT_FALSE(hooks.seen.empty());
  EXPECT_NEAR(hooks.seen[0].first, 9.0, 1e-9);  // the start was the first candidate
  EXPECT_EQ(r->status, VLM_OPTIMAL);
  ASSERT_TRUE(r->has_solution);
  EXPECT_NEAR(r->objval, 8.0, 1e-9);
  EXPECT_LE(value(hooks.row, r->x), 1.0 + 1e-9);
  EXPECT_GE(r->bound, 8.0 - 1e-6);
  EXPECT_LE(r->bound, 9.0 + 1e-9);
  for (const auto& [obj, x] : r->incumbents) {
    EXPECT_LE(value(hooks.row, x), 1.0 + 1e-9) << "incumbent " << obj << " breaks the lazy row";
  }
}

// A complete start is the first incumbent: with a solution limit of one it is the answer.
// Knapsack of pick_two: the start (0, 1, 1, 0) gives 7.
TEST_P(CallbackPhasesTest, StartIsTheFirstIncumbent) {
  CallbackSettings s = exact(GetParam());
  s.start = {0, 1, 1, 0};
  s.search.solution_limit = 1;
  auto r = vlm::algorithms::callback_search(h_, pick_two(), {}, nullptr, s);
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_SOLUTION_LIMIT);
  ASSERT_TRUE(r->has_solution);
  EXPECT_NEAR(r->objval, 7.0, 1e-9);
  ASSERT_FALSE(r->incumbents.empty());
  EXPECT_NEAR(r->incumbents.front().first, 7.0, 1e-9);
}

// A partial start (a = 1, the rest open) is completed over the rows known (a + c = 8 or
// a + b = 9: HiGHS completes to the best, 9) before it is the first incumbent.
TEST_P(CallbackPhasesTest, PartialStartIsCompleted) {
  CallbackSettings s = exact(GetParam());
  s.start = {1, NAN, NAN, NAN};
  s.search.solution_limit = 1;
  auto r = vlm::algorithms::callback_search(h_, pick_two(), {}, nullptr, s);
  ASSERT_TRUE(r.ok()) << r.status().message();
  ASSERT_TRUE(r->has_solution);
  EXPECT_NEAR(r->x[0], 1.0, 1e-9);
  EXPECT_NEAR(r->objval, 9.0, 1e-9);
}

// A start that breaks a held-out row (a + b <= 1 held out of the relaxation) is not taken:
// the first incumbent satisfies the row and the optimum is 8.
TEST_P(CallbackPhasesTest, StartBreakingALazyRowIsRefused) {
  vlm::reform::WorkingProblem p = pick_two();
  p.add_row({0, 1}, {1, 1}, -INFINITY, 1.0);
  CallbackSettings s = exact(GetParam());
  s.start = {1, 1, 0, 0};
  auto r = vlm::algorithms::callback_search(h_, p, {1}, nullptr, s);
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_OPTIMAL);
  EXPECT_NEAR(r->objval, 8.0, 1e-9);
  for (const auto& [obj, x] : r->incumbents) EXPECT_LE(x[0] + x[1], 1.0 + 1e-9) << obj;
}

// at_poll fires from inside the engine's runs; a terminate there stops the solve at once.
TEST_P(CallbackPhasesTest, PollingFiresAndCanTerminate) {
  struct PollHooks : SearchHooks {
    void at_solution(const SearchProgress&, const std::vector<double>&, double, HookReply&) override {}
    void at_node(const SearchProgress&, int, const std::vector<double>&, HookReply&) override {}
    void at_progress(const SearchProgress&, HookReply&) override {}
    void at_poll(HookReply& r) override {
      ++polls;
      r.terminate = true;
    }
    int polls = 0;
  } hooks;
  auto r = vlm::algorithms::callback_search(h_, knapsack(60), {}, &hooks, exact(GetParam()));
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_GE(hooks.polls, 1);
  EXPECT_EQ(r->status, VLM_INTERRUPTED);
}

// Accepts every candidate; once the search has processed 20 nodes after the first one, hands
// back the row that cuts off exactly the last accepted point (sum of its ones <= count - 1).
// By then that incumbent has pruned nodes: the result must be the optimum of the knapsack with
// the row given up front, and no reported solution may be the excluded point.
class NoGoodHooks : public SearchHooks {
 public:
  void at_solution(const SearchProgress& p, const std::vector<double>& x, double, HookReply&) override {
    if (last.empty()) first_at = p.nodes;
    last = x;
  }
  void at_node(const SearchProgress&, int, const std::vector<double>&, HookReply&) override {}
  void at_progress(const SearchProgress& p, HookReply& r) override {
    if (given || last.empty() || p.nodes < first_at + 20) return;
    given = true;
    excluded = last;
    for (std::size_t j = 0; j < last.size(); ++j) {
      if (last[j] > 0.5) {
        row.ind.push_back(static_cast<int>(j));
        row.val.push_back(1.0);
      }
    }
    row.sense = '<';
    row.rhs = static_cast<double>(row.ind.size()) - 1.0;
    r.lazy.push_back(row);
  }
  std::vector<double> last, excluded;
  double first_at = 0;
  bool given = false;
  UserRow row;
};

INSTANTIATE_TEST_SUITE_P(Drivers, CallbackPhasesTest,
                         ::testing::Values(CallbackMethod::kRestart, CallbackMethod::kBranchAndCut,
                                           CallbackMethod::kHybrid),
                         [](const auto& info) {
                           return info.param == CallbackMethod::kRestart        ? std::string("Restart")
                                  : info.param == CallbackMethod::kBranchAndCut ? std::string("BranchAndCut")
                                                                                : std::string("Hybrid");
                         });

// Our own tree (branch and cut, and the hybrid's first phase) processes the 20 nodes the row
// waits for; HiGHS's MIP in the restart loop closes this knapsack before.
TEST(CallbackDrop, IncumbentThatPrunedIsDroppedAndTheBoundStaysValid) {
  for (CallbackMethod m : {CallbackMethod::kBranchAndCut, CallbackMethod::kHybrid}) {
    NoGoodHooks hooks;
    CallbackSettings s = exact(m);
    s.switch_nodes = 1e9;  // the hybrid stays in its branch and cut, where the drop happens
    void* h = quiet_highs();
    auto r = vlm::algorithms::callback_search(h, knapsack(30), {}, &hooks, s);
    Highs_destroy(h);
    ASSERT_TRUE(r.ok()) << r.status().message();
    ASSERT_TRUE(hooks.given) << "the search closed before the row was due";
    // The reference: the same row as an ordinary row from the start.
    vlm::reform::WorkingProblem with_row = knapsack(30);
    with_row.add_row(hooks.row.ind, hooks.row.val, -INFINITY, hooks.row.rhs);
    h = quiet_highs();
    auto ref = vlm::algorithms::callback_search(h, with_row, {}, nullptr, exact(CallbackMethod::kRestart));
    Highs_destroy(h);
    ASSERT_TRUE(ref.ok());
    EXPECT_EQ(r->status, VLM_OPTIMAL);
    EXPECT_NEAR(r->objval, ref->objval, 1e-6);
    EXPECT_GE(r->bound, ref->objval - 1e-6);
    EXPECT_LE(value(hooks.row, r->x), hooks.row.rhs + 1e-9);
    for (const auto& [obj, x] : r->incumbents) EXPECT_NE(x, hooks.excluded) << "incumbent " << obj;
  }
}

// min (x - 2.6)^2 + (y - 1.3)^2 = x^2 + y^2 - 5.2x - 2.6y + 8.45, x, y integer in [0, 5].
// Alone (3, 1) gives 0.25; with x + y <= 3 the integer points nearest are (2, 1): 0.45,
// (3, 0): 1.85. The row held out, or handed back by a hook at candidates, gives 0.45.
vlm::reform::WorkingProblem nearest_point(bool with_row = true) {
  vlm::reform::WorkingProblem p;
  p.add_col(0.0, 5.0, 1, -5.2);
  p.add_col(0.0, 5.0, 1, -2.6);
  p.objcon = 8.45;
  p.qstart = {0, 1};
  p.qindex = {0, 1};
  p.qval = {2.0, 2.0};  // 1/2 x'Qx with Q = 2I
  if (with_row) p.add_row({0, 1}, {1, 1}, -INFINITY, 3.0);
  p.user_cols = p.ncol;
  p.user_rows = p.nrow;
  p.mip = true;
  return p;
}

TEST(CallbackQuadratic, LazyRowsWithAQuadraticObjective) {
  for (CallbackMethod m : {CallbackMethod::kAuto, CallbackMethod::kHybrid}) {
    void* h = quiet_highs();
    CallbackStats stats;
    auto r = vlm::algorithms::callback_search(h, nearest_point(), {0}, nullptr, exact(m), &stats);
    Highs_destroy(h);
    ASSERT_TRUE(r.ok()) << r.status().message();
    EXPECT_EQ(stats.method, CallbackMethod::kBranchAndCut);
    EXPECT_EQ(r->status, VLM_OPTIMAL);
    EXPECT_NEAR(r->objval, 0.45, 1e-6);
    EXPECT_NEAR(r->x[0], 2.0, 1e-6);
    EXPECT_NEAR(r->x[1], 1.0, 1e-6);
    EXPECT_LE(r->bound, 0.45 + 1e-6);
  }
  // The same row from a hook at candidates.
  struct RowHooks : SearchHooks {
    void at_solution(const SearchProgress&, const std::vector<double>& x, double obj, HookReply& r) override {
      objs.push_back(obj);
      if (x[0] + x[1] > 3 + 1e-9) r.lazy.push_back({{0, 1}, {1, 1}, '<', 3.0});
    }
    void at_node(const SearchProgress&, int, const std::vector<double>&, HookReply&) override {}
    void at_progress(const SearchProgress&, HookReply&) override {}
    std::vector<double> objs;
  } hooks;
  void* h = quiet_highs();
  auto r = vlm::algorithms::callback_search(h, nearest_point(false), {}, &hooks, exact(CallbackMethod::kAuto));
  Highs_destroy(h);
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_OPTIMAL);
  EXPECT_NEAR(r->objval, 0.45, 1e-6);
  ASSERT_FALSE(hooks.objs.empty());
  // The candidate objectives include the quadratic part: (3, 1) is reported as 0.25.
  EXPECT_NEAR(hooks.objs.front(), 0.25, 1e-6);
}

// Nodes of an integer-infeasible model reach at_node with INFEASIBLE and no point:
// 2x + 2y = 3 with x, y binary has LP points but no integer one.
TEST(CallbackNodeStatus, InfeasibleNodesAreReported) {
  struct StatusHooks : SearchHooks {
    void at_solution(const SearchProgress&, const std::vector<double>&, double, HookReply&) override {}
    void at_node(const SearchProgress&, int status, const std::vector<double>& x, HookReply&) override {
      statuses.push_back(status);
      if (status != VLM_OPTIMAL) {
        EXPECT_TRUE(x.empty());
      }
    }
    void at_progress(const SearchProgress&, HookReply&) override {}
    std::vector<int> statuses;
  } hooks;
  vlm::reform::WorkingProblem p;
  p.add_col(0.0, 1.0, 1, 1.0);
  p.add_col(0.0, 1.0, 1, 1.0);
  p.add_row({0, 1}, {2, 2}, 3.0, 3.0);
  p.user_cols = p.ncol;
  p.user_rows = p.nrow;
  p.mip = true;
  CallbackSettings s = exact(CallbackMethod::kAuto);
  s.node_events = true;
  void* h = quiet_highs();
  auto r = vlm::algorithms::callback_search(h, p, {}, &hooks, s);
  Highs_destroy(h);
  ASSERT_TRUE(r.ok()) << r.status().message();
  EXPECT_EQ(r->status, VLM_INFEASIBLE);
  int optimal = 0, infeasible = 0;
  for (int st : hooks.statuses) {
    optimal += st == VLM_OPTIMAL;
    infeasible += st == VLM_INFEASIBLE;
  }
  EXPECT_GE(optimal, 1);     // the root's fractional point
  EXPECT_GE(infeasible, 2);  // both children of the root at least
}

// A proceed from the first progress call ends the hybrid's branch and cut although its node
// budget is far from spent: HiGHS's MIP then runs and the optimum is the same (9, a = b = 1).
// Branch and cut alone has no later phase and ignores it (it closes without HiGHS's MIP).
TEST(CallbackProceed, EndsTheHybridsFirstPhase) {
  struct ProceedHooks : SearchHooks {
    void at_solution(const SearchProgress&, const std::vector<double>&, double, HookReply&) override {}
    void at_node(const SearchProgress&, int, const std::vector<double>&, HookReply&) override {}
    void at_progress(const SearchProgress&, HookReply& r) override { r.proceed = true; }
  };
  double obj[2] = {0, 0};
  int runs[2] = {0, 0};
  int k = 0;
  for (CallbackMethod m : {CallbackMethod::kHybrid, CallbackMethod::kBranchAndCut}) {
    ProceedHooks hooks;
    CallbackSettings s = exact(m);
    s.switch_nodes = 1e9;
    CallbackStats stats;
    void* h = quiet_highs();
    auto r = vlm::algorithms::callback_search(h, pick_two(), {}, &hooks, s, &stats);
    Highs_destroy(h);
    ASSERT_TRUE(r.ok()) << r.status().message();
    EXPECT_EQ(r->status, VLM_OPTIMAL);
    obj[k] = r->objval;
    runs[k++] = stats.runs;
  }
  EXPECT_GE(runs[0], 1);
  EXPECT_EQ(runs[1], 0);
  EXPECT_NEAR(obj[0], 9.0, 1e-9);
  EXPECT_NEAR(obj[1], 9.0, 1e-9);
}

}  // namespace
