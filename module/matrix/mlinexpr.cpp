// MLinExpr: arrays of linear expressions. The algebra is shared with MQuadExpr (mexpr.h);
// this file has what only the linear class offers: item() as a LinExpr, the matrices of the
// expression (_extract_Axb) and the constructors the rest of the module names.
#include "core/py_error.h"
#include "core/registry.h"
#include "expr/linexpr.h"
#include "matrix/mexpr.h"
#include "matrix/mvar.h"
#include "matrix/np_call.h"

PyTypeObject MLinExprType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.MLinExpr"};

namespace {

PyObject* ml_item(PyObject* self, PyObject*) {
  MExprObject* x = as_mexpr(self);
  py::Ref size = np::attr(x->constant, "size");
  if (!size) return nullptr;
  if (PyLong_AsLong(size.get()) != 1) {
    return py::raise(PyExc_ValueError, "can only convert an expression of size 1 to a LinExpr");
  }
  // In variable order, as the expression was written.
  py::Ref row = np::meth(np::meth(x->coef, "sorted_indices").get(), "tocoo");
  np::View c, v, vars;
  if (!c.open(np::attr(row.get(), "col").get(), "int64") || !v.open(np::attr(row.get(), "data").get(), "float64") ||
      !vars.open(x->vars, "O")) {
    return nullptr;
  }
  py::Ref k = np::meth(x->constant, "item");
  if (!k) return nullptr;
  py::Ref e = linexpr_new(PyFloat_AsDouble(k.get()));
  if (!e) return nullptr;
  for (Py_ssize_t i = 0; i < c.size(); ++i) {
    PyObject* var = vars.data<PyObject*>()[c.data<long long>()[i]];
    if (linexpr_add(e.get(), var, v.data<double>()[i]) < 0) return nullptr;
  }
  return e.release();
}

// (A, x, b): the coefficient matrix (CSR, one row per element in C order), the variables as a
// 1-D MVar and the constants, so that the expression is (A @ x + b.ravel()).reshape(shape).
PyObject* ml_extract_axb(PyObject* self, PyObject*) {
  MExprObject* e = as_mexpr(self);
  py::Ref x = mvar_fromlist(e->vars);
  if (!x) return nullptr;
  return PyTuple_Pack(3, e->coef, x.get(), e->constant);
}

PyObject* ml_from_mvar(PyObject*, PyObject* mvar) {
  if (!mvar_check(mvar)) return py::raise(PyExc_TypeError, "_from_mvar expects an MVar");
  return mexpr_from_mvar(mvar).release();
}

PyObject* ml_from_matmul_left(PyObject*, PyObject* args) {
  PyObject *e, *M;
  if (!PyArg_ParseTuple(args, "OO:_from_matmul_left", &e, &M)) return nullptr;
  return mexpr_matmul_const(e, M, false).release();
}

PyObject* ml_from_matmul_right(PyObject*, PyObject* args) {
  PyObject *M, *e;
  if (!PyArg_ParseTuple(args, "OO:_from_matmul_right", &M, &e)) return nullptr;
  return mexpr_matmul_const(e, M, true).release();
}

PyMethodDef ml_methods[] = {
    {"item", py::guarded<&ml_item>, METH_NOARGS, "item($self)\n--\n\nThe one expression of a size-1 MLinExpr, as a LinExpr."},
    {"_extract_Axb", py::guarded<&ml_extract_axb>, METH_NOARGS,
     "_extract_Axb($self)\n--\n\n(A, x, b) with the expression equal to A @ x + b element by element (C order)."},
    {"_from_mvar", py::guarded<&ml_from_mvar>, METH_O | METH_STATIC, "_from_mvar(mvar)\n--\n\nThe expression x of an MVar."},
    {"_from_matmul_left", py::guarded<&ml_from_matmul_left>, METH_VARARGS | METH_STATIC,
     "_from_matmul_left(x, M)\n--\n\nx @ M for an MVar or MLinExpr x and a constant ndarray or sparse matrix M."},
    {"_from_matmul_right", py::guarded<&ml_from_matmul_right>, METH_VARARGS | METH_STATIC,
     "_from_matmul_right(M, x)\n--\n\nM @ x for a constant ndarray or sparse matrix M and an MVar or MLinExpr x."},
    {nullptr, nullptr, 0, nullptr}};

const char ml_doc[] =
    "An array of linear expressions, shaped like a NumPy array: the result of arithmetic with\n"
    "MVar objects (A @ x, 2 * x + y, x.sum(axis=0), ...). Operators broadcast as NumPy does;\n"
    "comparisons give a TempConstr that Model.addConstr turns into an MConstr.";

}  // namespace

int register_mlinexpr(PyObject* m) { return mexpr_register(m, &MLinExprType, "MLinExpr", ml_doc, ml_methods); }
