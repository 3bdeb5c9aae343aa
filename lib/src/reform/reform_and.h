// Reformulates r = x_1 AND .. AND x_k over binaries into linear rows (no new column):
//     r <= x_i  for every i,      r >= sum_i x_i - (k - 1).
// With no operands r = 1 (the empty conjunction is true).
//
// Requires: binary r and x_i (checked when the constraint is added).
// Creates: k + 1 rows.
#pragma once

#include "reform/reformulation.h"

namespace vlm::reform {

// The registered unit (general constraints of type AND).
const Reformulation& and_reformulation();

}  // namespace vlm::reform
