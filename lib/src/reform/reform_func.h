// Reformulates a function constraint y = f(x) (POLY, EXP, EXPA, LOG, LOGA, LOGISTIC, POW,
// SIN, COS, TAN) as a piecewise-linear constraint: func_breakpoints chooses the points over the
// propagated bounds of x (honouring the constraint's FuncPieces, FuncPieceLength,
// FuncPieceError and FuncPieceRatio attributes and option text, then the parameters). Points
// with a step (or one piece) go to add_pwl; others, often hundreds of pieces, to a
// logarithmic formulation: the same convex combination, with the SOS2 condition through
// ceil(log2 pieces) binaries on Gray-coded pieces instead of one binary per piece.
//
// - x stays within the points' span [x_0, x_n] (the convex combination forces it); with a bound
//   of x beyond FuncMaxVal that span is the clipped range.
// - x fixed by its bounds (lb == ub): the row y = f(lb), nothing else.
// - A repeated x in the points is a vertical step (a change of curvature with FuncPieceRatio
//   in [0, 1]); y takes one side's value there.
// - Bound propagation gives y the range of f over the bounds of x (widened by the error where
//   the pieces may leave f), so units built before this one get constants for y too; apply
//   narrows y's propagated bounds to the points' range for the units after it.
//
// Requires: finite bounds on x when FuncMaxVal is infinite, and otherwise bounds that keep x in
// f's domain and |f| within FuncMaxVal. A refusal caused by an infinite bound of x is
// VLM_ERROR_NOT_SUPPORTED (a missing bound, as for every unit that needs one); one with both
// bounds finite is VLM_ERROR_INVALID_ARGUMENT (log over [-1, 5], exp over [0, 100] with
// FuncMaxVal 1e6). Either message names x and the bound to set.
// Creates: one continuous column per point, three rows, and add_pwl's SOS2 binaries or
// ceil(log2 pieces) binaries with two rows each; one row for a fixed x.
#pragma once

#include "reform/reformulation.h"

namespace vlm::reform {

// The registered unit for every function-constraint type.
const Reformulation& func_reformulation();

}  // namespace vlm::reform
