// Parameter calls: lookup, information, typed and textual setters, parameter files.
#include <algorithm>
#include <cstring>
#include <string>

#include "capi/capi_guard.h"
#include "io/prm_file.h"
#include "params/param_table.h"
#include "velmor_c.h"

using vlm::Env;
using vlm::ParamDef;
using vlm::ParamSet;
using vlm::ParamType;
using vlm::Status;
using vlm::StatusOr;
using vlm::capi::env_call;
using vlm::capi::require;

namespace {

// The listed parameters, in table order: hidden ones are reachable by name only.
const std::vector<int>& listed_params() {
  static const std::vector<int> listed = [] {
    std::vector<int> v;
    const auto& t = vlm::param_table();
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
      if (!(t[i].flags & vlm::kParamHidden)) v.push_back(i);
    }
    return v;
  }();
  return listed;
}

StatusOr<int> lookup(const Env& e, const char* name) {
  VLM_RETURN_IF_ERROR(require(name, "paramname"));
  return e.params().lookup(name);
}

StatusOr<int> lookup_typed(const Env& e, const char* name, ParamType type) {
  VLM_RETURN_IF_ERROR(require(name, "paramname"));
  return e.params().lookup_typed(name, type);
}

void copy_str(char* dst, const std::string& src) {
  if (dst == nullptr) return;
  std::size_t n = std::min(src.size(), static_cast<std::size_t>(VLM_MAX_STRLEN - 1));
  std::memcpy(dst, src.data(), n);
  dst[n] = '\0';
}

Status param_name(int i, char** nameP) {
  VLM_RETURN_IF_ERROR(require(nameP, "nameP"));
  const auto& listed = listed_params();
  if (i < 0 || i >= static_cast<int>(listed.size())) {
    return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, "Parameter index " + std::to_string(i) +
                                                    " is outside [0, " +
                                                    std::to_string(listed.size() - 1) + "]");
  }
  *nameP = const_cast<char*>(vlm::param_table()[listed[i]].name);
  return Status::Ok();
}

}  // namespace

extern "C" {

VLM_API int VLMgetnumparams(VLMenv* env) {
  (void)env;
  try {
    return static_cast<int>(listed_params().size());
  } catch (...) {
    return -1;
  }
}

VLM_API int VLMgetparamname(VLMenv* env, int i, char** nameP) {
  if (env == nullptr) {
    // The table is global: answer without an environment to record the message on.
    try {
      return param_name(i, nameP).code();
    } catch (...) {
      return VLM_ERROR_INTERNAL;
    }
  }
  return env_call(env, [&](Env&) { return param_name(i, nameP); });
}

VLM_API int VLMgetparamtype(VLMenv* env, const char* paramname) {
  if (env == nullptr || paramname == nullptr) return -1;
  try {
    int i = vlm::find_param(paramname);
    return i < 0 ? -1 : static_cast<int>(vlm::param_table()[i].type);
  } catch (...) {
    return -1;
  }
}

VLM_API int VLMgetparamflags(VLMenv* env, const char* paramname, int* flagsP) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup(e, paramname));
    VLM_RETURN_IF_ERROR(require(flagsP, "flagsP"));
    int flags = vlm::param_table()[i].flags;
    if (e.params().tune_fixed(i)) flags |= VLM_PARAMFLAG_TUNE_FIXED;
    *flagsP = flags;
    return Status::Ok();
  });
}

VLM_API int VLMgetintparaminfo(VLMenv* env, const char* paramname, int* valueP, int* minP,
                               int* maxP, int* defP) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup_typed(e, paramname, ParamType::kInt));
    const ParamDef& p = vlm::param_table()[i];
    if (valueP) *valueP = e.params().get_int(i);
    if (minP) *minP = static_cast<int>(p.min);
    if (maxP) *maxP = static_cast<int>(p.max);
    if (defP) *defP = static_cast<int>(p.def);
    return Status::Ok();
  });
}

VLM_API int VLMgetdblparaminfo(VLMenv* env, const char* paramname, double* valueP,
                               double* minP, double* maxP, double* defP) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup_typed(e, paramname, ParamType::kDbl));
    const ParamDef& p = vlm::param_table()[i];
    if (valueP) *valueP = e.params().get_dbl(i);
    if (minP) *minP = p.min;
    if (maxP) *maxP = p.max;
    if (defP) *defP = p.def;
    return Status::Ok();
  });
}

VLM_API int VLMgetstrparaminfo(VLMenv* env, const char* paramname, char* valueP, char* defP) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup_typed(e, paramname, ParamType::kStr));
    copy_str(valueP, e.params().get_str(i));
    copy_str(defP, vlm::param_table()[i].sdef);
    return Status::Ok();
  });
}

VLM_API int VLMgetlongstrparam(VLMenv* env, const char* paramname, char* value, int size,
                               int* requiredP) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup_typed(e, paramname, ParamType::kStr));
    const std::string& s = e.params().get_str(i);
    if (requiredP) *requiredP = static_cast<int>(s.size()) + 1;
    if (size < 0 || (size > 0 && value == nullptr)) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, "Invalid buffer for parameter value");
    }
    if (size > 0) {
      std::size_t n = std::min(s.size(), static_cast<std::size_t>(size - 1));
      std::memcpy(value, s.data(), n);
      value[n] = '\0';
    }
    return Status::Ok();
  });
}

VLM_API int VLMgetintparam(VLMenv* env, const char* paramname, int* valueP) {
  return VLMgetintparaminfo(env, paramname, valueP, nullptr, nullptr, nullptr);
}

VLM_API int VLMgetdblparam(VLMenv* env, const char* paramname, double* valueP) {
  return VLMgetdblparaminfo(env, paramname, valueP, nullptr, nullptr, nullptr);
}

VLM_API int VLMgetstrparam(VLMenv* env, const char* paramname, char* value) {
  return VLMgetstrparaminfo(env, paramname, value, nullptr);
}

VLM_API int VLMsetintparam(VLMenv* env, const char* paramname, int value) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup(e, paramname));
    if (vlm::param_table()[i].type == ParamType::kStr) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, std::string("Parameter '") +
                                                    vlm::param_table()[i].name +
                                                    "' takes a string value");
    }
    return e.set_param_int(i, value);
  });
}

VLM_API int VLMsetdblparam(VLMenv* env, const char* paramname, double value) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup(e, paramname));
    return e.set_param_dbl(i, value);
  });
}

VLM_API int VLMsetstrparam(VLMenv* env, const char* paramname, const char* value) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup(e, paramname));
    VLM_RETURN_IF_ERROR(require(value, "value"));
    return e.set_param_str(i, value);
  });
}

VLM_API int VLMsetparam(VLMenv* env, const char* paramname, const char* value) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup(e, paramname));
    VLM_RETURN_IF_ERROR(require(value, "value"));
    return e.set_param_text(i, value);
  });
}

VLM_API int VLMresetparams(VLMenv* env) {
  return env_call(env, [](Env& e) { return e.reset_params(); });
}

VLM_API int VLMreadparams(VLMenv* env, const char* filename) {
  return env_call(env, [&](Env& e) {
    VLM_RETURN_IF_ERROR(require(filename, "filename"));
    ParamSet scratch = e.params();
    VLM_RETURN_IF_ERROR(vlm::io::read_params(filename, scratch));
    return e.assign_params(scratch);
  });
}

VLM_API int VLMwriteparams(VLMenv* env, const char* filename) {
  return env_call(env, [&](Env& e) {
    VLM_RETURN_IF_ERROR(require(filename, "filename"));
    return vlm::io::write_params(filename, e.params());
  });
}

VLM_API int VLMfixtuneparam(VLMenv* env, const char* paramname) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup(e, paramname));
    e.params().set_tune_fixed(i);
    return Status::Ok();
  });
}

VLM_API int VLMgetparamhelp(VLMenv* env, const char* paramname, const char** helpP) {
  return env_call(env, [&](Env& e) {
    VLM_ASSIGN_OR_RETURN(int i, lookup(e, paramname));
    VLM_RETURN_IF_ERROR(require(helpP, "helpP"));
    *helpP = vlm::param_help(i).c_str();
    return Status::Ok();
  });
}

}  // extern "C"
