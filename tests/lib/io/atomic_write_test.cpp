// Files the library writes are replaced whole or not at all: every writer (model files plain and
// gzipped, .sol, .mst, .bas, .prm, .attr, .json) goes through one temporary-file-and-rename path.
// A failure part-way (simulated full disk), a missing folder or a read-only folder leaves the old
// file byte for byte and no temporary file behind.
//
// Not tested here: a real full disk or a crash between write and rename (the rename is the
// operating system's atomic step; the hook stands in for the disk).
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "core/platform.h"
#include "model_fixture.h"
#include "velmor_c.h"

namespace {

namespace fs = std::filesystem;

std::string file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

std::vector<std::string> folder_listing(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// A fresh, empty folder per test.
class AtomicWriteTest : public ModelFixture {
 protected:
  void SetUp() override {
    ModelFixture::SetUp();
    dir_ = ::testing::TempDir() + "velmor_atomic_" +
           ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    // max 2x + 3y  s.t.  c0: x + y <= 4,  x, y in [0, 3]: optimum x = 3, y = 1, value 9.
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 2.0, 0.0, 3.0, 'C', "x"), VLM_OK);
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 3.0, 0.0, 3.0, 'C', "y"), VLM_OK);
    int ind[] = {0, 1};
    double val[] = {1.0, 1.0};
    ASSERT_EQ(VLMaddconstr(m_, 2, ind, val, '<', 4.0, "c0"), VLM_OK);
    ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
    ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  }
  void TearDown() override {
    vlm::set_write_limit_for_testing(-1);
    fs::permissions(dir_, fs::perms::owner_all);
    fs::remove_all(dir_);
    ModelFixture::TearDown();
  }
  std::string path(const std::string& name) const { return dir_ + "/" + name; }
  std::string message() const { return VLMgetmerrormsg(m_); }

  std::string dir_;
};

const char* const kKinds[] = {"m.lp", "m.mps", "m.lp.gz", "m.mps.gz", "m.rlp", "m.sol",
                              "m.mst", "m.bas", "m.prm", "m.attr", "m.json", "m.sol.gz"};

TEST_F(AtomicWriteTest, FailurePartWayKeepsTheOldFileForEveryKind) {
  for (const char* kind : kKinds) {
    const std::string target = path(kind);
    const std::string old = "old content that must survive\n";
    { std::ofstream(target, std::ios::binary) << old; }
    vlm::set_write_limit_for_testing(5);
    EXPECT_EQ(VLMwrite(m_, target.c_str()), VLM_ERROR_FILE_WRITE) << kind;
    vlm::set_write_limit_for_testing(-1);
    const std::string label = std::string(kind) == "m.prm"    ? "parameter file"
                              : std::string(kind) == "m.attr" ? "attribute file"
                                                              : "file";
    EXPECT_EQ(message(), "Error while writing " + label + " '" + target + "': No space left on device");
    EXPECT_EQ(file_bytes(target), old) << kind;
    EXPECT_EQ(folder_listing(dir_), std::vector<std::string>{kind});
    fs::remove(target);
  }
}

TEST_F(AtomicWriteTest, SuccessfulWriteReplacesTheFileAndLeavesNoTemporary) {
  const std::string target = path("m.lp.gz");
  { std::ofstream(target) << "stale"; }
  ASSERT_EQ(VLMwrite(m_, target.c_str()), VLM_OK) << message();
  EXPECT_EQ(folder_listing(dir_), std::vector<std::string>{"m.lp.gz"});
  VLMmodel* back = nullptr;
  ASSERT_EQ(VLMreadmodel(env_, target.c_str(), &back), VLM_OK);
  int n = 0;
  ASSERT_EQ(VLMgetintattr(back, "NumVars", &n), VLM_OK);
  EXPECT_EQ(n, 2);
  double ub = 0.0;
  ASSERT_EQ(VLMgetdblattrelement(back, "UB", 1, &ub), VLM_OK);
  EXPECT_EQ(ub, 3.0);
  VLMfreemodel(back);
}

TEST_F(AtomicWriteTest, MissingFolderFailsWithTheFileErrorAndCreatesNothing) {
  const std::string target = path("missing/m.lp");
  EXPECT_EQ(VLMwrite(m_, target.c_str()), VLM_ERROR_FILE_WRITE);
  EXPECT_EQ(message(), "Unable to open file '" + target + "' for writing: No such file or directory");
  EXPECT_TRUE(folder_listing(dir_).empty());
  const std::string prm = path("missing/p.prm");
  EXPECT_EQ(VLMwrite(m_, prm.c_str()), VLM_ERROR_FILE_WRITE);
  EXPECT_EQ(message(), "Unable to open parameter file '" + prm + "' for writing: No such file or directory");
}

// The last step fails when the target is a folder: the temporary file goes, the folder stays.
TEST_F(AtomicWriteTest, FailedRenameRemovesTheTemporaryFile) {
  const std::string target = path("d.lp");
  fs::create_directory(target);
  EXPECT_EQ(VLMwrite(m_, target.c_str()), VLM_ERROR_FILE_WRITE);
  EXPECT_EQ(message(), "Unable to replace file '" + target + "': Is a directory");
  EXPECT_EQ(folder_listing(dir_), std::vector<std::string>{"d.lp"});
  EXPECT_TRUE(fs::is_directory(target));
}

TEST_F(AtomicWriteTest, ReadOnlyFolderKeepsTheOldFile) {
  const std::string target = path("m.mps");
  const std::string old = "NAME old\nENDATA\n";
  { std::ofstream(target) << old; }
  fs::permissions(dir_, fs::perms::owner_read | fs::perms::owner_exec);
  if (::access(dir_.c_str(), W_OK) == 0) GTEST_SKIP() << "this user can write into read-only folders";
  EXPECT_EQ(VLMwrite(m_, target.c_str()), VLM_ERROR_FILE_WRITE);
  EXPECT_EQ(message(), "Unable to open file '" + target + "' for writing: Permission denied");
  EXPECT_EQ(file_bytes(target), old);
  EXPECT_EQ(folder_listing(dir_), std::vector<std::string>{"m.mps"});
}

TEST_F(AtomicWriteTest, ReplacedFileKeepsItsPermissionsAndSymbolicLinks) {
  const std::string real = path("real.lp");
  const std::string link = path("link.lp");
  { std::ofstream(real) << "old"; }
  fs::permissions(real, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  fs::create_symlink(real, link);
  ASSERT_EQ(VLMwrite(m_, link.c_str()), VLM_OK) << message();
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_NE(file_bytes(real).find("c0:"), std::string::npos);
  EXPECT_EQ(fs::status(real).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  EXPECT_EQ(folder_listing(dir_), (std::vector<std::string>{"link.lp", "real.lp"}));
}

}  // namespace
