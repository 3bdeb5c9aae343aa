// Reformulates r = ||x||_p for p = 0, 1, 2 and infinity.
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
// p = 2: a column t >= 0 with r = t and the quadratic row sum_i x_i^2 - t^2 <= 0, a
// second-order cone (convex), when two_norm_form says that only r >= ||x|| can bind; otherwise
// sum_i x_i^2 - t^2 = 0, which is not convex: the quadratic search solves it only with
// NonConvex 2 and otherwise refuses it naming the NORM constraint. No bound is needed.
//
// Requires: finite bounds on each x_i that may take both signs (p = 1, inf), and on the
// non-zero side of each x_i (p = 0).
// Creates: per x_i one continuous column a_i plus what reform_abs creates (p = 1, inf) and
// what reform_max creates (p = inf); per x_i one or two binaries, parts and rows (p = 0); one
// row for r; p = 2: the column t and one quadratic row.
#pragma once

#include "reform/reformulation.h"

namespace vlm::reform {

// How y = ||x||_2 (general constraint `index`) is written:
//   kCone: y >= ||x||_2 alone is exact. y is continuous with a lower bound of at most 0, the
//     objective pushes it down (a positive cost when minimising, negative when maximising; no
//     quadratic, multi-objective or PWL term), and otherwise y appears only in linear
//     inequalities where a smaller y is never worse ('<' rows with a positive coefficient, '>'
//     rows with a negative one). Every point with y > ||x|| is beaten by lowering y.
//   kConeThenSetY: the same with no cost on y: lowering y changes nothing, so the cone is
//     solved and y is then set to ||x|| in every solution (WorkingProblem::set_to_norm).
//   kEquality: anything else.
// O(model size).
enum class NormForm { kCone, kConeThenSetY, kEquality };
NormForm two_norm_form(const ModelData& d, int index);

// The registered unit (general constraints of type NORM).
const Reformulation& norm_reformulation();

}  // namespace vlm::reform
