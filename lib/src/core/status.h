// Status and StatusOr: how the library reports failures inside itself.
//
// A Status is a code (0 = success, otherwise a VLM_ERROR_* value) and a plain-English message.
// Functions that can fail for reasons the user controls return Status or StatusOr<T>; the C API
// guard turns a failed Status into the returned code and the object's last-error text.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "velmor_codes.h"

namespace vlm {

class [[nodiscard]] Status {
 public:
  Status() = default;
  Status(int code, std::string message) : code_(code), message_(std::move(message)) {}

  static Status Ok() { return Status(); }

  bool ok() const { return code_ == VLM_OK; }
  int code() const { return code_; }
  const std::string& message() const { return message_; }

 private:
  int code_ = VLM_OK;
  std::string message_;
};

// Either a value or a failed Status.
template <class T>
class [[nodiscard]] StatusOr {
 public:
  StatusOr(T value) : value_(std::move(value)) {}  // NOLINT: implicit by design
  // An OK status carries no value: it becomes an internal error, so that a function that
  // returns Status::Ok() where a value is due fails cleanly instead of handing out nothing.
  StatusOr(Status status)  // NOLINT: implicit by design
      : status_(status.ok() ? Status(VLM_ERROR_INTERNAL, "A result was due but none was given")
                            : std::move(status)) {}

  bool ok() const { return status_.ok(); }
  const Status& status() const { return status_; }
  T& value() { return *value_; }
  const T& value() const { return *value_; }
  T& operator*() { return *value_; }
  T* operator->() { return &*value_; }

 private:
  Status status_;
  std::optional<T> value_;
};

}  // namespace vlm

#define VLM_STATUS_CONCAT_INNER_(a, b) a##b
#define VLM_STATUS_CONCAT_(a, b) VLM_STATUS_CONCAT_INNER_(a, b)

// Returns from the enclosing function with the Status of `expr` if it failed.
#define VLM_RETURN_IF_ERROR(expr)              \
  do {                                         \
    ::vlm::Status vlm_status_ = (expr);        \
    if (!vlm_status_.ok()) return vlm_status_; \
  } while (0)

// Evaluates a StatusOr expression; on failure returns its Status, else moves the value to lhs.
#define VLM_ASSIGN_OR_RETURN(lhs, expr) \
  VLM_ASSIGN_OR_RETURN_IMPL_(VLM_STATUS_CONCAT_(vlm_statusor_, __LINE__), lhs, expr)
#define VLM_ASSIGN_OR_RETURN_IMPL_(tmp, lhs, expr) \
  auto tmp = (expr);                               \
  if (!tmp.ok()) return tmp.status();              \
  lhs = std::move(tmp.value())
