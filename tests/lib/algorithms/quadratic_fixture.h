// The fixture of the quadratic solve tests: builds a model through the C API, remembers what
// it added and checks a returned point against that data (not against the library's slacks).
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "velmor_c.h"

namespace quadtest {

constexpr double kInf = 1e100;
constexpr double kTol = 1e-6;  // FeasibilityTol at its default

class QuadraticSolveTest : public ModelFixture {
 protected:
  struct Quad {
    std::vector<int> li;
    std::vector<double> lv;
    std::vector<int> qr, qc;
    std::vector<double> qv;
    char sense;
    double rhs;
  };
  struct Lin {
    std::vector<int> ind;
    std::vector<double> val;
    char sense;
    double rhs;
  };

  void var(double obj, double lb, double ub, char type = 'C') {
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, obj, lb, ub, type, nullptr), VLM_OK);
    lb_.push_back(lb);
    ub_.push_back(ub);
    type_.push_back(type);
  }
  void row(std::vector<int> ind, std::vector<double> val, char sense, double rhs) {
    ASSERT_EQ(VLMaddconstr(m_, static_cast<int>(ind.size()), ind.data(), val.data(), sense, rhs, nullptr), VLM_OK);
    rows_.push_back({ind, val, sense, rhs});
  }
  void qc(Quad q, const char* name = nullptr) {
    ASSERT_EQ(VLMaddqconstr(m_, static_cast<int>(q.li.size()), q.li.data(), q.lv.data(), static_cast<int>(q.qv.size()),
                            q.qr.data(), q.qc.data(), q.qv.data(), q.sense, q.rhs, name),
              VLM_OK);
    quads_.push_back(q);
  }
  void maximise() { ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK); }
  void param(const char* name, int v) { ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), name, v), VLM_OK); }
  void param(const char* name, double v) { ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), name, v), VLM_OK); }
  double elem(const char* name, int e) {
    double v = NAN;
    EXPECT_EQ(VLMgetdblattrelement(m_, name, e, &v), VLM_OK) << name << ": " << VLMgetmerrormsg(m_);
    return v;
  }
  std::vector<double> x() {
    std::vector<double> v(lb_.size());
    for (int j = 0; j < static_cast<int>(v.size()); ++j) v[j] = elem("X", j);
    return v;
  }
  // Checks bounds, integrality, linear rows and quadratic constraints at the returned X.
  void expect_feasible() {
    const std::vector<double> v = x();
    for (std::size_t j = 0; j < v.size(); ++j) {
      EXPECT_GE(v[j], lb_[j] - kTol) << "x" << j;
      EXPECT_LE(v[j], ub_[j] + kTol) << "x" << j;
      if (type_[j] != 'C') {
        EXPECT_NEAR(v[j], std::round(v[j]), 1e-5) << "x" << j;
      }
    }
    auto check = [](double lhs, char sense, double rhs, const std::string& what) {
      if (sense != '>') {
        EXPECT_LE(lhs, rhs + kTol) << what;
      }
      if (sense != '<') {
        EXPECT_GE(lhs, rhs - kTol) << what;
      }
    };
    for (std::size_t i = 0; i < rows_.size(); ++i) {
      double lhs = 0;
      for (std::size_t k = 0; k < rows_[i].ind.size(); ++k) lhs += rows_[i].val[k] * v[rows_[i].ind[k]];
      check(lhs, rows_[i].sense, rows_[i].rhs, "row " + std::to_string(i));
    }
    for (std::size_t i = 0; i < quads_.size(); ++i) {
      const Quad& q = quads_[i];
      double lhs = 0;
      for (std::size_t k = 0; k < q.li.size(); ++k) lhs += q.lv[k] * v[q.li[k]];
      for (std::size_t k = 0; k < q.qv.size(); ++k) lhs += q.qv[k] * v[q.qr[k]] * v[q.qc[k]];
      check(lhs, q.sense, q.rhs, "quadratic constraint " + std::to_string(i));
    }
  }
  int num_qconstrs() {
    int n = -1;
    EXPECT_EQ(VLMgetintattr(m_, "NumQConstrs", &n), VLM_OK);
    return n;
  }

  std::vector<double> lb_, ub_;
  std::vector<char> type_;
  std::vector<Lin> rows_;
  std::vector<Quad> quads_;
};

}  // namespace quadtest
