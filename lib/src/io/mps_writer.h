// MPS format writer.
//
// The file holds everything in ModelData except the extra attribute columns,
// and reads back (mps_reader.h) to the same ModelData. Sections, empty ones left out:
//
//   NAME          name
//   OBJSENSE
//       MAX                                   only when maximising
//   ROWS
//    N  OBJ                                   the objective (OBJ_1, OBJ_2, ... if a row is OBJ)
//    N  OBJ0                                  one N row per objective n of a multi-objective model
//    L  c0                                    linear constraints (L, G, E), then quadratic ones
//   OBJECTIVES                                the N rows that are objectives n, in order:
//       OBJ0      Priority=2 Weight=1 AbsTol=1e-06 RelTol=0 Name=the objective's name
//   COLUMNS                                   one coefficient per line, columns in order;
//       MARKER    'MARKER'     'INTORG'       general integers between INTORG and INTEND
//       x         c0        1                 markers; a column without any coefficient gets
//       MARKER    'MARKER'     'INTEND'       an explicit 0 in the objective row
//   RHS
//       RHS       c0        4
//       RHS       OBJ       -5                objective constant (and objective n's) = minus it
//   BOUNDS                                    where they differ from [0, inf) ([0, 1] for BV):
//    UP BND       x         4                 LO UP FX FR MI PL; BV marks a binary, SC a
//    SC BND       s         9                 semi-continuous and SI a semi-integer column, with
//                                             the upper bound as value. "LO x 0" is written
//                                             before a negative UP (see mps_reader.h).
//   SOS
//    S1 s0                                    set header: type, set name
//       s0        x         1                 members: set, column, weight
//   QUADOBJ                                   objective c'x + 1/2 x'Qx: lower triangle of Q
//       y         x         3
//   QCMATRIX   qc0                            per quadratic row: the full symmetric matrix Q of
//       x         y         0.5               x'Qx (an x*y term is split in two halves)
//   PWLOBJ
//       x         0         0                 column, x, y: its points in order
//   GENCONS                                   one header per constraint, then its records:
//    GC gc0       MAX                         header: name, type (MAX, MIN, ABS, AND, OR, NORM,
//                                             INDICATOR, PWL, POLY, EXP, EXPA, LOG, LOGA, POW,
//                                             SIN, COS, TAN, LOGISTIC)
//    RV r                                     result variable (y of y = f(x))
//    XV x                                     argument variable (ABS, PWL, y = f(x))
//    OP x         [coef]                      operand of MAX/MIN/AND/OR/NORM; indicator term
//    CO 3                                     MAX/MIN constant (only when finite), NORM which,
//                                             EXPA/LOGA base, POW exponent
//    IV b         1                           indicator binary and the value that activates it
//    SE L 3                                   indicator sense (L, G, E) and right-hand side
//    PT 0 0                                   PWL point x y
//    PC 3                                     polynomial coefficient, highest degree first
//    OT FuncPieces=5                          option text: the rest of the line
//   SCENARIOS                                 one header per scenario, then its changes:
//    SC low demand                            header: the scenario's name, the rest of the line
//    LO x         1                           ScenNLB of column x (1e+30 infinite)
//    UP x         4                           ScenNUB
//    OB x         3                           ScenNObj
//    RH c0        5                           ScenNRHS of linear constraint c0
//   ENDATA
//
// Infinite values are written as 1e+30 (read back as infinite). Numbers use the shortest
// text that reads back exactly.
//
// Layouts: free MPS separates fields by blanks, so names must not contain blanks. Fixed MPS
// puts fields in columns 2-3, 5-12, 15-22 and 25-36 (40-47, 50-61 are read but not written:
// one coefficient per line, and a number longer than 12 characters runs on past column 36),
// so names may hold blanks but are at most 8 characters. In the sections of our own design
// (OBJECTIVES, SOS, PWLOBJ, GENCONS, SCENARIOS) fixed lines carry the code in columns 2-3, the record's
// names in 5-12 and 15-22 and then blank-separated words.
#pragma once

#include <ostream>

#include "core/status.h"
#include "model/model_data.h"

namespace vlm::io {

// kAuto writes free MPS unless a name holds a blank, then fixed MPS (which the reader then
// reads as fixed, see mps_reader.h).
enum class MpsLayout { kAuto, kFree, kFixed };

// Writes `data` as MPS text. With `generic_names`, names are C0.., R0.., QC0.., GC0..,
// OBJ0.., S0.. (scenarios) and the model name is left out. Fails with VLM_ERROR_FILE_WRITE when the names
// cannot be represented: two columns or two rows share a name, a name (model and objective
// names included) holds a control character or starts or ends with a blank, a free-layout
// name holds a blank, or a fixed-layout name is longer than 8 characters. A model name whose
// last word is MAX or MIN gets an OBJSENSE section in either sense, so that the word stays
// part of the name. Linear in the model size.
Status write_mps(const ModelData& data, std::ostream& out, MpsLayout layout, bool generic_names);

}  // namespace vlm::io
