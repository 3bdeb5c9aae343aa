// The controlled search through the C API: Lazy rows and a callback's lazy rows with a quadratic
// objective, the Start attribute on the lazy path, MIPNODE statuses of nodes without a point,
// POLLING from inside the search, and VLMcbproceed ending a multi-objective level.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "model_fixture.h"

namespace {

class SearchApiTest : public ModelFixture {
 protected:
  void vars(const std::vector<double>& obj, double ub, char type) {
    for (double c : obj) ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, c, 0.0, ub, type, nullptr), VLM_OK);
  }
  // min (x - 2.6)^2 + (y - 1.3)^2 = x^2 + y^2 - 5.2x - 2.6y + 8.45 over integers in [0, 5].
  void nearest_point() {
    vars({-5.2, -2.6}, 5.0, 'I');
    int q[2] = {0, 1};
    double one[2] = {1.0, 1.0};
    ASSERT_EQ(VLMaddqpterms(m_, 2, q, q, one), VLM_OK);
    ASSERT_EQ(VLMsetdblattr(m_, "ObjCon", 8.45), VLM_OK);
  }
  void lazy(int row, int level) { ASSERT_EQ(VLMsetintattrelement(m_, "Lazy", row, level), VLM_OK); }
};

// Alone (3, 1) gives 0.25; with x + y <= 3 the best integer point is (2, 1): 0.36 + 0.09 = 0.45
// ((3, 0) gives 1.85). Ordinary and lazy, the row gives the same optimum.
TEST_F(SearchApiTest, LazyRowsWithAQuadraticObjective) {
  nearest_point();
  solve();
  EXPECT_NEAR(objval(), 0.25, 1e-6);
  row({0, 1}, {1, 1}, '<', 3.0);
  solve();
  EXPECT_NEAR(objval(), 0.45, 1e-6);
  lazy(0, 1);
  solve();
  EXPECT_NEAR(objval(), 0.45, 1e-6);
  EXPECT_NEAR(x(0), 2.0, 1e-6);
  EXPECT_NEAR(x(1), 1.0, 1e-6);
  EXPECT_LE(dbl("ObjBound"), 0.45 + 1e-6);
}

// The row x + y <= 3 handed back by the callback at every candidate that breaks it.
int quadratic_lazy(VLMmodel*, void* cbdata, int where, void* usrdata) {
  if (where != VLM_CB_MIPSOL) return 0;
  auto* objs = static_cast<std::vector<double>*>(usrdata);
  double x[2] = {0, 0}, obj = 0;
  VLMcbget(cbdata, where, VLM_CB_MIPSOL_SOL, x);
  VLMcbget(cbdata, where, VLM_CB_MIPSOL_OBJ, &obj);
  objs->push_back(obj);
  if (x[0] + x[1] > 3 + 1e-9) {
    int ind[2] = {0, 1};
    double val[2] = {1, 1};
    EXPECT_EQ(VLMcblazy(cbdata, 2, ind, val, '<', 3.0), VLM_OK);
  }
  return 0;
}

TEST_F(SearchApiTest, CallbackLazyRowsWithAQuadraticObjective) {
  nearest_point();
  std::vector<double> objs;
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "LazyConstraints", 1), VLM_OK);
  ASSERT_EQ(VLMsetcallbackfunc(m_, quadratic_lazy, &objs), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 0.45, 1e-6);
  EXPECT_LE(x(0) + x(1), 3 + 1e-9);
  ASSERT_FALSE(objs.empty());
  // Candidates report the objective with its quadratic part.
  for (double o : objs) EXPECT_GE(o, 0.25 - 1e-6);
}

// max 5a + 4b + 3c + 2d, a + b + c + d <= 2, a + b <= 1 lazy, binary: optimum a + c = 8. A start
// (0, 1, 1, 0) = 7 is the first incumbent (SolutionLimit 1 stops there); a start a = b = 1
// breaks the lazy row and is never the answer.
class StartTest : public SearchApiTest {
 protected:
  void SetUp() override {
    SearchApiTest::SetUp();
    vars({5, 4, 3, 2}, 1.0, 'B');
    ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
    row({0, 1, 2, 3}, {1, 1, 1, 1}, '<', 2.0);
    row({0, 1}, {1, 1}, '<', 1.0);
    lazy(1, 1);
  }
  void start(std::vector<double> v) {
    ASSERT_EQ(VLMsetdblattrarray(m_, "Start", 0, 4, v.data()), VLM_OK);
  }
};

TEST_F(StartTest, StartIsTheFirstIncumbent) {
  start({0, 1, 1, 0});
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "SolutionLimit", 1), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_SOLUTION_LIMIT);
  EXPECT_NEAR(objval(), 7.0, 1e-9);
}

TEST_F(StartTest, PartialStartIsCompletedWithinTheLazyRows) {
  // a = 1 given: completed over the rows known with a + b <= 1, to a + c = 8.
  start({1, VLM_UNDEFINED, VLM_UNDEFINED, VLM_UNDEFINED});
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "SolutionLimit", 1), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_NEAR(x(0), 1.0, 1e-9);
  EXPECT_NEAR(x(1), 0.0, 1e-9);
  EXPECT_NEAR(objval(), 8.0, 1e-9);
}

TEST_F(StartTest, StartBreakingALazyRowIsNotTaken) {
  start({1, 1, 0, 0});
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "SolutionLimit", 1), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_LE(x(0) + x(1), 1.0 + 1e-9);
  EXPECT_LE(objval(), 8.0 + 1e-9);
}

// What a node callback saw: the statuses, and for each node without a point the error code and
// message of asking for its relaxation anyway.
struct NodeLog {
  std::vector<int> statuses;
  std::vector<int> rel_codes;
  std::vector<std::string> rel_msgs;
  int polls = 0;
  bool terminate_at_poll = false;
};

int node_logger(VLMmodel* model, void* cbdata, int where, void* usrdata) {
  auto* L = static_cast<NodeLog*>(usrdata);
  if (where == VLM_CB_POLLING) {
    ++L->polls;
    if (L->terminate_at_poll) VLMterminate(model);
  }
  if (where != VLM_CB_MIPNODE) return 0;
  int st = -1;
  EXPECT_EQ(VLMcbget(cbdata, where, VLM_CB_MIPNODE_STATUS, &st), VLM_OK);
  L->statuses.push_back(st);
  if (st != VLM_OPTIMAL) {
    double rel[2];
    L->rel_codes.push_back(VLMcbget(cbdata, where, VLM_CB_MIPNODE_REL, rel));
    L->rel_msgs.emplace_back(VLMgetmerrormsg(model));
  }
  return 0;
}

// 2x + 2y = 3 over binaries: the root's point is fractional, every child is infeasible. The
// callback sees OPTIMAL at the root and INFEASIBLE nodes, whose relaxation it cannot read.
TEST_F(SearchApiTest, NodesWithoutAPointReportTheirStatus) {
  vars({1, 1}, 1.0, 'B');
  row({0, 1}, {2, 2}, '=', 3.0);
  NodeLog L;
  ASSERT_EQ(VLMsetcallbackfuncsearch(m_, node_logger, &L, 1), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_INFEASIBLE);
  ASSERT_FALSE(L.statuses.empty());
  EXPECT_EQ(L.statuses.front(), VLM_OPTIMAL);
  int infeasible = 0;
  for (int st : L.statuses) infeasible += st == VLM_INFEASIBLE;
  EXPECT_GE(infeasible, 2);
  ASSERT_FALSE(L.rel_codes.empty());
  for (std::size_t k = 0; k < L.rel_codes.size(); ++k) {
    EXPECT_EQ(L.rel_codes[k], VLM_ERROR_CALLBACK);
    EXPECT_EQ(L.rel_msgs[k], "Node relaxation not available");
  }
}

// POLLING fires from inside HiGHS's own MIP and from inside the controlled search's engine
// runs (LazyConstraints 1); a terminate there stops the solve.
TEST_F(SearchApiTest, PollingFiresInsideLongRunsAndCanTerminate) {
  unsigned s = 99;
  auto rnd = [&] { return (s = s * 1103515245u + 12345u) >> 16 & 0x7fff; };
  std::vector<double> profit;
  for (int j = 0; j < 60; ++j) profit.push_back(10.0 + rnd() % 90);
  vars(profit, 1.0, 'B');
  for (int i = 0; i < 4; ++i) {
    std::vector<int> ind;
    std::vector<double> w;
    double total = 0;
    for (int j = 0; j < 60; ++j) {
      ind.push_back(j);
      w.push_back(5.0 + rnd() % 60);
      total += w.back();
    }
    row(ind, w, '<', std::floor(total / 3));
  }
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  for (int lazy_search : {0, 1}) {
    NodeLog L;
    L.terminate_at_poll = true;
    ASSERT_EQ(VLMreset(m_, 0), VLM_OK);
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "LazyConstraints", lazy_search), VLM_OK);
    ASSERT_EQ(VLMsetcallbackfunc(m_, node_logger, &L), VLM_OK);
    ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
    EXPECT_GE(L.polls, 1) << "LazyConstraints " << lazy_search;
    EXPECT_EQ(status(), VLM_INTERRUPTED) << "LazyConstraints " << lazy_search;
  }
}

// ---- VLMcbproceed in the multi-objective driver ------------------------------------------

struct ProceedLog {
  std::vector<std::vector<double>> level_sols;
  int proceed_rc = -1;
  bool proceed = false;
};

int proceed_logger(VLMmodel* model, void* cbdata, int where, void* usrdata) {
  auto* L = static_cast<ProceedLog*>(usrdata);
  if (where == VLM_CB_MULTIOBJ) {
    int n = 0;
    VLMgetcbwhatinfo(model, VLM_CB_MULTIOBJ_SOL, nullptr, &n);
    std::vector<double> x(n);
    EXPECT_EQ(VLMcbget(cbdata, where, VLM_CB_MULTIOBJ_SOL, x.data()), VLM_OK);
    L->level_sols.push_back(x);
  } else if (where == VLM_CB_MIPSOL && L->proceed && L->level_sols.empty() && L->proceed_rc != VLM_OK) {
    // The first solution of the first level: proceed to the next level from here.
    L->proceed_rc = VLMcbproceed(cbdata);
  }
  return 0;
}

// Two levels over a 0-1 knapsack (60 items, 4 resources): profit first, then the item count.
// A proceed at the first solution of the first level ends that level there, so its profit
// falls short of the level's optimum (found by a run without the proceed), and the second
// level still runs.
TEST_F(SearchApiTest, ProceedEndsAMultiObjectiveLevel) {
  unsigned s = 12345;
  auto rnd = [&] { return (s = s * 1103515245u + 12345u) >> 16 & 0x7fff; };
  std::vector<double> profit;
  for (int j = 0; j < 60; ++j) profit.push_back(10.0 + rnd() % 90);
  vars(std::vector<double>(60, 0.0), 1.0, 'B');
  std::vector<int> ind(60);
  for (int j = 0; j < 60; ++j) ind[j] = j;
  for (int i = 0; i < 4; ++i) {
    std::vector<double> w;
    double total = 0;
    for (int j = 0; j < 60; ++j) {
      w.push_back(5.0 + rnd() % 60);
      total += w.back();
    }
    row(ind, w, '<', std::floor(total / 2));
  }
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  std::vector<double> one(60, 1.0);
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1.0, 0.0, 0.0, "profit", 0.0, 60, ind.data(), profit.data()), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1.0, 0.0, 0.0, "items", 0.0, 60, ind.data(), one.data()), VLM_OK);
  auto value = [&](const std::vector<double>& x) {
    double v = 0;
    for (int j = 0; j < 60; ++j) v += profit[j] * x[j];
    return v;
  };
  ProceedLog full;
  ASSERT_EQ(VLMsetcallbackfunc(m_, proceed_logger, &full), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(full.level_sols.size(), 2u);
  ProceedLog cut;
  cut.proceed = true;
  ASSERT_EQ(VLMsetcallbackfunc(m_, proceed_logger, &cut), VLM_OK);
  ASSERT_EQ(VLMreset(m_, 0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(cut.proceed_rc, VLM_OK);
  ASSERT_EQ(cut.level_sols.size(), 2u);
  EXPECT_LT(value(cut.level_sols[0]), value(full.level_sols[0]) - 1e-6);
  EXPECT_EQ(status(), VLM_OPTIMAL);
}

}  // namespace
