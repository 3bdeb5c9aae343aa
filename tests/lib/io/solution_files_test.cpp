// Solution, MIP start and hint files through VLMwrite and VLMread.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

class SolutionFileTest : public ModelFixture {
 protected:
  std::string path(const char* name) {
    auto dir = std::filesystem::temp_directory_path() / "velmor_solution_files";
    std::filesystem::create_directories(dir);
    return (dir / name).string();
  }
  static std::string slurp(const std::string& f) {
    std::ifstream in(f);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }
  double dblelem(const char* attr, int j) {
    double v = -1;
    EXPECT_EQ(VLMgetdblattrelement(m_, attr, j, &v), VLM_OK) << VLMgetmerrormsg(m_);
    return v;
  }
};

// max x + 2y, x + y <= 3, x, y integer in [0, 2]: optimum x = 1, y = 2, value 5.
TEST_F(SolutionFileTest, SolutionAndStartFilesRoundTrip) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 2, 'I', "x"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 2, 0, 2, 'I', "my y"), VLM_OK);
  const int ind[] = {0, 1};
  const double val[] = {1, 1};
  ASSERT_EQ(VLMaddconstr(m_, 2, ind, val, '<', 3, "c"), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  EXPECT_EQ(VLMwrite(m_, path("none.sol").c_str()), VLM_ERROR_DATA_NOT_AVAILABLE);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  ASSERT_EQ(VLMwrite(m_, path("a.sol").c_str()), VLM_OK);
  EXPECT_EQ(slurp(path("a.sol")), "# Solution for model test\n# Objective value = 5\nx 1\n\"my y\" 2\n");

  // Reading a solution file sets the MIP start, which the next solve accepts.
  ASSERT_EQ(VLMread(m_, path("a.sol").c_str()), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(dblelem("Start", 0), 1.0);
  EXPECT_EQ(dblelem("Start", 1), 2.0);
  ASSERT_EQ(VLMwrite(m_, path("b.mst.gz").c_str()), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  double obj = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "ObjVal", &obj), VLM_OK);
  EXPECT_NEAR(obj, 5.0, 1e-9);

  std::ofstream(path("bad.mst")) << "x 1\nnobody 2\n";
  EXPECT_EQ(VLMread(m_, path("bad.mst").c_str()), VLM_ERROR_FILE_READ);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("line 2: no variable named 'nobody'"), std::string::npos);
}

TEST_F(SolutionFileTest, HintsCarryValuesAndPriorities) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 5, 'C', "a"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 5, 'C', "b"), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  std::ofstream(path("h.hnt")) << "# hints\nb 2.5 7\na 1\n";
  ASSERT_EQ(VLMread(m_, path("h.hnt").c_str()), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(dblelem("VarHintVal", 1), 2.5);
  int pri = 0;
  ASSERT_EQ(VLMgetintattrelement(m_, "VarHintPri", 1, &pri), VLM_OK);
  EXPECT_EQ(pri, 7);
  ASSERT_EQ(VLMwrite(m_, path("out.hnt").c_str()), VLM_OK);
  EXPECT_EQ(slurp(path("out.hnt")), "# Variable hints\na 1\nb 2.5 7\n");
  std::ofstream(path("bad.hnt")) << "a one\n";
  EXPECT_EQ(VLMread(m_, path("bad.hnt").c_str()), VLM_ERROR_FILE_READ);
}

}  // namespace

namespace {

// max 3x + 2y, c1: x + y <= 4, c2: x + 3y <= 9, x <= 3: x at its upper bound, y basic, c1 tight.
class BasisFileTest : public SolutionFileTest {
 protected:
  void build() {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 3, 0, 3, 'C', "x"), VLM_OK);
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 2, 0, 1e100, 'C', "y"), VLM_OK);
    const int ind[] = {0, 1};
    const double v1[] = {1, 1}, v2[] = {1, 3};
    ASSERT_EQ(VLMaddconstr(m_, 2, ind, v1, '<', 4, "c1"), VLM_OK);
    ASSERT_EQ(VLMaddconstr(m_, 2, ind, v2, '<', 9, "c2"), VLM_OK);
    ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  }
};

TEST_F(BasisFileTest, BasisFilesRoundTripAndWarmStartTheNextSolve) {
  build();
  EXPECT_EQ(VLMwrite(m_, path("none.bas").c_str()), VLM_ERROR_DATA_NOT_AVAILABLE);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  ASSERT_EQ(VLMwrite(m_, path("opt.bas").c_str()), VLM_OK);
  EXPECT_EQ(slurp(path("opt.bas")), "NAME test\n XU y c1\n UL x\nENDATA\n");

  VLMmodel* other = nullptr;
  ASSERT_EQ(VLMnewmodel(env_, &other, "other", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  std::swap(other, m_);
  build();
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMread(m_, path("opt.bas").c_str()), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Presolve", 0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  double iters = -1, obj = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "IterCount", &iters), VLM_OK);
  ASSERT_EQ(VLMgetdblattr(m_, "ObjVal", &obj), VLM_OK);
  EXPECT_EQ(iters, 0.0) << "an optimal starting basis needs no iteration";
  EXPECT_NEAR(obj, 11.0, 1e-9);
  std::swap(other, m_);
  VLMfreemodel(other);

  std::ofstream(path("bad.bas")) << "NAME t\n XX x c1\nENDATA\n";
  EXPECT_EQ(VLMread(m_, path("bad.bas").c_str()), VLM_ERROR_FILE_READ);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("line 2: expected XU, XL, UL, LL or ENDATA"), std::string::npos);
}

TEST_F(BasisFileTest, JsonSolutionCarriesStatusValuesAndDuals) {
  build();
  char* text = nullptr;
  ASSERT_EQ(VLMgetjsonsolution(m_, &text), VLM_OK);
  EXPECT_STREQ(text, "{\"SolutionInfo\": {\"Status\": 1, \"SolCount\": 0}}\n");
  VLMfree(text);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  ASSERT_EQ(VLMgetjsonsolution(m_, &text), VLM_OK);
  std::string json(text);
  VLMfree(text);
  EXPECT_NE(json.find("\"Status\": 2, \"SolCount\": 1"), std::string::npos) << json;
  EXPECT_NE(json.find("\"ObjVal\": 11"), std::string::npos) << json;
  EXPECT_NE(json.find("{\"VarName\": \"x\", \"X\": 3, \"RC\": 1}"), std::string::npos) << json;
  EXPECT_NE(json.find("{\"ConstrName\": \"c1\", \"Slack\": 0, \"Pi\": 2}"), std::string::npos) << json;
  ASSERT_EQ(VLMwrite(m_, path("s.json").c_str()), VLM_OK);
  EXPECT_EQ(slurp(path("s.json")), json);
}

}  // namespace
