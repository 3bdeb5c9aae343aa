// Breakpoints for function constraints: turns one y = f(x) constraint (POLY, EXP, EXPA, LOG,
// LOGA, LOGISTIC, POW, SIN, COS, TAN) over the bounds of x into the points of a piecewise-linear
// function that approximates f, for reform_pwl to model. docs/function-constraints.md has the
// math and measured piece counts.
//
// How the points are chosen (opt = the constraint's FuncOptions):
// - pieces_count >= 2: that many pieces of equal length; 1: pieces of length piece_length from
//   the lower bound on (the last one takes the remainder); 0 or -1: as few pieces as the greedy
//   search finds with absolute error |pwl(x) - f(x)| <= piece_error; -2: the same with the
//   error allowed to grow with the function, |pwl(x) - f(x)| <= piece_error * max(1, |f(x)|).
//   Error-driven pieces never straddle a change between convex and concave.
// - piece_ratio -1: every point lies on f. In [0, 1]: each piece is the line parallel to its
//   chord that lies between the lowest line below f and the highest line above f over the piece,
//   at weight `ratio` towards the one above (0 = never above f, 1 = never below f). The error of
//   such a piece is max(ratio, 1 - ratio) times the gap between those two lines, and the
//   error-driven search sizes pieces for that. Neighbouring pieces in one convex (concave)
//   stretch meet where their lines cross; elsewhere (at a change of curvature, or when a piece
//   spans one) the approximation steps vertically: two points with the same x, both within the
//   error of f(x) and on the side that the ratio asks for.
//
// Bounds: a bound beyond max_val in magnitude (so every infinite bound) is clipped to +-max_val;
// the points then span the clipped range and the consumer must keep x inside it. |f| must stay
// within max_val over that range, else the error says which bound of x to tighten and to what.
#pragma once

#include <string_view>
#include <vector>

#include "core/status.h"
#include "model/model_data.h"
#include "params/param_set.h"

namespace vlm::reform {

// A continuous piecewise-linear function given by its points: x is non-decreasing (equal
// neighbours mark a vertical step), y[i] is the value at x[i]. x.front() and x.back() are the
// (clipped) bounds of x. Always at least two points.
struct PwlPoints {
  std::vector<double> x, y;
};

// The approximation controls of one function constraint (FuncPieces, FuncPieceLength,
// FuncPieceError, FuncPieceRatio, FuncMaxVal).
struct FuncOptions {
  double pieces_count, piece_length, piece_error, piece_ratio, max_val;
};

// More pieces than this for one constraint is refused (SIZE_LIMIT_EXCEEDED): no model solves
// better for it, and it bounds the memory of one approximation to a few megabytes.
inline constexpr int kMaxFuncPieces = 100000;

// Options of one constraint from its options text ("FuncPieces=8 FuncPieceRatio=0", names in
// any letter case) where a value is given, else from the parameters. FuncMaxVal always comes
// from the parameters. Never fails (the store checked the text when it was added). O(text).
FuncOptions func_options(const GenConstrData& g, const ParamSet& params);

// The same for general constraint `index` of `d`, with the constraint's FuncPieces,
// FuncPieceLength, FuncPieceError and FuncPieceRatio attributes taking precedence over its
// options text; an attribute holding -1 (its default) counts as not set. `index` must be valid.
FuncOptions func_options(const ModelData& d, int index, const ParamSet& params);

// The points approximating f of the function constraint `g` for lb <= x <= ub, chosen as the
// file comment says. `xname` names the x variable in messages ("C<index>" when empty).
// Fails, naming the constraint (and the variable where a bound would fix it), with
// - INVALID_ARGUMENT: `g` is not a function constraint; a bound is NaN or lb > ub; a bound is
//   infinite while max_val is infinite too; f is undefined somewhere in [lb, ub] (log or log_a
//   with lb <= 0, a fractional power with lb < 0, a negative power or one with a negative
//   fractional exponent at x = 0, tan across or on a pole); |f| exceeds max_val;
// - VALUE_OUT_OF_RANGE: an option outside its meaning (pieces_count not an integer or below -2,
//   piece_length or piece_error not positive, piece_ratio neither -1 nor in [0, 1], max_val not
//   positive);
// - SIZE_LIMIT_EXCEEDED: more than kMaxFuncPieces pieces would be needed;
// - NUMERIC: piece_error too small to be reached in double precision.
// Cost: O(pieces) evaluations for fixed counts and lengths (times the inflection points inside
// a piece when piece_ratio >= 0); error-driven, a few measurements per piece, each a bisection
// of at most 100 steps (80,000 pieces of x^2 take about 0.1 s).
StatusOr<PwlPoints> func_breakpoints(const GenConstrData& g, double lb, double ub,
                                     const FuncOptions& opt, std::string_view xname = {});

// The same for general constraint `index` of `d` with its own options (func_options above) and
// its x variable named as the model names it; lb and ub are the bounds of x to approximate over
// (the propagated ones). `index` must be valid. Fails as above.
StatusOr<PwlPoints> func_breakpoints(const ModelData& d, int index, double lb, double ub,
                                     const ParamSet& params);

}  // namespace vlm::reform
