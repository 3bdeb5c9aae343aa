// LP format reader. The format our writer produces is documented in lp_writer.h; the reader
// also takes what common LP writers produce:
//
// - comments from '\' to the end of the line; "\ Model: name" or "\* Problem: name *\" before
//   the first section names the model;
// - section headers on a line of their own, in any letter case: Maximize/Maximise/Maximum/Max,
//   Minimize/Minimise/Minimum/Min (the objective may follow on the same line when the header
//   starts the line), "Minimize multi-objectives", Subject To/Such That/st/s.t., Bounds/Bound,
//   Binaries/Binary/Bin, Generals/General/Gen/Integers, Semi-Continuous/Semis/Semi, SOS,
//   PWLObj, General Constraints, Scenarios, End (nothing after it is read); the Scenarios
//   section (lp_writer.h) comes after the constraints and names variables and linear
//   constraints read before it, one change per line;
// - expressions with or without a coefficient per term ("2 x", "2x", "x", "- x"), repeated
//   variables (summed), constants on either side, quadratic parts in brackets ("[ x ^ 2 +
//   2 x * y ]", in the objective usually followed by "/ 2");
// - senses <=, =<, <, >=, =>, >, = ; range rows "lo <= expr <= hi" (added as range
//   constraints, i.e. with a slack variable "Rg" + name); indicators "b = 1 -> x + y <= 3"
//   among the constraints;
// - bounds "x free", "x = 2", "-inf <= x <= 5", "x >= -3", "3 >= x"; "inf"/"infinity" and any
//   value of magnitude 1e30 or more are infinite; a binary's upper bound is 1 unless given.
//
// Variables are numbered in order of first mention. Names are any run of characters other
// than blanks and the operators + - * ^ / [ ] : < > = (also ( ) , inside General Constraints
// and PWLObj); a name cannot start with a digit or '.', and "inf"/"infinity" read as numbers
// where a number may stand (bounds, right-hand sides, constant lists).
//
// Not supported: "\* ... *\" comments spanning lines (only their first line is a comment),
// objective headers with a colon ("max:"), "/ 2" outside a bracket, products of more than
// two variables, and a finite bound of magnitude 1e30 or more.
#pragma once

#include <string>
#include <string_view>

#include "core/status.h"
#include "io/file_format.h"

namespace vlm::io {

// Parses LP text into `out`. `filename` is used in messages only. Fails with
// VLM_ERROR_FILE_READ "File 'f', line N: expected ..., found '...'". Linear in the text size.
Status read_lp(std::string_view text, const std::string& filename, ReadModel& out);

}  // namespace vlm::io
