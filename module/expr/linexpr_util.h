// Internal to the LinExpr family files (linexpr*.cpp): the allocation fast path and the small
// helpers that several of its aspects use, inline so that the hot operator paths cost what they
// did in one file, and the pieces an aspect hands to the type's registration.
#pragma once

#include <cmath>

#include "core/py_error.h"
#include "expr/linexpr.h"
#include "velmor_c.h"

inline PyObject* invalid(const char* message) {
  return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message);
}

inline bool is_finite(double v) { return std::isfinite(v); }

inline PyObject* not_implemented() { return py::new_ref(Py_NotImplemented); }

// The fast path for the exact type: no argument parsing, tracked once the fields are valid.
inline LinExprObject* lin_alloc() {
  LinExprObject* e = PyObject_GC_New(LinExprObject, &LinExprType);
  if (e == nullptr) return nullptr;
  e->constant = 0.0;
  e->cont = nullptr;
  new (&e->terms) TermVec<LinTerm>();
  PyObject_GC_Track(e);
  return e;
}

inline py::Ref own(LinExprObject* e) { return py::Ref::steal(reinterpret_cast<PyObject*>(e)); }

// Copies the own terms of `src` (adding references) and shares its tail.
inline void copy_into(LinExprObject* dst, const LinExprObject* src, size_t extra) {
  dst->terms.reserve(src->terms.size() + extra);
  for (const LinTerm& t : src->terms) {
    Py_INCREF(t.var);
    dst->terms.push_back(t);
  }
  dst->constant = src->constant;
  py::assign(dst->cont, src->cont);
}

// The number protocol of LinExpr (linexpr_number.cpp).
extern PyNumberMethods lin_as_number;

// Pickle support, the `__reduce__` method (linexpr_quicksum.cpp).
PyObject* lin_reduce(PyObject* self, PyObject*);

// Interns the names the shared helpers look up (linexpr_shared.cpp); -1 with an exception set.
int linexpr_shared_init();

// Adds quicksum and the unpickling function to the module (linexpr_quicksum.cpp), after the
// type is ready; -1 with an exception set.
int linexpr_add_functions(PyObject* m);
