// The search on its own: a knapsack solved to the optimum found by enumeration, a constraint
// given only through a separator (no incumbent may violate it), and the node limit.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "algorithms/branch_and_bound.h"
#include "engine/highs_instance.h"
#include "interfaces/highs_c_api.h"

namespace vlm::algorithms {
namespace {

// max 5a + 4b + 3c + 7d + 6e  s.t.  2a + 3b + c + 4d + 3e <= 7, all binary.
const std::vector<double> kValue = {5, 4, 3, 7, 6};
const std::vector<double> kWeight = {2, 3, 1, 4, 3};

reform::WorkingProblem knapsack() {
  reform::WorkingProblem p;
  for (double v : kValue) p.add_col(0, 1, 1, v);
  p.add_row({0, 1, 2, 3, 4}, kWeight, -INFINITY, 7);
  p.sense = -1;
  p.mip = true;
  p.user_cols = p.ncol;
  p.user_rows = p.nrow;
  return p;
}

// The best value over all 32 subsets that fit and pass `keep`.
template <class F>
double enumerate(F keep) {
  double best = -1;
  for (int s = 0; s < 32; ++s) {
    double v = 0, w = 0;
    std::vector<double> x(5);
    for (int j = 0; j < 5; ++j) {
      x[j] = (s >> j) & 1;
      v += kValue[j] * x[j];
      w += kWeight[j] * x[j];
    }
    if (w <= 7 && keep(x)) best = std::max(best, v);
  }
  return best;
}

// Enforces a + d + e <= 1 by cuts only.
class AtMostOne : public Separator {
 public:
  bool separate(const std::vector<double>& x, std::vector<Cut>& out) override {
    if (x[0] + x[3] + x[4] <= 1 + 1e-9) return true;
    Cut c;
    c.ind = {0, 3, 4};
    c.val = {1, 1, 1};
    c.up = 1;
    out.push_back(c);
    return false;
  }
};

class SearchTest : public ::testing::Test {
 protected:
  SearchResult run(SearchSettings s, bool with_separator) {
    engine::ActiveSolve active;
    engine::HighsPtr h;
    Highs_setBoolOptionValue(h.h, "output_flag", 0);
    const reform::WorkingProblem p = knapsack();
    BranchAndBound search(h.h, p, s);
    search.add_branching_rule(std::make_unique<MostFractionalRule>(std::vector<int>{0, 1, 2, 3, 4}, 1e-6));
    if (with_separator) search.add_separator(std::make_unique<AtMostOne>());
    auto r = search.run();
    EXPECT_TRUE(r.ok()) << r.status().message();
    return r.ok() ? *r : SearchResult{};
  }
};

TEST_F(SearchTest, KnapsackMatchesEnumeration) {
  const double best = enumerate([](const std::vector<double>&) { return true; });
  ASSERT_EQ(best, 15);  // a, c, d: weight 7
  SearchSettings s;
  s.mip_gap = 0;
  const SearchResult r = run(s, false);
  EXPECT_EQ(r.status, VLM_OPTIMAL);
  EXPECT_NEAR(r.objval, best, 1e-9);
  EXPECT_NEAR(r.bound, best, 1e-9);
  ASSERT_FALSE(r.incumbents.empty());
  // Every incumbent improves on the one before.
  for (std::size_t k = 1; k < r.incumbents.size(); ++k) EXPECT_GT(r.incumbents[k].first, r.incumbents[k - 1].first);
}

TEST_F(SearchTest, SeparatorConstraintHoldsForEveryIncumbent) {
  const double best = enumerate([](const std::vector<double>& x) { return x[0] + x[3] + x[4] <= 1; });
  ASSERT_EQ(best, 13);  // b, c, e: weight 7 (b, c, d would weigh 8)
  SearchSettings s;
  s.mip_gap = 0;
  const SearchResult r = run(s, true);
  EXPECT_EQ(r.status, VLM_OPTIMAL);
  EXPECT_NEAR(r.objval, best, 1e-9);
  EXPECT_GE(r.cuts, 1);
  for (const auto& [value, x] : r.incumbents) EXPECT_LE(x[0] + x[3] + x[4], 1 + 1e-9) << value;
}

TEST_F(SearchTest, NodeLimitStopsWithAValidBound) {
  SearchSettings s;
  s.node_limit = 1;
  const SearchResult r = run(s, false);
  EXPECT_EQ(r.status, VLM_NODE_LIMIT);
  EXPECT_EQ(r.nodes, 1);
  // The LP bound of the root: at least the optimum 15.
  EXPECT_GE(r.bound, 15 - 1e-9);
}

}  // namespace
}  // namespace vlm::algorithms
