// Re-solves through the kept HiGHS instance: after every kind of change the in-place pass gives
// the status and objective of a fresh solve of a copy, and the path taken (changes passed in
// place, or the whole problem again) is the expected one; warm starts, reset and LPWarmStart.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "capi/handles.h"
#include "engine/engine.h"
#include "model_fixture.h"
#include "velmor_c.h"

namespace {

class IncrementalTest : public ModelFixture {
 protected:
  const vlm::engine::PassCounts& counts() {
    const vlm::engine::PassCounts* c = vlm::engine::pass_counts(*m_->model);
    EXPECT_NE(c, nullptr);
    static const vlm::engine::PassCounts none;
    return c ? *c : none;
  }
  // Solves m_ and a fresh copy of it; both must agree on status and objective, and the
  // incremental solution must satisfy the model.
  void compare_with_copy(const std::string& step) {
    ASSERT_EQ(VLMoptimize(m_), VLM_OK) << step << ": " << VLMgetmerrormsg(m_);
    VLMmodel* copy = VLMcopymodel(m_);
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(VLMoptimize(copy), VLM_OK) << step;
    int s1 = status(), s2 = -1;
    ASSERT_EQ(VLMgetintattr(copy, "Status", &s2), VLM_OK);
    EXPECT_EQ(s1, s2) << step;
    if (s1 == VLM_OPTIMAL && s2 == VLM_OPTIMAL) {
      double o2 = NAN;
      ASSERT_EQ(VLMgetdblattr(copy, "ObjVal", &o2), VLM_OK);
      EXPECT_NEAR(objval(), o2, 1e-6 * (1 + std::fabs(o2))) << step;
      EXPECT_LE(dbl("ConstrVio"), 1e-6) << step;
      EXPECT_LE(dbl("BoundVio"), 1e-6) << step;
    }
    VLMfreemodel(copy);
  }
  int nvars() { return intattr("NumVars"); }
  int nconstrs() { return intattr("NumConstrs"); }

  // Random steps of every kind on the model; `kinds` lists which may be drawn. Every step is
  // compared with a fresh solve and must take the expected path: bounds, costs and right-hand
  // sides are patched in place when `patchable` (no reformulated constructs).
  void random_walk(unsigned seed, const std::vector<int>& kinds, int steps, bool quadratic, bool patchable = true) {
    std::mt19937 rng(seed);
    auto uni = [&](double a, double b) { return std::uniform_real_distribution<double>(a, b)(rng); };
    auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
    for (int step = 0; step < steps; ++step) {
      const int kind = kinds[pick(static_cast<int>(kinds.size()))];
      const int n = nvars(), mrows = nconstrs();
      bool columns_change = false;
      switch (kind) {
        case 0:  // bounds
          ASSERT_EQ(VLMsetdblattrelement(m_, "UB", pick(n), std::round(uni(1, 8))), VLM_OK);
          ASSERT_EQ(VLMsetdblattrelement(m_, "LB", pick(n), std::round(uni(-2, 1))), VLM_OK);
          break;
        case 1:  // objective coefficient
          ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", pick(n), uni(-5, 5)), VLM_OK);
          break;
        case 2:  // right-hand side
          if (mrows > 0) {
            ASSERT_EQ(VLMsetdblattrelement(m_, "RHS", pick(mrows), uni(2, 12)), VLM_OK);
          }
          break;
        case 3: {  // coefficient (new or changed)
          if (mrows == 0) break;
          int c = pick(mrows), v = pick(n);
          double val = uni(0.5, 3);
          ASSERT_EQ(VLMchgcoeffs(m_, 1, &c, &v, &val), VLM_OK);
          break;
        }
        case 4: {  // new variable with coefficients in existing rows
          std::vector<int> ind;
          std::vector<double> val;
          for (int i = 0; i < mrows; ++i) {
            if (pick(2)) {
              ind.push_back(i);
              val.push_back(uni(0.5, 2));
            }
          }
          ASSERT_EQ(VLMaddvar(m_, static_cast<int>(ind.size()), ind.data(), val.data(), uni(-4, 1), 0,
                              std::round(uni(1, 6)), pick(3) == 0 ? 'I' : 'C', nullptr),
                    VLM_OK);
          columns_change = true;
          break;
        }
        case 5: {  // deleted variable (keep at least two)
          if (n <= 2) break;
          int v = pick(n);
          ASSERT_EQ(VLMdelvars(m_, 1, &v), VLM_OK);
          columns_change = true;
          break;
        }
        case 6: {  // new constraint
          std::vector<int> ind;
          std::vector<double> val;
          for (int j = 0; j < n; ++j) {
            if (pick(2)) {
              ind.push_back(j);
              val.push_back(uni(0.5, 2));
            }
          }
          ASSERT_EQ(VLMaddconstr(m_, static_cast<int>(ind.size()), ind.data(), val.data(), pick(2) ? '<' : '>',
                                 uni(1, 10), nullptr),
                    VLM_OK);
          break;
        }
        case 7: {  // deleted constraint
          if (mrows <= 1) break;
          int c = pick(mrows);
          ASSERT_EQ(VLMdelconstrs(m_, 1, &c), VLM_OK);
          break;
        }
        case 8:  // type
          ASSERT_EQ(VLMsetcharattrelement(m_, "VType", pick(n), pick(2) ? 'I' : 'C'), VLM_OK);
          break;
        case 9: {  // quadratic objective term (diagonal, so the objective stays convex)
          int v = pick(n);
          double q = uni(0.1, 2);
          ASSERT_EQ(VLMaddqpterms(m_, 1, &v, &v, &q), VLM_OK);
          break;
        }
      }
      const vlm::engine::PassCounts before = counts();
      compare_with_copy("seed " + std::to_string(seed) + " step " + std::to_string(step) + " kind " +
                        std::to_string(kind));
      const vlm::engine::PassCounts& after = counts();
      // A change of columns under a quadratic objective is passed whole; everything else in place.
      if (quadratic && columns_change) {
        EXPECT_EQ(after.fallback, before.fallback + 1) << "step " << step;
      } else {
        EXPECT_EQ(after.incremental, before.incremental + 1)
            << "step " << step << " kind " << kind << ": " << after.last_fallback;
      }
      const bool patch = patchable && (kind == 0 || kind == 1 || (kind == 2 && mrows > 0));
      EXPECT_EQ(after.patched, before.patched + (patch ? 1 : 0)) << "step " << step << " kind " << kind;
    }
  }

  // n bounded variables, m '<' rows with random positive coefficients, random costs.
  void random_model(unsigned seed, int n, int m, char type) {
    std::mt19937 rng(seed);
    auto uni = [&](double a, double b) { return std::uniform_real_distribution<double>(a, b)(rng); };
    for (int j = 0; j < n; ++j) {
      ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, uni(-5, 1), 0, std::round(uni(2, 6)), type, nullptr), VLM_OK);
    }
    for (int i = 0; i < m; ++i) {
      std::vector<int> ind;
      std::vector<double> val;
      for (int j = 0; j < n; ++j) {
        ind.push_back(j);
        val.push_back(uni(0.5, 3));
      }
      row(ind, val, '<', uni(4, 12));
    }
  }
};

// Every kind of change on small LPs: bounds, costs, right-hand sides, coefficients, added and
// deleted variables and constraints, types (the LP becomes a MIP and back).
TEST_F(IncrementalTest, RandomChangesOnLpsMatchFreshSolves) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    TearDown();
    SetUp();
    random_model(seed, 6, 4, 'C');
    compare_with_copy("first");
    EXPECT_EQ(counts().full, 1);
    random_walk(seed, {0, 1, 2, 3, 4, 5, 6, 7, 8}, 30, false);
    EXPECT_EQ(counts().full, 1) << "no whole pass after the first";
  }
}

// The same on MIPs; the previous incumbent is offered as a start whenever it still fits.
TEST_F(IncrementalTest, RandomChangesOnMipsMatchFreshSolves) {
  for (unsigned seed = 11; seed <= 13; ++seed) {
    TearDown();
    SetUp();
    random_model(seed, 7, 4, 'I');
    compare_with_copy("first");
    random_walk(seed, {0, 1, 2, 3, 4, 5, 6, 7, 8}, 25, false);
  }
}

// QPs: quadratic terms are passed in place; columns changing under a Hessian fall back to a
// whole pass, which still agrees with the copy.
TEST_F(IncrementalTest, RandomChangesOnQpsMatchFreshSolves) {
  for (unsigned seed = 21; seed <= 23; ++seed) {
    TearDown();
    SetUp();
    random_model(seed, 5, 3, 'C');
    int v = 0;
    double q = 1.0;
    ASSERT_EQ(VLMaddqpterms(m_, 1, &v, &v, &q), VLM_OK);
    compare_with_copy("first");
    random_walk(seed, {0, 1, 2, 3, 4, 5, 6, 7, 9}, 25, true);
  }
}

// Reformulated constructs append auxiliary columns and rows after the user's: with an SOS1
// set and a MAX constraint, every kind of change (new variables and rows land before the
// auxiliary ones, which are then passed again) still matches a fresh solve.
TEST_F(IncrementalTest, RandomChangesWithReformulatedConstructs) {
  for (unsigned seed = 31; seed <= 32; ++seed) {
    TearDown();
    SetUp();
    random_model(seed, 6, 3, 'C');
    int beg = 0, ind[3] = {0, 1, 2};
    double w[3] = {1, 2, 3};
    int type = 1;
    ASSERT_EQ(VLMaddsos(m_, 1, 3, &type, &beg, ind, w), VLM_OK);
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1.0, 0, 100, 'C', "z"), VLM_OK);
    int ops[2] = {3, 4};
    ASSERT_EQ(VLMaddgenconstrMax(m_, "z_max", 6, 2, ops, 1.0), VLM_OK);
    compare_with_copy("first");
    random_walk(seed, {0, 1, 2, 3, 4, 6, 7}, 20, false, false);
  }
}

// Removing the whole quadratic objective passes an empty Hessian in place.
// min (x-1)^2 - 1 = x^2 - 2x over 0 <= x <= 4: -1 at x = 1; without the square: -8 at x = 4.
TEST_F(IncrementalTest, DroppingTheHessianInPlace) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, -2, 0, 4, 'C', "x"), VLM_OK);
  int v = 0;
  double q = 1.0;
  ASSERT_EQ(VLMaddqpterms(m_, 1, &v, &v, &q), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -1.0, 1e-6);
  ASSERT_EQ(VLMdelq(m_), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -8.0, 1e-9);
  EXPECT_EQ(counts().incremental, 1);
}

// A 30 x 30 transport LP (supplies 110, demands 100, costs 1 + (3i + 7j) mod 10). An unchanged
// re-solve takes no simplex iteration; after one cost change the re-solve starts from the kept
// basis (fewer iterations than a fresh solve of the copy); LPWarmStart 0 and reset(1) solve
// from nothing (as many iterations as the copy).
TEST_F(IncrementalTest, WarmStartsResetAndLpWarmStart) {
  const int k = 30;
  for (int i = 0; i < k; ++i) {
    for (int j = 0; j < k; ++j) {
      ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1 + (3 * i + 7 * j) % 10, 0, 1e100, 'C', nullptr), VLM_OK);
    }
  }
  std::vector<double> ones(k, 1.0);
  for (int i = 0; i < k; ++i) {
    std::vector<int> ind(k);
    for (int j = 0; j < k; ++j) ind[j] = i * k + j;
    row(ind, ones, '<', 110);
  }
  for (int j = 0; j < k; ++j) {
    std::vector<int> ind(k);
    for (int i = 0; i < k; ++i) ind[i] = i * k + j;
    row(ind, ones, '>', 100);
  }
  solve();
  const double first = objval();
  solve();
  EXPECT_EQ(dbl("IterCount"), 0.0);
  EXPECT_EQ(objval(), first);
  EXPECT_EQ(counts().unchanged, 1) << "nothing changed: nothing compared or passed";

  auto copy_iterations = [&] {
    VLMmodel* copy = VLMcopymodel(m_);
    EXPECT_EQ(VLMoptimize(copy), VLM_OK);
    double it = -1, obj = NAN;
    VLMgetdblattr(copy, "IterCount", &it);
    VLMgetdblattr(copy, "ObjVal", &obj);
    EXPECT_NEAR(obj, objval(), 1e-6);
    VLMfreemodel(copy);
    return it;
  };
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 0, 20.0), VLM_OK);
  solve();
  const double cold = copy_iterations();
  EXPECT_LT(dbl("IterCount"), cold);

  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 1, 20.0), VLM_OK);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "LPWarmStart", 0), VLM_OK);
  solve();
  EXPECT_EQ(dbl("IterCount"), copy_iterations());
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "LPWarmStart", 1), VLM_OK);

  ASSERT_EQ(VLMreset(m_, 1), VLM_OK);
  solve();
  EXPECT_EQ(dbl("IterCount"), copy_iterations());
  EXPECT_EQ(counts().full, 1) << "every re-solve passed its changes in place";
}

// A solve stopped by a limit of ours (WorkLimit, checked in HiGHS' interrupt callback) leaves
// no stop behind in the kept instance: the next solve runs to the copy's optimum.
TEST_F(IncrementalTest, AStoppedSolveDoesNotStopTheNext) {
  const int k = 60;
  for (int i = 0; i < k * k; ++i) {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1 + (7 * i) % 13, 0, 1e100, 'C', nullptr), VLM_OK);
  }
  std::vector<double> ones(k, 1.0);
  for (int i = 0; i < k; ++i) {
    std::vector<int> ind(k);
    for (int j = 0; j < k; ++j) ind[j] = i * k + j;
    row(ind, ones, '<', 110);
  }
  for (int j = 0; j < k; ++j) {
    std::vector<int> ind(k);
    for (int i = 0; i < k; ++i) ind[i] = i * k + j;
    row(ind, ones, '>', 100);
  }
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "WorkLimit", 0.0), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK);
  ASSERT_EQ(status(), VLM_WORK_LIMIT);
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "WorkLimit", 1e100), VLM_OK);
  compare_with_copy("after the stop");
  EXPECT_EQ(status(), VLM_OPTIMAL);
  EXPECT_EQ(counts().incremental, 1);
}

// Ranging after an in-place re-solve reads the kept instance, which holds the new problem.
// max 3x + 2y s.t. x + y <= 4, x + 3y <= 8, x <= 3: optimum (3, 1), 11; x's cost may fall to 2
// (where y takes over) before the basis changes. With y's cost at 1 it may fall to 1.
TEST_F(IncrementalTest, SensitivityFollowsTheKeptInstance) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 3, 0, 3, 'C', "x"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 2, 0, 1e100, 'C', "y"), VLM_OK);
  row({0, 1}, {1, 1}, '<', 4);
  row({0, 1}, {1, 3}, '<', 8);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  solve();
  EXPECT_NEAR(dblelem("SAObjLow", 0), 2.0, 1e-9);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 1, 1.0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 10.0, 1e-9);
  EXPECT_NEAR(dblelem("SAObjLow", 0), 1.0, 1e-9);
  EXPECT_EQ(counts().incremental, 1);
}

}  // namespace

namespace {

// The check that decides whether the previous incumbent is offered as a MIP start: bounds,
// integrality (a semi-continuous column may also sit at 0) and rows, within the tolerance.
TEST(IncumbentCheck, BoundsIntegralitySemiContinuityAndRows) {
  vlm::reform::WorkingProblem p;
  p.add_col(0, 4, 1);   // x integer in [0, 4]
  p.add_col(2, 5, 2);   // s semi-continuous: 0 or [2, 5]
  p.add_row({0, 1}, {1, 1}, -INFINITY, 6);  // x + s <= 6
  p.mip = true;
  using vlm::engine::satisfies;
  EXPECT_TRUE(satisfies(p, {3, 0}, 1e-9));
  EXPECT_TRUE(satisfies(p, {3, 3}, 1e-9));
  EXPECT_FALSE(satisfies(p, {3, 1}, 1e-9)) << "s between 0 and its lower bound";
  EXPECT_FALSE(satisfies(p, {2.5, 2}, 1e-9)) << "x fractional";
  EXPECT_FALSE(satisfies(p, {4, 3}, 1e-9)) << "row violated (7 > 6)";
  EXPECT_FALSE(satisfies(p, {5, 0}, 1e-9)) << "x above its bound";
  EXPECT_FALSE(satisfies(p, {3}, 1e-9)) << "wrong length";
  EXPECT_FALSE(satisfies(p, {NAN, 0}, 1e-9));
}

}  // namespace

namespace {

// Re-solves after changes that only touch bounds, costs and right-hand sides: the kept
// problem is patched in place (nothing rebuilt or compared) and must agree with fresh solves.
class PatchTest : public IncrementalTest {};

// Batches of random bound, cost and right-hand side changes, some spread over several
// updates between two solves and some repeating an element; names and hints change on the way
// (they touch nothing the engine passes). Every re-solve matches a fresh copy and is a patch.
TEST_F(PatchTest, RandomBatchesMatchFreshSolves) {
  for (unsigned seed = 41; seed <= 44; ++seed) {
    TearDown();
    SetUp();
    const char type = seed % 2 ? 'C' : 'I';
    random_model(seed, 12, 6, type);
    compare_with_copy("first");
    std::mt19937 rng(seed);
    auto uni = [&](double a, double b) { return std::uniform_real_distribution<double>(a, b)(rng); };
    auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
    for (int step = 0; step < 25; ++step) {
      const int updates = 1 + pick(3);
      for (int u = 0; u < updates; ++u) {
        for (int c = 1 + pick(6); c > 0; --c) {
          const int j = pick(12), i = pick(6);
          switch (pick(6)) {
            case 0:
              ASSERT_EQ(VLMsetdblattrelement(m_, "UB", j, std::round(uni(0, 8))), VLM_OK);
              break;
            case 1:
              ASSERT_EQ(VLMsetdblattrelement(m_, "LB", j, std::round(uni(-4, 0))), VLM_OK);
              break;
            case 2:
              ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", j, uni(-5, 5)), VLM_OK);
              break;
            case 3:
              ASSERT_EQ(VLMsetdblattrelement(m_, "RHS", i, uni(-2, 15)), VLM_OK);
              break;
            case 4:
              ASSERT_EQ(VLMsetstrattrelement(m_, "VarName", j, ("v" + std::to_string(step)).c_str()), VLM_OK);
              break;
            default:
              ASSERT_EQ(VLMsetdblattrelement(m_, "VarHintVal", j, uni(0, 3)), VLM_OK);
              break;
          }
        }
        if (u + 1 < updates) {
          ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
        }
      }
      const vlm::engine::PassCounts before = counts();
      compare_with_copy("seed " + std::to_string(seed) + " step " + std::to_string(step));
      EXPECT_EQ(counts().patched, before.patched + 1) << "step " << step;
      EXPECT_EQ(counts().incremental, before.incremental + 1) << "step " << step;
    }
    EXPECT_EQ(counts().full, 1) << "no whole pass after the first";
    EXPECT_EQ(counts().fallback, 0);
  }
}

// A change the patch cannot take, among bound changes since the last solve, sends the whole
// batch through the compare: here the constraint's sense. Afterwards patching resumes.
// min -x - y, x + y <= 4, x, y in [0, 3]: -4. With UB(x) = 1 and the row turned to
// x + y >= 4 the minimum is x = 1, y = 3: -4 still, so the cost of y is set to 0 too: -1.
// Then RHS 3 with UB(x) 1 (x + y >= 3, min -x): x = 1, y in [2, 3]: -1; UB(x) 0.5: -0.5.
TEST_F(PatchTest, OtherChangesGoThroughTheCompare) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, -1, 0, 3, 'C', "x"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, -1, 0, 3, 'C', "y"), VLM_OK);
  row({0, 1}, {1, 1}, '<', 4);
  solve();
  EXPECT_NEAR(objval(), -4.0, 1e-9);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 1), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "Obj", 1, 0), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMsetcharattrelement(m_, "Sense", 0, '>'), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -1.0, 1e-9);
  EXPECT_EQ(counts().patched, 0);
  EXPECT_EQ(counts().incremental, 1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "RHS", 0, 3), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -1.0, 1e-9);
  EXPECT_EQ(counts().patched, 1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 0.5), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -0.5, 1e-9);
  EXPECT_NEAR(x(0), 0.5, 1e-9);
  EXPECT_EQ(counts().patched, 2);
  EXPECT_EQ(counts().full, 1);
}

// Many updates without a solve: once the record of touched elements would outgrow the model
// it says "anything", and the re-solve goes through the compare, still right.
// min -x - y, x + y <= 4, x in [0, 3], y in [0, 3]; after the loop UB(x) = UB(y) = 1: -2.
TEST_F(PatchTest, ALongRecordFallsBackToTheCompare) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, -1, 0, 3, 'C', "x"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, -1, 0, 3, 'C', "y"), VLM_OK);
  row({0, 1}, {1, 1}, '<', 4);
  solve();
  EXPECT_NEAR(objval(), -4.0, 1e-9);
  for (int k = 0; k < 40; ++k) {
    ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 1 + (k % 3)), VLM_OK);
    ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 1, 1 + (k % 2)), VLM_OK);
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  }
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 1), VLM_OK);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 1, 1), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -2.0, 1e-9);
  EXPECT_EQ(counts().patched, 0);
  EXPECT_EQ(counts().incremental, 1);
  // The record starts again after that solve.
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 1, 2), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), -3.0, 1e-9);
  EXPECT_EQ(counts().patched, 1);
}

// Bounds of typed columns follow the same rules as a build: a binary's upper bound of 5 is
// still 1, and a semi-continuous column whose upper bound passes 1e5 needs a binary of its
// own, which only a build adds (no patch then).
// max b + s with b binary, s semi-continuous in [2, 10]: 11. UB(b) = 5: still 11.
// UB(s) = 2e5: 200001. Back to UB(s) = 10 (the binary goes again): 11.
TEST_F(PatchTest, TypedColumnsKeepTheirForm) {
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 1, 'B', "b"), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 2, 10, 'S', "s"), VLM_OK);
  ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 11.0, 1e-9);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 5), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 11.0, 1e-9);
  EXPECT_NEAR(x(0), 1.0, 1e-9);
  EXPECT_EQ(counts().patched, 1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 1, 2e5), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 200001.0, 1e-6);
  EXPECT_EQ(counts().patched, 1);
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 1, 10), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 11.0, 1e-9);
  EXPECT_EQ(counts().patched, 1) << "the kept problem has an auxiliary binary";
  ASSERT_EQ(VLMsetdblattrelement(m_, "UB", 0, 0), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 10.0, 1e-9);
  EXPECT_EQ(counts().patched, 2);
}

}  // namespace
