// Model methods for analysing a model and deriving new ones: computeIIS, feasRelax,
// feasRelaxS, relax, fixed, feasibility, dualize and presolve; and the solution as JSON text
// (getJSONSolution).
//
// The derived models are new Model objects the caller owns, on the user's environment; the
// source stays as it was. feasRelax/feasRelaxS change the model in place and rebuild its handle
// lists, since the library added elements.
#pragma once

#include "core/py_ref.h"

// The Model methods of this aspect, null-terminated, each with its docstring.
extern PyMethodDef model_analysis_methods[];
