// Reformulates r = |x| into linear rows, with one binary when x may take both signs.
//
// With [L, U] the bounds of x after propagation:
//     L >= 0:  r = x;      U <= 0:  r = -x;
//     else:    x = p - n,  r = p + n,  0 <= p <= U z,  0 <= n <= -L (1 - z),  z binary,
// so that only one of the parts p, n is non-zero (z = 1 when x >= 0).
//
// Requires: finite L and U when x may take both signs (|x| <= ub(r) gives them through
// propagation).
// Creates: nothing but one row when x has a sign; else one binary, two continuous columns and
// four rows.
#pragma once

#include "reform/big_m.h"
#include "reform/reformulation.h"

namespace vlm::reform {

// Adds r = |x| for working columns r and x. Fails naming x when a needed bound is missing;
// nothing is added then. O(1).
Status add_abs(Builder& b, int r, int x, const BigMContext& c);

// The range of |x| for x in [lo, hi] as {min, max}.
std::pair<double, double> abs_range(double lo, double hi);

// The registered unit (general constraints of type ABS).
const Reformulation& abs_reformulation();

}  // namespace vlm::reform
