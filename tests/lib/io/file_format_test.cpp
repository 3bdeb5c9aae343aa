// Model files as a whole: the round trip write -> read of a model holding every element kind
// through LP, free and fixed MPS, gzip and generic names; suffix dispatch; the C API entry
// points VLMreadmodel, VLMwrite, VLMismodelfile and VLMisattrfile.
//
// Not tested here: reading other writers' files and malformed input (lp_reader_test.cpp,
// mps_reader_test.cpp).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "io/file_format.h"
#include "io/lp_reader.h"
#include "io/lp_writer.h"
#include "io/mps_reader.h"
#include "io/mps_writer.h"
#include "model/model.h"
#include "same_model.h"
#include "velmor_c.h"

namespace {

using vlm::Env;
using vlm::GenConstrData;
using vlm::GenType;
using vlm::Model;
using vlm::ModelData;
using vlm::QConstrData;
using vlm::Status;
using vlm_test::expect_same_model;

std::string temp_path(const std::string& name) { return ::testing::TempDir() + "velmor_io_" + name; }

std::string file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void check(const Status& s) { ASSERT_TRUE(s.ok()) << s.message(); }

// The variables of the full model, by index.
enum V { x, y, z, b, b2, b3, s, n, f, w, neg, negub, bigub, r, unused, late, kNumVars };

// A model with every element kind, awkward numbers (0.1, 1/3, 1e-7), infinite bounds and
// right-hand sides, a binary without upper bound, a variable mentioned nowhere, and a range
// constraint (whose slack "Rgrng" comes last).
std::unique_ptr<Model> full_model(const Env& env) {
  auto m = std::make_unique<Model>(env, "roundtrip");
  const double inf = VLM_INFINITY;
  const char* names[] = {"x", "y", "z", "b", "b2", "b3", "s", "n", "f", "w", "neg", "negub",
                         "bigub", "r", "unused", "late"};
  const double lb[] = {0, -inf, -3, 0, 0, 0, 1, 2, -inf, 2.5, -5, 0, 0, -inf, 0, 0};
  const double ub[] = {10, 5, 7, 1, 1, 1, 9, 20, inf, 2.5, -1, -2, inf, inf, inf, inf};
  const double obj[] = {2, -0.1, 1.0 / 3.0, 0, 0, 0, 1e-7, 0, 0, 0, 4, 0, 0, 0, 0, 0};
  const char vtype[] = {'C', 'C', 'I', 'B', 'B', 'B', 'S', 'N', 'C', 'C', 'I', 'C', 'B', 'C', 'C', 'C'};
  check(m->add_vars(kNumVars, 0, nullptr, nullptr, nullptr, obj, lb, ub, vtype, names));
  check(m->update());

  const int beg[] = {0, 2, 4};
  const int ind[] = {x, y, x, z, x, y, b};
  const double val[] = {1, 1, 1, -1, 1, 2, 1};
  const char sense[] = {'<', '>', '='};
  const double rhs[] = {8, -1, 3};
  const char* cnames[] = {"c0", "c1", "c2"};
  check(m->add_constrs(3, 7, beg, ind, val, sense, rhs, cnames));
  const int rind[] = {x, f};
  const double rval[] = {1, 1};
  check(m->add_range_constr(2, rind, rval, -5, 6, "rng"));
  const char esense = '>';
  const double erhs = -1;
  const char* ename = "empty";
  const int ebeg = 0;
  check(m->add_constrs(1, 0, &ebeg, nullptr, nullptr, &esense, &erhs, &ename));
  const int lind[] = {x, y};
  const double lval[] = {0.5, 1e-7};
  const char lsense = '<';
  const double lrhs = inf;
  const char* lname = "loose";
  check(m->add_constrs(1, 2, &ebeg, lind, lval, &lsense, &lrhs, &lname));

  QConstrData q0;
  q0.name = "qc0";
  q0.lind = {x};
  q0.lval = {1};
  q0.qrow = {x, x};
  q0.qcol = {x, y};
  q0.qval = {1, 2};
  q0.sense = '<';
  q0.rhs = 4;
  check(m->add_qconstr(q0));
  QConstrData q1;
  q1.name = "qc1";
  q1.qrow = {z, f};
  q1.qcol = {z, w};
  q1.qval = {1, -0.3};
  q1.sense = '>';
  q1.rhs = 1;
  check(m->add_qconstr(q1));
  QConstrData q2;
  q2.name = "qc2";
  q2.lind = {x, y};
  q2.lval = {1, 1};
  q2.sense = '=';
  q2.rhs = 3;
  check(m->add_qconstr(q2));

  const int types[] = {1, 2};
  const int sbeg[] = {0, 2};
  const int sind[] = {x, y, z, f, w};
  const double swt[] = {1, 2, 1, 2.5, 3};
  check(m->add_sos(2, 5, types, sbeg, sind, swt));

  auto gen = [&](GenType t, const char* name, int res, int arg, std::vector<int> vars,
                 std::vector<double> vals, double a, const char* options = "") {
    GenConstrData g;
    g.type = t;
    g.name = name;
    g.res = res;
    g.arg = arg;
    g.vars = std::move(vars);
    g.vals = std::move(vals);
    g.a = a;
    g.options = options;
    return g;
  };
  check(m->add_genconstr(gen(GenType::kMax, "gmax", r, -1, {x, y}, {}, 3)));
  check(m->add_genconstr(gen(GenType::kMin, "gmin", r, -1, {x, z}, {}, inf)));
  check(m->add_genconstr(gen(GenType::kAbs, "gabs", r, y, {}, {}, 0)));
  check(m->add_genconstr(gen(GenType::kAnd, "gand", b3, -1, {b, b2}, {}, 0)));
  check(m->add_genconstr(gen(GenType::kOr, "gor", b3, -1, {b, b2}, {}, 0)));
  check(m->add_genconstr(gen(GenType::kNorm, "gnorm", r, -1, {x, y}, {}, 2)));
  check(m->add_genconstr(gen(GenType::kNorm, "gnorminf", r, -1, {x, f}, {}, inf)));
  GenConstrData ind1 = gen(GenType::kIndicator, "gind1", b, -1, {x, y}, {1, 2}, 0);
  ind1.binval = 1;
  ind1.sense = '<';
  ind1.rhs = 3;
  check(m->add_genconstr(ind1));
  GenConstrData ind0 = gen(GenType::kIndicator, "gind0", b2, -1, {z, f}, {1, -1}, 0);
  ind0.binval = 0;
  ind0.sense = '=';
  ind0.rhs = 0.5;
  check(m->add_genconstr(ind0));
  GenConstrData pwl = gen(GenType::kPwl, "gpwl", y, x, {}, {0, 1, 1, 4}, 0);
  pwl.ypts = {0, 2, 3, 3.5};
  check(m->add_genconstr(pwl));
  check(m->add_genconstr(gen(GenType::kPoly, "gpoly", r, x, {}, {1, 0, -2.5}, 0, "FuncPieces=3")));
  check(m->add_genconstr(gen(GenType::kExp, "gexp", r, x, {}, {}, 0, "FuncPieces=5 FuncPieceError=0.01")));
  check(m->add_genconstr(gen(GenType::kExpA, "gexpa", r, x, {}, {}, 2)));
  check(m->add_genconstr(gen(GenType::kLog, "glog", r, x, {}, {}, 0)));
  check(m->add_genconstr(gen(GenType::kLogA, "gloga", r, x, {}, {}, 10, "FuncPieceLength=0.1")));
  check(m->add_genconstr(gen(GenType::kPow, "gpow", r, x, {}, {}, 1.5)));
  check(m->add_genconstr(gen(GenType::kSin, "gsin", r, x, {}, {}, 0)));
  check(m->add_genconstr(gen(GenType::kCos, "gcos", r, x, {}, {}, 0)));
  check(m->add_genconstr(gen(GenType::kTan, "gtan", r, x, {}, {}, 0)));
  check(m->add_genconstr(gen(GenType::kLogistic, "glogist", r, x, {}, {}, 0)));

  const int qi[] = {x, x, z};
  const int qj[] = {x, y, f};
  const double qv[] = {1.5, -0.5, 0.25};
  check(m->add_qpterms(3, qi, qj, qv));
  const double px[] = {0, 1, 3}, py[] = {0, 2, 3};
  check(m->set_pwlobj(x, 3, px, py));
  const double zx[] = {-3, 7}, zy[] = {1, 0};
  check(m->set_pwlobj(z, 2, zx, zy));
  const int oind[] = {x, y};
  const double oval[] = {1, 2};
  check(m->set_objectiven(0, 2, 1.5, 0.01, 0.1, "Profit", 7, 2, oind, oval));
  const int lateind[] = {late};
  const double lateval[] = {1};
  check(m->set_objectiven(1, 1, 1, 1e-6, 0, nullptr, 0, 1, lateind, lateval));
  m->queue_change([](ModelData& d) {
    d.sense = -1;
    d.objcon = 5.5;
  });
  check(m->update());
  return m;
}

class ModelFileTest : public ::testing::Test {
 protected:
  void SetUp() override { model_ = full_model(env_); }

  // Writes the model to `name` and reads it back.
  std::unique_ptr<Model> round_trip(const std::string& name) {
    const std::string path = temp_path(name);
    Status s = vlm::io::write_model_file(model_->data(), path);
    EXPECT_TRUE(s.ok()) << s.message();
    auto back = vlm::io::read_model_file(env_, path);
    EXPECT_TRUE(back.ok()) << back.status().message() << "\n" << file_bytes(path);
    std::remove(path.c_str());
    return back.ok() ? std::move(back.value()) : nullptr;
  }

  Env env_;
  std::unique_ptr<Model> model_;
};

TEST_F(ModelFileTest, FullModelIsWhatWasBuilt) {
  const ModelData& d = model_->data();
  ASSERT_EQ(d.num_vars(), kNumVars + 1);
  EXPECT_EQ(d.varname[d.num_vars() - 1], "Rgrng");
  EXPECT_EQ(d.num_constrs(), 6);
  EXPECT_EQ(d.num_qconstrs(), 3);
  EXPECT_EQ(d.num_sos(), 2);
  EXPECT_EQ(d.num_genconstrs(), 20);
  EXPECT_EQ(d.objn.size(), 2u);
  EXPECT_EQ(d.rhs[5], VLM_INFINITY);
}

TEST_F(ModelFileTest, LpRoundTripKeepsEveryElement) {
  auto back = round_trip("full.lp");
  ASSERT_NE(back, nullptr);
  expect_same_model(model_->data(), back->data());
}

TEST_F(ModelFileTest, FreeMpsRoundTripKeepsEveryElement) {
  auto back = round_trip("full.mps");
  ASSERT_NE(back, nullptr);
  expect_same_model(model_->data(), back->data());
}

TEST_F(ModelFileTest, FixedMpsRoundTripKeepsEveryElement) {
  std::ostringstream out;
  check(vlm::io::write_mps(model_->data(), out, vlm::io::MpsLayout::kFixed, false));
  const std::string text = out.str();
  // Field 3 of a COLUMNS line starts in column 15.
  EXPECT_NE(text.find("\n    x         c0        1\n"), std::string::npos) << text;
  vlm::io::ReadModel rm;
  check(vlm::io::read_mps(text, "full.mps", rm));
  Model back(env_, rm.data.name);
  check(vlm::io::build_model(rm, "full.mps", back));
  expect_same_model(model_->data(), back.data());
}

TEST_F(ModelFileTest, GzipFilesAreCompressedAndReadBack) {
  for (const char* name : {"full.lp.gz", "full.mps.gz", "FULL.MPS.GZ"}) {
    const std::string path = temp_path(name);
    check(vlm::io::write_model_file(model_->data(), path));
    const std::string bytes = file_bytes(path);
    ASSERT_GE(bytes.size(), 2u);
    EXPECT_EQ(static_cast<unsigned char>(bytes[0]), 0x1f) << name;
    EXPECT_EQ(static_cast<unsigned char>(bytes[1]), 0x8b) << name;
    auto back = vlm::io::read_model_file(env_, path);
    ASSERT_TRUE(back.ok()) << back.status().message();
    expect_same_model(model_->data(), back.value()->data());
    std::remove(path.c_str());
  }
}

TEST_F(ModelFileTest, ReadingDoesNotDependOnUpdateMode) {
  // With UpdateMode 0 new variables cannot be used before an update: the reader must update
  // between adding the variables and the constraints that use them.
  auto index = env_.params().lookup("UpdateMode");
  ASSERT_TRUE(index.ok());
  check(env_.set_param_int(*index, 0));
  for (const char* name : {"mode0.lp", "mode0.mps"}) {
    auto back = round_trip(name);
    ASSERT_NE(back, nullptr) << name;
    expect_same_model(model_->data(), back->data());
  }
}

TEST_F(ModelFileTest, GenericNamesReplaceTheUsersNames) {
  ModelData expected = model_->data();
  expected.name.clear();
  for (int j = 0; j < expected.num_vars(); ++j) expected.varname.set(j, "C" + std::to_string(j));
  for (int i = 0; i < expected.num_constrs(); ++i) expected.constrname.set(i, "R" + std::to_string(i));
  for (int i = 0; i < expected.num_qconstrs(); ++i) expected.qconstrs[i].name = "QC" + std::to_string(i);
  for (int i = 0; i < expected.num_genconstrs(); ++i) expected.genconstrs[i].name = "GC" + std::to_string(i);
  for (std::size_t k = 0; k < expected.objn.size(); ++k) expected.objn[k].name = "OBJ" + std::to_string(k);
  for (const char* name : {"generic.rlp", "generic.rew", "generic.rew.gz"}) {
    auto back = round_trip(name);
    ASSERT_NE(back, nullptr) << name;
    expect_same_model(expected, back->data());
  }
}

TEST_F(ModelFileTest, LpTextIsTheDocumentedForm) {
  std::ostringstream out;
  check(vlm::io::write_lp(model_->data(), out, false));
  const std::string text = out.str();
  for (const char* piece : {
           "\\ Model: roundtrip\nMaximize multi-objectives\n obj: 2 x - 0.1 y + 0.3333333333333333 z",
           "[ 3 x ^ 2 - x * y + 0.5 z * f ] / 2 + 5.5\n",
           " Profit: Priority=2 Weight=1.5 AbsTol=0.01 RelTol=0.1\n  x + 2 y + 7\n",
           "  Priority=1 Weight=1 AbsTol=1e-06 RelTol=0\n  late\n",
           " rng: x + f - Rgrng = -5\n", " empty: 0 >= -1\n", " loose: 0.5 x + 1e-07 y <= inf\n",
           " qc1: [ z ^ 2 - 0.3 f * w ] >= 1\n", " qc2: x + y + [ ] = 3\n",
           " -inf <= y <= 5\n", " -3 <= z <= 7\n", " f free\n", " w = 2.5\n", " bigub <= inf\n",
           " s0: S1 :: x:1 y:2\n", " x: (0, 0) (1, 2) (3, 3)\n",
           " gmax: r = MAX ( x , y , 3 )\n", " gmin: r = MIN ( x , z )\n",
           " gnorminf: r = NORM ( inf ) ( x , f )\n", " gind0: b2 = 0 -> z - f = 0.5\n",
           " gpwl: y = PWL ( x ) : (0, 0) (1, 2) (1, 3) (4, 3.5)\n",
           " gpoly: r = POLY ( x ) : (1, 0, -2.5) FuncPieces=3\n",
           " gexpa: r = EXPA ( x ) 2\n", " gloga: r = LOGA ( x ) 10 FuncPieceLength=0.1\n",
           "Semi-Continuous\n s\n n\n", "\nEnd\n"}) {
    EXPECT_NE(text.find(piece), std::string::npos) << "missing: " << piece << "\nin:\n" << text;
  }
  // "unused" appears nowhere else, so the objective must name it (with coefficient 0).
  EXPECT_NE(text.find("+ 0 unused"), std::string::npos) << text;
}

TEST(ModelFileOrderTest, VariablesMentionedOutOfOrderKeepTheirIndices) {
  // The constraint names c before a and b; a writer that relied on first mention alone would
  // renumber them.
  Env env;
  Model m(env, "order");
  const char* names[] = {"a", "b", "c"};
  check(m.add_vars(3, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, names));
  check(m.update());
  const int beg = 0, ind[] = {2, 0, 1};
  const double val[] = {1, 1, 1}, rhs = 1;
  const char sense = '<';
  check(m.add_constrs(1, 3, &beg, ind, val, &sense, &rhs, nullptr));
  check(m.update());
  std::ostringstream out;
  check(vlm::io::write_lp(m.data(), out, false));
  vlm::io::ReadModel rm;
  check(vlm::io::read_lp(out.str(), "order.lp", rm));
  EXPECT_EQ(rm.data.varname.all(), (std::vector<std::string>{"a", "b", "c"})) << out.str();
}

TEST(ModelFileSuffixTest, SuffixesChooseTheFormat) {
  using vlm::io::ModelFormat;
  struct Case {
    const char* name;
    bool model;
    ModelFormat format;
    bool generic, gzip;
  } cases[] = {{"m.lp", true, ModelFormat::kLp, false, false},
               {"dir.v2/m.MPS", true, ModelFormat::kMps, false, false},
               {"m.mps.gz", true, ModelFormat::kMps, false, true},
               {"m.rlp", true, ModelFormat::kLp, true, false},
               {"m.rew.GZ", true, ModelFormat::kMps, true, true},
               {"m.lp.bz2", false, ModelFormat::kLp, false, false},
               {"lp", false, ModelFormat::kLp, false, false},
               {"dir.lp/model", false, ModelFormat::kLp, false, false}};
  for (const Case& c : cases) {
    auto t = vlm::io::model_file_type(c.name);
    EXPECT_EQ(t.has_value(), c.model) << c.name;
    EXPECT_EQ(VLMismodelfile(c.name), c.model ? 1 : 0) << c.name;
    if (t && c.model) {
      EXPECT_EQ(t->format, c.format) << c.name;
      EXPECT_EQ(t->generic_names, c.generic) << c.name;
      EXPECT_EQ(t->gzip, c.gzip) << c.name;
    }
  }
  for (const char* name : {"a.attr", "a.sol", "a.mst.gz", "a.hnt", "a.bas", "a.ord", "a.JSON"}) {
    EXPECT_EQ(VLMisattrfile(name), 1) << name;
    EXPECT_EQ(VLMismodelfile(name), 0) << name;
  }
  for (const char* name : {"a.lp", "a.prm", "a.attrx", "attr"}) EXPECT_EQ(VLMisattrfile(name), 0) << name;
  EXPECT_EQ(VLMismodelfile(nullptr), 0);
  EXPECT_EQ(VLMisattrfile(nullptr), 0);
}

TEST(ModelFileErrorTest, MissingFileAndUnknownSuffix) {
  Env env;
  auto missing = vlm::io::read_model_file(env, temp_path("does_not_exist.mps"));
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.status().code(), VLM_ERROR_FILE_READ);
  EXPECT_EQ(missing.status().message(), "Unable to open file '" + temp_path("does_not_exist.mps") +
                                            "' for reading: No such file or directory");
  auto unknown = vlm::io::read_model_file(env, "model.foo");
  ASSERT_FALSE(unknown.ok());
  EXPECT_EQ(unknown.status().code(), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(unknown.status().message().find("Unknown file type for file 'model.foo'"), std::string::npos);
  Status s = vlm::io::write_model_file(ModelData(), "/nonexistent-dir/m.lp");
  EXPECT_EQ(s.code(), VLM_ERROR_FILE_WRITE);
  EXPECT_NE(s.message().find("Unable to open file '/nonexistent-dir/m.lp' for writing"), std::string::npos);
}

TEST(MpsWriterTest, NamesThatCannotBeRepresentedAreRefused) {
  Env env;
  Model m(env, "");
  const char* same[] = {"x", "x"};
  check(m.add_vars(2, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, same));
  check(m.update());
  std::ostringstream out;
  Status dup = vlm::io::write_mps(m.data(), out, vlm::io::MpsLayout::kAuto, false);
  EXPECT_EQ(dup.code(), VLM_ERROR_FILE_WRITE);
  EXPECT_EQ(dup.message(), "Unable to write MPS: variables 0 and 1 are both named 'x'");
  // Generic names are always representable.
  EXPECT_TRUE(vlm::io::write_mps(m.data(), out, vlm::io::MpsLayout::kAuto, true).ok());

  Model blanks(env, "");
  const char* spaced[] = {"long name!"};
  check(blanks.add_vars(1, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, spaced));
  check(blanks.update());
  Status s = vlm::io::write_mps(blanks.data(), out, vlm::io::MpsLayout::kAuto, false);
  EXPECT_EQ(s.code(), VLM_ERROR_FILE_WRITE);
  EXPECT_NE(s.message().find("'long name!' is longer than the 8 characters fixed MPS allows"), std::string::npos)
      << s.message();
  s = vlm::io::write_mps(blanks.data(), out, vlm::io::MpsLayout::kFree, false);
  EXPECT_EQ(s.code(), VLM_ERROR_FILE_WRITE);
  EXPECT_NE(s.message().find("contains a blank"), std::string::npos) << s.message();
}

TEST(MpsWriterTest, NamesWithBlanksAreWrittenFixedAndReadBack) {
  Env env;
  Model m(env, "odd names");
  const char* names[] = {"x one", "y*2 [b]", "-z"};
  const double obj[] = {1, 2, 3};
  check(m.add_vars(3, 0, nullptr, nullptr, nullptr, obj, nullptr, nullptr, nullptr, names));
  check(m.update());
  const int beg = 0, ind[] = {0, 1, 2};
  const double val[] = {1, -1, 0.5}, rhs = 2;
  const char sense = '>';
  const char* cname = "row 1";
  check(m.add_constrs(1, 3, &beg, ind, val, &sense, &rhs, &cname));
  check(m.update());
  std::ostringstream out;
  check(vlm::io::write_mps(m.data(), out, vlm::io::MpsLayout::kAuto, false));
  EXPECT_NE(out.str().find("\n    x one     row 1     1\n"), std::string::npos) << out.str();
  vlm::io::ReadModel rm;
  check(vlm::io::read_mps(out.str(), "odd.mps", rm));
  Model back(env, rm.data.name);
  check(vlm::io::build_model(rm, "odd.mps", back));
  expect_same_model(m.data(), back.data());
}

class ModelFileCApiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(VLMemptyenv(&env_), VLM_OK);
    ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 0), VLM_OK);
    ASSERT_EQ(VLMstartenv(env_), VLM_OK);
  }
  void TearDown() override {
    VLMfreemodel(model_);
    VLMfreeenv(env_);
  }
  VLMenv* env_ = nullptr;
  VLMmodel* model_ = nullptr;
};

TEST_F(ModelFileCApiTest, WriteUpdatesThenReadModelGivesTheSameModel) {
  ASSERT_EQ(VLMnewmodel(env_, &model_, "capi", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  ASSERT_EQ(VLMaddvar(model_, 0, nullptr, nullptr, 1.5, -1, 4, 'I', "x"), VLM_OK);
  ASSERT_EQ(VLMaddvar(model_, 0, nullptr, nullptr, 0, 0, 1, 'B', "y"), VLM_OK);
  const int ind[] = {0, 1};
  const double val[] = {2, 3};
  ASSERT_EQ(VLMaddconstr(model_, 2, ind, val, '<', 5, "c"), VLM_OK);
  // Not updated yet: VLMwrite runs the update first.
  const std::string path = temp_path("capi.lp");
  ASSERT_EQ(VLMwrite(model_, path.c_str()), VLM_OK) << VLMgetmerrormsg(model_);
  VLMmodel* back = nullptr;
  ASSERT_EQ(VLMreadmodel(env_, path.c_str(), &back), VLM_OK) << VLMgeterrormsg(env_);
  ASSERT_NE(back, nullptr);
  int nv = 0, nc = 0;
  EXPECT_EQ(VLMgetintattr(back, "NumVars", &nv), VLM_OK);
  EXPECT_EQ(VLMgetintattr(back, "NumConstrs", &nc), VLM_OK);
  EXPECT_EQ(nv, 2);
  EXPECT_EQ(nc, 1);
  char* name = nullptr;
  EXPECT_EQ(VLMgetstrattr(back, "ModelName", &name), VLM_OK);
  EXPECT_STREQ(name, "capi");
  double coef = 0;
  EXPECT_EQ(VLMgetcoeff(back, 0, 1, &coef), VLM_OK);
  EXPECT_EQ(coef, 3.0);
  VLMfreemodel(back);
  std::remove(path.c_str());
}

TEST_F(ModelFileCApiTest, ReadModelFailuresLeaveNoModel) {
  const std::string path = temp_path("broken.lp");
  {
    std::ofstream out(path);
    out << "Minimize\n obj: x + y\nSubject To\n c1: x + y z\nEnd\n";
  }
  int sentinel = 0;
  VLMmodel* m = reinterpret_cast<VLMmodel*>(&sentinel);  // must be overwritten with NULL
  EXPECT_EQ(VLMreadmodel(env_, path.c_str(), &m), VLM_ERROR_FILE_READ);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(std::string(VLMgeterrormsg(env_)),
            "File '" + path +
                "', line 4: expected a constraint sense '<=', '>=' or '=' after 'x + y', found 'z'");
  std::remove(path.c_str());

  EXPECT_EQ(VLMreadmodel(env_, "nowhere.mps", &m), VLM_ERROR_FILE_READ);
  EXPECT_STREQ(VLMgeterrormsg(env_), "Unable to open file 'nowhere.mps' for reading: No such file or directory");
  EXPECT_EQ(VLMreadmodel(env_, nullptr, &m), VLM_ERROR_NULL_ARGUMENT);
  EXPECT_EQ(VLMreadmodel(nullptr, "x.lp", &m), VLM_ERROR_NULL_ARGUMENT);
}

TEST_F(ModelFileCApiTest, WriteDispatchesOtherSuffixes) {
  ASSERT_EQ(VLMnewmodel(env_, &model_, "m", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  EXPECT_EQ(VLMwrite(model_, "x.foo"), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(VLMgetmerrormsg(model_), "Unknown file type for file 'x.foo'");
  EXPECT_EQ(VLMwrite(model_, "x.prm.gz"), VLM_ERROR_NOT_SUPPORTED);
  EXPECT_NE(std::string(VLMgetmerrormsg(model_)).find("x.prm.gz"), std::string::npos);
  EXPECT_EQ(VLMwrite(model_, nullptr), VLM_ERROR_NULL_ARGUMENT);
  EXPECT_EQ(VLMwrite(nullptr, "x.lp"), VLM_ERROR_NULL_ARGUMENT);

  // Parameters are the model's own: the change on the model's environment is what is written.
  ASSERT_EQ(VLMsetintparam(VLMgetenv(model_), "Threads", 3), VLM_OK);
  const std::string prm = temp_path("params.prm");
  ASSERT_EQ(VLMwrite(model_, prm.c_str()), VLM_OK) << VLMgetmerrormsg(model_);
  const std::string text = file_bytes(prm);
  EXPECT_NE(text.find("Threads  3"), std::string::npos) << text;
  std::remove(prm.c_str());
}

}  // namespace
