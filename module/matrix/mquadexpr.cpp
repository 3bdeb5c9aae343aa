// MQuadExpr: arrays of quadratic expressions (x * y, x ** 2, x @ Q @ x, ...). The algebra is
// shared with MLinExpr (mexpr.h); this file has item() as a QuadExpr, the matrices of a
// one-element expression (_extract_xQy) and the constructor from two MVar objects.
#include "core/py_error.h"
#include "core/registry.h"
#include "expr/linexpr.h"
#include "expr/quadexpr.h"
#include "matrix/mexpr.h"
#include "matrix/mvar.h"
#include "matrix/np_call.h"

PyTypeObject MQuadExprType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.MQuadExpr"};

namespace {

bool size_one(PyObject* self, const char* what) {
  py::Ref size = np::attr(as_mexpr(self)->constant, "size");
  if (!size) return false;
  if (PyLong_AsLong(size.get()) != 1) {
    PyErr_Format(PyExc_ValueError, "can only convert an expression of size 1 to %s", what);
    return false;
  }
  return true;
}

PyObject* mq_item(PyObject* self, PyObject*) {
  MExprObject* x = as_mexpr(self);
  if (!size_one(self, "a QuadExpr")) return nullptr;
  const long long k = mexpr_nvars(self);
  py::Ref lrow = np::meth(np::meth(x->coef, "sorted_indices").get(), "tocoo");
  py::Ref qrow = np::meth(np::meth(x->qcoef, "sorted_indices").get(), "tocoo");
  np::View lc, lv, qc, qv, vars;
  if (!lc.open(np::attr(lrow.get(), "col").get(), "int64") || !lv.open(np::attr(lrow.get(), "data").get(), "float64") ||
      !qc.open(np::attr(qrow.get(), "col").get(), "int64") || !qv.open(np::attr(qrow.get(), "data").get(), "float64") ||
      !vars.open(x->vars, "O")) {
    return nullptr;
  }
  py::Ref q = quadexpr_from(Py_None);
  py::Ref k0 = np::meth(x->constant, "item");
  if (!q || !k0) return nullptr;
  PyObject** v = vars.data<PyObject*>();
  QuadExprObject* qe = as_quadexpr(q.get());
  as_linexpr(qe->lin)->constant = PyFloat_AsDouble(k0.get());
  for (Py_ssize_t i = 0; i < lc.size(); ++i) {
    if (linexpr_add(qe->lin, v[lc.data<long long>()[i]], lv.data<double>()[i]) < 0) return nullptr;
  }
  qe->terms.reserve(static_cast<size_t>(qc.size()));
  for (Py_ssize_t i = 0; i < qc.size(); ++i) {
    const long long c = qc.data<long long>()[i];
    qe->terms.push_back({qv.data<double>()[i], py::new_ref(v[c / k]), py::new_ref(v[c % k])});
  }
  return q.release();
}

// (Q, x, c, constant) of a one-element expression: x' Q x + c' x + constant, Q a K x K CSR
// matrix over the K variables of the 1-D MVar x.
PyObject* mq_extract_xqy(PyObject* self, PyObject*) {
  MExprObject* e = as_mexpr(self);
  if (!size_one(self, "an objective")) return nullptr;
  const long long k = mexpr_nvars(self);
  py::Ref shape = py::Ref::steal(Py_BuildValue("(LL)", k, k));
  py::Ref Q = np::meth(e->qcoef, "reshape", {shape.get()});
  if (Q) Q = np::spfn("csr_matrix", {Q.get()});
  py::Ref c = np::meth(np::meth(e->coef, "toarray").get(), "ravel");
  py::Ref x = mvar_fromlist(e->vars);
  py::Ref constant = np::meth(e->constant, "item");
  if (!Q || !c || !x || !constant) return nullptr;
  return PyTuple_Pack(4, Q.get(), x.get(), c.get(), constant.get());
}

PyObject* mq_from_mvar_times_mvar(PyObject*, PyObject* args) {
  PyObject *a, *b;
  if (!PyArg_ParseTuple(args, "OO:_from_mvar_times_mvar", &a, &b)) return nullptr;
  if (!mvar_check(a) || !mvar_check(b)) return py::raise(PyExc_TypeError, "_from_mvar_times_mvar expects two MVar");
  return mexpr_product(a, b).release();
}

PyMethodDef mq_methods[] = {
    {"item", py::guarded<&mq_item>, METH_NOARGS, "item($self)\n--\n\nThe one expression of a size-1 MQuadExpr, as a QuadExpr."},
    {"_extract_xQy", py::guarded<&mq_extract_xqy>, METH_NOARGS,
     "_extract_xQy($self)\n--\n\n(Q, x, c, constant) with the one-element expression equal to x' Q x + c' x + constant."},
    {"_from_mvar_times_mvar", py::guarded<&mq_from_mvar_times_mvar>, METH_VARARGS | METH_STATIC,
     "_from_mvar_times_mvar(x, y)\n--\n\nThe elementwise product x * y of two MVar objects (shapes broadcast)."},
    {nullptr, nullptr, 0, nullptr}};

const char mq_doc[] =
    "An array of quadratic expressions, shaped like a NumPy array: the result of x * y, x ** 2,\n"
    "x @ Q @ x and of arithmetic mixing them with linear matrix expressions. Comparisons give a\n"
    "TempConstr that Model.addConstr turns into an MQConstr.";

}  // namespace

int register_mquadexpr(PyObject* m) { return mexpr_register(m, &MQuadExprType, "MQuadExpr", mq_doc, mq_methods); }
