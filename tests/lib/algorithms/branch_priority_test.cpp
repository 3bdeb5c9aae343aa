// BranchPriority in our own searches: the most-fractional rule branches only among the
// fractional integer columns of the highest priority.
#include <gtest/gtest.h>

#include <vector>

#include "algorithms/branch_and_bound.h"

namespace {

using vlm::algorithms::Branching;
using vlm::algorithms::MostFractionalRule;

// x = (0.5, 0.1, 0.7, 3): column 0 is the most fractional, column 3 is integral.
const std::vector<double> kX = {0.5, 0.1, 0.7, 3.0};
const std::vector<double> kLower = {0, 0, 0, 0}, kUpper = {1, 1, 1, 5};

int branched_column(std::vector<int> priority) {
  MostFractionalRule rule({0, 1, 2, 3}, 1e-5, std::move(priority));
  Branching b;
  if (!rule.branch(kX, kLower, kUpper, b)) return -1;
  EXPECT_EQ(b.children.size(), 2u);
  return b.children[0][0].col;
}

TEST(BranchPriorityTest, HighestPriorityFractionalColumnIsBranchedOn) {
  EXPECT_EQ(branched_column({}), 0);            // no priorities: most fractional
  EXPECT_EQ(branched_column({0, 5, 0, 0}), 1);  // 0.1 away from integral, but first in line
  EXPECT_EQ(branched_column({1, 1, 1, 0}), 0);  // a tie in priority: most fractional again
  EXPECT_EQ(branched_column({-1, 0, 0, 0}), 2); // a negative priority comes last
  // An integral column is never chosen, whatever its priority.
  EXPECT_EQ(branched_column({0, 0, 0, 9}), 0);
  // Children of column 1 at 0.1: x1 <= 0 and x1 >= 1, diving into the nearer side (down).
  MostFractionalRule rule({0, 1, 2, 3}, 1e-5, {0, 5, 0, 0});
  Branching b;
  ASSERT_TRUE(rule.branch(kX, kLower, kUpper, b));
  EXPECT_EQ(b.children[0][0].upper, 0);
  EXPECT_EQ(b.children[1][0].lower, 1);
  EXPECT_EQ(b.first, 0);
}

}  // namespace
