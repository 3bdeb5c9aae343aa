// The tuner: results that load valid settings which still solve the model to its optimum,
// parameters fixed by fixTuneParam left alone, TuneTimeLimit and TuneResults honoured, the
// model left unsolved with its parameters as they were, and the errors of result reads.
#include <chrono>
#include <string>

#include "reform/reform_fixture.h"

namespace {

// The parameters the tuner may change on a MIP, with their defaults.
const std::vector<std::pair<const char*, double>> kMipKnobs = {
    {"MIPFocus", 0},  {"Heuristics", 0.05}, {"Cuts", -1}, {"Symmetry", -1},
    {"Presolve", -1}, {"NodeMethod", -1},   {"RINS", -1}, {"HeuFeasJump", -1}};

class TunerTest : public ReformTest {
 protected:
  // A multi-dimensional 0-1 knapsack with 30 items and 4 capacity rows, generated from a fixed
  // linear congruential sequence: large enough to take HiGHS a few hundredths of a second.
  void knapsack() { seeded_knapsack(30, 4); }
  double param(const char* name) {
    double v = NAN;
    int iv = 0;
    if (VLMgetdblparam(VLMgetenv(m_), name, &v) == VLM_OK) return v;
    EXPECT_EQ(VLMgetintparam(VLMgetenv(m_), name, &iv), VLM_OK) << name;
    return iv;
  }
  void set_int(const char* name, int v) { ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), name, v), VLM_OK) << name; }
  void set_dbl(const char* name, double v) { ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), name, v), VLM_OK) << name; }
  void quick_tuning() {
    set_int("TuneOutput", 0);
    set_int("TuneTrials", 1);
    set_dbl("TuneTargetTime", 0);
    set_dbl("TuneTimeLimit", 20);
  }
};

// Each result loads settings that differ from the defaults only in the tuner's parameters and
// solve the model to the same optimum as the defaults; tuning itself leaves the model unsolved
// and its parameters as they were.
TEST_F(TunerTest, ResultsLoadValidSettingsThatKeepTheOptimum) {
  knapsack();
  quick_tuning();
  ASSERT_EQ(VLMtunemodel(m_), VLM_OK) << VLMgetmerrormsg(m_);
  EXPECT_EQ(status(), VLM_LOADED);
  for (const auto& [name, def] : kMipKnobs) EXPECT_EQ(param(name), def) << name;
  solve();
  const double optimum = objval();
  const int count = intattr("TuneResultCount");
  ASSERT_GE(count, 1);
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(VLMgettuneresult(m_, i), VLM_OK) << VLMgetmerrormsg(m_);
    EXPECT_EQ(param("TuneTrials"), 1) << "settings made before tuning are kept";
    solve();
    EXPECT_NEAR(objval(), optimum, 1e-6) << "result " << i;
  }
  expect_error(VLMgettuneresult(m_, count), VLM_ERROR_INDEX_OUT_OF_RANGE,
               "Tuning result " + std::to_string(count) + " does not exist");
}

// With every parameter but Presolve fixed, no result changes any other parameter, and at most
// TuneResults (here 1) results are kept.
TEST_F(TunerTest, FixedParametersAreNotChanged) {
  knapsack();
  quick_tuning();
  set_int("TuneResults", 1);
  for (const auto& [name, def] : kMipKnobs) {
    if (std::string(name) != "Presolve") {
      ASSERT_EQ(VLMfixtuneparam(VLMgetenv(m_), name), VLM_OK) << name;
    }
  }
  ASSERT_EQ(VLMtunemodel(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(intattr("TuneResultCount"), 1);
  ASSERT_EQ(VLMgettuneresult(m_, 0), VLM_OK);
  for (const auto& [name, def] : kMipKnobs) {
    if (std::string(name) != "Presolve") {
      EXPECT_EQ(param(name), def) << name;
    }
  }
  const double presolve = param("Presolve");
  EXPECT_TRUE(presolve == -1 || presolve == 0) << presolve;
}

// TuneTimeLimit bounds the whole run: the list of single changes alone takes well over a
// second on this model with 3 trials each, but tuning stops after about 0.3 s (one trial may
// start just before the end and is cut at the time left).
TEST_F(TunerTest, TimeLimitBoundsTheRun) {
  knapsack();
  set_int("TuneOutput", 0);
  set_dbl("TuneTargetTime", 0);
  set_dbl("TuneTimeLimit", 0.3);
  const auto t0 = std::chrono::steady_clock::now();
  ASSERT_EQ(VLMtunemodel(m_), VLM_OK) << VLMgetmerrormsg(m_);
  const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_LT(took, 1.0);
  EXPECT_GE(intattr("TuneResultCount"), 1);
}

// Before any tuning run there is nothing to read or load.
TEST_F(TunerTest, ResultsBeforeTuningAreUnavailable) {
  knapsack();
  int v = 0;
  EXPECT_EQ(VLMgetintattr(m_, "TuneResultCount", &v), VLM_ERROR_DATA_NOT_AVAILABLE);
  expect_error(VLMgettuneresult(m_, 0), VLM_ERROR_DATA_NOT_AVAILABLE, "no tuning run has completed");
}

}  // namespace
