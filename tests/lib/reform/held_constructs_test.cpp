// SOS sets and indicators whose members have no finite bound: solved by branching on the
// construct instead of refused, to the same optimum as the big-M path when bounds are given.
// Every returned point is checked against the constructs themselves.
#include <algorithm>
#include <functional>

#include "reform/reform_fixture.h"

namespace {

constexpr double kInf = 1e100;

class HeldTest : public ReformTest {
 protected:
  std::vector<double> point() {
    std::vector<double> v(nvars_);
    EXPECT_EQ(VLMgetdblattrarray(m_, "X", 0, nvars_, v.data()), VLM_OK);
    return v;
  }
  // At most one member non-zero (SOS1), or the non-zeros within two neighbours by weight (SOS2).
  void expect_sos(int type, std::vector<int> members, std::vector<double> weights) {
    std::vector<int> order(members.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<int>(i);
    std::sort(order.begin(), order.end(), [&](int a, int b) { return weights[a] < weights[b]; });
    std::vector<int> nz;
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (std::fabs(x(members[order[i]])) > 1e-6) nz.push_back(static_cast<int>(i));
    }
    if (type == 1) {
      EXPECT_LE(nz.size(), 1u);
    } else if (!nz.empty()) {
      EXPECT_LE(nz.back() - nz.front(), 1);
    }
  }
  void indicator(int b, int val, std::vector<int> ind, std::vector<double> coef, char sense, double rhs,
                 const char* name = nullptr) {
    ASSERT_EQ(VLMaddgenconstrIndicator(m_, name, b, val, static_cast<int>(ind.size()), ind.data(), coef.data(),
                                       sense, rhs),
              VLM_OK);
  }
  // (b == val) => sum coef x (sense) rhs holds at the solution.
  void expect_indicator(int b, int val, std::vector<int> ind, std::vector<double> coef, char sense, double rhs) {
    if (std::fabs(x(b) - val) > 1e-6) return;
    double act = 0.0;
    for (std::size_t k = 0; k < ind.size(); ++k) act += coef[k] * x(ind[k]);
    if (sense != '>') {
      EXPECT_LE(act, rhs + 1e-6);
    }
    if (sense != '<') {
      EXPECT_GE(act, rhs - 1e-6);
    }
  }
};

// min 2 x1 + 3 x2 + 4 x3, x1 + x2 >= 3, x2 + x3 >= 2, x >= 0 with no upper bound,
// SOS1{x1, x2, x3}. The LP optimum (1, 2, 0) = 8 has two non-zeros. With one non-zero member
// only x2 can meet both rows: x2 = 3, objective 9. With upper bounds of 10 the big-M path
// gives the same 9.
TEST_F(HeldTest, Sos1WithUnboundedMembersMatchesTheBigMPath) {
  for (double ub : {kInf, 10.0}) {
    SCOPED_TRACE(ub);
    TearDown();
    SetUp();
    nvars_ = 0;
    int x1 = var(2, 0, ub, 'C', "x1");
    int x2 = var(3, 0, ub, 'C', "x2");
    int x3 = var(4, 0, ub, 'C', "x3");
    row({x1, x2}, {1, 1}, '>', 3);
    row({x2, x3}, {1, 1}, '>', 2);
    sos(1, {x1, x2, x3}, {1, 2, 3});
    solve();
    EXPECT_NEAR(objval(), 9.0, 1e-6);
    EXPECT_NEAR(x(x2), 3.0, 1e-6);
    EXPECT_NEAR(dbl("ObjBound"), 9.0, 1e-6);
    EXPECT_GE(intattr("SolCount"), 1);
    expect_sos(1, {x1, x2, x3}, {1, 2, 3});
    expect_user_feasible(3, 2);
  }
}

// min 0.5 x1 + 5 x2 + x3 + x4, x1 + x3 >= 2, x2 + x4 >= 2, x >= 0 unbounded, SOS2 with the
// weights giving the order x1, x2, x3, x4 (members passed out of order). The LP takes x1 = x4
// = 2 (3), which is no window of two neighbours. Windows: {x1, x2} 1 + 10 = 11, {x2, x3}
// 10 + 2 = 12, {x3, x4} 2 + 2 = 4: optimum 4. Bounds of 10 give 4 through binaries too.
TEST_F(HeldTest, Sos2WithUnboundedMembersHonoursWeights) {
  for (double ub : {kInf, 10.0}) {
    SCOPED_TRACE(ub);
    TearDown();
    SetUp();
    nvars_ = 0;
    int x1 = var(0.5, 0, ub, 'C', "x1");
    int x2 = var(5, 0, ub, 'C', "x2");
    int x3 = var(1, 0, ub, 'C', "x3");
    int x4 = var(1, 0, ub, 'C', "x4");
    row({x1, x3}, {1, 1}, '>', 2);
    row({x2, x4}, {1, 1}, '>', 2);
    sos(2, {x4, x1, x3, x2}, {4, 1, 3, 2});
    solve();
    EXPECT_NEAR(objval(), 4.0, 1e-6);
    EXPECT_NEAR(x(x3), 2.0, 1e-6);
    EXPECT_NEAR(x(x4), 2.0, 1e-6);
    expect_sos(2, {x4, x1, x3, x2}, {4, 1, 3, 2});
    expect_user_feasible(4, 2);
  }
}

// Two SOS1 sets, one bounded (binaries) and one not (branched on); the linearized model shows
// that only the second was held: it keeps one SOS, the first became rows.
// Bounded: min -x1 - 2 x2, x1 <= 10, x2 <= 4, SOS1{x1, x2}: x1 = 10 gives -10 (x2 = 4: -8).
// Unbounded: min 2 x3 + 3 x4, x3 + 2 x4 >= 4, 2 x3 + x4 >= 4, SOS1{x3, x4}: the LP point
// (4/3, 4/3) = 20/3 has both; x3 alone needs 4 (8), x4 alone 4 (12). Optimum -10 + 8 = -2.
TEST_F(HeldTest, MixedBoundedAndUnboundedSets) {
  int x1 = var(-1, 0, 10, 'C', "x1");
  int x2 = var(-2, 0, 4, 'C', "x2");
  int x3 = var(2, 0, kInf, 'C', "x3");
  int x4 = var(3, 0, kInf, 'C', "x4");
  row({x3, x4}, {1, 2}, '>', 4);
  row({x3, x4}, {2, 1}, '>', 4);
  sos(1, {x1, x2}, {1, 2});
  sos(1, {x3, x4}, {1, 2});
  solve();
  EXPECT_NEAR(objval(), -2.0, 1e-6);
  EXPECT_NEAR(x(x1), 10.0, 1e-6);
  EXPECT_NEAR(x(x3), 4.0, 1e-6);
  expect_sos(1, {x1, x2}, {1, 2});
  expect_sos(1, {x3, x4}, {1, 2});
  expect_user_feasible(4, 2);
  EXPECT_GE(dbl("NodeCount"), 1.0);

  VLMmodel* lin = VLMlinearizemodel(m_);
  ASSERT_NE(lin, nullptr) << VLMgetmerrormsg(m_);
  int nsos = -1, nvars = -1;
  EXPECT_EQ(VLMgetintattr(lin, "NumSOS", &nsos), VLM_OK);
  EXPECT_EQ(VLMgetintattr(lin, "NumVars", &nvars), VLM_OK);
  EXPECT_EQ(nsos, 1);
  EXPECT_GT(nvars, 4);  // the bounded set's binaries
  // The linearized model solves to the same optimum.
  ASSERT_EQ(VLMoptimize(lin), VLM_OK) << VLMgetmerrormsg(lin);
  double obj = 0;
  EXPECT_EQ(VLMgetdblattr(lin, "ObjVal", &obj), VLM_OK);
  EXPECT_NEAR(obj, -2.0, 1e-6);
  VLMfreemodel(lin);
}

// SOS1{x1, x2} where rows x1 >= 1 and x2 >= 1 need both non-zero: infeasible. The same with
// the lower bounds on the variables instead of rows (a child then has an empty range).
TEST_F(HeldTest, InfeasibleSets) {
  for (bool as_rows : {true, false}) {
    SCOPED_TRACE(as_rows);
    TearDown();
    SetUp();
    nvars_ = 0;
    int x1 = var(1, as_rows ? 0 : 1, kInf, 'C', "x1");
    int x2 = var(1, as_rows ? 0 : 1, kInf, 'C', "x2");
    if (as_rows) {
      row({x1}, {1}, '>', 1);
      row({x2}, {1}, '>', 1);
    }
    sos(1, {x1, x2}, {1, 2});
    ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
    EXPECT_EQ(status(), VLM_INFEASIBLE);
    EXPECT_EQ(intattr("SolCount"), 0);
  }
}

// Indicators whose row has an infinite activity bound, for each sense and both trigger values.
// The trigger value v is on b; for v = 0 the objective's b term changes sign, so "on" is
// rewarded the same way. Hand values:
//  '<': min x + 3y + c b, x + y >= 5, on => x <= 2: on x = 2, y = 3: 11; off x = 5: 5.
//       v = 1 with c = -8: on 3, off 5; v = 0 with c = +8: on 11, off 13. On both times.
//  '>': min x + y + c b, y >= 1, on => x - y >= 4: on x = 5, y = 1: 6; off 1 + 10 (v = 1: the
//       reward makes on 6 - 10 = -4, off 1). v = 0: 6; v = 1: -4. On both times.
//  '=': min 2x + y + c b, x >= 1, on => x + y = 3: on x = 1, y = 2: 4; off x = 1, y = 0: 2.
//       v = 1 with c = -6: on -2, off 2; v = 0 with c = +6: on 4, off 8. On both times.
struct IndicatorCase {
  char sense;
  int v;
  double cost_b;
  double expected;
};

TEST_F(HeldTest, IndicatorsWithUnboundedRows) {
  const IndicatorCase cases[] = {
      {'<', 1, -8, 3}, {'<', 0, 8, 11}, {'>', 0, 10, 6}, {'>', 1, -10, -4}, {'=', 1, -6, -2}, {'=', 0, 6, 4},
  };
  for (const IndicatorCase& c : cases) {
    SCOPED_TRACE(std::string(1, c.sense) + " v=" + std::to_string(c.v));
    TearDown();
    SetUp();
    nvars_ = 0;
    std::vector<int> ind;
    std::vector<double> coef;
    double rhs = 0;
    int b = -1;
    if (c.sense == '<') {
      int xv = var(1, 0, kInf, 'C', "x");
      int yv = var(3, 0, kInf, 'C', "y");
      b = var(c.cost_b, 0, 1, 'B', "b");
      row({xv, yv}, {1, 1}, '>', 5);
      ind = {xv};
      coef = {1};
      rhs = 2;
    } else if (c.sense == '>') {
      int xv = var(1, 0, kInf, 'C', "x");
      int yv = var(1, 1, kInf, 'C', "y");
      b = var(c.cost_b, 0, 1, 'B', "b");
      ind = {xv, yv};
      coef = {1, -1};
      rhs = 4;
    } else {
      int xv = var(2, 1, kInf, 'C', "x");
      int yv = var(1, 0, kInf, 'C', "y");
      b = var(c.cost_b, 0, 1, 'B', "b");
      ind = {xv, yv};
      coef = {1, 1};
      rhs = 3;
    }
    indicator(b, c.v, ind, coef, c.sense, rhs, "ind");
    solve();
    EXPECT_NEAR(objval(), c.expected, 1e-6);
    EXPECT_NEAR(x(b), c.v, 1e-6);  // the row is on at the optimum
    expect_indicator(b, c.v, ind, coef, c.sense, rhs);
    expect_user_feasible(nvars_, c.sense == '<' ? 1 : 0);
  }
}

// Held indicators next to big-M ones and a held SOS1 in one model.
// max 3z + 2w - u, z, w >= 0 unbounded, u in [0, 5], b1 + b2 <= 1, w - 2u <= 0 (so w <= 10
// after propagation: b2's indicators get big-Ms, b1's are held), (b1 == 1) => z <= 4,
// (b1 == 0) => z <= 0, (b2 == 1) => w <= 3, (b2 == 0) => w <= 0, SOS1{z, w}.
// b1 = 1: z = 4, w = 0, u = 0: 12. b2 = 1: w = 3, u = 1.5: 4.5. Optimum 12.
TEST_F(HeldTest, IndicatorsAndSetsTogether) {
  int z = var(3, 0, kInf, 'C', "z");
  int w = var(2, 0, kInf, 'C', "w");
  int u = var(-1, 0, 5, 'C', "u");
  int b1 = var(0, 0, 1, 'B', "b1");
  int b2 = var(0, 0, 1, 'B', "b2");
  maximize();
  row({w, u}, {1, -2}, '<', 0);
  row({b1, b2}, {1, 1}, '<', 1);
  indicator(b1, 1, {z}, {1}, '<', 4);
  indicator(b1, 0, {z}, {1}, '<', 0);
  indicator(b2, 1, {w}, {1}, '<', 3);
  indicator(b2, 0, {w}, {1}, '<', 0);
  sos(1, {z, w}, {1, 2});
  solve();
  EXPECT_NEAR(objval(), 12.0, 1e-6);
  EXPECT_NEAR(x(z), 4.0, 1e-6);
  expect_indicator(b1, 1, {z}, {1}, '<', 4);
  expect_indicator(b1, 0, {z}, {1}, '<', 0);
  expect_indicator(b2, 1, {w}, {1}, '<', 3);
  expect_indicator(b2, 0, {w}, {1}, '<', 0);
  expect_sos(1, {z, w}, {1, 2});
  expect_user_feasible(5, 2);
}

// Hierarchical objectives over a held SOS1: each level is a search of its own.
// x1, x2 >= 0 unbounded, x1 + 2 x2 >= 4, 2 x1 + x2 >= 4, SOS1{x1, x2}. Level 1: min 3 x1 + 3 x2;
// the LP's (4/3, 4/3) = 8 has both, x1 = 4 or x2 = 4 give 12. Level 2: min x2 among those: 0
// at (4, 0).
TEST_F(HeldTest, HierarchicalObjectivesKeepTheSet) {
  int x1 = var(0, 0, kInf, 'C', "x1");
  int x2 = var(0, 0, kInf, 'C', "x2");
  row({x1, x2}, {1, 2}, '>', 4);
  row({x1, x2}, {2, 1}, '>', 4);
  sos(1, {x1, x2}, {1, 2});
  std::vector<int> both{x1, x2}, second{x2};
  std::vector<double> three{3, 3}, one{1};
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1.0, 0.0, 0.0, nullptr, 0.0, 2, both.data(), three.data()), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1.0, 0.0, 0.0, nullptr, 0.0, 1, second.data(), one.data()), VLM_OK);
  solve();
  EXPECT_NEAR(x(x1), 4.0, 1e-6);
  EXPECT_NEAR(x(x2), 0.0, 1e-6);
  for (int k : {0, 1}) {
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", k), VLM_OK);
    EXPECT_NEAR(dbl("ObjNVal"), k == 0 ? 12.0 : 0.0, 1e-6);
  }
  expect_sos(1, {x1, x2}, {1, 2});
}

// Limits are statuses: the SOS2 model above (optimum 4) with NodeLimit 1 ends after the root,
// whose bound 3 is below the optimum; TimeLimit 0 before the root.
TEST_F(HeldTest, LimitsAreStatuses) {
  int x1 = var(0.5, 0, kInf, 'C', "x1");
  int x2 = var(5, 0, kInf, 'C', "x2");
  int x3 = var(1, 0, kInf, 'C', "x3");
  int x4 = var(1, 0, kInf, 'C', "x4");
  row({x1, x3}, {1, 1}, '>', 2);
  row({x2, x4}, {1, 1}, '>', 2);
  sos(2, {x1, x2, x3, x4}, {1, 2, 3, 4});
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "NodeLimit", 1), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_NODE_LIMIT);
  EXPECT_NEAR(dbl("ObjBound"), 3.0, 1e-6);
  EXPECT_EQ(intattr("SolCount"), 0);
  // TimeLimit 0 stops before the first node; without limits the gap closes at the optimum 4.
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "NodeLimit", 1e100), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "TimeLimit", 0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_TIME_LIMIT);
  EXPECT_EQ(intattr("SolCount"), 0);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "TimeLimit", 1e100), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 4.0, 1e-6);
  EXPECT_NEAR(dbl("MIPGap"), 0.0, 1e-9);
  EXPECT_GE(dbl("NodeCount"), 3.0);  // the root and its two children at least
}

// Lazy constraints cannot be combined with a held construct yet: a clear refusal naming it,
// and the model as it was.
TEST_F(HeldTest, LazyRowsWithHeldSetAreRefused) {
  int x1 = var(1, 0, kInf, 'C', "x1");
  int x2 = var(1, 0, kInf, 'C', "x2");
  row({x1, x2}, {1, 1}, '>', 1);
  sos(1, {x1, x2}, {1, 2});
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMsetintattrelement(m_, "Lazy", 0, 1), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_NOT_SUPPORTED,
               "SOS constraint 0 (type 1) has a member without finite bounds, so the solve branches on it");
  EXPECT_EQ(intattr("NumSOS"), 1);
  EXPECT_EQ(intattr("NumConstrs"), 1);
}

}  // namespace
