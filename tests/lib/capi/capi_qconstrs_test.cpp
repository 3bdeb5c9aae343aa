// VLMaddqconstrs: a block of quadratic constraints in one call, all or none.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

class AddQConstrsTest : public ModelFixture {
 protected:
  void SetUp() override {
    ModelFixture::SetUp();
    ASSERT_EQ(VLMaddvars(m_, 3, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  }
  int num_qconstrs() {
    int n = -1;
    EXPECT_EQ(VLMupdatemodel(m_), VLM_OK);
    EXPECT_EQ(VLMgetintattr(m_, "NumQConstrs", &n), VLM_OK);
    return n;
  }
};

// q0: x0 + x0^2 + x1^2 <= 4; q1: x1 x2 >= 1 (no linear terms); q2: 2 x2 = 3 (no quadratic terms).
TEST_F(AddQConstrsTest, AddsEveryConstraintOfTheBlockWithItsOwnTerms) {
  const int lbeg[] = {0, 1, 1}, lind[] = {0, 2};
  const double lval[] = {1, 2};
  const int qbeg[] = {0, 2, 3}, qrow[] = {0, 1, 1}, qcol[] = {0, 1, 2};
  const double qval[] = {1, 1, 1};
  const char sense[] = {'<', '>', '='};
  const double rhs[] = {4, 1, 3};
  const char* names[] = {"q0", nullptr, "q2"};
  ASSERT_EQ(VLMaddqconstrs(m_, 3, 2, lbeg, lind, lval, 3, qbeg, qrow, qcol, qval, sense, rhs, names), VLM_OK);
  ASSERT_EQ(num_qconstrs(), 3);
  int nl = 0, nq = 0, li[4], qi[4], qj[4];
  double lv[4], qv[4];
  ASSERT_EQ(VLMgetqconstr(m_, 0, &nl, li, lv, &nq, qi, qj, qv), VLM_OK);
  EXPECT_EQ(nl, 1);
  EXPECT_EQ(nq, 2);
  ASSERT_EQ(VLMgetqconstr(m_, 1, &nl, li, lv, &nq, qi, qj, qv), VLM_OK);
  EXPECT_EQ(nl, 0);
  ASSERT_EQ(nq, 1);
  EXPECT_EQ(qi[0], 1);
  EXPECT_EQ(qj[0], 2);
  ASSERT_EQ(VLMgetqconstr(m_, 2, &nl, li, lv, &nq, qi, qj, qv), VLM_OK);
  ASSERT_EQ(nl, 1);
  EXPECT_EQ(li[0], 2);
  EXPECT_EQ(lv[0], 2.0);
  EXPECT_EQ(nq, 0);
  char* name = nullptr;
  ASSERT_EQ(VLMgetstrattrelement(m_, "QCName", 1, &name), VLM_OK);
  EXPECT_EQ(std::string(name), "QC1");
  ASSERT_EQ(VLMgetstrattrelement(m_, "QCName", 2, &name), VLM_OK);
  EXPECT_EQ(std::string(name), "q2");
  double r = 0;
  ASSERT_EQ(VLMgetdblattrelement(m_, "QCRHS", 2, &r), VLM_OK);
  EXPECT_EQ(r, 3.0);
}

TEST_F(AddQConstrsTest, ARefusedConstraintAddsNoneOfTheBlock) {
  const int qbeg[] = {0, 1}, qrow[] = {0, 1}, qcol[] = {0, 1};
  const double qval[] = {1, 1};
  const double rhs[] = {1, 1};
  const char bad_sense[] = {'<', '!'};
  EXPECT_EQ(VLMaddqconstrs(m_, 2, 0, nullptr, nullptr, nullptr, 2, qbeg, qrow, qcol, qval, bad_sense, rhs, nullptr),
            VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("sense"), std::string::npos);
  const char sense[] = {'<', '<'};
  const int bad_col[] = {0, 7};
  EXPECT_NE(VLMaddqconstrs(m_, 2, 0, nullptr, nullptr, nullptr, 2, qbeg, qrow, bad_col, qval, sense, rhs, nullptr),
            VLM_OK);
  const int bad_beg[] = {0, 5};
  EXPECT_EQ(VLMaddqconstrs(m_, 2, 0, nullptr, nullptr, nullptr, 2, bad_beg, qrow, qcol, qval, sense, rhs, nullptr),
            VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("constraint 0"), std::string::npos);
  EXPECT_EQ(VLMaddqconstrs(m_, 2, 0, nullptr, nullptr, nullptr, 2, qbeg, qrow, qcol, qval, nullptr, rhs, nullptr),
            VLM_ERROR_NULL_ARGUMENT);
  EXPECT_EQ(num_qconstrs(), 0);
  EXPECT_EQ(VLMaddqconstrs(m_, 0, 0, nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr, nullptr),
            VLM_OK);
  EXPECT_EQ(num_qconstrs(), 0);
}

}  // namespace
