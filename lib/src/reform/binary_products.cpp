#include "reform/binary_products.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "reform/convexity.h"

namespace vlm::reform {

namespace {

bool binary(const WorkingProblem& p, int j) { return p.integrality[j] == 1 && p.lower[j] >= 0 && p.upper[j] <= 1; }

bool finite(const WorkingProblem& p, int j) { return std::isfinite(p.lower[j]) && std::isfinite(p.upper[j]); }

// The column standing for x b, with its four rows, shared by every occurrence.
class Linearizer {
 public:
  explicit Linearizer(WorkingProblem& p) : p_(p) {}
  // Appends v x_i x_j to the linear form (ind, val), as v b or v w.
  void add(int i, int j, double v, std::vector<int>& ind, std::vector<double>& val) {
    if (i == j) {  // b^2 = b
      ind.push_back(i);
      val.push_back(v);
      return;
    }
    const int b = binary(p_, j) ? j : i, x = b == j ? i : j;
    auto it = cols_.find({x, b});
    int w;
    if (it != cols_.end()) {
      w = it->second;
    } else {
      const double l = p_.lower[x], u = p_.upper[x];
      w = p_.add_col(std::min(0.0, l), std::max(0.0, u), 0);
      p_.add_row({w, b}, {1.0, -u}, -INFINITY, 0.0);
      p_.add_row({w, b}, {1.0, -l}, 0.0, INFINITY);
      p_.add_row({w, x, b}, {1.0, -1.0, -l}, -INFINITY, -l);
      p_.add_row({w, x, b}, {1.0, -1.0, -u}, -u, INFINITY);
      cols_[{x, b}] = w;
    }
    ind.push_back(w);
    val.push_back(v);
  }
  int count() const { return static_cast<int>(cols_.size()); }

 private:
  WorkingProblem& p_;
  std::map<std::pair<int, int>, int> cols_;
};

// The Hessian of `p` from the objective terms of `d` (as build_base writes it).
void rebuild_hessian(const ModelData& d, WorkingProblem& p) {
  p.qstart.clear();
  p.qindex.clear();
  p.qval.clear();
  if (d.qval.empty()) return;
  std::map<std::pair<int, int>, double> h;  // (column, row) with row >= column
  for (std::size_t k = 0; k < d.qval.size(); ++k) {
    const int a = std::min(d.qrow[k], d.qcol[k]), b = std::max(d.qrow[k], d.qcol[k]);
    h[{a, b}] += a == b ? 2.0 * d.qval[k] : d.qval[k];
  }
  std::vector<int> count(p.ncol, 0);
  for (const auto& [cr, v] : h) {
    (void)v;
    ++count[cr.first];
  }
  p.qstart.assign(p.ncol, 0);
  for (int c = 1; c < p.ncol; ++c) p.qstart[c] = p.qstart[c - 1] + count[c - 1];
  for (const auto& [cr, v] : h) {
    p.qindex.push_back(cr.second);
    p.qval.push_back(v);
  }
}

}  // namespace

bool is_binary_product(const WorkingProblem& p, int i, int j) {
  if (i == j) return binary(p, i);
  return (binary(p, i) && finite(p, j)) || (binary(p, j) && finite(p, i));
}

bool convex_without_binary_products(const ModelData& d, const WorkingProblem& p) {
  std::vector<int> r, c;
  std::vector<double> v;
  for (std::size_t k = 0; k < d.qval.size(); ++k) {
    if (is_binary_product(p, d.qrow[k], d.qcol[k])) continue;
    r.push_back(d.qrow[k]);
    c.push_back(d.qcol[k]);
    v.push_back(d.qval[k]);
  }
  return check_psd(r, c, v, d.sense == -1).psd;
}

int linearize_binary_products(ModelData& d, WorkingProblem& p) {
  Linearizer lin(p);
  std::vector<int> ind;
  std::vector<double> val;
  std::vector<int> qr, qc;
  std::vector<double> qv;
  bool objective = false;
  for (std::size_t k = 0; k < d.qval.size(); ++k) {
    if (!is_binary_product(p, d.qrow[k], d.qcol[k])) {
      qr.push_back(d.qrow[k]);
      qc.push_back(d.qcol[k]);
      qv.push_back(d.qval[k]);
      continue;
    }
    lin.add(d.qrow[k], d.qcol[k], d.qval[k], ind, val);
    objective = true;
  }
  for (std::size_t k = 0; k < ind.size(); ++k) p.cost[ind[k]] += val[k];
  if (objective) {
    d.qrow = std::move(qr);
    d.qcol = std::move(qc);
    d.qval = std::move(qv);
  }
  for (QConstrData& q : d.qconstrs) {
    std::vector<int> r, c;
    std::vector<double> v;
    for (std::size_t k = 0; k < q.qval.size(); ++k) {
      if (is_binary_product(p, q.qrow[k], q.qcol[k])) {
        lin.add(q.qrow[k], q.qcol[k], q.qval[k], q.lind, q.lval);
      } else {
        r.push_back(q.qrow[k]);
        c.push_back(q.qcol[k]);
        v.push_back(q.qval[k]);
      }
    }
    q.qrow = std::move(r);
    q.qcol = std::move(c);
    q.qval = std::move(v);
  }
  if (objective) rebuild_hessian(d, p);
  return lin.count();
}

}  // namespace vlm::reform
