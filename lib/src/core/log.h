// LogSinks: where an environment's log lines go.
//
// Two sinks: the console (standard output, or the log callback in its place when one is
// installed, so that a host such as the Python module can route console output itself), and a
// log file opened for appending. Copies share the open file: a model's copy of its environment
// writes into the same file. Writes are serialised so that lines from a solving thread do not
// interleave.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "core/status.h"

namespace vlm {

using LogCallback = void (*)(const char* msg, void* usrdata);
// A log route sees every line while output is on, told whether it is meant for the console.
using LogRoute = void (*)(const char* msg, int to_console, void* usrdata);

class LogSinks {
 public:
  LogSinks();

  // Opens `path` for appending ("" closes the file). On failure the old file stays.
  Status set_file(const std::string& path);
  const std::string& file_path() const { return path_; }

  void set_callback(LogCallback cb, void* usrdata) {
    callback_ = cb;
    usrdata_ = usrdata;
  }
  bool has_callback() const { return callback_ != nullptr; }

  // Installs (or, with nullptr, removes) the route: it then receives every message written,
  // console or not, and the console sink (callback or standard output) is left to it.
  void set_route(LogRoute route, void* usrdata) {
    route_ = route;
    route_usrdata_ = usrdata;
  }

  // Writes one message (a newline is added when missing) to the console sink if `to_console`
  // and to the log file if one is open.
  void write(std::string_view message, bool to_console);

 private:
  std::shared_ptr<std::FILE> file_;
  std::string path_;
  LogCallback callback_ = nullptr;
  void* usrdata_ = nullptr;
  LogRoute route_ = nullptr;
  void* route_usrdata_ = nullptr;
  std::shared_ptr<std::mutex> mutex_;
};

}  // namespace vlm
