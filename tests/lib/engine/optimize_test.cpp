// Solving through VLMoptimize: LP, MIP and QP optima, duals, statuses for infeasible and
// unbounded models, limits and cutoffs, semi-continuous variables beyond HiGHS' own cap, and
// the refusal of elements the engine cannot solve yet.
//
// Not tested here: callbacks, warm starts, pools (not built yet).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <thread>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace {

class OptimizeTest : public ModelFixture {
 protected:
  void var(double obj, double lb, double ub, char type, const char* name) {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, obj, lb, ub, type, name), VLM_OK);
  }

};

// max x + y  s.t.  x + 2y <= 4,  3x + y <= 6,  x, y >= 0: optimum (1.6, 1.2), value 2.8;
// both rows bind with duals 0.4 and 0.2 (2.8 = 4*0.4 + 6*0.2).
TEST_F(OptimizeTest, LpOptimumWithDualsAndSlacks) {
  var(1, 0, 1e100, 'C', "x");
  var(1, 0, 1e100, 'C', "y");
  row({0, 1}, {1, 2}, '<', 4);
  row({0, 1}, {3, 1}, '<', 6);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  double v = 0;
  EXPECT_EQ(VLMgetdblattrelement(m_, "X", 0, &v), VLM_ERROR_INDEX_OUT_OF_RANGE);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_OPTIMAL);
  EXPECT_NEAR(objval(), 2.8, 1e-9);
  EXPECT_NEAR(x(0), 1.6, 1e-9);
  EXPECT_NEAR(x(1), 1.2, 1e-9);
  double pi[2], slack[2], rc[2];
  ASSERT_EQ(VLMgetdblattrarray(m_, "Pi", 0, 2, pi), VLM_OK);
  ASSERT_EQ(VLMgetdblattrarray(m_, "Slack", 0, 2, slack), VLM_OK);
  ASSERT_EQ(VLMgetdblattrarray(m_, "RC", 0, 2, rc), VLM_OK);
  EXPECT_NEAR(pi[0], 0.4, 1e-9);
  EXPECT_NEAR(pi[1], 0.2, 1e-9);
  EXPECT_NEAR(slack[0], 0.0, 1e-9);
  EXPECT_NEAR(rc[0], 0.0, 1e-9);
  int sc = 0;
  ASSERT_EQ(VLMgetintattr(m_, "SolCount", &sc), VLM_OK);
  EXPECT_EQ(sc, 1);
  // The reported solution satisfies the model, and duals and reduced costs are consistent
  // with the objective (c - A'pi - rc = 0) and complementary.
  for (const char* q : {"BoundVio", "ConstrVio", "DualVio", "DualResidual", "ComplVio", "ConstrResidualSum"}) {
    double qv = -1;
    ASSERT_EQ(VLMgetdblattr(m_, q, &qv), VLM_OK) << q;
    EXPECT_NEAR(qv, 0.0, 1e-9) << q;
  }
  // Any change discards the solution.
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 1.0), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_LOADED);
  EXPECT_EQ(VLMgetdblattr(m_, "ObjVal", &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "Unable to retrieve attribute 'ObjVal'");
}

// max 3x + 2y, c1: x + y <= 4, c2: x + 3y <= 9, x <= 3: optimum x = 3 (at its bound), y = 1
// (basic). The basis stays optimal while y's cost lies in [0, 3] (x at its upper bound needs
// 3 - c_y >= 0) and x's cost in [2, inf); c1's right-hand side may range over [3, 5] (y = rhs - 3
// stays within [0, 2], where c2 binds).
TEST_F(OptimizeTest, SensitivityRangesOfAnLp) {
  var(3, 0, 3, 'C', "x");
  var(2, 0, 1e100, 'C', "y");
  row({0, 1}, {1, 1}, '<', 4);
  row({0, 1}, {1, 3}, '<', 9);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  double lo[2], up[2], rlo[2], rup[2];
  ASSERT_EQ(VLMgetdblattrarray(m_, "SAObjLow", 0, 2, lo), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(VLMgetdblattrarray(m_, "SAObjUp", 0, 2, up), VLM_OK);
  ASSERT_EQ(VLMgetdblattrarray(m_, "SARHSLow", 0, 2, rlo), VLM_OK);
  ASSERT_EQ(VLMgetdblattrarray(m_, "SARHSUp", 0, 2, rup), VLM_OK);
  EXPECT_NEAR(lo[0], 2.0, 1e-9);
  EXPECT_GE(up[0], VLM_INFINITY);
  EXPECT_NEAR(lo[1], 0.0, 1e-9);
  EXPECT_NEAR(up[1], 3.0, 1e-9);
  EXPECT_NEAR(rlo[0], 3.0, 1e-9);
  EXPECT_NEAR(rup[0], 5.0, 1e-9);
  // A MIP has no sensitivity ranges.
  ASSERT_EQ(VLMsetcharattrelement(m_, "VType", 1, 'I'), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  double v = 0;
  EXPECT_EQ(VLMgetdblattrelement(m_, "SAObjLow", 0, &v), VLM_ERROR_DATA_NOT_AVAILABLE);
}

// Knapsack: max 5a + 4b + 3c, 2a + 3b + c <= 5, binary: best is a + c... a=1,b=1 weight 5
// value 9; a=1,c=1 weight 3 value 8; a,b,c weight 6 too heavy: optimum 9.
TEST_F(OptimizeTest, MipOptimumHasIntegralValuesAndNoDuals) {
  var(5, 0, 1, 'B', "a");
  var(4, 0, 1, 'B', "b");
  var(3, 0, 1, 'B', "c");
  row({0, 1, 2}, {2, 3, 1}, '<', 5);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_OPTIMAL);
  EXPECT_NEAR(objval(), 9.0, 1e-9);
  EXPECT_NEAR(x(0), 1, 1e-9);
  EXPECT_NEAR(x(1), 1, 1e-9);
  EXPECT_NEAR(x(2), 0, 1e-9);
  double v = 0;
  EXPECT_EQ(VLMgetdblattrelement(m_, "Pi", 0, &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  double bound = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "ObjBound", &bound), VLM_OK);
  EXPECT_NEAR(bound, 9.0, 1e-6);
  double intvio = -1, constrvio = -1;
  ASSERT_EQ(VLMgetdblattr(m_, "IntVio", &intvio), VLM_OK);
  ASSERT_EQ(VLMgetdblattr(m_, "ConstrVio", &constrvio), VLM_OK);
  EXPECT_LE(intvio, 1e-6);
  EXPECT_LE(constrvio, 1e-6);
  EXPECT_EQ(VLMgetdblattr(m_, "DualVio", &v), VLM_ERROR_DATA_NOT_AVAILABLE);
}

// min (x-1)^2 + (y-2)^2 = x^2 + y^2 - 2x - 4y + 5, x + y <= 2: optimum (0.5, 1.5), value 0.5.
TEST_F(OptimizeTest, ConvexQpOptimum) {
  var(-2, -10, 10, 'C', "x");
  var(-4, -10, 10, 'C', "y");
  row({0, 1}, {1, 1}, '<', 2);
  const int qi[] = {0, 1};
  const double qv[] = {1, 1};
  ASSERT_EQ(VLMaddqpterms(m_, 2, qi, qi, qv), VLM_OK);
  ASSERT_EQ(VLMsetdblattr(m_, "ObjCon", 5.0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_OPTIMAL);
  EXPECT_NEAR(objval(), 0.5, 1e-6);
  EXPECT_NEAR(x(0), 0.5, 1e-5);
  EXPECT_NEAR(x(1), 1.5, 1e-5);
  double res = -1;
  ASSERT_EQ(VLMgetdblattr(m_, "DualResidual", &res), VLM_OK);
  EXPECT_LE(res, 1e-5) << "the objective gradient c + Qx must equal A'pi + rc";
}

TEST_F(OptimizeTest, InfeasibleAndUnboundedModels) {
  var(1, 0, 1e100, 'C', "x");
  row({0}, {1}, '<', -1);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  int s = status();
  EXPECT_TRUE(s == VLM_INFEASIBLE || s == VLM_INF_OR_UNBD) << s;
  double v = 0;
  EXPECT_EQ(VLMgetdblattrelement(m_, "X", 0, &v), VLM_ERROR_DATA_NOT_AVAILABLE);

  const int del[] = {0};
  ASSERT_EQ(VLMdelconstrs(m_, 1, del), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Presolve", 0), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  s = status();
  EXPECT_TRUE(s == VLM_UNBOUNDED || s == VLM_INF_OR_UNBD) << s;
}

// With InfUnbdInfo: x + y <= 1 and x + y >= 3 (x, y >= 0) are contradictory, proved by the
// multipliers (-1, 1) up to scale: -(x + y) + (x + y) >= -1 + 3 = 2 > 0. An unbounded
// minimisation of -x - y with x - y <= 1 has rays along which the objective decreases.
TEST_F(OptimizeTest, InfeasibilityAndUnboundednessCertificates) {
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "InfUnbdInfo", 1), VLM_OK);
  var(0, 0, 1e100, 'C', "x");
  var(0, 0, 1e100, 'C', "y");
  row({0, 1}, {1, 1}, '<', 1);
  row({0, 1}, {1, 1}, '>', 3);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  ASSERT_EQ(status(), VLM_INFEASIBLE);
  double y[2], proof = 0;
  ASSERT_EQ(VLMgetdblattrarray(m_, "FarkasDual", 0, 2, y), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(VLMgetdblattr(m_, "FarkasProof", &proof), VLM_OK);
  EXPECT_GT(proof, 1e-6);
  EXPECT_NEAR(y[0], -y[1], 1e-9);
  EXPECT_NE(y[0], 0.0);

  const int both[] = {0, 1};
  ASSERT_EQ(VLMdelconstrs(m_, 2, both), VLM_OK);
  row({0, 1}, {1, -1}, '<', 1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 0, -1.0), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 1, -1.0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  ASSERT_EQ(status(), VLM_UNBOUNDED);
  double ray[2];
  ASSERT_EQ(VLMgetdblattrarray(m_, "UnbdRay", 0, 2, ray), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_LT(-ray[0] - ray[1], 0.0) << "the objective decreases along the ray";
  EXPECT_LE(ray[0] - ray[1], 1e-9) << "the row stays satisfied along the ray";
  EXPECT_GE(ray[0], -1e-9);
  EXPECT_GE(ray[1], -1e-9);
}

// A rows-only model (no variables) is decided without the engine.
TEST_F(OptimizeTest, EmptyModelChecksItsRows) {
  ASSERT_EQ(VLMaddconstr(m_, 0, nullptr, nullptr, '<', 1.0, "ok"), VLM_OK);
  ASSERT_EQ(VLMsetdblattr(m_, "ObjCon", 3.0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_OPTIMAL);
  EXPECT_EQ(objval(), 3.0);
  ASSERT_EQ(VLMaddconstr(m_, 0, nullptr, nullptr, '>', 1.0, "bad"), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_INFEASIBLE);
}

// min x, x semi-continuous in [2e5, 3e5] with x >= 1: HiGHS would cap the upper bound at 1e5,
// so the library models it itself; the optimum is x = 2e5.
TEST_F(OptimizeTest, SemiContinuousBeyondTheEngineCapKeepsItsMeaning) {
  var(1, 2e5, 3e5, 'S', "x");
  row({0}, {1}, '>', 1);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_OPTIMAL);
  EXPECT_NEAR(x(0), 2e5, 1e-6);
  // Without the row, 0 is allowed and best.
  const int del[] = {0};
  ASSERT_EQ(VLMdelconstrs(m_, 1, del), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_NEAR(x(0), 0.0, 1e-9);
}

// min x + y, x + y >= 3.5, integers: optimum 4. A cutoff of 3.8 (better than anything
// feasible) gives CUTOFF for the MIP and for its relaxation (3.5 > 3.4).
TEST_F(OptimizeTest, CutoffOnMipAndLp) {
  var(1, 0, 10, 'I', "x");
  var(1, 0, 10, 'I', "y");
  row({0, 1}, {1, 1}, '>', 3.5);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "Cutoff", 3.8), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_CUTOFF);
  ASSERT_EQ(VLMsetcharattrelement(m_, "VType", 0, 'C'), VLM_OK);
  ASSERT_EQ(VLMsetcharattrelement(m_, "VType", 1, 'C'), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "Cutoff", 3.4), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_CUTOFF);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "Cutoff", 3.6), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_OPTIMAL);
  EXPECT_NEAR(objval(), 3.5, 1e-9);
}

TEST_F(OptimizeTest, ElementsTheEngineCannotSolveAreNamed) {
  var(1, 0, 1, 'C', "x");
  var(1, 0, 1, 'C', "y");
  const int ind[] = {0, 1};
  ASSERT_EQ(VLMaddgenconstrNorm(m_, "n", 1, 1, ind, 2.0), VLM_OK);
  // Maximising y = ||x|| needs the nonconvex side of the norm.
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_QCP_EQUALITY_CONSTRAINT);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("NORM constraint 'n'"), std::string::npos) << VLMgetmerrormsg(m_);
}

TEST_F(OptimizeTest, LogLinesReachTheModelLogWhenOutputIsOn) {
  std::vector<std::string> lines;
  ASSERT_EQ(VLMsetlogcallbackfunc(m_, [](const char* msg, void* usr) {
              static_cast<std::vector<std::string>*>(usr)->emplace_back(msg);
            }, &lines), VLM_OK);
  var(1, 0, 1, 'C', "x");
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_TRUE(lines.empty());
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "OutputFlag", 1), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 0, -1.0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_FALSE(lines.empty());
  EXPECT_NEAR(x(0), 1.0, 1e-9);
}

}  // namespace

namespace {

// A market-split instance: 4 equality rows over 40 binaries with coefficients in [0, 99] and
// right-hand sides of half the row sums. Branch-and-bound needs far longer than the tests
// wait, so a stop request is what ends the solve.
void build_market_split(VLMmodel* m) {
  unsigned seed = 12345;
  auto next = [&seed] {
    seed = seed * 1103515245u + 12345u;
    return static_cast<int>((seed >> 16) % 100);
  };
  const int n = 40, rows = 4;
  for (int j = 0; j < n; ++j) ASSERT_EQ(VLMaddvar(m, 0, nullptr, nullptr, 0, 0, 1, 'B', nullptr), VLM_OK);
  for (int i = 0; i < rows; ++i) {
    std::vector<int> ind(n);
    std::vector<double> val(n);
    double sum = 0;
    for (int j = 0; j < n; ++j) {
      ind[j] = j;
      val[j] = next();
      sum += val[j];
    }
    ASSERT_EQ(VLMaddconstr(m, n, ind.data(), val.data(), '=', std::floor(sum / 2), nullptr), VLM_OK);
  }
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m), "TimeLimit", 60), VLM_OK);
}

}  // namespace

TEST_F(OptimizeTest, TerminateFromAnotherThreadInterrupts) {
  build_market_split(m_);
  std::thread stopper([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    VLMterminate(m_);
  });
  auto t0 = std::chrono::steady_clock::now();
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  stopper.join();
  EXPECT_EQ(status(), VLM_INTERRUPTED);
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 10.0);
}

TEST_F(OptimizeTest, SigintStopsTheSolveAndTheHandlerIsRestored) {
  static std::atomic<int> own_calls{0};
  auto previous = std::signal(SIGINT, [](int) { own_calls++; });
  build_market_split(m_);
  ASSERT_EQ(VLMsetsignal(m_), VLM_OK);
  std::thread interrupter([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::raise(SIGINT);
  });
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  interrupter.join();
  EXPECT_EQ(status(), VLM_INTERRUPTED);
  EXPECT_EQ(own_calls.load(), 0) << "the solve's handler took the signal";
  std::raise(SIGINT);
  EXPECT_EQ(own_calls.load(), 1) << "the program's handler is back after the solve";
  std::signal(SIGINT, previous);
}

// Three concurrent solves ask for SIGINT. The first one is stopped by its terminate flag and
// ends before the signal arrives; the signal must still stop the other two, and only the last
// solve to end gives the program its own handler back.
TEST_F(OptimizeTest, SigintStopsEveryConcurrentSolveWhicheverEndsFirst) {
  static std::atomic<int> own_calls{0};
  auto previous = std::signal(SIGINT, [](int) { own_calls++; });
  build_market_split(m_);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  VLMmodel* copies[2] = {VLMcopymodel(m_), VLMcopymodel(m_)};
  ASSERT_NE(copies[0], nullptr);
  ASSERT_NE(copies[1], nullptr);
  for (VLMmodel* m : {m_, copies[0], copies[1]}) ASSERT_EQ(VLMsetsignal(m), VLM_OK);
  std::atomic<int> done{0};
  std::thread first([&] {
    EXPECT_EQ(VLMoptimize(copies[0]), VLM_OK);
    done++;
  });
  std::thread second([&] {
    EXPECT_EQ(VLMoptimize(copies[1]), VLM_OK);
    done++;
  });
  std::thread interrupter([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    VLMterminate(copies[0]);
    while (done.load() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::raise(SIGINT);
  });
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  first.join();
  second.join();
  interrupter.join();
  for (VLMmodel* m : {m_, copies[0], copies[1]}) {
    int s = 0;
    EXPECT_EQ(VLMgetintattr(m, "Status", &s), VLM_OK);
    EXPECT_EQ(s, VLM_INTERRUPTED);
  }
  EXPECT_EQ(own_calls.load(), 0) << "a solve's handler must take the signal";
  std::raise(SIGINT);
  EXPECT_EQ(own_calls.load(), 1) << "the program's handler is back after the last solve";
  std::signal(SIGINT, previous);
  VLMfreemodel(copies[0]);
  VLMfreemodel(copies[1]);
}

// A 15 x 15 transportation LP: supplies 10 + i, demands 10 + j (balanced), costs
// (3i + 7j) mod 11 + 1. After a small cost change the re-solve starts from the kept basis and
// needs far fewer iterations than the cold solve; the optimum matches a cold solve of the
// changed model.
TEST_F(OptimizeTest, ReSolveAfterASmallChangeStartsFromTheKeptBasis) {
  const int k = 15;
  auto build = [&](VLMmodel* m) {
    for (int i = 0; i < k; ++i)
      for (int j = 0; j < k; ++j)
        ASSERT_EQ(VLMaddvar(m, 0, nullptr, nullptr, (3 * i + 7 * j) % 11 + 1, 0, 1e100, 'C', nullptr), VLM_OK);
    for (int i = 0; i < k; ++i) {
      std::vector<int> ind;
      std::vector<double> val(k, 1.0);
      for (int j = 0; j < k; ++j) ind.push_back(i * k + j);
      ASSERT_EQ(VLMaddconstr(m, k, ind.data(), val.data(), '<', 10 + i, nullptr), VLM_OK);
    }
    for (int j = 0; j < k; ++j) {
      std::vector<int> ind;
      std::vector<double> val(k, 1.0);
      for (int i = 0; i < k; ++i) ind.push_back(i * k + j);
      ASSERT_EQ(VLMaddconstr(m, k, ind.data(), val.data(), '>', 10 + j, nullptr), VLM_OK);
    }
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m), "Presolve", 0), VLM_OK);
  };
  build(m_);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  double cold = 0, warm = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "IterCount", &cold), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 7, 0.5), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  ASSERT_EQ(VLMgetdblattr(m_, "IterCount", &warm), VLM_OK);
  EXPECT_LT(warm, cold / 2) << "cold " << cold << ", warm " << warm;

  VLMmodel* fresh = nullptr;
  ASSERT_EQ(VLMnewmodel(env_, &fresh, "fresh", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  build(fresh);
  ASSERT_EQ(VLMsetdblattrelement(fresh, "Obj", 7, 0.5), VLM_OK);
  ASSERT_EQ(VLMoptimize(fresh), VLM_OK);
  double a = 0, b = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "ObjVal", &a), VLM_OK);
  ASSERT_EQ(VLMgetdblattr(fresh, "ObjVal", &b), VLM_OK);
  EXPECT_NEAR(a, b, 1e-9);
  VLMfreemodel(fresh);
}

// A 30-item knapsack (weights 3 + (7j mod 13), values 5 + (11j mod 17), capacity 60): the MIP
// reports its solutions; the pool holds distinct feasible ones, best first, the incumbent
// leading, and no more than PoolSolutions.
TEST_F(OptimizeTest, SolutionPoolHoldsFeasibleSolutionsBestFirst) {
  const int n = 30;
  std::vector<int> ind(n);
  std::vector<double> w(n);
  for (int j = 0; j < n; ++j) {
    var(5 + (11 * j) % 17, 0, 1, 'B', nullptr);
    ind[j] = j;
    w[j] = 3 + (7 * j) % 13;
  }
  ASSERT_EQ(VLMaddconstr(m_, n, ind.data(), w.data(), '<', 60, "cap"), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "PoolSolutions", 4), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  ASSERT_EQ(status(), VLM_OPTIMAL);
  int count = 0;
  ASSERT_EQ(VLMgetintattr(m_, "SolCount", &count), VLM_OK);
  ASSERT_GE(count, 1);
  ASSERT_LE(count, 4);
  double prev = INFINITY;
  for (int k = 0; k < count; ++k) {
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "SolutionNumber", k), VLM_OK);
    double obj = 0, weight = 0, value = 0;
    std::vector<double> xn(n);
    ASSERT_EQ(VLMgetdblattr(m_, "PoolObjVal", &obj), VLM_OK);
    ASSERT_EQ(VLMgetdblattrarray(m_, "Xn", 0, n, xn.data()), VLM_OK);
    for (int j = 0; j < n; ++j) {
      weight += w[j] * xn[j];
      value += (5 + (11 * j) % 17) * xn[j];
    }
    EXPECT_LE(weight, 60 + 1e-6);
    EXPECT_NEAR(value, obj, 1e-6);
    EXPECT_LE(obj, prev + 1e-9);
    if (k == 0) {
      EXPECT_NEAR(obj, objval(), 1e-9);
    }
    prev = obj;
  }
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "SolutionNumber", count), VLM_OK);
  double v = 0;
  EXPECT_EQ(VLMgetdblattr(m_, "PoolObjVal", &v), VLM_ERROR_DATA_NOT_AVAILABLE);
}

// The market-split search never closes its gap quickly: a work limit of 0.2 processor seconds
// stops it with WORK_LIMIT; BestBdStop below the first bound stops it at once with
// USER_OBJ_LIMIT (minimising 0: the bound starts at 0 >= -1); a soft memory limit below the
// process' size gives MEM_LIMIT and a hard one fails with OUT_OF_MEMORY.
TEST_F(OptimizeTest, LimitsTheLibraryEnforces) {
  build_market_split(m_);
  VLMenv* e = VLMgetenv(m_);
  ASSERT_EQ(VLMsetdblparam(e, "WorkLimit", 0.2), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_WORK_LIMIT);
  double work = 0;
  ASSERT_EQ(VLMgetdblattr(m_, "Work", &work), VLM_OK);
  EXPECT_GE(work, 0.2);
  ASSERT_EQ(VLMsetdblparam(e, "WorkLimit", 1e100), VLM_OK);

  ASSERT_EQ(VLMsetdblparam(e, "BestBdStop", -1.0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_USER_OBJ_LIMIT);
  ASSERT_EQ(VLMsetdblparam(e, "BestBdStop", 1e100), VLM_OK);

  ASSERT_EQ(VLMsetdblparam(e, "SoftMemLimit", 1e-6), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_MEM_LIMIT);
  ASSERT_EQ(VLMsetdblparam(e, "SoftMemLimit", 1e100), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(e, "MemLimit", 1e-6), VLM_OK);
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_OUT_OF_MEMORY);
  EXPECT_NE(std::string(VLMgetmerrormsg(m_)).find("MemLimit"), std::string::npos);
}

// Different Threads settings on one calling thread: HiGHS keeps one pool per calling thread and
// refuses a run that asks for another size while the pool lives. Model A's solved LP keeps its
// engine instance (and so the pool) alive; model B then asks for another size on the same
// thread, and both must solve.
TEST_F(OptimizeTest, ThreadsMayDifferBetweenModelsOnOneThread) {
  var(-1, 0, 10, 'C', "x");
  row({0}, {1}, '<', 4);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Threads", 2), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(status(), VLM_OPTIMAL);

  VLMmodel* b = nullptr;
  ASSERT_EQ(VLMnewmodel(env_, &b, "b", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  ASSERT_EQ(VLMaddvar(b, 0, nullptr, nullptr, -1, 0, 5, 'C', "y"), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(b), "Threads", 1), VLM_OK);
  ASSERT_EQ(VLMoptimize(b), VLM_OK) << VLMgetmerrormsg(b);
  int st = 0;
  double obj = 0;
  ASSERT_EQ(VLMgetintattr(b, "Status", &st), VLM_OK);
  ASSERT_EQ(VLMgetdblattr(b, "ObjVal", &obj), VLM_OK);
  EXPECT_EQ(st, VLM_OPTIMAL);
  EXPECT_NEAR(obj, -5.0, 1e-9);
  EXPECT_NEAR(objval(), -4.0, 1e-9);
  VLMfreemodel(b);
}

// Each HiGHS limit maps to its status on the market-split search, which none of them lets
// finish: time, nodes, solutions (the first solution of "min 0" stops it), and an objective
// target any solution meets (BestObjStop 1 with objective 0). An LP with an iteration limit
// of 1 that needs more iterations stops with ITERATION_LIMIT.
TEST_F(OptimizeTest, EngineLimitsGiveTheirStatuses) {
  build_market_split(m_);
  VLMenv* e = VLMgetenv(m_);
  struct Case {
    const char* param;
    double value;
    int status;
  };
  for (const Case& c : {Case{"TimeLimit", 0.2, VLM_TIME_LIMIT}, Case{"NodeLimit", 20, VLM_NODE_LIMIT}}) {
    ASSERT_EQ(VLMresetparams(e), VLM_OK);
    ASSERT_EQ(VLMsetintparam(e, "OutputFlag", 0), VLM_OK);
    ASSERT_EQ(VLMsetdblparam(e, c.param, c.value), VLM_OK);
    ASSERT_EQ(VLMoptimize(m_), VLM_OK) << c.param;
    EXPECT_EQ(status(), c.status) << c.param;
  }
  // Solution-based limits need a search that finds solutions before it can prove optimality:
  // a market split whose right-hand sides come from a planted solution, with random costs.
  // Finding its first solution takes HiGHS a few seconds, which is the point of the instance.
  VLMmodel* k = nullptr;
  ASSERT_EQ(VLMnewmodel(env_, &k, "k", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  unsigned seed = 99;
  auto next = [&seed] {
    seed = seed * 1103515245u + 12345u;
    return static_cast<int>((seed >> 16) % 100);
  };
  const int n = 26;
  std::vector<int> planted(n), ind(n);
  for (int j = 0; j < n; ++j) {
    planted[j] = next() % 2;
    ind[j] = j;
    ASSERT_EQ(VLMaddvar(k, 0, nullptr, nullptr, 1 + next() % 10, 0, 1, 'B', nullptr), VLM_OK);
  }
  for (int i = 0; i < 3; ++i) {
    std::vector<double> a(n);
    double rhs = 0;
    for (int j = 0; j < n; ++j) {
      a[j] = next();
      rhs += a[j] * planted[j];
    }
    ASSERT_EQ(VLMaddconstr(k, n, ind.data(), a.data(), '=', rhs, nullptr), VLM_OK);
  }
  VLMenv* ke = VLMgetenv(k);
  ASSERT_EQ(VLMsetdblparam(ke, "TimeLimit", 60), VLM_OK);
  ASSERT_EQ(VLMsetintparam(ke, "SolutionLimit", 1), VLM_OK);
  ASSERT_EQ(VLMoptimize(k), VLM_OK);
  int st = 0, count = 0;
  ASSERT_EQ(VLMgetintattr(k, "Status", &st), VLM_OK);
  ASSERT_EQ(VLMgetintattr(k, "SolCount", &count), VLM_OK);
  EXPECT_EQ(st, VLM_SOLUTION_LIMIT);
  EXPECT_GE(count, 1);
  ASSERT_EQ(VLMsetintparam(ke, "SolutionLimit", VLM_MAXINT), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(ke, "BestObjStop", 1e9), VLM_OK);
  ASSERT_EQ(VLMoptimize(k), VLM_OK);
  ASSERT_EQ(VLMgetintattr(k, "Status", &st), VLM_OK);
  EXPECT_EQ(st, VLM_USER_OBJ_LIMIT);

  // Its LP relaxation needs more than one simplex iteration.
  for (int j = 0; j < n; ++j) ASSERT_EQ(VLMsetcharattrelement(k, "VType", j, 'C'), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(ke, "BestObjStop", -1e100), VLM_OK);
  ASSERT_EQ(VLMsetintparam(ke, "Presolve", 0), VLM_OK);
  ASSERT_EQ(VLMsetdblparam(ke, "IterationLimit", 1), VLM_OK);
  ASSERT_EQ(VLMoptimize(k), VLM_OK);
  ASSERT_EQ(VLMgetintattr(k, "Status", &st), VLM_OK);
  EXPECT_EQ(st, VLM_ITERATION_LIMIT);
  VLMfreemodel(k);
}
