#include "engine/solution_quality.h"

#include <algorithm>
#include <cmath>

#include "reform/func_kinds.h"

namespace vlm {

namespace {

bool finite(double v) { return v > -VLM_INFINITY && v < VLM_INFINITY; }

bool is_function(GenType t) { return static_cast<int>(t) >= static_cast<int>(GenType::kPoly); }

Quality compute(const ModelData& d, const Solution& s) {
  Quality q;
  const int n = d.num_vars(), m = d.num_constrs();
  for (int j = 0; j < n && j < static_cast<int>(s.x.size()); ++j) {
    const double x = s.x[j];
    const char t = d.vtype[j];
    double vio = std::max({0.0, d.lb[j] - x, x - d.ub[j]});
    if ((t == 'S' || t == 'N') && vio > 0.0) vio = std::min(vio, std::fabs(x));  // 0 is allowed
    q.bound.add(vio, j);
    if (t == 'B' || t == 'I' || t == 'N') {
      double frac = std::fabs(x - std::round(x));
      if (t == 'N' && x == 0.0) frac = 0.0;
      q.integrality.add(frac, j);
    }
  }
  std::vector<double> activity(m, 0.0);
  if (!s.x.empty()) {
    for (int i = 0; i < m; ++i) {
      const Row& r = d.rows[i];
      double a = 0.0;
      for (std::size_t k = 0; k < r.ind.size(); ++k) a += r.val[k] * s.x[r.ind[k]];
      activity[i] = a;
      double diff = a - d.rhs[i];
      double vio = d.csense[i] == '<' ? std::max(0.0, diff) : d.csense[i] == '>' ? std::max(0.0, -diff) : std::fabs(diff);
      q.constr.add(vio, i);
      q.residual.add(vio, i);
    }
    // Function constraints are solved through a piecewise-linear approximation; what counts
    // is how far y is from the true f(x), the approximation error included.
    for (int g = 0; g < d.num_genconstrs(); ++g) {
      const GenConstrData& gc = d.genconstrs[g];
      if (!is_function(gc.type)) continue;
      auto f = reform::UnivariateFunction::of(gc);
      if (!f.ok()) continue;
      const double fx = f->value(s.x[gc.arg]);
      const double vio = std::isfinite(fx) ? std::fabs(s.x[gc.res] - fx) : INFINITY;
      q.constr.add(vio, m + g);
    }
  }
  if (s.has_duals && !s.x.empty()) {
    // Signs in the minimisation convention; a maximisation flips them.
    const double sgn = d.sense == -1 ? -1.0 : 1.0;
    std::vector<double> grad(d.obj);
    for (std::size_t k = 0; k < d.qval.size(); ++k) {
      int i = d.qrow[k], j = d.qcol[k];
      if (i == j) {
        grad[i] += 2.0 * d.qval[k] * s.x[i];
      } else {
        grad[i] += d.qval[k] * s.x[j];
        grad[j] += d.qval[k] * s.x[i];
      }
    }
    std::vector<double> res(grad);
    for (int i = 0; i < m; ++i) {
      const Row& r = d.rows[i];
      for (std::size_t k = 0; k < r.ind.size(); ++k) res[r.ind[k]] -= r.val[k] * s.pi[i];
    }
    for (int j = 0; j < n; ++j) {
      const double rc = sgn * s.rc[j];
      q.dual_residual.add(std::fabs(res[j] - s.rc[j]), j);
      // A reduced cost may be positive only at a finite lower bound, negative only at a
      // finite upper bound.
      double vio = 0.0;
      if (!finite(d.lb[j])) vio = std::max(vio, rc);
      if (!finite(d.ub[j])) vio = std::max(vio, -rc);
      if (!finite(d.lb[j]) && !finite(d.ub[j])) vio = std::fabs(rc);
      q.dual.add(std::max(0.0, vio), j);
      double gap = 0.0;
      if (rc > 0 && finite(d.lb[j])) gap = s.x[j] - d.lb[j];
      if (rc < 0 && finite(d.ub[j])) gap = d.ub[j] - s.x[j];
      q.compl_.add(std::fabs(rc) * std::fabs(gap), j);
    }
    for (int i = 0; i < m; ++i) {
      const double pi = sgn * s.pi[i];
      double vio = d.csense[i] == '<' ? std::max(0.0, pi) : d.csense[i] == '>' ? std::max(0.0, -pi) : 0.0;
      q.dual.add(vio, n + i);
      q.compl_.add(std::fabs(pi) * std::fabs(activity[i] - d.rhs[i]), n + i);
    }
  }
  return q;
}

}  // namespace

const Quality& solution_quality(const ModelData& d, const Solution& s) {
  if (!s.quality) s.quality = compute(d, s);
  return *s.quality;
}

}  // namespace vlm
