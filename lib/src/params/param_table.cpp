#include "params/param_table.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>
#include <unordered_map>

#include "core/text.h"

namespace vlm {

namespace {

std::vector<ParamDef> build_table() {
  using enum ParamGroup;
  std::vector<ParamDef> t;
#define VLM_PARAM_INT(name, group, def, mn, mx, flags, purpose) \
  t.push_back({#name, ParamType::kInt, group, def, mn, mx, nullptr, flags, purpose});
#define VLM_PARAM_DBL(name, group, def, mn, mx, flags, purpose) \
  t.push_back({#name, ParamType::kDbl, group, def, mn, mx, nullptr, flags, purpose});
#define VLM_PARAM_STR(name, group, def, flags, purpose) \
  t.push_back({#name, ParamType::kStr, group, 0.0, 0.0, 0.0, def, flags, purpose});
#include "params/param_defs.inc"
#undef VLM_PARAM_INT
#undef VLM_PARAM_DBL
#undef VLM_PARAM_STR
  return t;
}

const char* type_name(ParamType type) {
  switch (type) {
    case ParamType::kInt:
      return "Integer";
    case ParamType::kDbl:
      return "Double";
    case ParamType::kStr:
      return "String";
  }
  return "";
}

std::string format_int(double v) { return std::to_string(static_cast<long long>(v)); }

std::string build_help(const ParamDef& p) {
  std::string h;
  h += "PARAMETER NAME: ";
  h += p.name;
  h += "\n\nTYPE: ";
  h += type_name(p.type);
  h += "\n\nPURPOSE:\n";
  h += p.purpose;
  if (p.flags & kParamNoEffect) {
    h += " Velmor accepts and stores this parameter, but its current engine does not act on it: "
         "setting it has no effect on solving.";
  }
  h += "\n\nVALUES:\n";
  if (p.type == ParamType::kStr) {
    h += "  Default : \"";
    h += p.sdef;
    h += "\"\n";
  } else {
    auto fmt = p.type == ParamType::kInt ? format_int : format_double;
    h += "  Minimum : " + fmt(p.min) + "\n";
    h += "  Maximum : " + fmt(p.max) + "\n";
    h += "  Default : " + fmt(p.def) + "\n";
  }
  return h;
}

}  // namespace

const std::vector<ParamDef>& param_table() {
  static const std::vector<ParamDef> table = build_table();
  return table;
}

int find_param(std::string_view name) {
  static const std::unordered_map<std::string, int> index = [] {
    std::unordered_map<std::string, int> m;
    const auto& t = param_table();
    for (int i = 0; i < static_cast<int>(t.size()); ++i) m.emplace(to_lower(t[i].name), i);
    return m;
  }();
  auto it = index.find(to_lower(name));
  return it == index.end() ? -1 : it->second;
}

const std::string& param_help(int index) {
  // Built on first use: most programs never ask for help texts.
  static const std::vector<std::string> texts = [] {
    std::vector<std::string> v;
    for (const ParamDef& p : param_table()) v.push_back(build_help(p));
    return v;
  }();
  return texts.at(static_cast<std::size_t>(index));
}

std::string format_double(double v) {
  if (v >= VLM_INFINITY) return "1e100";
  if (v <= -VLM_INFINITY) return "-1e100";
  char buf[64];
  // Plain notation for everyday magnitudes, as Python's repr does; exponents otherwise.
  const double mag = std::fabs(v);
  const bool plain = v == 0.0 || (mag >= 1e-4 && mag < 1e16);
  auto res = std::to_chars(buf, buf + sizeof buf, v,
                           plain ? std::chars_format::fixed : std::chars_format::scientific);
  std::string s(buf, res.ptr);
  // to_chars writes "1e+100" and "1e-06"; show "1e100" and "1e-6".
  std::size_t e = s.find('e');
  if (e != std::string::npos) {
    std::string mant = s.substr(0, e);
    std::string exp = s.substr(e + 1);
    bool neg = !exp.empty() && exp[0] == '-';
    if (!exp.empty() && (exp[0] == '+' || exp[0] == '-')) exp.erase(0, 1);
    while (exp.size() > 1 && exp[0] == '0') exp.erase(0, 1);
    s = mant + "e" + (neg ? "-" : "") + exp;
  }
  return s;
}

}  // namespace vlm
