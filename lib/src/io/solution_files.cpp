#include "io/solution_files.h"

#include <sstream>
#include <vector>

#include "attrs/attr_engine.h"
#include "core/text.h"
#include "io/words.h"
#include "io/file_format.h"
#include "params/param_table.h"

namespace vlm::io {

namespace {

// The values of a per-variable attribute that are set (not the undefined default).
bool extra_value(const ModelData& d, const char* attr, int j, double* out) {
  int a = find_attr(attr);
  auto it = d.extra[VLM_KIND_VAR].num.find(a);
  if (it == d.extra[VLM_KIND_VAR].num.end()) return false;
  double v = it->second.v[j];
  if (v == it->second.def) return false;
  *out = v;
  return true;
}

}  // namespace

bool var_file_kind(const std::string& suffix, VarFileKind* kind) {
  if (suffix == "sol") *kind = VarFileKind::kSolution;
  else if (suffix == "mst") *kind = VarFileKind::kStart;
  else if (suffix == "hnt") *kind = VarFileKind::kHint;
  else if (suffix == "ord") *kind = VarFileKind::kOrder;
  else return false;
  return true;
}

Status write_var_file(const std::string& filename, VarFileKind kind, Model& m) {
  const ModelData& d = m.data();
  const Solution* s = m.solution();
  const bool have_solution = s != nullptr && s->sol_count > 0 && !s->x.empty();
  std::ostringstream out;
  switch (kind) {
    case VarFileKind::kSolution:
      if (!have_solution) {
        return Status(VLM_ERROR_DATA_NOT_AVAILABLE, "No solution available to write to '" + filename + "'");
      }
      out << "# Solution for model " << d.name << "\n# Objective value = " << format_double(s->objval) << "\n";
      break;
    case VarFileKind::kStart:
      out << "# MIP start\n";
      break;
    case VarFileKind::kHint:
      out << "# Variable hints\n";
      break;
    case VarFileKind::kOrder:
      out << "# Branching order: variable and BranchPriority\n";
      break;
  }
  for (int j = 0; j < d.num_vars(); ++j) {
    double v = 0.0, pri = 0.0;
    if (kind == VarFileKind::kSolution || (kind == VarFileKind::kStart && have_solution)) {
      v = s->x[j];
    } else if (kind == VarFileKind::kStart) {
      if (!extra_value(d, "Start", j, &v)) continue;
    } else if (kind == VarFileKind::kOrder) {
      if (!extra_value(d, "BranchPriority", j, &v)) continue;
    } else {
      if (!extra_value(d, "VarHintVal", j, &v)) continue;
      extra_value(d, "VarHintPri", j, &pri);
    }
    out << quote_word(d.varname[j]) << ' ' << format_double(v);
    if (kind == VarFileKind::kHint && pri != 0.0) out << ' ' << format_double(pri);
    out << '\n';
  }
  return write_file(filename, out.str());
}

Status read_var_file(const std::string& filename, VarFileKind kind, Model& m) {
  VLM_ASSIGN_OR_RETURN(std::string content, read_file(filename));
  const bool order = kind == VarFileKind::kOrder;
  const int value_attr =
      find_attr(kind == VarFileKind::kHint ? "VarHintVal" : order ? "BranchPriority" : "Start");
  const int pri_attr = find_attr("VarHintPri");
  const std::size_t mark = m.change_mark();
  auto fail = [&](int lineno, const std::string& what) {
    m.rollback_changes(mark);
    return Status(VLM_ERROR_FILE_READ, "File '" + filename + "', line " + std::to_string(lineno) + ": " + what);
  };
  std::istringstream in(content);
  std::string line;
  std::vector<std::string> words;
  int lineno = 0;
  while (std::getline(in, line)) {
    ++lineno;
    std::string_view t = trim(line);
    if (t.empty() || t.front() == '#') continue;
    if (!split_words(line, words)) return fail(lineno, "unterminated quoted name");
    const std::size_t want = kind == VarFileKind::kHint ? 3 : 2;
    if (words.size() < 2 || words.size() > want) {
      return fail(lineno, kind == VarFileKind::kHint ? "expected 'name value [priority]'"
                          : order                    ? "expected 'name priority'"
                                                     : "expected 'name value'");
    }
    int j = m.find_by_name(VLM_KIND_VAR, words[0]);
    if (j < 0) return fail(lineno, "no variable named '" + words[0] + "'");
    AttrValue val;
    if (order) {
      auto p = parse_integer(words[1]);
      if (!p) return fail(lineno, "expected an integer priority, found '" + words[1] + "'");
      val.num = static_cast<double>(*p);
    } else {
      auto v = parse_double(words[1]);
      if (!v) return fail(lineno, "expected a number, found '" + words[1] + "'");
      val.num = *v;
    }
    Status st = set_attr(m, value_attr, j, val);
    if (st.ok() && words.size() == 3) {
      auto p = parse_integer(words[2]);
      if (!p) return fail(lineno, "expected an integer priority, found '" + words[2] + "'");
      val.num = static_cast<double>(*p);
      st = set_attr(m, pri_attr, j, val);
    }
    if (!st.ok()) return fail(lineno, st.message());
  }
  return Status::Ok();
}

}  // namespace vlm::io
