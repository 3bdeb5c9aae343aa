#include "reform/reformulation.h"

#include <cmath>
#include <cstdio>

namespace vlm::reform {

std::string Builder::col_name(int col) const {
  if (col < d_.num_vars()) return d_.varname[col];
  return "an auxiliary column";
}

int Builder::add_binary() {
  created_ |= kCreatesBinaries;
  b_.append(0.0, 1.0, true);
  return p_.add_col(0.0, 1.0, 1);
}

int Builder::add_continuous(double lb, double ub, double cost) {
  created_ |= kCreatesContinuous;
  b_.append(lb, ub, false);
  return p_.add_col(lb, ub, 0, cost);
}

void Builder::add_row(const std::vector<int>& ind, const std::vector<double>& val, double lo, double up) {
  created_ |= kCreatesRows;
  p_.add_row(ind, val, lo, up);
}

void Builder::add_le(const std::vector<int>& ind, const std::vector<double>& val, double rhs) {
  add_row(ind, val, -INFINITY, rhs);
}

void Builder::add_ge(const std::vector<int>& ind, const std::vector<double>& val, double rhs) {
  add_row(ind, val, rhs, INFINITY);
}

void Builder::add_eq(const std::vector<int>& ind, const std::vector<double>& val, double rhs) {
  add_row(ind, val, rhs, rhs);
}

Status require_binary(const ModelData& d, int var, const std::string& who, const char* role) {
  const char t = d.vtype[var];
  if (t == 'B' || (t == 'I' && d.lb[var] >= 0.0 && d.ub[var] <= 1.0)) return Status::Ok();
  return Status(VLM_ERROR_INVALID_ARGUMENT,
                who + ": " + role + " '" + d.varname[var] + "' must be binary, and it no longer is");
}

std::string format_value(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", v);
  return buf;
}

std::string describe_genconstr(const ModelData& d, int index) {
  const GenConstrData& g = d.genconstrs[index];
  return std::string(gen_type_name(g.type)) + " constraint '" + g.name + "'";
}

}  // namespace vlm::reform
