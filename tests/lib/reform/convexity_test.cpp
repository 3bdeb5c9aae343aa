// Convexity of quadratic forms (check_psd) and the refusal of non-convex quadratic objectives
// at solve time: PSD, singular PSD, indefinite and zero-diagonal matrices, both term orders,
// blocks and the culprit reported, the tolerance, negation for maximisation, and the
// VLMoptimize error with its exact message, the model left solvable once fixed.
//
// Not tested here: blocks above kMaxDenseBlock (left to HiGHS; too slow for a unit test) and
// quadratic constraints (not solved yet).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model_fixture.h"
#include "reform/convexity.h"
#include "velmor_c.h"

namespace {

using vlm::reform::check_psd;

struct Form {
  std::vector<int> r, c;
  std::vector<double> v;
};

TEST(ConvexityTest, ClassifiesSmallForms) {
  struct Case {
    const char* what;
    Form f;
    bool psd;
  };
  const std::vector<Case> cases = {
      {"x^2 + y^2", {{0, 1}, {0, 1}, {1, 1}}, true},
      {"(x + y)^2, singular", {{0, 1, 0}, {0, 1, 1}, {1, 1, 2}}, true},
      {"(x + y)^2 with the cross term split both ways", {{0, 1, 0, 1}, {0, 1, 1, 0}, {1, 1, 1, 1}}, true},
      {"x^2 + 4xy + y^2, eigenvalues 3 and -1", {{0, 1, 0}, {0, 1, 1}, {1, 1, 4}}, false},
      {"xy alone", {{0}, {1}, {1}}, false},
      {"-x^2", {{0}, {0}, {-1}}, false},
      {"x^2 - x^2 cancels", {{0, 0}, {0, 0}, {1, -1}}, true},
      {"(x - y)^2 + (y - z)^2 + 1e-3 x^2",
       {{0, 0, 1, 1, 2}, {0, 1, 1, 2, 2}, {1.001, -2, 2, -2, 1}},
       true},
      {"x^2 + y^2 + z^2 + 2xy + 2.0002yz, indefinite",
       {{0, 1, 2, 0, 1}, {0, 1, 2, 1, 2}, {1, 1, 1, 2, 2.0002}},
       false},
      {"rounding noise 1e-13 below zero passes", {{0, 1, 0}, {0, 1, 1}, {1, 1, 2 + 1e-13}}, true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(check_psd(c.f.r, c.f.c, c.f.v, false).psd, c.psd) << c.what;
  }
  // Negation: -x^2 - y^2 is the concave objective of a maximisation.
  EXPECT_TRUE(check_psd({0, 1}, {0, 1}, {-1, -1}, true).psd);
  EXPECT_FALSE(check_psd({0, 1}, {0, 1}, {1, 1}, true).psd);
}

// Blocks are checked apart; the culprit is the first non-PSD block, by its smallest variable.
TEST(ConvexityTest, ReportsTheVariablesOfTheOffendingBlock) {
  // Blocks {0}, {3, 7} (3x7 alone: indefinite), {2, 5} (PSD), {9, 1} (x9 x1 alone: indefinite).
  auto c = check_psd({0, 3, 2, 5, 2, 9}, {0, 7, 2, 5, 5, 1}, {1, 1, 1, 1, 1, 1}, false);
  EXPECT_FALSE(c.psd);
  EXPECT_EQ(c.culprit, (std::vector<int>{1, 9}));
  EXPECT_EQ(c.unchecked_vars, 0);
}

class NonConvexObjectiveTest : public ModelFixture {
 protected:
  void SetUp() override {
    ModelFixture::SetUp();
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, -1, 1, 'C', "x"), VLM_OK);
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, -1, 1, 'C', "y"), VLM_OK);
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 1, 'C', "z"), VLM_OK);
  }
};

// min x^2 + 4xy + y^2 + z over the box: indefinite, refused with Q_NOT_PSD naming x and y.
TEST_F(NonConvexObjectiveTest, IndefiniteMinimisationIsRefused) {
  int qi[] = {0, 1, 0}, qj[] = {0, 1, 1};
  double qv[] = {1, 1, 4};
  ASSERT_EQ(VLMaddqpterms(m_, 3, qi, qj, qv), VLM_OK);
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_Q_NOT_PSD);
  EXPECT_EQ(std::string(VLMgetmerrormsg(m_)),
            "Q matrix isn't Positive Semi-Definite: the quadratic objective of this minimisation is "
            "not convex in the terms over 'x', 'y'; HiGHS solves only convex quadratic objectives");
  int status = 0;
  ASSERT_EQ(VLMgetintattr(m_, "Status", &status), VLM_OK);
  EXPECT_EQ(status, VLM_LOADED);
}

// max x^2 + y^2 - z (a convex function maximised) is refused; max -x^2 - y^2 - z + x is
// concave: optimum x = 0.5, y = 0, z = 0, value 0.25.
TEST_F(NonConvexObjectiveTest, MaximisingNeedsAConcaveObjective) {
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 2, -1), VLM_OK);
  int qi[] = {0, 1};
  double up[] = {1, 1};
  ASSERT_EQ(VLMaddqpterms(m_, 2, qi, qi, up), VLM_OK);
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_Q_NOT_PSD);
  EXPECT_EQ(std::string(VLMgetmerrormsg(m_)),
            "Q matrix isn't Positive Semi-Definite: the quadratic objective of this maximisation is "
            "not concave in the terms over 'x'; HiGHS solves only convex quadratic objectives");

  // Flip the squares: -2 on each (the terms add up: 1 - 2 = -1).
  double down[] = {-2, -2};
  ASSERT_EQ(VLMaddqpterms(m_, 2, qi, qi, down), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 0, 1), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  double obj = 0, x = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "ObjVal", &obj), VLM_OK);
  ASSERT_EQ(VLMgetdblattrelement(m_, "X", 0, &x), VLM_OK);
  EXPECT_NEAR(obj, 0.25, 1e-6);
  EXPECT_NEAR(x, 0.5, 1e-5);
}

}  // namespace
