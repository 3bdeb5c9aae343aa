#include "batch/batch_service.h"

#include <cmath>

#include "io/file_format.h"
#include "io/json_value.h"

namespace vlm::batch {

namespace {

using io::JsonValue;

HttpRequest request(const ServiceConfig& cfg, const char* method, const std::string& path) {
  HttpRequest r;
  r.method = method;
  r.url = cfg.base_url + "/api/v1/batches" + path;
  r.headers.push_back("X-Velmor-Access-Id: " + cfg.access_id);
  r.headers.push_back("X-Velmor-Secret: " + cfg.secret);
  r.headers.push_back("Accept: application/json");
  return r;
}

// A failure answer of the service, or a stand-in when the body is not one.
Status service_error(const HttpResponse& r) {
  StatusOr<JsonValue> body = io::parse_json(r.body);
  if (body.ok() && body->is_object()) {
    const JsonValue* code = body->find("code");
    const JsonValue* error = body->find("error");
    if (code != nullptr && code->kind == JsonValue::Kind::kNumber && code->number >= 1 &&
        code->number < 1e9 && std::floor(code->number) == code->number) {
      std::string text = error != nullptr && error->kind == JsonValue::Kind::kString
                             ? error->text
                             : "The batch service refused the request (HTTP " + std::to_string(r.status) + ")";
      return Status(static_cast<int>(code->number), text);
    }
  }
  return Status(VLM_ERROR_CLOUD, "The batch service answered HTTP " + std::to_string(r.status) +
                                     " without an error description");
}

// Sends and returns the body of a 2xx answer; anything else is the service's error.
StatusOr<std::string> exchange(const ServiceConfig& cfg, const HttpRequest& req) {
  VLM_ASSIGN_OR_RETURN(HttpResponse r, http_send(req, cfg.http));
  if (r.status < 200 || r.status >= 300) return service_error(r);
  return std::move(r.body);
}

StatusOr<JsonValue> exchange_object(const ServiceConfig& cfg, const HttpRequest& req) {
  VLM_ASSIGN_OR_RETURN(std::string body, exchange(cfg, req));
  StatusOr<JsonValue> v = io::parse_json(body);
  if (!v.ok() || !v->is_object()) {
    return Status(VLM_ERROR_CLOUD, "The batch service sent an answer that is not a JSON object" +
                                       (v.ok() ? std::string() : ": " + v.status().message()));
  }
  return v;
}

Status bad_field(const char* name) {
  return Status(VLM_ERROR_CLOUD, std::string("The batch service sent request attributes without a valid '") +
                                     name + "'");
}

Status read_string(const JsonValue& obj, const char* name, std::string* out) {
  const JsonValue* v = obj.find(name);
  if (v == nullptr || v->kind != JsonValue::Kind::kString) return bad_field(name);
  *out = v->text;
  return Status::Ok();
}

Status read_int(const JsonValue& obj, const char* name, int* out) {
  const JsonValue* v = obj.find(name);
  if (v == nullptr || v->kind != JsonValue::Kind::kNumber || std::floor(v->number) != v->number ||
      std::fabs(v->number) > 2147483647.0) {
    return bad_field(name);
  }
  *out = static_cast<int>(v->number);
  return Status::Ok();
}

StatusOr<BatchInfo> to_info(const JsonValue& obj) {
  BatchInfo info;
  VLM_RETURN_IF_ERROR(read_string(obj, "BatchID", &info.id));
  VLM_RETURN_IF_ERROR(read_int(obj, "BatchStatus", &info.status));
  if (info.status < 1 || info.status > 5) return bad_field("BatchStatus");
  VLM_RETURN_IF_ERROR(read_int(obj, "BatchErrorCode", &info.error_code));
  VLM_RETURN_IF_ERROR(read_string(obj, "BatchErrorMessage", &info.error_message));
  VLM_RETURN_IF_ERROR(read_string(obj, "ModelName", &info.model_name));
  VLM_RETURN_IF_ERROR(read_string(obj, "SubmitTime", &info.submit_time));
  VLM_RETURN_IF_ERROR(read_string(obj, "FinishTime", &info.finish_time));
  return info;
}

StatusOr<std::string> packed(const std::string& text) {
  std::string gz;
  // The fastest level: on a 570 kB MPS text it takes a sixth of the default level's time
  // (8 ms against 49 ms here) for a result 14% larger, and that time is the caller's.
  if (!io::gzip_compress(text, &gz, 1)) return Status(VLM_ERROR_OUT_OF_MEMORY, "Out of memory compressing a batch request");
  return base64_encode(gz);
}

}  // namespace

StatusOr<ServiceConfig> service_config(const ParamSet& params) {
  ServiceConfig cfg;
  cfg.base_url = params.str_param("CSManager");
  while (!cfg.base_url.empty() && cfg.base_url.back() == '/') cfg.base_url.pop_back();
  if (cfg.base_url.empty()) {
    return Status(VLM_ERROR_INVALID_ARGUMENT,
                  "No batch service is configured: set the CSManager parameter to the service's address "
                  "(for example http://127.0.0.1:8080)");
  }
  cfg.access_id = params.str_param("CSAPIAccessID");
  cfg.secret = params.str_param("CSAPISecret");
  cfg.app_name = params.str_param("CSAppName");
  cfg.http.timeout_seconds = params.int_param("ServerTimeout");
  cfg.http.insecure = params.int_param("CSTLSInsecure") != 0;
  return cfg;
}

Status check_batch_id(const std::string& id) {
  bool ok = !id.empty() && id.size() <= 128;
  for (char c : id) {
    ok = ok && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_');
  }
  if (ok) return Status::Ok();
  return Status(VLM_ERROR_INVALID_ARGUMENT, "Invalid batch ID '" + id +
                                                "': expected letters, digits, '-' and '_' only");
}

StatusOr<std::string> submit(const ServiceConfig& cfg, const Submission& sub) {
  VLM_ASSIGN_OR_RETURN(std::string model, packed(sub.mps));
  VLM_ASSIGN_OR_RETURN(std::string params, packed(sub.params));
  HttpRequest req = request(cfg, "POST", "");
  req.headers.push_back("Content-Type: application/json");
  // No "Expect: 100-continue" round trip before a large body.
  req.headers.push_back("Expect:");
  req.body = "{\"model\": " + io::json_quote(model) + ", \"params\": " + io::json_quote(params) +
             ", \"model_name\": " + io::json_quote(sub.model_name) + ", \"app_name\": " + io::json_quote(cfg.app_name) + "}";
  VLM_ASSIGN_OR_RETURN(JsonValue answer, exchange_object(cfg, req));
  std::string id;
  VLM_RETURN_IF_ERROR(read_string(answer, "id", &id));
  // The id goes into later URLs and into the caller's fixed-size buffer.
  if (!check_batch_id(id).ok()) return bad_field("id");
  return id;
}

StatusOr<BatchInfo> fetch(const ServiceConfig& cfg, const std::string& id) {
  VLM_RETURN_IF_ERROR(check_batch_id(id));
  VLM_ASSIGN_OR_RETURN(JsonValue obj, exchange_object(cfg, request(cfg, "GET", "/" + id)));
  return to_info(obj);
}

StatusOr<BatchInfo> abort_request(const ServiceConfig& cfg, const std::string& id) {
  VLM_RETURN_IF_ERROR(check_batch_id(id));
  VLM_ASSIGN_OR_RETURN(JsonValue obj, exchange_object(cfg, request(cfg, "POST", "/" + id + "/abort")));
  return to_info(obj);
}

StatusOr<BatchInfo> retry_request(const ServiceConfig& cfg, const std::string& id) {
  VLM_RETURN_IF_ERROR(check_batch_id(id));
  VLM_ASSIGN_OR_RETURN(JsonValue obj, exchange_object(cfg, request(cfg, "POST", "/" + id + "/retry")));
  return to_info(obj);
}

Status discard_request(const ServiceConfig& cfg, const std::string& id) {
  VLM_RETURN_IF_ERROR(check_batch_id(id));
  return exchange(cfg, request(cfg, "DELETE", "/" + id)).status();
}

StatusOr<std::string> solution(const ServiceConfig& cfg, const std::string& id) {
  VLM_RETURN_IF_ERROR(check_batch_id(id));
  return exchange(cfg, request(cfg, "GET", "/" + id + "/solution"));
}

std::string base64_encode(const std::string& bytes) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned v = (static_cast<unsigned char>(bytes[i]) << 16) |
                       (static_cast<unsigned char>(bytes[i + 1]) << 8) | static_cast<unsigned char>(bytes[i + 2]);
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  if (i < bytes.size()) {
    unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += i + 1 < bytes.size() ? kAlphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

}  // namespace vlm::batch
