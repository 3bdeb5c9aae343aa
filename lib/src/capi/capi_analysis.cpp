// Analysis: irreducible inconsistent subsystems, feasibility relaxation and the derived models
// (relaxed, fixed, feasibility and dual models). The algorithms live in analysis/.
#include <memory>

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

}  // extern "C"
