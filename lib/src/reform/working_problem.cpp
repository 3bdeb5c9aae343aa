#include "reform/working_problem.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "core/text.h"

namespace vlm::reform {

double to_working(double v) {
  if (v >= VLM_INFINITY) return INFINITY;
  if (v <= -VLM_INFINITY) return -INFINITY;
  return v;
}

double WorkingProblem::objective_value(const std::vector<double>& x) const {
  double v = objcon;
  for (int j = 0; j < ncol; ++j) v += cost[j] * x[j];
  const int nq = static_cast<int>(qstart.size());
  for (int j = 0; j < nq; ++j) {
    const int end = j + 1 < nq ? qstart[j + 1] : static_cast<int>(qval.size());
    for (int k = qstart[j]; k < end; ++k) {
      const int i = qindex[k];
      v += (i == j ? 0.5 : 1.0) * qval[k] * x[i] * x[j];
    }
  }
  return v;
}

int WorkingProblem::add_col(double lb, double ub, int integrality_code, double c) {
  cost.push_back(c);
  lower.push_back(lb);
  upper.push_back(ub);
  integrality.push_back(integrality_code);
  if (integrality_code != 0) mip = true;
  return ncol++;
}

void WorkingProblem::add_row(const std::vector<int>& ind, const std::vector<double>& val, double lo, double up) {
  for (std::size_t k = 0; k < ind.size(); ++k) {
    if (val[k] == 0.0) continue;
    aindex.push_back(ind[k]);
    aval.push_back(val[k]);
  }
  astart.push_back(static_cast<int>(aindex.size()));
  rlo.push_back(lo);
  rup.push_back(up);
  ++nrow;
}

namespace {

// Semi-continuous and semi-integer variables that HiGHS would reinterpret (negative lower
// bound, or upper bound above its 1e5 cap) become x = 0 or lb <= x <= ub through a binary z:
// lb z <= x <= ub z.
bool needs_own_semi(double lb, double ub) { return lb < 0.0 || ub > 1e5; }

}  // namespace

bool base_column(char vtype, double lb, double ub, double& lo, double& up, int& integrality) {
  int code = 0;
  switch (vtype) {
    case 'B':
      lb = std::max(lb, 0.0);
      ub = std::min(ub, 1.0);
      code = 1;
      break;
    case 'I':
      code = 1;
      break;
    case 'S':
    case 'N':
      if (needs_own_semi(lb, ub)) return false;
      code = vtype == 'S' ? 2 : 3;
      break;
    default:
      break;
  }
  lo = to_working(lb);
  up = to_working(ub);
  integrality = code;
  return true;
}

void base_row(char sense, double rhs, double& lo, double& up) {
  const double r = to_working(rhs);
  lo = sense == '<' ? -INFINITY : r;
  up = sense == '>' ? INFINITY : r;
}

Status build_base(const ModelData& d, WorkingProblem& p) {
  p.user_cols = p.ncol = d.num_vars();
  p.user_rows = p.nrow = d.num_constrs();
  p.sense = d.sense;
  p.objcon = d.objcon;
  p.cost = d.obj;
  p.lower.resize(p.ncol);
  p.upper.resize(p.ncol);
  p.integrality.assign(p.ncol, 0);
  std::vector<int> own_semi;
  for (int j = 0; j < p.ncol; ++j) {
    if (base_column(d.vtype[j], d.lb[j], d.ub[j], p.lower[j], p.upper[j], p.integrality[j])) continue;
    if (d.ub[j] >= VLM_INFINITY || d.lb[j] <= -VLM_INFINITY) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, "Semi-continuous variable '" + d.varname[j] +
                                                    "' needs finite bounds to be solved (its bounds are [" +
                                                    short_number(d.lb[j]) + ", " + short_number(d.ub[j]) + "])");
    }
    p.integrality[j] = d.vtype[j] == 'N' ? 1 : 0;
    own_semi.push_back(j);
  }
  p.astart.clear();
  p.astart.reserve(p.nrow + 2 * own_semi.size() + 1);
  p.astart.push_back(0);
  p.rlo.reserve(p.nrow);
  p.rup.reserve(p.nrow);
  for (int i = 0; i < p.nrow; ++i) {
    const Row& r = d.rows[i];
    p.aindex.insert(p.aindex.end(), r.ind.begin(), r.ind.end());
    p.aval.insert(p.aval.end(), r.val.begin(), r.val.end());
    p.astart.push_back(static_cast<int>(p.aindex.size()));
    p.rlo.emplace_back();
    p.rup.emplace_back();
    base_row(d.csense[i], d.rhs[i], p.rlo.back(), p.rup.back());
  }
  for (int j : own_semi) {
    const double lb = d.lb[j], ub = d.ub[j];
    const int z = p.add_col(0.0, 1.0, 1);
    p.lower[j] = std::min(lb, 0.0);
    p.upper[j] = std::max(ub, 0.0);
    // x - ub z <= 0 and x - lb z >= 0.
    p.add_row({j, z}, {1.0, -ub}, -INFINITY, 0.0);
    p.add_row({j, z}, {1.0, -lb}, 0.0, INFINITY);
  }
  p.mip = std::any_of(p.integrality.begin(), p.integrality.end(), [](int t) { return t != 0; });
  // Hessian: HiGHS minimises c'x + 1/2 x'Qx with Q's lower triangle column-wise; a term
  // v x_i x_j (i < j) puts v at (j, i); v x_i^2 puts 2v on the diagonal.
  if (!d.qval.empty()) {
    std::vector<std::size_t> order(d.qval.size());
    for (std::size_t k = 0; k < order.size(); ++k) order[k] = k;
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
      return d.qrow[a] != d.qrow[b] ? d.qrow[a] < d.qrow[b] : d.qcol[a] < d.qcol[b];
    });
    const int n = d.num_vars();
    p.qstart.assign(n + 1, 0);
    std::vector<int> count(n, 0);
    for (std::size_t k : order) count[d.qrow[k]]++;
    for (int j = 0; j < n; ++j) p.qstart[j + 1] = p.qstart[j] + count[j];
    for (std::size_t k : order) {
      p.qindex.push_back(d.qcol[k]);
      p.qval.push_back(d.qrow[k] == d.qcol[k] ? 2.0 * d.qval[k] : d.qval[k]);
    }
    p.qstart.pop_back();
    // The Hessian spans every column, the auxiliary ones included (with no terms).
    p.qstart.resize(p.ncol, static_cast<int>(p.qval.size()));
  }
  return Status::Ok();
}

}  // namespace vlm::reform
