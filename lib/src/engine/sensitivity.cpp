// Sensitivity ranges from HiGHS' ranging of the kept instance.
#include <cmath>
#include <vector>

#include "engine/engine.h"
#include "interfaces/highs_c_api.h"

namespace vlm::engine {

const Sensitivity* sensitivity(const ModelData& d, const Solution& s) {
  if (s.sensitivity) return &*s.sensitivity;
  if (!s.engine || !s.has_basis) return nullptr;
  void* h = s.engine.get();
  const HighsInt nc = Highs_getNumCol(h), nr = Highs_getNumRow(h);
  std::vector<double> cuv(nc), cuo(nc), cdv(nc), cdo(nc), buv(nc), buo(nc), bdv(nc), bdo(nc);
  std::vector<double> ruv(nr), ruo(nr), rdv(nr), rdo(nr);
  std::vector<HighsInt> ci(nc), co(nc), ri(nr), ro(nr);
  HighsInt rc;
  try {
    rc = Highs_getRanging(h, cuv.data(), cuo.data(), ci.data(), co.data(), cdv.data(), cdo.data(), ci.data(),
                          co.data(), buv.data(), buo.data(), ci.data(), co.data(), bdv.data(), bdo.data(), ci.data(),
                          co.data(), ruv.data(), ruo.data(), ri.data(), ro.data(), rdv.data(), rdo.data(), ri.data(),
                          ro.data());
  } catch (...) {
    return nullptr;
  }
  if (rc == kHighsStatusError) return nullptr;
  auto lib = [](double v) { return v >= INFINITY ? VLM_INFINITY : v <= -INFINITY ? -VLM_INFINITY : v; };
  Sensitivity sa;
  const int n = d.num_vars(), m = d.num_constrs();
  sa.obj_lo.resize(n);
  sa.obj_up.resize(n);
  sa.lb_lo.resize(n);
  sa.lb_up.resize(n);
  sa.ub_lo.resize(n);
  sa.ub_up.resize(n);
  for (int j = 0; j < n; ++j) {
    sa.obj_lo[j] = lib(cdv[j]);
    sa.obj_up[j] = lib(cuv[j]);
    // The bound a nonbasic variable sits at can move within HiGHS' bound range; the other
    // bound, and both bounds of a basic variable, can move freely up to the current value.
    const double x = s.x[j];
    const int vb = s.vbasis[j];
    sa.lb_lo[j] = -VLM_INFINITY;
    sa.lb_up[j] = x;
    sa.ub_lo[j] = x;
    sa.ub_up[j] = VLM_INFINITY;
    if (vb == -1) {
      sa.lb_lo[j] = lib(bdv[j]);
      sa.lb_up[j] = lib(buv[j]);
    } else if (vb == -2) {
      sa.ub_lo[j] = lib(bdv[j]);
      sa.ub_up[j] = lib(buv[j]);
    }
  }
  sa.rhs_lo.resize(m);
  sa.rhs_up.resize(m);
  for (int i = 0; i < m; ++i) {
    sa.rhs_lo[i] = lib(rdv[i]);
    sa.rhs_up[i] = lib(ruv[i]);
    // A basic row does not bind: its right-hand side can move away from the row freely and
    // towards it up to the activity, where the row starts to bind. (HiGHS ranges the other,
    // inactive bound of such a row, which is not the question asked.) A basic equality row
    // is degenerate and allows no change at all.
    if (!s.cbasis.empty() && s.cbasis[i] == 0 && !s.slack.empty()) {
      const double activity = d.rhs[i] - s.slack[i];
      sa.rhs_lo[i] = d.csense[i] == '>' ? -VLM_INFINITY : activity;
      sa.rhs_up[i] = d.csense[i] == '<' ? VLM_INFINITY : activity;
    }
  }
  s.sensitivity = std::move(sa);
  return &*s.sensitivity;
}

}  // namespace vlm::engine
