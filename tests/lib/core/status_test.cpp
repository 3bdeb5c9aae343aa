// Status and StatusOr: the failure values every library function passes up.
#include <gtest/gtest.h>

#include <string>

#include "core/status.h"

namespace vlm {
namespace {

StatusOr<int> half(int v) {
  if (v % 2 != 0) return Status(VLM_ERROR_INVALID_ARGUMENT, "odd");
  return v / 2;
}

// A function that forgets its value: returns an OK status where an int is due.
StatusOr<int> forgetful() { return Status::Ok(); }

TEST(StatusOrTest, CarriesTheValueOrTheFailure) {
  StatusOr<int> a = half(8);
  ASSERT_TRUE(a.ok());
  EXPECT_EQ(*a, 4);
  StatusOr<int> b = half(3);
  EXPECT_FALSE(b.ok());
  EXPECT_EQ(b.status().code(), VLM_ERROR_INVALID_ARGUMENT);
}

TEST(StatusOrTest, AnOkStatusWithoutAValueIsAnInternalError) {
  StatusOr<int> r = forgetful();
  EXPECT_FALSE(r.ok());
  EXPECT_EQ(r.status().code(), VLM_ERROR_INTERNAL);
  EXPECT_EQ(r.status().message(), "A result was due but none was given");
}

}  // namespace
}  // namespace vlm
