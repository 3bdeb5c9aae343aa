// Reformulates r = x_1 OR .. OR x_k over binaries into linear rows (no new column):
//     r >= x_i  for every i,      r <= sum_i x_i.
// With no operands r = 0 (the empty disjunction is false).
//
// Requires: binary r and x_i (checked when the constraint is added).
// Creates: k + 1 rows.
#pragma once

#include "reform/reformulation.h"

namespace vlm::reform {

// The registered unit (general constraints of type OR).
const Reformulation& or_reformulation();

}  // namespace vlm::reform
