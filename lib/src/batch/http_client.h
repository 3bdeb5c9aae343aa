// HTTP requests for the batch client, through libcurl loaded at run time.
//
// libcurl is not linked: the first request opens libcurl.so.4 (libcurl-4.dll, libcurl.4.dylib)
// and resolves the few curl_easy_* calls it needs, so the library builds without curl headers
// and everything but batch requests works on a machine without libcurl. There a request fails
// with VLM_ERROR_NETWORK and a message naming what to install.
#pragma once

#include <string>
#include <vector>

#include "core/status.h"

namespace vlm::batch {

struct HttpRequest {
  std::string method = "GET";  // GET, POST, DELETE
  std::string url;
  std::vector<std::string> headers;  // "Name: value"
  std::string body;                  // sent with POST
};

struct HttpResponse {
  long status = 0;  // the HTTP status code
  std::string body;
};

struct HttpOptions {
  long timeout_seconds = 60;  // whole request, connection included
  bool insecure = false;      // accept any TLS certificate and host name
  int attempts = 3;           // tries when the connection cannot be made at all
};

// Sends `request` and returns the service's answer whatever its HTTP status. A connection that
// cannot be made (refused, reset before an answer) is tried again up to `attempts` times with a
// short pause; a request that was sent is never repeated, so a submission is never made twice.
// Fails with VLM_ERROR_NETWORK naming the URL and curl's reason (timeout, refused, TLS
// certificate rejected, ...), or when libcurl cannot be loaded. Blocks for up to
// attempts * timeout_seconds.
StatusOr<HttpResponse> http_send(const HttpRequest& request, const HttpOptions& options);

// Whether libcurl could be loaded (loads it on first use). On false, *why holds the message
// http_send fails with.
bool http_available(std::string* why);

// Test hook: the file name the loader opens instead of the platform's libcurl; "" restores
// the default. Takes effect on the next request (an earlier load is forgotten). Tests only.
void set_curl_library_for_testing(const std::string& name);

}  // namespace vlm::batch
