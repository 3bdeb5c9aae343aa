// Reformulates r = ||x||_p for p = 0, 1 and infinity; p = 2 is refused.
//
//     p = 1:    r = sum_i a_i,       a_i = |x_i|   (reform_abs, one column a_i each);
//     p = inf:  r = max_i a_i,       a_i = |x_i|   (reform_abs, then reform_max's builder);
//     p = 0:    r = sum_i (w_i + v_i), with x_i = q_i - n_i, eps w_i <= q_i <= U_i w_i,
//               eps v_i <= n_i <= -L_i v_i, w_i + v_i <= 1 (w, v binary): a part is positive
//               exactly when its binary is 1, so r counts the non-zero x_i. A variable that
//               cannot be negative (or positive) needs one part only. eps is 1 for integer x_i,
//               else 1e-5: values of smaller magnitude count as zero.
// Equality with a norm is not convex, so p = 1 and p = inf need a binary for each x_i that may
// take both signs; x_i with a fixed sign make them pure LP.
// p = 2 needs a second-order cone, which needs quadratic constraints: refused with
// VLM_ERROR_NOT_SUPPORTED until those solve.
//
// Requires: finite bounds on each x_i that may take both signs (p = 1, inf), and on the
// non-zero side of each x_i (p = 0).
// Creates: per x_i one continuous column a_i plus what reform_abs creates (p = 1, inf) and
// what reform_max creates (p = inf); per x_i one or two binaries, parts and rows (p = 0); one
// row for r.
#pragma once

#include "reform/reformulation.h"

namespace vlm::reform {

// The registered unit (general constraints of type NORM).
const Reformulation& norm_reformulation();

}  // namespace vlm::reform
