// The operators of Var: arithmetic builds LinExpr/QuadExpr objects (the variable itself never
// changes), comparisons build TempConstr objects. Installed on the Var type by var.cpp.
#pragma once

#include "core/py_ref.h"

extern PyNumberMethods var_as_number;

PyObject* var_richcompare(PyObject* self, PyObject* other, int op);
