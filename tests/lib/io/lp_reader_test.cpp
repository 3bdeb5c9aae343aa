// LP reading: files written by glpsol (glpk-utils), the syntax variants of hand-written
// files, the sections beyond linear programs, and parse errors with file, line and token.
//
// Not tested here: round trips of our own writer's files (file_format_test.cpp).
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "io/file_format.h"
#include "io/lp_reader.h"
#include "model/model.h"
#include "read_text.h"

namespace {

using vlm::Env;
using vlm::GenType;
using vlm::Model;
using vlm::ModelData;
using vlm::Status;

constexpr double kInf = VLM_INFINITY;

std::string data_file(const char* name) { return std::string(VELMOR_TEST_DATA_DIR) + "/" + name; }

// Reads LP text as file "m.lp"; `status` receives the outcome.
std::unique_ptr<Model> read_text(const std::string& text, Status* status = nullptr) {
  return read_model_text(vlm::io::read_lp, text, "m.lp", status);
}

// Row i as (variable name, coefficient) pairs in variable order.
std::vector<std::pair<std::string, double>> row(const ModelData& d, int i) {
  std::vector<std::pair<int, double>> t;
  for (std::size_t k = 0; k < d.rows[i].ind.size(); ++k) t.emplace_back(d.rows[i].ind[k], d.rows[i].val[k]);
  std::sort(t.begin(), t.end());
  std::vector<std::pair<std::string, double>> out;
  for (const auto& [j, v] : t) out.emplace_back(d.varname[j], v);
  return out;
}

using Terms = std::vector<std::pair<std::string, double>>;

// \* Problem: t1 *\ written by `glpsol --check -m t1.mod --wlp` from:
//   var x >= 0, <= 4;  var y >= -2;  var z integer >= 0, <= 10;  var b binary;  var f;
//   var w >= -3, <= -1;
//   maximize profit: 3*x + 2*y - z + 5*b + f + 7;
//   c1: x + y <= 8;  c2: x - z >= -1;  c3: x + 2*y + b = 3;  rng: -5 <= x + f <= 6;
//   c5: 2 <= y + w;  c6: f <= 10;
// glpsol writes the range as an equality with its own slack "~r_5", the binary as a general
// integer in [0, 1], and the objective constant only as a comment.
TEST(LpReaderTest, GlpsolMixedModelReadsAsWritten) {
  Env env;
  auto m = vlm::io::read_model_file(env, data_file("glpk_mix.lp"));
  ASSERT_TRUE(m.ok()) << m.status().message();
  const ModelData& d = m.value()->data();
  EXPECT_EQ(d.name, "t1");
  EXPECT_EQ(d.sense, -1);
  EXPECT_EQ(d.objcon, 0.0);
  EXPECT_EQ(d.varname.all(), (std::vector<std::string>{"x", "y", "z", "b", "f", "~r_5", "w"}));
  EXPECT_EQ(d.obj, (std::vector<double>{3, 2, -1, 5, 1, 0, 0}));
  EXPECT_EQ(d.lb, (std::vector<double>{0, -2, 0, 0, -kInf, 0, -3}));
  EXPECT_EQ(d.ub, (std::vector<double>{4, kInf, 10, 1, kInf, 11, -1}));
  EXPECT_EQ(d.vtype, (std::vector<char>{'C', 'C', 'I', 'I', 'C', 'C', 'C'}));
  EXPECT_EQ(d.constrname.all(), (std::vector<std::string>{"c1", "c2", "c3", "rng", "c5", "c6"}));
  EXPECT_EQ(d.csense, (std::vector<char>{'<', '>', '=', '=', '<', '<'}));
  EXPECT_EQ(d.rhs, (std::vector<double>{8, -1, 3, -5, -2, 10}));
  EXPECT_EQ(row(d, 2), (Terms{{"x", 1}, {"y", 2}, {"b", 1}}));
  EXPECT_EQ(row(d, 3), (Terms{{"x", 1}, {"f", 1}, {"~r_5", -1}}));
  EXPECT_EQ(row(d, 4), (Terms{{"y", -1}, {"w", -1}}));
}

// glpk_transport.lp, written by `glpsol --check -m tr.mod --wlp` from:
//   set I := {'sea', 'sf'};  set J := {'ny', 'chi', 'top'};  var x{I,J} >= 0;
//   minimize cost: sum{i in I, j in J} c[i,j] * x[i,j];
//   s.t. supply{i in I}: sum{j in J} x[i,j] <= a[i];
//   s.t. demand{j in J}: sum{i in I} x[i,j] >= b[j];
//   a = (350, 600), b = (325, 300, 275), c = ((2.5, 1.7, 1.8), (2.5, 1.8, 1.4)).
// glpsol's names for indexed variables and constraints hold ( , ): ordinary name characters
// outside General Constraints and PWLObj.
TEST(LpReaderTest, GlpsolTransportNamesKeepTheirParentheses) {
  Env env;
  auto m = vlm::io::read_model_file(env, data_file("glpk_transport.lp"));
  ASSERT_TRUE(m.ok()) << m.status().message();
  const ModelData& d = m.value()->data();
  EXPECT_EQ(d.name, "tr");
  EXPECT_EQ(d.sense, 1);
  EXPECT_EQ(d.varname.all(), (std::vector<std::string>{"x(sea,ny)", "x(sea,chi)", "x(sea,top)", "x(sf,ny)",
                                                 "x(sf,chi)", "x(sf,top)"}));
  EXPECT_EQ(d.obj, (std::vector<double>{2.5, 1.7, 1.8, 2.5, 1.8, 1.4}));
  EXPECT_EQ(d.constrname.all(), (std::vector<std::string>{"supply(sea)", "supply(sf)", "demand(ny)", "demand(chi)",
                                                    "demand(top)"}));
  EXPECT_EQ(d.rhs, (std::vector<double>{350, 600, 325, 300, 275}));
  EXPECT_EQ(d.csense, (std::vector<char>{'<', '<', '>', '>', '>'}));
  EXPECT_EQ(row(d, 3), (Terms{{"x(sea,chi)", 1}, {"x(sf,chi)", 1}}));
}

TEST(LpReaderTest, SyntaxVariantsOfHandWrittenFiles) {
  auto m = read_text(
      "\\ a comment line; the next header carries the objective on its own line\n"
      "MAXIMIZE 3x + 2 y - 0 z \\ trailing comment\n"
      "st\n"
      " c1: x + y =< 4\n"
      " c2: 2 >= x - y\n"
      " c3: x + 3 + y => 1 + z\n"
      " c4: x + x + y < 7\n"
      " -x + z > -1\n"
      " -x - z = -3\n"
      "Bounds\n"
      " x <= 10\n"
      "END\n"
      "anything after End is not read\n");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.sense, -1);
  EXPECT_EQ(d.varname.all(), (std::vector<std::string>{"x", "y", "z"}));
  EXPECT_EQ(d.obj, (std::vector<double>{3, 2, 0}));
  EXPECT_EQ(d.constrname.all(), (std::vector<std::string>{"c1", "c2", "c3", "c4", "R4", "R5"}));
  EXPECT_EQ(d.csense, (std::vector<char>{'<', '<', '>', '<', '>', '='}));
  EXPECT_EQ(d.rhs, (std::vector<double>{4, 2, -2, 7, -1, -3}));
  // "2 >= x - y" turns round; "x + 3 + y => 1 + z" moves z left and the constants right.
  EXPECT_EQ(row(d, 1), (Terms{{"x", 1}, {"y", -1}}));
  EXPECT_EQ(row(d, 2), (Terms{{"x", 1}, {"y", 1}, {"z", -1}}));
  EXPECT_EQ(row(d, 3), (Terms{{"x", 2}, {"y", 1}}));
  EXPECT_EQ(row(d, 5), (Terms{{"x", -1}, {"z", -1}}));
  EXPECT_EQ(d.ub[0], 10);
}

TEST(LpReaderTest, DoubleInequalitiesBecomeRangeConstraints) {
  auto m = read_text(
      "Minimize\n obj: x + y\n"
      "Subject To\n"
      " r1: -5 <= x + y <= 8\n"
      " r2: 8 >= x - y >= -2\n"
      " r3: 1 <= x + 2 y + 3 <= 10\n"
      "End\n");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.varname.all(), (std::vector<std::string>{"x", "y", "Rgr1", "Rgr2", "Rgr3"}));
  EXPECT_EQ(d.csense, (std::vector<char>{'=', '=', '='}));
  EXPECT_EQ(d.rhs, (std::vector<double>{-5, -2, -2}));
  EXPECT_EQ(d.ub, (std::vector<double>{kInf, kInf, 13, 10, 9}));
  EXPECT_EQ(row(d, 2), (Terms{{"x", 1}, {"y", 2}, {"Rgr3", -1}}));
}

TEST(LpReaderTest, BoundsAndTypeSections) {
  auto m = read_text(
      "Minimize\n obj: a + b + c + d + e + g + h\n"
      "Subject To\n"
      "Bounds\n"
      " a free\n"
      " b = 2\n"
      " -inf <= c <= 5\n"
      " d >= -3\n"
      " 3 >= e\n"
      " -1e30 <= g <= 1e31\n"
      " h <= -4\n"
      " newvar >= 1\n"
      "Binaries\n bin1 bin2\n"
      "Generals\n gen\n"
      "Semi-Continuous\n sc si\n"
      "General\n si\n"
      "Bounds\n bin2 <= 5\n sc <= 9\n"
      "End\n");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.varname.all(), (std::vector<std::string>{"a", "b", "c", "d", "e", "g", "h", "newvar", "bin1", "bin2",
                                                 "gen", "sc", "si"}));
  EXPECT_EQ(d.lb, (std::vector<double>{-kInf, 2, -kInf, -3, 0, -kInf, 0, 1, 0, 0, 0, 0, 0}));
  // A binary's upper bound is 1 unless the file gives one; "h <= -4" leaves h's lower bound.
  EXPECT_EQ(d.ub, (std::vector<double>{kInf, 2, 5, kInf, 3, kInf, -4, kInf, 1, 5, kInf, 9, kInf}));
  EXPECT_EQ(d.vtype, (std::vector<char>{'C', 'C', 'C', 'C', 'C', 'C', 'C', 'C', 'B', 'B', 'I', 'S', 'N'}));
}

TEST(LpReaderTest, QuadraticIndicatorAndGeneralConstraints) {
  auto m = read_text(
      "Minimize\n obj: x + [ 2 x ^ 2 + 4 x * y - y^2 ] / 2\n"
      "Subject To\n"
      " q1: x + [ x ^ 2 + 3 x * y ] <= 4\n"
      " q2: [ y ^ 2 ] >= x\n"
      " ind: b = 1 -> x + y <= 2\n"
      " b = 0 -> x >= 1\n"
      "Binary\n b\n"
      "General Constraints\n"
      " m: y = MAX(x, b, 2.5)\n"
      " e: y = EXP(x) FuncPieces=4  FuncPieceError=0.5\n"
      " n: y = NORM(1)(x,b)\n"
      "End\n");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.varname.all(), (std::vector<std::string>{"x", "y", "b"}));
  EXPECT_EQ(d.qrow, (std::vector<int>{0, 0, 1}));
  EXPECT_EQ(d.qcol, (std::vector<int>{0, 1, 1}));
  EXPECT_EQ(d.qval, (std::vector<double>{1, 2, -0.5}));
  ASSERT_EQ(d.num_qconstrs(), 2);
  EXPECT_EQ(d.qconstrs[0].qval, (std::vector<double>{1, 3}));
  EXPECT_EQ(d.qconstrs[0].rhs, 4);
  // [ y ^ 2 ] >= x keeps the quadratic side on the left: y^2 - x >= 0.
  EXPECT_EQ(d.qconstrs[1].lind, (std::vector<int>{0}));
  EXPECT_EQ(d.qconstrs[1].lval, (std::vector<double>{-1}));
  EXPECT_EQ(d.qconstrs[1].sense, '>');
  EXPECT_EQ(d.qconstrs[1].rhs, 0);
  ASSERT_EQ(d.num_genconstrs(), 5);
  const auto& ind = d.genconstrs[0];
  EXPECT_EQ(ind.type, GenType::kIndicator);
  EXPECT_EQ(ind.name, "ind");
  EXPECT_EQ(ind.res, 2);
  EXPECT_EQ(ind.binval, 1);
  EXPECT_EQ(ind.vars, (std::vector<int>{0, 1}));
  EXPECT_EQ(ind.sense, '<');
  EXPECT_EQ(ind.rhs, 2);
  EXPECT_EQ(d.genconstrs[1].name, "GC1");
  EXPECT_EQ(d.genconstrs[1].binval, 0);
  EXPECT_EQ(d.genconstrs[1].sense, '>');
  const auto& mx = d.genconstrs[2];
  EXPECT_EQ(mx.type, GenType::kMax);
  EXPECT_EQ(mx.res, 1);
  EXPECT_EQ(mx.vars, (std::vector<int>{0, 2}));
  EXPECT_EQ(mx.a, 2.5);
  EXPECT_EQ(d.genconstrs[3].type, GenType::kExp);
  EXPECT_EQ(d.genconstrs[3].options, "FuncPieces=4  FuncPieceError=0.5");
  EXPECT_EQ(d.genconstrs[4].type, GenType::kNorm);
  EXPECT_EQ(d.genconstrs[4].a, 1);
}

TEST(LpReaderTest, SosPwlObjectiveAndMultipleObjectives) {
  auto m = read_text(
      "Maximize multi-objectives\n"
      " OBJ0: Priority=2 Weight=1 AbsTol=0 RelTol=0.5\n"
      "  x + 2 y + 3\n"
      " Priority=1 Weight=-1 AbsTol=1e-3 RelTol=0\n"
      "  z\n"
      "Subject To\n c: x + y + z >= 1\n"
      "SOS\n s1: S1 :: x:1 y:2\n S2 :: y:1 z:2.5\n"
      "PWLObj\n z: (0, 0) (1, 1) (2,4)\n"
      "End\n");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.sense, -1);
  EXPECT_EQ(d.obj, (std::vector<double>{0, 0, 0}));
  ASSERT_EQ(d.objn.size(), 2u);
  EXPECT_EQ(d.objn[0].name, "OBJ0");
  EXPECT_EQ(d.objn[0].priority, 2);
  EXPECT_EQ(d.objn[0].reltol, 0.5);
  EXPECT_EQ(d.objn[0].con, 3);
  EXPECT_EQ(d.objn[0].coef, (std::vector<double>{1, 2, 0}));
  EXPECT_EQ(d.objn[1].name, "");
  EXPECT_EQ(d.objn[1].weight, -1);
  EXPECT_EQ(d.objn[1].abstol, 1e-3);
  EXPECT_EQ(d.objn[1].coef, (std::vector<double>{0, 0, 1}));
  ASSERT_EQ(d.num_sos(), 2);
  EXPECT_EQ(d.sos[0].type, 1);
  EXPECT_EQ(d.sos[0].ind, (std::vector<int>{0, 1}));
  EXPECT_EQ(d.sos[1].type, 2);
  EXPECT_EQ(d.sos[1].weight, (std::vector<double>{1, 2.5}));
  ASSERT_EQ(d.pwlobj.count(2), 1u);
  EXPECT_EQ(d.pwlobj.at(2).x, (std::vector<double>{0, 1, 2}));
  EXPECT_EQ(d.pwlobj.at(2).y, (std::vector<double>{0, 1, 4}));
}

// Names may hold every punctuation character the format allows, "/" included; a '/' divides
// only right after a quadratic bracket. A number glued to "e" and digits stays a number
// ("3e1" is 30) while "e1x" and "e12" after a blank are names.
TEST(LpReaderTest, NamesWithEveryAllowedCharacter) {
  auto m = read_text(
      "Minimize\n"
      " obj: flow/a + x!\"#$%&()y,.;?@_'{}~|` + 2 e1x + 3e1 z + [ flow/a ^ 2 ]/2\n"
      "Subject To\n"
      " c/1: flow/a + 2 e12 >= 1\n"
      " r.2: z - e1x <= 4\n"
      "Bounds\n"
      " -1 <= flow/a <= 9\n"
      "End\n");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.varname.all(),
            (std::vector<std::string>{"flow/a", "x!\"#$%&()y,.;?@_'{}~|`", "e1x", "z", "e12"}));
  EXPECT_EQ(d.obj, (std::vector<double>{1, 1, 2, 30, 0}));
  EXPECT_EQ(d.qval, (std::vector<double>{0.5}));
  EXPECT_EQ(d.constrname.all(), (std::vector<std::string>{"c/1", "r.2"}));
  EXPECT_EQ(row(d, 0), (Terms{{"flow/a", 1}, {"e12", 2}}));
  EXPECT_EQ(row(d, 1), (Terms{{"e1x", -1}, {"z", 1}}));
  EXPECT_EQ(d.lb[0], -1.0);
  EXPECT_EQ(d.ub[0], 9.0);
}

// A constant may follow a quadratic bracket (with or without divisor, in the objective and in
// constraints, also on a continuation line):
//   obj = x^2 + 3 (constant 3, Q = 1 on x*x after the /2),  c: x + x^2/2 + 3 <= 10 reads as
//   x + [x^2]/2 <= 7;  d: [x*y] + 4 >= 5 reads as [x*y] >= 1.
TEST(LpReaderTest, ConstantsAfterQuadraticBrackets) {
  auto m = read_text(
      "Minimize\n"
      " obj: [ 2 x ^ 2 ] / 2\n"
      "   + 3\n"
      "Subject To\n"
      " c: x + [ x ^ 2 ] / 2 + 3 <= 10\n"
      " d: [ x * y ] + 4 >= 5\n"
      "End\n");
  ASSERT_NE(m, nullptr);
  const ModelData& d = m->data();
  EXPECT_EQ(d.objcon, 3.0);
  EXPECT_EQ(d.qval, (std::vector<double>{1.0}));
  ASSERT_EQ(d.qconstrs.size(), 2u);
  EXPECT_EQ(d.qconstrs[0].rhs, 7.0);
  EXPECT_EQ(d.qconstrs[0].qval, (std::vector<double>{0.5}));
  EXPECT_EQ(d.qconstrs[0].lval, (std::vector<double>{1.0}));
  EXPECT_EQ(d.qconstrs[1].sense, '>');
  EXPECT_EQ(d.qconstrs[1].rhs, 1.0);
}

TEST(LpReaderErrorTest, ParseErrorsNameFileLineAndToken) {
  expect_read_errors(read_text, {
      {"Minimize\n obj: x + y\nSubject To\n c1: x + y z\nEnd\n",
       "File 'm.lp', line 4: expected a constraint sense '<=', '>=' or '=' after 'x + y', found 'z'"},
      {"x + y\nMinimize\n", "File 'm.lp', line 1: expected a section such as 'Minimize' or 'Subject To', found 'x'"},
      {"Minimize\n obj: [ x ^ 3 ]\n", "File 'm.lp', line 2: expected 2 after '^', found '3'"},
      {"Minimize\n obj: x +\nSubject To\n c: x <= 1\n",
       "File 'm.lp', line 2: expected a term after '+' or '-', found the end of the objective section"},
      {"Minimize\n obj: x\nSubject To\n c: x <=\nBounds\n",
       "File 'm.lp', line 4: expected a right-hand side after 'x <=', found the end of the Subject To section"},
      {"Minimize\n obj: x\nBounds\n x <= abc\n", "File 'm.lp', line 4: expected a number after 'x <=', found 'abc'"},
      {"Minimize\n obj: x\nGeneral Constraints\n g: y = FOO ( x )\n",
       "File 'm.lp', line 4: expected a function MAX, MIN, ABS, AND, OR, NORM, PWL, POLY, EXP, EXPA, LOG, "
       "LOGA, POW, SIN, COS, TAN or LOGISTIC, found 'FOO'"},
      {"Minimize\n obj: x\nSubject To\n r: 1 <= x + y >= 3\n",
       "File 'm.lp', line 4: expected a range 'lo <= expression <= hi' or 'hi >= expression >= lo', found "
       "'1 <= x + y >= 3'"},
      {"Minimize\n obj: x\nSOS\n s: S3 :: x:1\n",
       "File 'm.lp', line 4: expected an SOS set 'name: S1 :: x:1 y:2', found 's'"},
      {"Minimize\n obj: x\nMaximize\n obj: x\n", "File 'm.lp', line 3: expected one objective section, found a second"},
      {"Minimize\n obj: x\nSubject To\n b = 2 -> x <= 1\n",
       "File 'm.lp', line 4: expected 0 or 1 as the indicator value in 'b = 2'"},
      {"Minimize\n obj: x\nPWLObj\n x: (0, 0) (1 2)\n",
       "File 'm.lp', line 4: expected ',' between the values of a point, found '2'"},
  });
}

TEST(LpReaderErrorTest, ModelRefusalsBecomeFileErrors) {
  Status s;
  auto m = read_text("Minimize\n obj: x\nSubject To\n g: x = 1 -> y <= 2\nEnd\n", &s);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(s.code(), VLM_ERROR_FILE_READ);
  EXPECT_EQ(s.message(), "File 'm.lp': general constraint 'g': Indicator variable 0 must be binary");
  m = read_text("Minimize\n obj: x\nBounds\n x >= inf\nEnd\n", &s);
  EXPECT_EQ(s.code(), VLM_ERROR_FILE_READ);
  EXPECT_EQ(s.message(), "File 'm.lp': variables: Variable lower bound is +infinity");
}

}  // namespace
