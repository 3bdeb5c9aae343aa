#include "attrs/attr_table.h"

#include <string>
#include <unordered_map>

#include "core/text.h"

namespace vlm {

namespace {

std::vector<AttrDef> build_table() {
  using enum AttrType;
  using enum AttrKind;
  using enum AttrAvail;
  std::vector<AttrDef> t;
#define VLM_ATTR(name, type, kind, settable, avail, description) \
  t.push_back({#name, type, kind, settable, avail, description});
#include "attrs/attr_defs.inc"
#undef VLM_ATTR
  return t;
}

}  // namespace

const std::vector<AttrDef>& attr_table() {
  static const std::vector<AttrDef> table = build_table();
  return table;
}

int find_attr(std::string_view name) {
  static const std::unordered_map<std::string, int> index = [] {
    std::unordered_map<std::string, int> m;
    const auto& t = attr_table();
    for (int i = 0; i < static_cast<int>(t.size()); ++i) m.emplace(to_lower(t[i].name), i);
    return m;
  }();
  auto it = index.find(to_lower(name));
  return it == index.end() ? -1 : it->second;
}

}  // namespace vlm
