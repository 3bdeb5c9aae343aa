#include "core/text.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace vlm {

namespace {
char lower_char(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }
}  // namespace

std::string to_lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = lower_char(c);
  return out;
}

bool iequals(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lower_char(a[i]) != lower_char(b[i])) return false;
  }
  return true;
}

std::string_view trim(std::string_view s) {
  const char* blanks = " \t\r\n";
  std::size_t b = s.find_first_not_of(blanks);
  if (b == std::string_view::npos) return {};
  std::size_t e = s.find_last_not_of(blanks);
  return s.substr(b, e - b + 1);
}

std::optional<double> parse_double(std::string_view s) {
  s = trim(s);
  if (s.empty()) return std::nullopt;
  std::string text(s);
  std::string low = to_lower(text);
  if (low == "inf" || low == "+inf" || low == "infinity" || low == "+infinity") return HUGE_VAL;
  if (low == "-inf" || low == "-infinity") return -HUGE_VAL;
  char* end = nullptr;
  errno = 0;
  double v = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size()) return std::nullopt;
  if (std::isnan(v)) return std::nullopt;
  return v;
}

std::optional<long long> parse_integer(std::string_view s) {
  std::optional<double> d = parse_double(s);
  if (!d || !std::isfinite(*d) || std::floor(*d) != *d) return std::nullopt;
  if (*d < -9.0e18 || *d > 9.0e18) return std::nullopt;
  return static_cast<long long>(*d);
}

std::string short_number(double v) {
  if (std::isnan(v)) return "NaN";
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.6g", v);
  return buf;
}

std::string log_number(double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.10g", v);
  return buf;
}

}  // namespace vlm
