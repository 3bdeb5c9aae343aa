// LinExpr: a constant plus (coefficient, variable) terms, and what the other expression
// families share with it: the operand classification every operator uses, and quicksum. The
// term storage is in expr/terms.h.
//
// Terms live in a C++ array of 16-byte (double, Var*) pairs; the Python-visible `_coeffs` and
// `_vars` are lists made on demand. An expression may carry a frozen tail (`_continue`): older
// terms and constant shared with other expressions and never modified again. `a + b` freezes
// its result into a tail once it holds 200 own terms, so a loop `s = s + x` copies at most 199
// terms per step. Readers that need the terms by position flatten first.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "core/py_ref.h"
#include "elements/var.h"
#include "expr/quadexpr.h"
#include "expr/terms.h"

struct LinExprObject {
  PyObject_HEAD
  double constant;
  PyObject* cont;  // the frozen tail (a LinExpr) or nullptr
  TermVec<LinTerm> terms;
};

extern PyTypeObject LinExprType;

inline LinExprObject* as_linexpr(PyObject* o) { return reinterpret_cast<LinExprObject*>(o); }
inline bool linexpr_check(PyObject* o) {
  return Py_IS_TYPE(o, &LinExprType) || PyType_IsSubtype(Py_TYPE(o), &LinExprType);
}

// A sum freezes into a shared tail once it holds this many own terms.
inline constexpr size_t kTailThreshold = 200;

// ---- operand classification -----------------------------------------------------------------

// What an operand of an expression operator is. kNumber also fills the value.
enum OperandKind { kOperandError = -1, kOperandOther = 0, kOperandNumber, kOperandVar,
                   kOperandLinExpr, kOperandQuadExpr };

// The hand-off hook for the matrix layer: an object whose type defines `__array_ufunc__`
// (NumPy arrays, or a matrix class that sets it, e.g. to None), or `__array_priority__`
// without converting to float, is never taken as a scalar. Operators then return
// NotImplemented so that its reflected operator runs.
bool expr_is_array_like(PyObject* o);

// Numbers are the module's scalars: int, float, bool, NumPy scalars and other types that
// convert with float(); arrays and matrix types are not (see expr_is_array_like).
// kOperandError only when converting a number-like object raised something other than the
// usual TypeError/ValueError. Inline, as every operator of every family classifies its
// operands first.
inline int expr_classify(PyObject* o, double* value) {
  PyTypeObject* t = Py_TYPE(o);
  if (t == &PyFloat_Type) {
    *value = PyFloat_AS_DOUBLE(o);
    return kOperandNumber;
  }
  if (t == &LinExprType) return kOperandLinExpr;
  if (var_check(o)) return kOperandVar;
  if (t == &QuadExprType) return kOperandQuadExpr;
  if (PyLong_Check(o)) {
    *value = PyLong_AsDouble(o);
    return (*value == -1.0 && PyErr_Occurred()) ? kOperandError : kOperandNumber;
  }
  if (PyFloat_Check(o)) {
    *value = PyFloat_AS_DOUBLE(o);
    return kOperandNumber;
  }
  if (PyType_IsSubtype(t, &LinExprType)) return kOperandLinExpr;
  if (PyType_IsSubtype(t, &QuadExprType)) return kOperandQuadExpr;
  if (PyUnicode_Check(o) || t == &PyTuple_Type || t == &PyList_Type || expr_is_array_like(o)) return kOperandOther;
  PyNumberMethods* nb = t->tp_as_number;
  if (nb == nullptr || (nb->nb_float == nullptr && nb->nb_index == nullptr)) return kOperandOther;
  double v = PyFloat_AsDouble(o);
  if (v == -1.0 && PyErr_Occurred()) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError) && !PyErr_ExceptionMatches(PyExc_ValueError)) return kOperandError;
    PyErr_Clear();
    return kOperandOther;
  }
  *value = v;
  return kOperandNumber;
}

// The divisor of `e / c`: float(c); false with VelmorError "Divisor must be a constant" when
// that fails, or ZeroDivisionError "float division" for zero.
bool expr_divisor(PyObject* o, double* out);

// The module's scalar test (`__isscalar`): a number in the sense of expr_classify.
bool expr_is_scalar(PyObject* o);

// An object of the matrix layer (MVar, MLinExpr, MQuadExpr), recognised by class name.
bool expr_is_matrix(PyObject* o);
bool expr_is_mvar(PyObject* o);

// A tupledict (a dict subclass of that name; the class itself is written elsewhere).
bool expr_is_tupledict(PyObject* o);

// ---- building and reading (C++ side of the Model, tupledict and the other expressions) -----

// A new empty LinExpr, or the copies the constructor makes.
py::Ref linexpr_new(double constant = 0.0);
py::Ref linexpr_from_term(double coeff, PyObject* var);
py::Ref linexpr_copy(PyObject* e);  // LinExpr(e): own terms copied, tail shared

// Makes `e` self-contained (no tail). Throws std::bad_alloc.
void linexpr_flatten(PyObject* e);

// Number of terms and the constant, over the whole chain, without flattening.
size_t linexpr_total_size(PyObject* e);
double linexpr_total_constant(PyObject* e);

// Calls f(const LinExprObject*) for each node of e's chain, oldest tail first, e last.
template <class F>
void linexpr_for_each_node(PyObject* e, F&& f) {
  PyObject* small[16];
  PyObject** nodes = small;
  size_t n = 0, cap = 16;
  for (PyObject* p = e; p != nullptr; p = as_linexpr(p)->cont) {
    if (n == cap) {
      PyObject** bigger = static_cast<PyObject**>(PyMem_Malloc(2 * cap * sizeof(PyObject*)));
      if (bigger == nullptr) {
        if (nodes != small) PyMem_Free(nodes);
        throw std::bad_alloc();
      }
      std::memcpy(bigger, nodes, n * sizeof(PyObject*));
      if (nodes != small) PyMem_Free(nodes);
      nodes = bigger;
      cap *= 2;
    }
    nodes[n++] = p;
  }
  for (size_t i = n; i-- > 0;) f(static_cast<const LinExprObject*>(as_linexpr(nodes[i])));
  if (nodes != small) PyMem_Free(nodes);
}

// Appends mult times every term of `src`'s chain (in order) to `dst`, adding references, and
// returns mult times src's total constant. Throws std::bad_alloc (leaving dst unchanged).
double linexpr_append_all(TermVec<LinTerm>& dst, PyObject* src, double mult);

// self += mult * other in place (LinExpr.add): 1 done, 0 when `other` is not a Var, LinExpr
// or number (nothing changed, no exception), -1 with an exception set.
int linexpr_add(PyObject* self, PyObject* other, double mult);

// Replaces e's terms, constant and tail by `terms` (whose references move in, leaving it
// empty) and `constant`.
void linexpr_replace(PyObject* e, TermVec<LinTerm>& terms, double constant);

// The readable text of a LinExpr (flattening it): "-3.0 + x + 2.0 y".
bool linexpr_pretty_text(PyObject* e, std::string& out);

// Scales in place (LinExpr._mul); -1 with VelmorError for a NaN or infinite multiplier.
int linexpr_scale(PyObject* self, double mult);

// `a * b` for linear operands (Var, LinExpr, number): a LinExpr, a QuadExpr, or
// NotImplemented.
py::Ref linexpr_multiply(PyObject* a, PyObject* b);

// Hash by identity, as object's (for types that define comparisons but stay usable as keys).
inline Py_hash_t expr_identity_hash(PyObject* self) {
  size_t y = reinterpret_cast<size_t>(self);
  y = (y >> 4) | (y << (8 * sizeof(void*) - 4));
  Py_hash_t x = static_cast<Py_hash_t>(y);
  return x == -1 ? -2 : x;
}

// The shared comparison of LinExpr and QuadExpr: <=, >=, == build a TempConstr.
PyObject* expr_richcompare(PyObject* self, PyObject* other, int op);

// Appends str(v) for a float, as Python prints it.
bool expr_append_float(std::string& out, double v);
// Appends the display name of a Var (first member of Var._safename()).
bool expr_append_varname(std::string& out, PyObject* var);

// Current solution values (the X attribute) of n variables.
bool expr_var_values(PyObject* const* vars, size_t n, size_t stride, double* out);

// The 0-based position of a Python list-style index, or -1 with IndexError.
Py_ssize_t expr_index(PyObject* i, size_t size);

// Identity of a variable for _normalize: its model and position, or the handle itself while
// it has no position.
struct VarKey {
  const void* a;
  long b;
  bool operator==(const VarKey& o) const { return a == o.a && b == o.b; }
};
VarKey expr_var_key(PyObject* var);
bool expr_same_var(PyObject* a, PyObject* b);  // Var.sameAs

// quicksum(iterable): the sum as a new LinExpr (QuadExpr once a quadratic item is met), for
// tupledict.sum/prod and the module function.
py::Ref quicksum_impl(PyObject* iterable);

// The pickle exception class (pickle.PickleError), borrowed after registration.
PyObject* expr_pickle_error();

// The common start of unpickling an expression: checks `checksum` against the three accepted
// ones (PickleError "Incompatible checksums (0x.. vs (a, b, c) = (fields))" otherwise) and that
// `type` is `base` or a subclass, and returns a new empty instance of `type`. `fn` names the
// unpickling function in messages.
py::Ref expr_unpickle_start(const char* fn, PyObject* type, PyObject* checksum,
                            const unsigned long (&accepted)[3], const char* fields, PyTypeObject* base);

int register_linexpr(PyObject* m);
