// The client side of the batch service's HTTP protocol (docs/batch-service.md): submission,
// the state of one request, and its operations.
//
// Every call is one HTTP exchange (plus bounded retries when the connection cannot be made,
// see http_client.h). A failure answer {"error": text, "code": n} becomes Status(n, text), so
// the service decides which library code a caller sees: 404 unknown id -> INVALID_ARGUMENT,
// 410 discarded -> DATA_NOT_AVAILABLE, 401 -> SECURITY, 409 wrong state -> INVALID_ARGUMENT,
// 500 -> CLOUD. An answer that is not of that form fails with VLM_ERROR_CLOUD naming the HTTP
// status.
#pragma once

#include <string>

#include "batch/http_client.h"
#include "core/status.h"
#include "params/param_set.h"

namespace vlm::batch {

// Where and how to reach the service, from an environment's parameters.
struct ServiceConfig {
  std::string base_url;  // CSManager without trailing '/', e.g. "http://127.0.0.1:8080"
  std::string access_id;  // CSAPIAccessID
  std::string secret;     // CSAPISecret
  std::string app_name;   // CSAppName
  HttpOptions http;       // ServerTimeout, CSTLSInsecure
};

// Reads the configuration; fails with VLM_ERROR_INVALID_ARGUMENT when CSManager is empty.
StatusOr<ServiceConfig> service_config(const ParamSet& params);

// The attributes of one request as the service reports them.
struct BatchInfo {
  std::string id;
  int status = 0;  // 1 created .. 5 completed
  int error_code = 0;
  std::string error_message;
  std::string model_name;
  std::string submit_time;  // ISO-8601 UTC
  std::string finish_time;  // "" while the request is open
};

// What a submission carries, uncompressed: the model as MPS text and the .prm text of the
// submitting environment's non-default parameters.
struct Submission {
  std::string mps;
  std::string params;
  std::string model_name;
};

// Submits; returns the new request's id. Cost: compressing and encoding the model, O(size).
StatusOr<std::string> submit(const ServiceConfig& cfg, const Submission& sub);

// The current attributes of request `id`.
StatusOr<BatchInfo> fetch(const ServiceConfig& cfg, const std::string& id);

// abort / retry; both return the request's attributes afterwards.
StatusOr<BatchInfo> abort_request(const ServiceConfig& cfg, const std::string& id);
StatusOr<BatchInfo> retry_request(const ServiceConfig& cfg, const std::string& id);

// Deletes the request's stored input and output on the service.
Status discard_request(const ServiceConfig& cfg, const std::string& id);

// The JSON solution text of a completed request, exactly as served.
StatusOr<std::string> solution(const ServiceConfig& cfg, const std::string& id);

// Checks that `id` may be placed in a URL path (letters, digits, '-' and '_', 1 to 128
// characters); fails with VLM_ERROR_INVALID_ARGUMENT naming it otherwise.
Status check_batch_id(const std::string& id);

// Standard base64 with padding. O(size).
std::string base64_encode(const std::string& bytes);

}  // namespace vlm::batch
