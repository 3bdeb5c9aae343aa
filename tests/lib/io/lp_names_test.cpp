// Names in LP files: which names are written as they stand, the escaped form of the others,
// and round trips (write -> read -> same model, element by element) of models whose names the
// format cannot hold: duplicates, blanks, ':', leading digits and signs, keywords, brackets,
// line breaks, bytes beyond ASCII, and default names taken by user names.
//
// Not tested here: names in MPS files (mps_names_test.cpp).
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "io/file_format.h"
#include "io/lp_names.h"
#include "io/lp_reader.h"
#include "io/lp_writer.h"
#include "model/model.h"
#include "same_model.h"

namespace {

using vlm::Env;
using vlm::Model;
using vlm::Status;
using vlm::io::lp_escape_name;
using vlm::io::lp_plain_name;
using vlm::io::lp_read_name;
using vlm::io::lp_written_name;

void check(const Status& s) { ASSERT_TRUE(s.ok()) << s.message(); }

TEST(LpNameTest, PlainNamesAreWrittenAsTheyStand) {
  for (const char* name : {"x", "x[0]", "y[1][2]", "flow/a", "x!\"#$%&'.;?@_`{|}~", "e12", "E1x",
                           "f(1,2)", "~r_5", "inf1", "ends", "_"}) {
    EXPECT_TRUE(lp_plain_name(name, false)) << name;
    EXPECT_EQ(lp_written_name(name, false), name);
    EXPECT_EQ(lp_read_name(name), name);
  }
  // Parentheses and commas are operators where a file has general constraints or PWLObj.
  EXPECT_FALSE(lp_plain_name("f(1,2)", true));
  EXPECT_TRUE(lp_plain_name("x[0]", true));
}

TEST(LpNameTest, OtherNamesAreEscapedAndReadBack) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"my var", "~~my#20var"}, {"a:b", "~~a#3Ab"},     {"3d", "~~3d"},
      {"-neg", "~~#2Dneg"},     {"+pos", "~~#2Bpos"},   {"inf", "~~inf"},
      {"Infinity", "~~Infinity"}, {"FREE", "~~FREE"},   {"Bounds", "~~Bounds"},
      {"[br", "~~#5Bbr"},       {"br]", "~~br#5D"},     {"x[0", "~~x#5B0"},
      {"", "~~"},               {".5", "~~.5"},         {"~~x", "~~#7E#7Ex"},
      {"a\nb", "~~a#0Ab"},      {"a\\b", "~~a#5Cb"},    {"\xc3\xa9t\xc3\xa9", "~~#C3#A9t#C3#A9"},
      {"x^2", "~~x#5E2"},       {"a<=b", "~~a#3C#3Db"}, {"/a", "~~#2Fa"}};
  for (const auto& [name, written] : cases) {
    EXPECT_FALSE(lp_plain_name(name, false)) << name;
    EXPECT_EQ(lp_written_name(name, false), written);
    EXPECT_EQ(lp_read_name(written), name);
    EXPECT_EQ(lp_read_name(written + "~7"), name) << "uniqueness suffix";
  }
  // Every byte survives the escape.
  for (int b = 1; b < 256; ++b) {
    const std::string name = "v" + std::string(1, static_cast<char>(b)) + "w";
    EXPECT_EQ(lp_read_name(lp_escape_name(name)), name) << b;
  }
  // Names that only look escaped read as they stand.
  for (const char* odd : {"~~a#", "~~a#G1", "~~a b", "~~a~", "~~a~1x", "~~a#2d"}) {
    EXPECT_EQ(lp_read_name(odd), odd);
  }
}

// The variables and constraints a model gets, in order, named as given.
std::unique_ptr<Model> named_model(const Env& env, const std::vector<const char*>& vars,
                                   const std::vector<const char*>& constrs) {
  auto m = std::make_unique<Model>(env, "names");
  const int n = static_cast<int>(vars.size());
  std::vector<double> obj(n), lb(n), ub(n);
  std::vector<char> vtype(n, 'C');
  for (int j = 0; j < n; ++j) {
    obj[j] = j + 1;
    lb[j] = -j;
    ub[j] = 10 + j;
    if (j % 3 == 1) vtype[j] = 'I';
  }
  EXPECT_TRUE(m->add_vars(n, 0, nullptr, nullptr, nullptr, obj.data(), lb.data(), ub.data(),
                          vtype.data(), vars.data())
                  .ok());
  EXPECT_TRUE(m->update().ok());
  // Constraint i: x_i + 2 x_{i+1} <= i (every variable appears in a row).
  for (int i = 0; i < static_cast<int>(constrs.size()); ++i) {
    int ind[] = {i % n, (i + 1) % n};
    double val[] = {1.0, 2.0};
    const char sense = '<';
    const double rhs = i;
    const int beg = 0;
    Status s = m->add_constrs(1, 2, &beg, ind, val, &sense, &rhs, &constrs[i]);
    EXPECT_TRUE(s.ok()) << s.message();
  }
  EXPECT_TRUE(m->update().ok());
  return m;
}

std::unique_ptr<Model> lp_round_trip(const Env& env, const Model& m, std::string* text) {
  std::ostringstream out;
  EXPECT_TRUE(vlm::io::write_lp(m.data(), out, false).ok());
  *text = out.str();
  vlm::io::ReadModel rm;
  Status s = vlm::io::read_lp(*text, "names.lp", rm);
  EXPECT_TRUE(s.ok()) << s.message() << "\n" << *text;
  if (!s.ok()) return nullptr;
  auto back = std::make_unique<Model>(env, rm.data.name);
  s = vlm::io::build_model(rm, "names.lp", *back);
  EXPECT_TRUE(s.ok()) << s.message();
  return s.ok() ? std::move(back) : nullptr;
}

// Three variables named x stay three variables; default names (C5 here, the variable without
// a name) and a user's C5 stay apart; every awkward name comes back byte for byte.
TEST(LpNameRoundTripTest, AwkwardAndDuplicateNamesComeBackElementByElement) {
  Env env;
  auto m = named_model(env,
                       {"x", "x", "x", "x[0]", "x[1]", nullptr, "C5", "my var", "a:b", "3d", "-neg",
                        "inf", "free", "Bounds", "[br", "br]", "e12", "~~x", "~~x~1", "tab\there",
                        "line\nbreak", "\xc3\xa9t\xc3\xa9", "y[1][2]", "flow/a"},
                       {"c 1", "c:2", "x", "x", "3rd", "-c", "~~r", "End", "r[0]", "ok"});
  std::string text;
  auto back = lp_round_trip(env, *m, &text);
  ASSERT_NE(back, nullptr);
  vlm_test::expect_same_model(m->data(), back->data());
  EXPECT_EQ(back->data().num_vars(), 24);
  // The plain first x and the readable bracket names are kept as they are.
  EXPECT_NE(text.find(" obj: x + 2 ~~x~1 + 3 ~~x~2 + 4 x[0] + 5 x[1]"), std::string::npos) << text;
  EXPECT_NE(text.find(" ~~C5~1"), std::string::npos) << text;
}

// With general constraints in the file, ( ) , are operators: such names are escaped there,
// and the model still reads back whole. min z = f(1,2) + g  with  g = MAX(f(1,2), 3).
TEST(LpNameRoundTripTest, ParenthesesAreEscapedOnlyWhereTheyAreOperators) {
  Env env;
  auto m = named_model(env, {"f(1,2)", "g", "a,b"}, {"c(1)"});
  std::string plain_text;
  auto back = lp_round_trip(env, *m, &plain_text);
  ASSERT_NE(back, nullptr);
  EXPECT_NE(plain_text.find(" c(1): f(1,2) + 2 g <= 0"), std::string::npos) << plain_text;

  vlm::GenConstrData g;
  g.type = vlm::GenType::kMax;
  g.name = "max(f)";
  g.res = 1;
  g.vars = {0};
  g.a = 3.0;
  check(m->add_genconstr(g));
  check(m->update());
  std::string text;
  back = lp_round_trip(env, *m, &text);
  ASSERT_NE(back, nullptr);
  vlm_test::expect_same_model(m->data(), back->data());
  EXPECT_NE(text.find(" ~~max#28f#29: g = MAX ( ~~f#281#2C2#29 , 3 )"), std::string::npos) << text;
}

// A QP with an objective constant, as our writer lays it out ("[ ... ] / 2 + 3"), reads back:
// min x + y + (2x^2 + xy)/2 + 3, and a model name with a line break survives its comment.
TEST(LpNameRoundTripTest, QuadraticObjectiveWithConstantAndOddModelName) {
  Env env;
  Model m(env, "two\nlines");
  const char* names[] = {"x", "y"};
  double obj[] = {1, 1};
  check(m.add_vars(2, 0, nullptr, nullptr, nullptr, obj, nullptr, nullptr, nullptr, names));
  check(m.update());
  int qi[] = {0, 0}, qj[] = {0, 1};
  double qv[] = {1.0, 0.5};
  check(m.add_qpterms(2, qi, qj, qv));
  m.queue_change([](vlm::ModelData& d) { d.objcon = 3.0; });
  check(m.update());
  std::string text;
  auto back = lp_round_trip(env, m, &text);
  ASSERT_NE(back, nullptr);
  EXPECT_NE(text.find("[ 2 x ^ 2 + x * y ] / 2 + 3\n"), std::string::npos) << text;
  vlm_test::expect_same_model(m.data(), back->data());
}

}  // namespace
