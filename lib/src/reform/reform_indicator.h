// Reformulates an indicator constraint (b == v) => (a'x sense rhs) into one or two big-M rows.
//
// With "off" = 1 - b for v = 1 and off = b for v = 0, and the activity bounds
// L <= a'x <= U of the row (from the propagated bounds of its variables):
//     sense '<':  a'x - rhs <= (U - rhs) off
//     sense '>':  a'x - rhs >= (L - rhs) off
//     sense '=':  both rows.
// A side whose constant is <= 0 always holds and is left out. When b is fixed at v the row
// is added as it is (no constant needed); when b is fixed at 1 - v nothing is added. For a
// single variable, x <= rhs + (u - rhs) off is the tightest linear form.
//
// Without U (or L) where it is needed there is no big-M: the row becomes a'x - s (sense) rhs
// with a slack s >= 0 ('<'), s <= 0 ('>') or free ('='), and the construct is held for the
// search, which fixes s to 0 in nodes where b == v (algorithms/construct_branching.h).
// Creates: at most two rows and no column; a held indicator, one row and the slack column.
#pragma once

#include "reform/reformulation.h"

namespace vlm::reform {

// The registered unit (general constraints of type INDICATOR).
const Reformulation& indicator_reformulation();

}  // namespace vlm::reform
