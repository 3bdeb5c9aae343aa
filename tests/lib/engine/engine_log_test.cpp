// What a solve reports besides the solution: the iteration count of a MIP equals the LP
// iterations HiGHS reports for its search, and no HiGHS error line about our own queries or
// options reaches the log (LP, MIP and QP, with the log on).
//
// Not tested here: the wording of our own log lines (env_param_test.cpp).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

void collect(const char* msg, void* lines) { static_cast<std::vector<std::string>*>(lines)->push_back(msg); }

class EngineLogTest : public ModelFixture {
 protected:
  void SetUp() override {
    ModelFixture::SetUp();
    ASSERT_EQ(VLMsetlogcallbackfunc(m_, collect, &lines_), VLM_OK);
    VLMenv* menv = VLMgetenv(m_);
    ASSERT_EQ(VLMsetintparam(menv, "OutputFlag", 1), VLM_OK);
    // With a log callback installed, the console's lines go to the callback instead.
    ASSERT_EQ(VLMsetintparam(menv, "LogToConsole", 1), VLM_OK);
  }
  // A knapsack-like MIP over n integer variables in [0, 10] and m rows with pseudo-random
  // coefficients (fixed seed): small, yet HiGHS needs LP iterations and branching for it.
  void random_mip(int n, int m, unsigned seed) {
    std::srand(seed);
    for (int j = 0; j < n; ++j) {
      ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, -(std::rand() % 50 + 1), 0, 10, 'I', nullptr), VLM_OK);
    }
    for (int i = 0; i < m; ++i) {
      std::vector<int> ind;
      std::vector<double> val;
      for (int j = 0; j < n; ++j) {
        if (std::rand() % 3 == 0) {
          ind.push_back(j);
          val.push_back(std::rand() % 20 + 1);
        }
      }
      ASSERT_EQ(VLMaddconstr(m_, static_cast<int>(ind.size()), ind.data(), val.data(), '<',
                             100 + std::rand() % 50, nullptr),
                VLM_OK);
    }
  }
  void expect_no_engine_errors() {
    for (const std::string& l : lines_) {
      EXPECT_EQ(l.find("ERROR"), std::string::npos) << l;
      EXPECT_EQ(l.find("unknown"), std::string::npos) << l;
    }
  }
  std::vector<std::string> lines_;
};

// The count HiGHS prints as "LP iterations  N" in its MIP report is IterCount.
TEST_F(EngineLogTest, MipIterCountIsTheSearchsLpIterations) {
  random_mip(14, 9, 3);
  // Without presolve the search surely runs LP iterations on so small a model.
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Presolve", 0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  double iters = -1;
  ASSERT_EQ(VLMgetdblattr(m_, "IterCount", &iters), VLM_OK);
  long reported = -1;
  // HiGHS' report line is "  LP iterations     N" (our own summary line says it otherwise).
  for (const std::string& l : lines_) {
    if (l.rfind("  LP iterations", 0) == 0) reported = std::strtol(l.c_str() + 15, nullptr, 10);
  }
  ASSERT_GT(reported, 0) << "HiGHS printed no LP iteration count";
  EXPECT_EQ(iters, static_cast<double>(reported));
  expect_no_engine_errors();
}

// min x^2 + y^2 - x  s.t.  x + y >= 1: optimum x = 0.75, y = 0.25, value -0.125; and the
// same model as an LP without the squares (optimum x = 10, its upper bound, value -10).
// Neither log has an
// engine error.
TEST_F(EngineLogTest, LpAndQpLogsHoldNoEngineErrors) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, -1, 0, 10, 'C', "x"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 10, 'C', "y"), VLM_OK);
  int ind[] = {0, 1};
  double val[] = {1, 1};
  ASSERT_EQ(VLMaddconstr(m_, 2, ind, val, '>', 1, "c"), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  double obj = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "ObjVal", &obj), VLM_OK);
  EXPECT_NEAR(obj, -10, 1e-9);
  int qi[] = {0, 1};
  double qv[] = {1, 1};
  ASSERT_EQ(VLMaddqpterms(m_, 2, qi, qi, qv), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(VLMgetdblattr(m_, "ObjVal", &obj), VLM_OK);
  EXPECT_NEAR(obj, -0.125, 1e-6);
  EXPECT_FALSE(lines_.empty());
  expect_no_engine_errors();
}

}  // namespace
