#include "io/mps_layout.h"

#include <algorithm>
#include <string>

#include "core/text.h"

namespace vlm::io {

namespace mps {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

Words split(std::string_view s) {
  Words out;
  std::size_t i = 0;
  while (i < s.size()) {
    while (i < s.size() && is_blank(s[i])) ++i;
    if (i >= s.size()) break;
    std::size_t b = i;
    while (i < s.size() && !is_blank(s[i])) ++i;
    out.w.push_back(s.substr(b, i - b));
    out.end.push_back(i);
  }
  return out;
}

std::string_view cols(std::string_view line, std::size_t b, std::size_t e) {
  if (b >= line.size()) return {};
  return line.substr(b, std::min(e, line.size()) - b);
}

std::string_view fixed_number(std::string_view line, std::size_t b, std::size_t e, std::size_t& end) {
  std::size_t p = b;
  while (p < line.size() && p < e && is_blank(line[p])) ++p;
  if (p >= line.size() || p >= e) {
    end = b;
    return {};
  }
  std::size_t q = p;
  while (q < line.size() && !is_blank(line[q])) ++q;
  end = q;
  return line.substr(p, q - p);
}

}  // namespace mps

using mps::is_blank;

bool fixed_name_field_has_blank(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t nl = text.find('\n', at);
    std::string_view line = text.substr(at, nl == std::string_view::npos ? std::string_view::npos : nl - at);
    at = nl == std::string_view::npos ? text.size() : nl + 1;
    if (line.empty() || !is_blank(line[0])) continue;
    for (std::size_t from : {4, 14, 39}) {
      if (from >= line.size()) break;
      std::string_view field = trim(line.substr(from, 8));
      if (field.find_first_of(" \t") != std::string_view::npos) return true;
    }
  }
  return false;
}

bool has_name_with_blank(const ModelData& d) {
  auto blank = [](const std::string& n) { return n.find(' ') != std::string::npos; };
  for (int j = 0; j < d.num_vars(); ++j) {
    if (blank(d.varname.given(j))) return true;
  }
  for (int i = 0; i < d.num_constrs(); ++i) {
    if (blank(d.constrname.given(i))) return true;
  }
  for (const QConstrData& q : d.qconstrs) {
    if (blank(q.name)) return true;
  }
  for (const GenConstrData& g : d.genconstrs) {
    if (blank(g.name)) return true;
  }
  return false;
}

}  // namespace vlm::io
