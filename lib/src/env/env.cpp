#include "env/env.h"

#include "engine/highs_api.h"

namespace vlm {

Status Env::start() {
  if (started_) return Status::Ok();
  VLM_RETURN_IF_ERROR(engine::check_highs());
  started_ = true;
  return Status::Ok();
}

Status Env::sync_log_file(const ParamSet& params) {
  return log_.set_file(params.str_param("LogFile"));
}

Status Env::set_param_int(int index, long long value) {
  ParamSet next = params_;
  VLM_RETURN_IF_ERROR(next.set_int(index, value));
  params_ = std::move(next);
  return Status::Ok();
}

Status Env::set_param_dbl(int index, double value) {
  ParamSet next = params_;
  VLM_RETURN_IF_ERROR(next.set_dbl(index, value));
  params_ = std::move(next);
  return Status::Ok();
}

Status Env::set_param_str(int index, std::string_view value) {
  ParamSet next = params_;
  VLM_RETURN_IF_ERROR(next.set_str(index, value));
  return assign_params(next);
}

Status Env::set_param_text(int index, std::string_view text) {
  ParamSet next = params_;
  VLM_RETURN_IF_ERROR(next.set_from_text(index, text));
  return assign_params(next);
}

Status Env::reset_params() {
  ParamSet next;
  return assign_params(next);
}

Status Env::assign_params(const ParamSet& params) {
  VLM_RETURN_IF_ERROR(sync_log_file(params));
  params_ = params;
  return Status::Ok();
}

void Env::message(std::string_view text) {
  if (params_.int_param("OutputFlag") == 0) return;
  log_.write(text, params_.int_param("LogToConsole") != 0);
  if (tap_.p != nullptr) tap_.p->on_message(text);
}

}  // namespace vlm
