// Solving: VLMoptimize, VLMterminate and tuning.
#include <string>

#include "algorithms/solve.h"
#include "algorithms/tuner.h"
#include "analysis/stop_scope.h"
#include "callbacks/session.h"
#include "capi/capi_guard.h"
#include "capi/capi_write.h"
#include "engine/engine.h"
#include "velmor_c.h"

using vlm::Model;
using vlm::Status;
using vlm::capi::model_call;

extern "C" {

VLM_API int VLMoptimize(VLMmodel* model) {
  return model_call(model, [](Model& m) {
    VLM_RETURN_IF_ERROR(vlm::algorithms::optimize(m));
    return vlm::capi::write_result_file(m);
  });
}

VLM_API int VLMtunemodel(VLMmodel* model) {
  return model_call(model, [](Model& m) { return vlm::algorithms::tune(m); });
}

VLM_API int VLMgettuneresult(VLMmodel* model, int i) {
  return model_call(model, [&](Model& m) { return vlm::algorithms::load_tune_result(m, i); });
}

VLM_API int VLMsetsignal(VLMmodel* model) {
  return model_call(model, [](Model& m) {
    m.request_signal();
    return Status::Ok();
  });
}

VLM_API void VLMterminate(VLMmodel* model) {
  if (model == nullptr) return;
  try {
    vlm::engine::terminate(*model->model);
    vlm::analysis::terminate(*model->model);
    // Read without a lock: the session pointer changes only on the solving thread, before and
    // after the solve, when no callback can be running.
    if (vlm::callbacks::Session* s = vlm::callbacks::active(*model->model)) s->note_terminate();
  } catch (...) {
  }
}

}  // extern "C"
