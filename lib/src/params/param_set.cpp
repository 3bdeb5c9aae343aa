#include "params/param_set.h"

#include <cmath>
#include <stdexcept>

#include "core/text.h"

namespace vlm {

namespace {

const char* type_word(ParamType t) {
  switch (t) {
    case ParamType::kInt:
      return "an integer";
    case ParamType::kDbl:
      return "a double";
    case ParamType::kStr:
      return "a string";
  }
  return "";
}

std::string format_value(const ParamDef& p, double v) {
  if (p.type == ParamType::kInt) return std::to_string(static_cast<long long>(v));
  return format_double(v);
}

Status out_of_range(const ParamDef& p, const std::string& shown) {
  return Status(VLM_ERROR_VALUE_OUT_OF_RANGE,
                "Value " + shown + " for parameter '" + p.name + "' is outside [" +
                    format_value(p, p.min) + ", " + format_value(p, p.max) + "]");
}

}  // namespace

ParamSet::ParamSet() {
  const auto& t = param_table();
  values_.resize(t.size());
  strings_.resize(t.size());
  tune_fixed_.assign(t.size(), 0);
  reset();
}

void ParamSet::reset() {
  const auto& t = param_table();
  for (std::size_t i = 0; i < t.size(); ++i) {
    values_[i] = t[i].def;
    strings_[i] = t[i].sdef ? t[i].sdef : "";
  }
}

StatusOr<int> ParamSet::lookup(std::string_view name) const {
  int index = find_param(name);
  if (index < 0) {
    return Status(VLM_ERROR_UNKNOWN_PARAMETER, "Unknown parameter '" + std::string(name) + "'");
  }
  return index;
}

StatusOr<int> ParamSet::lookup_typed(std::string_view name, ParamType type) const {
  StatusOr<int> index = lookup(name);
  if (!index.ok()) return index;
  const ParamDef& p = param_table()[*index];
  if (p.type != type) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, std::string("Parameter '") + p.name + "' is " +
                                                  type_word(p.type) + " parameter, not " +
                                                  type_word(type) + " one");
  }
  return index;
}

Status ParamSet::set_int(int index, long long value) {
  const ParamDef& p = param_table()[index];
  if (p.type == ParamType::kDbl) return set_dbl(index, static_cast<double>(value));
  if (p.type != ParamType::kInt) {
    return Status(VLM_ERROR_INVALID_ARGUMENT,
                  std::string("Parameter '") + p.name + "' takes a string value");
  }
  if (static_cast<double>(value) < p.min || static_cast<double>(value) > p.max) {
    return out_of_range(p, std::to_string(value));
  }
  values_[index] = static_cast<double>(value);
  return Status::Ok();
}

Status ParamSet::set_dbl(int index, double value) {
  const ParamDef& p = param_table()[index];
  if (p.type == ParamType::kStr) {
    return Status(VLM_ERROR_INVALID_ARGUMENT,
                  std::string("Parameter '") + p.name + "' takes a string value");
  }
  if (std::isnan(value)) {
    return Status(VLM_ERROR_INVALID_ARGUMENT,
                  std::string("Value NaN for parameter '") + p.name + "' is not a number");
  }
  // Messages show the value as given: 1e300 stays 1e300, although it is stored as infinity.
  const std::string shown = std::fabs(value) > VLM_INFINITY ? short_number(value) : format_double(value);
  if (value >= VLM_INFINITY) value = VLM_INFINITY;
  if (value <= -VLM_INFINITY) value = -VLM_INFINITY;
  if (p.type == ParamType::kInt) {
    if (value != std::floor(value)) {
      return Status(VLM_ERROR_INVALID_ARGUMENT,
                    "Value " + shown + " for parameter '" + p.name + "' is not an integer");
    }
    if (value < p.min || value > p.max) return out_of_range(p, shown);
    values_[index] = value;
    return Status::Ok();
  }
  if (value < p.min || value > p.max) return out_of_range(p, shown);
  values_[index] = value;
  return Status::Ok();
}

Status ParamSet::set_str(int index, std::string_view value) {
  const ParamDef& p = param_table()[index];
  if (p.type != ParamType::kStr) return set_from_text(index, value);
  strings_[index] = std::string(value);
  return Status::Ok();
}

Status ParamSet::set_from_text(int index, std::string_view text) {
  const ParamDef& p = param_table()[index];
  std::string_view t = trim(text);
  if (iequals(t, "default")) {
    if (p.type == ParamType::kStr) {
      strings_[index] = p.sdef;
    } else {
      values_[index] = p.def;
    }
    return Status::Ok();
  }
  switch (p.type) {
    case ParamType::kStr:
      strings_[index] = std::string(text);
      return Status::Ok();
    case ParamType::kInt: {
      std::optional<double> d = parse_double(t);
      if (!d) {
        return Status(VLM_ERROR_INVALID_ARGUMENT, "Value '" + std::string(t) +
                                                      "' for parameter '" + p.name +
                                                      "' is not an integer");
      }
      return set_dbl(index, *d);
    }
    case ParamType::kDbl: {
      std::optional<double> d = parse_double(t);
      if (!d) {
        return Status(VLM_ERROR_INVALID_ARGUMENT, "Value '" + std::string(t) +
                                                      "' for parameter '" + p.name +
                                                      "' is not a number");
      }
      return set_dbl(index, *d);
    }
  }
  return Status::Ok();
}

bool ParamSet::is_default(int index) const {
  const ParamDef& p = param_table()[index];
  if (p.type == ParamType::kStr) return strings_[index] == p.sdef;
  return values_[index] == p.def;
}

std::string ParamSet::value_text(int index) const {
  const ParamDef& p = param_table()[index];
  if (p.type == ParamType::kStr) return strings_[index];
  return format_value(p, values_[index]);
}

int ParamSet::int_param(std::string_view name) const {
  int i = find_param(name);
  if (i < 0) throw std::logic_error("internal: parameter " + std::string(name) + " missing");
  return get_int(i);
}

double ParamSet::dbl_param(std::string_view name) const {
  int i = find_param(name);
  if (i < 0) throw std::logic_error("internal: parameter " + std::string(name) + " missing");
  return get_dbl(i);
}

const std::string& ParamSet::str_param(std::string_view name) const {
  int i = find_param(name);
  if (i < 0) throw std::logic_error("internal: parameter " + std::string(name) + " missing");
  return get_str(i);
}

}  // namespace vlm
