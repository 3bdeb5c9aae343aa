// The link to HiGHS: the library loaded at run time is the one we compiled against, and a
// 2-variable LP solves through its C API.
//
// Not tested here: the engine proper (compiling models, statuses, callbacks).
#include <gtest/gtest.h>

#include "engine/highs_api.h"
#include "interfaces/highs_c_api.h"

namespace {

TEST(HighsLinkTest, LoadedLibraryMatchesTheHeaders) {
  EXPECT_TRUE(vlm::engine::check_highs().ok()) << vlm::engine::check_highs().message();
  EXPECT_EQ(Highs_getSizeofHighsInt(nullptr), static_cast<HighsInt>(sizeof(HighsInt)));
  EXPECT_EQ(Highs_versionMajor(), 1);
  EXPECT_EQ(Highs_versionMinor(), 15);
  EXPECT_EQ(Highs_versionPatch(), 1);
}

// max x + y  s.t.  x + 2y <= 4,  3x + y <= 6,  x, y >= 0
// Vertices: (0,0), (2,0), (0,2), (1.6, 1.2); the optimum is (1.6, 1.2) with value 2.8.
TEST(HighsLinkTest, SolvesATwoVariableLp) {
  const HighsInt num_col = 2, num_row = 2, num_nz = 4;
  const double col_cost[] = {1.0, 1.0};
  const double col_lower[] = {0.0, 0.0};
  const double col_upper[] = {1e30, 1e30};
  const double row_lower[] = {-1e30, -1e30};
  const double row_upper[] = {4.0, 6.0};
  const HighsInt a_start[] = {0, 2};
  const HighsInt a_index[] = {0, 1, 0, 1};
  const double a_value[] = {1.0, 2.0, 3.0, 1.0};
  double col_value[2], col_dual[2], row_value[2], row_dual[2];
  HighsInt col_basis[2], row_basis[2], model_status = 0;
  HighsInt rc = Highs_lpCall(num_col, num_row, num_nz, kHighsMatrixFormatRowwise,
                             kHighsObjSenseMaximize, 0.0, col_cost, col_lower, col_upper,
                             row_lower, row_upper, a_start, a_index, a_value, col_value, col_dual,
                             row_value, row_dual, col_basis, row_basis, &model_status);
  ASSERT_EQ(rc, kHighsStatusOk);
  ASSERT_EQ(model_status, kHighsModelStatusOptimal);
  EXPECT_NEAR(col_value[0], 1.6, 1e-9);
  EXPECT_NEAR(col_value[1], 1.2, 1e-9);
  EXPECT_NEAR(col_value[0] + col_value[1], 2.8, 1e-9);
  // Both rows are tight at the optimum.
  EXPECT_NEAR(row_value[0], 4.0, 1e-9);
  EXPECT_NEAR(row_value[1], 6.0, 1e-9);
}

}  // namespace
