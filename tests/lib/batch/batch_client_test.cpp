// The batch client against a small in-process service speaking the batch protocol: submission
// contents, the request lifecycle, the mapping of every service error to its code, and what
// happens without a service or without libcurl.
#include <gtest/gtest.h>
#include <zlib.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include "batch/batch_service.h"
#include "batch/http_client.h"
#include "batch/tiny_http_server.h"
#include "io/json_value.h"
#include "velmor_c.h"

namespace {

using vlm::io::JsonValue;

std::string base64_decode(const std::string& in) {
  auto val = [](char c) -> int {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
  };
  std::string out;
  int bits = 0, acc = 0;
  for (char c : in) {
    int v = val(c);
    if (v < 0) continue;
    acc = (acc << 6) | v;
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((acc >> bits) & 0xFF));
    }
  }
  return out;
}

std::string gunzip(const std::string& in) {
  z_stream z{};
  inflateInit2(&z, 15 + 16);
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
  z.avail_in = static_cast<uInt>(in.size());
  std::string out;
  char buf[4096];
  int rc = Z_OK;
  while (rc == Z_OK) {
    z.next_out = reinterpret_cast<Bytef*>(buf);
    z.avail_out = sizeof buf;
    rc = inflate(&z, Z_NO_FLUSH);
    out.append(buf, sizeof buf - z.avail_out);
  }
  inflateEnd(&z);
  return rc == Z_STREAM_END ? out : "<not gzip>";
}

std::string field(const JsonValue& obj, const char* name) {
  const JsonValue* v = obj.find(name);
  return v != nullptr && v->kind == JsonValue::Kind::kString ? v->text : "";
}

// The service's side, enough of it to follow a request through its states. A submission is
// solved at once with the library (so the solution is real); it stays SUBMITTED until the
// test calls complete().
struct FakeService {
  struct Record {
    int status = 2;
    std::string model_name, solution;
    bool discarded = false;
  };
  std::map<std::string, Record> requests;
  std::string mps, params, app_name;  // of the last submission, decoded
  int next_id = 1;

  static HttpReply error(int http, int code, const std::string& text) {
    return {http, "{\"error\": " + vlm::io::json_quote(text) + ", \"code\": " + std::to_string(code) + "}"};
  }
  static HttpReply info(const std::string& id, const Record& r) {
    return {200, "{\"BatchID\": \"" + id + "\", \"BatchStatus\": " + std::to_string(r.status) +
                     ", \"BatchErrorCode\": 0, \"BatchErrorMessage\": \"\", \"ModelName\": " +
                     vlm::io::json_quote(r.model_name) +
                     ", \"SubmitTime\": \"2026-11-25T15:00:00Z\", \"FinishTime\": \"" +
                     (r.status == 5 ? "2026-11-25T15:00:01Z" : "") + "\"}"};
  }
  void complete(const std::string& id) { requests[id].status = 5; }

  std::string solve(const std::string& mps_text) {
    const char* path = "batch_client_test_model.mps";
    std::ofstream(path) << mps_text;
    VLMenv* env = nullptr;
    VLMmodel* m = nullptr;
    char* text = nullptr;
    std::string out = "<unsolved>";
    if (VLMemptyenv(&env) == 0 && VLMsetintparam(env, "OutputFlag", 0) == 0 && VLMstartenv(env) == 0 &&
        VLMreadmodel(env, path, &m) == 0 && VLMoptimize(m) == 0 && VLMgetjsonsolution(m, &text) == 0) {
      out = text;
    }
    VLMfree(text);
    VLMfreemodel(m);
    VLMfreeenv(env);
    std::remove(path);
    return out;
  }

  HttpReply handle(const HttpCall& c) {
    auto h = c.headers;
    if (h["x-velmor-access-id"] != "alice" || h["x-velmor-secret"] != "s3cret") {
      return error(401, VLM_ERROR_SECURITY, "Unknown access id or wrong secret");
    }
    const std::string base = "/api/v1/batches";
    if (c.method == "POST" && c.path == base) {
      auto body = vlm::io::parse_json(c.body);
      if (!body.ok()) return error(400, VLM_ERROR_FILE_READ, "Malformed submission");
      mps = gunzip(base64_decode(field(*body, "model")));
      params = gunzip(base64_decode(field(*body, "params")));
      app_name = field(*body, "app_name");
      std::string id = "req-" + std::to_string(next_id++);
      requests[id] = Record{2, field(*body, "model_name"), solve(mps), false};
      return {201, "{\"id\": \"" + id + "\"}"};
    }
    std::string rest = c.path.substr(base.size() + 1);
    std::string id = rest.substr(0, rest.find('/'));
    std::string op = rest.size() > id.size() ? rest.substr(id.size() + 1) : "";
    auto it = requests.find(id);
    if (it == requests.end()) return error(404, VLM_ERROR_INVALID_ARGUMENT, "Unknown batch request '" + id + "'");
    Record& r = it->second;
    if (r.discarded) return error(410, VLM_ERROR_DATA_NOT_AVAILABLE, "Batch request '" + id + "' was discarded");
    if (c.method == "GET" && op.empty()) return info(id, r);
    if (c.method == "DELETE" && op.empty()) {
      r.discarded = true;
      return {200, "{}"};
    }
    if (c.method == "POST" && op == "abort") {
      if (r.status != 2) return error(409, VLM_ERROR_INVALID_ARGUMENT, "Only an open request can be aborted");
      r.status = 3;
      return info(id, r);
    }
    if (c.method == "POST" && op == "retry") {
      if (r.status != 3 && r.status != 4) return error(409, VLM_ERROR_INVALID_ARGUMENT, "Only a failed or aborted request can be retried");
      r.status = 2;
      return info(id, r);
    }
    if (c.method == "GET" && op == "solution") {
      if (r.status != 5) return error(409, VLM_ERROR_INVALID_ARGUMENT, "Batch request '" + id + "' is not completed");
      return {200, r.solution};
    }
    return error(500, VLM_ERROR_CLOUD, "No such operation");
  }
};

class BatchClient : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(VLMemptyenv(&env_), 0);
    ASSERT_EQ(VLMsetintparam(env_, "OutputFlag", 0), 0);
    ASSERT_EQ(VLMsetstrparam(env_, "CSManager", server_.url().c_str()), 0);
    ASSERT_EQ(VLMsetstrparam(env_, "CSAPIAccessID", "alice"), 0);
    ASSERT_EQ(VLMsetstrparam(env_, "CSAPISecret", "s3cret"), 0);
    ASSERT_EQ(VLMstartenv(env_), 0);
  }
  void TearDown() override {
    VLMfreebatch(batch_);
    VLMfreemodel(m_);
    VLMfreeenv(env_);
  }

  // max x + 2y  s.t.  x + y <= 4,  x + 3y <= 6,  x, y >= 0, in a model named "prod".
  void build_model() {
    const double obj[] = {1, 2};
    const char* names[] = {"x", "y"};
    ASSERT_EQ(VLMnewmodel(env_, &m_, "prod", 2, obj, nullptr, nullptr, nullptr, names), 0);
    const int ind[] = {0, 1};
    const double c1[] = {1, 1}, c2[] = {1, 3};
    ASSERT_EQ(VLMaddconstr(m_, 2, ind, c1, '<', 4, "c1"), 0);
    ASSERT_EQ(VLMaddconstr(m_, 2, ind, c2, '<', 6, "c2"), 0);
    ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), 0);
  }

  std::string submit() {
    char id[VLM_MAX_STRLEN];
    EXPECT_EQ(VLMoptimizebatch(m_, id), 0) << VLMgetmerrormsg(m_);
    return id;
  }

  std::string str_attr(const char* name) {
    char* v = nullptr;
    EXPECT_EQ(VLMgetbatchstrattr(batch_, name, &v), 0) << VLMgeterrormsg(VLMgetbatchenv(batch_));
    return v != nullptr ? v : "<none>";
  }
  int int_attr(const char* name) {
    int v = -1;
    EXPECT_EQ(VLMgetbatchintattr(batch_, name, &v), 0) << VLMgeterrormsg(VLMgetbatchenv(batch_));
    return v;
  }

  FakeService service_;
  TinyHttpServer server_{[this](const HttpCall& c) { return service_.handle(c); }};
  VLMenv* env_ = nullptr;
  VLMmodel* m_ = nullptr;
  VLMbatch* batch_ = nullptr;
};

TEST_F(BatchClient, SubmissionCarriesTheModelTheSettingsAndTheCredentials) {
  build_model();
  ASSERT_EQ(VLMsetdblparam(VLMgetenv(m_), "TimeLimit", 5), 0);
  ASSERT_EQ(VLMsetstrparam(VLMgetenv(m_), "CSAppName", "planner"), 0);
  std::string id = submit();
  EXPECT_EQ(id, "req-1");
  EXPECT_NE(service_.mps.find("NAME"), std::string::npos);
  EXPECT_NE(service_.mps.find("c2"), std::string::npos);
  EXPECT_EQ(service_.app_name, "planner");
  // The settings travel; the address and the credentials do not.
  EXPECT_NE(service_.params.find("TimeLimit  5"), std::string::npos) << service_.params;
  EXPECT_EQ(service_.params.find("CSAPISecret"), std::string::npos);
  EXPECT_EQ(service_.params.find("CSManager"), std::string::npos);
  EXPECT_EQ(service_.requests["req-1"].model_name, "prod");
  // The optimum, by the vertices: (3, 1) gives 5, beating (4, 0) and (0, 2) at 4.
  EXPECT_NE(service_.requests["req-1"].solution.find("\"ObjVal\": 5"), std::string::npos)
      << service_.requests["req-1"].solution;
}

TEST_F(BatchClient, RequestLifecycleAndSolution) {
  build_model();
  std::string id = submit();
  ASSERT_EQ(VLMgetbatch(env_, id.c_str(), &batch_), 0) << VLMgeterrormsg(env_);
  EXPECT_EQ(str_attr("BatchID"), id);
  EXPECT_EQ(int_attr("BatchStatus"), 2);
  EXPECT_EQ(str_attr("modelname"), "prod");  // names ignore letter case
  EXPECT_EQ(str_attr("SubmitTime"), "2026-11-25T15:00:00Z");
  EXPECT_EQ(str_attr("FinishTime"), "");

  char* text = nullptr;
  EXPECT_EQ(VLMgetbatchjsonsolution(batch_, &text), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(VLMgeterrormsg(VLMgetbatchenv(batch_)), ("Batch request '" + id + "' is not completed").c_str());

  ASSERT_EQ(VLMabortbatch(batch_), 0);
  EXPECT_EQ(int_attr("BatchStatus"), 3);
  EXPECT_EQ(VLMabortbatch(batch_), VLM_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(VLMretrybatch(batch_), 0);
  EXPECT_EQ(int_attr("BatchStatus"), 2);

  service_.complete(id);
  EXPECT_EQ(int_attr("BatchStatus"), 2);  // the local copy changes only on update
  ASSERT_EQ(VLMupdatebatch(batch_), 0);
  EXPECT_EQ(int_attr("BatchStatus"), 5);
  EXPECT_EQ(str_attr("FinishTime"), "2026-11-25T15:00:01Z");

  ASSERT_EQ(VLMgetbatchjsonsolution(batch_, &text), 0);
  EXPECT_EQ(std::string(text), service_.requests[id].solution);
  VLMfree(text);
  ASSERT_EQ(VLMwritebatchjsonsolution(batch_, "batch_client_test.json"), 0);
  std::stringstream file;
  file << std::ifstream("batch_client_test.json").rdbuf();
  EXPECT_EQ(file.str(), service_.requests[id].solution);
  std::remove("batch_client_test.json");

  // After discard the service answers 410 and the local copy keeps only the id.
  ASSERT_EQ(VLMdiscardbatch(batch_), 0);
  EXPECT_EQ(str_attr("BatchID"), id);
  int status = 0;
  EXPECT_EQ(VLMgetbatchintattr(batch_, "BatchStatus", &status), VLM_ERROR_DATA_NOT_AVAILABLE);
  EXPECT_EQ(VLMupdatebatch(batch_), VLM_ERROR_DATA_NOT_AVAILABLE);
  EXPECT_STREQ(VLMgeterrormsg(VLMgetbatchenv(batch_)), ("Batch request '" + id + "' was discarded").c_str());
  EXPECT_EQ(VLMgetbatchjsonsolution(batch_, &text), VLM_ERROR_DATA_NOT_AVAILABLE);
}

TEST_F(BatchClient, AttributeFlagsAndNames) {
  build_model();
  ASSERT_EQ(VLMgetbatch(env_, submit().c_str(), &batch_), 0);
  int flags = 0;
  ASSERT_EQ(VLMgetbatchattrflags(batch_, "BatchStatus", &flags), 0);
  EXPECT_EQ(flags, 0x11);
  ASSERT_EQ(VLMgetbatchattrflags(batch_, "BatchErrorMessage", &flags), 0);
  EXPECT_EQ(flags, 0x13);
  EXPECT_EQ(VLMgetbatchattrflags(batch_, "ObjVal", &flags), VLM_ERROR_UNKNOWN_ATTRIBUTE);
  EXPECT_STREQ(VLMgeterrormsg(VLMgetbatchenv(batch_)), "Unknown batch attribute 'ObjVal'");
  int v = 0;
  char* s = nullptr;
  EXPECT_EQ(VLMgetbatchintattr(batch_, "BatchID", &v), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(VLMgetbatchstrattr(batch_, "BatchStatus", &s), VLM_ERROR_INVALID_ARGUMENT);
  int n = 0;
  ASSERT_EQ(VLMgetnumbatchattributes(batch_, &n), 0);
  std::vector<std::string> names;
  for (int i = 0; i < n; ++i) {
    const char* name = nullptr;
    ASSERT_EQ(VLMgetbatchattrname(batch_, i, &name), 0);
    names.push_back(name);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"BatchErrorCode", "BatchErrorMessage", "BatchID", "BatchStatus",
                                             "FinishTime", "ModelName", "SubmitTime"}));
  const char* name = nullptr;
  EXPECT_EQ(VLMgetbatchattrname(batch_, n, &name), VLM_ERROR_INDEX_OUT_OF_RANGE);
}

// Each refusal of the service arrives with the code its body names and its text.
TEST_F(BatchClient, ServiceErrorsKeepTheirCodeAndText) {
  EXPECT_EQ(VLMgetbatch(env_, "req-404", &batch_), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(batch_, nullptr);
  EXPECT_STREQ(VLMgeterrormsg(env_), "Unknown batch request 'req-404'");

  ASSERT_EQ(VLMsetstrparam(env_, "CSAPISecret", "wrong"), 0);
  EXPECT_EQ(VLMgetbatch(env_, "req-1", &batch_), VLM_ERROR_SECURITY);
  EXPECT_STREQ(VLMgeterrormsg(env_), "Unknown access id or wrong secret");

  // Ids go into URLs: anything but letters, digits, '-' and '_' never leaves the client.
  const int before = server_.connections();
  EXPECT_EQ(VLMgetbatch(env_, "../admin", &batch_), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(server_.connections(), before);

  // Answers that are not the protocol's: CLOUD, naming what was wrong.
  std::vector<HttpReply> replies = {{502, "<html>Bad gateway</html>"},
                                    {200, "{\"BatchID\": \"q\", \"BatchStatus\": 9}"},
                                    {200, "not json"},
                                    {500, "{\"error\": \"Worker crashed\", \"code\": 10028}"}};
  std::vector<std::string> texts = {"The batch service answered HTTP 502 without an error description",
                                    "The batch service sent request attributes without a valid 'BatchStatus'",
                                    "The batch service sent an answer that is not a JSON object: Invalid JSON at offset 0: a value was expected",
                                    "Worker crashed"};
  std::size_t k = 0;
  TinyHttpServer odd([&](const HttpCall&) { return replies[k]; });
  ASSERT_EQ(VLMsetstrparam(env_, "CSManager", (odd.url() + "/").c_str()), 0);
  for (; k < replies.size(); ++k) {
    EXPECT_EQ(VLMgetbatch(env_, "q", &batch_), VLM_ERROR_CLOUD) << k;
    EXPECT_EQ(VLMgeterrormsg(env_), texts[k]);
  }
  EXPECT_EQ(odd.calls().back().path, "/api/v1/batches/q");  // the trailing '/' is dropped
}

TEST_F(BatchClient, WithoutServiceOrLibcurlTheCallsFailClearly) {
  build_model();
  char id[VLM_MAX_STRLEN] = "stale";
  ASSERT_EQ(VLMsetstrparam(VLMgetenv(m_), "CSManager", ""), 0);
  EXPECT_EQ(VLMoptimizebatch(m_, id), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(id, "");
  EXPECT_STREQ(VLMgetmerrormsg(m_), "No batch service is configured: set the CSManager parameter to the "
                                    "service's address (for example http://127.0.0.1:8080)");

  // Connection refused: three tries with short pauses, then NETWORK naming the address.
  const std::string closed = TinyHttpServer::closed_url();
  ASSERT_EQ(VLMsetstrparam(VLMgetenv(m_), "CSManager", closed.c_str()), 0);
  auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(VLMoptimizebatch(m_, id), VLM_ERROR_NETWORK);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_LT(seconds, 5.0);
  EXPECT_EQ(std::string(VLMgetmerrormsg(m_)).rfind("Unable to reach the batch service at '" + closed + "/api/v1/batches': ", 0), 0u)
      << VLMgetmerrormsg(m_);

  // A service slower than ServerTimeout: NETWORK after about that long, not a hang.
  TinyHttpServer slow([](const HttpCall&) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    return HttpReply{200, "{}"};
  });
  ASSERT_EQ(VLMsetstrparam(env_, "CSManager", slow.url().c_str()), 0);
  ASSERT_EQ(VLMsetintparam(env_, "ServerTimeout", 1), 0);
  t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(VLMgetbatch(env_, "q", &batch_), VLM_ERROR_NETWORK);
  seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_LT(seconds, 2.4);
  EXPECT_EQ(slow.connections(), 1);  // a request that was sent is not repeated

  // No libcurl on the machine: the message says what to install; nothing else is affected.
  vlm::batch::set_curl_library_for_testing("libcurl-absent.so.99");
  ASSERT_EQ(VLMsetstrparam(env_, "CSManager", server_.url().c_str()), 0);
  EXPECT_EQ(VLMgetbatch(env_, "req-1", &batch_), VLM_ERROR_NETWORK);
  std::string msg = VLMgeterrormsg(env_);
  vlm::batch::set_curl_library_for_testing("");
  EXPECT_EQ(msg.rfind("Batch requests need libcurl, which could not be loaded from 'libcurl-absent.so.99' (", 0), 0u) << msg;
  EXPECT_NE(msg.find("Install libcurl (for example the Debian package libcurl4)"), std::string::npos);
  EXPECT_EQ(server_.connections(), 0);
  ASSERT_EQ(VLMsetstrparam(VLMgetenv(m_), "CSManager", server_.url().c_str()), 0);
  ASSERT_EQ(VLMsetstrparam(VLMgetenv(m_), "CSAPIAccessID", "alice"), 0);
  EXPECT_EQ(VLMoptimizebatch(m_, id), 0);  // loads again once restored
}

TEST(BatchEncoding, Base64AndJsonReader) {
  // The test vectors of RFC 4648.
  const std::pair<std::string, std::string> vectors[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [in, out] : vectors) EXPECT_EQ(vlm::batch::base64_encode(in), out);
  EXPECT_EQ(base64_decode(vlm::batch::base64_encode(std::string("\0\xff\x80z", 4))), std::string("\0\xff\x80z", 4));

  auto v = vlm::io::parse_json(" {\"a\": [1, -2.5e1, true, null], \"s\": \"q\\\"\\u00e9\\ud83d\\ude00\\n\", \"o\": {}} ");
  ASSERT_TRUE(v.ok()) << v.status().message();
  ASSERT_EQ(v->find("a")->items.size(), 4u);
  EXPECT_EQ(v->find("a")->items[1].number, -25.0);
  EXPECT_TRUE(v->find("a")->items[2].boolean);
  EXPECT_EQ(v->find("s")->text, "q\"\xc3\xa9\xf0\x9f\x98\x80\n");
  EXPECT_TRUE(v->find("o")->is_object());
  EXPECT_EQ(v->find("missing"), nullptr);

  const std::pair<std::string, std::string> bad[] = {
      {"{\"a\": 1} x", "Invalid JSON at offset 9: unexpected text after the value"},
      {"{\"a\" 1}", "Invalid JSON at offset 5: ':' was expected"},
      {"[1, 2", "Invalid JSON at offset 5: ',' or ']' was expected"},
      {"\"\\x\"", "Invalid JSON at offset 3: unknown escape '\\x'"},
      {"\"\\ud800\"", "Invalid JSON at offset 7: unpaired surrogate"},
      {"-", "Invalid JSON at offset 0: a value was expected"},
      {std::string(100, '['), "Invalid JSON at offset 65: nested too deeply"}};
  for (const auto& [text, message] : bad) {
    auto r = vlm::io::parse_json(text);
    ASSERT_FALSE(r.ok()) << text;
    EXPECT_EQ(r.status().code(), VLM_ERROR_FILE_READ);
    EXPECT_EQ(r.status().message(), message) << text;
  }
}

}  // namespace
