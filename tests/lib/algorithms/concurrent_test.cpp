// Concurrent solves on solver threads (concurrent environments, ConcurrentMIP, Method 3) and
// parallel, stoppable tuning: the winner's solution and attributes reach the user's model, the
// optimum is the plain solve's, terminate stops the runs and the tuning trials, and settings
// that cannot be used are refused with the model as it was.
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "reform/reform_fixture.h"

namespace {

class ConcurrentTest : public ReformTest {
 protected:
  // max x + y s.t. x + 2y <= 4, 3x + y <= 6, x, y in [0, 10]: the rows meet at (1.6, 1.2),
  // objective 2.8. Duals: y1 + 3y2 = 1, 2y1 + y2 = 1 give Pi = (0.4, 0.2).
  void small_lp() {
    var(1, 0, 10, 'C', "x");
    var(1, 0, 10, 'C', "y");
    row({0, 1}, {1, 2}, '<', 4);
    row({0, 1}, {3, 1}, '<', 6);
    maximize();
  }
  // max 5x + 4y + 3z s.t. 2x + 3y + z <= 5, 4x + y + 2z <= 11, 3x + 4y + 2z <= 8, integers in
  // [0, 5]. Enumeration gives 13 at (2, 0, 1) (the LP relaxation's vertex, integral here).
  void small_mip() {
    var(5, 0, 5, 'I', "x");
    var(4, 0, 5, 'I', "y");
    var(3, 0, 5, 'I', "z");
    row({0, 1, 2}, {2, 3, 1}, '<', 5);
    row({0, 1, 2}, {4, 1, 2}, '<', 11);
    row({0, 1, 2}, {3, 4, 2}, '<', 8);
    maximize();
  }
  // A market-split instance: 4 equality rows over 40 binaries with coefficients in [0, 99] and
  // right-hand sides of half the row sums. No run of the branch and bound ends within the
  // tests' patience, so a stop request is what ends the solve (TimeLimit 60 is a safety net).
  void market_split() {
    unsigned seed = 4711;
    auto next = [&seed] {
      seed = seed * 1103515245u + 12345u;
      return static_cast<int>((seed >> 16) % 100);
    };
    for (int j = 0; j < 40; ++j) var(0, 0, 1, 'B', nullptr);
    for (int i = 0; i < 4; ++i) {
      std::vector<int> ind(40);
      std::vector<double> val(40);
      double sum = 0;
      for (int j = 0; j < 40; ++j) {
        ind[j] = j;
        val[j] = next();
        sum += val[j];
      }
      row(ind, val, '=', std::floor(sum / 2));
    }
    set_dbl("TimeLimit", 60);
  }
  // A 0-1 knapsack over 30 items and 4 rows from a fixed sequence (a few hundredths of a
  // second per solve): its optimum is taken from a plain solve.
  void knapsack() { seeded_knapsack(30, 4); }
  void set_int(const char* name, int v) { ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), name, v), VLM_OK) << name; }
  void set_dbl(const char* name, double v) { ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), name, v), VLM_OK) << name; }
  void collect_log() {
    ASSERT_EQ(VLMsetlogcallbackfunc(m_, [](const char* msg, void* usr) {
                static_cast<ConcurrentTest*>(usr)->on_log(msg);
              }, this), VLM_OK);
    set_int("OutputFlag", 1);
  }
  virtual void on_log(const char* msg) { lines_.emplace_back(msg); }
  int count_logged(const std::string& text) const {
    int n = 0;
    for (const std::string& l : lines_) n += l.find(text) != std::string::npos ? 1 : 0;
    return n;
  }
  bool logged(const std::string& text) const { return count_logged(text) > 0; }
  std::vector<std::string> lines_;
};

// Two environments with different algorithms (primal and dual simplex: HiGHS ranges only a
// simplex solve) reach the plain solve's optimum, 2.8 at (1.6, 1.2), and the winner's duals,
// ranges and algorithm read back from the user's model.
TEST_F(ConcurrentTest, EnvironmentRunsGiveThePlainOptimumAndTheWinnersAttributes) {
  small_lp();
  collect_log();
  VLMenv* e0 = VLMgetconcurrentenv(m_, 0);
  VLMenv* e1 = VLMgetconcurrentenv(m_, 1);
  ASSERT_NE(e0, nullptr);
  ASSERT_NE(e1, nullptr);
  ASSERT_EQ(VLMsetintparam(e0, "Method", 0), VLM_OK);
  ASSERT_EQ(VLMsetintparam(e1, "Method", 1), VLM_OK);
  solve();
  EXPECT_EQ(status(), VLM_OPTIMAL);
  EXPECT_NEAR(objval(), 2.8, 1e-6);
  EXPECT_NEAR(x(0), 1.6, 1e-6);
  EXPECT_NEAR(x(1), 1.2, 1e-6);
  EXPECT_NEAR(dblelem("Pi", 0), 0.4, 1e-6);
  EXPECT_NEAR(dblelem("Pi", 1), 0.2, 1e-6);
  const int win = intattr("ConcurrentWinMethod");
  EXPECT_TRUE(win == 0 || win == 1) << win;
  EXPECT_EQ(intattr("SolCount"), 1);
  EXPECT_GE(dbl("Runtime"), 0.0);
  expect_user_feasible(2, 2);
  // The winner's HiGHS instance answers ranging: (1.6, 1.2) stays optimal while the cost of x
  // lies between the row slopes 1/2 and 3 (the cost of y being 1).
  EXPECT_NEAR(dblelem("SAObjLow", 0), 0.5, 1e-6);
  EXPECT_NEAR(dblelem("SAObjUp", 0), 3.0, 1e-6);
  EXPECT_TRUE(logged("Concurrent solve: 2 runs"));
  EXPECT_TRUE(logged("finished first after"));
  EXPECT_TRUE(logged("Optimal solution found"));

  // Without concurrent environments the attribute says no concurrent solve took place.
  ASSERT_EQ(VLMdiscardconcurrentenvs(m_), VLM_OK);
  solve();
  EXPECT_EQ(intattr("ConcurrentWinMethod"), -1);
  EXPECT_NEAR(objval(), 2.8, 1e-6);
}

// Method 3 races the algorithms ConcurrentMethod names: 3 is primal against dual simplex, so
// the winner is one of them; the optimum stays 2.8.
TEST_F(ConcurrentTest, MethodThreeRacesTheNamedAlgorithms) {
  small_lp();
  collect_log();
  set_int("Method", 3);
  set_int("ConcurrentMethod", 3);
  solve();
  EXPECT_NEAR(objval(), 2.8, 1e-6);
  const int win = intattr("ConcurrentWinMethod");
  EXPECT_TRUE(win == 0 || win == 1) << win;
  EXPECT_TRUE(logged("Concurrent solve: 2 runs")) << "two algorithms";
  EXPECT_TRUE(logged("primal simplex, dual simplex"));
  set_int("ConcurrentMethod", -1);
  solve();
  EXPECT_NEAR(objval(), 2.8, 1e-6);
  EXPECT_TRUE(logged("primal simplex, dual simplex, barrier"));
}

// ConcurrentMIP 3 runs three searches; the result is the enumerated optimum 13 at (2, 0, 1),
// a MIP result (node count, bound, gap), not a continuous race.
TEST_F(ConcurrentTest, ConcurrentMipGivesTheOptimum) {
  small_mip();
  collect_log();
  set_int("ConcurrentMIP", 3);
  solve();
  EXPECT_EQ(status(), VLM_OPTIMAL);
  EXPECT_NEAR(objval(), 13, 1e-6);
  EXPECT_NEAR(x(0), 2, 1e-6);
  EXPECT_NEAR(x(1), 0, 1e-6);
  EXPECT_NEAR(x(2), 1, 1e-6);
  EXPECT_NEAR(dbl("ObjBound"), 13, 1e-6);
  EXPECT_GE(dbl("NodeCount"), 0.0);
  EXPECT_EQ(intattr("ConcurrentWinMethod"), -1);
  expect_user_feasible(3, 3);
  EXPECT_TRUE(logged("Concurrent solve: 3 runs"));
  EXPECT_TRUE(logged("search 2 (MIPFocus 2, Seed 2)"));
}

// The knapsack's optimum from a plain solve is what each way of solving it concurrently gives.
TEST_F(ConcurrentTest, ConcurrentRunsAgreeWithThePlainSolveOnALargerMip) {
  knapsack();
  solve();
  const double plain = objval();
  set_int("ConcurrentMIP", 2);
  solve();
  EXPECT_NEAR(objval(), plain, 1e-6);
  set_int("ConcurrentMIP", 1);
  VLMenv* e0 = VLMgetconcurrentenv(m_, 0);
  VLMenv* e1 = VLMgetconcurrentenv(m_, 1);
  ASSERT_EQ(VLMsetintparam(e0, "MIPFocus", 1), VLM_OK);
  ASSERT_EQ(VLMsetintparam(e1, "Seed", 7), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), plain, 1e-6);
  EXPECT_EQ(status(), VLM_OPTIMAL);
}

// Two objectives on the small LP (objective 0: max x + 2y, priority 2, optimal 4 on the edge
// from (0, 2) to (1.6, 1.2); objective 1: max x on that edge, x = 1.6) solved by two
// concurrent environments: the levels' results come back as from a plain solve.
TEST_F(ConcurrentTest, MultiObjectiveModelsRunConcurrently) {
  small_lp();
  std::vector<int> ind = {0, 1};
  std::vector<double> c0 = {1, 2}, c1 = {1, 0};
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1.0, 0.0, 0.0, nullptr, 0.0, 2, ind.data(), c0.data()), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1.0, 0.0, 0.0, nullptr, 0.0, 2, ind.data(), c1.data()), VLM_OK);
  ASSERT_NE(VLMgetconcurrentenv(m_, 0), nullptr);
  ASSERT_EQ(VLMsetintparam(VLMgetconcurrentenv(m_, 1), "Method", 0), VLM_OK);
  collect_log();
  solve();
  EXPECT_TRUE(logged("Concurrent solve: 2 runs"));
  EXPECT_NEAR(x(0), 1.6, 1e-6);
  EXPECT_NEAR(x(1), 1.2, 1e-6);
  set_int("ObjNumber", 0);
  EXPECT_NEAR(dbl("ObjNVal"), 4, 1e-6);
  set_int("ObjNumber", 1);
  EXPECT_NEAR(dbl("ObjNVal"), 1.6, 1e-6);
}

// Scenarios under two concurrent environments. min -3x - 2y, x + y <= 4, x in [0, 3], y in
// [0, 10]: base (3, 1), -11; scenario 0 with ub(x) = 1: (1, 3), -9; scenario 1 with rhs 6:
// (3, 3), -15.
TEST_F(ConcurrentTest, ScenarioModelsRunConcurrently) {
  var(-3, 0, 3, 'C', "x");
  var(-2, 0, 10, 'C', "y");
  row({0, 1}, {1, 1}, '<', 4);
  ASSERT_EQ(VLMsetintattr(m_, "NumScenarios", 2), VLM_OK);
  set_int("ScenarioNumber", 0);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNUB", 0, 1), VLM_OK);
  set_int("ScenarioNumber", 1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "ScenNRHS", 0, 6), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetconcurrentenv(m_, 0), "Method", 1), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetconcurrentenv(m_, 1), "Method", 2), VLM_OK);
  collect_log();
  solve();
  EXPECT_TRUE(logged("Concurrent solve: 2 runs"));
  EXPECT_NEAR(objval(), -11, 1e-6);
  const double want[] = {-9, -15};
  for (int k = 0; k < 2; ++k) {
    set_int("ScenarioNumber", k);
    EXPECT_NEAR(dbl("ScenNObjVal"), want[k], 1e-6) << k;
  }
}

// A terminate from another thread stops every run of a concurrent solve: none of them can end
// the market-split search on its own, so INTERRUPTED (not TIME_LIMIT after 60 s) shows that
// the stop reached the copies.
TEST_F(ConcurrentTest, TerminateStopsEveryRun) {
  market_split();
  set_int("ConcurrentMIP", 2);
  std::thread stopper([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    VLMterminate(m_);
  });
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  stopper.join();
  EXPECT_EQ(status(), VLM_INTERRUPTED);
  // The model solves again afterwards (the stop was for that solve only).
  set_int("ConcurrentMIP", 1);
  set_dbl("TimeLimit", 0.2);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  EXPECT_EQ(status(), VLM_TIME_LIMIT);
}

// Values a run cannot use are refused when set on its environment, naming the parameter, and
// neither that environment nor the model changes: the next concurrent solve is the usual one.
TEST_F(ConcurrentTest, BadParametersInAConcurrentEnvironmentAreRefused) {
  small_lp();
  VLMenv* e0 = VLMgetconcurrentenv(m_, 0);
  ASSERT_NE(e0, nullptr);
  EXPECT_EQ(VLMsetintparam(e0, "Method", 7), VLM_ERROR_VALUE_OUT_OF_RANGE);
  EXPECT_NE(std::string(VLMgeterrormsg(e0)).find("Method"), std::string::npos) << VLMgeterrormsg(e0);
  EXPECT_EQ(VLMsetdblparam(e0, "TimeLimit", -1), VLM_ERROR_VALUE_OUT_OF_RANGE);
  EXPECT_EQ(VLMsetintparam(e0, "NoSuchParameter", 1), VLM_ERROR_UNKNOWN_PARAMETER);
  int method = 0;
  ASSERT_EQ(VLMgetintparam(e0, "Method", &method), VLM_OK);
  EXPECT_EQ(method, -1);
  double limit = 0;
  ASSERT_EQ(VLMgetdblparam(e0, "TimeLimit", &limit), VLM_OK);
  EXPECT_GT(limit, 1e99);
  EXPECT_EQ(status(), VLM_LOADED) << "nothing was solved";
  solve();
  EXPECT_NEAR(objval(), 2.8, 1e-6);
}

// A model HiGHS refuses fails every run: the error is the engine's, naming the run and the
// coefficient; the model keeps its data (no solution: the change discarded the old one), and
// with the coefficient back at 1 (x + y <= 4 holds at (1.6, 1.2)) it solves to 2.8 again.
TEST_F(ConcurrentTest, ARefusedModelFailsNamingTheRunAndKeepsTheModel) {
  small_lp();
  solve();
  ASSERT_NE(VLMgetconcurrentenv(m_, 1), nullptr);
  int ind[] = {0, 1};
  double val[] = {1, 1e16};
  ASSERT_EQ(VLMaddconstr(m_, 2, ind, val, '<', 4, "c3"), VLM_OK);
  expect_error(VLMoptimize(m_), VLM_ERROR_INVALID_ARGUMENT,
               "Concurrent run 0 (environment 0): Coefficient 1e+16 of variable 'y' in constraint 'c3' is larger "
               "than 1e+15");
  EXPECT_EQ(status(), VLM_LOADED);
  EXPECT_EQ(intattr("NumConstrs"), 3);
  int row[] = {2};
  double one[] = {1};
  ASSERT_EQ(VLMchgcoeffs(m_, 1, row, ind + 1, one), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 2.8, 1e-6);
}

class ConcurrentTuneTest : public ConcurrentTest {
 protected:
  void quick_tuning() {
    set_int("TuneTrials", 1);
    set_dbl("TuneTargetTime", 0);
    set_dbl("TuneTimeLimit", 60);
  }
  // Stops the tuning run from inside it once `stop_after` parameter sets have been logged.
  void on_log(const char* msg) override {
    lines_.emplace_back(msg);
    if (std::string(msg).find("Tuning: tried") != std::string::npos && ++sets_ == stop_after_) VLMterminate(m_);
  }
  // Every result loads and solves the model to the plain optimum.
  void expect_results_keep_the_optimum(double plain) {
    const int n = intattr("TuneResultCount");
    ASSERT_GE(n, 1);
    for (int i = 0; i < n; ++i) {
      ASSERT_EQ(VLMgettuneresult(m_, i), VLM_OK) << VLMgetmerrormsg(m_);
      set_int("OutputFlag", 0);
      solve();
      EXPECT_NEAR(objval(), plain, 1e-6) << "result " << i;
    }
  }
  int sets_ = 0;
  int stop_after_ = -1;
};

// Two trials at a time still give results that load and keep the optimum; the log says how
// many trials ran at once.
TEST_F(ConcurrentTuneTest, TwoJobsGiveResults) {
  knapsack();
  solve();
  const double plain = objval();
  collect_log();
  quick_tuning();
  set_int("TuneJobs", 2);
  ASSERT_EQ(VLMtunemodel(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_TRUE(logged("1 trial per parameter set, 2 at a time"));
  // The baseline and the thirteen single changes of a MIP at least.
  EXPECT_GE(count_logged("Tuning: tried"), 14);
  expect_results_keep_the_optimum(plain);
}

// A terminate after the second set tried ends the tuning run at once: the sets scored so far
// give the results (which load and keep the optimum), far fewer sets than the full list were
// tried, and the log says why it stopped.
TEST_F(ConcurrentTuneTest, TerminateStopsTuningAndKeepsTheResultsSoFar) {
  knapsack();
  solve();
  const double plain = objval();
  collect_log();
  quick_tuning();
  stop_after_ = 2;
  ASSERT_EQ(VLMtunemodel(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_TRUE(logged("Tuning: stopped by a terminate request"));
  EXPECT_EQ(count_logged("Tuning: tried"), 2);
  expect_results_keep_the_optimum(plain);
}

// A terminate during the baseline leaves the current settings as the one result.
TEST_F(ConcurrentTuneTest, TerminateDuringTheBaselineKeepsTheCurrentSettings) {
  market_split();
  set_dbl("TimeLimit", 30);
  quick_tuning();
  std::thread stopper([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    VLMterminate(m_);
  });
  ASSERT_EQ(VLMtunemodel(m_), VLM_OK) << VLMgetmerrormsg(m_);
  stopper.join();
  EXPECT_EQ(intattr("TuneResultCount"), 1);
  ASSERT_EQ(VLMgettuneresult(m_, 0), VLM_OK);
  double limit = 0;
  ASSERT_EQ(VLMgetdblparam(VLMgetenv(m_), "TimeLimit", &limit), VLM_OK);
  EXPECT_EQ(limit, 30) << "result 0 is the settings tuning started with";
}

// Base settings files are tried right after the baseline (their set shows in the log); a
// missing file is refused before anything runs, naming the file, and the model keeps no
// results and no solution.
TEST_F(ConcurrentTuneTest, BaseSettingsAreTriedAndAMissingFileIsRefused) {
  knapsack();
  collect_log();
  quick_tuning();
  const std::string file = ::testing::TempDir() + "velmor_tune_base.prm";
  {
    std::ofstream out(file);
    out << "# a base setting\nPresolve 0\nCuts 0\n";
  }
  ASSERT_EQ(VLMsetstrparam(VLMgetenv(m_), "TuneBaseSettings", file.c_str()), VLM_OK);
  set_int("TuneOutput", 2);
  ASSERT_EQ(VLMtunemodel(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_TRUE(logged("Tuning: tried Presolve 0, Cuts 0"));
  std::remove(file.c_str());

  ASSERT_EQ(VLMsetstrparam(VLMgetenv(m_), "TuneBaseSettings", (file + ", other.prm").c_str()), VLM_OK);
  VLMmodel* fresh = VLMcopymodel(m_);
  ASSERT_NE(fresh, nullptr);
  const int rc = VLMtunemodel(fresh);
  EXPECT_EQ(rc, VLM_ERROR_FILE_READ);
  EXPECT_NE(std::string(VLMgetmerrormsg(fresh)).find("velmor_tune_base.prm"), std::string::npos)
      << VLMgetmerrormsg(fresh);
  int count = -1;
  EXPECT_EQ(VLMgetintattr(fresh, "TuneResultCount", &count), VLM_ERROR_DATA_NOT_AVAILABLE);
  int st = -1;
  ASSERT_EQ(VLMgetintattr(fresh, "Status", &st), VLM_OK);
  EXPECT_EQ(st, VLM_LOADED);
  VLMfreemodel(fresh);
}

}  // namespace
