// A started, quiet environment with one empty model: the setting of most C API tests.
#pragma once

#include <gtest/gtest.h>

#include "velmor_c.h"

class ModelFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(VLMemptyenv(&env_), VLM_OK);
    ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 0), VLM_OK);
    ASSERT_EQ(VLMstartenv(env_), VLM_OK);
    ASSERT_EQ(VLMnewmodel(env_, &m_, "test", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  }
  void TearDown() override {
    VLMfreemodel(m_);
    VLMfreeenv(env_);
  }

  VLMenv* env_ = nullptr;
  VLMmodel* m_ = nullptr;
};
