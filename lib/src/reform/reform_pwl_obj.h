// Reformulates a piecewise-linear objective term f(x) of one variable (set by VLMsetpwlobj),
// which replaces that variable's linear objective coefficient.
//
// Points (x_0, y_0) .. (x_n, y_n) with x non-decreasing; beyond them the first and last
// pieces continue. With slopes s_k of the pieces and an auxiliary column t carrying
// objective coefficient 1:
//   - convex f in a minimisation (slopes non-decreasing, no jump), or concave f in a
//     maximisation (slopes non-increasing, no jump): pure LP,
//         t >= y_k + s_k (x - x_k) for every piece k   (<= for the concave case),
//     the pieces' lines bound t everywhere, also beyond the points, so no bound is needed;
//   - otherwise: t = f(x) through reform_pwl (a convex combination under SOS2, binaries).
//
// Requires: nothing for the convex case; for the other case what reform_pwl requires (finite
// bounds on x where it may leave the points).
// Creates: one continuous column; one row per piece (convex case) or what reform_pwl creates.
#pragma once

#include "reform/reformulation.h"

namespace vlm::reform {

// The registered unit (piecewise-linear objective terms; the index is the variable).
const Reformulation& pwl_obj_reformulation();

}  // namespace vlm::reform
