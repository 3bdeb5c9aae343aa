#include "io/attr_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "attrs/attr_engine.h"
#include "core/text.h"
#include "io/file_format.h"
#include "io/words.h"
#include "params/param_table.h"

namespace vlm::io {

namespace {

std::string element_name(const ModelData& d, AttrKind kind, int i) {
  switch (kind) {
    case AttrKind::kVar:
      return d.varname[i];
    case AttrKind::kConstr:
      return d.constrname[i];
    case AttrKind::kQConstr:
      return d.qconstrs[i].name;
    case AttrKind::kGenConstr:
      return d.genconstrs[i].name;
    default:
      return "SOS" + std::to_string(i);  // SOS constraints have no names
  }
}

int element_index(Model& m, AttrKind kind, const std::string& name) {
  if (kind == AttrKind::kSOS) {
    if (name.rfind("SOS", 0) != 0) return -1;
    auto v = parse_integer(name.substr(3));
    return v && *v >= 0 && *v < m.data().num_sos() ? static_cast<int>(*v) : -1;
  }
  return m.find_by_name(static_cast<int>(kind), name);
}

}  // namespace

Status read_attr_file(const std::string& filename, Model& m) {
  std::ifstream in(filename);
  if (!in) {
    return Status(VLM_ERROR_FILE_READ, "Unable to open attribute file '" + filename +
                                           "' for reading: " + std::strerror(errno));
  }
  const std::size_t mark = m.change_mark();
  auto fail = [&](int lineno, const std::string& what) {
    m.rollback_changes(mark);
    return Status(VLM_ERROR_FILE_READ,
                  "Attribute file '" + filename + "', line " + std::to_string(lineno) + ": " + what);
  };
  std::string line;
  std::vector<std::string> words;
  int lineno = 0;
  while (std::getline(in, line)) {
    ++lineno;
    std::string_view t = trim(line);
    if (t.empty() || t.front() == '#') continue;
    if (!split_words(line, words)) return fail(lineno, "unterminated quoted word");
    if (words.size() != 3) return fail(lineno, "expected 'Attribute Element Value'");
    int attr = find_attr(words[0]);
    if (attr < 0) return fail(lineno, "unknown attribute '" + words[0] + "'");
    const AttrDef& a = attr_table()[attr];
    if (a.kind == AttrKind::kModel || a.kind == AttrKind::kBatch || !a.settable) {
      return fail(lineno, std::string("attribute '") + a.name + "' cannot be read from an attribute file");
    }
    int elem = element_index(m, a.kind, words[1]);
    if (elem < 0) return fail(lineno, std::string("no element named '") + words[1] + "' among " + kind_name(a.kind));
    AttrValue v;
    if (a.type == AttrType::kStr) {
      v.str = words[2];
    } else if (a.type == AttrType::kChar) {
      if (words[2].size() != 1) return fail(lineno, "expected one character, found '" + words[2] + "'");
      v.ch = words[2][0];
    } else {
      double num = 0.0;
      bool ok = false;
      if (a.type == AttrType::kInt) {
        auto i = parse_integer(words[2]);
        if ((ok = i.has_value())) num = static_cast<double>(*i);
      } else {
        auto d = parse_double(words[2]);
        if ((ok = d.has_value())) num = *d;
      }
      if (!ok) return fail(lineno, "expected a number, found '" + words[2] + "'");
      v.num = num;
    }
    Status s = set_attr(m, attr, elem, v);
    if (!s.ok()) return fail(lineno, s.message());
  }
  return Status::Ok();
}

Status write_attr_file(const std::string& filename, Model& m) {
  std::ostringstream out;
  out << "# Velmor attribute file\n";
  const ModelData& d = m.data();
  const auto& table = attr_table();
  for (int attr = 0; attr < static_cast<int>(table.size()); ++attr) {
    const AttrDef& a = table[attr];
    if (a.kind == AttrKind::kModel || a.kind == AttrKind::kBatch || !a.settable) continue;
    const ExtraColumns& x = d.extra[static_cast<int>(a.kind)];
    if (a.type == AttrType::kStr) {
      auto it = x.str.find(attr);
      if (it == x.str.end()) continue;
      for (std::size_t i = 0; i < it->second.v.size(); ++i) {
        if (it->second.v[i].empty()) continue;
        out << a.name << ' ' << quote_word(element_name(d, a.kind, static_cast<int>(i))) << ' '
            << quote_word(it->second.v[i]) << '\n';
      }
    } else {
      auto it = x.num.find(attr);
      if (it == x.num.end()) continue;
      for (std::size_t i = 0; i < it->second.v.size(); ++i) {
        double v = it->second.v[i];
        if (v == it->second.def) continue;
        out << a.name << ' ' << quote_word(element_name(d, a.kind, static_cast<int>(i))) << ' '
            << (v >= VLM_UNDEFINED ? std::string("1e101") : format_double(v)) << '\n';
      }
    }
  }
  return write_whole_file(filename, out.str(), "attribute file");
}

}  // namespace vlm::io
