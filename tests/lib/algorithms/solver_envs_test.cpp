// Concurrent and multi-objective environments: each run or level is solved under its own
// environment's parameters (observable through limits that only that environment sets), the
// race keeps a run that finished, discards restore ordinary solves, and bad indices are
// refused with a message.
#include <string>

#include "reform/reform_fixture.h"

namespace {

class SolverEnvsTest : public ReformTest {
 protected:
  // max x + y s.t. x + 2y <= 4, 3x + y <= 6, x, y in [0, 10]. The rows meet at (1.6, 1.2),
  // the optimum, 2.8 (the other vertices (2, 0) and (0, 2) give 2).
  void small_lp() {
    var(1, 0, 10, 'C', "x");
    var(1, 0, 10, 'C', "y");
    row({0, 1}, {1, 2}, '<', 4);
    row({0, 1}, {3, 1}, '<', 6);
    maximize();
  }
  void collect_log() {
    ASSERT_EQ(VLMsetlogcallbackfunc(m_, [](const char* msg, void* usr) {
                static_cast<std::vector<std::string>*>(usr)->emplace_back(msg);
              }, &lines_), VLM_OK);
    ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "OutputFlag", 1), VLM_OK);
  }
  bool logged(const std::string& text) const {
    for (const std::string& l : lines_) {
      if (l.find(text) != std::string::npos) return true;
    }
    return false;
  }
  std::vector<std::string> lines_;
};

// Every method gives the LP optimum 2.8 whichever run wins; the log names both runs.
TEST_F(SolverEnvsTest, ConcurrentRunsWithDifferentMethodsAgree) {
  small_lp();
  collect_log();
  VLMenv* e0 = VLMgetconcurrentenv(m_, 0);
  VLMenv* e1 = VLMgetconcurrentenv(m_, 1);
  ASSERT_NE(e0, nullptr);
  ASSERT_NE(e1, nullptr);
  EXPECT_EQ(VLMgetconcurrentenv(m_, 1), e1) << "the same run's environment is returned again";
  for (int method : {0, 1, 2}) {
    ASSERT_EQ(VLMsetintparam(e0, "Method", method), VLM_OK);
    ASSERT_EQ(VLMsetintparam(e1, "Method", (method + 1) % 3), VLM_OK);
    solve();
    EXPECT_NEAR(objval(), 2.8, 1e-6) << method;
  }
  EXPECT_TRUE(logged("Concurrent solve: 2 runs"));
  EXPECT_TRUE(logged("finished first after"));
}

// A run's limits come from its environment, not the model: a single run with IterationLimit 0
// stops at the limit; a second, unlimited run finishes and wins; after the discard the model
// solves as before (its own parameters never had the limit).
TEST_F(SolverEnvsTest, ConcurrentEnvironmentParametersAreHonoured) {
  small_lp();
  VLMenv* e0 = VLMgetconcurrentenv(m_, 0);
  ASSERT_NE(e0, nullptr);
  ASSERT_EQ(VLMsetdblparam(e0, "IterationLimit", 0), VLM_OK);
  ASSERT_EQ(VLMsetintparam(e0, "Presolve", 0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_ITERATION_LIMIT);

  ASSERT_NE(VLMgetconcurrentenv(m_, 1), nullptr);
  solve();
  EXPECT_NEAR(objval(), 2.8, 1e-6);

  ASSERT_EQ(VLMdiscardconcurrentenvs(m_), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Presolve", 0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 2.8, 1e-6);
  // The discarded environment's handle still works but no longer steers a solve.
  ASSERT_EQ(VLMsetdblparam(e0, "IterationLimit", 0), VLM_OK);
  solve();
  // A new run 0 starts from the model's settings, not the discarded ones.
  VLMenv* fresh = VLMgetconcurrentenv(m_, 0);
  ASSERT_NE(fresh, nullptr);
  double limit = 0;
  ASSERT_EQ(VLMgetdblparam(fresh, "IterationLimit", &limit), VLM_OK);
  EXPECT_GT(limit, 1e9);
  solve();
}

// Two levels on the LP above. Objective 0 (priority 2): max x + 2y, optimal (4) along the
// edge from (0, 2) to (1.6, 1.2); objective 1 (priority 1): max x on that edge, x = 1.6. A
// TimeLimit of 0 in level 2's environment stops that level: status TIME_LIMIT with the level-1
// solution kept (objective 0 at 4); the log marks the level. After the discard x is 1.6 again.
TEST_F(SolverEnvsTest, MultiobjEnvironmentSetsTheParametersOfItsLevel) {
  small_lp();
  collect_log();
  std::vector<int> ind = {0, 1};
  std::vector<double> c0 = {1, 2}, c1 = {1, 0};
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1.0, 0.0, 0.0, nullptr, 0.0, 2, ind.data(), c0.data()), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1.0, 0.0, 0.0, nullptr, 0.0, 2, ind.data(), c1.data()), VLM_OK);
  solve();
  EXPECT_NEAR(x(0), 1.6, 1e-6);
  VLMenv* level2 = VLMgetmultiobjenv(m_, 1);
  ASSERT_NE(level2, nullptr);
  ASSERT_EQ(VLMsetdblparam(level2, "TimeLimit", 0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_TIME_LIMIT);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "ObjNumber", 0), VLM_OK);
  EXPECT_NEAR(dbl("ObjNVal"), 4, 1e-6);
  EXPECT_TRUE(logged("optimize level 2 of 2 (priority 1, objective 1) with the settings of its environment"));
  EXPECT_FALSE(logged("optimize level 1 of 2 (priority 2, objective 0) with the settings"));

  ASSERT_EQ(VLMdiscardmultiobjenvs(m_), VLM_OK);
  solve();
  EXPECT_NEAR(x(0), 1.6, 1e-6);
}

// Indices outside the allowed ranges give NULL and a message naming the index.
TEST_F(SolverEnvsTest, BadIndicesAreRefused) {
  EXPECT_EQ(VLMgetconcurrentenv(m_, -1), nullptr);
  EXPECT_EQ(std::string(VLMgetmerrormsg(m_)), "Concurrent environment index -1 is out of range (0 to 63)");
  EXPECT_EQ(VLMgetconcurrentenv(m_, 64), nullptr);
  EXPECT_EQ(VLMgetmultiobjenv(m_, -2), nullptr);
  EXPECT_EQ(std::string(VLMgetmerrormsg(m_)), "Multi-objective environment index -2 is out of range (0 to 1023)");
  EXPECT_EQ(VLMgetconcurrentenv(nullptr, 0), nullptr);
  EXPECT_EQ(VLMdiscardconcurrentenvs(nullptr), VLM_ERROR_NULL_ARGUMENT);
}

}  // namespace
