// VLMclean2 and VLMclean3 merge duplicates, drop zeros and sort.
#include <gtest/gtest.h>

#include <vector>

#include "velmor_c.h"

namespace {

TEST(CapiCleanTest, LinearTermsAreMergedSortedAndZerosDropped) {
  std::vector<int> ind = {4, 1, 4, 2, 1};
  std::vector<double> val = {1.5, 2.0, -1.5, 0.0, 3.0};
  int len = 5;
  ASSERT_EQ(VLMclean2(&len, ind.data(), val.data()), VLM_OK);
  ASSERT_EQ(len, 1);  // 4 cancels out, 2 is zero, 1 sums to 5
  EXPECT_EQ(ind[0], 1);
  EXPECT_EQ(val[0], 5.0);
  len = 0;
  EXPECT_EQ(VLMclean2(&len, nullptr, nullptr), VLM_OK);
  EXPECT_EQ(VLMclean2(nullptr, ind.data(), val.data()), VLM_ERROR_NULL_ARGUMENT);
}

TEST(CapiCleanTest, QuadraticPairsAreUnordered) {
  std::vector<int> r = {2, 0, 1, 0};
  std::vector<int> c = {0, 2, 1, 1};
  std::vector<double> v = {1.0, 2.0, 4.0, 0.5};
  int len = 4;
  ASSERT_EQ(VLMclean3(&len, r.data(), c.data(), v.data()), VLM_OK);
  ASSERT_EQ(len, 3);
  EXPECT_EQ(std::vector<int>(r.begin(), r.begin() + 3), (std::vector<int>{0, 0, 1}));
  EXPECT_EQ(std::vector<int>(c.begin(), c.begin() + 3), (std::vector<int>{1, 2, 1}));
  EXPECT_EQ(std::vector<double>(v.begin(), v.begin() + 3), (std::vector<double>{0.5, 3.0, 4.0}));
}

}  // namespace
