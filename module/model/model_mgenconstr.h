// The matrix forms of the general constraints: addGenConstr... given MVar (or, for indicators,
// matrix expression) arguments add one constraint per element and return an MGenConstr.
//
// An argument that stands for one variable (a Var, or an MVar of one element) keeps the
// single form; the matrix form starts when a variable argument is an MVar of another size, or
// the implied constraint of an indicator is a matrix expression of another size. Arguments
// broadcast as in NumPy: list operands, constants, bases and binary values to the shape of the
// result (resvar, binvar) or to the common shape of xvar and yvar. Every check runs before the
// one library call (VLMaddgenconstrlists, VLMaddgenconstrfuncs, VLMaddgenconstrIndicators), which
// adds all constraints or none, so a refused call leaves the model as it was.
#pragma once

#include "core/py_ref.h"

// When the call `type` (a GENCONSTR code) with these arguments is a matrix call: true with
// `*result` the MGenConstr, or nullptr with VelmorError set. false (no exception) for the
// single form or for arguments that do not parse (the single form reports them).
bool model_mgenconstr_route(PyObject* self, int type, PyObject* args, PyObject* kwds, PyObject** result);

// The `>>` route of addConstr: `tc` is (b == v) >> (lhs sense rhs). true when b or the implied
// constraint is a matrix object (result as above), false otherwise (no exception).
bool model_mgenconstr_route_indicator(PyObject* self, PyObject* tc, PyObject* name, PyObject** result);

// Whether `o` is an MVar or matrix expression that is not one element (size != 1).
bool model_mgenconstr_is_matrix(PyObject* o);

// The GENCONSTR code of a type word of the messages ("max", "exp", "logistic", ...); -1 if none.
int model_mgenconstr_type(const char* word);
