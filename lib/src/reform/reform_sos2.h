// Reformulates an SOS2 set (at most two members non-zero, and then adjacent in the order of
// the weights) into binaries and rows.
//
// Members sorted by weight, x_1..x_n with bounds [l_i, u_i] (after bound propagation); one
// binary z_s per adjacent pair s = (s, s+1) that may be non-zero together:
//     sum_s z_s <= 1,
//     l_i (z_{i-1} + z_i) <= x_i <= u_i (z_{i-1} + z_i)   (only the pairs that exist).
// A member with no allowed pair is fixed at 0. Sets of at most two members with every pair
// allowed need nothing.
//
// Requires: u_i finite when u_i > 0 and l_i finite when l_i < 0, for every member.
// Creates: one binary per allowed pair, one or two rows per member, one cardinality row.
#pragma once

#include <vector>

#include "reform/big_m.h"
#include "reform/reformulation.h"

namespace vlm::reform {

// Adds the rows above for `ordered` (already in weight order). `allowed`, when not null, has
// one entry per adjacent pair (n - 1): 0 forbids that pair (the PWL unit forbids the vertical
// pieces of a jump). Fails naming a member without the needed bound; nothing is added then.
// O(n).
Status add_sos2(Builder& b, const std::vector<int>& ordered, const std::vector<char>* allowed,
                const BigMContext& c);

// The registered unit (for SOS constraints of type 2).
const Reformulation& sos2_reformulation();

}  // namespace vlm::reform
