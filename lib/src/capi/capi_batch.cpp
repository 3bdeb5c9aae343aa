// Batch requests: VLMoptimizebatch and the VLMbatch calls. The work is in batch/; this file
// checks arguments and records failures on the right environment.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "batch/batch_request.h"
#include "capi/capi_guard.h"
#include "io/file_format.h"
#include "velmor_c.h"

using vlm::Model;
using vlm::Status;
using vlm::batch::BatchRequest;
using vlm::capi::model_call;
using vlm::capi::require;
using vlm::capi::run_guarded;

// A batch handle: the request and a view of its own environment for VLMgetbatchenv. `scratch`
// keeps the last string attribute read alive until the next call.
struct VLMbatch {
  std::unique_ptr<BatchRequest> request;
  VLMenv env;
  std::string scratch;

  explicit VLMbatch(std::unique_ptr<BatchRequest> r) : request(std::move(r)), env(&request->env()) {}
};

namespace {

template <class Body>
int batch_call(VLMbatch* batch, Body&& body) noexcept {
  if (batch == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  return run_guarded(batch->request->env().errors(), [&] { return body(*batch->request); });
}

}  // namespace

extern "C" {

VLM_API int VLMoptimizebatch(VLMmodel* model, char* batchid) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(require(batchid, "batchid"));
    batchid[0] = '\0';
    VLM_RETURN_IF_ERROR(m.update());
    VLM_ASSIGN_OR_RETURN(std::string id, vlm::batch::submit_model(m));
    // check_batch_id (on the service's answer) bounds the id well below VLM_MAX_STRLEN.
    std::memcpy(batchid, id.c_str(), id.size() + 1);
    return Status::Ok();
  });
}

VLM_API int VLMgetbatch(VLMenv* env, const char* batchid, VLMbatch** batchP) {
  if (batchP != nullptr) *batchP = nullptr;
  return vlm::capi::env_call(env, [&](vlm::Env& e) {
    VLM_RETURN_IF_ERROR(require(batchid, "batchid"));
    VLM_RETURN_IF_ERROR(require(batchP, "batchP"));
    VLM_ASSIGN_OR_RETURN(std::unique_ptr<BatchRequest> r, BatchRequest::lookup(e, batchid));
    *batchP = new VLMbatch(std::move(r));
    return Status::Ok();
  });
}

VLM_API VLMenv* VLMgetbatchenv(VLMbatch* batch) { return batch == nullptr ? nullptr : &batch->env; }

VLM_API int VLMfreebatch(VLMbatch* batch) {
  delete batch;
  return VLM_OK;
}

VLM_API int VLMgetbatchattrflags(VLMbatch* batch, const char* attrname, int* flagsP) {
  return batch_call(batch, [&](BatchRequest&) {
    VLM_RETURN_IF_ERROR(require(attrname, "attrname"));
    VLM_ASSIGN_OR_RETURN(int i, vlm::batch::find_batch_attr(attrname));
    if (flagsP != nullptr) *flagsP = vlm::batch::kBatchAttrs[i].type | vlm::batch::kBatchAttrReadOnly;
    return Status::Ok();
  });
}

VLM_API int VLMgetbatchintattr(VLMbatch* batch, const char* attrname, int* valueP) {
  return batch_call(batch, [&](BatchRequest& r) {
    VLM_RETURN_IF_ERROR(require(attrname, "attrname"));
    VLM_RETURN_IF_ERROR(require(valueP, "valueP"));
    VLM_ASSIGN_OR_RETURN(int i, vlm::batch::find_batch_attr(attrname));
    return r.get_int(i, valueP);
  });
}

VLM_API int VLMgetbatchstrattr(VLMbatch* batch, const char* attrname, char** valueP) {
  return batch_call(batch, [&](BatchRequest& r) {
    VLM_RETURN_IF_ERROR(require(attrname, "attrname"));
    VLM_RETURN_IF_ERROR(require(valueP, "valueP"));
    VLM_ASSIGN_OR_RETURN(int i, vlm::batch::find_batch_attr(attrname));
    const std::string* value = nullptr;
    VLM_RETURN_IF_ERROR(r.get_str(i, &value));
    batch->scratch = *value;
    *valueP = batch->scratch.data();
    return Status::Ok();
  });
}

VLM_API int VLMgetnumbatchattributes(VLMbatch* batch, int* numP) {
  return batch_call(batch, [&](BatchRequest&) {
    VLM_RETURN_IF_ERROR(require(numP, "numP"));
    *numP = vlm::batch::kNumBatchAttrs;
    return Status::Ok();
  });
}

VLM_API int VLMgetbatchattrname(VLMbatch* batch, int i, const char** nameP) {
  return batch_call(batch, [&](BatchRequest&) {
    VLM_RETURN_IF_ERROR(require(nameP, "nameP"));
    if (i < 0 || i >= vlm::batch::kNumBatchAttrs) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, "Batch attribute index " + std::to_string(i) +
                                                      " out of range (0 to " +
                                                      std::to_string(vlm::batch::kNumBatchAttrs - 1) + ")");
    }
    *nameP = vlm::batch::kBatchAttrs[i].name;
    return Status::Ok();
  });
}

VLM_API int VLMupdatebatch(VLMbatch* batch) {
  return batch_call(batch, [](BatchRequest& r) { return r.update(); });
}

VLM_API int VLMabortbatch(VLMbatch* batch) {
  return batch_call(batch, [](BatchRequest& r) { return r.abort(); });
}

VLM_API int VLMretrybatch(VLMbatch* batch) {
  return batch_call(batch, [](BatchRequest& r) { return r.retry(); });
}

VLM_API int VLMdiscardbatch(VLMbatch* batch) {
  return batch_call(batch, [](BatchRequest& r) { return r.discard(); });
}

VLM_API int VLMgetbatchjsonsolution(VLMbatch* batch, char** textP) {
  return batch_call(batch, [&](BatchRequest& r) {
    VLM_RETURN_IF_ERROR(require(textP, "textP"));
    *textP = nullptr;
    VLM_ASSIGN_OR_RETURN(std::string text, r.json_solution());
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) return Status(VLM_ERROR_OUT_OF_MEMORY, "Out of memory");
    std::memcpy(copy, text.c_str(), text.size() + 1);
    *textP = copy;
    return Status::Ok();
  });
}

VLM_API int VLMwritebatchjsonsolution(VLMbatch* batch, const char* filename) {
  return batch_call(batch, [&](BatchRequest& r) {
    VLM_RETURN_IF_ERROR(require(filename, "filename"));
    VLM_ASSIGN_OR_RETURN(std::string text, r.json_solution());
    return vlm::io::write_file(filename, text);
  });
}

}  // extern "C"
