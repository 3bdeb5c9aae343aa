#include "batch/batch_request.h"

#include <sstream>

#include "core/text.h"
#include "io/mps_writer.h"
#include "io/prm_file.h"
#include "params/param_table.h"

namespace vlm::batch {

const BatchAttr kBatchAttrs[kNumBatchAttrs] = {
    {"BatchErrorCode", VLM_INT}, {"BatchErrorMessage", VLM_STR}, {"BatchID", VLM_STR},
    {"BatchStatus", VLM_INT},    {"FinishTime", VLM_STR},        {"ModelName", VLM_STR},
    {"SubmitTime", VLM_STR},
};

namespace {

enum AttrIndex { kErrorCode, kErrorMessage, kId, kStatus, kFinishTime, kModelName, kSubmitTime };

bool connection_param(int index) { return param_table()[index].group == ParamGroup::kBatch; }

}  // namespace

StatusOr<int> find_batch_attr(std::string_view name) {
  for (int i = 0; i < kNumBatchAttrs; ++i) {
    if (iequals(name, kBatchAttrs[i].name)) return i;
  }
  return Status(VLM_ERROR_UNKNOWN_ATTRIBUTE, "Unknown batch attribute '" + std::string(name) + "'");
}

StatusOr<std::unique_ptr<BatchRequest>> BatchRequest::lookup(const Env& env, const std::string& id) {
  VLM_ASSIGN_OR_RETURN(ServiceConfig cfg, service_config(env.params()));
  VLM_ASSIGN_OR_RETURN(BatchInfo info, fetch(cfg, id));
  std::unique_ptr<BatchRequest> r(new BatchRequest(env, std::move(cfg)));
  r->info_ = std::move(info);
  return r;
}

Status BatchRequest::available(int index) const {
  if (index < 0 || index >= kNumBatchAttrs) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, "Batch attribute index " + std::to_string(index) + " out of range");
  }
  if (discarded_ && index != kId) {
    return Status(VLM_ERROR_DATA_NOT_AVAILABLE, "Batch request '" + info_.id + "' was discarded: attribute '" +
                                                    kBatchAttrs[index].name + "' is no longer available");
  }
  return Status::Ok();
}

Status BatchRequest::get_int(int index, int* value) const {
  VLM_RETURN_IF_ERROR(available(index));
  if (index == kStatus) {
    *value = info_.status;
  } else if (index == kErrorCode) {
    *value = info_.error_code;
  } else {
    return Status(VLM_ERROR_INVALID_ARGUMENT, std::string("Batch attribute '") + kBatchAttrs[index].name +
                                                  "' is a string, not an integer");
  }
  return Status::Ok();
}

Status BatchRequest::get_str(int index, const std::string** value) const {
  VLM_RETURN_IF_ERROR(available(index));
  switch (index) {
    case kId: *value = &info_.id; break;
    case kErrorMessage: *value = &info_.error_message; break;
    case kModelName: *value = &info_.model_name; break;
    case kSubmitTime: *value = &info_.submit_time; break;
    case kFinishTime: *value = &info_.finish_time; break;
    default:
      return Status(VLM_ERROR_INVALID_ARGUMENT, std::string("Batch attribute '") + kBatchAttrs[index].name +
                                                    "' is an integer, not a string");
  }
  return Status::Ok();
}

Status BatchRequest::update() {
  VLM_ASSIGN_OR_RETURN(info_, fetch(cfg_, info_.id));
  return Status::Ok();
}

Status BatchRequest::abort() {
  VLM_ASSIGN_OR_RETURN(info_, abort_request(cfg_, info_.id));
  return Status::Ok();
}

Status BatchRequest::retry() {
  VLM_ASSIGN_OR_RETURN(info_, retry_request(cfg_, info_.id));
  return Status::Ok();
}

Status BatchRequest::discard() {
  VLM_RETURN_IF_ERROR(discard_request(cfg_, info_.id));
  discarded_ = true;
  return Status::Ok();
}

StatusOr<std::string> BatchRequest::json_solution() { return solution(cfg_, info_.id); }

StatusOr<std::string> submit_model(Model& model) {
  VLM_ASSIGN_OR_RETURN(ServiceConfig cfg, service_config(model.env().params()));
  Submission sub;
  std::ostringstream mps;
  VLM_RETURN_IF_ERROR(io::write_mps(model.data(), mps, io::MpsLayout::kAuto, false));
  sub.mps = mps.str();
  sub.params = io::params_text(model.env().params(), &connection_param);
  sub.model_name = model.data().name;
  return submit(cfg, sub);
}

}  // namespace vlm::batch
