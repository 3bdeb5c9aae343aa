#include "core/log.h"

#include <cerrno>
#include <cstring>

#include "core/platform.h"

namespace vlm {

LogSinks::LogSinks() : mutex_(std::make_shared<std::mutex>()) {}

Status LogSinks::set_file(const std::string& path) {
  if (path == path_ && (file_ != nullptr || path.empty())) return Status::Ok();
  if (path.empty()) {
    file_.reset();
    path_.clear();
    return Status::Ok();
  }
  std::FILE* f = open_for_append(path);
  if (f == nullptr) {
    return Status(VLM_ERROR_FILE_WRITE,
                  "Unable to open log file '" + path + "' for writing: " + std::strerror(errno));
  }
  file_ = std::shared_ptr<std::FILE>(f, [](std::FILE* p) { std::fclose(p); });
  path_ = path;
  return Status::Ok();
}

void LogSinks::write(std::string_view message, bool to_console) {
  std::string line(message);
  if (line.empty() || line.back() != '\n') line.push_back('\n');
  std::lock_guard<std::mutex> lock(*mutex_);
  if (route_ != nullptr) {
    route_(line.c_str(), to_console ? 1 : 0, route_usrdata_);
  } else if (to_console) {
    if (callback_ != nullptr) {
      callback_(line.c_str(), usrdata_);
    } else {
      std::fwrite(line.data(), 1, line.size(), stdout);
      std::fflush(stdout);
    }
  }
  if (file_) {
    std::fwrite(line.data(), 1, line.size(), file_.get());
    std::fflush(file_.get());
  }
}

}  // namespace vlm
