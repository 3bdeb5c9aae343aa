// Reformulates a piecewise-linear constraint y = f(x) into a convex combination of its
// breakpoints under an SOS2 condition (which reform_sos2 turns into binaries).
//
// Points (x_0, y_0) .. (x_n, y_n), x non-decreasing; a repeated x is a jump: at that x, y
// takes the value of the piece on either side, never one in between. Left of x_0 and right
// of x_n the first and last pieces continue (a jump at an end continues flat). With the
// propagated bounds [L, U] of x, the pieces are cut (or extended) to [L, U], then
//     x = sum_k lambda_k x_k,   y = sum_k lambda_k y_k,   sum_k lambda_k = 1,
//     lambda_k in [0, 1],   SOS2(lambda) with the vertical pairs of a jump forbidden.
// With two points (one piece) no SOS2 is needed: it is a pure LP.
//
// Requires: L finite when x may lie below x_0, U finite when x may lie above x_n (the
// extended piece needs an end); not all points at one x.
// Creates: one continuous column per point, three rows, and what reform_sos2 creates.
#pragma once

#include <vector>

#include "reform/big_m.h"
#include "reform/reformulation.h"

namespace vlm::reform {

// Adds y = f(x) for the points (xs, ys) as above; x and y are working columns. Other units
// (the PWL objective, the function constraints through their breakpoints) come here rather
// than building their own. Fails naming x when a needed bound is missing; nothing is added
// then. O(points).
Status add_pwl(Builder& b, int x, int y, std::vector<double> xs, std::vector<double> ys, const BigMContext& c);

// The range of f over [lo, hi] (either may be infinite), as {min, max}; infinite where the
// extended pieces are unbounded. O(points).
std::pair<double, double> pwl_range(const std::vector<double>& xs, const std::vector<double>& ys, double lo,
                                    double hi);

// The registered unit (general constraints of type PWL).
const Reformulation& pwl_reformulation();

}  // namespace vlm::reform
