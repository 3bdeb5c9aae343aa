// Self-test of the parameter table: the properties every later lookup, range check, help text
// and parameter file relies on.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "core/text.h"
#include "params/param_table.h"

namespace vlm {
namespace {

TEST(ParamTableTest, NamesAreUniqueIgnoringCaseAndDefaultsLieInRange) {
  const auto& table = param_table();
  ASSERT_GT(table.size(), 130u);
  std::set<std::string> seen;
  for (const ParamDef& p : table) {
    EXPECT_TRUE(seen.insert(to_lower(p.name)).second) << p.name;
    EXPECT_NE(std::string(p.purpose), "") << p.name;
    if (p.type == ParamType::kStr) {
      EXPECT_NE(p.sdef, nullptr) << p.name;
    } else {
      EXPECT_LE(p.min, p.def) << p.name;
      EXPECT_LE(p.def, p.max) << p.name;
    }
    if (p.type == ParamType::kInt) {
      EXPECT_GE(p.min, -2147483648.0) << p.name;
      EXPECT_LE(p.max, 2147483647.0) << p.name;
    }
  }
}

TEST(ParamTableTest, LookupIgnoresCaseButNotSpelling) {
  int i = find_param("timelimit");
  ASSERT_GE(i, 0);
  EXPECT_STREQ(param_table()[i].name, "TimeLimit");
  EXPECT_EQ(find_param("TIMELIMIT"), i);
  EXPECT_EQ(find_param("TimeLimt"), -1);
  EXPECT_EQ(find_param("Time*"), -1);
  EXPECT_EQ(find_param(""), -1);
}

TEST(ParamTableTest, HelpTextShowsTypePurposeAndValues) {
  const std::string& bar = param_help(find_param("BarIterLimit"));
  EXPECT_EQ(bar.rfind("PARAMETER NAME: BarIterLimit\n", 0), 0u) << bar;
  EXPECT_NE(bar.find("TYPE: Integer"), std::string::npos);
  EXPECT_NE(bar.find("PURPOSE:\n"), std::string::npos);
  EXPECT_NE(bar.find("  Minimum : 0\n  Maximum : 2000000000\n  Default : 1000\n"),
            std::string::npos)
      << bar;

  const std::string& bd = param_help(find_param("BestBdStop"));
  EXPECT_NE(bd.find("TYPE: Double"), std::string::npos);
  EXPECT_NE(bd.find("  Minimum : -1e100\n  Maximum : 1e100\n  Default : 1e100\n"),
            std::string::npos)
      << bd;

  const std::string& log = param_help(find_param("LogFile"));
  EXPECT_NE(log.find("TYPE: String"), std::string::npos);
  EXPECT_NE(log.find("Default : \"\""), std::string::npos);
}

TEST(ParamTableTest, HelpTextSaysPlainlyWhenTheEngineIgnoresAParameter) {
  int ignored = -1, honoured = find_param("TimeLimit");
  for (int i = 0; i < static_cast<int>(param_table().size()); ++i) {
    if (param_table()[i].flags & kParamNoEffect) ignored = i;
  }
  ASSERT_GE(ignored, 0);
  EXPECT_NE(param_help(ignored).find("has no effect"), std::string::npos);
  EXPECT_EQ(param_help(honoured).find("has no effect"), std::string::npos);
}

TEST(ParamTableTest, DoublesAreFormattedShortestWithPlainExponents) {
  EXPECT_EQ(format_double(1e100), "1e100");
  EXPECT_EQ(format_double(-1e100), "-1e100");
  EXPECT_EQ(format_double(1e300), "1e100");
  EXPECT_EQ(format_double(1e-6), "1e-6");
  EXPECT_EQ(format_double(0.0001), "0.0001");
  EXPECT_EQ(format_double(5), "5");
  EXPECT_EQ(format_double(0.1), "0.1");
}

}  // namespace
}  // namespace vlm
