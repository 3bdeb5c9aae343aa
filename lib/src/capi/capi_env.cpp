// Environments, messages and library information.
#include <new>
#include <string>

#include "capi/capi_guard.h"
#include "core/platform.h"
#include "velmor_c.h"

using vlm::Env;
using vlm::Status;
using vlm::capi::env_call;
using vlm::capi::require;

extern "C" {

VLM_API void VLMversion(int* majorP, int* minorP, int* technicalP) {
  if (majorP) *majorP = VLM_VERSION_MAJOR;
  if (minorP) *minorP = VLM_VERSION_MINOR;
  if (technicalP) *technicalP = VLM_VERSION_TECHNICAL;
}

VLM_API const char* VLMplatform(void) { return vlm::platform_name(); }

VLM_API int VLMisContainer(void) {
  try {
    return vlm::running_in_container() ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

VLM_API int VLMemptyenvadvinternal(VLMenv** envP, int apitype, int major, int minor,
                                   int technical, void* reserved1, void* reserved2) {
  (void)minor;
  (void)technical;
  if (envP == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  *envP = nullptr;
  if (apitype < 0 || major != VLM_VERSION_MAJOR || reserved1 != nullptr || reserved2 != nullptr) {
    return VLM_ERROR_INVALID_ARGUMENT;
  }
  try {
    *envP = new VLMenv();
  } catch (...) {
    return VLM_ERROR_OUT_OF_MEMORY;
  }
  return VLM_OK;
}

VLM_API int VLMemptyenv(VLMenv** envP) {
  return VLMemptyenvadvinternal(envP, 0, VLM_VERSION_MAJOR, VLM_VERSION_MINOR,
                                VLM_VERSION_TECHNICAL, nullptr, nullptr);
}

VLM_API int VLMloadenv(VLMenv** envP, const char* logfilename) {
  int rc = VLMemptyenv(envP);
  if (rc != VLM_OK) return rc;
  if (logfilename != nullptr && *logfilename != '\0') {
    rc = VLMsetstrparam(*envP, "LogFile", logfilename);
    if (rc != VLM_OK) return rc;
  }
  return VLMstartenv(*envP);
}

VLM_API int VLMstartenv(VLMenv* env) {
  return env_call(env, [](Env& e) { return e.start(); });
}

VLM_API int VLMisenvstarted(VLMenv* env) { return env != nullptr && env->env->started() ? 1 : 0; }

VLM_API void VLMfreeenv(VLMenv* env) {
  // A model's environment belongs to its model: freeing it is the model's business.
  if (env != nullptr && env->owned) delete env;
}

VLM_API const char* VLMgeterrormsg(VLMenv* env) {
  if (env == nullptr) return "NULL environment";
  return env->env->errors().c_str();
}

VLM_API int VLMmsg(VLMenv* env, const char* message) {
  return env_call(env, [&](Env& e) {
    VLM_RETURN_IF_ERROR(require(message, "message"));
    e.message(message);
    return Status::Ok();
  });
}

VLM_API int VLMsetlogcallbackfuncenv(VLMenv* env, VLMlogcallback cb, void* usrdata) {
  return env_call(env, [&](Env& e) {
    e.log().set_callback(cb, usrdata);
    return Status::Ok();
  });
}

VLM_API int VLMsetlogroutefuncenv(VLMenv* env, VLMlogroutecallback cb, void* usrdata) {
  return env_call(env, [&](Env& e) {
    e.log().set_route(cb, usrdata);
    return Status::Ok();
  });
}

VLM_API int VLMgetcommstats(VLMenv* env, double* recvtimeP, double* recvbytesP,
                            double* recvmsgsP, double* sendtimeP, double* sendbytesP,
                            double* sendmsgsP) {
  return env_call(env, [&](Env&) {
    // All solving is local: no traffic has been exchanged with any service.
    for (double* p : {recvtimeP, recvbytesP, recvmsgsP, sendtimeP, sendbytesP, sendmsgsP}) {
      if (p) *p = 0.0;
    }
    return Status::Ok();
  });
}

VLM_API int VLMgettokenlifespan(VLMenv* env, int* lifespanP) {
  return env_call(env, [&](Env&) {
    if (lifespanP) *lifespanP = 0;
    return Status(VLM_ERROR_DATA_NOT_AVAILABLE,
                  "No licence token is in use: Velmor runs without a licence service");
  });
}

}  // extern "C"
