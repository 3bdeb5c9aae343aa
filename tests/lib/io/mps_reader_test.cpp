// MPS reading: free and fixed files written by glpsol (glpk-utils), hand-written edge cases
// (RANGES on every row type, every bound type, negative upper bounds, markers, names with
// blanks in fixed columns, objective sense and constant), quadratic sections, and errors.
//
// Not tested here: round trips of our own writer's files, including the OBJECTIVES, SOS,
// PWLOBJ and GENCONS sections (file_format_test.cpp).
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "io/file_format.h"
#include "io/mps_reader.h"
#include "model/model.h"
#include "read_text.h"

namespace {

using vlm::Env;
using vlm::Model;
using vlm::ModelData;
using vlm::Status;

constexpr double kInf = VLM_INFINITY;

std::string data_file(const char* name) { return std::string(VELMOR_TEST_DATA_DIR) + "/" + name; }

std::unique_ptr<Model> read_file(const char* name) {
  static const Env env;
  auto m = vlm::io::read_model_file(env, data_file(name));
  EXPECT_TRUE(m.ok()) << m.status().message();
  return m.ok() ? std::move(m.value()) : nullptr;
}

// Reads MPS text as file "m.mps"; `status` receives the outcome.
std::unique_ptr<Model> read_text(const std::string& text, Status* status = nullptr) {
  return read_model_text(vlm::io::read_mps, text, "m.mps", status);
}

using Terms = std::vector<std::pair<std::string, double>>;

Terms row(const ModelData& d, int i) {
  std::vector<std::pair<int, double>> t;
  for (std::size_t k = 0; k < d.rows[i].ind.size(); ++k) t.emplace_back(d.rows[i].ind[k], d.rows[i].val[k]);
  std::sort(t.begin(), t.end());
  Terms out;
  for (const auto& [j, v] : t) out.emplace_back(d.varname[j], v);
  return out;
}

// The model of glpk_mix.lp (see lp_reader_test.cpp) as glpsol writes it with --wfreemps and
// --wmps: no objective sense (so it reads as minimising), the range as RANGES on an E row
// (R = 11: -5 <= x + f <= 6), integers between markers, the constant left out.
TEST(MpsReaderTest, GlpsolFreeAndFixedFilesReadTheSame) {
  for (const char* name : {"glpk_mix_free.mps", "glpk_mix_fixed.mps"}) {
    SCOPED_TRACE(name);
    auto m = read_file(name);
    ASSERT_NE(m, nullptr);
    const ModelData& d = m->data();
    EXPECT_EQ(d.name, "t1");
    EXPECT_EQ(d.sense, 1);
    EXPECT_EQ(d.varname.all(), (std::vector<std::string>{"x", "y", "z", "b", "f", "w", "Rgrng"}));
    EXPECT_EQ(d.obj, (std::vector<double>{3, 2, -1, 5, 1, 0, 0}));
    EXPECT_EQ(d.lb, (std::vector<double>{0, -2, 0, 0, -kInf, -3, 0}));
    EXPECT_EQ(d.ub, (std::vector<double>{4, kInf, 10, 1, kInf, -1, 11}));
    EXPECT_EQ(d.vtype, (std::vector<char>{'C', 'C', 'I', 'I', 'C', 'C', 'C'}));
    EXPECT_EQ(d.constrname.all(), (std::vector<std::string>{"c1", "c2", "c3", "rng", "c5", "c6"}));
    EXPECT_EQ(d.csense, (std::vector<char>{'<', '>', '=', '=', '<', '<'}));
    EXPECT_EQ(d.rhs, (std::vector<double>{8, -1, 3, -5, -2, 10}));
    EXPECT_EQ(row(d, 3), (Terms{{"x", 1}, {"f", 1}, {"Rgrng", -1}}));
    EXPECT_EQ(row(d, 4), (Terms{{"y", -1}, {"w", -1}}));
  }
}

// glpsol's free file keeps names such as "x[sea,ny]"; its fixed file replaces names longer
// than 8 characters by C0000001.., R0000002..: same numbers either way.
TEST(MpsReaderTest, GlpsolTransportNamesInFreeAndFixedFiles) {
  auto free_model = read_file("glpk_transport_free.mps");
  auto fixed_model = read_file("glpk_transport_fixed.mps");
  ASSERT_NE(free_model, nullptr);
  ASSERT_NE(fixed_model, nullptr);
  const ModelData& a = free_model->data();
  const ModelData& b = fixed_model->data();
  EXPECT_EQ(a.varname[0], "x[sea,ny]");
  EXPECT_EQ(a.constrname[4], "demand[top]");
  EXPECT_EQ(b.varname.all(), (std::vector<std::string>{"C0000001", "C0000002", "C0000003", "x[sf,ny]", "C0000005",
                                                 "C0000006"}));
  for (const ModelData* d : {&a, &b}) {
    EXPECT_EQ(d->obj, (std::vector<double>{2.5, 1.7, 1.8, 2.5, 1.8, 1.4}));
    EXPECT_EQ(d->rhs, (std::vector<double>{350, 600, 325, 300, 275}));
    EXPECT_EQ(d->csense, (std::vector<char>{'<', '<', '>', '>', '>'}));
    EXPECT_EQ(d->rows[2].ind, (std::vector<int>{0, 3}));
  }
}

// ranges_bounds.mps: RANGES R on rows with right-hand side b:
//   E, R = 2: [3, 5];  E, R = -2: [1, 3];  L, R = 4: [6, 10];  G, R = -6: [-2, 4];
//   E and L with R = 0: equalities. Each range adds a slack "Rg" + row name in [0, hi - lo].
TEST(MpsReaderTest, RangesOnEveryRowType) {
  auto m = read_file("ranges_bounds.mps");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.constrname.all(), (std::vector<std::string>{"e_pos", "e_neg", "l_row", "g_row", "e_zero", "l_zero"}));
  EXPECT_EQ(d.csense, (std::vector<char>{'=', '=', '=', '=', '=', '='}));
  // The second RHS vector (OTHER l_row 99) is not used.
  EXPECT_EQ(d.rhs, (std::vector<double>{3, 1, 6, -2, 1, 7}));
  const int n = d.num_vars();
  ASSERT_EQ(n, 17);
  const std::vector<std::string> names = d.varname.all();
  EXPECT_EQ(std::vector<std::string>(names.end() - 4, names.end()),
            (std::vector<std::string>{"Rge_pos", "Rge_neg", "Rgl_row", "Rgg_row"}));
  EXPECT_EQ(std::vector<double>(d.ub.end() - 4, d.ub.end()), (std::vector<double>{2, 2, 4, 6}));
  EXPECT_EQ(row(d, 3), (Terms{{"i", 1}, {"k", -1}, {"Rgg_row", -1}}));
  // The objective constant is minus the RHS of the objective row; the free row "spare" is gone.
  EXPECT_EQ(d.sense, -1);
  EXPECT_EQ(d.objcon, 4.5);
  EXPECT_EQ(d.obj[1], 2);
}

TEST(MpsReaderTest, EveryBoundTypeAndNegativeUpperBounds) {
  auto m = read_file("ranges_bounds.mps");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  const std::vector<std::string> cols = {"x",  "i",  "j",  "ui", "k",  "mi", "bv",
                                         "li", "sc", "si", "fx", "fr", "big"};
  const std::vector<std::string> names = d.varname.all();
  ASSERT_EQ(std::vector<std::string>(names.begin(), names.begin() + 13), cols);
  // i: integer (marker) with UP -3 and no lower bound: the lower bound becomes -inf.
  // j: UP -1 then LO -8: the given lower bound stands. ui: UI -4 alone, likewise freed.
  const std::vector<double> lb = {0, -kInf, -8, -kInf, 0, -kInf, 0, 2, 1, 0, 2.5, -kInf, -kInf};
  const std::vector<double> ub = {kInf, -3, -1, -4, kInf, kInf, 1, kInf, 9, 20, 2.5, kInf, kInf};
  const std::vector<char> vt = {'C', 'I', 'I', 'I', 'C', 'C', 'B', 'I', 'S', 'N', 'C', 'C', 'C'};
  EXPECT_EQ(std::vector<double>(d.lb.begin(), d.lb.begin() + 13), lb);
  EXPECT_EQ(std::vector<double>(d.ub.begin(), d.ub.begin() + 13), ub);
  EXPECT_EQ(std::vector<char>(d.vtype.begin(), d.vtype.begin() + 13), vt);
}

// fixed_names.mps: names with blanks, told apart by column positions only.
TEST(MpsReaderTest, FixedColumnsAllowBlanksInNames) {
  auto m = read_file("fixed_names.mps");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.name, "fixed names");
  EXPECT_EQ(d.varname.all(), (std::vector<std::string>{"x one", "y-2 b"}));
  EXPECT_EQ(d.constrname.all(), (std::vector<std::string>{"cap one", "dem 2"}));
  EXPECT_EQ(d.obj, (std::vector<double>{1, 2.5}));
  EXPECT_EQ(d.vtype, (std::vector<char>{'C', 'I'}));
  EXPECT_EQ(d.lb, (std::vector<double>{-kInf, 0}));
  EXPECT_EQ(d.ub, (std::vector<double>{kInf, 3}));
  EXPECT_EQ(d.rhs, (std::vector<double>{4, 1.5}));
  EXPECT_EQ(row(d, 1), (Terms{{"x one", 1}, {"y-2 b", 3}}));
  // The RHS line with a blank vector name belongs to the one vector: the constant is 10.
  EXPECT_EQ(d.objcon, 10);
}

// Free lines with one-letter names fit inside the fixed name columns ("    x OBJ 1" has
// "x OBJ 1" in columns 5-12); they must still read as free, as our writer means them.
TEST(MpsReaderTest, ShortFreeNamesAreNotTakenForFixedNamesWithBlanks) {
  auto m = read_text(
      "NAME prod\nROWS\n N  OBJ\n L  c1\nCOLUMNS\n    x OBJ 1\n    x c1 1\n    y OBJ 2\n"
      "    y c1 3\nRHS\n    RHS c1 4\nENDATA\n");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.varname.all(), (std::vector<std::string>{"x", "y"}));
  EXPECT_EQ(d.obj, (std::vector<double>{1, 2}));
  EXPECT_EQ(row(d, 0), (Terms{{"x", 1}, {"y", 3}}));
  EXPECT_EQ(d.rhs, (std::vector<double>{4}));
}

TEST(MpsReaderTest, ObjectiveSenseAndObjectiveRowChoices) {
  const char* body =
      "ROWS\n N first\n N second\n L c\n"
      "COLUMNS\n x first 1 second 5\n x c 1\n"
      "RHS\n RHS c 4\nENDATA\n";
  auto a = read_text(std::string("NAME m MAX\n") + body);
  auto b = read_text(std::string("NAME m\nOBJSENSE MAXIMIZE\n") + body);
  auto c = read_text(std::string("NAME m\nOBJSENSE\n    MIN\nOBJNAME\n    second\n") + body);
  ASSERT_TRUE(a && b && c);
  EXPECT_EQ(a->data().name, "m");
  EXPECT_EQ(a->data().sense, -1);
  EXPECT_EQ(b->data().sense, -1);
  EXPECT_EQ(c->data().sense, 1);
  EXPECT_EQ(a->data().obj, (std::vector<double>{1}));
  EXPECT_EQ(c->data().obj, (std::vector<double>{5}));
}

// Objective 1/2 x'Qx with Q = [[2, 3], [3, -1]]: x^2 + 3 x y - 0.5 y^2, given as one triangle
// (QUADOBJ) or in full (QMATRIX). The constraint's QCMATRIX is x'Qx in full with
// Q = [[1, 1.5], [1.5, 0]]: x^2 + 3 x y.
TEST(MpsReaderTest, QuadraticSections) {
  const char* head =
      "NAME q\nROWS\n N obj\n L qc\nCOLUMNS\n x obj 1 qc 1\n y obj 1\nRHS\n RHS qc 4\n";
  const char* quadobj = "QUADOBJ\n x x 2\n y x 3\n y y -1\n";
  const char* qmatrix = "QMATRIX\n x x 2\n x y 3\n y x 3\n y y -1\n";
  const char* qc = "QCMATRIX   qc\n x x 1\n x y 1.5\n y x 1.5\nENDATA\n";
  auto a = read_text(std::string(head) + quadobj + qc);
  auto b = read_text(std::string(head) + qmatrix + qc);
  ASSERT_TRUE(a && b);
  for (const ModelData* d : {&a->data(), &b->data()}) {
    EXPECT_EQ(d->qrow, (std::vector<int>{0, 0, 1}));
    EXPECT_EQ(d->qcol, (std::vector<int>{0, 1, 1}));
    EXPECT_EQ(d->qval, (std::vector<double>{1, 3, -0.5}));
    EXPECT_EQ(d->num_constrs(), 0);
    ASSERT_EQ(d->num_qconstrs(), 1);
    EXPECT_EQ(d->qconstrs[0].name, "qc");
    EXPECT_EQ(d->qconstrs[0].lind, (std::vector<int>{0}));
    EXPECT_EQ(d->qconstrs[0].qval, (std::vector<double>{1, 3}));
    EXPECT_EQ(d->qconstrs[0].rhs, 4);
  }
}

TEST(MpsReaderErrorTest, ErrorsNameFileLineAndProblem) {
  const char* rows = "NAME m\nROWS\n N obj\n L c\nCOLUMNS\n x obj 1 c 1\n";
  expect_read_errors(read_text, {
      {"NAME m\nROWS\n N obj\nCOLUMNS\n x obj 1 nope 2\n", "File 'm.mps', line 5: unknown row 'nope'"},
      {"NAME m\nROWS\n N obj\nCOLUMNS\n x obj abc\n",
       "File 'm.mps', line 5: expected a number for the coefficient, found 'abc'"},
      {"NAME m\nROWS\n Q obj\n", "File 'm.mps', line 3: expected a row type N, L, G or E, found 'Q'"},
      {"NAME m\nFOO\n", "File 'm.mps', line 2: unknown section 'FOO'"},
      {" x obj 1\n", "File 'm.mps', line 1: expected a section header (NAME, ROWS, COLUMNS, ...) before 'x obj 1'"},
      {std::string(rows) + "BOUNDS\n UP BND y 4\n", "File 'm.mps', line 8: unknown column 'y'"},
      {std::string(rows) + "BOUNDS\n XX BND x 4\n",
       "File 'm.mps', line 8: expected a bound type UP, LO, FX, FR, MI, PL, BV, LI, UI, SC or SI, found 'xx'"},
      {std::string(rows) + "BOUNDS\n UP BND x\n", "File 'm.mps', line 8: expected a value for the up bound of 'x'"},
      {std::string(rows) + "RANGES\n RNG obj 4\n", "File 'm.mps', line 8: RANGES on the free row 'obj'"},
      {std::string(rows) + "ROWS\n L c\n", "File 'm.mps', line 8: row 'c' is defined twice"},
      {std::string(rows) + "GENCONS\n RV x\n",
       "File 'm.mps', line 8: GENCONS record before any 'GC name TYPE' header"},
      {std::string(rows) + "GENCONS\n GC g1 MAX\n OP x\nENDATA\n",
       "File 'm.mps', line 8: general constraint 'g1' has no RV record"},
      {std::string(rows) + "GENCONS\n GC g1 MAX\n PT 0 1\n",
       "File 'm.mps', line 9: record PT does not belong to a MAX constraint"},
      {std::string(rows) + "OBJECTIVES\n obj Priority=1\n",
       "File 'm.mps', line 8: objective 'obj' must be an N row other than the objective"},
  });
}

TEST(MpsReaderErrorTest, QuadraticRowsRefuseRanges) {
  Status s;
  auto m = read_text(
      "NAME m\nROWS\n N obj\n L qc\nCOLUMNS\n x qc 1\nRANGES\n R qc 2\nQCMATRIX qc\n x x 1\nENDATA\n", &s);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(s.message(), "File 'm.mps', line 8: RANGES on the quadratic constraint 'qc'");
}

// A fixed file whose names hold blanks fails early as free MPS; a mistake further down must be
// reported from the fixed reading, which got that far.
TEST(MpsReaderErrorTest, TheReadingThatGotFurtherReportsTheError) {
  std::string text =
      "NAME          n\n"
      "ROWS\n"
      " N  cost\n"
      " L  cap one\n"
      "COLUMNS\n"
      "    x one     cost      1\n"
      "    x one     cap one   1\n"
      "RHS\n"
      "    RHS       cap one   four\n"
      "ENDATA\n";
  Status s;
  auto m = read_text(text, &s);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(s.message(), "File 'm.mps', line 9: expected a number for the right-hand side, found 'four'");
  // The same file without the mistake reads.
  text.replace(text.find("four"), 4, "4");
  m = read_text(text);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->data().rhs, (std::vector<double>{4}));
}

}  // namespace
