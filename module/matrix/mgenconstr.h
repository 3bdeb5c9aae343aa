// MGenConstr: an n-dimensional array of general constraints of one Model (an element array,
// melem.h, of GenConstr handles), as the addGenConstr... methods return it when given matrix
// arguments: shape operations and vectorised attributes (c.GenConstrName, ...).
#pragma once

#include "core/py_ref.h"
#include "matrix/melem.h"

extern PyTypeObject MGenConstrType;

// A new MGenConstr over `arr` (an object ndarray of GenConstr handles, kept as it is) of `model`.
py::Ref mgenconstr_new(PyObject* arr, PyObject* model);

int register_mgenconstr(PyObject* m);
