// The construct branching rule on hand-made points: which points violate a set or an
// indicator, and that the children split the members as described (every child cuts off the
// point, no feasible point is lost).
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "algorithms/construct_branching.h"

namespace vlm::algorithms {
namespace {

using reform::HeldConstruct;

HeldConstruct sos(HeldConstruct::Kind kind, int n) {
  HeldConstruct c;
  c.kind = kind;
  for (int i = 0; i < n; ++i) {
    c.cols.push_back(i);
    c.weights.push_back(i + 1.0);
  }
  return c;
}

// Columns fixed to zero by a child, in ascending order.
std::vector<int> zeroed(const std::vector<BoundChange>& ch) {
  std::vector<int> out;
  for (const BoundChange& b : ch) {
    EXPECT_EQ(b.lower, 0.0);
    EXPECT_EQ(b.upper, 0.0);
    out.push_back(b.col);
  }
  return out;
}

const std::vector<double> kLower(5, 0.0), kUpper(5, INFINITY);

// SOS1 over x0..x3 (weights 1..4) at x = (0, 2, 0, 2): the weighted mean of the non-zeros is
// 3, so x0..x2 and x3 are the two sides. A single non-zero is feasible.
TEST(ConstructBranching, Sos1SplitsAtTheWeightedMean) {
  std::vector<HeldConstruct> held{sos(HeldConstruct::Kind::kSos1, 4)};
  ConstructBranchingRule rule(held, 1e-6, 1e-5);
  Branching br;
  const std::vector<double> x{0, 2, 0, 2, 0};
  EXPECT_GT(construct_violation(held[0], x, 1e-6, 1e-5), 0.0);
  ASSERT_TRUE(rule.branch(x, kLower, kUpper, br));
  ASSERT_EQ(br.children.size(), 2u);
  EXPECT_EQ(zeroed(br.children[0]), (std::vector<int>{3}));
  EXPECT_EQ(zeroed(br.children[1]), (std::vector<int>{0, 1, 2}));
  // Members already fixed at 0 in the node are not fixed again.
  std::vector<double> up = kUpper;
  up[0] = 0.0;
  ASSERT_TRUE(rule.branch(x, kLower, up, br));
  EXPECT_EQ(zeroed(br.children[1]), (std::vector<int>{1, 2}));
  EXPECT_EQ(construct_violation(held[0], {0, 0, 5, 1e-8, 0}, 1e-6, 1e-5), 0.0);
  EXPECT_FALSE(rule.branch({0, 0, 5, 1e-8, 0}, kLower, kUpper, br));
}

// SOS2 over x0..x4: two neighbours are feasible; (1, 0, 0, 1, 0) spans four positions and is
// split at r = 1 or 2 with r in both windows: one child keeps x0..xr, the other xr..x4.
TEST(ConstructBranching, Sos2KeepsTheSplitMemberInBothChildren) {
  std::vector<HeldConstruct> held{sos(HeldConstruct::Kind::kSos2, 5)};
  ConstructBranchingRule rule(held, 1e-6, 1e-5);
  Branching br;
  EXPECT_EQ(construct_violation(held[0], {0, 3, 4, 0, 0}, 1e-6, 1e-5), 0.0);
  EXPECT_FALSE(rule.branch({0, 3, 4, 0, 0}, kLower, kUpper, br));
  const std::vector<double> x{1, 0, 0, 1, 0};
  ASSERT_TRUE(rule.branch(x, kLower, kUpper, br));
  ASSERT_EQ(br.children.size(), 2u);
  const std::vector<int> left = zeroed(br.children[0]), right = zeroed(br.children[1]);
  // Weighted mean of positions 1 and 4 (weights) is 2.5: r = 1 (weight 2).
  EXPECT_EQ(left, (std::vector<int>{2, 3, 4}));
  EXPECT_EQ(right, (std::vector<int>{0}));
  // Non-zeros at the two ends of a set of three: r is the middle member.
  std::vector<HeldConstruct> three{sos(HeldConstruct::Kind::kSos2, 3)};
  ConstructBranchingRule rule3(three, 1e-6, 1e-5);
  ASSERT_TRUE(rule3.branch({5, 0, 1, 0, 0}, kLower, kUpper, br));
  EXPECT_EQ(zeroed(br.children[0]), (std::vector<int>{2}));
  EXPECT_EQ(zeroed(br.children[1]), (std::vector<int>{0}));
  EXPECT_EQ(br.first, 0);  // the heavier side (x0 = 5)
}

// (b == 1) => x0 + x1 <= 2 with b = column 2 and slack column 3. Violated at x0 + x1 = 3
// unless b is at 0; the children are {b = 1, s = 0} and {b = 0}; with b fixed at 1 in the
// node only the first; with the slack fixed too there is nothing left to branch on.
TEST(ConstructBranching, IndicatorBranchesOnItsBinaryAndTogglesTheRow) {
  HeldConstruct c;
  c.kind = HeldConstruct::Kind::kIndicator;
  c.bin = 2;
  c.slack = 3;
  c.binval = 1.0;
  c.ind = {0, 1};
  c.val = {1, 1};
  c.sense = '<';
  c.rhs = 2;
  std::vector<HeldConstruct> held{c};
  ConstructBranchingRule rule(held, 1e-6, 1e-5);
  ConstructChecker check(held, 1e-6, 1e-5);
  Branching br;
  EXPECT_TRUE(check.acceptable({1, 2, 0, 1, 0}));   // b off
  EXPECT_TRUE(check.acceptable({1, 1, 1, 0, 0}));   // row holds
  EXPECT_FALSE(check.acceptable({1, 2, 1, 1, 0}));  // b on, row violated by 1
  EXPECT_NEAR(construct_violation(c, {1, 2, 0.6, 1, 0}, 1e-6, 1e-5), 1.0, 1e-12);
  ASSERT_TRUE(rule.branch({1, 2, 0.6, 1, 0}, kLower, {1, 1, 1, INFINITY, 1}, br));
  ASSERT_EQ(br.children.size(), 2u);
  ASSERT_EQ(br.children[0].size(), 2u);
  EXPECT_EQ(br.children[0][0].col, 2);
  EXPECT_EQ(br.children[0][0].lower, 1.0);
  EXPECT_EQ(br.children[0][1].col, 3);
  EXPECT_EQ(br.children[0][1].upper, 0.0);
  ASSERT_EQ(br.children[1].size(), 1u);
  EXPECT_EQ(br.children[1][0].upper, 0.0);
  EXPECT_EQ(br.first, 0);  // b = 0.6 is nearer 1
  std::vector<double> lo = kLower;
  lo[2] = 1.0;
  ASSERT_TRUE(rule.branch({1, 2, 1, 1, 0}, lo, {1, 1, 1, INFINITY, 1}, br));
  EXPECT_EQ(br.children.size(), 1u);
  EXPECT_FALSE(rule.branch({1, 2, 1, 1, 0}, lo, {1, 1, 1, 0, 1}, br));
}

}  // namespace
}  // namespace vlm::algorithms
