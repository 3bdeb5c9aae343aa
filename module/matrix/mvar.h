// MVar: an n-dimensional array of variables of one Model (an element array, melem.h, of Var
// handles), with NumPy-style shape operations, vectorised attributes and the arithmetic that
// yields matrix expressions.
#pragma once

#include "core/py_ref.h"
#include "matrix/melem.h"

extern PyTypeObject MVarType;

inline bool mvar_check(PyObject* o) { return PyObject_TypeCheck(o, &MVarType); }

// A new MVar over `arr` (an object ndarray of Var handles, kept as it is) of `model`.
py::Ref mvar_new(PyObject* arr, PyObject* model);

// MVar.fromlist(list): ValueError naming the first element that is not a Var.
py::Ref mvar_fromlist(PyObject* list);

int register_mvar(PyObject* m);
