// MPS format reader: free and fixed layout, the sections our writer produces (mps_writer.h)
// and the usual ones of other writers.
//
// Free or fixed, decided in this order:
//   1. The text is read as free MPS (fields separated by blanks).
//   2. It is read as fixed MPS (fields by column: 2-3, 5-12, 15-22, 25-36, 40-47, 50-61, where
//      a number in 25-36 or 50-61 may run on to the next blank) when the free reading failed,
//      or when some data line has a blank between two non-blanks inside one of the name
//      fields 5-12, 15-22 or 40-47.
//   3. The fixed reading is taken when it succeeds and the free one failed, or when it
//      succeeds and gives some variable or constraint a name with a blank (the free reading
//      then split that name into fields: "a b 2" as column "a" with 2 in row "b"). Otherwise
//      the free reading is taken; when both fail, the error of whichever got further.
// So a file is fixed exactly when its names need it, which is when our writer writes fixed.
// NAME: in free layout a last word MAX/MIN sets the sense and is not part of the name, unless
// the file has an OBJSENSE section (then the whole line is the name).
//
// Sections and rules:
// - lines starting with '*' are comments; a line starting with a non-blank is a section
//   header; NAME takes the rest of its line as the model name (free layout: a last word
//   MAX/MIN sets the sense); OBJSENSE takes MAX/MAXIMIZE/MIN/MINIMIZE on its line or the
//   next; OBJNAME names the N row used as objective;
// - ROWS: the first N row (or the OBJNAME one) is the objective; other N rows are dropped
//   unless OBJECTIVES lists them as objectives n;
// - COLUMNS: MARKER lines 'INTORG'/'INTEND' make the columns between them integer;
// - RHS: on the objective row, minus the value is the objective constant; only the first
//   RHS (RANGES, BOUNDS) vector is used when several are given;
// - RANGES: on an L row [rhs - |R|, rhs], on a G row [rhs, rhs + |R|], on an E row
//   [rhs, rhs + R] for R > 0 and [rhs + R, rhs] for R < 0; R = 0 makes the row an equality.
//   Ranged rows become range constraints (a slack column "Rg" + row name is appended);
// - BOUNDS: UP LO FX FR MI PL BV LI UI SC SI; a negative UP or UI on a column whose lower
//   bound was not given makes the lower bound -infinity; SC makes a column semi-continuous
//   (semi-integer if it is integer) with the value, if any, as upper bound; SI semi-integer;
// - QUADOBJ (one triangle of Q) or QMATRIX (all of Q) for the objective c'x + 1/2 x'Qx;
//   QCMATRIX <row> (all of Q for x'Qx) turns a row of ROWS into a quadratic constraint;
// - SOS, PWLOBJ, OBJECTIVES, GENCONS, SCENARIOS as documented in mps_writer.h; ENDATA ends
//   the file. A scenario refers to columns and rows by name, so SCENARIOS comes after ROWS and
//   COLUMNS; its RH records must name linear constraints.
// Any value of magnitude 1e30 or more in RHS, RANGES, BOUNDS and GENCONS, and in the bounds of
// SCENARIOS, is infinite.
//
// Not supported: Fortran exponents ("1.5D+03"), QSECTION, CSECTION and other conic sections;
// a finite value of 1e30 or more cannot be written or read.
#pragma once

#include <string>
#include <string_view>

#include "core/status.h"
#include "io/file_format.h"

namespace vlm::io {

// Parses MPS text into `out`. `filename` is used in messages only. Fails with
// VLM_ERROR_FILE_READ "File 'f', line N: ...". Linear in the text size (twice when the fixed
// reading is tried). A file without ENDATA is refused as cut short.
Status read_mps(std::string_view text, const std::string& filename, ReadModel& out);

}  // namespace vlm::io
