// Analysis: irreducible inconsistent subsystems, feasibility relaxation and the derived models
// (relaxed, fixed, feasibility and dual models). The algorithms live in analysis/.
#include <memory>

#include "analysis/feasrelax.h"
#include "analysis/iis.h"
#include "capi/capi_guard.h"
#include "capi/capi_model.h"
#include "velmor_c.h"

using vlm::Model;
using vlm::Status;
using vlm::capi::model_call;

extern "C" {

VLM_API int VLMcomputeIIS(VLMmodel* model) {
  return model_call(model, [](Model& m) { return vlm::analysis::compute_iis(m); });
}

VLM_API int VLMfeasrelax(VLMmodel* model, int relaxobjtype, int minrelax, const double* lbpen,
                         const double* ubpen, const double* rhspen, double* feasobjP) {
  if (feasobjP != nullptr) *feasobjP = 0.0;
  return model_call(model, [&](Model& m) -> Status {
    VLM_ASSIGN_OR_RETURN(double obj, vlm::analysis::feas_relax(m, relaxobjtype, minrelax != 0, lbpen, ubpen, rhspen));
    if (feasobjP != nullptr) *feasobjP = obj;
    return Status::Ok();
  });
}

}  // extern "C"
