// Parameter files (.prm): one "Name value" pair per line; '#' starts a comment line.
#pragma once

#include <string>

#include "core/status.h"
#include "params/param_set.h"

namespace vlm::io {

// Applies the settings of `filename` to `params`. On failure `params` may hold part of the
// file: callers read into a scratch copy. Errors name the file and the line.
Status read_params(const std::string& filename, ParamSet& params);

// The text of a parameter file holding the non-default settings of `params`, one per line, in
// table order; parameters for which `skip(index)` is true are left out (may be empty).
std::string params_text(const ParamSet& params, bool (*skip)(int index) = nullptr);

// Writes params_text(params) to `filename`.
Status write_params(const std::string& filename, const ParamSet& params);

}  // namespace vlm::io
