// MConstr: an n-dimensional array of linear constraints of one Model (an element array,
// melem.h, of Constr handles), as Model.addMConstr and Model.addConstr with a matrix
// expression return it: shape operations and vectorised attributes (x.Pi, x.Slack, x.RHS, ...).
#pragma once

#include "core/py_ref.h"
#include "matrix/melem.h"

extern PyTypeObject MConstrType;

// A new MConstr over `arr` (an object ndarray of Constr handles, kept as it is) of `model`.
py::Ref mconstr_new(PyObject* arr, PyObject* model);

int register_mconstr(PyObject* m);
