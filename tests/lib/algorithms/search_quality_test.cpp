// What makes the search stronger, each seen in an outcome: nodes proven infeasible by bound
// propagation without a relaxation solve, an incumbent found at the root by the heuristics,
// the objective stops (cutoff, best objective, best bound), semi-continuous branching, and
// pseudo-cost branching reaching the same optima as the most fractional rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "algorithms/branch_and_bound.h"
#include "algorithms/node_propagation.h"
#include "algorithms/pseudo_costs.h"
#include "engine/highs_instance.h"
#include "interfaces/highs_c_api.h"

namespace vlm::algorithms {
namespace {

reform::WorkingProblem finish(reform::WorkingProblem p, int sense) {
  p.sense = sense;
  p.user_cols = p.ncol;
  p.user_rows = p.nrow;
  return p;
}

// max 5a + 4b + 3c + 7d + 6e  s.t.  2a + 3b + c + 4d + 3e <= 7, binary: optimum 15 (a, c, d).
reform::WorkingProblem knapsack() {
  reform::WorkingProblem p;
  for (double v : {5.0, 4.0, 3.0, 7.0, 6.0}) p.add_col(0, 1, 1, v);
  p.add_row({0, 1, 2, 3, 4}, {2, 3, 1, 4, 3}, -INFINITY, 7);
  return finish(p, -1);
}

enum class Rule { kMostFractional, kPseudoCost, kPseudoCostNoProbe };

SearchResult solve(const reform::WorkingProblem& p, SearchSettings s, Rule rule = Rule::kMostFractional) {
  engine::ActiveSolve active;
  engine::HighsPtr h;
  Highs_setBoolOptionValue(h.h, "output_flag", 0);
  BranchAndBound search(h.h, p, s);
  std::vector<int> ints;
  for (int j = 0; j < p.ncol; ++j) {
    if (p.integrality[j] == 1 || p.integrality[j] == 3) ints.push_back(j);
  }
  if (rule == Rule::kMostFractional) {
    search.add_branching_rule(std::make_unique<MostFractionalRule>(ints, 1e-6));
  } else {
    search.add_branching_rule(
        std::make_unique<PseudoCostRule>(ints, 1e-6, rule == Rule::kPseudoCost ? &search : nullptr));
  }
  auto r = search.run();
  EXPECT_TRUE(r.ok()) << r.status().message();
  return r.ok() ? *r : SearchResult{};
}

// ---- propagation -------------------------------------------------------------------------

// 2x + 3y <= 6 and x - y >= 1 with x, y integer in [0, 10]: x <= 3 from the first row and
// x >= 1 + y >= 1 from the second; then 3y <= 6 - 2 * 1 gives y <= 1.
TEST(NodePropagatorTest, TightensIntegerBoundsThroughRows) {
  reform::WorkingProblem p;
  p.add_col(0, 10, 1);
  p.add_col(0, 10, 1);
  p.add_row({0, 1}, {2, 3}, -INFINITY, 6);
  p.add_row({0, 1}, {1, -1}, 1, INFINITY);
  NodePropagator prop(p, std::vector<double>(2, 0.0));
  std::vector<double> lo{0, 0}, up{10, 10};
  std::vector<int> changed;
  ASSERT_TRUE(prop.propagate(lo, up, changed));
  EXPECT_EQ(up[0], 3);
  EXPECT_EQ(up[1], 1);
  EXPECT_EQ(lo[0], 1);
  EXPECT_EQ(lo[1], 0);
  EXPECT_EQ(changed.size(), 2u);
  // With y fixed at 3, 2x <= -3 leaves no x >= 0.
  lo = {0, 3};
  up = {10, 3};
  EXPECT_FALSE(prop.propagate(lo, up, changed));
}

// x semi-continuous in {0} or [4, 10], y continuous in [0, 2], x - y <= 3: x <= 5 keeps both
// parts; with y <= 0.5 the bound x <= 3.5 leaves only x = 0.
TEST(NodePropagatorTest, SemiContinuousBoundsJumpToZeroOrTheirLowerBound) {
  reform::WorkingProblem p;
  p.add_col(4, 10, 2);
  p.add_col(0, 2, 0);
  p.add_row({0, 1}, {1, -1}, -INFINITY, 3);
  NodePropagator prop(p, {4.0, 0.0});
  std::vector<double> lo{0, 0}, up{10, 2};
  std::vector<int> changed;
  ASSERT_TRUE(prop.propagate(lo, up, changed));
  EXPECT_EQ(up[0], 5);
  up = {10, 0.5};
  ASSERT_TRUE(prop.propagate(lo, up, changed));
  EXPECT_EQ(up[0], 0);
  // x - y >= 1 forces x > 0, hence x >= 4.
  reform::WorkingProblem q;
  q.add_col(4, 10, 2);
  q.add_col(0, 2, 0);
  q.add_row({0, 1}, {1, -1}, 1, INFINITY);
  NodePropagator prop2(q, {4.0, 0.0});
  lo = {0, 0};
  up = {10, 2};
  ASSERT_TRUE(prop2.propagate(lo, up, changed));
  EXPECT_EQ(lo[0], 4);
}

// 2a + 2b + 2c = 3 with binaries has a fractional relaxation (all 1/2) but no integer point.
// Once the root branches on a, each child's row forces the others past the right-hand side:
// propagation settles both children without solving them.
TEST(PropagationSearchTest, PrunesChildrenWithoutRelaxations) {
  reform::WorkingProblem p;
  for (int j = 0; j < 3; ++j) p.add_col(0, 1, 1, 1.0);
  p.add_row({0, 1, 2}, {2, 2, 2}, 3, 3);
  p = finish(p, 1);
  SearchSettings s;
  s.heuristics = false;
  const SearchResult with = solve(p, s);
  EXPECT_EQ(with.status, VLM_INFEASIBLE);
  EXPECT_EQ(with.propagated, 2);
  EXPECT_EQ(with.relaxations, 1);  // the root alone
  s.propagate = false;
  const SearchResult without = solve(p, s);
  EXPECT_EQ(without.status, VLM_INFEASIBLE);
  EXPECT_EQ(without.propagated, 0);
  EXPECT_GT(without.relaxations, 1);
}

// ---- heuristics --------------------------------------------------------------------------

// The root relaxation of the knapsack takes c, a, e whole and d at 1/4: rounding it gives
// a, c, e (weight 6, value 14), an incumbent before any branching.
TEST(HeuristicSearchTest, IncumbentAtTheRoot) {
  SearchSettings s;
  s.node_limit = 1;
  const SearchResult with = solve(knapsack(), s);
  EXPECT_EQ(with.status, VLM_NODE_LIMIT);
  ASSERT_TRUE(with.has_solution);
  EXPECT_GE(with.heuristic_solutions, 1);
  EXPECT_GE(with.objval, 14 - 1e-9);
  EXPECT_LE(with.objval, 15 + 1e-9);
  const std::vector<double>& x = with.x;
  EXPECT_LE(2 * x[0] + 3 * x[1] + x[2] + 4 * x[3] + 3 * x[4], 7 + 1e-9);
  for (double v : x) EXPECT_NEAR(v, std::round(v), 1e-9);
  s.heuristics = false;
  const SearchResult without = solve(knapsack(), s);
  EXPECT_EQ(without.status, VLM_NODE_LIMIT);
  EXPECT_FALSE(without.has_solution);
}

// ---- objective stops ---------------------------------------------------------------------

TEST(StopSearchTest, CutoffAboveTheOptimumGivesCutoff) {
  SearchSettings s;
  s.cutoff = 15.5;  // maximising: nothing reaches 15.5
  const SearchResult r = solve(knapsack(), s);
  EXPECT_EQ(r.status, VLM_CUTOFF);
  EXPECT_FALSE(r.has_solution);
  EXPECT_TRUE(r.x.empty());
}

TEST(StopSearchTest, CutoffBelowTheOptimumKeepsIt) {
  SearchSettings s;
  s.cutoff = 14.5;
  s.mip_gap = 0;
  const SearchResult r = solve(knapsack(), s);
  EXPECT_EQ(r.status, VLM_OPTIMAL);
  EXPECT_NEAR(r.objval, 15, 1e-9);
  // No incumbent worse than the cutoff is ever taken.
  for (const auto& inc : r.incumbents) EXPECT_GE(inc.first, 14.5);
}

TEST(StopSearchTest, BestObjStopEndsAtAGoodEnoughIncumbent) {
  SearchSettings s;
  s.best_obj_stop = 10;
  s.mip_gap = 0;
  const SearchResult r = solve(knapsack(), s);
  EXPECT_EQ(r.status, VLM_USER_OBJ_LIMIT);
  ASSERT_TRUE(r.has_solution);
  EXPECT_GE(r.objval, 10);
  // The bound is still valid: at least the optimum 15.
  EXPECT_GE(r.bound, 15 - 1e-9);
}

TEST(StopSearchTest, BestBdStopEndsWhenTheBoundPassesIt) {
  SearchSettings s;
  s.best_bd_stop = 20;  // maximising: the root bound 15.75 is already at most 20
  s.heuristics = false;
  const SearchResult r = solve(knapsack(), s);
  EXPECT_EQ(r.status, VLM_USER_OBJ_LIMIT);
  EXPECT_EQ(r.nodes, 1);
  EXPECT_NEAR(r.bound, 15.75, 1e-9);
  s.best_bd_stop = 10;  // never reached: the search ends on its own
  s.mip_gap = 0;
  const SearchResult full = solve(knapsack(), s);
  EXPECT_EQ(full.status, VLM_OPTIMAL);
  EXPECT_NEAR(full.objval, 15, 1e-9);
}

// ---- semi-continuous columns -------------------------------------------------------------

// min -x - 2y + z  s.t.  x + y <= 5.5, y - z <= 0, x semi-continuous in {0} or [2, 4], y
// semi-integer in {0} or {3, 4, 5}, z continuous in [0, 10]. z = y at best, so y = 0 gives x = 4
// and -4; y = 3 gives x = 2.5 and -2.5 - 6 + 3 = -5.5; y = 4 leaves x <= 1.5, so x = 0 and -4;
// y = 5 gives -5. The optimum is -5.5. The relaxation (x in [0, 4], y in [0, 5]) also holds
// points such as x = 1, y = 4.5 that no part allows, so the semi columns must be branched. The
// loop checks the hand enumeration.
TEST(SemiContinuousSearchTest, MatchesEnumerationOfTheParts) {
  double best = INFINITY;
  for (double y : {0.0, 3.0, 4.0, 5.0}) {
    const double room = 5.5 - y;
    const double xv = room >= 2.0 ? std::min(4.0, room) : 0.0;
    best = std::min(best, -xv - 2 * y + y);
  }
  ASSERT_DOUBLE_EQ(best, -5.5);
  reform::WorkingProblem p;
  p.add_col(2, 4, 2, -1);
  p.add_col(3, 5, 3, -2);
  p.add_col(0, 10, 0, 1);
  p.add_row({0, 1}, {1, 1}, -INFINITY, 5.5);
  p.add_row({1, 2}, {1, -1}, -INFINITY, 0);
  p = finish(p, 1);
  SearchSettings s;
  s.mip_gap = 0;
  for (bool heuristics : {false, true}) {
    s.heuristics = heuristics;
    const SearchResult r = solve(p, s);
    EXPECT_EQ(r.status, VLM_OPTIMAL);
    EXPECT_NEAR(r.objval, best, 1e-7);
    ASSERT_TRUE(r.has_solution);
    EXPECT_TRUE(integrality_satisfied(p, r.x, 1e-6));
  }
}

TEST(SemiContinuousSearchTest, IntegralityOfSemiColumns) {
  reform::WorkingProblem p;
  p.add_col(2, 6, 2);  // semi-continuous, lower 2
  p.add_col(2, 6, 3);  // semi-integer, lower 2
  EXPECT_TRUE(integrality_satisfied(p, {0, 0}, 1e-6));
  EXPECT_TRUE(integrality_satisfied(p, {2.5, 3}, 1e-6));
  EXPECT_FALSE(integrality_satisfied(p, {1, 0}, 1e-6));    // between 0 and 2
  EXPECT_FALSE(integrality_satisfied(p, {0, 2.5}, 1e-6));  // semi-integer not integral
  EXPECT_FALSE(integrality_satisfied(p, {0, 1}, 1e-6));    // semi-integer below its lower bound
}

// ---- branching rules ---------------------------------------------------------------------

// Random multi-row knapsacks: every rule reaches the optimum found by enumeration.
TEST(BranchingRuleTest, PseudoCostsReachTheEnumeratedOptimum) {
  unsigned long long seed = 11;
  auto next = [&seed] {
    seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(seed >> 11) / static_cast<double>(1ULL << 53);
  };
  for (int instance = 0; instance < 4; ++instance) {
    const int n = 12;
    std::vector<double> value(n), w1(n), w2(n);
    for (int j = 0; j < n; ++j) {
      value[j] = std::floor(10 + 40 * next());
      w1[j] = std::floor(5 + 20 * next());
      w2[j] = std::floor(5 + 20 * next());
    }
    const double c1 = 60, c2 = 55;
    double best = 0;
    for (int mask = 0; mask < (1 << n); ++mask) {
      double v = 0, a = 0, b = 0;
      for (int j = 0; j < n; ++j) {
        if ((mask >> j) & 1) {
          v += value[j];
          a += w1[j];
          b += w2[j];
        }
      }
      if (a <= c1 && b <= c2) best = std::max(best, v);
    }
    reform::WorkingProblem p;
    std::vector<int> all(n);
    for (int j = 0; j < n; ++j) {
      p.add_col(0, 1, 1, value[j]);
      all[j] = j;
    }
    p.add_row(all, w1, -INFINITY, c1);
    p.add_row(all, w2, -INFINITY, c2);
    p = finish(p, -1);
    SearchSettings s;
    s.mip_gap = 0;
    for (Rule rule : {Rule::kMostFractional, Rule::kPseudoCost, Rule::kPseudoCostNoProbe}) {
      const SearchResult r = solve(p, s, rule);
      EXPECT_EQ(r.status, VLM_OPTIMAL) << instance;
      EXPECT_NEAR(r.objval, best, 1e-9) << "instance " << instance << " rule " << static_cast<int>(rule);
    }
  }
}

}  // namespace
}  // namespace vlm::algorithms
