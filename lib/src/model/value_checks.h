// The checks values get where they enter the model, and the wording of their refusals: every
// message names the element ("constraint 'c0'", or its position when it has no name) and
// prints numbers in short form (1e+300, never 300 digits).
#pragma once

#include <string>

#include "core/status.h"

namespace vlm {

// A coefficient is finite and below VLM_INFINITY in magnitude (which stands for infinity).
bool finite_coef(double v);

// VLM_ERROR_INVALID_ARGUMENT "<what> <value> <where> is not a finite number".
Status coef_error(double v, const char* what, const std::string& where);

// "constraint 'c0'" for a named element, "constraint 3" (its position) for an unnamed one.
std::string labelled(const char* kind, const char* name, int index);

// Refuses a right-hand side that no value of its row can meet: NaN, infinite for an equality,
// or infinite on the side where a '<' or '>' row binds (x + y <= inf merely restricts nothing):
// VLM_ERROR_INVALID_ARGUMENT "Right-hand side inf of <element> is infinite, which its '='
// row can never meet".
Status check_rhs(double rhs, char sense, const std::string& element);

}  // namespace vlm
