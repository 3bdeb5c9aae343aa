// Environments and parameters through the C API: lookup rules, range checks and their
// messages, the infinity rule, reset, parameter files and log sinks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "velmor_c.h"

namespace {

class EnvTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(VLMemptyenv(&env_), VLM_OK);
    ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 0), VLM_OK);
    ASSERT_EQ(VLMstartenv(env_), VLM_OK);
    dir_ = std::filesystem::temp_directory_path() /
           ("velmor_env_test_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
            "_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override {
    VLMfreeenv(env_);
    std::filesystem::remove_all(dir_);
  }
  std::string path(const char* name) const { return (dir_ / name).string(); }
  static std::string slurp(const std::string& file) {
    std::ifstream in(file);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }

  VLMenv* env_ = nullptr;
  std::filesystem::path dir_;
};

TEST_F(EnvTest, UnknownNamesFailWithTheNameInTheMessage) {
  EXPECT_EQ(VLMsetdblparam(env_, "TimeLimt", 5.0), VLM_ERROR_UNKNOWN_PARAMETER);
  EXPECT_STREQ(VLMgeterrormsg(env_), "Unknown parameter 'TimeLimt'");
  EXPECT_EQ(VLMgetparamtype(env_, "TimeLimt"), -1);
  EXPECT_EQ(VLMgetparamtype(env_, "timelimit"), VLM_DBL);
  EXPECT_EQ(VLMgetparamtype(env_, "method"), VLM_INT);
  EXPECT_EQ(VLMgetparamtype(env_, "LOGFILE"), VLM_STR);
}

TEST_F(EnvTest, OutOfRangeValuesAreRefusedAndTheOldValueKept) {
  ASSERT_EQ(VLMsetintparam(env_, "Method", 2), VLM_OK);
  EXPECT_EQ(VLMsetintparam(env_, "Method", 9), VLM_ERROR_VALUE_OUT_OF_RANGE);
  EXPECT_STREQ(VLMgeterrormsg(env_), "Value 9 for parameter 'Method' is outside [-1, 5]");
  int method = 0;
  EXPECT_EQ(VLMgetintparam(env_, "Method", &method), VLM_OK);
  EXPECT_EQ(method, 2);

  EXPECT_EQ(VLMsetdblparam(env_, "MIPGap", -0.5), VLM_ERROR_VALUE_OUT_OF_RANGE);
  EXPECT_STREQ(VLMgeterrormsg(env_), "Value -0.5 for parameter 'MIPGap' is outside [0, 1e100]");
  // A fractional value for an integer parameter is not silently truncated.
  EXPECT_EQ(VLMsetdblparam(env_, "Method", 1.5), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(VLMsetdblparam(env_, "Method", 1.0), VLM_OK);
  EXPECT_EQ(VLMsetstrparam(env_, "TimeLimit", "abc"), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(VLMsetintparam(env_, "LogFile", 3), VLM_ERROR_INVALID_ARGUMENT);
}

TEST_F(EnvTest, HugeValuesAreInfinite) {
  double v = 0, mn = 0, mx = 0, def = 0;
  ASSERT_EQ(VLMsetdblparam(env_, "TimeLimit", 1e150), VLM_OK);
  ASSERT_EQ(VLMgetdblparaminfo(env_, "TimeLimit", &v, &mn, &mx, &def), VLM_OK);
  EXPECT_EQ(v, VLM_INFINITY);
  EXPECT_EQ(mx, VLM_INFINITY);
  ASSERT_EQ(VLMsetdblparam(env_, "Cutoff", -1e100), VLM_OK);
  ASSERT_EQ(VLMgetdblparam(env_, "Cutoff", &v), VLM_OK);
  EXPECT_EQ(v, -VLM_INFINITY);
  ASSERT_EQ(VLMsetparam(env_, "BestBdStop", "-inf"), VLM_OK);
  ASSERT_EQ(VLMgetdblparam(env_, "BestBdStop", &v), VLM_OK);
  EXPECT_EQ(v, -VLM_INFINITY);
  EXPECT_EQ(VLMsetdblparam(env_, "TimeLimit", std::nan("")), VLM_ERROR_INVALID_ARGUMENT);
}

TEST_F(EnvTest, TextSetterAcceptsNumbersAndDefault) {
  double v = 0;
  ASSERT_EQ(VLMsetparam(env_, "timelimit", "7.5"), VLM_OK);
  ASSERT_EQ(VLMgetdblparam(env_, "TimeLimit", &v), VLM_OK);
  EXPECT_EQ(v, 7.5);
  ASSERT_EQ(VLMsetparam(env_, "TimeLimit", "DeFaUlT"), VLM_OK);
  ASSERT_EQ(VLMgetdblparam(env_, "TimeLimit", &v), VLM_OK);
  EXPECT_EQ(v, VLM_INFINITY);
  EXPECT_EQ(VLMsetparam(env_, "Threads", "two"), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(VLMgeterrormsg(env_), "Value 'two' for parameter 'Threads' is not an integer");
}

TEST_F(EnvTest, ResetRestoresEveryDefault) {
  ASSERT_EQ(VLMsetintparam(env_, "Presolve", 2), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(env_, "MIPGap", 0.5), VLM_OK);
  ASSERT_EQ(VLMresetparams(env_), VLM_OK);
  int presolve = 0;
  double gap = 0;
  ASSERT_EQ(VLMgetintparam(env_, "Presolve", &presolve), VLM_OK);
  ASSERT_EQ(VLMgetdblparam(env_, "MIPGap", &gap), VLM_OK);
  EXPECT_EQ(presolve, -1);
  EXPECT_EQ(gap, 1e-4);
}

TEST_F(EnvTest, ParameterNamesAreWalkedInTableOrder) {
  int n = VLMgetnumparams(env_);
  ASSERT_GT(n, 130);
  EXPECT_EQ(VLMgetnumparams(nullptr), n);
  char* name = nullptr;
  bool found = false;
  for (int i = 0; i < n; ++i) {
    ASSERT_EQ(VLMgetparamname(env_, i, &name), VLM_OK);
    found = found || std::string(name) == "BarIterLimit";
  }
  EXPECT_TRUE(found);
  EXPECT_EQ(VLMgetparamname(env_, n, &name), VLM_ERROR_INDEX_OUT_OF_RANGE);
}

TEST_F(EnvTest, LongStringValuesAreReadWhole) {
  std::string long_value(2000, 'x');
  ASSERT_EQ(VLMsetstrparam(env_, "ResultFile", long_value.c_str()), VLM_OK);
  int needed = 0;
  ASSERT_EQ(VLMgetlongstrparam(env_, "ResultFile", nullptr, 0, &needed), VLM_OK);
  EXPECT_EQ(needed, 2001);
  std::vector<char> buf(needed);
  ASSERT_EQ(VLMgetlongstrparam(env_, "ResultFile", buf.data(), needed, nullptr), VLM_OK);
  EXPECT_EQ(std::string(buf.data()), long_value);
  char small[VLM_MAX_STRLEN];
  ASSERT_EQ(VLMgetstrparam(env_, "ResultFile", small), VLM_OK);
  EXPECT_EQ(std::string(small).size(), static_cast<std::size_t>(VLM_MAX_STRLEN - 1));
}

TEST_F(EnvTest, ParameterFilesRoundTripNonDefaultSettings) {
  ASSERT_EQ(VLMsetdblparam(env_, "TimeLimit", 42.5), VLM_OK);
  ASSERT_EQ(VLMsetintparam(env_, "Threads", 3), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(env_, "Cutoff", -1e100), VLM_OK);
  ASSERT_EQ(VLMsetstrparam(env_, "ResultFile", "out dir/sol.sol"), VLM_OK);
  const std::string file = path("settings.prm");
  ASSERT_EQ(VLMwriteparams(env_, file.c_str()), VLM_OK);
  std::string text = slurp(file);
  EXPECT_NE(text.find("TimeLimit  42.5\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("MIPGap"), std::string::npos) << "defaults are not written";

  VLMenv* other = nullptr;
  ASSERT_EQ(VLMemptyenv(&other), VLM_OK);
  ASSERT_EQ(VLMreadparams(other, file.c_str()), VLM_OK);
  double tl = 0, cutoff = 0;
  int threads = 0;
  char result[VLM_MAX_STRLEN];
  EXPECT_EQ(VLMgetdblparam(other, "TimeLimit", &tl), VLM_OK);
  EXPECT_EQ(VLMgetintparam(other, "Threads", &threads), VLM_OK);
  EXPECT_EQ(VLMgetdblparam(other, "Cutoff", &cutoff), VLM_OK);
  EXPECT_EQ(VLMgetstrparam(other, "ResultFile", result), VLM_OK);
  EXPECT_EQ(tl, 42.5);
  EXPECT_EQ(threads, 3);
  EXPECT_EQ(cutoff, -VLM_INFINITY);
  EXPECT_STREQ(result, "out dir/sol.sol");
  VLMfreeenv(other);
}

TEST_F(EnvTest, ABadParameterFileChangesNothingAndNamesTheLine) {
  const std::string file = path("bad.prm");
  std::ofstream(file) << "# comment\n\nThreads 2\nTimeLimit 10\nMethod 17\n";
  EXPECT_EQ(VLMreadparams(env_, file.c_str()), VLM_ERROR_VALUE_OUT_OF_RANGE);
  EXPECT_NE(std::string(VLMgeterrormsg(env_)).find("line 5"), std::string::npos)
      << VLMgeterrormsg(env_);
  int threads = -1;
  ASSERT_EQ(VLMgetintparam(env_, "Threads", &threads), VLM_OK);
  EXPECT_EQ(threads, 0) << "earlier lines of a failed file must not stick";

  std::ofstream(file) << "Threads 2\nNoSuchParam 1\n";
  EXPECT_EQ(VLMreadparams(env_, file.c_str()), VLM_ERROR_FILE_READ);
  EXPECT_NE(std::string(VLMgeterrormsg(env_)).find("line 2: Unknown parameter 'NoSuchParam'"),
            std::string::npos)
      << VLMgeterrormsg(env_);
  EXPECT_EQ(VLMreadparams(env_, path("missing.prm").c_str()), VLM_ERROR_FILE_READ);
}

struct Captured {
  std::vector<std::string> lines;
};

void capture(const char* msg, void* usr) { static_cast<Captured*>(usr)->lines.emplace_back(msg); }

TEST_F(EnvTest, EachLogLineReachesEveryActiveSinkOnce) {
  Captured cap;
  const std::string log = path("run.log");
  ASSERT_EQ(VLMsetlogcallbackfuncenv(env_, capture, &cap), VLM_OK);
  ASSERT_EQ(VLMsetstrparam(env_, "LogFile", log.c_str()), VLM_OK);
  ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 1), VLM_OK);
  ASSERT_EQ(VLMmsg(env_, "first"), VLM_OK);
  ASSERT_EQ(VLMsetintparam(env_, "LogToConsole", 0), VLM_OK);
  ASSERT_EQ(VLMmsg(env_, "second\n"), VLM_OK);
  ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 0), VLM_OK);
  ASSERT_EQ(VLMmsg(env_, "third"), VLM_OK);
  EXPECT_EQ(cap.lines, std::vector<std::string>{"first\n"});
  EXPECT_EQ(slurp(log), "first\nsecond\n");

  // Closing the file by resetting LogFile stops file output; the file is appended to, not
  // truncated, when set again.
  ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 1), VLM_OK);
  ASSERT_EQ(VLMsetstrparam(env_, "LogFile", ""), VLM_OK);
  ASSERT_EQ(VLMmsg(env_, "fourth"), VLM_OK);
  ASSERT_EQ(VLMsetstrparam(env_, "LogFile", log.c_str()), VLM_OK);
  ASSERT_EQ(VLMmsg(env_, "fifth"), VLM_OK);
  EXPECT_EQ(slurp(log), "first\nsecond\nfifth\n");
}

struct Routed {
  std::vector<std::pair<std::string, int>> lines;
};

void route(const char* msg, int toconsole, void* usr) {
  static_cast<Routed*>(usr)->lines.emplace_back(msg, toconsole);
}

// A log route sees every line while OutputFlag is 1, told whether it is a console line; the
// callback it replaces and the log file are unaffected, and a model inherits the route.
TEST_F(EnvTest, ALogRouteSeesConsoleAndNonConsoleLines) {
  Routed routed;
  Captured cap;
  const std::string log = path("routed.log");
  ASSERT_EQ(VLMsetlogcallbackfuncenv(env_, capture, &cap), VLM_OK);
  ASSERT_EQ(VLMsetlogroutefuncenv(env_, route, &routed), VLM_OK);
  ASSERT_EQ(VLMsetstrparam(env_, "LogFile", log.c_str()), VLM_OK);
  ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 1), VLM_OK);
  ASSERT_EQ(VLMmsg(env_, "shown"), VLM_OK);
  ASSERT_EQ(VLMsetintparam(env_, "LogToConsole", 0), VLM_OK);
  ASSERT_EQ(VLMmsg(env_, "quiet"), VLM_OK);
  ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 0), VLM_OK);
  ASSERT_EQ(VLMmsg(env_, "off"), VLM_OK);
  using Line = std::pair<std::string, int>;
  EXPECT_EQ(routed.lines, (std::vector<Line>{{"shown\n", 1}, {"quiet\n", 0}}));
  EXPECT_TRUE(cap.lines.empty());  // the route takes the console's place
  EXPECT_EQ(slurp(log), "shown\nquiet\n");

  VLMmodel* model = nullptr;
  ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 1), VLM_OK);
  ASSERT_EQ(VLMnewmodel(env_, &model, "m", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  ASSERT_EQ(VLMmsg(VLMgetenv(model), "from the model"), VLM_OK);
  EXPECT_EQ(routed.lines.back(), (Line{"from the model\n", 0}));
  VLMfreemodel(model);

  // Removing the route gives the console back to the callback.
  ASSERT_EQ(VLMsetlogroutefuncenv(env_, nullptr, nullptr), VLM_OK);
  ASSERT_EQ(VLMsetintparam(env_, "LogToConsole", 1), VLM_OK);
  ASSERT_EQ(VLMmsg(env_, "back"), VLM_OK);
  EXPECT_EQ(cap.lines, std::vector<std::string>{"back\n"});
}

TEST_F(EnvTest, AnUnwritableLogFileIsRefusedAndTheOldOneKept) {
  EXPECT_EQ(VLMsetstrparam(env_, "LogFile", path("no/such/dir/x.log").c_str()),
            VLM_ERROR_FILE_WRITE);
  EXPECT_NE(std::string(VLMgeterrormsg(env_)).find("Unable to open log file"), std::string::npos);
  char value[VLM_MAX_STRLEN];
  ASSERT_EQ(VLMgetstrparam(env_, "LogFile", value), VLM_OK);
  EXPECT_STREQ(value, "");
}

TEST(EnvLifecycleTest, CreationChecksVersionAndArguments) {
  VLMenv* env = reinterpret_cast<VLMenv*>(0x1);
  EXPECT_EQ(VLMemptyenvadvinternal(&env, 0, 9, 0, 0, nullptr, nullptr), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(env, nullptr);
  EXPECT_EQ(VLMemptyenvadvinternal(nullptr, 0, 10, 0, 3, nullptr, nullptr), VLM_ERROR_NULL_ARGUMENT);
  ASSERT_EQ(VLMemptyenvadvinternal(&env, 0, 10, 0, 3, nullptr, nullptr), VLM_OK);
  EXPECT_EQ(VLMisenvstarted(env), 0);
  EXPECT_EQ(VLMstartenv(env), VLM_OK);
  EXPECT_EQ(VLMisenvstarted(env), 1);
  EXPECT_EQ(VLMstartenv(env), VLM_OK);
  VLMfreeenv(env);
  VLMfreeenv(nullptr);
  EXPECT_STREQ(VLMgeterrormsg(nullptr), "NULL environment");
}

TEST(EnvLifecycleTest, TokenLifespanIsNotAvailableWithoutALicenceService) {
  VLMenv* env = nullptr;
  ASSERT_EQ(VLMemptyenv(&env), VLM_OK);
  int span = -1;
  EXPECT_EQ(VLMgettokenlifespan(env, &span), VLM_ERROR_DATA_NOT_AVAILABLE);
  EXPECT_NE(std::string(VLMgeterrormsg(env)).find("licence"), std::string::npos);
  double stats[6] = {1, 1, 1, 1, 1, 1};
  EXPECT_EQ(VLMgetcommstats(env, &stats[0], &stats[1], &stats[2], &stats[3], &stats[4], &stats[5]), VLM_OK);
  for (double s : stats) EXPECT_EQ(s, 0.0);
  VLMfreeenv(env);
}

}  // namespace
