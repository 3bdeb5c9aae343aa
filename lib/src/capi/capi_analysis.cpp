// Analysis: irreducible inconsistent subsystems, feasibility relaxation and the derived models
// (relaxed, fixed, feasibility and dual models). The algorithms live in analysis/.
#include <memory>

#include "analysis/derived_models.h"
#include "analysis/dual_model.h"
#include "analysis/feasrelax.h"
#include "analysis/iis.h"
#include "analysis/presolve.h"
#include "capi/capi_guard.h"
#include "capi/capi_write.h"
#include "capi/capi_model.h"
#include "velmor_c.h"

using vlm::Model;
using vlm::Status;
using vlm::capi::model_call;

namespace {

// Runs a derived-model builder and hands the new model to the caller.
template <class Build>
int derive(VLMmodel* model, VLMmodel** resultP, Build build) {
  if (resultP != nullptr) *resultP = nullptr;
  return model_call(model, [&](Model& m) -> Status {
    VLM_RETURN_IF_ERROR(vlm::capi::require(resultP, "resultP"));
    VLM_ASSIGN_OR_RETURN(std::unique_ptr<Model> d, build(m));
    *resultP = vlm::capi::wrap_model(std::move(d));
    return Status::Ok();
  });
}

}  // namespace

extern "C" {

VLM_API int VLMcomputeIIS(VLMmodel* model) {
  return model_call(model, [](Model& m) {
    VLM_RETURN_IF_ERROR(vlm::analysis::compute_iis(m));
    return vlm::capi::write_result_file(m);
  });
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

VLM_API int VLMrelaxmodel(VLMmodel* model, VLMmodel** relaxedP) {
  return derive(model, relaxedP, vlm::analysis::relaxed_model);
}

VLM_API int VLMfixmodel(VLMmodel* model, VLMmodel** fixedP) {
  return derive(model, fixedP, vlm::analysis::fixed_model);
}

VLM_API int VLMfeasibility(VLMmodel* model, VLMmodel** feasP) {
  return derive(model, feasP, vlm::analysis::feasibility_model);
}

VLM_API int VLMdualmodel(VLMmodel* model, VLMmodel** dualP) {
  return derive(model, dualP, vlm::analysis::dual_model);
}

VLM_API int VLMpresolvemodel(VLMmodel* model, VLMmodel** presolvedP) {
  return derive(model, presolvedP, vlm::analysis::presolved_model);
}

}  // extern "C"
