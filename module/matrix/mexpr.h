// The algebra of matrix expressions: arrays of linear (MLinExpr) and quadratic (MQuadExpr)
// expressions, shaped like NumPy arrays.
//
// Storage, shared by both classes: the variables `vars` (1-D object ndarray of K Var handles,
// repeats allowed), the linear coefficients `coef` (scipy.sparse CSR, N x K, one row per
// element in C order), the constants `constant` (float64 ndarray whose shape is the
// expression's shape, N elements) and, for MQuadExpr only, the quadratic coefficients
// `qcoef` (CSR, N x K*K: column i*K + j holds the coefficient of vars[i] * vars[j]). Element e
// is constant.flat[e] + sum_k coef[e, k] vars[k] + sum_{i,j} qcoef[e, i*K + j] vars[i] vars[j].
//
// Every operation is a row selection (indexing, broadcasting, transposition) or a sparse map
// (A @ x, sums over axes) applied to `coef` and `qcoef` alike, or an elementwise product of
// two linear expressions, so the cost follows the arrays and no Python object is made per
// coefficient. Instances are immutable; the class of a result is MQuadExpr exactly when it
// has quadratic coefficients.
#pragma once

#include "core/py_ref.h"

struct MExprObject {
  PyObject_HEAD
  PyObject* vars;      // ndarray (K,) of Var
  PyObject* coef;      // csr_matrix (N, K)
  PyObject* constant;  // ndarray of float64 in the expression's shape
  PyObject* qcoef;     // csr_matrix (N, K*K), or nullptr for an MLinExpr
};

extern PyTypeObject MLinExprType;
extern PyTypeObject MQuadExprType;

inline MExprObject* as_mexpr(PyObject* o) { return reinterpret_cast<MExprObject*>(o); }
inline bool mlinexpr_check(PyObject* o) { return PyObject_TypeCheck(o, &MLinExprType); }
inline bool mquadexpr_check(PyObject* o) { return PyObject_TypeCheck(o, &MQuadExprType); }
inline bool mexpr_check(PyObject* o) { return mlinexpr_check(o) || mquadexpr_check(o); }

// A new expression over the given parts (all must be set, except `qcoef`, which decides the
// class); an empty Ref when any part is empty (its exception is set).
py::Ref mexpr_make(py::Ref vars, py::Ref coef, py::Ref constant, py::Ref qcoef);

// The expression x of an MVar (an identity coefficient matrix). O(size).
py::Ref mexpr_from_mvar(PyObject* mvar);

// The number of variables K and the element count N.
Py_ssize_t mexpr_nvars(PyObject* e);

// Operators, also used by MVar; each takes MVar, MLinExpr, MQuadExpr, Var, LinExpr, QuadExpr,
// numbers and arrays of numbers, and returns NotImplemented for anything else. Shapes
// broadcast as in NumPy; shapes that do not fit raise VelmorError (invalid argument) naming
// both. A product beyond quadratic raises VelmorError.
PyObject* mexpr_add(PyObject* a, PyObject* b);
PyObject* mexpr_sub(PyObject* a, PyObject* b);
PyObject* mexpr_mul(PyObject* a, PyObject* b);
PyObject* mexpr_div(PyObject* a, PyObject* b);
PyObject* mexpr_matmul(PyObject* a, PyObject* b);
PyObject* mexpr_neg(PyObject* a);
PyObject* mexpr_richcompare(PyObject* a, PyObject* b, int op);

// M @ e (`right`) or e @ M for a constant M (ndarray or scipy.sparse). ValueError "Input
// operand does not have enough dimensions" for a 0-D operand.
py::Ref mexpr_matmul_const(PyObject* e, PyObject* M, bool right);
// The elementwise product of two linear operands (an MQuadExpr).
py::Ref mexpr_product(PyObject* a, PyObject* b);
// e.sum(axis): VelmorError "Invalid axis specifications: ..." for a bad axis.
py::Ref mexpr_sum(PyObject* e, PyObject* axis);

// The slots and methods both classes share, and their registration (readies `type`, sets
// `__array_ufunc__ = None` so that NumPy and SciPy hand operators to us, adds it to `m`).
int mexpr_register(PyObject* m, PyTypeObject* type, const char* name, const char* doc, PyMethodDef* extra);
