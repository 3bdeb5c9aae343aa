// BatchRequest: the client's handle of one request on the batch service, with a local copy of
// its attributes, and the submission of a model.
//
// The handle keeps its own copy of the environment it was looked up with, so it does not
// depend on that environment's lifetime, and failures are recorded there (the C API's
// VLMgetbatchenv). The attribute copy changes only when the service answers: update, abort and
// retry refresh it; discard marks it gone.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "batch/batch_service.h"
#include "core/status.h"
#include "env/env.h"
#include "model/model.h"

namespace vlm::batch {

// A batch attribute: name, VLM_INT or VLM_STR, and its flags (type | 0x10: all read-only).
struct BatchAttr {
  const char* name;
  int type;
};
inline constexpr int kBatchAttrReadOnly = 0x10;
inline constexpr int kNumBatchAttrs = 7;
extern const BatchAttr kBatchAttrs[kNumBatchAttrs];

// The index of the attribute named `name` (ignoring letter case), or an
// VLM_ERROR_UNKNOWN_ATTRIBUTE status "Unknown batch attribute 'name'".
StatusOr<int> find_batch_attr(std::string_view name);

class BatchRequest {
 public:
  // Looks `id` up on the service configured in `env`. Errors: see batch_service.h.
  static StatusOr<std::unique_ptr<BatchRequest>> lookup(const Env& env, const std::string& id);

  Env& env() { return env_; }
  const BatchInfo& info() const { return info_; }

  // Reads attribute `index` (find_batch_attr). After discard only BatchID is available.
  Status get_int(int index, int* value) const;
  Status get_str(int index, const std::string** value) const;

  Status update();
  Status abort();
  Status retry();
  Status discard();
  StatusOr<std::string> json_solution();

 private:
  BatchRequest(const Env& env, ServiceConfig cfg) : env_(env), cfg_(std::move(cfg)) {}
  Status available(int index) const;

  Env env_;
  ServiceConfig cfg_;
  BatchInfo info_;
  bool discarded_ = false;
};

// Submits the updated `model` to the service configured in its environment and returns the
// request's id. The model goes as MPS (names as the model has them), with the environment's
// non-default parameters except the batch group's (addresses and credentials stay here).
// Fails with VLM_ERROR_FILE_WRITE when the names cannot be written as MPS, else as
// batch_service.h says. Cost: writing and compressing the model, one HTTP exchange.
StatusOr<std::string> submit_model(Model& model);

}  // namespace vlm::batch
