#include "analysis/presolve.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "analysis/engine_presolve.h"
#include "analysis/submodel.h"

namespace vlm::analysis {

namespace {

constexpr double kTol = 1e-9;

bool is_int(char t) { return t == 'I' || t == 'B'; }

// Variables that must stay whatever their bounds: members of SOS, general constraints and
// piecewise-linear objective terms (substituting them would need the construct rewritten), and
// those with a coefficient in the first of several objectives (an objective 0 emptied by
// substitution would start to stand for the primary objective).
std::vector<char> pinned_vars(const ModelData& d) {
  std::vector<char> pin(d.num_vars(), 0);
  for (const SosData& s : d.sos) {
    for (int j : s.ind) pin[j] = 1;
  }
  for (const GenConstrData& g : d.genconstrs) {
    if (g.res >= 0) pin[g.res] = 1;
    if (g.arg >= 0) pin[g.arg] = 1;
    for (int j : g.vars) pin[j] = 1;
  }
  for (const auto& [j, p] : d.pwlobj) pin[j] = 1;
  if (!d.objn.empty()) {
    for (int j = 0; j < d.num_vars(); ++j) {
      if (d.objn[0].coef[j] != 0.0) pin[j] = 1;
    }
  }
  return pin;
}

// Adds c to the coefficient of j in a sparse linear part, merging with an existing entry.
void add_term(std::vector<int>& ind, std::vector<double>& val, int j, double c) {
  for (std::size_t k = 0; k < ind.size(); ++k) {
    if (ind[k] == j) {
      val[k] += c;
      return;
    }
  }
  ind.push_back(j);
  val.push_back(c);
}

// Substitutes the dropped variables (value lb) into quadratic terms q x_r x_c: with both gone
// the product is a constant, with one gone a linear term on the other. `linear(j, c)` and
// `constant(c)` receive the results; the kept terms stay in place.
template <typename Lin, typename Con>
void substitute_quad(std::vector<int>& qr, std::vector<int>& qc, std::vector<double>& qv,
                     const std::vector<char>& kept, const std::vector<double>& value, Lin linear, Con constant) {
  std::size_t out = 0;
  for (std::size_t k = 0; k < qv.size(); ++k) {
    const int r = qr[k], c = qc[k];
    if (kept[r] && kept[c]) {
      qr[out] = r;
      qc[out] = c;
      qv[out] = qv[k];
      ++out;
    } else if (kept[r]) {
      linear(r, qv[k] * value[c]);
    } else if (kept[c]) {
      linear(c, qv[k] * value[r]);
    } else {
      constant(qv[k] * value[r] * value[c]);
    }
  }
  qr.resize(out);
  qc.resize(out);
  qv.resize(out);
}

bool constant_row_holds(char s, double b) {
  return s == '<' ? 0.0 <= b + kTol : s == '>' ? 0.0 >= b - kTol : std::fabs(b) <= kTol;
}

}  // namespace

StatusOr<std::unique_ptr<Model>> presolved_model(Model& m) {
  ModelData d = m.data();
  // Aggressive presolve of a plain LP or MIP asks for the engine's reductions; a result that
  // cannot be expressed in our names falls back to the library's own.
  if (m.env().params().int_param("Presolve") == 2 && plain_linear(d)) {
    StatusOr<ModelData> reduced = engine_presolved(d, m.env());
    if (reduced.ok()) return model_from_data(m.env(), std::move(reduced.value()));
  }
  const int n = d.num_vars(), rows = d.num_constrs(), nq = d.num_qconstrs();
  for (int j = 0; j < n; ++j) {
    if (d.vtype[j] == 'B') {
      d.lb[j] = std::max(d.lb[j], 0.0);
      d.ub[j] = std::min(d.ub[j], 1.0);
    }
  }
  const std::vector<char> pinned = pinned_vars(d);
  std::vector<char> var_kept(n, 1), row_kept(rows, 1), q_kept(nq, 1);
  // Semi-continuous variables are left alone: their bounds are not plain bounds.
  auto movable = [&](int j) { return d.vtype[j] != 'S' && d.vtype[j] != 'N'; };
  // Each pass that changes something removes a row or a variable, or fixes one: at most
  // rows + quadratic constraints + 2n passes; the cap only guards against a mistake here.
  bool changed = true;
  for (int pass = 0; changed && pass <= rows + nq + 2 * n; ++pass) {
    changed = false;
    // Fixed variables leave: every objective's constant and the right-hand sides take their
    // value, their products with kept variables become linear terms.
    bool dropped = false;
    for (int j = 0; j < n; ++j) {
      if (!var_kept[j] || !movable(j) || pinned[j] || d.lb[j] != d.ub[j]) continue;
      // An integer fixed at a fraction makes the model infeasible: it stays to say so.
      if (is_int(d.vtype[j]) && std::fabs(d.lb[j] - std::round(d.lb[j])) > kTol) continue;
      var_kept[j] = 0;
      d.objcon += d.obj[j] * d.lb[j];
      for (ObjectiveN& o : d.objn) o.con += o.coef[j] * d.lb[j];
      dropped = changed = true;
    }
    if (dropped) {
      substitute_quad(
          d.qrow, d.qcol, d.qval, var_kept, d.lb, [&](int j, double c) { d.obj[j] += c; },
          [&](double c) { d.objcon += c; });
    }
    std::vector<int> uses(n, 0);
    for (int j : d.qrow) ++uses[j];
    for (int j : d.qcol) ++uses[j];
    for (int i = 0; i < nq; ++i) {
      if (!q_kept[i]) continue;
      QConstrData& q = d.qconstrs[i];
      if (dropped) {
        std::size_t out = 0;
        for (std::size_t k = 0; k < q.lind.size(); ++k) {
          const int j = q.lind[k];
          if (!var_kept[j]) {
            q.rhs -= q.lval[k] * d.lb[j];
            continue;
          }
          q.lind[out] = j;
          q.lval[out] = q.lval[k];
          ++out;
        }
        q.lind.resize(out);
        q.lval.resize(out);
        substitute_quad(
            q.qrow, q.qcol, q.qval, var_kept, d.lb, [&](int j, double c) { add_term(q.lind, q.lval, j, c); },
            [&](double c) { q.rhs -= c; });
        // Cancelled linear terms would break the non-zero coefficient invariant.
        std::size_t nz = 0;
        for (std::size_t k = 0; k < q.lind.size(); ++k) {
          if (q.lval[k] == 0.0) continue;
          q.lind[nz] = q.lind[k];
          q.lval[nz] = q.lval[k];
          ++nz;
        }
        q.lind.resize(nz);
        q.lval.resize(nz);
      }
      if (q.lind.empty() && q.qval.empty()) {
        if (constant_row_holds(q.sense, q.rhs)) {
          q_kept[i] = 0;
          changed = true;
        }
        continue;
      }
      for (int j : q.lind) ++uses[j];
      for (int j : q.qrow) ++uses[j];
      for (int j : q.qcol) ++uses[j];
    }
    for (int i = 0; i < rows; ++i) {
      if (!row_kept[i]) continue;
      Row& r = d.rows[i];
      std::size_t out = 0;
      for (std::size_t k = 0; k < r.ind.size(); ++k) {
        const int j = r.ind[k];
        if (!var_kept[j]) {
          d.rhs[i] -= r.val[k] * d.lb[j];
          continue;
        }
        r.ind[out] = j;
        r.val[out] = r.val[k];
        ++out;
      }
      r.ind.resize(out);
      r.val.resize(out);
      const char s = d.csense[i];
      if (out == 0) {
        if (constant_row_holds(s, d.rhs[i])) {
          row_kept[i] = 0;
          changed = true;
        }
        continue;
      }
      // A one-variable row is exactly a bound, whatever else the variable appears in.
      if (out == 1 && movable(r.ind[0])) {
        const int j = r.ind[0];
        const double a = r.val[0], v = d.rhs[i] / a;
        const bool upper = s == '=' || (s == '<') == (a > 0);
        const bool lower = s == '=' || (s == '>') == (a > 0);
        if (upper) d.ub[j] = std::min(d.ub[j], is_int(d.vtype[j]) ? std::floor(v + kTol) : v);
        if (lower) d.lb[j] = std::max(d.lb[j], is_int(d.vtype[j]) ? std::ceil(v - kTol) : v);
        row_kept[i] = 0;
        changed = true;
        continue;
      }
      for (int j : r.ind) ++uses[j];
    }
    // A variable in no row goes to the bound its objective favours. Not one in a quadratic
    // term, a pinned construct or another objective: its best value depends on more than
    // its own cost.
    for (int j = 0; j < n; ++j) {
      if (!var_kept[j] || uses[j] > 0 || !movable(j) || pinned[j] || d.lb[j] >= d.ub[j]) continue;
      if (std::any_of(d.objn.begin(), d.objn.end(), [j](const ObjectiveN& o) { return o.coef[j] != 0.0; })) {
        continue;
      }
      const double c = d.obj[j] * d.sense;
      double v;
      if (c > 0) {
        v = d.lb[j];
      } else if (c < 0) {
        v = d.ub[j];
      } else {
        v = d.lb[j] > 0 ? d.lb[j] : d.ub[j] < 0 ? d.ub[j] : 0.0;
      }
      if (std::fabs(v) >= VLM_INFINITY) continue;  // unbounded: the solve shall say so
      d.lb[j] = d.ub[j] = v;
      changed = true;  // substituted in the next pass
    }
  }
  d.extra[VLM_KIND_VAR] = ExtraColumns();
  d.extra[VLM_KIND_CONSTR] = ExtraColumns();
  keep_constraints(d, row_kept, q_kept, {}, {});
  keep_vars(d, var_kept);
  return model_from_data(m.env(), std::move(d));
}

}  // namespace vlm::analysis
