// SOS1 and SOS2 constraints solved through their reformulation: optima, the SOS condition in
// the returned solution, weights deciding adjacency and bounds found by propagation (members
// without a finite bound are branched on: held_constructs_test.cpp).
#include <algorithm>

#include "reform/reform_fixture.h"

namespace {

int nonzeros(const std::vector<double>& v) {
  return static_cast<int>(std::count_if(v.begin(), v.end(), [](double a) { return std::fabs(a) > 1e-6; }));
}

// max x + 2y + 3z, x, y, z >= 0 without upper bounds, x + y + z <= 2, SOS1{x, y, z}: the row
// bounds every member by 2 (found by propagation); z = 2, objective 6.
// Adding x + y >= 1 rules z out (it would have to be the only non-zero): y = 2, objective 4.
TEST_F(ReformTest, Sos1MembersBoundedByRowsOnly) {
  int xv = var(1, 0, 1e100, 'C', "x");
  int yv = var(2, 0, 1e100, 'C', "y");
  int zv = var(3, 0, 1e100, 'C', "z");
  maximize();
  row({xv, yv, zv}, {1, 1, 1}, '<', 2);
  sos(1, {xv, yv, zv}, {1, 2, 3});
  solve();
  EXPECT_NEAR(objval(), 6.0, 1e-6);
  EXPECT_NEAR(x(zv), 2.0, 1e-6);
  row({xv, yv}, {1, 1}, '>', 1);
  solve();
  EXPECT_NEAR(objval(), 4.0, 1e-6);
  EXPECT_NEAR(x(yv), 2.0, 1e-6);
  EXPECT_EQ(nonzeros({x(xv), x(yv), x(zv)}), 1);
  expect_user_feasible(3, 2);
}

// min x + y, x in [-3, 5], y in [-4, 5], SOS1{x, y}: without the SOS -7; with it only one may
// be non-zero, so y = -4, x = 0, objective -4 (negative lower bounds take the other big-M).
TEST_F(ReformTest, Sos1WithNegativeLowerBounds) {
  int xv = var(1, -3, 5, 'C', "x");
  int yv = var(1, -4, 5, 'C', "y");
  sos(1, {xv, yv}, {1, 2});
  solve();
  EXPECT_NEAR(objval(), -4.0, 1e-6);
  EXPECT_NEAR(x(xv), 0.0, 1e-6);
  EXPECT_NEAR(x(yv), -4.0, 1e-6);
  expect_user_feasible(2, 0);
}

// max 3a + 2b + c over binaries with SOS1{a, b, c}: a = 1, objective 3.
TEST_F(ReformTest, Sos1OfBinaries) {
  int a = var(3, 0, 1, 'B', "a");
  int b = var(2, 0, 1, 'B', "b");
  int c = var(1, 0, 1, 'B', "c");
  maximize();
  sos(1, {a, b, c}, {1, 2, 3});
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-6);
  EXPECT_EQ(nonzeros({x(a), x(b), x(c)}), 1);
}

// max 2x1 + x2 + x3 + 2x4, all in [0, 1]. SOS2 in the order x1, x2, x3, x4 allows only
// adjacent pairs: (x1, x2) or (x3, x4), objective 3. Weights that order the members
// x1, x4, x2, x3 make x1 and x4 neighbours: objective 4.
TEST_F(ReformTest, Sos2WeightsDecideWhichMembersAreAdjacent) {
  int x1 = var(2, 0, 1, 'C', "x1");
  int x2 = var(1, 0, 1, 'C', "x2");
  int x3 = var(1, 0, 1, 'C', "x3");
  int x4 = var(2, 0, 1, 'C', "x4");
  maximize();
  // Given out of order; the weights sort them to x1, x2, x3, x4.
  sos(2, {x3, x1, x4, x2}, {3, 1, 4, 2});
  solve();
  EXPECT_NEAR(objval(), 3.0, 1e-6);
  std::vector<double> v{x(x1), x(x2), x(x3), x(x4)};
  EXPECT_LE(nonzeros(v), 2);
  const bool pair12 = std::fabs(v[2]) < 1e-6 && std::fabs(v[3]) < 1e-6;
  const bool pair34 = std::fabs(v[0]) < 1e-6 && std::fabs(v[1]) < 1e-6;
  EXPECT_TRUE(pair12 || pair34);

  int del = 0;
  ASSERT_EQ(VLMdelsos(m_, 1, &del), VLM_OK);
  sos(2, {x1, x4, x2, x3}, {1, 2, 3, 4});
  solve();
  EXPECT_NEAR(objval(), 4.0, 1e-6);
  EXPECT_NEAR(x(x1), 1.0, 1e-6);
  EXPECT_NEAR(x(x4), 1.0, 1e-6);
  expect_user_feasible(4, 0);
}

}  // namespace
