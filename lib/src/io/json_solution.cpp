#include "io/json_solution.h"

#include <cmath>
#include <sstream>

#include "io/json_value.h"
#include "params/param_table.h"

namespace vlm::io {

namespace {

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
      out << (j ? ",\n  " : "\n  ") << "{\"VarName\": " << json_quote(d.varname[j]) << ", \"X\": " << json_number(s->x[j]);
      if (s->has_duals) out << ", \"RC\": " << json_number(s->rc[j]);
      out << "}";
    }
    out << "],\n \"Constrs\": [";
    for (int i = 0; i < d.num_constrs(); ++i) {
      out << (i ? ",\n  " : "\n  ") << "{\"ConstrName\": " << json_quote(d.constrname[i])
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
