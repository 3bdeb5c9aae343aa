// MQConstr: an n-dimensional array of quadratic constraints of one Model (an element array,
// melem.h, of QConstr handles), as Model.addMQConstr and Model.addConstr with an MQuadExpr
// return it: shape operations and vectorised attributes (q.QCSlack, q.QCRHS, ...).
#pragma once

#include "core/py_ref.h"
#include "matrix/melem.h"

extern PyTypeObject MQConstrType;

// A new MQConstr over `arr` (an object ndarray of QConstr handles, kept as it is) of `model`.
py::Ref mqconstr_new(PyObject* arr, PyObject* model);

int register_mqconstr(PyObject* m);
