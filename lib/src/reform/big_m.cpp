#include "reform/big_m.h"

#include <cmath>

namespace vlm::reform {

namespace {

Status missing_bound(const Builder& b, int col, bool upper, const BigMContext& c) {
  return Status(VLM_ERROR_NOT_SUPPORTED, c.who + " needs a finite " + (upper ? "upper" : "lower") +
                                             " bound on variable '" + b.col_name(col) + "' (" + c.why +
                                             "); it has none, even after bound tightening");
}

}  // namespace

StatusOr<double> finite_lower(const Builder& b, int col, const BigMContext& c) {
  const double v = b.lb(col);
  if (!std::isfinite(v)) return missing_bound(b, col, false, c);
  return v;
}

StatusOr<double> finite_upper(const Builder& b, int col, const BigMContext& c) {
  const double v = b.ub(col);
  if (!std::isfinite(v)) return missing_bound(b, col, true, c);
  return v;
}

namespace {

StatusOr<double> activity(const Builder& b, const std::vector<int>& ind, const std::vector<double>& val,
                          const BigMContext& c, bool maximum) {
  double sum = 0.0;
  for (std::size_t k = 0; k < ind.size(); ++k) {
    const double a = val[k];
    if (a == 0.0) continue;
    // For the maximum a positive coefficient takes the upper bound; for the minimum the lower.
    const bool upper = (a > 0) == maximum;
    const double v = upper ? b.ub(ind[k]) : b.lb(ind[k]);
    if (!std::isfinite(v)) return missing_bound(b, ind[k], upper, c);
    sum += a * v;
  }
  return sum;
}

}  // namespace

StatusOr<double> max_activity(const Builder& b, const std::vector<int>& ind, const std::vector<double>& val,
                              const BigMContext& c) {
  return activity(b, ind, val, c, true);
}

StatusOr<double> min_activity(const Builder& b, const std::vector<int>& ind, const std::vector<double>& val,
                              const BigMContext& c) {
  return activity(b, ind, val, c, false);
}

}  // namespace vlm::reform
