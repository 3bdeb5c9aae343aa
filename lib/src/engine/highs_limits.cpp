#include "engine/highs_limits.h"

#include <cmath>
#include <string>

#include "core/text.h"

namespace vlm::engine {

namespace {
Status too_large(const std::string& what) {
  return Status(VLM_ERROR_INVALID_ARGUMENT, what + " is larger than " + short_number(kHighsLargeMatrixValue) +
                                                ", the largest matrix value HiGHS accepts");
}
}  // namespace

Status explain_rejected_model(const ModelData& d) {
  for (int i = 0; i < d.num_constrs(); ++i) {
    const Row& r = d.rows[i];
    for (std::size_t k = 0; k < r.ind.size(); ++k) {
      if (std::fabs(r.val[k]) > kHighsLargeMatrixValue) {
        return too_large("Coefficient " + short_number(r.val[k]) + " of variable '" + d.varname[r.ind[k]] +
                         "' in constraint '" + d.constrname[i] + "'");
      }
    }
  }
  for (std::size_t k = 0; k < d.qval.size(); ++k) {
    const double held = d.qrow[k] == d.qcol[k] ? 2.0 * d.qval[k] : d.qval[k];
    if (std::fabs(held) > kHighsLargeMatrixValue) {
      return too_large("Quadratic coefficient " + short_number(d.qval[k]) + " of '" + d.varname[d.qrow[k]] +
                       "' * '" + d.varname[d.qcol[k]] + "' in the objective" +
                       (d.qrow[k] == d.qcol[k] ? " (held doubled by HiGHS)" : ""));
    }
  }
  return Status(VLM_ERROR_INVALID_ARGUMENT, "HiGHS rejected the model");
}

}  // namespace vlm::engine
