// VLMread: reading data into an existing model, by the file's suffix.
#include <string>

#include "capi/capi_guard.h"
#include "core/text.h"
#include "io/attr_file.h"
#include "io/basis_file.h"
#include "io/file_format.h"
#include "io/solution_files.h"
#include "io/prm_file.h"
#include "velmor_c.h"

using vlm::Model;
using vlm::Status;
using vlm::capi::model_call;
using vlm::capi::require;

namespace {

bool ends_with(const std::string& s, const char* suffix) {
  std::string low = vlm::to_lower(s);
  std::string suf(suffix);
  return low.size() >= suf.size() && low.compare(low.size() - suf.size(), suf.size(), suf) == 0;
}

}  // namespace

extern "C" {

VLM_API int VLMread(VLMmodel* model, const char* filename) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(require(filename, "filename"));
    std::string f(filename);
    if (ends_with(f, ".attr")) return vlm::io::read_attr_file(f, m);
    if (ends_with(f, ".prm")) {
      vlm::ParamSet scratch = m.env().params();
      VLM_RETURN_IF_ERROR(vlm::io::read_params(f, scratch));
      return m.env().assign_params(scratch);
    }
    vlm::io::VarFileKind kind;
    if (vlm::io::var_file_kind(vlm::io::file_suffix(f), &kind)) return vlm::io::read_var_file(f, kind, m);
    if (vlm::io::file_suffix(f) == "bas") return vlm::io::read_basis_file(f, m);
    if (ends_with(f, ".json") || ends_with(f, ".json.gz")) {
      // A JSON solution is output only.
      return Status(VLM_ERROR_NOT_SUPPORTED, "Reading '" + f + "' into a model is not supported");
    }
    if (VLMismodelfile(filename)) {
      return Status(VLM_ERROR_INVALID_ARGUMENT,
                    "'" + f + "' is a model file: read it into a new model with VLMreadmodel");
    }
    return Status(VLM_ERROR_INVALID_ARGUMENT, "Unknown file type for file '" + f + "'");
  });
}

}  // extern "C"
