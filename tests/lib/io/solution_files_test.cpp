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
