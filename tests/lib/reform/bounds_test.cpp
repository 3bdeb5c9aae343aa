// Every construct against its bounds: with a needed bound missing it is refused naming the
// variable and the model is left as it was (SOS and indicators are branched on instead, in
// held_constructs_test.cpp); with variables fixed (the tightest bounds) it
// solves to the exact value.
#include <functional>

#include "reform/reform_fixture.h"

namespace {

struct MissingCase {
  const char* name;
  // Builds the model: x0 is the variable whose bound is missing.
  std::function<void(VLMmodel*)> build;
  const char* message;
};

void vars(VLMmodel* m, std::vector<double> lb, std::vector<double> ub, std::vector<char> type) {
  const char* names[] = {"x0", "x1", "x2"};
  ASSERT_EQ(VLMaddvars(m, static_cast<int>(lb.size()), 0, nullptr, nullptr, nullptr, nullptr, lb.data(), ub.data(),
                       type.data(), const_cast<char**>(names)),
            VLM_OK);
}

TEST_F(ReformTest, EveryConstructNamesItsMissingBound) {
  const double inf = 1e100;
  const MissingCase cases[] = {
      {"MIN lower",
       [=](VLMmodel* m) {
         vars(m, {-inf, 0, -inf}, {5, 5, inf}, {'C', 'C', 'C'});
         int ops[] = {0, 1};
         ASSERT_EQ(VLMaddgenconstrMin(m, "mn", 2, 2, ops, inf), VLM_OK);
       },
       "MIN constraint 'mn' needs a finite lower bound on variable 'x0'"},
      {"NORM 1",
       [=](VLMmodel* m) {
         vars(m, {-inf, 0}, {2, inf}, {'C', 'C'});
         int op = 0;
         ASSERT_EQ(VLMaddgenconstrNorm(m, "n1", 1, 1, &op, 1.0), VLM_OK);
       },
       "NORM constraint 'n1' needs a finite lower bound on variable 'x0'"},
      {"NORM 0",
       [=](VLMmodel* m) {
         vars(m, {0, 0}, {inf, inf}, {'C', 'C'});
         int op = 0;
         ASSERT_EQ(VLMaddgenconstrNorm(m, "n0", 1, 1, &op, 0.0), VLM_OK);
       },
       "NORM constraint 'n0' needs a finite upper bound on variable 'x0'"},
      {"PWL left",
       [=](VLMmodel* m) {
         vars(m, {-inf, -inf}, {2, inf}, {'C', 'C'});
         double px[] = {0, 1}, py[] = {0, 1};
         ASSERT_EQ(VLMaddgenconstrPWL(m, "f", 0, 1, 2, px, py), VLM_OK);
       },
       "PWL constraint 'f' needs a finite lower bound on variable 'x0' (x may lie below the first point x = 0"},
  };
  for (const MissingCase& c : cases) {
    SCOPED_TRACE(c.name);
    VLMmodel* m = nullptr;
    ASSERT_EQ(VLMnewmodel(env_, &m, "missing", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
    c.build(m);
    ASSERT_EQ(VLMupdatemodel(m), VLM_OK);
    int before = 0, after = 0, constrs = -1;
    ASSERT_EQ(VLMgetintattr(m, "NumVars", &before), VLM_OK);
    EXPECT_EQ(VLMoptimize(m), VLM_ERROR_NOT_SUPPORTED);
    const std::string msg = VLMgetmerrormsg(m);
    EXPECT_NE(msg.find(c.message), std::string::npos) << msg;
    ASSERT_EQ(VLMgetintattr(m, "NumVars", &after), VLM_OK);
    ASSERT_EQ(VLMgetintattr(m, "NumConstrs", &constrs), VLM_OK);
    EXPECT_EQ(before, after);
    EXPECT_EQ(constrs, 0);
    // With the bound set, the same model solves.
    ASSERT_EQ(VLMsetdblattrelement(m, "LB", 0, -4.0), VLM_OK);
    ASSERT_EQ(VLMsetdblattrelement(m, "UB", 0, 4.0), VLM_OK);
    ASSERT_EQ(VLMoptimize(m), VLM_OK) << VLMgetmerrormsg(m);
    int status = 0;
    ASSERT_EQ(VLMgetintattr(m, "Status", &status), VLM_OK);
    EXPECT_EQ(status, VLM_OPTIMAL);
    VLMfreemodel(m);
  }
}

// Fixed variables (lower bound = upper bound) leave every constant at its exact value:
// x0 = -2, x1 = 3 fixed; r = max(x0, x1) = 3, s = min(x0, x1, 1) = -2, a = |x0| = 2,
// n = ||(x0, x1)||_1 = 5, y = f(x1) through (0, 0), (3, 6), (4, 6) = 6. min r + s + a + n + y
// has nothing left to choose: 3 - 2 + 2 + 5 + 6 = 14.
TEST_F(ReformTest, FixedVariablesGiveExactValues) {
  int x0 = var(0, -2, -2, 'C', "x0");
  int x1 = var(0, 3, 3, 'C', "x1");
  int r = var(1, -1e100, 1e100, 'C', "r");
  int s = var(1, -1e100, 1e100, 'C', "s");
  int a = var(1, -1e100, 1e100, 'C', "a");
  int n = var(1, -1e100, 1e100, 'C', "n");
  int y = var(1, -1e100, 1e100, 'C', "y");
  int ops[] = {x0, x1};
  ASSERT_EQ(VLMaddgenconstrMax(m_, "r", r, 2, ops, -1e100), VLM_OK);
  ASSERT_EQ(VLMaddgenconstrMin(m_, "s", s, 2, ops, 1.0), VLM_OK);
  ASSERT_EQ(VLMaddgenconstrAbs(m_, "a", a, x0), VLM_OK);
  ASSERT_EQ(VLMaddgenconstrNorm(m_, "n", n, 2, ops, 1.0), VLM_OK);
  double px[] = {0, 3, 4}, py[] = {0, 6, 6};
  ASSERT_EQ(VLMaddgenconstrPWL(m_, "y", x1, y, 3, px, py), VLM_OK);
  solve();
  EXPECT_NEAR(objval(), 14.0, 1e-9);
  EXPECT_NEAR(x(r), 3.0, 1e-9);
  EXPECT_NEAR(x(s), -2.0, 1e-9);
  EXPECT_NEAR(x(a), 2.0, 1e-9);
  EXPECT_NEAR(x(n), 5.0, 1e-9);
  EXPECT_NEAR(x(y), 6.0, 1e-9);
  // Maximising instead: the same values, since nothing is free.
  maximize();
  solve();
  EXPECT_NEAR(objval(), 14.0, 1e-9);
  expect_user_feasible(7, 0);
}

}  // namespace
