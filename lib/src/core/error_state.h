// ErrorState: the last error message of an environment or a model.
//
// The text stays as it is until the next failing call on the same object records a new one;
// success does not clear it, so a caller may read it after a later successful call.
#pragma once

#include <string>

#include "core/status.h"

namespace vlm {

class ErrorState {
 public:
  void record(const Status& status) { message_ = status.message(); }
  void record(std::string message) { message_ = std::move(message); }
  const char* c_str() const { return message_.c_str(); }
  const std::string& message() const { return message_; }

 private:
  std::string message_;
};

}  // namespace vlm
