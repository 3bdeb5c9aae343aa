// Callbacks: registration and the VLMcb* calls a callback makes with its cbdata.
//
// The VLMcb* calls run inside a solve, on the solving thread; they record failures on the
// solving model directly (the guard's "optimization in progress" refusal is for other threads).
#include <string>

#include "callbacks/session.h"
#include "capi/capi_guard.h"
#include "velmor_c.h"

using vlm::Model;
using vlm::Status;
using vlm::callbacks::Session;

namespace {

// Runs `body(Session&) -> Status` for a cbdata pointer; failures are recorded on its model.
template <class Body>
int cb_call(void* cbdata, Body&& body) noexcept {
  if (cbdata == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  Session* s = Session::from(cbdata);
  if (s == nullptr) return VLM_ERROR_CALLBACK;
  return vlm::capi::run_guarded(s->model().errors(), [&] { return body(*s); });
}

int set_callback(VLMmodel* model, VLMcallback cb, void* usrdata, bool search) {
  return vlm::capi::model_call(model, [&](Model& m) {
    vlm::UserCallback& uc = m.user_callback();
    uc.fn = cb;
    uc.usrdata = cb != nullptr ? usrdata : nullptr;
    uc.handle = model;
    uc.search = cb != nullptr && search;
    return Status::Ok();
  });
}

}  // namespace

extern "C" {

VLM_API int VLMsetcallbackfunc(VLMmodel* model, VLMcallback cb, void* usrdata) {
  return set_callback(model, cb, usrdata, false);
}

VLM_API int VLMsetcallbackfuncsearch(VLMmodel* model, VLMcallback cb, void* usrdata, int search) {
  return set_callback(model, cb, usrdata, search != 0);
}

VLM_API int VLMgetcallbackfunc(VLMmodel* model, VLMcallback* cbP) {
  if (model == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  return vlm::capi::run_guarded(model->model->errors(), [&] {
    VLM_RETURN_IF_ERROR(vlm::capi::require(cbP, "cbP"));
    *cbP = model->model->user_callback().fn;
    return Status::Ok();
  });
}

// Also called from inside a callback (cbGet asks for the type first), so it does not refuse a
// solving model: it reads only the variable count, which a solve does not change.
VLM_API int VLMgetcbwhatinfo(VLMmodel* model, int what, int* typeP, int* sizeP) {
  if (model == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  return vlm::capi::run_guarded(model->model->errors(), [&] {
    if (!vlm::callbacks::what_info(what, model->model->data().num_vars(), typeP, sizeP)) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, "Unknown callback what code " + std::to_string(what));
    }
    return Status::Ok();
  });
}

VLM_API int VLMcbget(void* cbdata, int where, int what, void* result) {
  return cb_call(cbdata, [&](Session& s) { return s.get(where, what, result); });
}

VLM_API int VLMcbsolution(void* cbdata, const double* solution, double* objP) {
  return cb_call(cbdata, [&](Session& s) { return s.set_solution(solution, objP); });
}

VLM_API int VLMcblazy(void* cbdata, int lazylen, const int* lazyind, const double* lazyval, char lazysense,
                      double lazyrhs) {
  return cb_call(cbdata, [&](Session& s) { return s.add_row(true, lazylen, lazyind, lazyval, lazysense, lazyrhs); });
}

VLM_API int VLMcbcut(void* cbdata, int cutlen, const int* cutind, const double* cutval, char cutsense, double cutrhs) {
  return cb_call(cbdata, [&](Session& s) { return s.add_row(false, cutlen, cutind, cutval, cutsense, cutrhs); });
}

VLM_API int VLMcbproceed(void* cbdata) {
  return cb_call(cbdata, [&](Session& s) {
    if (!s.in_call()) return Status(VLM_ERROR_CALLBACK, "Callback data used outside the callback call it was given to");
    s.request_proceed();
    return Status::Ok();
  });
}

VLM_API int VLMcbstoponemultiobj(VLMmodel* model, void* cbdata, int objnum) {
  if (model == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  return cb_call(cbdata, [&](Session& s) {
    if (&s.model() != model->model.get()) {
      return Status(VLM_ERROR_CALLBACK, "The callback data belongs to another model");
    }
    return s.stop_one_multiobj(objnum);
  });
}

}  // extern "C"
