// Model methods for general constraints: addGenConstr... and getGenConstr..., and the route
// from addConstr for `x == max_(...)`-style equalities and indicators.
//
// Each adder checks its Python arguments completely before its one library call, so a refused
// call leaves the model as it was; the GenConstr handle is appended only after the library
// accepted the constraint. Readers answer for constraints applied by the last update.
#pragma once

#include "core/py_ref.h"

// Adds the general constraint a TempConstr describes: sense "=" with a single variable on the
// left and a GenExpr on the right (added through the expression's _addAsConstr), or sense "I"
// (an indicator, `(b == 1) >> (x + y <= 2)`). `name` may be nullptr (no name). Returns a new
// GenConstr handle, or nullptr with VelmorError set (model unchanged): a GenExpr on the left,
// a GenExpr not equated with one variable, or a condition that is not one variable compared
// with 0 or 1, are refused with the texts of addConstr. May throw std::bad_alloc, which the
// calling method's guard turns into MemoryError.
PyObject* model_addgenconstr_from_tempconstr(PyObject* model, PyObject* tc, PyObject* name);

// Method-table entries of Model (METH_VARARGS | METH_KEYWORDS for the adders, METH_O for the
// readers); each has its docstring beside it.
PyObject* model_addgenconstrmax(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrmin(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrabs(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrand(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstror(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrnorm(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrindicator(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrpwl(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrpoly(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrexp(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrexpa(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrlog(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrloga(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrpow(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrlogistic(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrsin(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrcos(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_addgenconstrtan(PyObject* self, PyObject* args, PyObject* kwds);

PyObject* model_getgenconstrmax(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrmin(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrabs(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrand(PyObject* self, PyObject* gc);
PyObject* model_getgenconstror(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrnorm(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrindicator(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrpwl(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrpoly(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrexp(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrexpa(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrlog(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrloga(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrpow(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrlogistic(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrsin(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrcos(PyObject* self, PyObject* gc);
PyObject* model_getgenconstrtan(PyObject* self, PyObject* gc);

extern const char model_addgenconstrmax_doc[];
extern const char model_addgenconstrmin_doc[];
extern const char model_addgenconstrabs_doc[];
extern const char model_addgenconstrand_doc[];
extern const char model_addgenconstror_doc[];
extern const char model_addgenconstrnorm_doc[];
extern const char model_addgenconstrindicator_doc[];
extern const char model_addgenconstrpwl_doc[];
extern const char model_addgenconstrpoly_doc[];
extern const char model_addgenconstrexp_doc[];
extern const char model_addgenconstrexpa_doc[];
extern const char model_addgenconstrlog_doc[];
extern const char model_addgenconstrloga_doc[];
extern const char model_addgenconstrpow_doc[];
extern const char model_addgenconstrlogistic_doc[];
extern const char model_addgenconstrsin_doc[];
extern const char model_addgenconstrcos_doc[];
extern const char model_addgenconstrtan_doc[];

extern const char model_getgenconstrmax_doc[];
extern const char model_getgenconstrmin_doc[];
extern const char model_getgenconstrabs_doc[];
extern const char model_getgenconstrand_doc[];
extern const char model_getgenconstror_doc[];
extern const char model_getgenconstrnorm_doc[];
extern const char model_getgenconstrindicator_doc[];
extern const char model_getgenconstrpwl_doc[];
extern const char model_getgenconstrpoly_doc[];
extern const char model_getgenconstrexp_doc[];
extern const char model_getgenconstrexpa_doc[];
extern const char model_getgenconstrlog_doc[];
extern const char model_getgenconstrloga_doc[];
extern const char model_getgenconstrpow_doc[];
extern const char model_getgenconstrlogistic_doc[];
extern const char model_getgenconstrsin_doc[];
extern const char model_getgenconstrcos_doc[];
extern const char model_getgenconstrtan_doc[];
