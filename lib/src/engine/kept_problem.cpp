#include "engine/kept_problem.h"

#include <algorithm>
#include <cmath>

#include "engine/highs_instance.h"
#include "interfaces/highs_c_api.h"

namespace vlm::engine {

namespace {

using Problem = reform::WorkingProblem;
using Ids = std::vector<std::uint64_t>;

// Where each old element of one kind (columns or rows) goes in the new problem, and how many
// of the new ones HiGHS keeps in place (the first `kept`; the rest are appended).
struct Match {
  std::vector<int> to_new;    // per old element: new index, -1 when it is gone
  std::vector<int> to_old;    // per new element below `kept`: its old index
  std::vector<int> removed;   // old indices HiGHS must delete, ascending
  int kept = 0;
};

// Matches the user's elements by identity (both lists ascending: identities grow with
// creation and deletions keep the order) and the auxiliary ones by position after them.
// False when the identities are not in step with the problems.
bool match(const Ids& old_ids, int old_user, int old_total, const Ids& new_ids, int new_user, int new_total,
           Match& mt) {
  if (static_cast<int>(old_ids.size()) != old_user || static_cast<int>(new_ids.size()) != new_user) return false;
  mt.to_new.assign(old_total, -1);
  if (old_user == new_user && (old_user == 0 || old_ids.back() == new_ids.back())) {
    // Nothing added or deleted: an addition would end the list with a larger identity, and
    // with none, equal counts leave no room for a deletion.
    for (int i = 0; i < old_user; ++i) mt.to_new[i] = i;
  } else {
    int j = 0;
    for (int i = 0; i < old_user; ++i) {
      while (j < new_user && new_ids[j] < old_ids[i]) ++j;
      if (j < new_user && new_ids[j] == old_ids[i]) mt.to_new[i] = j++;
    }
  }
  for (int k = 0; old_user + k < old_total && new_user + k < new_total; ++k) mt.to_new[old_user + k] = new_user + k;
  // HiGHS keeps the order of what survives a delete and appends at the end: a survivor stays
  // in place only while every earlier new index is a survivor too.
  mt.kept = 0;
  mt.to_old.clear();
  mt.removed.clear();
  bool in_place = true;
  for (int i = 0; i < old_total; ++i) {
    if (in_place && mt.to_new[i] == mt.kept) {
      mt.to_old.push_back(i);
      ++mt.kept;
      continue;
    }
    if (mt.to_new[i] >= 0) in_place = false;
    mt.removed.push_back(i);
  }
  return true;
}

bool ok(HighsInt rc) { return rc != kHighsStatusError; }

// The differences in place; false (with the reason) when they cannot be passed that way. The
// instance may be partly changed on false: the caller passes the whole problem then.
bool update_in_place(void* h, const Problem& o, const Ids& ocols, const Ids& orows, const Problem& n,
                     const Ids& ncols, const Ids& nrows, Match& cm, std::string& why) {
  Match rm;
  if (!match(ocols, o.user_cols, o.ncol, ncols, n.user_cols, n.ncol, cm) ||
      !match(orows, o.user_rows, o.nrow, nrows, n.user_rows, n.nrow, rm)) {
    why = "element identities out of step";
    return false;
  }
  const int P = cm.kept, R = rm.kept;
  // Re-adding most of the problem costs as much as passing all of it.
  if (n.ncol - P > n.ncol / 2 + 8 || n.nrow - R > n.nrow / 2 + 8) {
    why = "most columns or rows would be passed again";
    return false;
  }
  const bool columns_change = !cm.removed.empty() || P < n.ncol;
  if (columns_change && (!o.qval.empty() || !n.qval.empty())) {
    why = "columns change with a quadratic objective";
    return false;
  }

  // Coefficients of kept rows and columns, compared first: too many changes fall back before
  // HiGHS is touched.
  struct Coef {
    int row, col;
    double val;
  };
  std::vector<Coef> coefs;
  const std::size_t coef_limit = 1000 + n.aval.size() / 20;
  const bool same_columns = cm.removed.empty() && P == o.ncol;
  std::vector<double> work;  // made on the first row that differs (most rows do not)
  std::vector<int> stamp;
  for (int i = 0; i < R; ++i) {
    const int oi = rm.to_old[i];
    int ok_ = o.astart[oi], oe = o.astart[oi + 1], nk = n.astart[i], ne = n.astart[i + 1];
    // The usual case: the same terms in the same order (compared without the column map
    // when no column moved).
    bool same = (oe - ok_) == (ne - nk);
    if (same && same_columns) {
      same = std::equal(o.aindex.begin() + ok_, o.aindex.begin() + oe, n.aindex.begin() + nk) &&
             std::equal(o.aval.begin() + ok_, o.aval.begin() + oe, n.aval.begin() + nk);
    } else {
      for (int a = ok_, b = nk; same && a < oe; ++a, ++b) {
        same = cm.to_new[o.aindex[a]] == n.aindex[b] && o.aval[a] == n.aval[b];
      }
    }
    if (same) continue;
    if (stamp.empty()) {
      work.assign(P, 0.0);
      stamp.assign(P, -1);
    }
    for (int a = ok_; a < oe; ++a) {
      const int c = cm.to_new[o.aindex[a]];
      if (c >= 0 && c < P) {
        work[c] = o.aval[a];
        stamp[c] = i;
      }
    }
    for (int b = nk; b < ne; ++b) {
      const int c = n.aindex[b];
      if (c >= P) continue;  // passed with its new column
      if (stamp[c] != i || work[c] != n.aval[b]) coefs.push_back({i, c, n.aval[b]});
      stamp[c] = -2 - i;  // seen in the new row
    }
    for (int a = ok_; a < oe; ++a) {
      const int c = cm.to_new[o.aindex[a]];
      if (c >= 0 && c < P && stamp[c] == i) coefs.push_back({i, c, 0.0});
    }
    if (coefs.size() > coef_limit) {
      why = "too many coefficient changes";
      return false;
    }
  }

  if (!rm.removed.empty() && !ok(Highs_deleteRowsBySet(h, static_cast<HighsInt>(rm.removed.size()), rm.removed.data()))) {
    why = "HiGHS refused deleting rows";
    return false;
  }
  if (!cm.removed.empty() && !ok(Highs_deleteColsBySet(h, static_cast<HighsInt>(cm.removed.size()), cm.removed.data()))) {
    why = "HiGHS refused deleting columns";
    return false;
  }

  // Column data of kept columns.
  std::vector<HighsInt> set, int_set, int_val;
  std::vector<double> v1, v2;
  for (int j = 0; j < P; ++j) {
    const int oj = cm.to_old[j];
    if (o.cost[oj] != n.cost[j]) {
      set.push_back(j);
      v1.push_back(n.cost[j]);
    }
    if (n.mip && o.mip && o.integrality[oj] != n.integrality[j]) {
      int_set.push_back(j);
      int_val.push_back(n.integrality[j]);
    }
  }
  if (!set.empty() && !ok(Highs_changeColsCostBySet(h, static_cast<HighsInt>(set.size()), set.data(), v1.data()))) {
    why = "HiGHS refused a cost change";
    return false;
  }
  set.clear();
  v1.clear();
  for (int j = 0; j < P; ++j) {
    const int oj = cm.to_old[j];
    if (o.lower[oj] != n.lower[j] || o.upper[oj] != n.upper[j]) {
      set.push_back(j);
      v1.push_back(n.lower[j]);
      v2.push_back(n.upper[j]);
    }
  }
  if (!set.empty() &&
      !ok(Highs_changeColsBoundsBySet(h, static_cast<HighsInt>(set.size()), set.data(), v1.data(), v2.data()))) {
    why = "HiGHS refused a bound change";
    return false;
  }
  set.clear();
  v1.clear();
  v2.clear();
  for (int i = 0; i < R; ++i) {
    const int oi = rm.to_old[i];
    if (o.rlo[oi] != n.rlo[i] || o.rup[oi] != n.rup[i]) {
      set.push_back(i);
      v1.push_back(n.rlo[i]);
      v2.push_back(n.rup[i]);
    }
  }
  if (!set.empty() &&
      !ok(Highs_changeRowsBoundsBySet(h, static_cast<HighsInt>(set.size()), set.data(), v1.data(), v2.data()))) {
    why = "HiGHS refused a row bound change";
    return false;
  }
  for (const Coef& c : coefs) {
    if (!ok(Highs_changeCoeff(h, c.row, c.col, c.val))) {
      why = "HiGHS refused a coefficient change";
      return false;
    }
  }

  // New columns, with their coefficients in the kept rows (column-wise).
  if (P < n.ncol) {
    const int add = n.ncol - P;
    std::vector<HighsInt> starts(add + 1, 0), index;
    std::vector<double> value;
    for (int i = 0; i < R; ++i) {
      for (int b = n.astart[i]; b < n.astart[i + 1]; ++b) {
        if (n.aindex[b] >= P) ++starts[n.aindex[b] - P + 1];
      }
    }
    for (int c = 0; c < add; ++c) starts[c + 1] += starts[c];
    index.resize(starts[add]);
    value.resize(starts[add]);
    std::vector<HighsInt> fill(starts.begin(), starts.end() - 1);
    for (int i = 0; i < R; ++i) {
      for (int b = n.astart[i]; b < n.astart[i + 1]; ++b) {
        if (n.aindex[b] < P) continue;
        const int k = fill[n.aindex[b] - P]++;
        index[k] = i;
        value[k] = n.aval[b];
      }
    }
    if (!ok(Highs_addCols(h, add, n.cost.data() + P, n.lower.data() + P, n.upper.data() + P, starts[add],
                          starts.data(), index.data(), value.data()))) {
      why = "HiGHS refused new columns";
      return false;
    }
  }
  // New rows, whose columns all exist now.
  if (R < n.nrow) {
    const int add = n.nrow - R;
    const int base = n.astart[R];
    std::vector<HighsInt> starts(add);
    for (int i = 0; i < add; ++i) starts[i] = n.astart[R + i] - base;
    const HighsInt nnz = n.astart[n.nrow] - base;
    if (!ok(Highs_addRows(h, add, n.rlo.data() + R, n.rup.data() + R, nnz, starts.data(),
                          nnz ? n.aindex.data() + base : nullptr, nnz ? n.aval.data() + base : nullptr))) {
      why = "HiGHS refused new rows";
      return false;
    }
  }

  // Integrality: in place for kept columns, whole when the problem becomes or stops being a MIP.
  bool int_ok = true;
  if (n.mip && !o.mip) {
    int_ok = ok(Highs_changeColsIntegralityByRange(h, 0, n.ncol - 1, n.integrality.data()));
  } else if (!n.mip && o.mip) {
    int_ok = ok(Highs_clearIntegrality(h));
  } else if (n.mip) {
    if (!int_set.empty()) {
      int_ok = ok(Highs_changeColsIntegralityBySet(h, static_cast<HighsInt>(int_set.size()), int_set.data(),
                                                   int_val.data()));
    }
    if (int_ok && P < n.ncol) {
      int_ok = ok(Highs_changeColsIntegralityByRange(h, P, n.ncol - 1, n.integrality.data() + P));
    }
  }
  if (!int_ok) {
    why = "HiGHS refused an integrality change";
    return false;
  }

  if (o.sense != n.sense &&
      !ok(Highs_changeObjectiveSense(h, n.sense == -1 ? kHighsObjSenseMaximize : kHighsObjSenseMinimize))) {
    why = "HiGHS refused the objective sense";
    return false;
  }
  if (o.objcon != n.objcon && !ok(Highs_changeObjectiveOffset(h, n.objcon))) {
    why = "HiGHS refused the objective constant";
    return false;
  }
  if (o.qstart != n.qstart || o.qindex != n.qindex || o.qval != n.qval) {
    // An empty Hessian (all starts 0) removes the quadratic part.
    std::vector<HighsInt> zero;
    const HighsInt* start = n.qval.empty() ? (zero.assign(n.ncol, 0), zero.data()) : n.qstart.data();
    if (!ok(Highs_passHessian(h, n.ncol, static_cast<HighsInt>(n.qval.size()), kHighsHessianFormatTriangular, start,
                              n.qval.empty() ? nullptr : n.qindex.data(), n.qval.empty() ? nullptr : n.qval.data()))) {
      why = "HiGHS refused the quadratic objective";
      return false;
    }
  }
  return true;
}

}  // namespace

int pass_whole(void* h, const Problem& p) {
  return Highs_passModel(h, p.ncol, p.nrow, static_cast<HighsInt>(p.aval.size()),
                         static_cast<HighsInt>(p.qval.size()), kHighsMatrixFormatRowwise, kHighsHessianFormatTriangular,
                         p.sense == -1 ? kHighsObjSenseMaximize : kHighsObjSenseMinimize, p.objcon, p.cost.data(),
                         p.lower.data(), p.upper.data(), p.rlo.data(), p.rup.data(), p.astart.data(),
                         p.aindex.data(), p.aval.data(), p.qval.empty() ? nullptr : p.qstart.data(),
                         p.qval.empty() ? nullptr : p.qindex.data(), p.qval.empty() ? nullptr : p.qval.data(),
                         p.mip ? p.integrality.data() : nullptr);
}

bool patch_problem(KeptProblem& k, const ModelData& d, const std::vector<int>& vars, const std::vector<int>& constrs) {
  Problem& p = k.p;
  if (!k.highs || p.reformulated != 0 || p.ncol != p.user_cols || p.nrow != p.user_rows ||
      p.ncol != d.num_vars() || p.nrow != d.num_constrs()) {
    return false;
  }
  // HiGHS takes each index once: the touched lists may repeat one, so sort them.
  auto distinct = [](const std::vector<int>& v) {
    std::vector<int> s(v);
    std::sort(s.begin(), s.end());
    s.erase(std::unique(s.begin(), s.end()), s.end());
    return s;
  };
  // First what differs (k untouched until every touched column is known to keep its form).
  std::vector<HighsInt> cost_set, bound_set, row_set;
  std::vector<double> cost, lo, up, rlo, rup;
  for (int j : distinct(vars)) {
    double l, u;
    int code;
    if (j < 0 || j >= p.ncol || !reform::base_column(d.vtype[j], d.lb[j], d.ub[j], l, u, code)) return false;
    if (code != (p.mip ? p.integrality[j] : 0)) return false;  // types are not touched; a safety net
    if (l != p.lower[j] || u != p.upper[j]) {
      bound_set.push_back(j);
      lo.push_back(l);
      up.push_back(u);
    }
    if (d.obj[j] != p.cost[j]) {
      cost_set.push_back(j);
      cost.push_back(d.obj[j]);
    }
  }
  for (int i : distinct(constrs)) {
    if (i < 0 || i >= p.nrow) return false;
    double l, u;
    reform::base_row(d.csense[i], d.rhs[i], l, u);
    if (l != p.rlo[i] || u != p.rup[i]) {
      row_set.push_back(i);
      rlo.push_back(l);
      rup.push_back(u);
    }
  }
  for (std::size_t t = 0; t < bound_set.size(); ++t) {
    p.lower[bound_set[t]] = lo[t];
    p.upper[bound_set[t]] = up[t];
  }
  for (std::size_t t = 0; t < cost_set.size(); ++t) p.cost[cost_set[t]] = cost[t];
  for (std::size_t t = 0; t < row_set.size(); ++t) {
    p.rlo[row_set[t]] = rlo[t];
    p.rup[row_set[t]] = rup[t];
  }
  bool passed = true;
  try {
    if (!cost_set.empty()) {
      passed = ok(Highs_changeColsCostBySet(k.highs.get(), static_cast<HighsInt>(cost_set.size()), cost_set.data(),
                                            cost.data()));
    }
    if (passed && !bound_set.empty()) {
      passed = ok(Highs_changeColsBoundsBySet(k.highs.get(), static_cast<HighsInt>(bound_set.size()),
                                              bound_set.data(), lo.data(), up.data()));
    }
    if (passed && !row_set.empty()) {
      passed = ok(Highs_changeRowsBoundsBySet(k.highs.get(), static_cast<HighsInt>(row_set.size()), row_set.data(),
                                              rlo.data(), rup.data()));
    }
  } catch (...) {
    passed = false;
  }
  if (!passed) {
    // What the instance holds is no longer known: the next pass is a whole one, counted as a
    // fallback here since an instance was kept.
    k.highs.reset();
    k.p = Problem();
    k.incumbent.clear();
    ++k.counts.fallback;
    k.counts.last_fallback = "HiGHS refused a patch";
    return false;
  }
  ++k.counts.patched;
  return true;
}

bool pass_problem(KeptProblem& k, const Problem& p, const Ids& col_ids, const Ids& row_ids,
                  std::vector<double>& start, Held held) {
  start.clear();
  if (held != Held::kNo && k.highs && &p == &k.p) {
    ++k.counts.incremental;
    if (held == Held::kUnchanged) ++k.counts.unchanged;
    if (p.mip && static_cast<int>(k.incumbent.size()) == p.ncol) start = k.incumbent;
    return true;
  }
  if (k.highs && k.p.ncol > 0) {
    Match cm;
    std::string why;
    bool in_place = false;
    try {
      in_place = update_in_place(k.highs.get(), k.p, k.col_ids, k.row_ids, p, col_ids, row_ids, cm, why);
    } catch (...) {
      why = "HiGHS failed while changing the problem";
    }
    if (in_place) {
      ++k.counts.incremental;
      if (p.mip && static_cast<int>(k.incumbent.size()) == k.p.ncol) {
        start.resize(p.ncol);
        for (int j = 0; j < p.ncol; ++j) start[j] = std::max(p.lower[j], std::min(0.0, p.upper[j]));
        for (int oj = 0; oj < k.p.ncol; ++oj) {
          if (cm.to_new[oj] >= 0) start[cm.to_new[oj]] = k.incumbent[oj];
        }
      }
      return true;
    }
    ++k.counts.fallback;
    k.counts.last_fallback = why;
  } else if (!k.highs) {
    HighsPtr fresh;
    if (fresh.h == nullptr) return false;
    k.highs = fresh.share();
  }
  k.incumbent.clear();
  ++k.counts.full;
  HighsInt rc = kHighsStatusError;
  try {
    rc = pass_whole(k.highs.get(), p);
  } catch (...) {
  }
  if (rc == kHighsStatusError) {
    k.highs.reset();
    k.p = Problem();
    return false;
  }
  return true;
}

bool satisfies(const Problem& p, const std::vector<double>& x, double tol) {
  if (static_cast<int>(x.size()) != p.ncol) return false;
  for (int j = 0; j < p.ncol; ++j) {
    const double v = x[j];
    if (!std::isfinite(v)) return false;
    const int t = p.mip ? p.integrality[j] : 0;
    const bool at_zero = std::fabs(v) <= tol;
    if ((t == 2 || t == 3) && at_zero) continue;
    if (v < p.lower[j] - tol || v > p.upper[j] + tol) return false;
    if ((t == 1 || t == 3) && std::fabs(v - std::round(v)) > tol) return false;
  }
  for (int i = 0; i < p.nrow; ++i) {
    double a = 0.0;
    for (int k = p.astart[i]; k < p.astart[i + 1]; ++k) a += p.aval[k] * x[p.aindex[k]];
    const double scale = 1.0 + std::fabs(a);
    if (a < p.rlo[i] - tol * scale || a > p.rup[i] + tol * scale) return false;
  }
  return true;
}

}  // namespace vlm::engine
