// The operators of Var (see var_ops.h). Every result is a new expression; a Var operand is
// never changed. Operands of unknown types give NotImplemented, so that a QuadExpr or a
// matrix type on the other side takes over with its reflected operator.
#include "expr/var_ops.h"
#include "core/registry.h"

#include <cmath>

#include "expr/linexpr.h"
#include "core/py_error.h"
#include "expr/tempconstr.h"
#include "elements/var.h"
#include "velmor_c.h"

namespace {

PyObject* not_implemented() { return py::new_ref(Py_NotImplemented); }

// The kind of the operand next to a Var, with float() as the test for numbers (so that
// anything float() accepts multiplies a variable); arrays and matrix types stay "other".
int operand(PyObject* o, double* v) {
  int k = expr_classify(o, v);
  if (k != kOperandOther || expr_is_array_like(o)) return k;
  py::Ref f = py::Ref::steal(PyNumber_Float(o));
  if (!f) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError) && !PyErr_ExceptionMatches(PyExc_ValueError)) return kOperandError;
    PyErr_Clear();
    return kOperandOther;
  }
  *v = PyFloat_AS_DOUBLE(f.get());
  return kOperandNumber;
}

bool linear(int k) { return k == kOperandNumber || k == kOperandVar || k == kOperandLinExpr; }

// `v + e`, `e + v`: LinExpr(v) with e added in place; `v - e`: the same with e subtracted.
PyObject* var_nb_add(PyObject* a, PyObject* b) {
  bool left = var_check(a);
  PyObject* v = left ? a : b;
  PyObject* e = left ? b : a;
  double x = 0;
  int k = expr_classify(e, &x);
  if (k < 0) return nullptr;
  if (!linear(k)) return not_implemented();
  size_t extra = k == kOperandLinExpr ? linexpr_total_size(e) : 1;
  py::Ref r = linexpr_from_term(1.0, v);
  if (!r) return nullptr;
  as_linexpr(r.get())->terms.reserve_more(extra);
  if (linexpr_add(r.get(), e, 1.0) < 0) return nullptr;
  return r.release();
}

PyObject* var_nb_subtract(PyObject* a, PyObject* b) {
  double x = 0;
  if (var_check(a)) {
    int k = expr_classify(b, &x);
    if (k < 0) return nullptr;
    if (!linear(k)) return not_implemented();
    py::Ref r = linexpr_from_term(1.0, a);
    if (!r || linexpr_add(r.get(), b, -1.0) < 0) return nullptr;
    return r.release();
  }
  // e - v: LinExpr(e) minus v.
  int k = expr_classify(a, &x);
  if (k < 0) return nullptr;
  if (!linear(k)) return not_implemented();
  if (k == kOperandNumber && std::isnan(x)) return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Constant is Nan");
  py::Ref r = k == kOperandNumber ? linexpr_new(x) : linexpr_copy(a);
  if (!r || linexpr_add(r.get(), b, -1.0) < 0) return nullptr;
  return r.release();
}

PyObject* var_nb_multiply(PyObject* a, PyObject* b) {
  bool left = var_check(a);
  PyObject* v = left ? a : b;
  PyObject* e = left ? b : a;
  double c = 0;
  int k = operand(e, &c);
  if (k < 0) return nullptr;
  if (k == kOperandNumber) {
    if (!std::isfinite(c)) return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Coefficient is Nan or Inf");
    return linexpr_from_term(c, v).release();
  }
  if (k != kOperandVar && k != kOperandLinExpr) return not_implemented();
  // LinExpr(v) * e, the variable's term first.
  py::Ref lin = linexpr_from_term(1.0, v);
  if (!lin) return nullptr;
  return linexpr_multiply(lin.get(), e).release();
}

PyObject* var_nb_true_divide(PyObject* a, PyObject* b) {
  if (!var_check(a) || expr_is_array_like(b)) return not_implemented();
  double c = 0;
  if (!expr_divisor(b, &c)) return nullptr;
  py::Ref r = linexpr_from_term(1.0, a);
  if (!r || linexpr_scale(r.get(), 1.0 / c) < 0) return nullptr;
  return r.release();
}

PyObject* var_nb_negative(PyObject* self) { return linexpr_from_term(-1.0, self).release(); }

// v ** 2 is v * v; no other power is defined.
PyObject* var_nb_power(PyObject* a, PyObject* b, PyObject* mod) {
  if (!var_check(a) || mod != Py_None) return not_implemented();
  double x = 0;
  int k = expr_classify(b, &x);
  if (k < 0) return nullptr;
  if (k != kOperandNumber || x != 2.0) return not_implemented();
  return var_nb_multiply(a, a);
}

}  // namespace

namespace {

PyNumberMethods var_as_number = {
    .nb_add = py::guarded<&var_nb_add>,
    .nb_subtract = py::guarded<&var_nb_subtract>,
    .nb_multiply = py::guarded<&var_nb_multiply>,
    .nb_power = py::guarded<&var_nb_power>,
    .nb_negative = py::guarded<&var_nb_negative>,
    .nb_true_divide = py::guarded<&var_nb_true_divide>,
};

PyObject* var_richcompare_impl(PyObject* self, PyObject* other, int op) {
  // Strict comparisons fall back to Python's own refusal; the rest build constraints as
  // expressions do.
  if (op == Py_LT || op == Py_GT) return not_implemented();
  return expr_richcompare(self, other, op);
}

PyObject* var_richcompare(PyObject* self, PyObject* other, int op) {
  return py::guarded<&var_richcompare_impl>(self, other, op);
}

}  // namespace

int register_var_ops(PyObject*) {
  PyTypeObject* type = var_type_object();
  type->tp_as_number = &var_as_number;
  type->tp_richcompare = var_richcompare;
  return 0;
}
