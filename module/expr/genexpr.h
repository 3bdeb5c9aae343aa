// General expressions: GenExpr and its subclasses GenExprAbs, GenExprAnd, GenExprOr,
// GenExprMax, GenExprMin and GenExprNorm, made by abs_, and_, or_, max_, min_ and norm. They
// hold their arguments only; Model.addConstr asks one to add itself (_addAsConstr) when it
// meets `var == genexpr`.
#pragma once

#include "core/py_ref.h"

extern PyTypeObject GenExprType;

inline bool genexpr_check(PyObject* o) { return PyObject_TypeCheck(o, &GenExprType); }

// _special_gcargs_concat(args): a new list of the arguments, a tupledict contributing its
// values.
py::Ref genexpr_concat_args(PyObject* args);

int register_genexpr(PyObject* m);
