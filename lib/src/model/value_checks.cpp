#include "model/value_checks.h"

#include <cmath>

#include "core/text.h"
#include "velmor_codes.h"

namespace vlm {

namespace {
Status invalid(std::string msg) { return Status(VLM_ERROR_INVALID_ARGUMENT, std::move(msg)); }
}  // namespace

bool finite_coef(double v) { return std::isfinite(v) && std::fabs(v) < VLM_INFINITY; }

Status coef_error(double v, const char* what, const std::string& where) {
  return invalid(std::string(what) + " " + short_number(v) + " " + where + " is not a finite number");
}

std::string labelled(const char* kind, const char* name, int index) {
  if (name != nullptr && *name != '\0') return std::string(kind) + " '" + name + "'";
  return std::string(kind) + " " + std::to_string(index);
}

Status check_rhs(double rhs, char sense, const std::string& element) {
  if (std::isnan(rhs)) return invalid("Right-hand side NaN of " + element + " is not a number");
  const bool bad = sense == '=' ? std::fabs(rhs) >= VLM_INFINITY
                                : sense == '<' ? rhs <= -VLM_INFINITY : rhs >= VLM_INFINITY;
  if (!bad) return Status::Ok();
  return invalid("Right-hand side " + short_number(rhs) + " of " + element + " is infinite, which its '" +
                 std::string(1, sense) + "' row can never meet");
}

}  // namespace vlm
