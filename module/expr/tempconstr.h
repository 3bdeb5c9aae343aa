// TempConstr: the value of a comparison between modelling expressions, read by
// Model.addConstr: `_lhs`, `_sense` ("<", ">", "=", or "I" for an indicator) and `_rhs`.
#pragma once

#include "core/py_ref.h"

struct TempConstrObject {
  PyObject_HEAD
  PyObject* lhs;
  PyObject* sense;  // a one-character str
  PyObject* rhs;
};

extern PyTypeObject TempConstrType;

inline TempConstrObject* as_tempconstr(PyObject* o) {
  return reinterpret_cast<TempConstrObject*>(o);
}
inline bool tempconstr_check(PyObject* o) { return PyObject_TypeCheck(o, &TempConstrType); }

// TempConstr(lhs, sense, rhs) with the matrix rules of the constructor; `sense` is one of
// '<', '>', '=', 'I'.
py::Ref tempconstr_new(PyObject* lhs, char sense, PyObject* rhs);

int register_tempconstr(PyObject* m);
