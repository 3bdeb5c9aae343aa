// ParamSet: the values of every parameter for one environment.
//
// Invariant: values_[i] holds the value of table entry i (int parameters as an exact integer in
// a double, strings in strings_[i]); every value lies within its parameter's bounds, doubles at
// or beyond VLM_INFINITY in magnitude are stored as exactly +-VLM_INFINITY. Copyable: a model
// takes a copy of its environment's settings.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/status.h"
#include "params/param_table.h"

namespace vlm {

class ParamSet {
 public:
  ParamSet();

  // Index of a parameter or an UNKNOWN_PARAMETER status ("Unknown parameter 'TimeLimt'").
  StatusOr<int> lookup(std::string_view name) const;
  // Same, additionally checking the parameter's type.
  StatusOr<int> lookup_typed(std::string_view name, ParamType type) const;

  int get_int(int index) const { return static_cast<int>(values_[index]); }
  double get_dbl(int index) const { return values_[index]; }
  const std::string& get_str(int index) const { return strings_[index]; }

  Status set_int(int index, long long value);
  Status set_dbl(int index, double value);
  Status set_str(int index, std::string_view value);
  // Sets from text ("5", "1e-6", "inf", a string, or "default" in any case).
  Status set_from_text(int index, std::string_view text);

  bool is_default(int index) const;
  // The current value as parameter files and change lists show it.
  std::string value_text(int index) const;
  void reset();

  bool tune_fixed(int index) const { return tune_fixed_[index] != 0; }
  void set_tune_fixed(int index) { tune_fixed_[index] = 1; }

  // Convenience for the library's own reads by name (the name must be in the table).
  int int_param(std::string_view name) const;
  double dbl_param(std::string_view name) const;
  const std::string& str_param(std::string_view name) const;

 private:
  std::vector<double> values_;
  std::vector<std::string> strings_;
  std::vector<char> tune_fixed_;
};

}  // namespace vlm
