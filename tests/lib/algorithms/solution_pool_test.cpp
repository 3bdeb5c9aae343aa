// Solution pool searches: the k best solutions of mode 2 against exhaustive enumeration (binary
// and general integers), the pool gaps, mode 1's distinct feasible solutions, what tells
// solutions apart (continuous variables, PoolIgnore), PoolObjBound, and the refusal of an
// unbounded integer.
#include <algorithm>
#include <chrono>
#include <functional>
#include <set>

#include "reform/reform_fixture.h"

namespace {

// A 0-1 knapsack: maximise values'x subject to weights'x <= 13.
const std::vector<double> kValues = {10, 13, 7, 8, 6, 4};
const std::vector<double> kWeights = {5, 7, 4, 5, 3, 2};
constexpr double kCapacity = 13;

// Objective values of every feasible packing, best first (by enumeration of all 64).
std::vector<double> enumerate_knapsack() {
  std::vector<double> objs;
  for (int mask = 0; mask < 64; ++mask) {
    double w = 0, v = 0;
    for (int j = 0; j < 6; ++j) {
      if (mask & (1 << j)) {
        w += kWeights[j];
        v += kValues[j];
      }
    }
    if (w <= kCapacity) objs.push_back(v);
  }
  std::sort(objs.rbegin(), objs.rend());
  return objs;
}

class SolutionPoolTest : public ReformTest {
 protected:
  void knapsack() {
    for (int j = 0; j < 6; ++j) var(kValues[j], 0, 1, 'B', nullptr);
    row({0, 1, 2, 3, 4, 5}, kWeights, '<', kCapacity);
    maximize();
  }
  void set_int(const char* name, int v) { ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), name, v), VLM_OK) << name; }
  void set_dbl(const char* name, double v) { ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), name, v), VLM_OK) << name; }
  struct PoolEntry {
    double obj;
    std::vector<double> x;
  };
  // Every pool entry, read through SolutionNumber.
  std::vector<PoolEntry> pool() {
    std::vector<PoolEntry> out;
    const int n = intattr("NumVars");
    for (int k = 0; k < intattr("SolCount"); ++k) {
      set_int("SolutionNumber", k);
      PoolEntry e{dbl("PoolObjVal"), std::vector<double>(n)};
      EXPECT_EQ(VLMgetdblattrarray(m_, "Xn", 0, n, e.x.data()), VLM_OK) << VLMgetmerrormsg(m_);
      out.push_back(std::move(e));
    }
    set_int("SolutionNumber", 0);
    return out;
  }
  // Each entry is a packing within capacity, worth its PoolObjVal, and all are distinct.
  void expect_valid_packings(const std::vector<PoolEntry>& entries) {
    std::set<std::vector<long>> seen;
    for (const PoolEntry& e : entries) {
      double w = 0, v = 0;
      std::vector<long> key;
      for (int j = 0; j < 6; ++j) {
        EXPECT_NEAR(e.x[j], std::round(e.x[j]), 1e-6);
        w += kWeights[j] * e.x[j];
        v += kValues[j] * e.x[j];
        key.push_back(std::lround(e.x[j]));
      }
      EXPECT_LE(w, kCapacity + 1e-6);
      EXPECT_NEAR(v, e.obj, 1e-6);
      EXPECT_TRUE(seen.insert(key).second) << "a packing appears twice";
    }
  }
};

// The best packing is worth 24 (items 0, 3, 4 or items 1, 2, 5, both of weight 13); mode 2
// must return exactly the enumerated top values in order, each a distinct valid packing, with
// PoolObjBound the 7th value (nothing outside the pool is better). Asking for more solutions
// than exist returns every feasible packing and an infinite bound (-inf for a maximisation).
TEST_F(SolutionPoolTest, ModeTwoReturnsTheKBestPackingsOfEnumeration) {
  knapsack();
  const std::vector<double> best = enumerate_knapsack();
  set_int("PoolSearchMode", 2);
  set_int("PoolSolutions", 7);
  solve();
  const std::vector<PoolEntry> entries = pool();
  ASSERT_EQ(entries.size(), 7u);
  for (int k = 0; k < 7; ++k) EXPECT_NEAR(entries[k].obj, best[k], 1e-6) << "solution " << k;
  expect_valid_packings(entries);
  EXPECT_NEAR(objval(), best[0], 1e-6);
  EXPECT_NEAR(dbl("PoolObjBound"), best[6], 1e-6);
  for (int j = 0; j < 6; ++j) EXPECT_NEAR(x(j), entries[0].x[j], 1e-6);

  set_int("PoolSolutions", 100);
  solve();
  const std::vector<PoolEntry> all = pool();
  ASSERT_EQ(all.size(), best.size());
  for (std::size_t k = 0; k < best.size(); ++k) EXPECT_NEAR(all[k].obj, best[k], 1e-6) << "solution " << k;
  expect_valid_packings(all);
  EXPECT_LE(dbl("PoolObjBound"), -1e100);
}

// PoolGap 0.1 keeps packings worth at least 0.9 * 24 = 21.6, i.e. the enumerated values >= 22;
// adding PoolGapAbs 1 keeps those >= 23: the tighter of the two applies.
TEST_F(SolutionPoolTest, PoolGapsBoundTheQualityOfKeptSolutions) {
  knapsack();
  const std::vector<double> best = enumerate_knapsack();
  auto count_at_least = [&](double v) {
    return static_cast<int>(std::count_if(best.begin(), best.end(), [v](double o) { return o >= v - 1e-9; }));
  };
  set_int("PoolSearchMode", 2);
  set_int("PoolSolutions", 100);
  set_dbl("PoolGap", 0.1);
  solve();
  std::vector<PoolEntry> entries = pool();
  EXPECT_EQ(static_cast<int>(entries.size()), count_at_least(best[0] * 0.9));
  for (const PoolEntry& e : entries) EXPECT_GE(e.obj, 0.9 * best[0] - 1e-6);
  expect_valid_packings(entries);

  set_dbl("PoolGapAbs", 1);
  solve();
  entries = pool();
  EXPECT_EQ(static_cast<int>(entries.size()), count_at_least(best[0] - 1));
  for (const PoolEntry& e : entries) EXPECT_GE(e.obj, best[0] - 1 - 1e-6);
}

// General integers: max 3x + 2y with x in [0, 4], y in [-1, 3], x + y <= 5, 2x - y <= 6.
// Enumeration over the 30 integer points gives the ordered objective values; the pool must
// match them (the exclusion of a general integer value uses both sides of the disjunction).
TEST_F(SolutionPoolTest, ModeTwoWithGeneralIntegersMatchesEnumeration) {
  var(3, 0, 4, 'I', "x");
  var(2, -1, 3, 'I', "y");
  row({0, 1}, {1, 1}, '<', 5);
  row({0, 1}, {2, -1}, '<', 6);
  maximize();
  std::vector<double> objs;
  for (int xv = 0; xv <= 4; ++xv) {
    for (int yv = -1; yv <= 3; ++yv) {
      if (xv + yv <= 5 && 2 * xv - yv <= 6) objs.push_back(3 * xv + 2 * yv);
    }
  }
  std::sort(objs.rbegin(), objs.rend());
  set_int("PoolSearchMode", 2);
  set_int("PoolSolutions", 12);
  solve();
  const std::vector<PoolEntry> entries = pool();
  ASSERT_EQ(entries.size(), 12u);
  std::set<std::pair<long, long>> seen;
  for (int k = 0; k < 12; ++k) {
    const PoolEntry& e = entries[k];
    EXPECT_NEAR(e.obj, objs[k], 1e-6) << "solution " << k;
    EXPECT_NEAR(3 * e.x[0] + 2 * e.x[1], e.obj, 1e-6);
    EXPECT_LE(e.x[0] + e.x[1], 5 + 1e-6);
    EXPECT_LE(2 * e.x[0] - e.x[1], 6 + 1e-6);
    EXPECT_TRUE(seen.insert({std::lround(e.x[0]), std::lround(e.x[1])}).second);
  }
}

// Mode 1 finds distinct valid packings, the first being the optimum (24), PoolObjVal
// non-increasing.
TEST_F(SolutionPoolTest, ModeOneFindsDistinctFeasibleSolutions) {
  knapsack();
  set_int("PoolSearchMode", 1);
  set_int("PoolSolutions", 8);
  solve();
  const std::vector<PoolEntry> entries = pool();
  ASSERT_EQ(entries.size(), 8u);
  expect_valid_packings(entries);
  EXPECT_NEAR(entries[0].obj, enumerate_knapsack()[0], 1e-6);
  for (std::size_t k = 1; k < entries.size(); ++k) EXPECT_LE(entries[k].obj, entries[k - 1].obj + 1e-9);
}

// Only integer variables tell solutions apart: with one binary b and a continuous x, there are
// two solutions however many are asked for. min x + 3b s.t. x + 4b >= 2, x in [0, 10]:
// b = 0 gives x = 2 (objective 2), b = 1 gives x = 0 (objective 3). With PoolIgnore on b the
// pool has the optimum only.
TEST_F(SolutionPoolTest, OnlyTheIntegerPartDistinguishesSolutions) {
  var(1, 0, 10, 'C', "x");
  var(3, 0, 1, 'B', "b");
  row({0, 1}, {1, 4}, '>', 2);
  set_int("PoolSearchMode", 2);
  set_int("PoolSolutions", 10);
  solve();
  std::vector<PoolEntry> entries = pool();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_NEAR(entries[0].obj, 2, 1e-6);
  EXPECT_NEAR(entries[0].x[0], 2, 1e-6);
  EXPECT_NEAR(entries[1].obj, 3, 1e-6);
  EXPECT_NEAR(entries[1].x[0], 0, 1e-6);
  EXPECT_NEAR(entries[1].x[1], 1, 1e-6);

  ASSERT_EQ(VLMsetintattrelement(m_, "PoolIgnore", 1, 1), VLM_OK);
  solve();
  EXPECT_EQ(intattr("SolCount"), 1);
}

// TimeLimit covers the whole search: 50 proven solutions of a 40-item, 5-row knapsack take
// minutes, so a 1 s limit ends the search with status TIME_LIMIT, the optimum first and the
// solutions found so far sorted best first.
TEST_F(SolutionPoolTest, TimeLimitStopsTheSearchWithWhatItFound) {
  seeded_knapsack(40, 5);
  set_int("PoolSearchMode", 2);
  set_int("PoolSolutions", 50);
  set_dbl("TimeLimit", 1.0);
  const auto t0 = std::chrono::steady_clock::now();
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_EQ(status(), VLM_TIME_LIMIT);
  EXPECT_LT(took, 3.0);
  const std::vector<PoolEntry> entries = pool();
  ASSERT_GE(entries.size(), 1u);
  EXPECT_LT(entries.size(), 50u);
  for (std::size_t k = 1; k < entries.size(); ++k) EXPECT_LE(entries[k].obj, entries[k - 1].obj + 1e-9);
  EXPECT_NEAR(entries[0].obj, objval(), 1e-9);
}

// A general integer without a finite bound cannot be excluded: the solve is refused naming it,
// and the model still solves with PoolSearchMode 0 (min y, y >= 2.5 integer: 3).
TEST_F(SolutionPoolTest, UnboundedIntegerIsRefusedByName) {
  var(1, 0, VLM_INFINITY, 'I', "count");
  row({0}, {1}, '>', 2.5);
  set_int("PoolSearchMode", 2);
  expect_error(VLMoptimize(m_), VLM_ERROR_NOT_SUPPORTED, "integer variable 'count'");
  set_int("PoolSearchMode", 0);
  solve();
  EXPECT_NEAR(objval(), 3, 1e-9);
}

}  // namespace
