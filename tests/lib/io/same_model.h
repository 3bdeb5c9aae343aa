// Element-by-element comparison of two models' data, for round-trip tests of the file formats.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

#include "model/model_data.h"

namespace vlm_test {

using vlm::GenConstrData;
using vlm::GenType;
using vlm::ModelData;
using vlm::QConstrData;

// Sorted (index, value) pairs, for rows that keep their entries in no particular order.
inline std::vector<std::pair<int, double>> sorted_terms(const std::vector<int>& ind, const std::vector<double>& val) {
  std::vector<std::pair<int, double>> t;
  for (std::size_t k = 0; k < ind.size(); ++k) t.emplace_back(ind[k], val[k]);
  std::sort(t.begin(), t.end());
  return t;
}

inline std::vector<std::tuple<int, int, double>> sorted_quad(const std::vector<int>& i, const std::vector<int>& j,
                                                      const std::vector<double>& v) {
  std::vector<std::tuple<int, int, double>> t;
  for (std::size_t k = 0; k < v.size(); ++k) t.emplace_back(i[k], j[k], v[k]);
  std::sort(t.begin(), t.end());
  return t;
}

// Element-by-element equality of everything the model files hold.
inline void expect_same_model(const ModelData& a, const ModelData& b) {
  EXPECT_EQ(a.name, b.name);
  EXPECT_EQ(a.sense, b.sense);
  EXPECT_EQ(a.objcon, b.objcon);
  EXPECT_EQ(a.varname, b.varname);
  EXPECT_EQ(a.lb, b.lb);
  EXPECT_EQ(a.ub, b.ub);
  EXPECT_EQ(a.obj, b.obj);
  EXPECT_EQ(a.vtype, b.vtype);
  EXPECT_EQ(a.constrname, b.constrname);
  EXPECT_EQ(a.csense, b.csense);
  EXPECT_EQ(a.rhs, b.rhs);
  ASSERT_EQ(a.rows.size(), b.rows.size());
  for (std::size_t i = 0; i < a.rows.size(); ++i) {
    EXPECT_EQ(sorted_terms(a.rows[i].ind, a.rows[i].val), sorted_terms(b.rows[i].ind, b.rows[i].val))
        << "row " << a.constrname[i];
  }
  ASSERT_EQ(a.qconstrs.size(), b.qconstrs.size());
  for (std::size_t i = 0; i < a.qconstrs.size(); ++i) {
    const QConstrData &p = a.qconstrs[i], &q = b.qconstrs[i];
    EXPECT_EQ(p.name, q.name);
    EXPECT_EQ(p.sense, q.sense) << p.name;
    EXPECT_EQ(p.rhs, q.rhs) << p.name;
    EXPECT_EQ(sorted_terms(p.lind, p.lval), sorted_terms(q.lind, q.lval)) << p.name;
    EXPECT_EQ(sorted_quad(p.qrow, p.qcol, p.qval), sorted_quad(q.qrow, q.qcol, q.qval)) << p.name;
  }
  ASSERT_EQ(a.sos.size(), b.sos.size());
  for (std::size_t i = 0; i < a.sos.size(); ++i) {
    EXPECT_EQ(a.sos[i].type, b.sos[i].type);
    EXPECT_EQ(a.sos[i].ind, b.sos[i].ind);
    EXPECT_EQ(a.sos[i].weight, b.sos[i].weight);
  }
  ASSERT_EQ(a.genconstrs.size(), b.genconstrs.size());
  for (std::size_t i = 0; i < a.genconstrs.size(); ++i) {
    const GenConstrData &g = a.genconstrs[i], &h = b.genconstrs[i];
    EXPECT_EQ(g.name, h.name);
    EXPECT_EQ(g.type, h.type) << g.name;
    EXPECT_EQ(g.res, h.res) << g.name;
    EXPECT_EQ(g.arg, h.arg) << g.name;
    if (g.type == GenType::kIndicator) {
      EXPECT_EQ(sorted_terms(g.vars, g.vals), sorted_terms(h.vars, h.vals)) << g.name;
    } else {
      EXPECT_EQ(g.vars, h.vars) << g.name;
      EXPECT_EQ(g.vals, h.vals) << g.name;
    }
    EXPECT_EQ(g.ypts, h.ypts) << g.name;
    EXPECT_EQ(g.a, h.a) << g.name;
    EXPECT_EQ(g.binval, h.binval) << g.name;
    EXPECT_EQ(g.sense, h.sense) << g.name;
    EXPECT_EQ(g.rhs, h.rhs) << g.name;
    EXPECT_EQ(g.options, h.options) << g.name;
  }
  EXPECT_EQ(sorted_quad(a.qrow, a.qcol, a.qval), sorted_quad(b.qrow, b.qcol, b.qval));
  ASSERT_EQ(a.pwlobj.size(), b.pwlobj.size());
  for (const auto& [j, p] : a.pwlobj) {
    ASSERT_EQ(b.pwlobj.count(j), 1u) << "pwl objective of variable " << j;
    EXPECT_EQ(p.x, b.pwlobj.at(j).x);
    EXPECT_EQ(p.y, b.pwlobj.at(j).y);
  }
  ASSERT_EQ(a.objn.size(), b.objn.size());
  for (std::size_t k = 0; k < a.objn.size(); ++k) {
    EXPECT_EQ(a.objn[k].name, b.objn[k].name);
    EXPECT_EQ(a.objn[k].priority, b.objn[k].priority);
    EXPECT_EQ(a.objn[k].weight, b.objn[k].weight);
    EXPECT_EQ(a.objn[k].abstol, b.objn[k].abstol);
    EXPECT_EQ(a.objn[k].reltol, b.objn[k].reltol);
    EXPECT_EQ(a.objn[k].con, b.objn[k].con);
    EXPECT_EQ(a.objn[k].coef, b.objn[k].coef);
  }
}

}  // namespace vlm_test
