// QuadExpr: a linear part (a LinExpr of its own, constant included) plus quadratic terms
// (coefficient, first variable, second variable), with the same frozen-tail scheme as LinExpr:
// sums freeze once a result holds 200 own quadratic or linear terms, and the linear parts of
// the tail nodes merge into the linear part when the expression is flattened.
#pragma once

#include "core/py_ref.h"
#include "expr/terms.h"

struct QuadExprObject {
  PyObject_HEAD
  PyObject* lin;   // the linear part: a LinExpr owned by this expression, never null
  PyObject* cont;  // the frozen tail (a QuadExpr) or nullptr
  TermVec<QuadTerm> terms;
};

extern PyTypeObject QuadExprType;

inline QuadExprObject* as_quadexpr(PyObject* o) { return reinterpret_cast<QuadExprObject*>(o); }
inline bool quadexpr_check(PyObject* o) {
  return Py_IS_TYPE(o, &QuadExprType) || PyType_IsSubtype(Py_TYPE(o), &QuadExprType);
}

// QuadExpr(o) for o None, a number, Var, LinExpr (copied into the linear part) or QuadExpr
// (own lists copied, tail shared); an empty Ref with VelmorError for anything else.
py::Ref quadexpr_from(PyObject* o);

// self += mult * other in place: 1 done, 0 when `other` is not an expression or number
// (nothing changed), -1 with an exception set.
int quadexpr_add(PyObject* self, PyObject* other, double mult);

// self *= other in place (QuadExpr._mul); -1 with VelmorError when the product is not at
// most quadratic or `other` is no expression or number.
int quadexpr_mul(PyObject* self, PyObject* other);

// Makes `q` self-contained: its linear part and quadratic terms hold everything.
void quadexpr_flatten(PyObject* q);

int register_quadexpr(PyObject* m);
