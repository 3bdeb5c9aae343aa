// LP format writer.
//
// The file holds everything in ModelData except the extra attribute columns,
// and reads back (lp_reader.h) to the same ModelData: same names, order, bounds, types and
// bit-identical numbers. Layout, with sections left out when empty:
//
//   \ Model: name
//   Minimize                                    (Maximize when the sense is -1)
//    obj: 2 x + 0 y + 3 z + [ 2 x ^ 2 + 3 x * y ] / 2 + 5
//   Subject To
//    c0: x + y >= 1                             linear constraints, then quadratic ones
//    qc0: x + [ x ^ 2 + y ^ 2 ] <= 4            (always with brackets, even empty "[ ]")
//   Bounds
//    x free | x = 2 | -inf <= y <= 5 | z >= -3 | w <= 8
//   Binaries / Generals / Semi-Continuous       (a semi-integer is in Generals and Semi-...)
//    b
//   SOS
//    s0: S1 :: x:1 y:2
//   PWLObj
//    x: (0, 0) (1, 2)                           piecewise-linear objective of x
//   General Constraints
//    gc0: r = MAX ( x , y , 3 )                 constant only when finite; MIN alike
//    gc1: r = ABS ( x )
//    gc2: r = AND ( b1 , b2 )                   OR alike
//    gc3: r = NORM ( 2 ) ( x , y )              norm 0, 1, 2 or inf
//    gc4: b = 1 -> x + y <= 3                   indicator
//    gc5: y = PWL ( x ) : (0, 0) (1, 2)
//    gc6: y = POLY ( x ) : (3, 0, -1)           coefficients, highest degree first
//    gc7: y = EXP ( x ) FuncPieces=5            LOG, SIN, COS, TAN, LOGISTIC alike
//    gc8: y = EXPA ( x ) 2 FuncPieces=5         base a; LOGA (base) and POW (exponent) alike
//   Scenarios
//    low: Scenario                              a scenario and its name ("Scenario" alone: none)
//     LB x = 1                                  ScenNLB of x (inf, -inf infinite)
//     UB x = 4                                  ScenNUB
//     Obj x = 3                                 ScenNObj
//     RHS c0 = 5                                ScenNRHS of the linear constraint labelled c0
//   End
//
// Each scenario record is one line of its own (never wrapped). A scenario that changes the
// right-hand side of a constraint whose label another constraint shares cannot be written.
//
// The text after a function constraint on its line is its option text, kept verbatim.
// A multi-objective model writes "Minimize multi-objectives" with the primary objective (the
// variables' Obj, the quadratic objective and the constant) first, unlabelled by attributes,
// then one entry per objective n:
//    OBJ0: Priority=2 Weight=1 AbsTol=1e-06 RelTol=0
//     x + 2 y + 5
// (an objective without a name has no label).
//
// Bounds are written where they differ from [0, inf) ([0, 1] for binaries). Variables are
// numbered by first mention when read, so the objective lists, with coefficient 0 if need be,
// the leading variables that would otherwise be mentioned out of order or not at all.
// Numbers use the shortest text that reads back exactly; infinite values are "inf".
//
// Limitation: names are written as given. A name with blanks, one of + - * ^ / [ ] : < > =,
// ( ) , inside General Constraints, a leading digit or '.', or equal to a section keyword
// alone on a line cannot be read back; use generic names (.rlp) or MPS for such models.
#pragma once

#include <ostream>

#include "core/status.h"
#include "model/model_data.h"

namespace vlm::io {

// Writes `data` as LP text. With `generic_names`, names are C0.., R0.., QC0.., GC0..,
// OBJ0.., S0.. (scenarios) and the model name is left out. Fails with VLM_ERROR_FILE_WRITE
// when a scenario changes the right-hand side of a constraint whose label is not unique.
// Linear in the model size.
Status write_lp(const ModelData& data, std::ostream& out, bool generic_names);

}  // namespace vlm::io
