// LinExpr (see linexpr.h), the operand classification shared by all expression operators,
// quicksum and the pickling of LinExpr.
#include "expr/linexpr.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "attrs/attrutil.h"
#include "elements/handle.h"
#include "core/py_error.h"
#include "expr/quadexpr.h"
#include "expr/tempconstr.h"
#include "elements/var.h"
#include "velmor_c.h"

PyTypeObject LinExprType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.LinExpr"};

namespace {

PyObject* s_array_ufunc = nullptr;     // "__array_ufunc__"
PyObject* s_array_priority = nullptr;  // "__array_priority__"
PyObject* s_X = nullptr;               // "X"
PyObject* g_unpickle = nullptr;        // velmorpy._unpickle_LinExpr
PyObject* g_pickle_error = nullptr;    // pickle.PickleError

// The checksums of the pickled field layout (_coeffs, _constant, _continue, _vars); the
// first is written, all three are accepted.
constexpr unsigned long kChecksums[] = {0x48e5078, 0xdfd0361, 0xb50ec08};

PyObject* invalid(const char* message) {
  return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message);
}

inline bool is_finite(double v) { return std::isfinite(v); }

PyObject* not_implemented() { return py::new_ref(Py_NotImplemented); }

// ---- allocation ------------------------------------------------------------------------------

// The fast path for the exact type: no argument parsing, tracked once the fields are valid.
LinExprObject* lin_alloc() {
  LinExprObject* e = PyObject_GC_New(LinExprObject, &LinExprType);
  if (e == nullptr) return nullptr;
  e->constant = 0.0;
  e->cont = nullptr;
  new (&e->terms) TermVec<LinTerm>();
  PyObject_GC_Track(e);
  return e;
}

py::Ref own(LinExprObject* e) { return py::Ref::steal(reinterpret_cast<PyObject*>(e)); }

void release_terms(TermVec<LinTerm>& terms) {
  // The references go last: a Var's deallocation may run arbitrary code.
  size_t n = terms.size();
  terms.set_size(0);
  for (size_t i = 0; i < n; ++i) Py_DECREF(terms[i].var);
}

void lin_clear_all(LinExprObject* e) {
  TermVec<LinTerm> old;
  old.take(e->terms);
  PyObject* cont = e->cont;
  e->cont = nullptr;
  e->constant = 0.0;
  release_terms(old);
  Py_XDECREF(cont);
}

PyObject* lin_tp_new(PyTypeObject* type, PyObject*, PyObject*) {
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return nullptr;
  LinExprObject* e = as_linexpr(self);
  e->constant = 0.0;
  e->cont = nullptr;
  new (&e->terms) TermVec<LinTerm>();
  return self;
}

int lin_traverse(PyObject* self, visitproc visit, void* arg) {
  LinExprObject* e = as_linexpr(self);
  Py_VISIT(e->cont);
  for (const LinTerm& t : e->terms) Py_VISIT(t.var);
  return 0;
}

int lin_tp_clear(PyObject* self) {
  lin_clear_all(as_linexpr(self));
  return 0;
}

void lin_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  // Long sums are chains of thousands of tails; the trashcan keeps their release iterative.
  Py_TRASHCAN_BEGIN(self, lin_dealloc)
  LinExprObject* e = as_linexpr(self);
  lin_clear_all(e);
  e->terms.~TermVec<LinTerm>();
  Py_TYPE(self)->tp_free(self);
  Py_TRASHCAN_END
}

// ---- building blocks -------------------------------------------------------------------------

// Copies the own terms of `src` (adding references) and shares its tail.
void copy_into(LinExprObject* dst, const LinExprObject* src, size_t extra) {
  dst->terms.reserve(src->terms.size() + extra);
  for (const LinTerm& t : src->terms) {
    Py_INCREF(t.var);
    dst->terms.push_back(t);
  }
  dst->constant = src->constant;
  py::assign(dst->cont, src->cont);
}

// A new LinExpr of one operand of a known kind (LinExpr(o)), with room for `extra` more terms.
py::Ref lin_of(PyObject* o, int kind, double v, size_t extra) {
  if (kind == kOperandNumber && std::isnan(v)) return py::Ref::steal(invalid("Constant is Nan"));
  LinExprObject* e = lin_alloc();
  if (e == nullptr) return py::Ref();
  py::Ref r = own(e);
  switch (kind) {
    case kOperandLinExpr:
      copy_into(e, as_linexpr(o), extra);
      break;
    case kOperandVar:
      e->terms.reserve(1 + extra);
      Py_INCREF(o);
      e->terms.push_back({1.0, o});
      break;
    default:
      e->constant = v;
      e->terms.reserve(extra);
      break;
  }
  return r;
}

// Freezes a sum with many own terms into the tail of a new empty expression.
py::Ref apply_tail_rule(py::Ref e) {
  if (as_linexpr(e.get())->terms.size() < kTailThreshold) return e;
  LinExprObject* head = lin_alloc();
  if (head == nullptr) return py::Ref();
  head->cont = e.release();
  return own(head);
}

// `a + mult * b` for linear operands: LinExpr(a), b added, then the tail rule.
py::Ref lin_sum(PyObject* a, PyObject* b, double mult) {
  double va = 0, vb = 0;
  int ka = expr_classify(a, &va);
  if (ka < 0) return py::Ref();
  int kb = expr_classify(b, &vb);
  if (kb < 0) return py::Ref();
  if (ka == kOperandOther || ka == kOperandQuadExpr || kb == kOperandOther ||
      kb == kOperandQuadExpr) {
    return py::Ref::steal(not_implemented());
  }
  size_t extra = kb == kOperandVar ? 1 : kb == kOperandLinExpr ? linexpr_total_size(b) : 0;
  py::Ref e = lin_of(a, ka, va, extra);
  if (!e) return e;
  if (linexpr_add(e.get(), b, mult) < 0) return py::Ref();
  return apply_tail_rule(std::move(e));
}

// A float from a Python number for a method argument; false with an exception set.
bool number_arg(PyObject* o, double* v) {
  int k = expr_classify(o, v);
  if (k == kOperandNumber) return true;
  if (k == kOperandOther) PyErr_Format(PyExc_TypeError, "must be real number, not %.200s", Py_TYPE(o)->tp_name);
  return false;
}

// A sequence argument given as a list of terms (list, tuple or other non-text sequence).
bool is_list_arg(PyObject* o) {
  if (PyList_Check(o) || PyTuple_Check(o)) return true;
  if (PyUnicode_Check(o) || PyBytes_Check(o) || PyDict_Check(o) || linexpr_check(o)) return false;
  return PySequence_Check(o) && !var_check(o);
}

// Appends the terms of parallel coefficient and variable sequences; the messages are the
// constructor's and addTerms' shared texts.
int add_term_lists(LinExprObject* e, PyObject* coeffs, PyObject* vars) {
  py::Ref c = py::Ref::steal(PySequence_Fast(coeffs, "First argument should be a list of floats"));
  if (!c) return -1;
  py::Ref v = py::Ref::steal(PySequence_Fast(vars, "Second argument should be a list of Var"));
  if (!v) return -1;
  Py_ssize_t n = PySequence_Fast_GET_SIZE(c.get());
  if (n != PySequence_Fast_GET_SIZE(v.get())) {
    invalid("Linear expression arguments of different length");
    return -1;
  }
  PyObject** ci = PySequence_Fast_ITEMS(c.get());
  PyObject** vi = PySequence_Fast_ITEMS(v.get());
  std::vector<double> values(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (!var_check(vi[i])) {
      invalid("Second argument should be a list of Var");
      return -1;
    }
    int k = expr_classify(ci[i], &values[i]);
    if (k < 0) return -1;
    if (k != kOperandNumber) {
      invalid("First argument should be a list of floats");
      return -1;
    }
    if (!is_finite(values[i])) {
      invalid("Coefficient is Nan or Inf");
      return -1;
    }
  }
  e->terms.reserve_more(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    Py_INCREF(vi[i]);
    e->terms.push_back({values[i], vi[i]});
  }
  return 0;
}

// LinExpr([(coef, var), ...]): any iterable of pairs.
int add_pairs(LinExprObject* e, PyObject* pairs, bool* unusable) {
  py::Ref it = py::Ref::steal(PyObject_GetIter(pairs));
  if (!it) {
    PyErr_Clear();
    *unusable = true;
    return -1;
  }
  while (py::Ref item = py::Ref::steal(PyIter_Next(it.get()))) {
    if (!(PyTuple_Check(item.get()) || PyList_Check(item.get())) || PySequence_Fast_GET_SIZE(item.get()) != 2) {
      *unusable = true;
      return -1;
    }
    PyObject* coef = PySequence_Fast_GET_ITEM(item.get(), 0);
    PyObject* var = PySequence_Fast_GET_ITEM(item.get(), 1);
    if (!var_check(var)) {
      invalid("Second tuple member should be a Var");
      return -1;
    }
    double c = 0;
    int k = expr_classify(coef, &c);
    if (k < 0) return -1;
    if (k != kOperandNumber) {
      invalid("First tuple member should be a number");
      return -1;
    }
    if (!is_finite(c)) {
      invalid("Coefficient is Nan or Inf");
      return -1;
    }
    Py_INCREF(var);
    e->terms.push_back({c, var});
  }
  return PyErr_Occurred() ? -1 : 0;
}

int no_constructor(PyObject* arg1, PyObject* arg2) {
  py::Ref text = py::Ref::steal(PyUnicode_FromFormat("No constructor available for LinExpr(%S, %S)", arg1, arg2));
  if (!text) return -1;
  raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, PyUnicode_AsUTF8(text.get()));
  return -1;
}

// LinExpr(arg1=None, arg2=None).
int lin_init(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"arg1", "arg2", nullptr};
  PyObject* arg1 = Py_None;
  PyObject* arg2 = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|OO:LinExpr", const_cast<char**>(kwlist), &arg1, &arg2)) {
    return -1;
  }
  LinExprObject* e = as_linexpr(self);
  lin_clear_all(e);
  if (arg1 == Py_None && arg2 == Py_None) return 0;
  double v = 0;
  int k = expr_classify(arg1, &v);
  if (k < 0) return -1;
  if (arg2 == Py_None) {
    switch (k) {
      case kOperandVar:
        Py_INCREF(arg1);
        e->terms.push_back({1.0, arg1});
        return 0;
      case kOperandLinExpr:
        copy_into(e, as_linexpr(arg1), 0);
        return 0;
      case kOperandNumber:
        if (std::isnan(v)) {
          invalid("Constant is Nan");
          return -1;
        }
        e->constant = v;
        return 0;
      case kOperandOther: {
        bool unusable = false;
        if (add_pairs(e, arg1, &unusable) == 0) return 0;
        if (!unusable) return -1;
        lin_clear_all(e);
        return no_constructor(arg1, arg2);
      }
      default:
        return no_constructor(arg1, arg2);
    }
  }
  if (k == kOperandNumber && var_check(arg2)) {
    if (!is_finite(v)) {
      invalid("Coefficient is Nan or Inf");
      return -1;
    }
    Py_INCREF(arg2);
    e->terms.push_back({v, arg2});
    return 0;
  }
  if (is_list_arg(arg1) && is_list_arg(arg2)) return add_term_lists(e, arg1, arg2);
  return no_constructor(arg1, arg2);
}

// ---- methods ---------------------------------------------------------------------------------

PyObject* lin_add_method(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"arg1", "mult", nullptr};
  PyObject* arg1 = nullptr;
  double mult = 1.0;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O|d:add", const_cast<char**>(kwlist), &arg1, &mult)) {
    return nullptr;
  }
  int r = linexpr_add(self, arg1, mult);
  if (r < 0) return nullptr;
  if (r == 0) {
    py::Ref type = py::Ref::steal(PyObject_Str(reinterpret_cast<PyObject*>(Py_TYPE(arg1))));
    if (!type) return nullptr;
    std::string msg = std::string("Unsupported type (") + PyUnicode_AsUTF8(type.get()) + ") for LinExpr addition argument";
    return invalid(msg.c_str());
  }
  return py::none();
}

PyObject* lin_addconstant(PyObject* self, PyObject* arg) {
  double v = 0;
  if (!number_arg(arg, &v)) return nullptr;
  if (std::isnan(v)) return invalid("Constant is Nan");
  as_linexpr(self)->constant += v;
  return py::none();
}

PyObject* lin_addterms(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 2) return py::raise(PyExc_TypeError, "addTerms() takes exactly 2 arguments (newcoeffs, newvars)");
  PyObject* coeffs = args[0];
  PyObject* vars = args[1];
  LinExprObject* e = as_linexpr(self);
  double c = 0;
  int k = expr_classify(coeffs, &c);
  if (k < 0) return nullptr;
  if (k == kOperandNumber && var_check(vars)) {
    if (!is_finite(c)) return invalid("Coefficient is Nan or Inf");
    Py_INCREF(vars);
    e->terms.push_back({c, vars});
    return py::none();
  }
  if (is_list_arg(coeffs) && is_list_arg(vars)) {
    if (add_term_lists(e, coeffs, vars) < 0) return nullptr;
    return py::none();
  }
  if (is_list_arg(coeffs)) return invalid("Second argument should be a list of Var");
  return invalid("Unrecognized arguments");
}

PyObject* lin_size(PyObject* self, PyObject*) {
  linexpr_flatten(self);
  return PyLong_FromSize_t(as_linexpr(self)->terms.size());
}

PyObject* lin_getconstant(PyObject* self, PyObject*) {
  linexpr_flatten(self);
  return PyFloat_FromDouble(as_linexpr(self)->constant);
}

PyObject* lin_getcoeff(PyObject* self, PyObject* i) {
  linexpr_flatten(self);
  LinExprObject* e = as_linexpr(self);
  Py_ssize_t k = expr_index(i, e->terms.size());
  if (k < 0) return nullptr;
  return PyFloat_FromDouble(e->terms[static_cast<size_t>(k)].coeff);
}

PyObject* lin_getvar(PyObject* self, PyObject* i) {
  linexpr_flatten(self);
  LinExprObject* e = as_linexpr(self);
  Py_ssize_t k = expr_index(i, e->terms.size());
  if (k < 0) return nullptr;
  return py::new_ref(e->terms[static_cast<size_t>(k)].var);
}

PyObject* lin_getvalue(PyObject* self, PyObject*) {
  linexpr_flatten(self);
  LinExprObject* e = as_linexpr(self);
  size_t n = e->terms.size();
  std::vector<double> x(n);
  if (!expr_var_values(n ? &e->terms[0].var : nullptr, n, sizeof(LinTerm), x.data())) return nullptr;
  double value = e->constant;
  for (size_t i = 0; i < n; ++i) value += e->terms[i].coeff * x[i];
  return PyFloat_FromDouble(value);
}

PyObject* lin_remove(PyObject* self, PyObject* item) {
  linexpr_flatten(self);
  LinExprObject* e = as_linexpr(self);
  if (PyLong_Check(item)) {
    Py_ssize_t k = expr_index(item, e->terms.size());
    if (k < 0) return nullptr;
    PyObject* var = e->terms[static_cast<size_t>(k)].var;
    e->terms.erase(static_cast<size_t>(k));
    Py_DECREF(var);
    return py::none();
  }
  if (!var_check(item)) {
    return PyErr_Format(PyExc_TypeError, "LinExpr.remove() takes an int or a Var, not %.200s", Py_TYPE(item)->tp_name);
  }
  std::vector<PyObject*> dropped;
  size_t w = 0;
  for (size_t r = 0; r < e->terms.size(); ++r) {
    if (expr_same_var(e->terms[r].var, item)) {
      dropped.push_back(e->terms[r].var);
    } else {
      e->terms[w++] = e->terms[r];
    }
  }
  e->terms.set_size(w);
  for (PyObject* v : dropped) Py_DECREF(v);
  return py::none();
}

PyObject* lin_clear_method(PyObject* self, PyObject*) {
  lin_clear_all(as_linexpr(self));
  return py::none();
}

PyObject* lin_copy(PyObject* self, PyObject*) { return linexpr_copy(self).release(); }

PyObject* lin_copy_memo(PyObject* self, PyObject*) { return linexpr_copy(self).release(); }

PyObject* lin_flatten_method(PyObject* self, PyObject*) {
  linexpr_flatten(self);
  return py::none();
}

struct VarKeyHash {
  size_t operator()(const VarKey& k) const {
    return std::hash<const void*>()(k.a) * 1000003u ^ std::hash<long>()(k.b);
  }
};

PyObject* lin_normalize(PyObject* self, PyObject*) {
  linexpr_flatten(self);
  LinExprObject* e = as_linexpr(self);
  std::unordered_map<VarKey, size_t, VarKeyHash> first;
  first.reserve(e->terms.size());
  std::vector<PyObject*> dropped;
  size_t w = 0;
  for (size_t r = 0; r < e->terms.size(); ++r) {
    LinTerm t = e->terms[r];
    auto [pos, inserted] = first.try_emplace(expr_var_key(t.var), w);
    if (inserted) {
      e->terms[w++] = t;
    } else {
      e->terms[pos->second].coeff += t.coeff;
      dropped.push_back(t.var);
    }
  }
  e->terms.set_size(w);
  for (PyObject* v : dropped) Py_DECREF(v);
  return py::none();
}

PyObject* lin_mul_method(PyObject* self, PyObject* arg) {
  double v = 0;
  int k = expr_classify(arg, &v);
  if (k < 0) return nullptr;
  if (k != kOperandNumber) return invalid("Invalid argument to LinExpr multiplication");
  if (linexpr_scale(self, v) < 0) return nullptr;
  return py::new_ref(self);
}

// The readable text; also the repr's and str's content.
py::Ref pretty(PyObject* self) {
  std::string out;
  if (!linexpr_pretty_text(self, out)) return py::Ref();
  return py::str(out);
}

PyObject* lin_prettystring(PyObject* self, PyObject*) { return pretty(self).release(); }

PyObject* lin_str(PyObject* self) { return pretty(self).release(); }

PyObject* lin_repr(PyObject* self) {
  py::Ref text = pretty(self);
  if (!text) return nullptr;
  return PyUnicode_FromFormat("<velmor.LinExpr: %U>", text.get());
}

// One line per node of the chain, newest first.
PyObject* lin_dbgprint(PyObject* self, PyObject*) {
  for (PyObject* p = self; p != nullptr; p = as_linexpr(p)->cont) {
    std::string line = "<DBGLinExpr len=" + std::to_string(as_linexpr(p)->terms.size()) + " const=";
    if (!expr_append_float(line, as_linexpr(p)->constant)) return nullptr;
    line += ">\n";
    PySys_WriteStdout("%s", line.c_str());
  }
  return py::none();
}

// Pickled state: the whole chain as one node (a chain of thousands of tails would exceed the
// pickler's recursion limit), in the field order _coeffs, _constant, _continue, _vars.
PyObject* lin_reduce(PyObject* self, PyObject*) {
  size_t n = linexpr_total_size(self);
  py::Ref coeffs = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(n)));
  py::Ref vars = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(n)));
  if (!coeffs || !vars) return nullptr;
  size_t i = 0;
  bool ok = true;
  linexpr_for_each_node(self, [&](const LinExprObject* node) {
    for (const LinTerm& t : node->terms) {
      PyObject* c = PyFloat_FromDouble(t.coeff);
      if (c == nullptr) {
        ok = false;
        return;
      }
      PyList_SET_ITEM(coeffs.get(), static_cast<Py_ssize_t>(i), c);
      PyList_SET_ITEM(vars.get(), static_cast<Py_ssize_t>(i), py::new_ref(t.var));
      ++i;
    }
  });
  if (!ok) return nullptr;
  return Py_BuildValue("O(Ok(OdOO))", g_unpickle, reinterpret_cast<PyObject*>(Py_TYPE(self)), kChecksums[0],
                       coeffs.get(), linexpr_total_constant(self), Py_None, vars.get());
}

// ---- properties ------------------------------------------------------------------------------

PyObject* get_constant(PyObject* self, void*) { return PyFloat_FromDouble(as_linexpr(self)->constant); }

int set_constant(PyObject* self, PyObject* value, void*) {
  if (value == nullptr) {
    PyErr_SetString(PyExc_TypeError, "_constant cannot be deleted");
    return -1;
  }
  double v = PyFloat_AsDouble(value);
  if (v == -1.0 && PyErr_Occurred()) return -1;
  as_linexpr(self)->constant = v;
  return 0;
}

PyObject* get_coeffs(PyObject* self, void*) {
  LinExprObject* e = as_linexpr(self);
  py::Ref list = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(e->terms.size())));
  if (!list) return nullptr;
  for (size_t i = 0; i < e->terms.size(); ++i) {
    PyObject* c = PyFloat_FromDouble(e->terms[i].coeff);
    if (c == nullptr) return nullptr;
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), c);
  }
  return list.release();
}

PyObject* get_vars(PyObject* self, void*) {
  LinExprObject* e = as_linexpr(self);
  PyObject* list = PyList_New(static_cast<Py_ssize_t>(e->terms.size()));
  if (list == nullptr) return nullptr;
  for (size_t i = 0; i < e->terms.size(); ++i) {
    PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), py::new_ref(e->terms[i].var));
  }
  return list;
}

PyObject* get_continue(PyObject* self, void*) {
  PyObject* c = as_linexpr(self)->cont;
  return py::new_ref(c ? c : Py_None);
}

// ---- number protocol -------------------------------------------------------------------------

PyObject* lin_nb_add(PyObject* a, PyObject* b) { return lin_sum(a, b, 1.0).release(); }

PyObject* lin_nb_subtract(PyObject* a, PyObject* b) { return lin_sum(a, b, -1.0).release(); }

PyObject* lin_inplace(PyObject* self, PyObject* other, double mult) {
  if (!linexpr_check(self)) return not_implemented();
  int r = linexpr_add(self, other, mult);
  if (r < 0) return nullptr;
  if (r == 0) return not_implemented();
  return py::new_ref(self);
}

PyObject* lin_nb_iadd(PyObject* self, PyObject* other) { return lin_inplace(self, other, 1.0); }

PyObject* lin_nb_isub(PyObject* self, PyObject* other) { return lin_inplace(self, other, -1.0); }

PyObject* lin_nb_multiply(PyObject* a, PyObject* b) { return linexpr_multiply(a, b).release(); }

PyObject* lin_nb_imul(PyObject* self, PyObject* other) {
  if (!linexpr_check(self)) return not_implemented();
  double v = 0;
  int k = expr_classify(other, &v);
  if (k < 0) return nullptr;
  if (k == kOperandNumber) {
    if (linexpr_scale(self, v) < 0) return nullptr;
    return py::new_ref(self);
  }
  return linexpr_multiply(self, other).release();
}

PyObject* lin_nb_true_divide(PyObject* a, PyObject* b) {
  if (!linexpr_check(a) || expr_is_array_like(b)) return not_implemented();
  double c = 0;
  if (!expr_divisor(b, &c)) return nullptr;
  py::Ref e = linexpr_copy(a);
  if (!e || linexpr_scale(e.get(), 1.0 / c) < 0) return nullptr;
  return e.release();
}

PyObject* lin_nb_negative(PyObject* self) {
  py::Ref e = linexpr_copy(self);
  if (!e || linexpr_scale(e.get(), -1.0) < 0) return nullptr;
  return e.release();
}

PyObject* lin_nb_power(PyObject* a, PyObject* b, PyObject* mod) {
  if (!linexpr_check(a) || mod != Py_None) return not_implemented();
  double v = 0;
  int k = expr_classify(b, &v);
  if (k < 0) return nullptr;
  if (k != kOperandNumber || v != 2.0) return not_implemented();
  return linexpr_multiply(a, a).release();
}

PyNumberMethods lin_as_number = {
    .nb_add = py::guarded<&lin_nb_add>,
    .nb_subtract = py::guarded<&lin_nb_subtract>,
    .nb_multiply = py::guarded<&lin_nb_multiply>,
    .nb_power = py::guarded<&lin_nb_power>,
    .nb_negative = py::guarded<&lin_nb_negative>,
    .nb_inplace_add = py::guarded<&lin_nb_iadd>,
    .nb_inplace_subtract = py::guarded<&lin_nb_isub>,
    .nb_inplace_multiply = py::guarded<&lin_nb_imul>,
    .nb_true_divide = py::guarded<&lin_nb_true_divide>,
};

// ---- quicksum --------------------------------------------------------------------------------

// Accumulates items into a LinExpr, switching to a QuadExpr at the first quadratic item and to
// Python's in-place addition at the first item of any other type (matrix expressions, user
// types), so that such items still reach their own operators.
class Summer {
 public:
  bool start(size_t hint) {
    LinExprObject* e = lin_alloc();
    if (e == nullptr) return false;
    lin_ = own(e);
    if (hint) e->terms.reserve(hint);
    return true;
  }

  bool add(PyObject* item) {
    if (generic_) return add_generic(item);
    double v = 0;
    int k = expr_classify(item, &v);
    if (k < 0) return false;
    LinExprObject* e = as_linexpr(lin_.get());
    switch (k) {
      case kOperandVar:
        Py_INCREF(item);
        e->terms.push_back({1.0, item});
        return true;
      case kOperandLinExpr:
        e->constant += linexpr_append_all(e->terms, item, 1.0);
        return true;
      case kOperandNumber:
        if (std::isnan(v)) {
          invalid("Constant is Nan");
          return false;
        }
        e->constant += v;
        return true;
      case kOperandQuadExpr:
        if (!quad_) {
          quad_ = quadexpr_from(nullptr);
          if (!quad_) return false;
          // The linear sum so far becomes the quadratic expression's linear part.
          py::Ref old = py::Ref::steal(as_quadexpr(quad_.get())->lin);
          as_quadexpr(quad_.get())->lin = lin_.release();
          lin_ = py::Ref::borrow(as_quadexpr(quad_.get())->lin);
        }
        return quadexpr_add(quad_.get(), item, 1.0) >= 0;
      default:
        acc_ = result();
        generic_ = true;
        return add_generic(item);
    }
  }

  py::Ref result() {
    if (generic_) return std::move(acc_);
    as_linexpr(lin_.get())->terms.shrink();
    if (quad_) return std::move(quad_);
    return std::move(lin_);
  }

 private:
  bool add_generic(PyObject* item) {
    acc_ = py::Ref::steal(PyNumber_InPlaceAdd(acc_.get(), item));
    return static_cast<bool>(acc_);
  }

  py::Ref lin_;
  py::Ref quad_;
  py::Ref acc_;
  bool generic_ = false;
};

PyObject* quicksum_fn(PyObject*, PyObject* arg) { return quicksum_impl(arg).release(); }

PyObject* unpickle_fn(PyObject*, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 3) return py::raise(PyExc_TypeError, "_unpickle_LinExpr() takes exactly 3 arguments");
  py::Ref result = expr_unpickle_start("_unpickle_LinExpr", args[0], args[1], kChecksums,
                                       "_coeffs, _constant, _continue, _vars", &LinExprType);
  if (!result) return nullptr;
  PyObject* state = args[2];
  if (state == Py_None) return result.release();
  if (!PyTuple_Check(state) || PyTuple_GET_SIZE(state) < 4) {
    return py::raise(PyExc_TypeError, "LinExpr state must be a tuple (_coeffs, _constant, _continue, _vars)");
  }
  PyObject* coeffs = PyTuple_GET_ITEM(state, 0);
  PyObject* cont = PyTuple_GET_ITEM(state, 2);
  PyObject* vars = PyTuple_GET_ITEM(state, 3);
  double constant = PyFloat_AsDouble(PyTuple_GET_ITEM(state, 1));
  if (constant == -1.0 && PyErr_Occurred()) return nullptr;
  if (!PyList_Check(coeffs) || !PyList_Check(vars) || PyList_GET_SIZE(coeffs) != PyList_GET_SIZE(vars)) {
    return py::raise(PyExc_TypeError, "LinExpr state: _coeffs and _vars must be lists of one length");
  }
  if (cont != Py_None && !linexpr_check(cont)) {
    return py::raise(PyExc_TypeError, "LinExpr state: _continue must be a LinExpr or None");
  }
  LinExprObject* e = as_linexpr(result.get());
  Py_ssize_t n = PyList_GET_SIZE(coeffs);
  std::vector<double> c(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    c[i] = PyFloat_AsDouble(PyList_GET_ITEM(coeffs, i));
    if (c[i] == -1.0 && PyErr_Occurred()) return nullptr;
    if (!var_check(PyList_GET_ITEM(vars, i))) return py::raise(PyExc_TypeError, "LinExpr state: _vars must hold Var objects");
  }
  e->terms.reserve(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* v = PyList_GET_ITEM(vars, i);
    Py_INCREF(v);
    e->terms.push_back({c[i], v});
  }
  e->constant = constant;
  if (cont != Py_None) py::assign(e->cont, cont);
  return result.release();
}

// ---- tables ----------------------------------------------------------------------------------

PyMethodDef lin_methods[] = {
    {"add", (PyCFunction)(void (*)(void))py::guarded<&lin_add_method>, METH_VARARGS | METH_KEYWORDS,
     "add(expr, mult=1.0)\n\nAdds mult times expr in place. expr may be a Var, a LinExpr or a number:\n\n"
     "    e.add(x, 2.0)     # e + 2 x\n    e.add(other)      # e + other\n"},
    {"addConstant", py::guarded<&lin_addconstant>, METH_O,
     "addConstant(constant)\n\nAdds a number to the constant of the expression."},
    {"addTerms", (PyCFunction)(void (*)(void))py::guarded<&lin_addterms>, METH_FASTCALL,
     "addTerms(newcoeffs, newvars)\n\nAdds terms: one coefficient and one Var, or a list of\n"
     "coefficients and a list of Var of the same length:\n\n"
     "    e.addTerms([1.0, 2.0], [x, y])\n"},
    {"size", py::guarded<&lin_size>, METH_NOARGS,
     "size()\n\nThe number of terms. A variable that occurs in several terms counts each time."},
    {"getConstant", py::guarded<&lin_getconstant>, METH_NOARGS, "getConstant()\n\nThe constant of the expression."},
    {"getCoeff", py::guarded<&lin_getcoeff>, METH_O, "getCoeff(i)\n\nThe coefficient of term i."},
    {"getVar", py::guarded<&lin_getvar>, METH_O, "getVar(i)\n\nThe variable of term i."},
    {"getValue", py::guarded<&lin_getvalue>, METH_NOARGS,
     "getValue()\n\nThe value of the expression in the current solution (the variables' X)."},
    {"remove", py::guarded<&lin_remove>, METH_O,
     "remove(item)\n\nRemoves the term at position item (an int), or every term of a Var."},
    {"clear", py::guarded<&lin_clear_method>, METH_NOARGS, "clear()\n\nMakes the expression empty: no terms, constant 0."},
    {"copy", py::guarded<&lin_copy>, METH_NOARGS, "copy()\n\nA copy of the expression."},
    {"_mul", py::guarded<&lin_mul_method>, METH_O, "_mul(multiplier)\n\nScales the expression in place; returns it."},
    {"_flatten", py::guarded<&lin_flatten_method>, METH_NOARGS,
     "_flatten()\n\nMoves the terms of the shared tail into the expression itself."},
    {"_normalize", py::guarded<&lin_normalize>, METH_NOARGS,
     "_normalize()\n\nMerges the terms of each variable into its first term."},
    {"_asprettystring", py::guarded<&lin_prettystring>, METH_NOARGS, "_asprettystring()\n\nThe readable text."},
    {"_dbgprint", py::guarded<&lin_dbgprint>, METH_NOARGS, "_dbgprint()\n\nPrints the chain of tails."},
    {"__reduce__", py::guarded<&lin_reduce>, METH_NOARGS, "Pickle support."},
    {"__copy__", py::guarded<&lin_copy>, METH_NOARGS, "copy.copy(): same as copy()."},
    {"__deepcopy__", py::guarded<&lin_copy_memo>, METH_O,
     "copy.deepcopy(): same as copy(); variables are handles and are never duplicated."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef lin_getset[] = {
    {"_constant", get_constant, set_constant, "The constant of the own part.", nullptr},
    {"_coeffs", get_coeffs, nullptr, "The coefficients of the own terms (a new list).", nullptr},
    {"_vars", get_vars, nullptr, "The variables of the own terms (a new list).", nullptr},
    {"_continue", get_continue, nullptr, "The frozen shared tail (a LinExpr) or None.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

PyMethodDef module_functions[] = {
    {"quicksum", py::guarded<&quicksum_fn>, METH_O,
     "A quicker version of the Python built-in 'sum' function for building expressions:\n"
     "quicksum(iterable) adds the items into one new expression without intermediate results.\n\n"
     "    expr = quicksum(c[i] * x[i] for i in range(n))\n\n"
     "The result is a LinExpr, or a QuadExpr once a quadratic item is met. A tupledict is\n"
     "summed over its values; matrix objects are summed with their own sum()."},
    {"_unpickle_LinExpr", (PyCFunction)(void (*)(void))py::guarded<&unpickle_fn>, METH_FASTCALL,
     "Rebuilds a pickled LinExpr."},
    {nullptr, nullptr, 0, nullptr}};

const char lin_doc[] =
    "LinExpr(arg1=None, arg2=None)\n\n"
    "A linear expression: a constant plus terms coefficient * variable. Usually built with\n"
    "operators (x + 2 * y - 3) or quicksum; the constructor accepts:\n\n"
    "    LinExpr()                      # 0.0\n"
    "    LinExpr(x)                     # x\n"
    "    LinExpr(5)                     # the constant 5.0\n"
    "    LinExpr(2.0, x)                # 2 x\n"
    "    LinExpr([1.0, 2.0], [x, y])    # x + 2 y\n"
    "    LinExpr([(1.0, x), (2.0, y)])  # x + 2 y\n"
    "    LinExpr(e)                     # a copy of e\n\n"
    "Terms are kept as added: a variable may occur more than once. Comparisons (<=, >=, ==)\n"
    "build a TempConstr for Model.addConstr.";

}  // namespace

// ---- shared helpers --------------------------------------------------------------------------

bool expr_is_array_like(PyObject* o) {
  PyTypeObject* t = Py_TYPE(o);
  if (_PyType_Lookup(t, s_array_ufunc) != nullptr) return true;
  if (_PyType_Lookup(t, s_array_priority) == nullptr) return false;
  PyNumberMethods* nb = t->tp_as_number;
  return !(nb != nullptr && (nb->nb_float != nullptr || nb->nb_index != nullptr));
}

int expr_classify(PyObject* o, double* value) {
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

bool expr_divisor(PyObject* o, double* out) {
  py::Ref f = py::Ref::steal(PyNumber_Float(o));
  if (!f) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError) && !PyErr_ExceptionMatches(PyExc_ValueError)) return false;
    PyErr_Clear();
    invalid("Divisor must be a constant");
    return false;
  }
  *out = PyFloat_AS_DOUBLE(f.get());
  if (*out == 0.0) {
    PyErr_SetString(PyExc_ZeroDivisionError, "float division");
    return false;
  }
  return true;
}

bool expr_is_scalar(PyObject* o) {
  double v = 0;
  int k = expr_classify(o, &v);
  if (k < 0) PyErr_Clear();
  return k == kOperandNumber;
}

namespace {

// The class name without its module part.
const char* short_name(PyTypeObject* t) {
  const char* dot = std::strrchr(t->tp_name, '.');
  return dot ? dot + 1 : t->tp_name;
}

template <class Pred>
bool mro_has(PyObject* o, Pred pred) {
  PyObject* mro = Py_TYPE(o)->tp_mro;
  if (mro == nullptr || !PyTuple_Check(mro)) return pred(short_name(Py_TYPE(o)));
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(mro); ++i) {
    if (pred(short_name(reinterpret_cast<PyTypeObject*>(PyTuple_GET_ITEM(mro, i))))) return true;
  }
  return false;
}

bool is_plain(PyObject* o) {
  PyTypeObject* t = Py_TYPE(o);
  return t == &PyFloat_Type || t == &PyLong_Type || t == &LinExprType || t == &QuadExprType || var_check(o);
}

}  // namespace

bool expr_is_matrix(PyObject* o) {
  if (is_plain(o)) return false;
  return mro_has(o, [](const char* n) {
    return std::strcmp(n, "MVar") == 0 || std::strcmp(n, "MLinExpr") == 0 || std::strcmp(n, "MQuadExpr") == 0;
  });
}

bool expr_is_mvar(PyObject* o) {
  if (is_plain(o)) return false;
  return mro_has(o, [](const char* n) { return std::strcmp(n, "MVar") == 0; });
}

bool expr_is_tupledict(PyObject* o) {
  if (!PyDict_Check(o) || PyDict_CheckExact(o)) return false;
  return mro_has(o, [](const char* n) { return std::strcmp(n, "tupledict") == 0; });
}

py::Ref linexpr_new(double constant) {
  LinExprObject* e = lin_alloc();
  if (e == nullptr) return py::Ref();
  e->constant = constant;
  return own(e);
}

py::Ref linexpr_from_term(double coeff, PyObject* var) {
  LinExprObject* e = lin_alloc();
  if (e == nullptr) return py::Ref();
  Py_INCREF(var);
  e->terms.push_back({coeff, var});
  return own(e);
}

py::Ref linexpr_copy(PyObject* src) {
  LinExprObject* e = lin_alloc();
  if (e == nullptr) return py::Ref();
  py::Ref r = own(e);
  copy_into(e, as_linexpr(src), 0);
  return r;
}

size_t linexpr_total_size(PyObject* e) {
  size_t n = 0;
  for (PyObject* p = e; p != nullptr; p = as_linexpr(p)->cont) n += as_linexpr(p)->terms.size();
  return n;
}

double linexpr_total_constant(PyObject* e) {
  if (as_linexpr(e)->cont == nullptr) return as_linexpr(e)->constant;
  double c = 0.0;
  linexpr_for_each_node(e, [&](const LinExprObject* node) { c += node->constant; });
  return c;
}

void linexpr_flatten(PyObject* self) {
  LinExprObject* e = as_linexpr(self);
  if (e->cont == nullptr) return;
  TermVec<LinTerm> all;
  all.reserve(linexpr_total_size(self));
  double constant = 0.0;
  linexpr_for_each_node(self, [&](const LinExprObject* node) {
    constant += node->constant;
    if (node == e) {
      all.append(node->terms.data(), node->terms.size());  // the own references move
    } else {
      for (const LinTerm& t : node->terms) {
        Py_INCREF(t.var);
        all.push_back(t);
      }
    }
  });
  e->terms.reset();
  e->terms.take(all);
  e->constant = constant;
  Py_CLEAR(e->cont);
}

double linexpr_append_all(TermVec<LinTerm>& dst, PyObject* src, double mult) {
  const LinExprObject* e = as_linexpr(src);
  if (e->cont == nullptr) {
    // The common case (one node, such as the `c * x` items of a sum) without the node list.
    const size_t n = e->terms.size();
    dst.reserve_more(n);
    const LinTerm* t = e->terms.data();  // stable: room was made above
    for (size_t i = 0; i < n; ++i) {
      Py_INCREF(t[i].var);
      dst.push_back({mult == 1.0 ? t[i].coeff : t[i].coeff * mult, t[i].var});
    }
    return mult == 1.0 ? e->constant : e->constant * mult;
  }
  // Sizes are taken first: `src` may be the very expression that `dst` belongs to.
  struct Node {
    const LinExprObject* e;
    size_t n;
  };
  std::vector<Node> nodes;
  size_t total = 0;
  linexpr_for_each_node(src, [&](const LinExprObject* node) {
    nodes.push_back({node, node->terms.size()});
    total += node->terms.size();
  });
  dst.reserve_more(total);
  double constant = 0.0;
  for (const Node& node : nodes) {
    constant += node.e->constant;
    const LinTerm* t = node.e->terms.data();
    for (size_t i = 0; i < node.n; ++i) {
      Py_INCREF(t[i].var);
      dst.push_back({mult == 1.0 ? t[i].coeff : t[i].coeff * mult, t[i].var});
    }
  }
  return mult == 1.0 ? constant : constant * mult;
}

int linexpr_add(PyObject* self, PyObject* other, double mult) {
  LinExprObject* e = as_linexpr(self);
  double v = 0;
  switch (expr_classify(other, &v)) {
    case kOperandError:
      return -1;
    case kOperandVar:
      if (!is_finite(mult)) {
        invalid("Coefficient is Nan or Inf");
        return -1;
      }
      Py_INCREF(other);
      try {
        e->terms.push_back({mult, other});
      } catch (...) {
        Py_DECREF(other);
        throw;
      }
      return 1;
    case kOperandLinExpr:
      e->constant += linexpr_append_all(e->terms, other, mult);
      return 1;
    case kOperandNumber: {
      double c = mult * v;
      if (std::isnan(c)) {
        invalid("Constant is Nan");
        return -1;
      }
      e->constant += c;
      return 1;
    }
    default:
      return 0;
  }
}

void linexpr_replace(PyObject* self, TermVec<LinTerm>& terms, double constant) {
  LinExprObject* e = as_linexpr(self);
  TermVec<LinTerm> old;
  old.take(e->terms);
  PyObject* cont = e->cont;
  e->cont = nullptr;
  e->terms.take(terms);
  e->constant = constant;
  release_terms(old);
  Py_XDECREF(cont);
}

bool linexpr_pretty_text(PyObject* self, std::string& out) {
  linexpr_flatten(self);
  LinExprObject* e = as_linexpr(self);
  if (e->terms.empty() && e->constant == 0.0) {
    out += "0.0";
    return true;
  }
  size_t start = out.size();
  if (e->constant != 0.0 && !expr_append_float(out, e->constant)) return false;
  for (const LinTerm& t : e->terms) {
    if (out.size() != start) out += " + ";
    if (t.coeff != 1.0) {
      if (!expr_append_float(out, t.coeff)) return false;
      out += ' ';
    }
    if (!expr_append_varname(out, t.var)) return false;
  }
  return true;
}

int linexpr_scale(PyObject* self, double mult) {
  if (!is_finite(mult)) {
    invalid("Multiplier is Nan or Inf");
    return -1;
  }
  linexpr_flatten(self);
  LinExprObject* e = as_linexpr(self);
  e->constant *= mult;
  for (LinTerm& t : e->terms) t.coeff *= mult;
  return 0;
}

py::Ref linexpr_multiply(PyObject* a, PyObject* b) {
  double va = 0, vb = 0;
  int ka = expr_classify(a, &va);
  if (ka < 0) return py::Ref();
  int kb = expr_classify(b, &vb);
  if (kb < 0) return py::Ref();
  auto linear = [](int k) { return k == kOperandNumber || k == kOperandVar || k == kOperandLinExpr; };
  if (!linear(ka) || !linear(kb)) return py::Ref::steal(not_implemented());
  auto scaled = [](PyObject* o, int k, double v, double m) {
    py::Ref e = lin_of(o, k, v, 0);
    if (e && linexpr_scale(e.get(), m) < 0) return py::Ref();
    return e;
  };
  if (ka == kOperandNumber) return scaled(b, kb, vb, va);
  if (kb == kOperandNumber) return scaled(a, ka, va, vb);
  if (ka == kOperandLinExpr && linexpr_total_size(a) == 0) return scaled(b, kb, vb, linexpr_total_constant(a));
  if (kb == kOperandLinExpr && linexpr_total_size(b) == 0) return scaled(a, ka, va, linexpr_total_constant(b));
  py::Ref q = quadexpr_from(a);
  if (!q || quadexpr_mul(q.get(), b) < 0) return py::Ref();
  return q;
}

PyObject* expr_richcompare(PyObject* self, PyObject* other, int op) {
  if (expr_is_array_like(other)) return not_implemented();
  switch (op) {
    case Py_LE:
      return tempconstr_new(self, '<', other).release();
    case Py_GE:
      return tempconstr_new(self, '>', other).release();
    case Py_EQ:
      return tempconstr_new(self, '=', other).release();
    case Py_NE:
      return raise_velmor_msg(0, "Inequality constraints not supported");
    default:
      PyErr_SetNone(PyExc_NotImplementedError);
      return nullptr;
  }
}

bool expr_append_float(std::string& out, double v) {
  char* s = PyOS_double_to_string(v, 'r', 0, Py_DTSF_ADD_DOT_0, nullptr);
  if (s == nullptr) return false;
  out += s;
  PyMem_Free(s);
  return true;
}

bool expr_append_varname(std::string& out, PyObject* var) {
  VarDisplay d;
  if (!var_safename(var, &d)) return false;
  Py_ssize_t n = 0;
  const char* s = PyUnicode_AsUTF8AndSize(d.name.get(), &n);
  if (s == nullptr) return false;
  out.append(s, static_cast<size_t>(n));
  return true;
}

bool expr_var_values(PyObject* const* vars, size_t n, size_t stride, double* out) {
  if (n == 0) return true;
  auto var_at = [&](size_t i) {
    return *reinterpret_cast<PyObject* const*>(reinterpret_cast<const char*>(vars) + i * stride);
  };
  // One list read when every variable has a position in one model.
  const ModelCore* core = as_handle(var_at(0))->core;
  std::vector<int> ind(n);
  bool one_read = n <= static_cast<size_t>(INT32_MAX);
  for (size_t i = 0; one_read && i < n; ++i) {
    HandleObject* h = as_handle(var_at(i));
    one_read = h->core == core && h->index >= 0;
    ind[i] = h->index;
  }
  if (one_read) {
    AttrTarget t = handle_target(var_at(0));
    const char* name = nullptr;
    AttrInfo info;
    if (t.model != nullptr && attr_info(t, s_X, &name, &info) && info.kind == VLM_KIND_VAR &&
        info.datatype == VLM_DBL) {
      py::Ref list = attr_get_list(var_at(0), t.model, name, info, ind.data(), static_cast<int>(n));
      if (list && PyList_Check(list.get()) && static_cast<size_t>(PyList_GET_SIZE(list.get())) == n) {
        for (size_t i = 0; i < n; ++i) out[i] = PyFloat_AsDouble(PyList_GET_ITEM(list.get(), static_cast<Py_ssize_t>(i)));
        if (!PyErr_Occurred()) return true;
      }
    }
    PyErr_Clear();
  }
  // One read per variable, so that an unusable one raises the engine's own error.
  for (size_t i = 0; i < n; ++i) {
    py::Ref x = attr_get(handle_target(var_at(i)), s_X);
    if (!x) return false;
    out[i] = PyFloat_AsDouble(x.get());
    if (out[i] == -1.0 && PyErr_Occurred()) return false;
  }
  return true;
}

Py_ssize_t expr_index(PyObject* i, size_t size) {
  Py_ssize_t k = PyNumber_AsSsize_t(i, PyExc_IndexError);
  if (k == -1 && PyErr_Occurred()) return -1;
  if (k < 0) k += static_cast<Py_ssize_t>(size);
  if (k < 0 || static_cast<size_t>(k) >= size) {
    PyErr_SetString(PyExc_IndexError, "list index out of range");
    return -1;
  }
  return k;
}

VarKey expr_var_key(PyObject* var) {
  HandleObject* h = as_handle(var);
  if (h->index >= 0 || h->index <= -3) return {h->core, handle_position(h->index)};
  return {var, LONG_MIN};
}

bool expr_same_var(PyObject* a, PyObject* b) {
  if (a == b) return true;
  if (!var_check(a) || !var_check(b)) return false;
  return handle_same_model(a, b) && as_handle(a)->index == as_handle(b)->index;
}

py::Ref quicksum_impl(PyObject* iterable) {
  if (expr_is_tupledict(iterable)) {
    py::Ref values = py::Ref::steal(PyObject_CallMethod(iterable, "values", nullptr));
    if (!values) return values;
    return quicksum_impl(values.get());
  }
  if (expr_is_matrix(iterable)) return py::Ref::steal(PyObject_CallMethod(iterable, "sum", nullptr));
  Summer sum;
  if (PyList_Check(iterable) || PyTuple_Check(iterable)) {
    if (!sum.start(static_cast<size_t>(Py_SIZE(iterable)))) return py::Ref();
    // Items are read by position each time: an item's own operators may change the list.
    for (Py_ssize_t i = 0; i < Py_SIZE(iterable); ++i) {
      py::Ref item = py::Ref::borrow(PyList_Check(iterable) ? PyList_GET_ITEM(iterable, i) : PyTuple_GET_ITEM(iterable, i));
      if (!sum.add(item.get())) return py::Ref();
    }
    return sum.result();
  }
  py::Ref it = py::Ref::steal(PyObject_GetIter(iterable));
  if (!it) return it;
  Py_ssize_t hint = PyObject_LengthHint(iterable, 0);
  if (hint < 0) return py::Ref();
  if (!sum.start(static_cast<size_t>(hint))) return py::Ref();
  while (py::Ref item = py::Ref::steal(PyIter_Next(it.get()))) {
    if (!sum.add(item.get())) return py::Ref();
  }
  if (PyErr_Occurred()) return py::Ref();
  return sum.result();
}

PyObject* expr_pickle_error() {
  if (g_pickle_error == nullptr) {
    py::Ref pickle = py::Ref::steal(PyImport_ImportModule("pickle"));
    if (!pickle) return PyExc_Exception;
    g_pickle_error = PyObject_GetAttrString(pickle.get(), "PickleError");
    if (g_pickle_error == nullptr) {
      PyErr_Clear();
      return PyExc_Exception;
    }
  }
  return g_pickle_error;
}

py::Ref expr_unpickle_start(const char* fn, PyObject* type, PyObject* checksum,
                            const unsigned long (&accepted)[3], const char* fields, PyTypeObject* base) {
  unsigned long sum = PyLong_AsUnsignedLongMask(checksum);
  if (sum == static_cast<unsigned long>(-1) && PyErr_Occurred()) return py::Ref();
  bool known = false;
  for (unsigned long c : accepted) known |= c == sum;
  if (!known) {
    char text[200];
    std::snprintf(text, sizeof text, "Incompatible checksums (0x%lx vs (0x%lx, 0x%lx, 0x%lx) = (%s))", sum,
                  accepted[0], accepted[1], accepted[2], fields);
    PyErr_SetString(expr_pickle_error(), text);
    return py::Ref();
  }
  if (!PyType_Check(type) || !PyType_IsSubtype(reinterpret_cast<PyTypeObject*>(type), base)) {
    PyErr_Format(PyExc_TypeError, "%s() needs a %s type", fn, base->tp_name + std::strlen("velmorpy."));
    return py::Ref();
  }
  PyTypeObject* t = reinterpret_cast<PyTypeObject*>(type);
  py::Ref empty = py::Ref::steal(PyTuple_New(0));
  if (!empty) return py::Ref();
  return py::Ref::steal(t->tp_new(t, empty.get(), nullptr));
}

int register_linexpr(PyObject* m) {
  s_array_ufunc = PyUnicode_InternFromString("__array_ufunc__");
  s_array_priority = PyUnicode_InternFromString("__array_priority__");
  s_X = PyUnicode_InternFromString("X");
  if (s_array_ufunc == nullptr || s_array_priority == nullptr || s_X == nullptr) return -1;

  LinExprType.tp_basicsize = sizeof(LinExprObject);
  LinExprType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  LinExprType.tp_doc = lin_doc;
  LinExprType.tp_new = py::guarded<&lin_tp_new>;
  LinExprType.tp_init = py::guarded<&lin_init>;
  LinExprType.tp_dealloc = lin_dealloc;
  LinExprType.tp_traverse = lin_traverse;
  LinExprType.tp_clear = lin_tp_clear;
  LinExprType.tp_free = PyObject_GC_Del;
  LinExprType.tp_repr = py::guarded<&lin_repr>;
  LinExprType.tp_str = py::guarded<&lin_str>;
  LinExprType.tp_hash = PyObject_HashNotImplemented;
  LinExprType.tp_richcompare = py::guarded<&expr_richcompare>;
  LinExprType.tp_as_number = &lin_as_number;
  LinExprType.tp_methods = lin_methods;
  LinExprType.tp_getset = lin_getset;
  if (PyType_Ready(&LinExprType) < 0) return -1;
  Py_INCREF(&LinExprType);
  if (PyModule_AddObject(m, "LinExpr", reinterpret_cast<PyObject*>(&LinExprType)) < 0) {
    Py_DECREF(&LinExprType);
    return -1;
  }
  if (PyModule_AddFunctions(m, module_functions) < 0) return -1;
  g_unpickle = PyObject_GetAttrString(m, "_unpickle_LinExpr");
  return g_unpickle == nullptr ? -1 : 0;
}
