#include "analysis/presolve.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "analysis/submodel.h"

namespace vlm::analysis {

namespace {

constexpr double kTol = 1e-9;

bool is_int(char t) { return t == 'I' || t == 'B'; }

}  // namespace

StatusOr<std::unique_ptr<Model>> presolved_model(Model& m) {
  ModelData d = m.data();
  if (!d.qval.empty() || d.num_qconstrs() > 0 || d.num_sos() > 0 || d.num_genconstrs() > 0 ||
      !d.pwlobj.empty() || d.objn.size() > 1) {
    return Status(VLM_ERROR_NOT_SUPPORTED,
                  "Presolve handles linear models only: the model has quadratic, SOS, general "
                  "constraints or piecewise-linear or multiple objectives");
  }
  const int n = d.num_vars(), rows = d.num_constrs();
  for (int j = 0; j < n; ++j) {
    if (d.vtype[j] == 'B') {
      d.lb[j] = std::max(d.lb[j], 0.0);
      d.ub[j] = std::min(d.ub[j], 1.0);
    }
  }
  std::vector<char> var_kept(n, 1), row_kept(rows, 1);
  // Semi-continuous variables are left alone: their bounds are not plain bounds.
  auto movable = [&](int j) { return d.vtype[j] != 'S' && d.vtype[j] != 'N'; };
  // Each pass that changes something removes a row or a variable, or fixes one: at most
  // rows + 2n passes; the cap only guards against a mistake here.
  bool changed = true;
  for (int pass = 0; changed && pass <= rows + 2 * n; ++pass) {
    changed = false;
    // Fixed variables leave: objective constant and right-hand sides take their value.
    for (int j = 0; j < n; ++j) {
      if (!var_kept[j] || !movable(j) || d.lb[j] != d.ub[j]) continue;
      // An integer fixed at a fraction makes the model infeasible: it stays to say so.
      if (is_int(d.vtype[j]) && std::fabs(d.lb[j] - std::round(d.lb[j])) > kTol) continue;
      var_kept[j] = 0;
      d.objcon += d.obj[j] * d.lb[j];
      changed = true;
    }
    std::vector<int> uses(n, 0);
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
        const double b = d.rhs[i];
        const bool holds = s == '<' ? 0.0 <= b + kTol : s == '>' ? 0.0 >= b - kTol : std::fabs(b) <= kTol;
        if (holds) {
          row_kept[i] = 0;
          changed = true;
        }
        continue;
      }
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
    // A variable in no row goes to the bound its objective favours.
    for (int j = 0; j < n; ++j) {
      if (!var_kept[j] || uses[j] > 0 || !movable(j) || d.lb[j] >= d.ub[j]) continue;
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
  keep_constraints(d, row_kept, {}, {}, {});
  keep_vars(d, var_kept);
  return model_from_data(m.env(), std::move(d));
}

}  // namespace vlm::analysis
