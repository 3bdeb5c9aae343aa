#include "io/json_value.h"

#include <cstdio>
#include <cstdlib>

namespace vlm::io {

const JsonValue* JsonValue::find(std::string_view key) const {
  for (const auto& [name, value] : members) {
    if (name == key) return &value;
  }
  return nullptr;
}

namespace {

constexpr int kMaxDepth = 64;

class Parser {
 public:
  explicit Parser(std::string_view text) : s_(text) {}

  Status run(JsonValue* out) {
    VLM_RETURN_IF_ERROR(value(out, 0));
    blanks();
    if (pos_ != s_.size()) return fail("unexpected text after the value");
    return Status::Ok();
  }

 private:
  Status fail(const std::string& what) const {
    return Status(VLM_ERROR_FILE_READ, "Invalid JSON at offset " + std::to_string(pos_) + ": " + what);
  }

  void blanks() {
    while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\t' || s_[pos_] == '\n' || s_[pos_] == '\r')) ++pos_;
  }

  bool literal(std::string_view word) {
    if (s_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }

  Status value(JsonValue* v, int depth) {
    if (depth > kMaxDepth) return fail("nested too deeply");
    blanks();
    if (pos_ >= s_.size()) return fail("a value was expected");
    const char c = s_[pos_];
    if (c == '{') return object(v, depth);
    if (c == '[') return array(v, depth);
    if (c == '"') {
      v->kind = JsonValue::Kind::kString;
      return string(&v->text);
    }
    if (literal("true") || literal("false")) {
      v->kind = JsonValue::Kind::kBool;
      v->boolean = c == 't';
      return Status::Ok();
    }
    if (literal("null")) {
      v->kind = JsonValue::Kind::kNull;
      return Status::Ok();
    }
    return number(v);
  }

  Status object(JsonValue* v, int depth) {
    v->kind = JsonValue::Kind::kObject;
    ++pos_;
    blanks();
    if (pos_ < s_.size() && s_[pos_] == '}') {
      ++pos_;
      return Status::Ok();
    }
    while (true) {
      blanks();
      if (pos_ >= s_.size() || s_[pos_] != '"') return fail("a member name was expected");
      std::string name;
      VLM_RETURN_IF_ERROR(string(&name));
      blanks();
      if (pos_ >= s_.size() || s_[pos_] != ':') return fail("':' was expected");
      ++pos_;
      JsonValue member;
      VLM_RETURN_IF_ERROR(value(&member, depth + 1));
      v->members.push_back(JsonMember{std::move(name), std::move(member)});
      blanks();
      if (pos_ < s_.size() && s_[pos_] == ',') {
        ++pos_;
        continue;
      }
      if (pos_ < s_.size() && s_[pos_] == '}') {
        ++pos_;
        return Status::Ok();
      }
      return fail("',' or '}' was expected");
    }
  }

  Status array(JsonValue* v, int depth) {
    v->kind = JsonValue::Kind::kArray;
    ++pos_;
    blanks();
    if (pos_ < s_.size() && s_[pos_] == ']') {
      ++pos_;
      return Status::Ok();
    }
    while (true) {
      JsonValue item;
      VLM_RETURN_IF_ERROR(value(&item, depth + 1));
      v->items.push_back(std::move(item));
      blanks();
      if (pos_ < s_.size() && s_[pos_] == ',') {
        ++pos_;
        continue;
      }
      if (pos_ < s_.size() && s_[pos_] == ']') {
        ++pos_;
        return Status::Ok();
      }
      return fail("',' or ']' was expected");
    }
  }

  static void append_utf8(unsigned cp, std::string* out) {
    if (cp < 0x80) {
      out->push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }

  Status hex4(unsigned* cp) {
    if (pos_ + 4 > s_.size()) return fail("four hex digits were expected after \\u");
    unsigned v = 0;
    for (int k = 0; k < 4; ++k) {
      const char h = s_[pos_++];
      v <<= 4;
      if (h >= '0' && h <= '9') v |= static_cast<unsigned>(h - '0');
      else if (h >= 'a' && h <= 'f') v |= static_cast<unsigned>(h - 'a' + 10);
      else if (h >= 'A' && h <= 'F') v |= static_cast<unsigned>(h - 'A' + 10);
      else return fail("four hex digits were expected after \\u");
    }
    *cp = v;
    return Status::Ok();
  }

  Status string(std::string* out) {
    ++pos_;  // opening quote
    while (true) {
      if (pos_ >= s_.size()) return fail("unterminated string");
      const char c = s_[pos_++];
      if (c == '"') return Status::Ok();
      if (static_cast<unsigned char>(c) < 0x20) return fail("control character in a string");
      if (c != '\\') {
        out->push_back(c);
        continue;
      }
      if (pos_ >= s_.size()) return fail("unterminated string");
      const char e = s_[pos_++];
      switch (e) {
        case '"': out->push_back('"'); break;
        case '\\': out->push_back('\\'); break;
        case '/': out->push_back('/'); break;
        case 'b': out->push_back('\b'); break;
        case 'f': out->push_back('\f'); break;
        case 'n': out->push_back('\n'); break;
        case 'r': out->push_back('\r'); break;
        case 't': out->push_back('\t'); break;
        case 'u': {
          unsigned cp = 0;
          VLM_RETURN_IF_ERROR(hex4(&cp));
          // A high surrogate followed by a low one is one code point beyond the BMP.
          if (cp >= 0xD800 && cp < 0xDC00 && s_.substr(pos_, 2) == "\\u") {
            pos_ += 2;
            unsigned low = 0;
            VLM_RETURN_IF_ERROR(hex4(&low));
            if (low < 0xDC00 || low >= 0xE000) return fail("unpaired surrogate");
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
          } else if (cp >= 0xD800 && cp < 0xE000) {
            return fail("unpaired surrogate");
          }
          append_utf8(cp, out);
          break;
        }
        default:
          return fail(std::string("unknown escape '\\") + e + "'");
      }
    }
  }

  Status number(JsonValue* v) {
    const std::size_t start = pos_;
    if (pos_ < s_.size() && s_[pos_] == '-') ++pos_;
    auto digits = [&] {
      const std::size_t from = pos_;
      while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9') ++pos_;
      return pos_ > from;
    };
    if (!digits()) {
      pos_ = start;
      return fail("a value was expected");
    }
    if (pos_ < s_.size() && s_[pos_] == '.') {
      ++pos_;
      if (!digits()) return fail("digits were expected after '.'");
    }
    if (pos_ < s_.size() && (s_[pos_] == 'e' || s_[pos_] == 'E')) {
      ++pos_;
      if (pos_ < s_.size() && (s_[pos_] == '+' || s_[pos_] == '-')) ++pos_;
      if (!digits()) return fail("digits were expected in the exponent");
    }
    v->kind = JsonValue::Kind::kNumber;
    v->number = std::strtod(std::string(s_.substr(start, pos_ - start)).c_str(), nullptr);
    return Status::Ok();
  }

  std::string_view s_;
  std::size_t pos_ = 0;
};

}  // namespace

StatusOr<JsonValue> parse_json(std::string_view text) {
  JsonValue v;
  VLM_RETURN_IF_ERROR(Parser(text).run(&v));
  return v;
}

std::string json_quote(std::string_view s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out.push_back(static_cast<char>(c));
        }
    }
  }
  return out + "\"";
}

}  // namespace vlm::io
