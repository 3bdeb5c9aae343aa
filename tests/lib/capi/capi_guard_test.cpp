// The boundary guard: null handles, null outputs and C++ exceptions become codes and messages.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "capi/capi_guard.h"
#include "velmor_c.h"

namespace {

TEST(CapiGuardTest, NullHandleIsRefusedWithoutRecording) {
  EXPECT_EQ(VLMsetintparam(nullptr, "Method", 1), VLM_ERROR_NULL_ARGUMENT);
  EXPECT_EQ(VLMmsg(nullptr, "x"), VLM_ERROR_NULL_ARGUMENT);
  EXPECT_EQ(VLMgetnumparams(nullptr) > 0, true);
}

TEST(CapiGuardTest, NullArgumentsAreNamedInTheMessage) {
  VLMenv* env = nullptr;
  ASSERT_EQ(VLMemptyenv(&env), VLM_OK);
  EXPECT_EQ(VLMsetstrparam(env, "LogFile", nullptr), VLM_ERROR_NULL_ARGUMENT);
  EXPECT_STREQ(VLMgeterrormsg(env), "Argument 'value' is NULL");
  EXPECT_EQ(VLMsetintparam(env, nullptr, 1), VLM_ERROR_NULL_ARGUMENT);
  EXPECT_STREQ(VLMgeterrormsg(env), "Argument 'paramname' is NULL");
  VLMfreeenv(env);
}

TEST(CapiGuardTest, ExceptionsBecomeCodesAndMessages) {
  vlm::ErrorState errors;
  EXPECT_EQ(vlm::capi::run_guarded(errors, []() -> vlm::Status { throw std::bad_alloc(); }),
            VLM_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(errors.message(), "Out of memory");
  EXPECT_EQ(vlm::capi::run_guarded(errors, []() -> vlm::Status { throw std::runtime_error("boom"); }),
            VLM_ERROR_INTERNAL);
  EXPECT_EQ(errors.message(), "Internal error: boom");
  EXPECT_EQ(vlm::capi::run_guarded(errors, [] { return vlm::Status(VLM_ERROR_NUMERIC, "bad"); }),
            VLM_ERROR_NUMERIC);
  EXPECT_EQ(errors.message(), "bad");
  // Success keeps the last message for a caller that reads it later.
  EXPECT_EQ(vlm::capi::run_guarded(errors, [] { return vlm::Status::Ok(); }), VLM_OK);
  EXPECT_EQ(errors.message(), "bad");
}

}  // namespace
