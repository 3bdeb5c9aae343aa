// Multiple objectives and scenarios through LP and MPS files: a written-then-read model solves
// to the same values; malformed or cut-short objective and scenario sections are refused with
// file and line.
// Also the parameter (.prm) and branching order (.ord) files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "io/lp_reader.h"
#include "io/lp_writer.h"
#include "io/mps_reader.h"
#include "io/mps_writer.h"
#include "model_fixture.h"
#include "read_text.h"

namespace {

std::string temp_path(const std::string& name) { return ::testing::TempDir() + "velmor_scen_" + name; }

std::unique_ptr<vlm::Model> read_lp_text(const std::string& text, vlm::Status* status = nullptr) {
  return read_model_text(vlm::io::read_lp, text, "s.lp", status);
}
std::unique_ptr<vlm::Model> read_mps_text(const std::string& text, vlm::Status* status = nullptr) {
  return read_model_text(vlm::io::read_mps, text, "s.mps", status);
}

class ScenarioFileTest : public ModelFixture {
 protected:
  void TearDown() override {
    VLMfreemodel(back_);
    ModelFixture::TearDown();
  }

  // The model of the multi-objective scenario test in scenarios_test.cpp, with a blank in a
  // scenario name, an unnamed scenario and infinite scenario bounds:
  // min over x, y in [0, 4], c0: x + y <= 5,
  //   objective 0 "first": -x, priority 2; objective 2 "blend": -y + 3, priority 2,
  //   weight 0.25 (level 1: -x - 0.25 y + 0.75); objective 1 "second": -y, priority 1,
  //   RelTol 0.5 (the last level: its tolerance degrades nothing).
  // Base: x = 4, y = 1, ObjN = (-4, -1, 2). Scenarios (ScenNObjVal, ObjN):
  //   "high cap" rhs(c0) = 7: (4, 3), -4, (-4, -3, 0);  "tight" ub(x) = 2: (2, 3), -2, (-2, -3, 0);
  //   unnamed obj(y) = -1: (1, 4), -5.25, (-5, -4, -1); "none" lb(x) = lb(y) = 3: infeasible;
  //   "free x" x in (-inf, inf): level 1 is -5 + 0.75 y + 0.75 on x = 5 - y, so (5, 0),
  //   -4.25, (-5, 0, 3).
  void build() {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 4, 'C', "x"), VLM_OK);
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 4, 'C', "y"), VLM_OK);
    const int both[] = {0, 1};
    const double ones[] = {1, 1};
    ASSERT_EQ(VLMaddconstr(m_, 2, both, ones, '<', 5, "c0"), VLM_OK);
    const int ix[] = {0}, iy[] = {1};
    const double minus[] = {-1};
    ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1, 0, 0, "first", 0, 1, ix, minus), VLM_OK);
    ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1, 0, 0.5, "second", 0, 1, iy, minus), VLM_OK);
    ASSERT_EQ(VLMsetobjectiven(m_, 2, 2, 0.25, 0, 0, "blend", 3, 1, iy, minus), VLM_OK);
    ASSERT_EQ(VLMsetintattr(m_, "NumScenarios", 5), VLM_OK);
    scenario(0, "high cap");
    ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNRHS", 0, 7), VLM_OK);
    scenario(1, "tight");
    ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNUB", 0, 2), VLM_OK);
    scenario(2, "");
    ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNObj", 1, -1), VLM_OK);
    scenario(3, "none");
    ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNLB", 0, 3), VLM_OK);
    ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNLB", 1, 3), VLM_OK);
    scenario(4, "free x");
    ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNLB", 0, -VLM_INFINITY), VLM_OK);
    ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNUB", 0, VLM_INFINITY), VLM_OK);
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  }
  void scenario(int k, const char* name) {
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ScenarioNumber", k), VLM_OK);
    ASSERT_EQ(VLMsetstrattr(m_, "ScenNName", name), VLM_OK);
  }

  static double get(VLMmodel* m, const char* attr) {
    double v = NAN;
    int rc = VLMgetdblattr(m, attr, &v);
    return rc == VLM_OK ? v : -12345.0 - rc;  // a value no result takes, per error code
  }

  // Every scenario's ScenNObjVal and ObjNVal of `m` after optimize, flattened.
  static std::vector<double> results(VLMmodel* m) {
    std::vector<double> out;
    VLMenv* e = VLMgetenv(m);
    out.push_back(get(m, "ObjVal"));
    for (int k = 0; k < 5; ++k) {
      VLMsetintparam(e, "ScenarioNumber", k);
      out.push_back(get(m, "ScenNObjVal"));
      for (int j = 0; j < 3; ++j) {
        VLMsetintparam(e, "ObjNumber", j);
        out.push_back(get(m, "ObjNVal"));
      }
      VLMsetintparam(e, "ObjNumber", 0);
    }
    VLMsetintparam(e, "ScenarioNumber", 0);
    return out;
  }

  VLMmodel* back_ = nullptr;
};

// The hand values of build()'s comment; -12345 - 10005 marks ObjNVal unavailable.
const std::vector<double> kWant = {-4,                                  // base ObjVal
                                   -4,      -4, -3, 0,                  // high cap
                                   -2,      -2, -3, 0,                  // tight
                                   -5.25,   -5, -4, -1,                 // unnamed
                                   VLM_INFINITY, -22350, -22350, -22350,  // none
                                   -4.25,   -5, 0,  3};                 // free x

// Equal within 1e-9, infinite values (VLM_INFINITY) exactly.
void expect_values(const std::vector<double>& got, const std::vector<double>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t k = 0; k < want.size(); ++k) {
    if (std::fabs(want[k]) >= VLM_INFINITY) {
      EXPECT_EQ(got[k], want[k]) << k;
    } else {
      EXPECT_NEAR(got[k], want[k], 1e-9) << k;
    }
  }
}

TEST_F(ScenarioFileTest, WrittenThenReadModelsSolveAlike) {
  build();
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(VLM_ERROR_DATA_NOT_AVAILABLE, 10005);
  const std::vector<double> want = results(m_);
  expect_values(want, kWant);

  for (const char* suffix : {".lp", ".mps", ".rlp", ".mps.gz"}) {
    SCOPED_TRACE(suffix);
    const std::string path = temp_path(std::string("roundtrip") + suffix);
    ASSERT_EQ(VLMwrite(m_, path.c_str()), VLM_OK) << VLMgetmerrormsg(m_);
    ASSERT_EQ(VLMreadmodel(env_, path.c_str(), &back_), VLM_OK) << VLMgeterrormsg(env_);
    ASSERT_EQ(VLMsetintparam(VLMgetenv(back_), "OutputFlag", 0), VLM_OK);
    int n = 0;
    ASSERT_EQ(VLMgetintattr(back_, "NumScenarios", &n), VLM_OK);
    EXPECT_EQ(n, 5);
    ASSERT_EQ(VLMgetintattr(back_, "NumObj", &n), VLM_OK);
    EXPECT_EQ(n, 3);
    if (std::string(suffix) != ".rlp") {
      // Names survive: the scenario's with its blank, the objectives'.
      char* name = nullptr;
      ASSERT_EQ(VLMsetintparam(VLMgetenv(back_), "ScenarioNumber", 0), VLM_OK);
      ASSERT_EQ(VLMgetstrattr(back_, "ScenNName", &name), VLM_OK);
      EXPECT_STREQ(name, "high cap");
      ASSERT_EQ(VLMsetintparam(VLMgetenv(back_), "ScenarioNumber", 2), VLM_OK);
      ASSERT_EQ(VLMgetstrattr(back_, "ScenNName", &name), VLM_OK);
      EXPECT_STREQ(name, "");
      ASSERT_EQ(VLMsetintparam(VLMgetenv(back_), "ObjNumber", 2), VLM_OK);
      ASSERT_EQ(VLMgetstrattr(back_, "ObjNName", &name), VLM_OK);
      EXPECT_STREQ(name, "blend");
      ASSERT_EQ(VLMsetintparam(VLMgetenv(back_), "ObjNumber", 1), VLM_OK);
      double reltol = 0;
      ASSERT_EQ(VLMgetdblattr(back_, "ObjNRelTol", &reltol), VLM_OK);
      EXPECT_EQ(reltol, 0.5);
      ASSERT_EQ(VLMsetintparam(VLMgetenv(back_), "ObjNumber", 0), VLM_OK);
    }
    ASSERT_EQ(VLMoptimize(back_), VLM_OK) << VLMgetmerrormsg(back_);
    expect_values(results(back_), want);
    VLMfreemodel(back_);
    back_ = nullptr;
    std::remove(path.c_str());
  }
}

// The files in tests/data (also fuzzing seeds), as our writers wrote them: x, y in [0, 4],
// c0: x + y <= 5; one level -x - 0.25 y + 0.75 (objectives "first" -x and "blend" -y + 3 at
// weight 0.25). Base (4, 1): ObjVal -4. "high cap" rhs(c0) = 7: (4, 3), -4, ObjN (-4, 0).
// Unnamed: lb(x) = -inf, obj(y) = -1 makes objective 0 -x - y: (1, 4), -5.25, ObjN (-5, -1).
TEST(ScenarioDataFileTest, SampleFilesSolveToHandValues) {
  VLMenv* env = nullptr;
  ASSERT_EQ(VLMemptyenv(&env), VLM_OK);
  ASSERT_EQ(VLMsetintparam(env, "OutputFlag", 0), VLM_OK);
  ASSERT_EQ(VLMstartenv(env), VLM_OK);
  for (const char* file : {"multiobj_scenarios.lp", "multiobj_scenarios.mps"}) {
    SCOPED_TRACE(file);
    VLMmodel* m = nullptr;
    const std::string path = std::string(VELMOR_TEST_DATA_DIR) + "/" + file;
    ASSERT_EQ(VLMreadmodel(env, path.c_str(), &m), VLM_OK) << VLMgeterrormsg(env);
    ASSERT_EQ(VLMoptimize(m), VLM_OK) << VLMgetmerrormsg(m);
    VLMenv* e = VLMgetenv(m);
    double v = 0;
    ASSERT_EQ(VLMgetdblattr(m, "ObjVal", &v), VLM_OK);
    EXPECT_NEAR(v, -4, 1e-9);
    const double level[] = {-4, -5.25}, objn[][2] = {{-4, 0}, {-5, -1}};
    for (int k = 0; k < 2; ++k) {
      ASSERT_EQ(VLMsetintparam(e, "ScenarioNumber", k), VLM_OK);
      ASSERT_EQ(VLMgetdblattr(m, "ScenNObjVal", &v), VLM_OK);
      EXPECT_NEAR(v, level[k], 1e-9) << k;
      for (int j = 0; j < 2; ++j) {
        ASSERT_EQ(VLMsetintparam(e, "ObjNumber", j), VLM_OK);
        ASSERT_EQ(VLMgetdblattr(m, "ObjNVal", &v), VLM_OK);
        EXPECT_NEAR(v, objn[k][j], 1e-9) << k << " " << j;
      }
    }
    VLMfreemodel(m);
  }
  VLMfreeenv(env);
}

// Scenarios refer to constraints by label in LP files: a change to a constraint whose label is
// shared cannot be written there, and nothing is written.
TEST_F(ScenarioFileTest, SharedLabelOfAChangedConstraintIsRefusedInLp) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 4, 'C', "x"), VLM_OK);
  const int ix[] = {0};
  const double one[] = {1};
  ASSERT_EQ(VLMaddconstr(m_, 1, ix, one, '<', 3, "c"), VLM_OK);
  ASSERT_EQ(VLMaddconstr(m_, 1, ix, one, '>', 1, "c"), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "NumScenarios", 1), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNRHS", 1, 2), VLM_OK);
  const std::string path = temp_path("shared.lp");
  EXPECT_EQ(VLMwrite(m_, path.c_str()), VLM_ERROR_FILE_WRITE);
  EXPECT_STREQ(VLMgetmerrormsg(m_),
               "Unable to write LP: scenario 0 changes the right-hand side of constraint 1 named 'c', a name "
               "constraint 0 has too (LP files refer to constraints by name)");
  std::ifstream none(path);
  EXPECT_FALSE(none.good());
}

const char* const kLpHead =
    "Minimize\n obj: x + y\nSubject To\n c0: x + y >= 1\n c1: x - y <= 3\nBounds\n x <= 4\n";

// The two scenarios both readers' tests write: an unnamed one moving c1's right-hand side to
// -2, and "two words" freeing x below, y above and giving y the cost 2.5.
void expect_every_kind_of_change(const vlm::Model* m) {
  ASSERT_NE(m, nullptr);
  const vlm::ModelData& d = m->data();
  ASSERT_EQ(d.scenarios.size(), 2u);
  EXPECT_EQ(d.scenarios[0].name, "");
  EXPECT_EQ(d.scenarios[0].rhs, (std::map<int, double>{{1, -2}}));
  EXPECT_EQ(d.scenarios[1].name, "two words");
  EXPECT_EQ(d.scenarios[1].lb, (std::map<int, double>{{0, -VLM_INFINITY}}));
  EXPECT_EQ(d.scenarios[1].ub, (std::map<int, double>{{1, VLM_INFINITY}}));
  EXPECT_EQ(d.scenarios[1].obj, (std::map<int, double>{{1, 2.5}}));
}

TEST(ScenarioLpReaderTest, ReadsEveryKindOfChange) {
  auto m = read_lp_text(std::string(kLpHead) +
                        "Scenarios\n"
                        " Scenario\n"
                        "  rhs c1 = -2\n"
                        " ~~two#20words: Scenario\n"
                        "  LB x = -inf\n"
                        "  UB y = 1e30\n"
                        "  Obj y = 2.5\n"
                        "End\n");
  expect_every_kind_of_change(m.get());
}

TEST(ScenarioLpReaderTest, MalformedSectionsAreRefusedWithTheirLine) {
  const std::string h = kLpHead;
  expect_read_errors(read_lp_text, {
    {h + "Scenarios\n LB x = 1\nEnd\n",
     "File 's.lp', line 9: expected a 'Scenario' header before the first change, found 'LB'"},
    {h + "Scenarios\n Scenario\n  LB x =\n  UB x = 2\nEnd\n",
     "File 's.lp', line 10: expected a number after 'x =', found the end of the line"},
    {h + "Scenarios\n Scenario\n  UB x 2\nEnd\n",
     "File 's.lp', line 10: expected '=' after 'x', found '2'"},
    {h + "Scenarios\n Scenario\n  UB x = 2 3\nEnd\n",
     "File 's.lp', line 10: expected the end of the line, found '3'"},
    {h + "Scenarios\n Scenario\n  UB zz = 2\nEnd\n", "File 's.lp', line 10: no variable named 'zz'"},
    {h + "Scenarios\n Scenario\n  RHS c9 = 2\nEnd\n", "File 's.lp', line 10: no linear constraint named 'c9'"},
    {h + "Scenarios\n Scenario\n  RHS c0 = inf\nEnd\n",
     "File 's.lp', line 10: the right-hand side of 'c0' is infinite"},
    {h + "Scenarios\n Scenario\n  Cost x = 1\nEnd\n",
     "File 's.lp', line 10: expected 'Scenario', 'LB', 'UB', 'Obj' or 'RHS', found 'Cost'"},
    {h + "Scenarios\n s1: Scen\nEnd\n",
     "File 's.lp', line 9: expected 'Scenario' after the scenario's name, found 'Scen'"},
    {h + "Scenarios\n Scenario\n  UB x = 2\n",
     "File 's.lp', line 10: expected 'End' after this line, found the end of the file (is the file cut short?)"},
  });
}

const char* const kMpsHead =
    "NAME s\nROWS\n N obj\n G c0\n L c1\nCOLUMNS\n x obj 1 c0 1\n x c1 1\n y obj 1 c0 1\n y c1 -1\n"
    "RHS\n RHS c0 1 c1 3\nBOUNDS\n UP BND x 4\n";

TEST(ScenarioMpsReaderTest, ReadsEveryKindOfChange) {
  auto m = read_mps_text(std::string(kMpsHead) +
                         "SCENARIOS\n"
                         " SC\n"
                         " RH c1 -2\n"
                         " SC two words\n"
                         " LO x -1e30\n"
                         " UP y 1e30\n"
                         " OB y 2.5\n"
                         "ENDATA\n");
  expect_every_kind_of_change(m.get());
}

TEST(ScenarioMpsReaderTest, MalformedSectionsAreRefusedWithTheirLine) {
  const std::string h = kMpsHead;
  expect_read_errors(read_mps_text, {
    {h + "SCENARIOS\n LO x 1\nENDATA\n", "File 's.mps', line 16: SCENARIOS record before any 'SC name' header"},
    {h + "SCENARIOS\n SC a\n UP x\nENDATA\n", "File 's.mps', line 17: expected one value in the UP record"},
    {h + "SCENARIOS\n SC a\n UP x 1 2\nENDATA\n", "File 's.mps', line 17: expected one value in the UP record"},
    {h + "SCENARIOS\n SC a\n XX x 1\nENDATA\n",
     "File 's.mps', line 17: expected a SCENARIOS record SC, LO, UP, OB or RH, found 'xx'"},
    {h + "SCENARIOS\n SC a\n UP zz 1\nENDATA\n", "File 's.mps', line 17: unknown column 'zz'"},
    {h + "SCENARIOS\n SC a\n UP x one\nENDATA\n",
     "File 's.mps', line 17: expected a number for the scenario's value, found 'one'"},
    {h + "SCENARIOS\n SC a\n SC b\n RH obj 2\nENDATA\n",
     "File 's.mps', line 18: scenario right-hand side of 'obj', which is not a linear constraint"},
    {h + "SCENARIOS\n SC a\n OB x 1e30\nENDATA\n",
     "File 's.mps', line 17: objective coefficient 1e+30 of scenario column 'x' is infinite (1e30 or more)"},
    {h + "SCENARIOS\n SC a\n UP x 2\n",
     "File 's.mps', line 17: expected 'ENDATA' after this line, found the end of the file (is the file cut short?)"},
  });
}

const char* const kLpMultiHead = "Minimize multi-objectives\n obj: x\n";
const char* const kLpMultiTail = "Subject To\n c0: x + y >= 1\nEnd\n";

TEST(ObjectiveSectionTest, MalformedLpEntriesAreRefusedWithTheirLine) {
  const std::string h = kLpMultiHead, t = kLpMultiTail;
  expect_read_errors(read_lp_text, {
    {h + " o1: Priority=x Weight=1\n  y\n" + t, "File 's.lp', line 3: expected a number after 'priority=', found 'x'"},
    {h + " o1: Priority=1.5\n  y\n" + t, "File 's.lp', line 4: expected an integer priority, found 'y'"},
    {h + " y\n" + t, "File 's.lp', line 3: expected 'Priority=' in an objective after the first, found the end of the objective section"},
    {h + " o1: Priority=1\n  y\n", "File 's.lp', line 4: expected 'End' after this line, found the end of the file "
                                     "(is the file cut short?)"},
  });
}

const char* const kMpsMultiHead = "NAME m\nROWS\n N obj\n N o1\n G c0\nOBJECTIVES\n";
const char* const kMpsMultiTail = "COLUMNS\n x obj 1 c0 1\n y o1 1 c0 1\nRHS\n RHS c0 1\nENDATA\n";

TEST(ObjectiveSectionTest, MalformedMpsEntriesAreRefusedWithTheirLine) {
  const std::string h = kMpsMultiHead, t = kMpsMultiTail;
  expect_read_errors(read_mps_text, {
    {h + " c0 Priority=1\n" + t, "File 's.mps', line 7: objective 'c0' must be an N row other than the objective"},
    {h + " obj Priority=1\n" + t, "File 's.mps', line 7: objective 'obj' must be an N row other than the objective"},
    {h + " o1 Priority=1.5\n" + t, "File 's.mps', line 7: expected an integer priority"},
    {h + " o1 Priority=1\n o1 Weight=2\n" + t, "File 's.mps', line 8: objective row 'o1' is listed twice"},
    {h + " o1 Colour=1\n" + t,
     "File 's.mps', line 7: expected Priority, Weight, AbsTol, RelTol or Name, found 'Colour=1'"},
    {h + " o1 Weight\n" + t, "File 's.mps', line 7: expected Name=value, found 'Weight'"},
    {h + " o1 Weight=heavy\n" + t, "File 's.mps', line 7: expected a number for weight, found 'heavy'"},
    {h + " nowhere Priority=1\n" + t, "File 's.mps', line 7: unknown row 'nowhere'"},
  });
}

// Seeded property run: models whose variable, constraint and scenario names are words of the
// formats (Scenario, LB, RHS, inf, End, ...), hold blanks, colons or brackets, with random
// scenario changes (infinite bounds included), written as LP and as MPS and read back: every
// MPS write that is not refused for its names, and every LP write, reads back with the same
// scenarios, names and values.
TEST(ScenarioRoundTripTest, SeededRandomModelsReadBackEqual) {
  static const vlm::Env env;
  const std::vector<std::string> pool = {"x",   "Scenario", "LB",  "UB",   "Obj", "RHS", "rhs", "inf",
                                         "End", "Scenarios", "SC",  "RH",   "a b", "a:b", "y[1]", "-z",
                                         "lo",  "two  blanks", "=",  "e12", "Subject", "c(1)"};
  std::mt19937 rng(20261125);
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  auto value = [&](bool bound) {
    const int r = pick(10);
    if (bound && r == 0) return VLM_INFINITY;
    if (bound && r == 1) return -VLM_INFINITY;
    return (pick(2001) - 1000) / 8.0;
  };
  int mps_written = 0;
  for (int round = 0; round < 300; ++round) {
    const int n = 1 + pick(4), m = 1 + pick(3), scen = 1 + pick(3);
    std::vector<std::string> vnames, cnames;
    for (int j = 0; j < n; ++j) vnames.push_back(pool[pick(static_cast<int>(pool.size()))] + std::to_string(j));
    for (int i = 0; i < m; ++i) cnames.push_back(pool[pick(static_cast<int>(pool.size()))] + "c" + std::to_string(i));
    vlm::Model model(env, "rand");
    std::vector<const char*> names;
    for (const std::string& v : vnames) names.push_back(v.c_str());
    ASSERT_TRUE(model.add_vars(n, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, names.data()).ok());
    ASSERT_TRUE(model.update().ok());
    for (int i = 0; i < m; ++i) {
      const int ind[] = {i % n};
      const double val[] = {1.0};
      const char sense = "<>="[i % 3];
      const double rhs = i;
      const int beg = 0;
      const char* cname = cnames[i].c_str();
      ASSERT_TRUE(model.add_constrs(1, 1, &beg, ind, val, &sense, &rhs, &cname).ok());
    }
    std::vector<vlm::Scenario> scenarios(static_cast<std::size_t>(scen));
    for (vlm::Scenario& sc : scenarios) {
      sc.name = pick(3) == 0 ? std::string() : pool[pick(static_cast<int>(pool.size()))];
      for (int k = pick(5); k > 0; --k) {
        const int j = pick(n);
        switch (pick(4)) {
          case 0: sc.lb[j] = value(true); break;
          case 1: sc.ub[j] = value(true); break;
          case 2: sc.obj[j] = value(false); break;
          default: sc.rhs[pick(m)] = value(false); break;
        }
      }
    }
    model.queue_change([scenarios](vlm::ModelData& d) { d.scenarios = scenarios; });
    ASSERT_TRUE(model.update().ok());
    for (bool mps : {false, true}) {
      SCOPED_TRACE(std::string(mps ? "MPS" : "LP") + " round " + std::to_string(round));
      std::ostringstream out;
      vlm::Status w = mps ? vlm::io::write_mps(model.data(), out, vlm::io::MpsLayout::kAuto, false)
                          : vlm::io::write_lp(model.data(), out, false);
      if (!w.ok()) {
        // MPS refuses names it cannot hold; LP refuses only a shared label of a changed row.
        EXPECT_EQ(w.code(), VLM_ERROR_FILE_WRITE) << w.message();
        continue;
      }
      mps_written += mps ? 1 : 0;
      vlm::Status r;
      auto back = mps ? read_mps_text(out.str(), &r) : read_lp_text(out.str(), &r);
      ASSERT_NE(back, nullptr) << r.message() << "\n" << out.str();
      const vlm::ModelData& d = back->data();
      ASSERT_EQ(d.scenarios.size(), scenarios.size()) << out.str();
      for (std::size_t k = 0; k < scenarios.size(); ++k) {
        EXPECT_EQ(d.scenarios[k].name, scenarios[k].name) << out.str();
        EXPECT_EQ(d.scenarios[k].lb, scenarios[k].lb) << out.str();
        EXPECT_EQ(d.scenarios[k].ub, scenarios[k].ub) << out.str();
        EXPECT_EQ(d.scenarios[k].obj, scenarios[k].obj) << out.str();
        EXPECT_EQ(d.scenarios[k].rhs, scenarios[k].rhs) << out.str();
      }
      for (int j = 0; j < n; ++j) EXPECT_EQ(d.varname[j], vnames[j]);
    }
  }
  // The run is not vacuous: a fair share of the models has MPS-holdable names.
  EXPECT_GT(mps_written, 50);
}

// Parameter files hold the non-default settings and read back into another model's
// environment; branching orders hold the non-zero priorities and read back by name.
TEST_F(ScenarioFileTest, ParameterAndBranchingOrderFilesRoundTrip) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 1, 'B', "pick me"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 5, 'I', "n"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 5, 'C', "z"), VLM_OK);
  ASSERT_EQ(VLMsetintattrelement(m_, "BranchPriority", 0, 7), VLM_OK);
  ASSERT_EQ(VLMsetintattrelement(m_, "BranchPriority", 1, -2), VLM_OK);
  VLMenv* e = VLMgetenv(m_);
  ASSERT_EQ(VLMsetdblparam(e, "MIPGap", 0.125), VLM_OK);
  ASSERT_EQ(VLMsetintparam(e, "Threads", 1), VLM_OK);
  const std::string prm = temp_path("p.prm"), ord = temp_path("o.ord");
  ASSERT_EQ(VLMwrite(m_, prm.c_str()), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(VLMwrite(m_, ord.c_str()), VLM_OK) << VLMgetmerrormsg(m_);

  ASSERT_EQ(VLMnewmodel(env_, &back_, "back", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  ASSERT_EQ(VLMaddvar(back_, 0, nullptr, nullptr, 0, 0, 1, 'C', "z"), VLM_OK);
  ASSERT_EQ(VLMaddvar(back_, 0, nullptr, nullptr, 0, 0, 1, 'C', "n"), VLM_OK);
  ASSERT_EQ(VLMaddvar(back_, 0, nullptr, nullptr, 0, 0, 1, 'C', "pick me"), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(back_), VLM_OK);
  ASSERT_EQ(VLMread(back_, prm.c_str()), VLM_OK) << VLMgetmerrormsg(back_);
  ASSERT_EQ(VLMread(back_, ord.c_str()), VLM_OK) << VLMgetmerrormsg(back_);
  ASSERT_EQ(VLMupdatemodel(back_), VLM_OK);
  double gap = 0;
  int threads = 0, pri[3] = {-1, -1, -1};
  ASSERT_EQ(VLMgetdblparam(VLMgetenv(back_), "MIPGap", &gap), VLM_OK);
  ASSERT_EQ(VLMgetintparam(VLMgetenv(back_), "Threads", &threads), VLM_OK);
  EXPECT_EQ(gap, 0.125);
  EXPECT_EQ(threads, 1);
  for (int j = 0; j < 3; ++j) ASSERT_EQ(VLMgetintattrelement(back_, "BranchPriority", j, &pri[j]), VLM_OK);
  EXPECT_EQ(pri[0], 0);
  EXPECT_EQ(pri[1], -2);
  EXPECT_EQ(pri[2], 7);

  // A bad line keeps nothing of the file.
  {
    std::ofstream out(ord);
    out << "# order\nz 3\nn 1.5\n";
  }
  EXPECT_EQ(VLMread(back_, ord.c_str()), VLM_ERROR_FILE_READ);
  EXPECT_EQ(std::string(VLMgetmerrormsg(back_)),
            "File '" + ord + "', line 3: expected an integer priority, found '1.5'");
  {
    std::ofstream out(ord);
    out << "z 3\nmissing 1\n";
  }
  EXPECT_EQ(VLMread(back_, ord.c_str()), VLM_ERROR_FILE_READ);
  EXPECT_EQ(std::string(VLMgetmerrormsg(back_)), "File '" + ord + "', line 2: no variable named 'missing'");
  ASSERT_EQ(VLMupdatemodel(back_), VLM_OK);
  ASSERT_EQ(VLMgetintattrelement(back_, "BranchPriority", 0, &pri[0]), VLM_OK);
  EXPECT_EQ(pri[0], 0);
  std::remove(prm.c_str());
  std::remove(ord.c_str());
}

}  // namespace
