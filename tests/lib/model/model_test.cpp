// The model store through the C API: queued changes and update, the UpdateMode rule, deletion
// and renumbering, range constraints, readers, name lookup and input checks.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

class ModelTest : public ModelFixture {
 protected:
  std::string strelem(const char* name, int i) {
    char* v = nullptr;
    EXPECT_EQ(VLMgetstrattrelement(m_, name, i, &v), VLM_OK) << VLMgetmerrormsg(m_);
    return v ? v : "";
  }
  // Adds n continuous variables x0..x{n-1} in [0, 10] and updates.
  void add_vars(int n) {
    for (int i = 0; i < n; ++i) {
      std::string name = "x" + std::to_string(i);
      ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1.0 + i, 0.0, 10.0, 'C', name.c_str()), VLM_OK);
    }
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  }

};

TEST_F(ModelTest, AdditionsWaitForTheUpdate) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 2.0, -1.0, 5.0, 'I', "a"), VLM_OK);
  EXPECT_EQ(intattr("NumVars"), 0);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumVars"), 1);
  EXPECT_EQ(intattr("NumIntVars"), 1);
  EXPECT_EQ(dblelem("LB", 0), -1.0);
  EXPECT_EQ(dblelem("UB", 0), 5.0);
  EXPECT_EQ(dblelem("Obj", 0), 2.0);
  EXPECT_EQ(strelem("VarName", 0), "a");
  char t = 0;
  ASSERT_EQ(VLMgetcharattrelement(m_, "VType", 0, &t), VLM_OK);
  EXPECT_EQ(t, 'I');
}

TEST_F(ModelTest, ImmediateUpdateModeAllowsFutureIndicesOnlyInThatMode) {
  // x0 and x1 are new: constraint x0 + x1 <= 4 refers to them before the update.
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 1e100, 'C', nullptr), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 1e100, 'C', nullptr), VLM_OK);
  const int ind[] = {0, 1};
  const double val[] = {1.0, 1.0};
  ASSERT_EQ(VLMaddconstr(m_, 2, ind, val, '<', 4.0, "c"), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumConstrs"), 1);
  EXPECT_EQ(intattr("NumNZs"), 2);
  EXPECT_EQ(strelem("VarName", 1), "C1");

  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "UpdateMode", 0), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 1e100, 'C', nullptr), VLM_OK);
  const int ind2[] = {2};
  EXPECT_EQ(VLMaddconstr(m_, 1, ind2, val, '<', 1.0, nullptr), VLM_ERROR_INDEX_OUT_OF_RANGE);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("Variable index 2 is out of range"), std::string::npos);
  EXPECT_EQ(VLMsetdblattrelement(m_, "UB", 2, 3.0), VLM_ERROR_INDEX_OUT_OF_RANGE);
}

TEST_F(ModelTest, UnnamedElementsShowTheirCurrentIndexAndNamesMixFreely) {
  ASSERT_EQ(VLMaddvars(m_, 4, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  const char* names[] = {"a", nullptr};
  ASSERT_EQ(VLMaddvars(m_, 2, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, names), VLM_OK);
  const int ind[] = {0};
  const double val[] = {1.0};
  ASSERT_EQ(VLMaddconstr(m_, 1, ind, val, '<', 1.0, nullptr), VLM_OK);
  ASSERT_EQ(VLMaddrangeconstr(m_, 1, ind, val, 0.0, 2.0, nullptr), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(strelem("VarName", 3), "C3");
  EXPECT_EQ(strelem("VarName", 4), "a");
  EXPECT_EQ(strelem("VarName", 5), "C5");
  EXPECT_EQ(strelem("VarName", 6), "RgR1");
  EXPECT_EQ(strelem("ConstrName", 1), "R1");

  // Deleting renumbers the unnamed ones; own names stay, and lookup finds both kinds.
  const int del[] = {0, 2};
  ASSERT_EQ(VLMdelvars(m_, 2, del), VLM_OK);
  // Changes of a batch apply before its deletions: index 1 is the old numbering.
  ASSERT_EQ(VLMsetstrattrelement(m_, "VarName", 1, "first"), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  std::vector<std::string> shown;
  for (int j = 0; j < intattr("NumVars"); ++j) shown.push_back(strelem("VarName", j));
  EXPECT_EQ(shown, (std::vector<std::string>{"first", "C1", "a", "C3", "RgR1"}));
  int found = -1;
  ASSERT_EQ(VLMgetvarbyname(m_, "C3", &found), VLM_OK);
  EXPECT_EQ(found, 3);
  ASSERT_EQ(VLMgetvarbyname(m_, "a", &found), VLM_OK);
  EXPECT_EQ(found, 2);
  // An empty name gives the element its default name back.
  ASSERT_EQ(VLMsetstrattrelement(m_, "VarName", 0, ""), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(strelem("VarName", 0), "C0");
}

TEST_F(ModelTest, AttributeWritesAreQueuedAndApplyInOrder) {
  add_vars(2);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 3.0), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 4.0), VLM_OK);
  ASSERT_EQ(VLMsetstrattrelement(m_, "VarName", 1, "renamed"), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  EXPECT_EQ(dblelem("UB", 0), 10.0);
  EXPECT_EQ(intattr("ModelSense"), 1);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(dblelem("UB", 0), 4.0);
  EXPECT_EQ(strelem("VarName", 1), "renamed");
  EXPECT_EQ(intattr("ModelSense"), -1);
  int idx = -2;
  ASSERT_EQ(VLMgetvarbyname(m_, "renamed", &idx), VLM_OK);
  EXPECT_EQ(idx, 1);
  ASSERT_EQ(VLMgetvarbyname(m_, "x1", &idx), VLM_OK);
  EXPECT_EQ(idx, -1);
  // Infinite bounds are stored as exactly the library's infinity.
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 1e300), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(dblelem("UB", 0), VLM_INFINITY);
}

TEST_F(ModelTest, BadAttributeAccessIsRefusedWithClearCodes) {
  add_vars(1);
  double v = 0;
  EXPECT_EQ(VLMgetdblattrelement(m_, "NoSuch", 0, &v), VLM_ERROR_UNKNOWN_ATTRIBUTE);
  EXPECT_EQ(VLMgetdblattrelement(m_, "X", 0, &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "Unable to retrieve attribute 'X'");
  EXPECT_EQ(VLMsetdblattrelement(m_, "X", 0, 1.0), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "Attribute 'X' cannot be set");
  EXPECT_EQ(VLMgetdblattrelement(m_, "LB", 5, &v), VLM_ERROR_INDEX_OUT_OF_RANGE);
  int i = 0;
  EXPECT_EQ(VLMgetintattrelement(m_, "LB", 0, &i), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(VLMsetcharattrelement(m_, "VType", 0, 'Q'), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(VLMsetdblattrelement(m_, "LB", 0, std::nan("")), VLM_ERROR_INVALID_ARGUMENT);
  // A list write with one bad value keeps none of them.
  const int ind[] = {0, 0};
  const double vals[] = {2.0, std::nan("")};
  EXPECT_EQ(VLMsetdblattrlist(m_, "UB", 2, ind, vals), VLM_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(dblelem("UB", 0), 10.0);
}

TEST_F(ModelTest, ExtraColumnsKeepInputsWithTheirDefaults) {
  add_vars(3);
  EXPECT_EQ(dblelem("Start", 2), VLM_UNDEFINED);
  int force = 0;
  ASSERT_EQ(VLMgetintattrelement(m_, "IISLBForce", 1, &force), VLM_OK);
  EXPECT_EQ(force, -1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Start", 1, 2.5), VLM_OK);
  ASSERT_EQ(VLMsetintattrelement(m_, "BranchPriority", 2, 7), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  double starts[3];
  ASSERT_EQ(VLMgetdblattrarray(m_, "Start", 0, 3, starts), VLM_OK);
  EXPECT_EQ(starts[0], VLM_UNDEFINED);
  EXPECT_EQ(starts[1], 2.5);
  // Deleting a variable keeps the column aligned with the survivors.
  const int del[] = {0};
  ASSERT_EQ(VLMdelvars(m_, 1, del), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(dblelem("Start", 0), 2.5);
  int prio = 0;
  ASSERT_EQ(VLMgetintattrelement(m_, "BranchPriority", 1, &prio), VLM_OK);
  EXPECT_EQ(prio, 7);
}

// Model: x0..x3; c0: x0 + 2 x1 + 3 x3 <= 10; c1: x1 - x2 = 0; q0: x0 + x1^2 + x0 x3 <= 5;
// SOS1 {x1, x3}; max(x0, x1, x3) = x2; deleting x1 must renumber x2, x3 everywhere.
TEST_F(ModelTest, DeletingAVariableRemovesItEverywhereAndRenumbers) {
  add_vars(4);
  const int beg[] = {0, 3};
  const int ind[] = {0, 1, 3, 1, 2};
  const double val[] = {1, 2, 3, 1, -1};
  const char sense[] = {'<', '='};
  const double rhs[] = {10, 0};
  ASSERT_EQ(VLMaddconstrs(m_, 2, 5, beg, ind, val, sense, rhs, nullptr), VLM_OK);
  const int lind[] = {0}, qr[] = {1, 0}, qc[] = {1, 3};
  const double lval[] = {1}, qv[] = {1, 1};
  ASSERT_EQ(VLMaddqconstr(m_, 1, lind, lval, 2, qr, qc, qv, '<', 5, "q0"), VLM_OK);
  const int types[] = {1}, sbeg[] = {0}, sind[] = {1, 3};
  const double sw[] = {1, 2};
  ASSERT_EQ(VLMaddsos(m_, 1, 2, types, sbeg, sind, sw), VLM_OK);
  const int ops[] = {0, 1, 3};
  ASSERT_EQ(VLMaddgenconstrMax(m_, "mx", 2, 3, ops, -1e100), VLM_OK);
  const int absdel[] = {1};
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMdelvars(m_, 1, absdel), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);

  EXPECT_EQ(intattr("NumVars"), 3);
  int nz = 0, cb[2], ci[8];
  double cv[8];
  ASSERT_EQ(VLMgetconstrs(m_, &nz, cb, ci, cv, 0, 2), VLM_OK);
  ASSERT_EQ(nz, 3);
  EXPECT_EQ(std::vector<int>(ci, ci + 3), (std::vector<int>{0, 2, 1}));  // x0, x3->2 | x2->1
  EXPECT_EQ(std::vector<double>(cv, cv + 3), (std::vector<double>{1, 3, -1}));
  int nl = 0, nq = 0, li[4], qi[4], qj[4];
  double lv[4], qvv[4];
  ASSERT_EQ(VLMgetqconstr(m_, 0, &nl, li, lv, &nq, qi, qj, qvv), VLM_OK);
  EXPECT_EQ(nl, 1);
  ASSERT_EQ(nq, 1);
  EXPECT_EQ(qi[0], 0);
  EXPECT_EQ(qj[0], 2);
  int nm = 0, st[1], sbg[1], sm[4];
  double swt[4];
  ASSERT_EQ(VLMgetsos(m_, &nm, st, sbg, sm, swt, 0, 1), VLM_OK);
  ASSERT_EQ(nm, 1);
  EXPECT_EQ(sm[0], 2);
  int res = -1, nv = 0, vars[4];
  double c = 0;
  ASSERT_EQ(VLMgetgenconstrMax(m_, 0, &res, &nv, vars, &c), VLM_OK);
  EXPECT_EQ(res, 1);
  EXPECT_EQ(std::vector<int>(vars, vars + nv), (std::vector<int>{0, 2}));
  EXPECT_EQ(c, -VLM_INFINITY);

  // Deleting the result variable takes the general constraint with it.
  const int resdel[] = {1};
  ASSERT_EQ(VLMdelvars(m_, 1, resdel), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumGenConstrs"), 0);
}

TEST_F(ModelTest, IndicesOfOneBatchReferToTheNumberingBeforeItsDeletions) {
  add_vars(3);
  const int del[] = {0};
  ASSERT_EQ(VLMdelvars(m_, 1, del), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 2, 7.0), VLM_OK);  // x2, still index 2 here
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 1, 'B', "new"), VLM_OK);  // future index 3
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 3, 9.0), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(strelem("VarName", 1), "x2");
  EXPECT_EQ(dblelem("UB", 1), 7.0);
  EXPECT_EQ(strelem("VarName", 2), "new");
  EXPECT_EQ(dblelem("Obj", 2), 9.0);
}

// lower <= x0 + x1 <= upper becomes x0 + x1 - s = lower with s in [0, upper - lower].
TEST_F(ModelTest, RangeConstraintAddsANamedSlack) {
  add_vars(2);
  const int ind[] = {0, 1};
  const double val[] = {1, 1};
  ASSERT_EQ(VLMaddrangeconstr(m_, 2, ind, val, 1.0, 4.0, "rng"), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumVars"), 3);
  EXPECT_EQ(strelem("VarName", 2), "Rgrng");
  EXPECT_EQ(dblelem("LB", 2), 0.0);
  EXPECT_EQ(dblelem("UB", 2), 3.0);
  EXPECT_EQ(dblelem("RHS", 0), 1.0);
  double coef = 0;
  ASSERT_EQ(VLMgetcoeff(m_, 0, 2, &coef), VLM_OK);
  EXPECT_EQ(coef, -1.0);
  EXPECT_EQ(VLMaddrangeconstr(m_, 2, ind, val, 5.0, 4.0, "bad"), VLM_ERROR_INVALID_ARGUMENT);

  // Slacks follow every variable of their batch: a, range r2, b gives a, b, Rgr2.
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 1, 'C', "a"), VLM_OK);
  ASSERT_EQ(VLMaddrangeconstr(m_, 2, ind, val, -1e100, 2.0, "r2"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 1, 'C', "b"), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(strelem("VarName", 3), "a");
  EXPECT_EQ(strelem("VarName", 4), "b");
  EXPECT_EQ(strelem("VarName", 5), "Rgr2");
  EXPECT_EQ(dblelem("LB", 5), -VLM_INFINITY);
  EXPECT_EQ(dblelem("UB", 5), 0.0);
  EXPECT_EQ(dblelem("RHS", 1), 2.0);
  ASSERT_EQ(VLMgetcoeff(m_, 1, 5, &coef), VLM_OK);
  EXPECT_EQ(coef, -1.0);
}

TEST_F(ModelTest, CoefficientChangesAndTheColumnView) {
  add_vars(2);
  const int ind[] = {0};
  const double val[] = {2};
  ASSERT_EQ(VLMaddconstr(m_, 1, ind, val, '>', 1, "c0"), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  const int ci[] = {0, 0}, vi[] = {0, 1};
  const double nv[] = {0.0, 5.0};
  ASSERT_EQ(VLMchgcoeffs(m_, 2, ci, vi, nv), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  double c = -1;
  ASSERT_EQ(VLMgetcoeff(m_, 0, 0, &c), VLM_OK);
  EXPECT_EQ(c, 0.0);
  int nz = 0, vb[2], vind[2];
  double vv[2];
  ASSERT_EQ(VLMgetvars(m_, &nz, vb, vind, vv, 0, 2), VLM_OK);
  EXPECT_EQ(nz, 1);
  EXPECT_EQ(vb[1], 0);
  EXPECT_EQ(vv[0], 5.0);
  // A new variable with a column in the existing constraint.
  const int col[] = {0};
  const double cval[] = {-3};
  ASSERT_EQ(VLMaddvar(m_, 1, col, cval, 0, 0, 1, 'C', "y"), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMgetcoeff(m_, 0, 2, &c), VLM_OK);
  EXPECT_EQ(c, -3.0);
}

TEST_F(ModelTest, AddCallsNameTheProblemAndChangeNothing) {
  add_vars(2);
  const int ind[] = {0, 7};
  const double val[] = {1, 1};
  EXPECT_EQ(VLMaddconstr(m_, 2, ind, val, '<', 1, nullptr), VLM_ERROR_INDEX_OUT_OF_RANGE);
  const int ok[] = {0, 1};
  const double nan_val[] = {1, std::nan("")};
  EXPECT_EQ(VLMaddconstr(m_, 2, ok, nan_val, '<', 1, nullptr), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("NaN"), std::string::npos);
  EXPECT_EQ(VLMaddconstr(m_, 2, ok, val, '!', 1, nullptr), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 1, 'X', nullptr), VLM_ERROR_INVALID_ARGUMENT);
  const double xs[] = {0, 2, 1}, ys[] = {0, 1, 2};
  EXPECT_EQ(VLMaddgenconstrPWL(m_, "p", 0, 1, 3, xs, ys), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("must not decrease"), std::string::npos);
  const int ops[] = {1};
  EXPECT_EQ(VLMaddgenconstrAnd(m_, "and", 0, 1, ops), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("must be binary"), std::string::npos);
  EXPECT_EQ(VLMaddgenconstrNorm(m_, "n", 0, 1, ops, 3.0), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(VLMaddgenconstrExp(m_, "e", 0, 1, "FuncPieces=5 Bogus=1"), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("Unknown option 'Bogus'"), std::string::npos);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumConstrs"), 0);
  EXPECT_EQ(intattr("NumVars"), 2);
  EXPECT_EQ(intattr("NumGenConstrs"), 0);
}

TEST_F(ModelTest, CopyHasTheUpdatedStateAndItsOwnEnvironment) {
  add_vars(2);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0, 0, 1, 'C', "pending"), VLM_OK);
  VLMmodel* copy = VLMcopymodel(m_);
  ASSERT_NE(copy, nullptr);
  int n = 0;
  ASSERT_EQ(VLMgetintattr(copy, "NumVars", &n), VLM_OK);
  EXPECT_EQ(n, 2);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(copy), "TimeLimit", 3.0), VLM_OK);
  double tl = 0;
  ASSERT_EQ(VLMgetdblparam(VLMgetenv(m_), "TimeLimit", &tl), VLM_OK);
  EXPECT_EQ(tl, VLM_INFINITY);
  VLMfreeenv(VLMgetenv(copy));  // a model's environment is the model's: this does nothing
  ASSERT_EQ(VLMupdatemodel(copy), VLM_OK);
  VLMfreemodel(copy);
}

TEST_F(ModelTest, QuadraticObjectiveTermsAreMergedAndStatisticsFollow) {
  add_vars(2);
  const int qi[] = {0, 1, 0}, qj[] = {1, 0, 0};
  const double qv[] = {1, 2, 4};
  ASSERT_EQ(VLMaddqpterms(m_, 3, qi, qj, qv), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  int nq = 0, r[4], c[4];
  double v[4];
  ASSERT_EQ(VLMgetq(m_, &nq, r, c, v), VLM_OK);
  ASSERT_EQ(nq, 2);
  EXPECT_EQ(r[0], 0);
  EXPECT_EQ(c[0], 0);
  EXPECT_EQ(v[0], 4);
  EXPECT_EQ(v[1], 3);
  EXPECT_EQ(intattr("IsQP"), 1);
  double mx = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "MaxQObjCoeff", &mx), VLM_OK);
  EXPECT_EQ(mx, 4);
  ASSERT_EQ(VLMdelq(m_), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("IsQP"), 0);
}

TEST_F(ModelTest, MultipleObjectivesAreSelectedByObjNumber) {
  add_vars(2);
  const int ind[] = {1};
  const double val[] = {5};
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 3, 2.0, 0.1, 0.01, "second", 1.5, 1, ind, val), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumObj"), 2);
  EXPECT_EQ(intattr("IsMultiObj"), 1);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", 1), VLM_OK);
  EXPECT_EQ(intattr("ObjNPriority"), 3);
  EXPECT_EQ(dblelem("ObjN", 1), 5.0);
  char* name = nullptr;
  ASSERT_EQ(VLMgetstrattr(m_, "ObjNName", &name), VLM_OK);
  EXPECT_STREQ(name, "second");
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", 5), VLM_OK);
  int p = 0;
  EXPECT_EQ(VLMgetintattr(m_, "ObjNPriority", &p), VLM_ERROR_INDEX_OUT_OF_RANGE);
}

TEST_F(ModelTest, PwlObjectivesAreStoredAndChecked) {
  add_vars(1);
  const double x[] = {0, 1, 2}, y[] = {0, 1, 4};
  ASSERT_EQ(VLMsetpwlobj(m_, 0, 3, x, y), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(intattr("NumPWLObjVars"), 1);
  int cvx = 0;
  ASSERT_EQ(VLMgetintattrelement(m_, "PWLObjCvx", 0, &cvx), VLM_OK);
  EXPECT_EQ(cvx, 1);
  const double bad[] = {1, 0};
  EXPECT_EQ(VLMsetpwlobj(m_, 0, 2, bad, y), VLM_ERROR_INVALID_PIECEWISE_OBJ);
}

}  // namespace
