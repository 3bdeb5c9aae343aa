// A started, quiet environment with one empty model: the setting of most C API tests, with the
// readers and builders they share. Readers report a failed call as a test failure (with the
// model's message) and return NaN or -1.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

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

  // A linear constraint without a name.
  void row(std::vector<int> ind, std::vector<double> val, char sense, double rhs) {
    ASSERT_EQ(VLMaddconstr(m_, static_cast<int>(ind.size()), ind.data(), val.data(), sense, rhs, nullptr), VLM_OK);
  }
  // Solves and expects an optimal status.
  void solve() {
    ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
    ASSERT_EQ(status(), VLM_OPTIMAL);
  }
  int intattr(const char* name) {
    int v = -1;
    EXPECT_EQ(VLMgetintattr(m_, name, &v), VLM_OK) << name << ": " << VLMgetmerrormsg(m_);
    return v;
  }
  double dbl(const char* name) {
    double v = NAN;
    EXPECT_EQ(VLMgetdblattr(m_, name, &v), VLM_OK) << name << ": " << VLMgetmerrormsg(m_);
    return v;
  }
  double dblelem(const char* name, int e) {
    double v = NAN;
    EXPECT_EQ(VLMgetdblattrelement(m_, name, e, &v), VLM_OK) << name << ": " << VLMgetmerrormsg(m_);
    return v;
  }
  int status() { return intattr("Status"); }
  double objval() { return dbl("ObjVal"); }
  double x(int j) { return dblelem("X", j); }

  VLMenv* env_ = nullptr;
  VLMmodel* m_ = nullptr;
};
