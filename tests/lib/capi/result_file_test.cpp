// ResultFile: VLMoptimize and VLMcomputeIIS write it when set; nothing to write is logged, not
// an error; a file that cannot be written fails the call with the results kept.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "velmor_c.h"

namespace {

std::string temp_path(const std::string& name) { return ::testing::TempDir() + "velmor_result_" + name; }

std::string file_text(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

class ResultFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(VLMemptyenv(&env_), VLM_OK);
    ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 0), VLM_OK);
    ASSERT_EQ(VLMstartenv(env_), VLM_OK);
  }
  void TearDown() override {
    VLMfreemodel(model_);
    VLMfreeenv(env_);
  }
  // max x + 2y, x + y <= 4 (c1), y <= 3 (c2) -> (1, 3), 7; with `infeasible`, also x + y >= 5.
  void build(bool infeasible) {
    const double obj[] = {1, 2};
    const char* names[] = {"x", "y"};
    ASSERT_EQ(VLMnewmodel(env_, &model_, "r", 2, obj, nullptr, nullptr, nullptr, names), VLM_OK);
    ASSERT_EQ(VLMsetintattr(model_, "ModelSense", -1), VLM_OK);
    const int both[] = {0, 1}, ys[] = {1};
    const double ones[] = {1, 1};
    ASSERT_EQ(VLMaddconstr(model_, 2, both, ones, '<', 4, "c1"), VLM_OK);
    ASSERT_EQ(VLMaddconstr(model_, 1, ys, ones, '<', 3, "c2"), VLM_OK);
    if (infeasible) {
      ASSERT_EQ(VLMaddconstr(model_, 2, both, ones, '>', 5, "c3"), VLM_OK);
    }
  }
  void set_result(const std::string& name) {
    ASSERT_EQ(VLMsetstrparam(VLMgetenv(model_), "ResultFile", name.c_str()), VLM_OK);
  }
  VLMenv* env_ = nullptr;
  VLMmodel* model_ = nullptr;
};

TEST_F(ResultFileTest, OptimizeWritesTheSolutionAndTheModel) {
  build(false);
  const std::string sol = temp_path("a.sol");
  std::remove(sol.c_str());
  set_result(sol);
  ASSERT_EQ(VLMoptimize(model_), VLM_OK);
  const std::string text = file_text(sol);
  EXPECT_NE(text.find("# Objective value = 7"), std::string::npos) << text;
  EXPECT_NE(text.find("y 3"), std::string::npos) << text;
  // A model file: the model as it is, which reads back to the same optimum.
  const std::string lp = temp_path("a.lp");
  set_result(lp);
  ASSERT_EQ(VLMoptimize(model_), VLM_OK);
  VLMmodel* back = nullptr;
  ASSERT_EQ(VLMreadmodel(env_, lp.c_str(), &back), VLM_OK);
  ASSERT_EQ(VLMoptimize(back), VLM_OK);
  double objval = 0;
  ASSERT_EQ(VLMgetdblattr(back, "ObjVal", &objval), VLM_OK);
  EXPECT_DOUBLE_EQ(objval, 7.0);
  VLMfreemodel(back);
}

TEST_F(ResultFileTest, NothingToWriteIsNotAnErrorAndUnwritableIs) {
  build(true);
  const std::string sol = temp_path("none.sol");
  std::remove(sol.c_str());
  set_result(sol);
  ASSERT_EQ(VLMoptimize(model_), VLM_OK);
  int status = 0;
  ASSERT_EQ(VLMgetintattr(model_, "Status", &status), VLM_OK);
  EXPECT_EQ(status, VLM_INFEASIBLE);
  EXPECT_FALSE(std::ifstream(sol).good());
  // The IIS of c1..c3 with y <= 3 is {c1, c3}; written as an .ilp after computeIIS.
  const std::string ilp = temp_path("iis.ilp");
  set_result(ilp);
  ASSERT_EQ(VLMcomputeIIS(model_), VLM_OK);
  const std::string text = file_text(ilp);
  EXPECT_NE(text.find("c1"), std::string::npos) << text;
  EXPECT_NE(text.find("c3"), std::string::npos) << text;
  EXPECT_EQ(text.find("c2"), std::string::npos) << text;
  // A folder that does not exist: the call fails naming the file, the results stay readable.
  const std::string bad = temp_path("no/such/dir.lp");
  set_result(bad);
  EXPECT_EQ(VLMoptimize(model_), VLM_ERROR_FILE_WRITE);
  EXPECT_NE(std::string(VLMgetmerrormsg(model_)).find("dir.lp"), std::string::npos);
  ASSERT_EQ(VLMgetintattr(model_, "Status", &status), VLM_OK);
  EXPECT_EQ(status, VLM_INFEASIBLE);
}

}  // namespace
