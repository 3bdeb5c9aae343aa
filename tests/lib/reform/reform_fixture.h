// Helpers for solving small models with SOS, general constraints and PWL objectives through
// the C API, and for checking that a returned solution satisfies the user's model.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

class ReformTest : public ModelFixture {
 protected:
  int var(double obj, double lb, double ub, char type, const char* name) {
    EXPECT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, obj, lb, ub, type, name), VLM_OK);
    return nvars_++;
  }
  void maximize() { ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK); }
  void sos(int type, std::vector<int> ind, std::vector<double> w) {
    int beg = 0;
    ASSERT_EQ(VLMaddsos(m_, 1, static_cast<int>(ind.size()), &type, &beg, ind.data(), w.data()), VLM_OK);
  }
  // The solution satisfies the user's bounds, rows and integrality, and the user's model has
  // exactly the elements it was given (no auxiliary column or row shows).
  void expect_user_feasible(int nvars, int nconstrs) {
    EXPECT_EQ(intattr("NumVars"), nvars);
    EXPECT_EQ(intattr("NumConstrs"), nconstrs);
    std::vector<double> xs(nvars + 1);
    EXPECT_EQ(VLMgetdblattrarray(m_, "X", 0, nvars + 1, xs.data()), VLM_ERROR_INDEX_OUT_OF_RANGE);
    for (const char* q : {"BoundVio", "ConstrVio", "IntVio"}) {
      double v = -1;
      ASSERT_EQ(VLMgetdblattr(m_, q, &v), VLM_OK) << q;
      EXPECT_LE(v, 1e-6) << q;
    }
  }
  // A maximising 0-1 knapsack of `items` items and `rows` capacity rows (each a third of its
  // row's total weight) from a fixed linear congruential sequence: the same model every run.
  void seeded_knapsack(int items, int rows) {
    unsigned s = 12345;
    auto next = [&s](int lo, int hi) {
      s = s * 1103515245u + 12345u;
      return lo + static_cast<int>((s >> 16) % static_cast<unsigned>(hi - lo + 1));
    };
    for (int j = 0; j < items; ++j) var(next(10, 60), 0, 1, 'B', nullptr);
    for (int i = 0; i < rows; ++i) {
      std::vector<int> ind;
      std::vector<double> val;
      double total = 0;
      for (int j = 0; j < items; ++j) {
        ind.push_back(j);
        val.push_back(next(5, 40));
        total += val.back();
      }
      row(ind, val, '<', std::floor(total / 3));
    }
    maximize();
  }
  // The last error's code and that its message holds `part`.
  void expect_error(int rc, int code, const std::string& part) {
    EXPECT_EQ(rc, code);
    const std::string msg = VLMgetmerrormsg(m_);
    EXPECT_NE(msg.find(part), std::string::npos) << msg;
  }

  int nvars_ = 0;
};
