// Model methods that add variables and linear, range, quadratic and SOS constraints, and that
// read or change single coefficients, columns and rows.
//
// Each adding method turns Python objects (numbers, Var, LinExpr, QuadExpr, Column,
// TempConstr) into the library's arrays, checks them all, makes one library call and only then
// appends the new handles, so a refused argument leaves both the library model and the handle
// lists as they were. Every method-table entry is METH_FASTCALL | METH_KEYWORDS.
#pragma once

#include "core/py_ref.h"

// addVar(lb=0.0, ub=inf, obj=0.0, vtype='C', name='', column=None) -> Var
PyObject* model_addvar(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// addVars(*indexes, lb=0.0, ub=inf, obj=0.0, vtype='C', name='') -> tupledict of Var. One
// library call for the whole batch; cost O(number of keys).
PyObject* model_addvars(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// addLConstr(lhs, sense=None, rhs=None, name='') -> Constr
PyObject* model_addlconstr(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// addConstr(constr, name='') and the deprecated addConstr(lhs, sense, rhs, name='') -> Constr,
// QConstr, GenConstr or whatever the matrix layer returns.
PyObject* model_addconstr(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// addQConstr(lhs, sense=None, rhs=None, name='') -> QConstr
PyObject* model_addqconstr(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// addRange(expr, lower, upper, name='') -> Constr
PyObject* model_addrange(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// addConstrs(generator, name='') -> tupledict keyed by the generator's loop values.
PyObject* model_addconstrs(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// addSOS(type, vars, wts=None) -> SOS
PyObject* model_addsos(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// getCoeff(constr, var) -> float
PyObject* model_getcoeff(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// chgCoeff(constr, var, newvalue) -> None
PyObject* model_chgcoeff(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// getCol(var) -> Column
PyObject* model_getcol(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// getRow(constr) -> LinExpr
PyObject* model_getrow(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// getQCRow(qconstr) -> QuadExpr
PyObject* model_getqcrow(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
// getSOS(sos) -> (type, [Var], [weight])
PyObject* model_getsos(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);

extern const char model_addvar_doc[];
extern const char model_addvars_doc[];
extern const char model_addlconstr_doc[];
extern const char model_addconstr_doc[];
extern const char model_addqconstr_doc[];
extern const char model_addrange_doc[];
extern const char model_addconstrs_doc[];
extern const char model_addsos_doc[];
extern const char model_getcoeff_doc[];
extern const char model_chgcoeff_doc[];
extern const char model_getcol_doc[];
extern const char model_getrow_doc[];
extern const char model_getqcrow_doc[];
extern const char model_getsos_doc[];
