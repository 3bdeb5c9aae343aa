// Irreducible inconsistent subsystems through VLMcomputeIIS: the subsystem found for LPs and
// MIPs whose IIS is known by hand, its minimality checked by independent solves, the force
// attributes and IISMethod, the refusal of feasible models, the .ilp file, and stops by
// TimeLimit and VLMterminate.
//
// Not tested: IIS of SOS, quadratic and general constraints (the engine cannot solve them yet).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

class IISTest : public ModelFixture {
 protected:
  void var(double lb, double ub, char type, const char* name) {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 0.0, lb, ub, type, name), VLM_OK);
  }
  void row(std::vector<int> ind, std::vector<double> val, char sense, double rhs, const char* name) {
    ASSERT_EQ(VLMaddconstr(m_, static_cast<int>(ind.size()), ind.data(), val.data(), sense, rhs, name), VLM_OK);
  }
  int flag(const char* attr, int i) {
    int v = -1;
    EXPECT_EQ(VLMgetintattrelement(m_, attr, i, &v), VLM_OK) << attr << " " << VLMgetmerrormsg(m_);
    return v;
  }
  std::vector<int> flags(const char* attr, int n) {
    std::vector<int> v;
    for (int i = 0; i < n; ++i) v.push_back(flag(attr, i));
    return v;
  }
  // Status of a solve of a copy of the model after `edit`.
  template <class Edit>
  int solve_copy(Edit edit) {
    VLMmodel* c = VLMcopymodel(m_);
    EXPECT_NE(c, nullptr);
    edit(c);
    EXPECT_EQ(VLMoptimize(c), VLM_OK) << VLMgetmerrormsg(c);
    int s = 0;
    EXPECT_EQ(VLMgetintattr(c, "Status", &s), VLM_OK);
    VLMfreemodel(c);
    return s;
  }
  // The IIS found is minimal: dropping any one member (a constraint, or a bound made
  // infinite) gives a feasible model, checked by solving copies of the whole model with
  // everything outside the IIS dropped as well.
  void expect_minimal(int nvars, int nconstrs) {
    std::vector<int> cons = flags("IISConstr", nconstrs);
    std::vector<int> lb = flags("IISLB", nvars), ub = flags("IISUB", nvars);
    auto reduce = [&](VLMmodel* c, int skip_kind, int skip) {
      std::vector<int> del;
      for (int i = 0; i < nconstrs; ++i) {
        if (!cons[i] || (skip_kind == 0 && i == skip)) del.push_back(i);
      }
      for (int j = 0; j < nvars; ++j) {
        if (!lb[j] || (skip_kind == 1 && j == skip)) VLMsetdblattrelement(c, "LB", j, -1e100);
        if (!ub[j] || (skip_kind == 2 && j == skip)) VLMsetdblattrelement(c, "UB", j, 1e100);
      }
      ASSERT_EQ(VLMdelconstrs(c, static_cast<int>(del.size()), del.data()), VLM_OK);
    };
    EXPECT_EQ(solve_copy([&](VLMmodel* c) { reduce(c, -1, -1); }), VLM_INFEASIBLE) << "the IIS itself";
    for (int i = 0; i < nconstrs; ++i) {
      if (cons[i]) {
        EXPECT_EQ(solve_copy([&](VLMmodel* c) { reduce(c, 0, i); }), VLM_OPTIMAL) << "constraint " << i;
      }
    }
    for (int j = 0; j < nvars; ++j) {
      if (lb[j]) {
        EXPECT_EQ(solve_copy([&](VLMmodel* c) { reduce(c, 1, j); }), VLM_OPTIMAL) << "LB " << j;
      }
      if (ub[j]) {
        EXPECT_EQ(solve_copy([&](VLMmodel* c) { reduce(c, 2, j); }), VLM_OPTIMAL) << "UB " << j;
      }
    }
  }

  // Staffing LP with two overlapping conflicts:
  //   x in [0, 3], y >= 0, z >= 0
  //   demand:  x + y >= 10
  //   capY4:   y <= 4
  //   capY5:   y <= 5
  //   extra:   z >= 1
  //   budget:  x + z <= 100
  // x + y <= 3 + 4 (or 3 + 5) < 10, so {demand, capY4, UB(x)} and {demand, capY5, UB(x)} are
  // the IISs; lower bounds, extra and budget belong to none.
  void staffing() {
    var(0, 3, 'C', "x");
    var(0, 1e100, 'C', "y");
    var(0, 1e100, 'C', "z");
    row({0, 1}, {1, 1}, '>', 10, "demand");
    row({1}, {1}, '<', 4, "capY4");
    row({1}, {1}, '<', 5, "capY5");
    row({2}, {1}, '>', 1, "extra");
    row({0, 2}, {1, 1}, '<', 100, "budget");
  }
};

TEST_F(IISTest, LpSubsystemIsOneOfTheHandFoundOnesAndMinimal) {
  staffing();
  // A cutoff on the user's objective must not reach the feasibility solves.
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "Cutoff", -5.0), VLM_OK);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "Cutoff", 1e100), VLM_OK);
  std::vector<int> cons = flags("IISConstr", 5);
  EXPECT_EQ(cons[0], 1);
  EXPECT_EQ(cons[1] + cons[2], 1);  // exactly one of the two capacities
  EXPECT_EQ(cons[3], 0);
  EXPECT_EQ(cons[4], 0);
  EXPECT_EQ(flags("IISUB", 3), (std::vector<int>{1, 0, 0}));
  EXPECT_EQ(flags("IISLB", 3), (std::vector<int>{0, 0, 0}));
  int minimal = -1;
  ASSERT_EQ(VLMgetintattr(m_, "IISMinimal", &minimal), VLM_OK);
  EXPECT_EQ(minimal, 1);
  expect_minimal(3, 5);
  // The model itself is unchanged.
  int n = 0;
  ASSERT_EQ(VLMgetintattr(m_, "NumConstrs", &n), VLM_OK);
  EXPECT_EQ(n, 5);
  double ub = 0;
  ASSERT_EQ(VLMgetdblattrelement(m_, "UB", 0, &ub), VLM_OK);
  EXPECT_EQ(ub, 3.0);
}

TEST_F(IISTest, ForceAttributesSteerTheSubsystem) {
  staffing();
  // capY5 forced out: the IIS must use capY4.
  ASSERT_EQ(VLMsetintattrelement(m_, "IISConstrForce", 2, 0), VLM_OK);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(flags("IISConstr", 5), (std::vector<int>{1, 1, 0, 0, 0}));
  // Forced in, a member stays even when it is not needed: capY4 in, capY5 free.
  ASSERT_EQ(VLMsetintattrelement(m_, "IISConstrForce", 2, -1), VLM_OK);
  ASSERT_EQ(VLMsetintattrelement(m_, "IISConstrForce", 1, 1), VLM_OK);
  ASSERT_EQ(VLMsetintattrelement(m_, "IISConstrForce", 4, 1), VLM_OK);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(flags("IISConstr", 5), (std::vector<int>{1, 1, 0, 0, 1}));
  // With x's upper bound forced out nothing is infeasible any more (x can cover demand).
  ASSERT_EQ(VLMsetintattrelement(m_, "IISUBForce", 0, 0), VLM_OK);
  EXPECT_EQ(VLMcomputeIIS(m_), VLM_ERROR_IIS_NOT_INFEASIBLE);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "Can't compute an IIS on a feasible model");
}

TEST_F(IISTest, MethodTwoKeepsBoundsOutOfTheSubsystem) {
  staffing();
  // x's bound stays in the model but is never a member: {demand, capY5} (capY4 goes first).
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "IISMethod", 2), VLM_OK);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(flags("IISUB", 3), (std::vector<int>{0, 0, 0}));
  std::vector<int> cons = flags("IISConstr", 5);
  EXPECT_EQ(cons[0], 1);
  EXPECT_EQ(cons[1] + cons[2], 1);
  EXPECT_EQ(cons[3] + cons[4], 0);
  // Single-member testing finds the same kind of subsystem.
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "IISMethod", 1), VLM_OK);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  expect_minimal(3, 5);
}

// Integer x, y in [0, 10], binary b:
//   same:  x - y = 0
//   sum:   x + y = 3        (with same: x = y = 1.5, not integral)
//   capX:  x <= 8
//   useB:  x + y + b >= 0
// The LP relaxation is feasible, so the IIS is {same, sum}: each alone has integer solutions.
TEST_F(IISTest, MipSubsystemNeedsIntegrality) {
  var(0, 10, 'I', "x");
  var(0, 10, 'I', "y");
  var(0, 1, 'B', "b");
  row({0, 1}, {1, -1}, '=', 0, "same");
  row({0, 1}, {1, 1}, '=', 3, "sum");
  row({0}, {1}, '<', 8, "capX");
  row({0, 1, 2}, {1, 1, 1}, '>', 0, "useB");
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(flags("IISConstr", 4), (std::vector<int>{1, 1, 0, 0}));
  EXPECT_EQ(flags("IISLB", 3), (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(flags("IISUB", 3), (std::vector<int>{0, 0, 0}));
  expect_minimal(3, 4);
  // On the relaxation alone (IISMethod 3) the model is feasible.
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "IISMethod", 3), VLM_OK);
  EXPECT_EQ(VLMcomputeIIS(m_), VLM_ERROR_IIS_NOT_INFEASIBLE);
}

// Binary b with  b >= 0.5  and  b <= 0.7:  no integer in [0.5, 0.7], and without either row b
// can be 0 or 1. Both rows and no bound form the IIS; the binary's implicit [0, 1] is not needed.
TEST_F(IISTest, BinaryBoundsAreMembersOnlyWhenNeeded) {
  var(0, 1, 'B', "b");
  var(0, 1, 'B', "c");
  row({0}, {1}, '>', 0.5, "lo");
  row({0}, {1}, '<', 0.7, "hi");
  // c + b >= 3 is infeasible by the binaries' bounds alone: a second IIS {need, UB b, UB c}
  // overlapping the first only in b.
  row({0, 1}, {1, 1}, '>', 3, "need");
  ASSERT_EQ(VLMsetintattrelement(m_, "IISConstrForce", 2, 0), VLM_OK);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(flags("IISConstr", 3), (std::vector<int>{1, 1, 0}));
  EXPECT_EQ(flags("IISUB", 2), (std::vector<int>{0, 0}));
  // With hi out ({hi, need, UB c} is an IIS too: hi makes the integer b at most 0).
  ASSERT_EQ(VLMsetintattrelement(m_, "IISConstrForce", 2, -1), VLM_OK);
  ASSERT_EQ(VLMsetintattrelement(m_, "IISConstrForce", 1, 0), VLM_OK);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(flags("IISConstr", 3), (std::vector<int>{0, 0, 1}));
  EXPECT_EQ(flags("IISUB", 2), (std::vector<int>{1, 1}));
  EXPECT_EQ(flags("IISLB", 2), (std::vector<int>{0, 0}));
}

TEST_F(IISTest, ResultsExistOnlyForTheUnchangedModel) {
  staffing();
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  int v = 0;
  EXPECT_EQ(VLMgetintattrelement(m_, "IISConstr", 0, &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  EXPECT_EQ(VLMgetintattr(m_, "IISMinimal", &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK);
  EXPECT_EQ(VLMgetintattrelement(m_, "IISConstr", 0, &v), VLM_OK);
  EXPECT_EQ(VLMgetintattrelement(m_, "IISConstr", 5, &v), VLM_ERROR_INDEX_OUT_OF_RANGE);
  ASSERT_EQ(VLMsetdblattrelement(m_, "RHS", 0, 1.0), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(VLMgetintattrelement(m_, "IISConstr", 0, &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  EXPECT_EQ(VLMwrite(m_, "never.ilp"), VLM_ERROR_DATA_NOT_AVAILABLE);
  // Now feasible (demand 1).
  EXPECT_EQ(VLMcomputeIIS(m_), VLM_ERROR_IIS_NOT_INFEASIBLE);
}

TEST_F(IISTest, IlpFileHoldsJustTheSubsystem) {
  staffing();
  ASSERT_EQ(VLMsetintattrelement(m_, "IISConstrForce", 2, 0), VLM_OK);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  const std::string ilp = ::testing::TempDir() + "velmor_iis_test.ilp";
  ASSERT_EQ(VLMwrite(m_, ilp.c_str()), VLM_OK) << VLMgetmerrormsg(m_);
  std::ifstream in(ilp);
  std::stringstream text;
  text << in.rdbuf();
  // demand and capY4 over x and y; x's upper bound 3; y's lower bound 0 is no member.
  const std::string lp = ::testing::TempDir() + "velmor_iis_test.lp";
  {
    std::ofstream out(lp);
    out << text.str();
  }
  VLMmodel* back = nullptr;
  ASSERT_EQ(VLMreadmodel(env_, lp.c_str(), &back), VLM_OK) << VLMgeterrormsg(env_) << "\n" << text.str();
  int n = 0;
  ASSERT_EQ(VLMgetintattr(back, "NumConstrs", &n), VLM_OK);
  EXPECT_EQ(n, 2);
  ASSERT_EQ(VLMgetintattr(back, "NumVars", &n), VLM_OK);
  EXPECT_EQ(n, 2);
  int idx = -1;
  EXPECT_EQ(VLMgetconstrbyname(back, "demand", &idx), VLM_OK);
  EXPECT_GE(idx, 0);
  EXPECT_EQ(VLMgetconstrbyname(back, "capY4", &idx), VLM_OK);
  EXPECT_GE(idx, 0);
  ASSERT_EQ(VLMgetvarbyname(back, "x", &idx), VLM_OK);
  double b = 0;
  ASSERT_EQ(VLMgetdblattrelement(back, "UB", idx, &b), VLM_OK);
  EXPECT_EQ(b, 3.0);
  ASSERT_EQ(VLMgetdblattrelement(back, "LB", idx, &b), VLM_OK);
  EXPECT_LE(b, -1e100);
  ASSERT_EQ(VLMoptimize(back), VLM_OK);
  ASSERT_EQ(VLMgetintattr(back, "Status", &n), VLM_OK);
  EXPECT_EQ(n, VLM_INFEASIBLE);
  VLMfreemodel(back);
  std::remove(ilp.c_str());
  std::remove(lp.c_str());
}

// A chain of n continuous variables in [0, 10] with rows x_i + x_{i+1} <= 15 and the
// contradicting row x_0 + x_1 >= 25; single-member testing (IISMethod 1) needs one solve of
// the whole chain per member (minutes), far more than the time before the stop.
class IISStopTest : public IISTest {
 protected:
  static constexpr int kN = 20000;
  void SetUp() override {
    IISTest::SetUp();
    std::vector<double> lb(kN, 0.0), ub(kN, 10.0);
    ASSERT_EQ(VLMaddvars(m_, kN, 0, nullptr, nullptr, nullptr, nullptr, lb.data(), ub.data(), nullptr, nullptr), VLM_OK);
    std::vector<int> beg, ind;
    std::vector<double> val, rhs;
    std::vector<char> sense;
    for (int i = 0; i < kN; ++i) {
      const bool last = i == kN - 1;
      beg.push_back(static_cast<int>(ind.size()));
      ind.insert(ind.end(), {last ? 0 : i, last ? 1 : i + 1});
      val.insert(val.end(), {1.0, 1.0});
      sense.push_back(last ? '>' : '<');
      rhs.push_back(last ? 25.0 : 15.0);
    }
    ASSERT_EQ(VLMaddconstrs(m_, kN, static_cast<int>(ind.size()), beg.data(), ind.data(), val.data(), sense.data(),
                            rhs.data(), nullptr),
              VLM_OK);
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "IISMethod", 1), VLM_OK);
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  }
  // The subsystem found so far: infeasible, so the contradicting pair of rows is in it, and
  // flagged as not minimal.
  void expect_partial_result() {
    int minimal = -1;
    ASSERT_EQ(VLMgetintattr(m_, "IISMinimal", &minimal), VLM_OK);
    EXPECT_EQ(minimal, 0);
    EXPECT_EQ(flag("IISConstr", kN - 1), 1);
    EXPECT_EQ(flag("IISConstr", 0), 1);
  }
};

TEST_F(IISStopTest, TerminateStopsTheFilterWithAnInfeasibleSubsystem) {
  std::atomic<bool> done{false};
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    if (!done.load()) VLMterminate(m_);
  });
  int rc = VLMcomputeIIS(m_);
  done = true;
  stopper.join();
  ASSERT_EQ(rc, VLM_OK) << VLMgetmerrormsg(m_);
  expect_partial_result();
}

TEST_F(IISStopTest, TimeLimitCoversAllSolves) {
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "TimeLimit", 0.6), VLM_OK);
  const auto t0 = std::chrono::steady_clock::now();
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_LT(secs, 30.0);  // generous on a loaded machine; the full filter takes minutes
  expect_partial_result();
}

}  // namespace
