// Reformulates r = min(x_1, .., x_k, c) into linear rows and binaries: the MAX formulation
// (reform_max.h) with every sign flipped, built by add_extremum with sign -1:
//     r <= x_i,  r <= c,   x_i - r <= (U_i - L)(1 - z_i),   c - r <= (c - L)(1 - z_c),
//     sum z = 1, z binary,
// with L the lower bound of r and U_i the upper bound of x_i (after propagation).
//
// Requires: finite L (finite lower bounds on the operands, or on r) and finite upper bounds
// on the operands that can be the minimum.
// Creates: one binary per candidate operand (none for one candidate), k + 2 + candidates rows.
#pragma once

#include "reform/reformulation.h"

namespace vlm::reform {

// The registered unit (general constraints of type MIN).
const Reformulation& min_reformulation();

}  // namespace vlm::reform
