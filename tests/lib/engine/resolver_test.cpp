// The internal re-solve entry: bound changes, added and dropped rows and re-runs on one kept
// HiGHS instance, with warm starts, and refusals of bad indices that leave the problem as it was.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "engine/resolver.h"
#include "env/env.h"
#include "params/param_table.h"
#include "reform/working_problem.h"
#include "velmor_codes.h"

namespace {

using vlm::engine::Resolver;

// max 3x + 2y  s.t.  x + y <= 4,  x + 3y <= 6,  0 <= x, y (as min -3x - 2y): optimum (4, 0),
// value -12.
vlm::reform::WorkingProblem small_lp() {
  vlm::reform::WorkingProblem p;
  p.add_col(0, INFINITY, 0, -3);
  p.add_col(0, INFINITY, 0, -2);
  p.add_row({0, 1}, {1, 1}, -INFINITY, 4);
  p.add_row({0, 1}, {1, 3}, -INFINITY, 6);
  p.user_cols = p.ncol;
  p.user_rows = p.nrow;
  return p;
}

class ResolverTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(env_.params().set_int(vlm::find_param("OutputFlag"), 0).ok()); }
  vlm::Env env_;
};

TEST_F(ResolverTest, BoundsRowsAndRerunsGiveTheNewOptima) {
  auto opened = Resolver::open(env_, small_lp());
  ASSERT_TRUE(opened.ok()) << opened.status().message();
  Resolver& r = *opened.value();
  auto st = r.run();
  ASSERT_TRUE(st.ok());
  EXPECT_EQ(st.value(), VLM_OPTIMAL);
  EXPECT_NEAR(r.objval(), -12.0, 1e-9);
  // x <= 3: then y = 1 from the first row; -9 - 2 = -11.
  ASSERT_TRUE(r.set_bounds({0}, {0.0}, {3.0}).ok());
  ASSERT_EQ(r.run().value(), VLM_OPTIMAL);
  EXPECT_NEAR(r.objval(), -11.0, 1e-9);
  EXPECT_NEAR(r.x()[1], 1.0, 1e-9);
  EXPECT_LE(r.iterations(), 2.0) << "warm start from the previous basis";
  // A cut x + 2y <= 4: along it 3x + 2y = 2x + 4 grows with x, so (3, 0.5) with -10.
  ASSERT_TRUE(r.add_row({0, 1}, {1, 2}, -INFINITY, 4).ok());
  EXPECT_EQ(r.num_rows(), 3);
  ASSERT_EQ(r.run().value(), VLM_OPTIMAL);
  EXPECT_NEAR(r.objval(), -10.0, 1e-9);
  // Dropping the cut and the bound restores the first optimum.
  ASSERT_TRUE(r.truncate_rows(2).ok());
  ASSERT_TRUE(r.set_bounds({0}, {0.0}, {INFINITY}).ok());
  ASSERT_EQ(r.run().value(), VLM_OPTIMAL);
  EXPECT_NEAR(r.objval(), -12.0, 1e-9);
  // x >= 5 contradicts x + y <= 4.
  ASSERT_TRUE(r.set_bounds({0}, {5.0}, {INFINITY}).ok());
  ASSERT_EQ(r.run().value(), VLM_INFEASIBLE);
  EXPECT_TRUE(r.x().empty());
}

TEST_F(ResolverTest, BadIndicesAreRefusedAndChangeNothing) {
  auto opened = Resolver::open(env_, small_lp());
  ASSERT_TRUE(opened.ok());
  Resolver& r = *opened.value();
  vlm::Status s = r.set_bounds({0, 7}, {1.0, 1.0}, {1.0, 1.0});
  EXPECT_EQ(s.code(), VLM_ERROR_INDEX_OUT_OF_RANGE);
  EXPECT_EQ(s.message(), "Column 7 is out of range (0..1)");
  EXPECT_EQ(r.add_row({0, -1}, {1, 1}, 0, 1).code(), VLM_ERROR_INDEX_OUT_OF_RANGE);
  EXPECT_EQ(r.add_row({0, 1}, {1}, 0, 1).code(), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(r.truncate_rows(3).message(), "Row 3 is out of range (0..2)");
  EXPECT_EQ(r.num_rows(), 2);
  ASSERT_EQ(r.run().value(), VLM_OPTIMAL);
  EXPECT_NEAR(r.objval(), -12.0, 1e-9);  // x was not fixed at 1 by the refused call
}

TEST_F(ResolverTest, StopFlagInterruptsARun) {
  std::atomic<bool> stop{true};
  // A 60 x 60 transport LP needs many iterations; with the flag set it stops at once.
  vlm::reform::WorkingProblem p;
  const int k = 60;
  for (int i = 0; i < k * k; ++i) p.add_col(0, INFINITY, 0, 1 + (7 * i) % 13);
  for (int i = 0; i < k; ++i) {
    std::vector<int> ind;
    for (int j = 0; j < k; ++j) ind.push_back(i * k + j);
    p.add_row(ind, std::vector<double>(k, 1.0), -INFINITY, 110);
  }
  for (int j = 0; j < k; ++j) {
    std::vector<int> ind;
    for (int i = 0; i < k; ++i) ind.push_back(i * k + j);
    p.add_row(ind, std::vector<double>(k, 1.0), 100, INFINITY);
  }
  p.user_cols = p.ncol;
  p.user_rows = p.nrow;
  auto opened = Resolver::open(env_, p, &stop);
  ASSERT_TRUE(opened.ok());
  EXPECT_EQ(opened.value()->run().value(), VLM_INTERRUPTED);
  stop = false;
  EXPECT_EQ(opened.value()->run().value(), VLM_OPTIMAL);
}

}  // namespace
