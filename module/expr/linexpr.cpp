// LinExpr (see linexpr.h): the type, its construction, methods and properties, and the C++
// side that builds and reads expressions for the other families. The number protocol, quicksum
// with pickling, and the helpers all expression families share are in linexpr_*.cpp.
#include "expr/linexpr.h"

#include <cmath>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/py_error.h"
#include "elements/var.h"
#include "expr/linexpr_util.h"
#include "velmor_c.h"

PyTypeObject LinExprType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.LinExpr"};

namespace {

// ---- allocation ------------------------------------------------------------------------------

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

// ---- tables ----------------------------------------------------------------------------------

PyMethodDef lin_methods[] = {
    {"add", (PyCFunction)(void (*)(void))py::guarded<&lin_add_method>, METH_VARARGS | METH_KEYWORDS,
     "add($self, expr, mult=1.0)\n--\n\nAdds mult times expr in place. expr may be a Var, a LinExpr or a number:\n\n"
     "    e.add(x, 2.0)     # e + 2 x\n    e.add(other)      # e + other\n"},
    {"addConstant", py::guarded<&lin_addconstant>, METH_O,
     "addConstant($self, constant)\n--\n\nAdds a number to the constant of the expression."},
    {"addTerms", (PyCFunction)(void (*)(void))py::guarded<&lin_addterms>, METH_FASTCALL,
     "addTerms($self, newcoeffs, newvars)\n--\n\nAdds terms: one coefficient and one Var, or a list of\n"
     "coefficients and a list of Var of the same length:\n\n"
     "    e.addTerms([1.0, 2.0], [x, y])\n"},
    {"size", py::guarded<&lin_size>, METH_NOARGS,
     "size($self)\n--\n\nThe number of terms. A variable that occurs in several terms counts each time."},
    {"getConstant", py::guarded<&lin_getconstant>, METH_NOARGS, "getConstant($self)\n--\n\nThe constant of the expression."},
    {"getCoeff", py::guarded<&lin_getcoeff>, METH_O, "getCoeff($self, i)\n--\n\nThe coefficient of term i."},
    {"getVar", py::guarded<&lin_getvar>, METH_O, "getVar($self, i)\n--\n\nThe variable of term i."},
    {"getValue", py::guarded<&lin_getvalue>, METH_NOARGS,
     "getValue($self)\n--\n\nThe value of the expression in the current solution (the variables' X)."},
    {"remove", py::guarded<&lin_remove>, METH_O,
     "remove($self, item)\n--\n\nRemoves the term at position item (an int), or every term of a Var."},
    {"clear", py::guarded<&lin_clear_method>, METH_NOARGS, "clear($self)\n--\n\nMakes the expression empty: no terms, constant 0."},
    {"copy", py::guarded<&lin_copy>, METH_NOARGS, "copy($self)\n--\n\nA copy of the expression."},
    {"_mul", py::guarded<&lin_mul_method>, METH_O, "_mul($self, multiplier)\n--\n\nScales the expression in place; returns it."},
    {"_flatten", py::guarded<&lin_flatten_method>, METH_NOARGS,
     "_flatten($self)\n--\n\nMoves the terms of the shared tail into the expression itself."},
    {"_normalize", py::guarded<&lin_normalize>, METH_NOARGS,
     "_normalize($self)\n--\n\nMerges the terms of each variable into its first term."},
    {"_asprettystring", py::guarded<&lin_prettystring>, METH_NOARGS, "_asprettystring($self)\n--\n\nThe readable text."},
    {"_dbgprint", py::guarded<&lin_dbgprint>, METH_NOARGS, "_dbgprint($self)\n--\n\nPrints the chain of tails."},
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

const char lin_doc[] =
    "LinExpr(arg1=None, arg2=None)\n--\n\n"
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

// ---- building and reading (linexpr.h) --------------------------------------------------------

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

int register_linexpr(PyObject* m) {
  if (linexpr_shared_init() < 0) return -1;

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
  return linexpr_add_functions(m);
}

