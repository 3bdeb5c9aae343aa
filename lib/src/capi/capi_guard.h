// The boundary wrapper every VLM entry point goes through.
//
// It checks the handle (NULL -> VLM_ERROR_NULL_ARGUMENT, nothing recorded), runs the body, and
// turns the outcome into a code: a failed Status records its message on the object; bad_alloc
// becomes VLM_ERROR_OUT_OF_MEMORY and any other exception VLM_ERROR_INTERNAL with its text.
// No exception leaves an entry point.
#pragma once

#include <exception>
#include <initializer_list>
#include <utility>
#include <new>
#include <string>

#include "capi/handles.h"
#include "core/error_state.h"
#include "core/status.h"

namespace vlm::capi {

template <class Body>
int run_guarded(ErrorState& errors, Body&& body) noexcept {
  try {
    Status status = body();
    if (!status.ok()) errors.record(status);
    return status.code();
  } catch (const std::bad_alloc&) {
    try {
      errors.record(std::string("Out of memory"));
    } catch (...) {
    }
    return VLM_ERROR_OUT_OF_MEMORY;
  } catch (const std::exception& e) {
    try {
      errors.record(std::string("Internal error: ") + e.what());
    } catch (...) {
    }
    return VLM_ERROR_INTERNAL;
  } catch (...) {
    try {
      errors.record(std::string("Internal error"));
    } catch (...) {
    }
    return VLM_ERROR_INTERNAL;
  }
}

// Runs `body(vlm::Env&) -> Status` for an environment handle.
template <class Body>
int env_call(VLMenv* env, Body&& body) noexcept {
  if (env == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  return run_guarded(env->env->errors(), [&] { return body(*env->env); });
}

// Runs `body(vlm::Model&) -> Status` for a model handle; failures are recorded on the model.
// While the model is being solved on another thread the call is refused with
// VLM_ERROR_OPTIMIZATION_IN_PROGRESS, and nothing is recorded (the solving thread owns the
// model's state until it returns).
template <class Body>
int model_call(VLMmodel* model, Body&& body) noexcept {
  if (model == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  if (model->model->solving()) return VLM_ERROR_OPTIMIZATION_IN_PROGRESS;
  return run_guarded(model->model->errors(), [&] { return body(*model->model); });
}

// A NULL pointer argument other than the handle: a failure recorded on the object.
inline Status require(const void* p, const char* what) {
  if (p != nullptr) return Status::Ok();
  return Status(VLM_ERROR_NULL_ARGUMENT, std::string("Argument '") + what + "' is NULL");
}

// Checks a count and, when it is positive, that every array it sizes is given.
inline Status require_arrays(int n, const char* what,
                             std::initializer_list<std::pair<const void*, const char*>> arrays) {
  if (n < 0) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, std::string("Number of ") + what + " is negative");
  }
  if (n == 0) return Status::Ok();
  for (const auto& [p, name] : arrays) VLM_RETURN_IF_ERROR(require(p, name));
  return Status::Ok();
}

}  // namespace vlm::capi
