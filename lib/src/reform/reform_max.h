// Reformulates r = max(x_1, .., x_k, c) into linear rows and one binary per operand that can
// be the maximum.
//
// With U the upper bound of r and L_i the lower bound of x_i (after propagation):
//     r >= x_i  for every i,   r >= c,
//     r - x_i <= (U - L_i)(1 - z_i),   r - c <= (U - c)(1 - z_c),   sum z = 1,  z binary.
// The binary z_i marks the operand that attains the maximum. An operand whose upper bound lies
// below the largest lower bound among the operands can never be the maximum and gets no
// binary; a single remaining candidate needs none either (r <= x_i directly).
// MIN is the same with every sign flipped (reform_min calls add_extremum with sign -1).
//
// Requires: finite U (finite upper bounds on the operands, or on r) and finite lower bounds
// on the operands that can be the maximum.
// Creates: one binary per candidate operand (none for one candidate), k + 2 + candidates rows.
#pragma once

#include <vector>

#include "reform/big_m.h"
#include "reform/reformulation.h"

namespace vlm::reform {

// Adds r = max(ops, c) for sign +1, r = min(ops, c) for sign -1; c = -sign * infinity (or
// beyond +-1e100) means no constant. Fails naming a variable whose needed bound is missing;
// nothing is added then. O(k).
Status add_extremum(Builder& b, int r, const std::vector<int>& ops, double c, int sign, const BigMContext& ctx);

// Tightens r's bounds from the operands and the operands' from r (x_i <= r for max). Returns
// whether anything changed.
bool propagate_extremum(Bounds& b, int r, const std::vector<int>& ops, double c, int sign);

// The registered unit (general constraints of type MAX).
const Reformulation& max_reformulation();

}  // namespace vlm::reform
