// Names in MPS files: names with blanks are written in fixed layout and read back as fixed;
// the reader's choice between free and fixed; model names ending in a sense word; names MPS
// cannot hold are refused with their reason; and a seeded property run over random names
// (every model is either refused or read back element by element).
//
// Not tested here: names in LP files (lp_names_test.cpp).
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "io/file_format.h"
#include "io/mps_reader.h"
#include "io/mps_writer.h"
#include "model/model.h"
#include "same_model.h"

namespace {

using vlm::Env;
using vlm::Model;
using vlm::Status;
using vlm::io::MpsLayout;

void check(const Status& s) { ASSERT_TRUE(s.ok()) << s.message(); }

// Variables named `vars` (objective j + 1, bounds [-j, 10 + j]); constraint i is
// x_i + 2 x_{i+1} <= i over the variables, or empty when there is one variable.
std::unique_ptr<Model> named_model(const Env& env, const std::string& model_name, int sense,
                                   const std::vector<std::string>& vars,
                                   const std::vector<std::string>& constrs) {
  auto m = std::make_unique<Model>(env, model_name);
  const int n = static_cast<int>(vars.size());
  std::vector<const char*> names;
  std::vector<double> obj(n), lb(n), ub(n);
  for (int j = 0; j < n; ++j) {
    names.push_back(vars[j].c_str());
    obj[j] = j + 1;
    lb[j] = -j;
    ub[j] = 10 + j;
  }
  EXPECT_TRUE(m->add_vars(n, 0, nullptr, nullptr, nullptr, obj.data(), lb.data(), ub.data(), nullptr,
                          names.data())
                  .ok());
  EXPECT_TRUE(m->update().ok());
  for (int i = 0; i < static_cast<int>(constrs.size()); ++i) {
    int ind[] = {i % n, (i + 1) % n};
    double val[] = {1.0, 2.0};
    const int nz = n > 1 ? 2 : 0;
    const char csense = '<';
    const double rhs = i;
    const int beg = 0;
    const char* cname = constrs[i].c_str();
    Status s = m->add_constrs(1, nz, &beg, ind, val, &csense, &rhs, &cname);
    EXPECT_TRUE(s.ok()) << s.message();
  }
  m->queue_change([sense](vlm::ModelData& d) { d.sense = sense; });
  EXPECT_TRUE(m->update().ok());
  return m;
}

// Reads MPS text into a model; nullptr (and *status) when it is refused.
std::unique_ptr<Model> read_text(const Env& env, const std::string& text, Status* status) {
  vlm::io::ReadModel rm;
  *status = vlm::io::read_mps(text, "names.mps", rm);
  if (!status->ok()) return nullptr;
  auto m = std::make_unique<Model>(env, rm.data.name);
  *status = vlm::io::build_model(rm, "names.mps", *m);
  return status->ok() ? std::move(m) : nullptr;
}

std::string write_text(const Model& m, Status* status, MpsLayout layout = MpsLayout::kAuto) {
  std::ostringstream out;
  *status = vlm::io::write_mps(m.data(), out, layout, false);
  return out.str();
}

// "a b 2" in fixed columns ("    a b 2     r         5") reads in free layout as column "a"
// with 2 in row "b" and 5 in row "r": a file that both layouts accept. The blank inside a fixed
// name field decides for fixed, so the model comes back as written. Model: min y over
// b: 0 <= 0 (empty row), r: 5 a + y <= 1, a and y >= 0.
TEST(MpsNameTest, NamesWithBlanksAreWrittenFixedAndReadFixed) {
  Env env;
  Model m(env, "blank names");
  const char* vars[] = {"a b 2", "y"};
  double obj[] = {0, 1};
  check(m.add_vars(2, 0, nullptr, nullptr, nullptr, obj, nullptr, nullptr, nullptr, vars));
  check(m.update());
  int beg[] = {0, 0}, ind[] = {0, 1};
  double val[] = {5, 1};
  char sense[] = {'<', '<'};
  double rhs[] = {0, 1};
  const char* rows[] = {"b", "r"};
  check(m.add_constrs(2, 2, beg, ind, val, sense, rhs, rows));
  check(m.update());
  Status s;
  const std::string text = write_text(m, &s);
  check(s);
  EXPECT_NE(text.find("\n    a b 2     r         5\n"), std::string::npos) << text;
  auto back = read_text(env, text, &s);
  ASSERT_NE(back, nullptr) << s.message();
  vlm_test::expect_same_model(m.data(), back->data());

  // The free layout is refused for such names, by name.
  write_text(m, &s, MpsLayout::kFree);
  EXPECT_EQ(s.code(), VLM_ERROR_FILE_WRITE);
  EXPECT_EQ(s.message(), "Unable to write MPS: a name contains a blank, which free MPS cannot hold; use fixed MPS");
}

// Free files aligned with runs of blanks are still free: the fixed reading is tried and fails.
// min x + 2y  s.t.  c0: x + y >= 1.
TEST(MpsNameTest, AlignedFreeFilesReadAsFree) {
  Env env;
  Status s;
  auto m = read_text(env,
                     "NAME aligned\n"
                     "ROWS\n"
                     " N  obj\n"
                     " G  c0\n"
                     "COLUMNS\n"
                     "    x  obj  1  c0  1\n"
                     "    longname_y  obj  2  c0  1\n"
                     "RHS\n"
                     "    rhs  c0  1\n"
                     "ENDATA\n",
                     &s);
  ASSERT_NE(m, nullptr) << s.message();
  EXPECT_EQ(m->data().varname.all(), (std::vector<std::string>{"x", "longname_y"}));
  EXPECT_EQ(m->data().obj, (std::vector<double>{1, 2}));
  EXPECT_EQ(m->data().rhs, (std::vector<double>{1}));
}

// A model name whose last word is MAX or MIN keeps it, in either sense.
TEST(MpsNameTest, ModelNameEndingInASenseWord) {
  Env env;
  for (int sense : {1, -1}) {
    for (const char* name : {"cost MAX", "profit min", "plain"}) {
      auto m = named_model(env, name, sense, {"x", "y"}, {"c"});
      Status s;
      const std::string text = write_text(*m, &s);
      check(s);
      auto back = read_text(env, text, &s);
      ASSERT_NE(back, nullptr) << s.message();
      EXPECT_EQ(back->data().name, name);
      EXPECT_EQ(back->data().sense, sense) << name;
    }
  }
  // Other writers' NAME line with a sense word and no OBJSENSE still sets the sense.
  Status s;
  auto m = read_text(env, "NAME shop MAX\nROWS\n N obj\nCOLUMNS\n x obj 1\nENDATA\n", &s);
  ASSERT_NE(m, nullptr) << s.message();
  EXPECT_EQ(m->data().name, "shop");
  EXPECT_EQ(m->data().sense, -1);
}

TEST(MpsNameTest, NamesMpsCannotHoldAreRefusedWithTheReason) {
  Env env;
  struct Case {
    std::vector<std::string> vars;
    std::string model_name;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{"a\tb", "y"}, "m", "Unable to write MPS: name 'a\tb' holds a control character (code 9), which MPS cannot hold"},
      {{"x", "y"}, "two\nlines", "Unable to write MPS: name 'two\nlines' holds a control character (code 10), which MPS cannot hold"},
      {{" x", "y"}, "m", "Unable to write MPS: name ' x' starts or ends with a blank, which MPS cannot hold"},
      {{"x", "y "}, "m", "Unable to write MPS: name 'y ' starts or ends with a blank, which MPS cannot hold"},
      {{"a b", "much too long"}, "m", "Unable to write MPS: name 'much too long' is longer than the 8 characters fixed MPS allows"},
      {{"x", "x"}, "m", "Unable to write MPS: variables 0 and 1 are both named 'x'"},
  };
  for (const Case& c : cases) {
    auto m = named_model(env, c.model_name, 1, c.vars, {"c"});
    Status s;
    write_text(*m, &s);
    EXPECT_EQ(s.code(), VLM_ERROR_FILE_WRITE);
    EXPECT_EQ(s.message(), c.message);
  }
}

// Random names over letters, digits, blanks, sense words and punctuation, in both senses:
// every model is either refused with VLM_ERROR_FILE_WRITE or reads back element by element.
TEST(MpsNameTest, RandomNamesAreRefusedOrReadBackExactly) {
  Env env;
  std::mt19937 rng(20261125);
  const std::string alphabet = "ab x1e.-*$'MAXNR";
  auto name = [&](int maxlen) {
    std::uniform_int_distribution<int> len(1, maxlen), ch(0, static_cast<int>(alphabet.size()) - 1);
    std::string s;
    for (int k = len(rng); k > 0; --k) s.push_back(alphabet[ch(rng)]);
    return s;
  };
  int written = 0;
  for (int trial = 0; trial < 2000; ++trial) {
    const int sense = trial % 2 == 0 ? 1 : -1;
    const std::string model_name = trial % 3 == 0 ? name(6) + " MAX" : name(10);
    auto m = named_model(env, model_name, sense, {name(8), name(8), name(8)}, {name(8), name(8)});
    Status s;
    const std::string text = write_text(*m, &s);
    if (!s.ok()) {
      EXPECT_EQ(s.code(), VLM_ERROR_FILE_WRITE);
      continue;
    }
    ++written;
    auto back = read_text(env, text, &s);
    ASSERT_NE(back, nullptr) << s.message() << "\n" << text;
    vlm_test::expect_same_model(m->data(), back->data());
    if (::testing::Test::HasFailure()) FAIL() << text;
  }
  EXPECT_GT(written, 800);
}

}  // namespace
