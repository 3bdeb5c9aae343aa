// The block entries for general constraints: each record lands as the single adder would put
// it, optima match, and one bad record leaves the model as it was.
#include <string>

#include "model_fixture.h"

namespace {

class GenBlockTest : public ModelFixture {
 protected:
  int var(double obj, double lb, double ub, char vtype = 'C') {
    EXPECT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, obj, lb, ub, vtype, nullptr), VLM_OK);
    return n_++;
  }
  int n_ = 0;
};

// r0 = max(x0, x1), r1 = max(x2, 5); x0 in [1, 2], x1 in [3, 4], x2 in [0, 1]; min r0 + r1.
// The smallest r0 is max(1.., 3) = 3 and r1 is held at the constant 5: objective 8.
TEST_F(GenBlockTest, ListBlockAddsEveryRecordAndSolves) {
  int x0 = var(0, 1, 2), x1 = var(0, 3, 4), x2 = var(0, 0, 1);
  int r0 = var(1, -1e100, 1e100), r1 = var(1, -1e100, 1e100);
  const int res[] = {r0, r1};
  const int beg[] = {0, 2, 3};
  const int ops[] = {x0, x1, x2};
  const double a[] = {-VLM_INFINITY, 5.0};
  const char* names[] = {"m0", nullptr};
  ASSERT_EQ(VLMaddgenconstrlists(m_, 0, 2, names, res, beg, ops, a), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumGenConstrs"), 2);
  int resvar = -1, nvars = 0, vars[2] = {-1, -1};
  double constant = 0;
  ASSERT_EQ(VLMgetgenconstrMax(m_, 1, &resvar, &nvars, vars, &constant), VLM_OK);
  EXPECT_EQ(resvar, r1);
  EXPECT_EQ(nvars, 1);
  EXPECT_EQ(vars[0], x2);
  EXPECT_EQ(constant, 5.0);
  // A NULL name takes the default one.
  char* name = nullptr;
  ASSERT_EQ(VLMgetstrattrelement(m_, "GenConstrName", 1, &name), VLM_OK);
  EXPECT_STREQ(name, "GC1");
  solve();
  EXPECT_NEAR(objval(), 8.0, 1e-6);
  EXPECT_NEAR(x(r0), std::max(x(x0), x(x1)), 1e-6);
}

// A variable out of range in the second record refuses the whole block; the constraint
// added before stays the only one.
TEST_F(GenBlockTest, RefusedRecordLeavesTheModelAsItWas) {
  int x0 = var(0, 0, 1), r0 = var(0, 0, 1);
  ASSERT_EQ(VLMaddgenconstrAbs(m_, "before", r0, x0), VLM_OK);
  const int res[] = {r0, r0};
  const int beg[] = {0, 1, 2};
  const int ops[] = {x0, 7};
  EXPECT_EQ(VLMaddgenconstrlists(m_, 1, 2, nullptr, res, beg, ops, nullptr), VLM_ERROR_INDEX_OUT_OF_RANGE);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find('7'), std::string::npos) << VLMgetmerrormsg(m_);
  // Decreasing offsets and a type that takes no operand list are refused by name.
  const int bad_beg[] = {0, 2, 1};
  EXPECT_EQ(VLMaddgenconstrlists(m_, 0, 2, nullptr, res, bad_beg, ops, nullptr), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(VLMaddgenconstrlists(m_, 6, 1, nullptr, res, beg, ops, nullptr), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(VLMaddgenconstrfuncs(m_, 13, 1, nullptr, &x0, &r0, nullptr, 0, nullptr, nullptr, nullptr),
            VLM_ERROR_NULL_ARGUMENT);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumGenConstrs"), 1);
}

// y0 = |x0|, y1 = |x1| with x0 in [-3, -2], x1 in [1, 4]; min y0 + y1 = 2 + 1 = 3.
// Then the PWL block y2 = f(x2), y3 = f(x3) through (0, 0), (1, 2), (2, 2) shared by both,
// x2 = 0.5 and x3 = 2 fixed: y2 = 1, y3 = 2, objective 3 + 3 = 6.
TEST_F(GenBlockTest, FunctionBlocksShareTheirPoints) {
  int x0 = var(0, -3, -2), x1 = var(0, 1, 4), y0 = var(1, 0, 1e100), y1 = var(1, 0, 1e100);
  const int xs[] = {x0, x1}, ys[] = {y0, y1};
  ASSERT_EQ(VLMaddgenconstrfuncs(m_, 2, 2, nullptr, xs, ys, nullptr, 0, nullptr, nullptr, nullptr), VLM_OK)
      << VLMgetmerrormsg(m_);
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-6);
  int x2 = var(0, 0.5, 0.5), x3 = var(0, 2, 2), y2 = var(1, -10, 10), y3 = var(1, -10, 10);
  const int px[] = {x2, x3}, py[] = {y2, y3};
  const double xp[] = {0, 1, 2}, yp[] = {0, 2, 2};
  ASSERT_EQ(VLMaddgenconstrfuncs(m_, 7, 2, nullptr, px, py, nullptr, 3, xp, yp, nullptr), VLM_OK)
      << VLMgetmerrormsg(m_);
  solve();
  EXPECT_NEAR(objval(), 6.0, 1e-6);
  int npts = 0;
  ASSERT_EQ(VLMgetgenconstrPWL(m_, 3, nullptr, nullptr, &npts, nullptr, nullptr), VLM_OK);
  EXPECT_EQ(npts, 3);
}

// b0 = 1 -> x0 >= 3, b1 = 0 -> x1 >= 4, x in [0, 10]; min x0 + x1 + 5 b0 - 2 b1 (binaries).
// Options: b0 = 0 costs 0 and frees x0; b1 = 1 saves 2 and frees x1: objective -2.
TEST_F(GenBlockTest, IndicatorBlockSolves) {
  int x0 = var(1, 0, 10), x1 = var(1, 0, 10);
  int b0 = var(5, 0, 1, 'B'), b1 = var(-2, 0, 1, 'B');
  const int bins[] = {b0, b1}, vals[] = {1, 0}, beg[] = {0, 1, 2}, ind[] = {x0, x1};
  const double coef[] = {1, 1}, rhs[] = {3, 4};
  const char sense[] = {'>', '>'};
  ASSERT_EQ(VLMaddgenconstrIndicators(m_, 2, nullptr, bins, vals, beg, ind, coef, sense, rhs), VLM_OK)
      << VLMgetmerrormsg(m_);
  solve();
  EXPECT_NEAR(objval(), -2.0, 1e-6);
  // A non-binary trigger in the block refuses all of it.
  const int bad[] = {b0, x0};
  EXPECT_EQ(VLMaddgenconstrIndicators(m_, 2, nullptr, bad, vals, beg, ind, coef, sense, rhs),
            VLM_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumGenConstrs"), 2);
}

}  // namespace
