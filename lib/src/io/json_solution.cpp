#include "io/json_solution.h"

#include <cmath>
#include <sstream>

#include "params/param_table.h"

namespace vlm::io {

namespace {

std::string json_string(const std::string& s) {
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

// JSON has no infinity: infinite values are written as +-1e100, the library's infinity.
std::string json_number(double v) {
  if (std::isnan(v)) return "null";
  return format_double(v);
}

}  // namespace

std::string json_solution(Model& m) {
  const ModelData& d = m.data();
  const Solution* s = m.solution();
  std::ostringstream out;
  out << "{\"SolutionInfo\": {\"Status\": " << (s ? s->status : VLM_LOADED)
      << ", \"SolCount\": " << (s ? s->sol_count : 0);
  if (s) {
    out << ", \"Runtime\": " << json_number(s->runtime) << ", \"IterCount\": " << json_number(s->itercount);
    if (s->is_mip) out << ", \"NodeCount\": " << json_number(s->nodecount);
    if (s->sol_count > 0) {
      out << ", \"ObjVal\": " << json_number(s->objval);
      if (s->is_mip) out << ", \"ObjBound\": " << json_number(s->objbound) << ", \"MIPGap\": " << json_number(s->mipgap);
    }
  }
  out << "}";
  const bool values = s != nullptr && s->sol_count > 0 && static_cast<int>(s->x.size()) == d.num_vars();
  if (values) {
    out << ",\n \"Vars\": [";
    for (int j = 0; j < d.num_vars(); ++j) {
      out << (j ? ",\n  " : "\n  ") << "{\"VarName\": " << json_string(d.varname[j]) << ", \"X\": " << json_number(s->x[j]);
      if (s->has_duals) out << ", \"RC\": " << json_number(s->rc[j]);
      out << "}";
    }
    out << "],\n \"Constrs\": [";
    for (int i = 0; i < d.num_constrs(); ++i) {
      out << (i ? ",\n  " : "\n  ") << "{\"ConstrName\": " << json_string(d.constrname[i])
          << ", \"Slack\": " << json_number(s->slack[i]);
      if (s->has_duals) out << ", \"Pi\": " << json_number(s->pi[i]);
      out << "}";
    }
    out << "]";
  }
  out << "}\n";
  return out.str();
}

}  // namespace vlm::io
