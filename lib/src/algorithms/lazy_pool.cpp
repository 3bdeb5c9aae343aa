#include "algorithms/lazy_pool.h"

#include "interfaces/highs_c_api.h"

namespace vlm::algorithms {

bool LazyCore::try_heuristic(std::vector<double>& x, const SearchProgress& pr) {
  std::vector<double> given;
  given.swap(heuristic_);
  if (static_cast<int>(given.size()) != p_.user_cols) return false;
  void* h = Highs_create();
  if (h == nullptr) return false;
  Highs_setBoolOptionValue(h, "output_flag", 0);
  std::vector<double> lo = p_.lower, up = p_.upper;
  std::vector<HighsInt> integrality(p_.integrality.begin(), p_.integrality.end());
  bool any_integer = false;
  for (int j = 0; j < p_.user_cols; ++j) {
    if (std::isnan(given[j])) {
      any_integer = any_integer || integrality[j] != 0;
      continue;
    }
    const double v = integrality[j] == 1 || integrality[j] == 3 ? std::round(given[j]) : given[j];
    lo[j] = up[j] = v;
  }
  for (int j = p_.user_cols; j < p_.ncol; ++j) any_integer = any_integer || integrality[j] != 0;
  const bool q = !p_.qval.empty();
  HighsInt rc = Highs_passModel(
      h, p_.ncol, p_.nrow, static_cast<HighsInt>(p_.aval.size()), static_cast<HighsInt>(p_.qval.size()),
      kHighsMatrixFormatRowwise, kHighsHessianFormatTriangular,
      p_.sense == -1 ? kHighsObjSenseMaximize : kHighsObjSenseMinimize, p_.objcon, p_.cost.data(), lo.data(),
      up.data(), p_.rlo.data(), p_.rup.data(), p_.astart.data(), p_.aindex.data(), p_.aval.data(),
      q ? p_.qstart.data() : nullptr, q ? p_.qindex.data() : nullptr, q ? p_.qval.data() : nullptr,
      any_integer ? integrality.data() : nullptr);
  bool ok = rc != kHighsStatusError;
  for (const PoolRow& r : pool_) {
    if (!ok) break;
    ok = Highs_addRow(h, r.lo, r.up, static_cast<HighsInt>(r.ind.size()), r.ind.data(), r.val.data()) !=
         kHighsStatusError;
  }
  if (ok) {
    // Completing a point is a side task: it gets a second at most.
    Highs_setDoubleOptionValue(h, "time_limit", 1.0);
    Highs_run(h);
    const HighsInt ms = Highs_getModelStatus(h);
    HighsInt ps = 0;
    Highs_getIntInfoValue(h, "primal_solution_status", &ps);
    ok = (ms == kHighsModelStatusOptimal || ps == 2);
    if (ok) {
      x.assign(p_.ncol, 0.0);
      Highs_getSolution(h, x.data(), nullptr, nullptr, nullptr);
      // Integer columns HiGHS left within its tolerance are rounded before the checks.
      for (int j = 0; j < p_.ncol; ++j) {
        if (integrality[j] == 1) x[j] = std::round(x[j]);
      }
    }
  }
  Highs_destroy(h);
  if (!ok) return false;
  // The point must satisfy the rows and bounds as they are (not only HiGHS' tolerance).
  for (int j = 0; j < p_.ncol; ++j) {
    if (x[j] < p_.lower[j] - s_.feas_tol || x[j] > p_.upper[j] + s_.feas_tol) return false;
  }
  for (int i = 0; i < p_.nrow; ++i) {
    double a = 0.0;
    for (int k = p_.astart[i]; k < p_.astart[i + 1]; ++k) a += p_.aval[k] * x[p_.aindex[k]];
    if (a < p_.rlo[i] - s_.feas_tol || a > p_.rup[i] + s_.feas_tol) return false;
  }
  return check_candidate(x, pr);
}

}  // namespace vlm::algorithms
