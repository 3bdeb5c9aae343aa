// Copies solved side by side: a race ends with the finished run's index and stops the others;
// nothing starts after the deadline; a raised stop flag keeps runs from starting; a copy has
// its run's parameters, a silenced log and no concurrency of its own, and leaves the source
// model untouched.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <vector>

#include "algorithms/parallel_runs.h"
#include "capi/handles.h"
#include "model_fixture.h"
#include "params/param_table.h"

namespace {

using vlm::algorithms::CopyRun;
using vlm::algorithms::run_copies;
using vlm::algorithms::run_copy;

class ParallelRunsTest : public ModelFixture {
 protected:
  // min x + y s.t. x + y >= 2, x, y in [0, 5]: optimum 2.
  void small_lp() {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 5, 'C', "x"), VLM_OK);
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 5, 'C', "y"), VLM_OK);
    row({0, 1}, {1, 1}, '>', 2);
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  }
  vlm::Model& model() { return *m_->model; }
  // A copy that solves a market-split instance (4 equality rows over 40 binaries), which no
  // run ends on its own within 60 s.
  std::unique_ptr<vlm::Model> hard_copy() {
    VLMmodel* hard = nullptr;
    EXPECT_EQ(VLMnewmodel(env_, &hard, "hard", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
    unsigned seed = 4711;
    auto next = [&seed] {
      seed = seed * 1103515245u + 12345u;
      return static_cast<int>((seed >> 16) % 100);
    };
    for (int j = 0; j < 40; ++j) EXPECT_EQ(VLMaddvar(hard, 0, nullptr, nullptr, 0, 0, 1, 'B', nullptr), VLM_OK);
    for (int i = 0; i < 4; ++i) {
      std::vector<int> ind(40);
      std::vector<double> val(40);
      double sum = 0;
      for (int j = 0; j < 40; ++j) {
        ind[j] = j;
        val[j] = next();
        sum += val[j];
      }
      EXPECT_EQ(VLMaddconstr(hard, 40, ind.data(), val.data(), '=', std::floor(sum / 2), nullptr), VLM_OK);
    }
    EXPECT_EQ(VLMupdatemodel(hard), VLM_OK);
    vlm::ParamSet ps = hard->model->env().params();
    EXPECT_TRUE(ps.set_dbl(vlm::find_param("TimeLimit"), 60).ok());
    auto copy = run_copy(*hard->model, ps);
    VLMfreemodel(hard);
    return copy;
  }
};

// The LP finishes; the market split cannot, so only the race's stop can end it: run 1 wins,
// run 0 is INTERRUPTED (not TIME_LIMIT after 60 s), and the stop flag is up.
TEST_F(ParallelRunsTest, RaceStopsTheOthersWhenOneFinishes) {
  small_lp();
  std::vector<CopyRun> runs(2);
  runs[0].copy = hard_copy();
  runs[1].copy = run_copy(model(), model().env().params());
  std::atomic<bool> stop{false};
  EXPECT_EQ(run_copies(runs, 2, stop, true), 1);
  EXPECT_TRUE(stop.load());
  for (const CopyRun& r : runs) {
    EXPECT_TRUE(r.started && r.ended);
    EXPECT_TRUE(r.status.ok()) << r.status.message();
  }
  EXPECT_EQ(runs[0].copy->solution()->status, VLM_INTERRUPTED);
  EXPECT_EQ(runs[1].copy->solution()->status, VLM_OPTIMAL);
  EXPECT_NEAR(runs[1].copy->solution()->objval, 2.0, 1e-9);
  EXPECT_EQ(model().solution(), nullptr) << "the source model is not solved";
}

// Without a race every run ends by itself, one at a time with width 1; each copy has its own
// parameters (run 1: IterationLimit 0 without presolve stops before the optimum).
TEST_F(ParallelRunsTest, EveryRunEndsWithItsOwnParameters) {
  small_lp();
  vlm::ParamSet limited = model().env().params();
  ASSERT_TRUE(limited.set_dbl(vlm::find_param("IterationLimit"), 0).ok());
  ASSERT_TRUE(limited.set_int(vlm::find_param("Presolve"), 0).ok());
  std::vector<CopyRun> runs(2);
  runs[0].copy = run_copy(model(), model().env().params());
  runs[1].copy = run_copy(model(), limited);
  std::atomic<bool> stop{false};
  EXPECT_EQ(run_copies(runs, 1, stop, false), -1);
  EXPECT_FALSE(stop.load());
  EXPECT_EQ(runs[0].copy->solution()->status, VLM_OPTIMAL);
  EXPECT_EQ(runs[1].copy->solution()->status, VLM_ITERATION_LIMIT);
}

// A deadline already past, or a stop already raised, starts nothing.
TEST_F(ParallelRunsTest, NothingStartsAfterTheDeadlineOrAStop) {
  small_lp();
  std::vector<CopyRun> runs(3);
  for (CopyRun& r : runs) r.copy = run_copy(model(), model().env().params());
  std::atomic<bool> stop{false};
  EXPECT_EQ(run_copies(runs, 2, stop, true, std::chrono::steady_clock::now() - std::chrono::seconds(1)), -1);
  stop.store(true);
  EXPECT_EQ(run_copies(runs, 2, stop, true), -1);
  for (const CopyRun& r : runs) {
    EXPECT_FALSE(r.started);
    EXPECT_EQ(r.copy->solution(), nullptr);
  }
}

// A copy takes the run's parameters but never races again, and logs only when asked to.
TEST_F(ParallelRunsTest, CopiesAreQuietAndNeverConcurrent) {
  small_lp();
  vlm::ParamSet ps = model().env().params();
  ASSERT_TRUE(ps.set_int(vlm::find_param("Method"), 3).ok());
  ASSERT_TRUE(ps.set_int(vlm::find_param("ConcurrentMIP"), 4).ok());
  ASSERT_TRUE(ps.set_int(vlm::find_param("Seed"), 9).ok());
  ASSERT_TRUE(ps.set_int(vlm::find_param("OutputFlag"), 1).ok());
  auto copy = run_copy(model(), ps);
  const vlm::ParamSet& got = copy->env().params();
  EXPECT_EQ(got.int_param("OutputFlag"), 0);
  EXPECT_EQ(got.int_param("Method"), -1);
  EXPECT_EQ(got.int_param("ConcurrentMIP"), 1);
  EXPECT_EQ(got.int_param("Seed"), 9);
  EXPECT_EQ(copy->data().num_vars(), 2);
  auto loud = run_copy(model(), ps, false);
  EXPECT_EQ(loud->env().params().int_param("OutputFlag"), 1);
}

}  // namespace
