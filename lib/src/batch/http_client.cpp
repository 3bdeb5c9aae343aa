#include "batch/http_client.h"

#include <chrono>
#include <cstddef>
#include <mutex>
#include <thread>
#include <type_traits>

#include "core/platform.h"

namespace vlm::batch {

namespace {

// The few libcurl values used here. Their numbers are fixed by libcurl's ABI (curl.h), which
// has kept them unchanged since libcurl 7 so that programs keep working across versions.
constexpr int kCurlGlobalDefault = 3;
constexpr int kOptWriteData = 10001;
constexpr int kOptUrl = 10002;
constexpr int kOptPostFields = 10015;
constexpr int kOptUserAgent = 10018;
constexpr int kOptHttpHeader = 10023;
constexpr int kOptCustomRequest = 10036;
constexpr int kOptNoProxy = 10177;
constexpr int kOptWriteFunction = 20011;
constexpr int kOptPostFieldSizeLarge = 30120;
constexpr int kOptTimeout = 13;
constexpr int kOptPost = 47;
constexpr int kOptSslVerifyPeer = 64;
constexpr int kOptConnectTimeout = 78;
constexpr int kOptHttpGet = 80;
constexpr int kOptSslVerifyHost = 81;
constexpr int kOptNoSignal = 99;
constexpr int kInfoResponseCode = 0x200000 + 2;
constexpr int kCurleCouldntConnect = 7;
constexpr int kCurleGotNothing = 52;
constexpr int kCurleSendError = 55;

struct CurlSlist;
using GlobalInitFn = int (*)(long);
using EasyInitFn = void* (*)();
using EasySetoptFn = int (*)(void*, int, ...);
using EasyPerformFn = int (*)(void*);
using EasyGetinfoFn = int (*)(void*, int, ...);
using EasyCleanupFn = void (*)(void*);
using EasyStrerrorFn = const char* (*)(int);
using SlistAppendFn = CurlSlist* (*)(CurlSlist*, const char*);
using SlistFreeAllFn = void (*)(CurlSlist*);

struct Curl {
  bool loaded = false;
  std::string error;  // why loading failed
  GlobalInitFn global_init = nullptr;
  EasyInitFn easy_init = nullptr;
  EasySetoptFn setopt = nullptr;
  EasyPerformFn perform = nullptr;
  EasyGetinfoFn getinfo = nullptr;
  EasyCleanupFn cleanup = nullptr;
  EasyStrerrorFn strerror = nullptr;
  SlistAppendFn slist_append = nullptr;
  SlistFreeAllFn slist_free_all = nullptr;
};

const char* default_library() {
#if defined(_WIN32)
  return "libcurl-4.dll";
#elif defined(__APPLE__)
  return "libcurl.4.dylib";
#else
  return "libcurl.so.4";
#endif
}

std::mutex g_mutex;
std::string g_override;
bool g_tried = false;
Curl g_curl;

Curl load(const std::string& name) {
  Curl c;
  auto missing = [&](const std::string& why) {
    c.error = "Batch requests need libcurl, which could not be loaded from '" + name + "' (" + why +
              "). Install libcurl (for example the Debian package libcurl4) to submit and follow batch requests";
    return c;
  };
  std::string why;
  void* lib = open_shared_library(name, &why);
  if (lib == nullptr) return missing(why);
  auto sym = [&](auto& fn, const char* symbol) {
    fn = reinterpret_cast<std::remove_reference_t<decltype(fn)>>(shared_library_symbol(lib, symbol));
    if (fn == nullptr && why.empty()) why = std::string("it has no symbol ") + symbol;
  };
  sym(c.global_init, "curl_global_init");
  sym(c.easy_init, "curl_easy_init");
  sym(c.setopt, "curl_easy_setopt");
  sym(c.perform, "curl_easy_perform");
  sym(c.getinfo, "curl_easy_getinfo");
  sym(c.cleanup, "curl_easy_cleanup");
  sym(c.strerror, "curl_easy_strerror");
  sym(c.slist_append, "curl_slist_append");
  sym(c.slist_free_all, "curl_slist_free_all");
  if (!why.empty()) return missing(why);
  if (c.global_init(kCurlGlobalDefault) != 0) return missing("curl_global_init failed");
  c.loaded = true;
  return c;
}

// The loaded library, loading it on first use. A failed load is remembered, so a machine
// without libcurl pays for the attempt once.
const Curl& curl() {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_tried) {
    g_curl = load(g_override.empty() ? default_library() : g_override);
    g_tried = true;
  }
  return g_curl;
}

std::size_t collect(char* data, std::size_t size, std::size_t count, void* user) {
  static_cast<std::string*>(user)->append(data, size * count);
  return size * count;
}

// One handle's lifetime, headers list included.
struct Easy {
  const Curl& c;
  void* h = nullptr;
  CurlSlist* headers = nullptr;
  explicit Easy(const Curl& curl) : c(curl), h(curl.easy_init()) {}
  ~Easy() {
    if (headers != nullptr) c.slist_free_all(headers);
    if (h != nullptr) c.cleanup(h);
  }
};

}  // namespace

bool http_available(std::string* why) {
  const Curl& c = curl();
  if (!c.loaded && why != nullptr) *why = c.error;
  return c.loaded;
}

void set_curl_library_for_testing(const std::string& name) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_override = name;
  g_tried = false;
  g_curl = Curl();
}

StatusOr<HttpResponse> http_send(const HttpRequest& request, const HttpOptions& options) {
  const Curl& c = curl();
  if (!c.loaded) return Status(VLM_ERROR_NETWORK, c.error);
  const int attempts = options.attempts < 1 ? 1 : options.attempts;
  int rc = 0;
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    Easy e(c);
    if (e.h == nullptr) return Status(VLM_ERROR_OUT_OF_MEMORY, "Out of memory starting an HTTP request");
    HttpResponse response;
    c.setopt(e.h, kOptUrl, request.url.c_str());
    c.setopt(e.h, kOptNoSignal, 1L);  // timeouts must not raise SIGALRM in the caller's process
    c.setopt(e.h, kOptTimeout, options.timeout_seconds);
    c.setopt(e.h, kOptConnectTimeout, options.timeout_seconds);
    c.setopt(e.h, kOptUserAgent, "velmor-batch-client");
    // A proxy never serves this machine's own addresses.
    c.setopt(e.h, kOptNoProxy, "localhost,127.0.0.1,::1");
    c.setopt(e.h, kOptSslVerifyPeer, options.insecure ? 0L : 1L);
    c.setopt(e.h, kOptSslVerifyHost, options.insecure ? 0L : 2L);
    c.setopt(e.h, kOptWriteFunction, &collect);
    c.setopt(e.h, kOptWriteData, static_cast<void*>(&response.body));
    for (const std::string& h : request.headers) {
      CurlSlist* grown = c.slist_append(e.headers, h.c_str());
      if (grown == nullptr) return Status(VLM_ERROR_OUT_OF_MEMORY, "Out of memory building HTTP headers");
      e.headers = grown;
    }
    if (e.headers != nullptr) c.setopt(e.h, kOptHttpHeader, e.headers);
    if (request.method == "POST") {
      c.setopt(e.h, kOptPost, 1L);
      c.setopt(e.h, kOptPostFieldSizeLarge, static_cast<long long>(request.body.size()));
      c.setopt(e.h, kOptPostFields, request.body.c_str());
    } else if (request.method == "GET") {
      c.setopt(e.h, kOptHttpGet, 1L);
    } else {
      c.setopt(e.h, kOptCustomRequest, request.method.c_str());
    }
    rc = c.perform(e.h);
    if (rc == 0) {
      long code = 0;
      c.getinfo(e.h, kInfoResponseCode, &code);
      response.status = code;
      return response;
    }
    // Only failures where the service cannot have acted on the request are tried again.
    const bool unsent = rc == kCurleCouldntConnect ||
                        (request.method == "GET" && (rc == kCurleGotNothing || rc == kCurleSendError));
    if (!unsent || attempt == attempts) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(100 * attempt));
  }
  return Status(VLM_ERROR_NETWORK, "Unable to reach the batch service at '" + request.url + "': " +
                                       c.strerror(rc));
}

}  // namespace vlm::batch
