// MLinExpr: an array of linear expressions, shaped like a NumPy array.
//
// Storage: the variables `vars` (1-D object ndarray, K Var handles, repeats allowed), the
// coefficients `coef` (a scipy.sparse CSR matrix, one row per element in C order, one column
// per entry of `vars`) and the constants `constant` (a float64 ndarray whose shape is the
// expression's shape). Element i is constant.flat[i] + sum_k coef[i, k] * vars[k]. Every
// operation is a sparse matrix product or a row selection on `coef`, so the cost is that of
// the arrays, never one Python object per coefficient. Instances are immutable.
#pragma once

#include "core/py_ref.h"

struct MLinExprObject {
  PyObject_HEAD
  PyObject* vars;      // ndarray (K,) of Var
  PyObject* coef;      // csr_matrix (N, K)
  PyObject* constant;  // ndarray of float64, the expression's shape (N elements)
};

extern PyTypeObject MLinExprType;

inline MLinExprObject* as_mlinexpr(PyObject* o) { return reinterpret_cast<MLinExprObject*>(o); }
inline bool mlinexpr_check(PyObject* o) { return PyObject_TypeCheck(o, &MLinExprType); }

// The expression x of an MVar (an identity coefficient matrix). O(size).
py::Ref mlinexpr_from_mvar(PyObject* mvar);

// M @ expr and expr @ M for a constant M (ndarray or scipy.sparse); `expr` is an MVar or an
// MLinExpr. ValueError "Input operand does not have enough dimensions" for a 0-D operand,
// VelmorError (invalid argument) naming both shapes when they do not fit.
py::Ref mlinexpr_matmul_left(PyObject* expr, PyObject* M);   // expr @ M
py::Ref mlinexpr_matmul_right(PyObject* M, PyObject* expr);  // M @ expr

// The operators, also used by MVar: NotImplemented for operands they do not know.
PyObject* mlinexpr_add(PyObject* a, PyObject* b);
PyObject* mlinexpr_sub(PyObject* a, PyObject* b);
PyObject* mlinexpr_mul(PyObject* a, PyObject* b);
PyObject* mlinexpr_richcompare(PyObject* a, PyObject* b, int op);
// expr.sum(axis): VelmorError "Invalid axis specifications: ..." for a bad axis.
py::Ref mlinexpr_sum(PyObject* expr, PyObject* axis);

int register_mlinexpr(PyObject* m);
