#include "io/lp_names.h"

#include "core/text.h"

namespace vlm::io {

namespace {

constexpr std::string_view kEscape = "~~";

bool is_alnum(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool plain_char(char c, bool parens_are_operators) {
  if (is_alnum(c)) return true;
  switch (c) {
    case '!': case '"': case '#': case '$': case '%': case '&': case '\'': case '.':
    case '/': case ';': case '?': case '@': case '_': case '`': case '{': case '|':
    case '}': case '~':
      return true;
    case '(': case ')': case ',':
      return !parens_are_operators;
    default:
      return false;
  }
}

// Words that a reader takes for a number, a bound keyword or a section header even where a
// name is expected (names in lists are written on indented lines, where only these headers
// count).
bool reserved_word(std::string_view name) {
  for (const char* w : {"inf", "infinity", "free", "maximize", "maximise", "minimize", "minimise",
                        "maximum", "minimum", "bounds", "binaries", "generals", "integers", "pwlobj",
                        "end"}) {
    if (iequals(name, w)) return true;
  }
  return false;
}

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

bool lp_plain_name(std::string_view name, bool parens_are_operators) {
  if (name.empty() || reserved_word(name)) return false;
  const char first = name.front();
  if ((first >= '0' && first <= '9') || first == '.' || first == '/' || first == '[') return false;
  if (name.substr(0, kEscape.size()) == kEscape) return false;
  int depth = 0;
  for (char c : name) {
    if (c == '[') {
      ++depth;
    } else if (c == ']') {
      if (depth == 0) return false;
      --depth;
    } else if (!plain_char(c, parens_are_operators)) {
      return false;
    }
  }
  return depth == 0;
}

std::string lp_escape_name(std::string_view name) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out(kEscape);
  out.reserve(kEscape.size() + name.size() * 3);
  for (char c : name) {
    if (is_alnum(c) || c == '_' || c == '.') {
      out.push_back(c);
    } else {
      const auto b = static_cast<unsigned char>(c);
      out.push_back('#');
      out.push_back(kHex[b >> 4]);
      out.push_back(kHex[b & 15]);
    }
  }
  return out;
}

std::string lp_written_name(std::string_view name, bool parens_are_operators) {
  if (lp_plain_name(name, parens_are_operators)) return std::string(name);
  return lp_escape_name(name);
}

std::string lp_read_name(std::string_view written) {
  if (written.substr(0, kEscape.size()) != kEscape) return std::string(written);
  std::string out;
  std::size_t i = kEscape.size();
  while (i < written.size()) {
    const char c = written[i];
    if (is_alnum(c) || c == '_' || c == '.') {
      out.push_back(c);
      ++i;
    } else if (c == '#' && i + 2 < written.size() && hex_value(written[i + 1]) >= 0 &&
               hex_value(written[i + 2]) >= 0) {
      out.push_back(static_cast<char>(hex_value(written[i + 1]) * 16 + hex_value(written[i + 2])));
      i += 3;
    } else if (c == '~' && i + 1 < written.size()) {
      // The uniqueness suffix: "~" and digits up to the end.
      for (std::size_t k = i + 1; k < written.size(); ++k) {
        if (written[k] < '0' || written[k] > '9') return std::string(written);
      }
      return out;
    } else {
      return std::string(written);
    }
  }
  return out;
}

}  // namespace vlm::io
