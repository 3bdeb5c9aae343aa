// Reformulates an SOS1 set (at most one member may be non-zero) into binaries and rows.
//
// For members x_1..x_n with bounds [l_i, u_i] (after bound propagation):
//     l_i z_i <= x_i <= u_i z_i,   z_i in {0, 1},   sum_i z_i <= 1.
// A member whose bounds are both 0 takes no part. When every member is binary the set is the
// single row sum_i x_i <= 1 (tighter and with no new column). Weights do not matter for SOS1.
//
// Requires: u_i finite when u_i > 0 and l_i finite when l_i < 0, for every member. A set
// without them is held for the search to branch on (hold_sos), the other sets keep their rows.
// Creates: one binary per member that can be non-zero, one or two rows per such member, one
// cardinality row.
#pragma once

#include <vector>

#include "reform/big_m.h"
#include "reform/reformulation.h"

namespace vlm::reform {

// Adds the rows above for `members` (any order). Fails naming a member without the needed
// bound; nothing is added then. O(n).
Status add_sos1(Builder& b, const std::vector<int>& members, const BigMContext& c);

// The registered unit (for SOS constraints of type 1).
const Reformulation& sos1_reformulation();

// Leaves SOS `index` (either type) to the search: a HeldConstruct with its members in weight
// order. For sets whose members lack the bounds big-Ms need. O(n log n).
Status hold_sos(const ModelData& d, int index, Builder& b);

// "SOS constraint 3 (type 1)": how messages name an SOS.
std::string describe_sos(const ModelData& d, int index);

}  // namespace vlm::reform
