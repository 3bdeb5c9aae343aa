// Model files: reading a model, writing a model, its attribute values or its parameters by
// suffix, and the suffix queries. The formats themselves live in io/.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include "analysis/iis.h"
#include "capi/capi_guard.h"
#include "capi/capi_write.h"
#include "capi/capi_model.h"
#include "io/attr_file.h"
#include "io/basis_file.h"
#include "io/file_format.h"
#include "io/json_solution.h"
#include "io/lp_writer.h"
#include "io/solution_files.h"
#include "io/prm_file.h"
#include "velmor_c.h"

using vlm::Env;
using vlm::Model;
using vlm::Status;
using vlm::capi::env_call;
using vlm::capi::model_call;
using vlm::capi::require;

namespace vlm::capi {

Status write_by_suffix(Model& m, const std::string& name) {
  if (vlm::io::is_model_file(name)) {
    VLM_RETURN_IF_ERROR(m.update());
    return vlm::io::write_model_file(m.data(), name);
  }
  const std::string suffix = vlm::io::file_suffix(name);
  const bool gz = name.size() > suffix.size() + 1 && name.substr(name.size() - 3) == ".gz";
  if (suffix == "ilp") {
    // The subsystem of the last computeIIS, as an LP file; no update, which would drop it.
    if (m.iis() == nullptr) {
      return Status(VLM_ERROR_DATA_NOT_AVAILABLE,
                    "No IIS to write to file '" + name + "': compute one first (computeIIS)");
    }
    std::ostringstream out;
    VLM_RETURN_IF_ERROR(vlm::io::write_lp(vlm::analysis::iis_submodel(m), out, false));
    return vlm::io::write_file(name, out.str());
  }
  if (suffix == "prm" && !gz) return vlm::io::write_params(name, m.env().params());
  if (suffix == "attr" && !gz) {
    VLM_RETURN_IF_ERROR(m.update());
    return vlm::io::write_attr_file(name, m);
  }
  if (suffix == "bas") {
    VLM_RETURN_IF_ERROR(m.update());
    return vlm::io::write_basis_file(name, m);
  }
  if (suffix == "json") {
    VLM_RETURN_IF_ERROR(m.update());
    return vlm::io::write_file(name, vlm::io::json_solution(m));
  }
  vlm::io::VarFileKind kind;
  if (vlm::io::var_file_kind(suffix, &kind)) {
    VLM_RETURN_IF_ERROR(m.update());
    return vlm::io::write_var_file(name, kind, m);
  }
  if (suffix == "prm" || vlm::io::is_attr_file(name)) {
    return Status(VLM_ERROR_NOT_SUPPORTED,
                  "Writing ." + suffix + (gz ? ".gz" : "") + " files is not supported (file '" + name + "')");
  }
  return Status(VLM_ERROR_INVALID_ARGUMENT, "Unknown file type for file '" + name + "'");
}

Status write_result_file(Model& m) {
  const std::string& name = m.env().params().str_param("ResultFile");
  if (name.empty()) return Status::Ok();
  const Status st = write_by_suffix(m, name);
  // A solve that ended without what the file holds (no solution, no basis) is not a failure
  // of the solve: the log says why nothing was written.
  if (st.code() == VLM_ERROR_DATA_NOT_AVAILABLE) {
    m.env().message("Result file '" + name + "' not written: " + st.message());
    return Status::Ok();
  }
  VLM_RETURN_IF_ERROR(st);
  m.env().message("Wrote result file '" + name + "'");
  return Status::Ok();
}

}  // namespace vlm::capi

extern "C" {

VLM_API int VLMreadmodel(VLMenv* env, const char* filename, VLMmodel** modelP) {
  if (modelP != nullptr) *modelP = nullptr;
  return env_call(env, [&](Env& e) -> Status {
    VLM_RETURN_IF_ERROR(require(filename, "filename"));
    VLM_RETURN_IF_ERROR(require(modelP, "modelP"));
    if (!e.started()) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, "The environment has not been started");
    }
    VLM_ASSIGN_OR_RETURN(std::unique_ptr<Model> m, vlm::io::read_model_file(e, filename));
    *modelP = vlm::capi::wrap_model(std::move(m));
    return Status::Ok();
  });
}

VLM_API int VLMwrite(VLMmodel* model, const char* filename) {
  return model_call(model, [&](Model& m) -> Status {
    VLM_RETURN_IF_ERROR(require(filename, "filename"));
    return vlm::capi::write_by_suffix(m, filename);
  });
}

VLM_API int VLMgetjsonsolution(VLMmodel* model, char** bufferP) {
  return vlm::capi::model_call(model, [&](vlm::Model& m) {
    VLM_RETURN_IF_ERROR(vlm::capi::require(bufferP, "bufferP"));
    std::string text = vlm::io::json_solution(m);
    char* out = static_cast<char*>(std::malloc(text.size() + 1));
    if (out == nullptr) return Status(VLM_ERROR_OUT_OF_MEMORY, "Out of memory");
    std::memcpy(out, text.c_str(), text.size() + 1);
    *bufferP = out;
    return Status::Ok();
  });
}

VLM_API void VLMfree(void* ptr) { std::free(ptr); }

VLM_API int VLMismodelfile(const char* filename) {
  if (filename == nullptr) return 0;
  try {
    return vlm::io::is_model_file(filename) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

VLM_API int VLMisattrfile(const char* filename) {
  if (filename == nullptr) return 0;
  try {
    return vlm::io::is_attr_file(filename) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

}  // extern "C"
