// A small JSON reader and the string quoting the JSON writers share.
//
// The reader takes RFC 8259 text into a JsonValue tree. It serves short service answers and
// solution texts, so it favours clarity over speed: members are kept in order in a vector and
// looked up linearly. Nesting deeper than 64 levels is refused so that hostile input cannot
// exhaust the stack.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/status.h"

namespace vlm::io {

struct JsonMember;

struct JsonValue {
  enum class Kind { kNull, kBool, kNumber, kString, kArray, kObject };
  Kind kind = Kind::kNull;
  bool boolean = false;
  double number = 0.0;
  std::string text;                                      // kString
  std::vector<JsonValue> items;                          // kArray
  std::vector<JsonMember> members;                       // kObject, in document order

  bool is_object() const { return kind == Kind::kObject; }
  // The member named `key` of an object (the first one if repeated), or nullptr. O(members).
  const JsonValue* find(std::string_view key) const;
};

// One member of an object: its name and value (a pair's field names, so that members read as
// pairs do; std::pair itself cannot hold a type that is still incomplete).
struct JsonMember {
  std::string first;
  JsonValue second;
};

// Parses the whole of `text` (blanks around the value allowed). Fails with
// VLM_ERROR_FILE_READ "Invalid JSON at offset N: what" naming the first fault. O(size).
StatusOr<JsonValue> parse_json(std::string_view text);

// `s` as a JSON string literal, quotes included; control characters are escaped, other bytes
// (UTF-8 included) pass through. O(size).
std::string json_quote(std::string_view s);

}  // namespace vlm::io
