// Model methods for general constraints (see model_genconstr.h).
//
// Every adder runs the same way: setup, turn each Python argument into library data (variable
// columns, numbers, texts), refuse with VelmorError before the library sees anything, make one
// VLMaddgenconstr... call, and append a GenConstr handle only when it succeeded. The library
// checks what needs the model's data (variable types for AND/OR and indicators, norm values,
// bases and exponents, options texts, NaN, x order of PWL points).
//
// Readers use the library's two-call pattern (lengths first) and give variables back as the
// model's own handles. Numbers come back as the library stores them, so a MAX without a
// constant reads back -VLM.INFINITY (not -inf) and the result can be passed to the adder again.
#include "model/model_genconstr.h"

#include <string>
#include <utility>
#include <vector>

#include "expr/genexpr.h"
#include "elements/handle.h"
#include "expr/linexpr.h"
#include "model/model.h"
#include "model/model_mgenconstr.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "expr/tempconstr.h"
#include "elements/var.h"

namespace {

// Nested lists in a vars argument (max_([x, y], z) gives [[x, y], z]) are spliced; deeper than
// this is taken for a cycle or a mistake.
constexpr int kMaxNesting = 32;

PyObject* invalid(const std::string& message) {
  return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message.c_str());
}

std::string arg_message(const char* arg, const char* type) {
  return std::string("Invalid ") + arg + " argument for general constraint of " + type + " type";
}

const char kBadVars[] = "Invalid data in vars array";
const char kBadIndicatorTrigger[] =
    "Indicator constraints can only be triggered by a single binary variable at a given value";

// Setup, and a clear error for a disposed model instead of one from a NULL library call.
bool begin(PyObject* self) {
  if (model_handle(self) == nullptr) {
    raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
    return false;
  }
  return model_setup(self, false) == 0;
}

PyObject* finish(PyObject* self, int rc) {
  if (rc != 0) return raise_velmor(rc, self);
  return model_append_handle(self, VLM_KIND_GENCONSTR).release();
}

// ---- arguments -------------------------------------------------------------------------------

// The library column of a Var: it must belong to this model and have a position (a variable
// added in lazy update mode has none until the update; a removed one has none any more).
bool column_of(PyObject* self, PyObject* var, int* col) {
  HandleObject* h = as_handle(var);
  int pos = handle_position(h->index);
  if (!model_has(self, var) || pos < 0) {
    raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, "Variable not in model");
    return false;
  }
  *col = pos;
  return true;
}

bool is_expected_item_error() {
  return PyErr_ExceptionMatches(PyExc_ValueError) || PyErr_ExceptionMatches(PyExc_TypeError) ||
         PyErr_ExceptionMatches(PyExc_IndexError) || PyErr_ExceptionMatches(PyExc_AttributeError);
}

// 1 with `*var` set when `o` stands for one variable (a Var, or a one-element MVar); 0 when it
// does not (no exception); -1 with an exception set.
int single_var(PyObject* o, py::Ref* var) {
  if (var_check(o)) {
    *var = py::Ref::borrow(o);
    return 1;
  }
  if (!expr_is_mvar(o)) return 0;
  py::Ref item = py::Ref::steal(PyObject_CallMethod(o, "item", nullptr));
  if (!item) {
    if (!is_expected_item_error()) return -1;
    PyErr_Clear();
    return 0;
  }
  if (!var_check(item.get())) return 0;
  *var = std::move(item);
  return 1;
}

// A variable argument such as resvar or xvar.
bool var_arg(PyObject* self, PyObject* o, const char* arg, const char* type, int* col) {
  py::Ref var;
  int k = single_var(o, &var);
  if (k < 0) return false;
  if (k == 0) {
    invalid(arg_message(arg, type));
    return false;
  }
  return column_of(self, var.get(), col);
}

// The columns of a vars argument: Vars in any iterable (list, tuple, NumPy array), the values
// of a tupledict or other dict, the elements of an MVar, nested ones spliced in order.
bool collect_vars(PyObject* self, PyObject* o, std::vector<int>* cols, int depth) {
  if (var_check(o)) {
    int col = 0;
    if (!column_of(self, o, &col)) return false;
    cols->push_back(col);
    return true;
  }
  if (depth > kMaxNesting || PyUnicode_Check(o) || PyBytes_Check(o)) {
    invalid(kBadVars);
    return false;
  }
  py::Ref items;
  if (PyDict_Check(o)) {
    items = py::Ref::steal(PyDict_Values(o));
  } else if (expr_is_mvar(o)) {
    items = py::Ref::steal(PyObject_CallMethod(o, "tolist", nullptr));
  } else {
    items = py::Ref::borrow(o);
  }
  if (!items) return false;
  if (var_check(items.get())) return collect_vars(self, items.get(), cols, depth + 1);
  py::Ref it = py::Ref::steal(PyObject_GetIter(items.get()));
  if (!it) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError)) return false;
    PyErr_Clear();
    invalid(kBadVars);
    return false;
  }
  while (py::Ref item = py::Ref::steal(PyIter_Next(it.get()))) {
    if (!collect_vars(self, item.get(), cols, depth + 1)) return false;
  }
  return !PyErr_Occurred();
}

bool vars_arg(PyObject* self, PyObject* o, std::vector<int>* cols) { return collect_vars(self, o, cols, 0); }

// A plain number (int, float, NumPy scalar, ...); `message` as VelmorError for anything else.
bool number_arg(PyObject* o, const std::string& message, double* out) {
  int k = expr_classify(o, out);
  if (k == kOperandError) return false;
  if (k != kOperandNumber) {
    invalid(message);
    return false;
  }
  return true;
}

// The numbers of a sequence argument (xpts, ypts, p): any iterable of numbers.
bool doubles_arg(PyObject* o, const char* what, std::vector<double>* out) {
  std::string message = std::string("Invalid data in ") + what + " array";
  if (PyUnicode_Check(o) || PyBytes_Check(o)) {
    invalid(message);
    return false;
  }
  py::Ref it = py::Ref::steal(PyObject_GetIter(o));
  if (!it) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError)) return false;
    PyErr_Clear();
    invalid(message);
    return false;
  }
  while (py::Ref item = py::Ref::steal(PyIter_Next(it.get()))) {
    double v = 0.0;
    if (!number_arg(item.get(), message, &v)) return false;
    out->push_back(v);
  }
  return !PyErr_Occurred();
}

// name and options: a str, or None / left out for `dflt`. The pointer lives as long as `o`.
bool text_arg(PyObject* o, const char* what, const char* dflt, const char** out) {
  if (o == nullptr || o == Py_None) {
    *out = dflt;
    return true;
  }
  if (!PyUnicode_Check(o)) {
    PyErr_Format(PyExc_TypeError, "%s must be a str, not '%.200s'", what, Py_TYPE(o)->tp_name);
    return false;
  }
  *out = py::utf8(o);
  return *out != nullptr;
}

bool name_arg(PyObject* o, const char** out) { return text_arg(o, "name", "", out); }

// ---- expressions -----------------------------------------------------------------------------

struct Terms {
  std::vector<PyObject*> vars;  // borrowed from the expression, which the caller keeps alive
  std::vector<double> coeffs;
  double constant = 0.0;
};

// 1: `o` (a number, Var or LinExpr) read into `out`; 0: `o` is none of these; -1: error.
int linear_terms(PyObject* o, Terms* out) {
  double v = 0.0;
  switch (expr_classify(o, &v)) {
    case kOperandError:
      return -1;
    case kOperandNumber:
      out->constant = v;
      return 1;
    case kOperandVar:
      out->vars.push_back(o);
      out->coeffs.push_back(1.0);
      return 1;
    case kOperandLinExpr:
      linexpr_for_each_node(o, [&](const LinExprObject* node) {
        for (const LinTerm& t : node->terms) {
          out->vars.push_back(t.var);
          out->coeffs.push_back(t.coeff);
        }
        out->constant += node->constant;
      });
      return 1;
    default:
      return 0;
  }
}

// The Var of a side that is one variable: a Var, or a LinExpr 1.0 * x without constant.
// Borrowed; nullptr (no exception) otherwise.
PyObject* lone_var(PyObject* o) {
  if (var_check(o)) return o;
  if (!linexpr_check(o) || linexpr_total_size(o) != 1 || linexpr_total_constant(o) != 0.0) return nullptr;
  PyObject* var = nullptr;
  linexpr_for_each_node(o, [&](const LinExprObject* node) {
    for (const LinTerm& t : node->terms) {
      if (t.coeff == 1.0) var = t.var;
    }
  });
  return var;
}

// The sense of a one-character str, or 0.
char sense_char(PyObject* o) {
  if (o == nullptr || !PyUnicode_Check(o) || PyUnicode_GET_LENGTH(o) != 1) return 0;
  Py_UCS4 c = PyUnicode_READ_CHAR(o, 0);
  return c == '<' || c == '>' || c == '=' || c == 'I' ? static_cast<char>(c) : 0;
}

// ---- the adders ------------------------------------------------------------------------------

PyObject* add_maxmin(PyObject* self, PyObject* args, PyObject* kwds, bool is_max) {
  if (PyObject* r = nullptr; model_mgenconstr_route(self, is_max ? 0 : 1, args, kwds, &r)) return r;
  static const char* kwlist[] = {"resvar", "vars", "constant", "name", nullptr};
  PyObject *resvar = nullptr, *vars = nullptr, *constant = Py_None, *name = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, is_max ? "OO|OO:addGenConstrMax" : "OO|OO:addGenConstrMin",
                                   const_cast<char**>(kwlist), &resvar, &vars, &constant, &name)) {
    return nullptr;
  }
  const char* type = is_max ? "max" : "min";
  int res = 0;
  std::vector<int> cols;
  // No constant is the neutral element: -infinity for a maximum, +infinity for a minimum.
  double c = is_max ? -VLM_INFINITY : VLM_INFINITY;
  const char* cname = nullptr;
  if (!begin(self) || !var_arg(self, resvar, "resvar", type, &res) || !vars_arg(self, vars, &cols)) return nullptr;
  if (constant != Py_None && !number_arg(constant, arg_message("constant", type), &c)) return nullptr;
  if (!name_arg(name, &cname)) return nullptr;
  auto add = is_max ? VLMaddgenconstrMax : VLMaddgenconstrMin;
  int rc = add(model_handle(self), cname, res, static_cast<int>(cols.size()), cols.data(), py::to_lib_dbl(c));
  return finish(self, rc);
}

PyObject* add_andor(PyObject* self, PyObject* args, PyObject* kwds, bool is_and) {
  if (PyObject* r = nullptr; model_mgenconstr_route(self, is_and ? 3 : 4, args, kwds, &r)) return r;
  static const char* kwlist[] = {"resvar", "vars", "name", nullptr};
  PyObject *resvar = nullptr, *vars = nullptr, *name = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, is_and ? "OO|O:addGenConstrAnd" : "OO|O:addGenConstrOr",
                                   const_cast<char**>(kwlist), &resvar, &vars, &name)) {
    return nullptr;
  }
  int res = 0;
  std::vector<int> cols;
  const char* cname = nullptr;
  if (!begin(self) || !var_arg(self, resvar, "resvar", is_and ? "and" : "or", &res) ||
      !vars_arg(self, vars, &cols) || !name_arg(name, &cname)) {
    return nullptr;
  }
  auto add = is_and ? VLMaddgenconstrAnd : VLMaddgenconstrOr;
  return finish(self, add(model_handle(self), cname, res, static_cast<int>(cols.size()), cols.data()));
}

// The indicator core, shared by addGenConstrIndicator and the `>>` route of addConstr.
// `both_sides`: the `>>` route, where the implied constraint may have variables on its right
// ((b == 1) >> (x >= y)); they move to the left. addGenConstrIndicator keeps a constant rhs.
PyObject* add_indicator(PyObject* self, PyObject* binvar, int binval, PyObject* lhs, PyObject* sense,
                        PyObject* rhs, PyObject* name, bool both_sides = false) {
  const char* type = "indicator";
  int bin = 0;
  if (!begin(self) || !var_arg(self, binvar, "binvar", type, &bin)) return nullptr;
  if (tempconstr_check(lhs)) {
    TempConstrObject* t = as_tempconstr(lhs);
    lhs = t->lhs;
    sense = t->sense;
    rhs = t->rhs;
  } else {
    both_sides = false;
  }
  // Keep the sides alive: Terms borrows their variables.
  py::Ref keep_lhs = py::Ref::borrow(lhs);
  if (expr_is_matrix(lhs)) {
    keep_lhs = py::Ref::steal(PyObject_CallMethod(lhs, "item", nullptr));
    if (!keep_lhs) {
      if (!is_expected_item_error()) return nullptr;
      PyErr_Clear();
      return invalid(arg_message("lhs", type));
    }
  }
  Terms terms;
  int k = linear_terms(keep_lhs.get(), &terms);
  if (k < 0) return nullptr;
  if (k == 0) return invalid(arg_message("lhs", type));
  char s = sense_char(sense);
  if (s == 0 || s == 'I') return invalid(arg_message("sense", type));
  Terms right;
  k = rhs == nullptr ? 0 : linear_terms(rhs, &right);
  if (k < 0) return nullptr;
  if (k == 0 || (!right.vars.empty() && !both_sides)) return invalid(arg_message("rhs", type));
  // lhs sense rhs  ->  lhs - (rhs's terms)  sense  (rhs's constant) - (lhs's constant)
  for (std::size_t i = 0; i < right.vars.size(); ++i) {
    terms.vars.push_back(right.vars[i]);
    terms.coeffs.push_back(-right.coeffs[i]);
  }
  std::vector<int> ind(terms.vars.size());
  for (std::size_t i = 0; i < terms.vars.size(); ++i) {
    if (!column_of(self, terms.vars[i], &ind[i])) return nullptr;
  }
  std::vector<double> val = terms.coeffs;
  int n = static_cast<int>(ind.size());
  if (n > 0) VLMclean2(&n, ind.data(), val.data());
  const char* cname = nullptr;
  if (!name_arg(name, &cname)) return nullptr;
  double bound = py::to_lib_dbl(right.constant - terms.constant);
  int rc = VLMaddgenconstrIndicator(model_handle(self), cname, bin, binval, n, ind.data(), val.data(), s, bound);
  return finish(self, rc);
}

using FuncAdd = int (*)(VLMmodel*, const char*, int, int, const char*);
using FuncAddA = int (*)(VLMmodel*, const char*, int, int, double, const char*);

// y = f(x) without a parameter: Exp, Log, Logistic, Sin, Cos, Tan.
PyObject* add_func(PyObject* self, PyObject* args, PyObject* kwds, const char* format, const char* type, FuncAdd add) {
  if (PyObject* r = nullptr; model_mgenconstr_route(self, model_mgenconstr_type(type), args, kwds, &r)) return r;
  static const char* kwlist[] = {"xvar", "yvar", "name", "options", nullptr};
  PyObject *xvar = nullptr, *yvar = nullptr, *name = nullptr, *options = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, format, const_cast<char**>(kwlist), &xvar, &yvar, &name, &options)) {
    return nullptr;
  }
  int x = 0, y = 0;
  const char *cname = nullptr, *copts = nullptr;
  if (!begin(self) || !var_arg(self, xvar, "xvar", type, &x) || !var_arg(self, yvar, "yvar", type, &y) ||
      !name_arg(name, &cname) || !text_arg(options, "options", nullptr, &copts)) {
    return nullptr;
  }
  return finish(self, add(model_handle(self), cname, x, y, copts));
}

// y = f(x; a): ExpA, LogA, Pow.
PyObject* add_func_a(PyObject* self, PyObject* args, PyObject* kwds, const char* format, const char* type,
                     FuncAddA add) {
  if (PyObject* r = nullptr; model_mgenconstr_route(self, model_mgenconstr_type(type), args, kwds, &r)) return r;
  static const char* kwlist[] = {"xvar", "yvar", "a", "name", "options", nullptr};
  PyObject *xvar = nullptr, *yvar = nullptr, *a = nullptr, *name = nullptr, *options = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, format, const_cast<char**>(kwlist), &xvar, &yvar, &a, &name,
                                   &options)) {
    return nullptr;
  }
  int x = 0, y = 0;
  double av = 0.0;
  const char *cname = nullptr, *copts = nullptr;
  if (!begin(self) || !var_arg(self, xvar, "xvar", type, &x) || !var_arg(self, yvar, "yvar", type, &y) ||
      !number_arg(a, arg_message("a", type), &av) || !name_arg(name, &cname) ||
      !text_arg(options, "options", nullptr, &copts)) {
    return nullptr;
  }
  return finish(self, add(model_handle(self), cname, x, y, av, copts));
}

// ---- the readers -----------------------------------------------------------------------------

// The library index of a GenConstr handle of this model.
bool genconstr_id(PyObject* self, PyObject* gc, int* id) {
  if (handle_kind(gc) != VLM_KIND_GENCONSTR) {
    PyErr_Format(PyExc_TypeError, "expected a GenConstr, got '%.200s'", Py_TYPE(gc)->tp_name);
    return false;
  }
  HandleObject* h = as_handle(gc);
  if (!model_has(self, gc)) {
    raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, "General constraint not in model");
    return false;
  }
  if (h->index == kIndexPending || h->index == kIndexRemoved) {
    raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, h->index == kIndexPending ? "GenConstr has not yet been added to the model"
                                                                       : "GenConstr was removed from the model");
    return false;
  }
  if (model_handle(self) == nullptr) {
    raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
    return false;
  }
  *id = handle_position(h->index);
  return true;
}

// The model's handle of variable `col`.
py::Ref var_handle(PyObject* self, int col) {
  PyObject* vars = model_list(self, VLM_KIND_VAR);
  if (vars == nullptr) return py::Ref();
  if (col < 0 || col >= PyList_GET_SIZE(vars)) {
    std::string msg = "Variable index " + std::to_string(col) + " has no handle in the model";
    raise_velmor_msg(VLM_ERROR_INTERNAL, msg.c_str());
    return py::Ref();
  }
  return py::Ref::borrow(PyList_GET_ITEM(vars, col));
}

py::Ref var_handles(PyObject* self, const std::vector<int>& cols) {
  py::Ref list = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(cols.size())));
  if (!list) return list;
  for (std::size_t i = 0; i < cols.size(); ++i) {
    py::Ref v = var_handle(self, cols[i]);
    if (!v) return v;
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), v.release());
  }
  return list;
}

py::Ref float_list(const std::vector<double>& values) {
  py::Ref list = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(values.size())));
  if (!list) return list;
  for (std::size_t i = 0; i < values.size(); ++i) {
    PyObject* f = PyFloat_FromDouble(values[i]);
    if (f == nullptr) return py::Ref();
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), f);
  }
  return list;
}

// A tuple of new references; nullptr if any is missing (its exception is set).
template <class... Refs>
PyObject* tuple_of(Refs&&... items) {
  PyObject* raw[] = {items.get()...};
  for (PyObject* p : raw) {
    if (p == nullptr) return nullptr;
  }
  PyObject* t = PyTuple_New(sizeof...(items));
  if (t == nullptr) return nullptr;
  Py_ssize_t i = 0;
  ((PyTuple_SET_ITEM(t, i++, items.release())), ...);
  return t;
}

py::Ref float_ref(double v) { return py::Ref::steal(PyFloat_FromDouble(v)); }

using ListGet = int (*)(VLMmodel*, int, int*, int*, int*, double*);
using ListGetNoValue = int (*)(VLMmodel*, int, int*, int*, int*);

// (resvar, [vars], value) for Max, Min and Norm.
PyObject* get_list_value(PyObject* self, PyObject* gc, ListGet get) {
  int id = 0, res = 0, n = 0;
  if (!genconstr_id(self, gc, &id)) return nullptr;
  VLMmodel* m = model_handle(self);
  int rc = get(m, id, nullptr, &n, nullptr, nullptr);
  if (rc != 0) return raise_velmor(rc, self);
  std::vector<int> cols(static_cast<std::size_t>(n));
  double value = 0.0;
  rc = get(m, id, &res, &n, cols.data(), &value);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref r = var_handle(self, res);
  if (!r) return nullptr;
  py::Ref vars = var_handles(self, cols);
  if (!vars) return nullptr;
  return tuple_of(std::move(r), std::move(vars), float_ref(value));
}

// (resvar, [vars]) for And and Or.
PyObject* get_list(PyObject* self, PyObject* gc, ListGetNoValue get) {
  int id = 0, res = 0, n = 0;
  if (!genconstr_id(self, gc, &id)) return nullptr;
  VLMmodel* m = model_handle(self);
  int rc = get(m, id, nullptr, &n, nullptr);
  if (rc != 0) return raise_velmor(rc, self);
  std::vector<int> cols(static_cast<std::size_t>(n));
  rc = get(m, id, &res, &n, cols.data());
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref r = var_handle(self, res);
  if (!r) return nullptr;
  py::Ref vars = var_handles(self, cols);
  if (!vars) return nullptr;
  return tuple_of(std::move(r), std::move(vars));
}

using FuncGet = int (*)(VLMmodel*, int, int*, int*);
using FuncGetA = int (*)(VLMmodel*, int, int*, int*, double*);

PyObject* get_func(PyObject* self, PyObject* gc, FuncGet get) {
  int id = 0, x = 0, y = 0;
  if (!genconstr_id(self, gc, &id)) return nullptr;
  int rc = get(model_handle(self), id, &x, &y);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref xv = var_handle(self, x);
  if (!xv) return nullptr;
  return tuple_of(std::move(xv), var_handle(self, y));
}

PyObject* get_func_a(PyObject* self, PyObject* gc, FuncGetA get) {
  int id = 0, x = 0, y = 0;
  double a = 0.0;
  if (!genconstr_id(self, gc, &id)) return nullptr;
  int rc = get(model_handle(self), id, &x, &y, &a);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref xv = var_handle(self, x);
  if (!xv) return nullptr;
  py::Ref yv = var_handle(self, y);
  if (!yv) return nullptr;
  return tuple_of(std::move(xv), std::move(yv), float_ref(a));
}

}  // namespace

// ---- TempConstr route ------------------------------------------------------------------------

PyObject* model_addgenconstr_from_tempconstr(PyObject* model, PyObject* tc, PyObject* name) {
  if (!tempconstr_check(tc)) return py::raise(PyExc_TypeError, "expected a TempConstr");
  TempConstrObject* t = as_tempconstr(tc);
  char sense = sense_char(t->sense);
  if (genexpr_check(t->lhs)) {
    return invalid("General expressions can only appear on the right hand side of a constraint");
  }
  if (genexpr_check(t->rhs)) {
    // An MVar on the left takes the matrix form of the expression's adder.
    PyObject* resvar = sense != '=' ? nullptr : model_mgenconstr_is_matrix(t->lhs) ? t->lhs : lone_var(t->lhs);
    if (resvar == nullptr) return invalid("General expressions can only be equal to a single var");
    py::Ref empty;
    if (name == nullptr || name == Py_None) {
      empty = py::str("");
      if (!empty) return nullptr;
      name = empty.get();
    }
    return PyObject_CallMethod(t->rhs, "_addAsConstr", "OOO", model, resvar, name);
  }
  if (sense != 'I') {
    return py::raise(PyExc_TypeError, "expected a general-expression or indicator TempConstr");
  }
  if (PyObject* r = nullptr; model_mgenconstr_route_indicator(model, tc, name, &r)) return r;
  // The condition: one variable == 0 or 1.
  PyObject* cond = t->lhs;
  PyObject* binvar = nullptr;
  double value = -1.0;
  if (tempconstr_check(cond) && sense_char(as_tempconstr(cond)->sense) == '=') {
    binvar = lone_var(as_tempconstr(cond)->lhs);
    if (expr_classify(as_tempconstr(cond)->rhs, &value) != kOperandNumber) {
      if (PyErr_Occurred()) return nullptr;
      value = -1.0;
    }
  }
  if (binvar == nullptr || (value != 0.0 && value != 1.0)) return invalid(kBadIndicatorTrigger);
  return add_indicator(model, binvar, value == 1.0 ? 1 : 0, t->rhs, nullptr, nullptr, name, true);
}

// ---- method entries --------------------------------------------------------------------------

PyObject* model_addgenconstrmax(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_maxmin(self, args, kwds, true);
}
PyObject* model_addgenconstrmin(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_maxmin(self, args, kwds, false);
}

PyObject* model_addgenconstrabs(PyObject* self, PyObject* args, PyObject* kwds) {
  if (PyObject* r = nullptr; model_mgenconstr_route(self, 2, args, kwds, &r)) return r;
  static const char* kwlist[] = {"resvar", "argvar", "name", nullptr};
  PyObject *resvar = nullptr, *argvar = nullptr, *name = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO|O:addGenConstrAbs", const_cast<char**>(kwlist), &resvar, &argvar,
                                   &name)) {
    return nullptr;
  }
  int res = 0, arg = 0;
  const char* cname = nullptr;
  if (!begin(self) || !var_arg(self, resvar, "resvar", "abs", &res) || !var_arg(self, argvar, "argvar", "abs", &arg) ||
      !name_arg(name, &cname)) {
    return nullptr;
  }
  return finish(self, VLMaddgenconstrAbs(model_handle(self), cname, res, arg));
}

PyObject* model_addgenconstrand(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_andor(self, args, kwds, true);
}
PyObject* model_addgenconstror(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_andor(self, args, kwds, false);
}

PyObject* model_addgenconstrnorm(PyObject* self, PyObject* args, PyObject* kwds) {
  if (PyObject* r = nullptr; model_mgenconstr_route(self, 5, args, kwds, &r)) return r;
  static const char* kwlist[] = {"resvar", "vars", "which", "name", nullptr};
  PyObject *resvar = nullptr, *vars = nullptr, *which = nullptr, *name = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OOO|O:addGenConstrNorm", const_cast<char**>(kwlist), &resvar, &vars,
                                   &which, &name)) {
    return nullptr;
  }
  int res = 0;
  std::vector<int> cols;
  double w = 0.0;
  const char* cname = nullptr;
  if (!begin(self) || !var_arg(self, resvar, "resvar", "norm", &res) || !vars_arg(self, vars, &cols) ||
      !number_arg(which, arg_message("which", "norm"), &w) || !name_arg(name, &cname)) {
    return nullptr;
  }
  int rc = VLMaddgenconstrNorm(model_handle(self), cname, res, static_cast<int>(cols.size()), cols.data(),
                               py::to_lib_dbl(w));
  return finish(self, rc);
}

PyObject* model_addgenconstrindicator(PyObject* self, PyObject* args, PyObject* kwds) {
  if (PyObject* r = nullptr; model_mgenconstr_route(self, 6, args, kwds, &r)) return r;
  static const char* kwlist[] = {"binvar", "binval", "lhs", "sense", "rhs", "name", nullptr};
  PyObject *binvar = nullptr, *binval = nullptr, *lhs = nullptr, *sense = Py_None, *rhs = Py_None, *name = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OOO|OOO:addGenConstrIndicator", const_cast<char**>(kwlist), &binvar,
                                   &binval, &lhs, &sense, &rhs, &name)) {
    return nullptr;
  }
  int truth = PyObject_IsTrue(binval);
  if (truth < 0) return nullptr;
  return add_indicator(self, binvar, truth, lhs, sense, rhs == Py_None ? nullptr : rhs, name);
}

PyObject* model_addgenconstrpwl(PyObject* self, PyObject* args, PyObject* kwds) {
  if (PyObject* r = nullptr; model_mgenconstr_route(self, 7, args, kwds, &r)) return r;
  static const char* kwlist[] = {"xvar", "yvar", "xpts", "ypts", "name", nullptr};
  PyObject *xvar = nullptr, *yvar = nullptr, *xpts = nullptr, *ypts = nullptr, *name = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OOOO|O:addGenConstrPWL", const_cast<char**>(kwlist), &xvar, &yvar,
                                   &xpts, &ypts, &name)) {
    return nullptr;
  }
  int x = 0, y = 0;
  if (!begin(self) || !var_arg(self, xvar, "xvar", "pwl", &x) || !var_arg(self, yvar, "yvar", "pwl", &y)) return nullptr;
  if (xpts == Py_None) return invalid("xpts is None");
  if (ypts == Py_None) return invalid("ypts is None");
  std::vector<double> xs, ys;
  if (!doubles_arg(xpts, "xpts", &xs) || !doubles_arg(ypts, "ypts", &ys)) return nullptr;
  if (xs.size() < 2 || ys.size() < 2) return invalid("Less than 2 points for PWL constraint");
  // One count goes to the library for both arrays, so their lengths are checked here.
  if (xs.size() != ys.size()) return invalid("xpts and ypts have different lengths");
  const char* cname = nullptr;
  if (!name_arg(name, &cname)) return nullptr;
  return finish(self, VLMaddgenconstrPWL(model_handle(self), cname, x, y, static_cast<int>(xs.size()), xs.data(),
                                         ys.data()));
}

PyObject* model_addgenconstrpoly(PyObject* self, PyObject* args, PyObject* kwds) {
  if (PyObject* r = nullptr; model_mgenconstr_route(self, 8, args, kwds, &r)) return r;
  static const char* kwlist[] = {"xvar", "yvar", "p", "name", "options", nullptr};
  PyObject *xvar = nullptr, *yvar = nullptr, *p = nullptr, *name = nullptr, *options = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OOO|OO:addGenConstrPoly", const_cast<char**>(kwlist), &xvar, &yvar,
                                   &p, &name, &options)) {
    return nullptr;
  }
  int x = 0, y = 0;
  std::vector<double> coeffs;
  const char *cname = nullptr, *copts = nullptr;
  if (!begin(self) || !var_arg(self, xvar, "xvar", "poly", &x) || !var_arg(self, yvar, "yvar", "poly", &y)) {
    return nullptr;
  }
  if (p == Py_None) return invalid("p is None");
  if (!doubles_arg(p, "p", &coeffs) || !name_arg(name, &cname) || !text_arg(options, "options", nullptr, &copts)) {
    return nullptr;
  }
  return finish(self, VLMaddgenconstrPoly(model_handle(self), cname, x, y, static_cast<int>(coeffs.size()),
                                          coeffs.data(), copts));
}

PyObject* model_addgenconstrexp(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_func(self, args, kwds, "OO|OO:addGenConstrExp", "exp", VLMaddgenconstrExp);
}
PyObject* model_addgenconstrexpa(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_func_a(self, args, kwds, "OOO|OO:addGenConstrExpA", "expa", VLMaddgenconstrExpA);
}
PyObject* model_addgenconstrlog(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_func(self, args, kwds, "OO|OO:addGenConstrLog", "log", VLMaddgenconstrLog);
}
PyObject* model_addgenconstrloga(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_func_a(self, args, kwds, "OOO|OO:addGenConstrLogA", "loga", VLMaddgenconstrLogA);
}
PyObject* model_addgenconstrpow(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_func_a(self, args, kwds, "OOO|OO:addGenConstrPow", "pow", VLMaddgenconstrPow);
}
PyObject* model_addgenconstrlogistic(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_func(self, args, kwds, "OO|OO:addGenConstrLogistic", "logistic", VLMaddgenconstrLogistic);
}
PyObject* model_addgenconstrsin(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_func(self, args, kwds, "OO|OO:addGenConstrSin", "sin", VLMaddgenconstrSin);
}
PyObject* model_addgenconstrcos(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_func(self, args, kwds, "OO|OO:addGenConstrCos", "cos", VLMaddgenconstrCos);
}
PyObject* model_addgenconstrtan(PyObject* self, PyObject* args, PyObject* kwds) {
  return add_func(self, args, kwds, "OO|OO:addGenConstrTan", "tan", VLMaddgenconstrTan);
}

PyObject* model_getgenconstrmax(PyObject* self, PyObject* gc) { return get_list_value(self, gc, VLMgetgenconstrMax); }
PyObject* model_getgenconstrmin(PyObject* self, PyObject* gc) { return get_list_value(self, gc, VLMgetgenconstrMin); }
PyObject* model_getgenconstrnorm(PyObject* self, PyObject* gc) { return get_list_value(self, gc, VLMgetgenconstrNorm); }
PyObject* model_getgenconstrand(PyObject* self, PyObject* gc) { return get_list(self, gc, VLMgetgenconstrAnd); }
PyObject* model_getgenconstror(PyObject* self, PyObject* gc) { return get_list(self, gc, VLMgetgenconstrOr); }

PyObject* model_getgenconstrabs(PyObject* self, PyObject* gc) {
  int id = 0, res = 0, arg = 0;
  if (!genconstr_id(self, gc, &id)) return nullptr;
  int rc = VLMgetgenconstrAbs(model_handle(self), id, &res, &arg);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref r = var_handle(self, res);
  if (!r) return nullptr;
  return tuple_of(std::move(r), var_handle(self, arg));
}

PyObject* model_getgenconstrindicator(PyObject* self, PyObject* gc) {
  int id = 0, bin = 0, binval = 0, n = 0;
  if (!genconstr_id(self, gc, &id)) return nullptr;
  VLMmodel* m = model_handle(self);
  int rc = VLMgetgenconstrIndicator(m, id, nullptr, nullptr, &n, nullptr, nullptr, nullptr, nullptr);
  if (rc != 0) return raise_velmor(rc, self);
  std::vector<int> ind(static_cast<std::size_t>(n));
  std::vector<double> val(static_cast<std::size_t>(n));
  char sense = 0;
  double rhs = 0.0;
  rc = VLMgetgenconstrIndicator(m, id, &bin, &binval, &n, ind.data(), val.data(), &sense, &rhs);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref binvar = var_handle(self, bin);
  if (!binvar) return nullptr;
  py::Ref expr = linexpr_new(0.0);
  if (!expr) return nullptr;
  TermVec<LinTerm> terms;
  terms.reserve(ind.size());
  for (std::size_t i = 0; i < ind.size(); ++i) {
    py::Ref v = var_handle(self, ind[i]);
    if (!v) {
      for (LinTerm& t : terms) Py_DECREF(t.var);
      return nullptr;
    }
    terms.push_back({val[i], v.release()});
  }
  linexpr_replace(expr.get(), terms, 0.0);
  const char s[2] = {sense, '\0'};
  return tuple_of(std::move(binvar), py::Ref::steal(PyBool_FromLong(binval)), std::move(expr), py::str(s),
                  float_ref(rhs));
}

PyObject* model_getgenconstrpwl(PyObject* self, PyObject* gc) {
  int id = 0, x = 0, y = 0, n = 0;
  if (!genconstr_id(self, gc, &id)) return nullptr;
  VLMmodel* m = model_handle(self);
  int rc = VLMgetgenconstrPWL(m, id, nullptr, nullptr, &n, nullptr, nullptr);
  if (rc != 0) return raise_velmor(rc, self);
  std::vector<double> xs(static_cast<std::size_t>(n)), ys(static_cast<std::size_t>(n));
  rc = VLMgetgenconstrPWL(m, id, &x, &y, &n, xs.data(), ys.data());
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref xv = var_handle(self, x);
  if (!xv) return nullptr;
  py::Ref yv = var_handle(self, y);
  if (!yv) return nullptr;
  return tuple_of(std::move(xv), std::move(yv), float_list(xs), float_list(ys));
}

PyObject* model_getgenconstrpoly(PyObject* self, PyObject* gc) {
  int id = 0, x = 0, y = 0, n = 0;
  if (!genconstr_id(self, gc, &id)) return nullptr;
  VLMmodel* m = model_handle(self);
  int rc = VLMgetgenconstrPoly(m, id, nullptr, nullptr, &n, nullptr);
  if (rc != 0) return raise_velmor(rc, self);
  std::vector<double> p(static_cast<std::size_t>(n));
  rc = VLMgetgenconstrPoly(m, id, &x, &y, &n, p.data());
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref xv = var_handle(self, x);
  if (!xv) return nullptr;
  py::Ref yv = var_handle(self, y);
  if (!yv) return nullptr;
  return tuple_of(std::move(xv), std::move(yv), float_list(p));
}

PyObject* model_getgenconstrexp(PyObject* self, PyObject* gc) { return get_func(self, gc, VLMgetgenconstrExp); }
PyObject* model_getgenconstrlog(PyObject* self, PyObject* gc) { return get_func(self, gc, VLMgetgenconstrLog); }
PyObject* model_getgenconstrlogistic(PyObject* self, PyObject* gc) {
  return get_func(self, gc, VLMgetgenconstrLogistic);
}
PyObject* model_getgenconstrsin(PyObject* self, PyObject* gc) { return get_func(self, gc, VLMgetgenconstrSin); }
PyObject* model_getgenconstrcos(PyObject* self, PyObject* gc) { return get_func(self, gc, VLMgetgenconstrCos); }
PyObject* model_getgenconstrtan(PyObject* self, PyObject* gc) { return get_func(self, gc, VLMgetgenconstrTan); }
PyObject* model_getgenconstrexpa(PyObject* self, PyObject* gc) { return get_func_a(self, gc, VLMgetgenconstrExpA); }
PyObject* model_getgenconstrloga(PyObject* self, PyObject* gc) { return get_func_a(self, gc, VLMgetgenconstrLogA); }
PyObject* model_getgenconstrpow(PyObject* self, PyObject* gc) { return get_func_a(self, gc, VLMgetgenconstrPow); }

// ---- docstrings ------------------------------------------------------------------------------

#define FUNC_OPTIONS_DOC                                                                        \
  "options is passed to the library as it stands: words Name=value among FuncPieces,\n"        \
  "FuncPieceError, FuncPieceLength, FuncPieceRatio and FuncNonlinear that tell how the\n"      \
  "function is approximated (\"\" uses the parameters of the same names).\n"

const char model_addgenconstrmax_doc[] =
    "addGenConstrMax($self, resvar, vars, constant=None, name=\"\")\n--\n\n"
    "Adds the general constraint resvar = max(vars..., constant) and returns its GenConstr.\n"
    "vars is a list of Var (nested lists are spliced), the values of a tupledict, or an MVar;\n"
    "without constant only the variables count. Also reached through\n"
    "addConstr(z == max_(x, y, constant=1)).\n\n"
    "With an MVar resvar of several variables one constraint is added per element and an\n"
    "MGenConstr of its shape returned: vars is then a list of Vars and MVars, each broadcast to\n"
    "resvar's shape, or an MVar of resvar's shape plus one axis holding the operands; constant\n"
    "may be an array broadcast likewise. The other addGenConstr... methods take matrix\n"
    "arguments the same way (elementwise, NumPy broadcasting, all constraints or none).\n\n"
    "Example: m.addGenConstrMax(z, [x, y], 3.0, name=\"zmax\")";
const char model_addgenconstrmin_doc[] =
    "addGenConstrMin($self, resvar, vars, constant=None, name=\"\")\n--\n\n"
    "Adds the general constraint resvar = min(vars..., constant) and returns its GenConstr;\n"
    "arguments as for addGenConstrMax. Also reached through addConstr(z == min_(x, y)).\n\n"
    "Example: m.addGenConstrMin(z, [x, y], name=\"zmin\")";
const char model_addgenconstrabs_doc[] =
    "addGenConstrAbs($self, resvar, argvar, name=\"\")\n--\n\n"
    "Adds the general constraint resvar = |argvar| and returns its GenConstr. Also reached\n"
    "through addConstr(z == abs_(x)).\n\n"
    "Example: m.addGenConstrAbs(z, x)";
const char model_addgenconstrand_doc[] =
    "addGenConstrAnd($self, resvar, vars, name=\"\")\n--\n\n"
    "Adds the general constraint resvar = vars[0] and vars[1] and ... over binary variables\n"
    "(the library refuses others) and returns its GenConstr. Also reached through\n"
    "addConstr(r == and_(b1, b2)).\n\n"
    "Example: m.addGenConstrAnd(r, [b1, b2, b3])";
const char model_addgenconstror_doc[] =
    "addGenConstrOr($self, resvar, vars, name=\"\")\n--\n\n"
    "Adds the general constraint resvar = vars[0] or vars[1] or ... over binary variables\n"
    "and returns its GenConstr. Also reached through addConstr(r == or_(b1, b2)).\n\n"
    "Example: m.addGenConstrOr(r, [b1, b2])";
const char model_addgenconstrnorm_doc[] =
    "addGenConstrNorm($self, resvar, vars, which, name=\"\")\n--\n\n"
    "Adds the general constraint resvar = ||vars||_which and returns its GenConstr. which is\n"
    "0, 1, 2 or VLM.INFINITY (or float('inf')) for the maximum norm. Also reached through\n"
    "addConstr(z == norm([x, y], 2)).\n\n"
    "Example: m.addGenConstrNorm(z, [x, y, w], 2.0)";
const char model_addgenconstrindicator_doc[] =
    "addGenConstrIndicator($self, binvar, binval, lhs, sense=None, rhs=None, name=\"\")\n--\n\n"
    "Adds the indicator constraint: binvar == binval implies lhs sense rhs, and returns its\n"
    "GenConstr. binvar is a binary variable, binval true or false. Either lhs is a TempConstr\n"
    "(x + y <= 1; sense and rhs are then ignored) or lhs is a number, Var or LinExpr with sense\n"
    "'<', '>' or '=' and a number rhs. Also reached through addConstr((b == 1) >> (x + y <= 1)).\n"
    "An MVar binvar or a matrix expression lhs adds one indicator per element (binvar, binval,\n"
    "lhs and rhs broadcast together) and returns an MGenConstr.\n\n"
    "Examples:\n"
    "    m.addGenConstrIndicator(b, True, x + y <= 1)\n"
    "    m.addGenConstrIndicator(b, True, x + y, VLM.LESS_EQUAL, 1)";
const char model_addgenconstrpwl_doc[] =
    "addGenConstrPWL($self, xvar, yvar, xpts, ypts, name=\"\")\n--\n\n"
    "Adds the constraint yvar = f(xvar) for the piecewise-linear f through the points\n"
    "(xpts[i], ypts[i]) and returns its GenConstr. At least two points; the x values must not\n"
    "decrease (a repeated x value makes a jump).\n\n"
    "Example: m.addGenConstrPWL(x, y, [0, 1, 2], [1.5, 0, 3])";
const char model_addgenconstrpoly_doc[] =
    "addGenConstrPoly($self, xvar, yvar, p, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = p[0] x^d + p[1] x^(d-1) + ... + p[d] with d = len(p) - 1 and\n"
    "returns its GenConstr. " FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrPoly(x, y, [2, 1.5, 0, 1])   # y = 2x^3 + 1.5x^2 + 1";
const char model_addgenconstrexp_doc[] =
    "addGenConstrExp($self, xvar, yvar, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = exp(xvar) and returns its GenConstr.\n" FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrExp(x, y, options=\"FuncPieces=100\")";
const char model_addgenconstrexpa_doc[] =
    "addGenConstrExpA($self, xvar, yvar, a, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = a^xvar for a base a > 0 and returns its GenConstr.\n" FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrExpA(x, y, 2.0)";
const char model_addgenconstrlog_doc[] =
    "addGenConstrLog($self, xvar, yvar, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = ln(xvar) and returns its GenConstr.\n" FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrLog(x, y)";
const char model_addgenconstrloga_doc[] =
    "addGenConstrLogA($self, xvar, yvar, a, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = log_a(xvar) for a base a > 0, a != 1, and returns its\n"
    "GenConstr.\n" FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrLogA(x, y, 10.0)";
const char model_addgenconstrpow_doc[] =
    "addGenConstrPow($self, xvar, yvar, a, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = xvar^a and returns its GenConstr.\n" FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrPow(x, y, 0.5)";
const char model_addgenconstrlogistic_doc[] =
    "addGenConstrLogistic($self, xvar, yvar, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = 1 / (1 + exp(-xvar)) and returns its GenConstr.\n" FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrLogistic(x, y)";
const char model_addgenconstrsin_doc[] =
    "addGenConstrSin($self, xvar, yvar, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = sin(xvar) and returns its GenConstr.\n" FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrSin(x, y)";
const char model_addgenconstrcos_doc[] =
    "addGenConstrCos($self, xvar, yvar, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = cos(xvar) and returns its GenConstr.\n" FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrCos(x, y)";
const char model_addgenconstrtan_doc[] =
    "addGenConstrTan($self, xvar, yvar, name=\"\", options=\"\")\n--\n\n"
    "Adds the constraint yvar = tan(xvar) and returns its GenConstr.\n" FUNC_OPTIONS_DOC "\n"
    "Example: m.addGenConstrTan(x, y)";

#undef FUNC_OPTIONS_DOC

#define READER_NOTE \
  "The constraint must have been applied by an update; a constraint of another type is\n" \
  "refused by the library (VelmorError).\n"

const char model_getgenconstrmax_doc[] =
    "getGenConstrMax($self, genconstr)\n--\n\n"
    "Returns (resvar, vars, constant) of a MAX constraint; constant is -VLM.INFINITY when the\n"
    "constraint has none.\n" READER_NOTE;
const char model_getgenconstrmin_doc[] =
    "getGenConstrMin($self, genconstr)\n--\n\n"
    "Returns (resvar, vars, constant) of a MIN constraint; constant is VLM.INFINITY when the\n"
    "constraint has none.\n" READER_NOTE;
const char model_getgenconstrabs_doc[] =
    "getGenConstrAbs($self, genconstr)\n--\n\nReturns (resvar, argvar) of an ABS constraint.\n" READER_NOTE;
const char model_getgenconstrand_doc[] =
    "getGenConstrAnd($self, genconstr)\n--\n\nReturns (resvar, vars) of an AND constraint.\n" READER_NOTE;
const char model_getgenconstror_doc[] =
    "getGenConstrOr($self, genconstr)\n--\n\nReturns (resvar, vars) of an OR constraint.\n" READER_NOTE;
const char model_getgenconstrnorm_doc[] =
    "getGenConstrNorm($self, genconstr)\n--\n\n"
    "Returns (resvar, vars, which) of a NORM constraint; which is 0.0, 1.0, 2.0 or\n"
    "VLM.INFINITY.\n" READER_NOTE;
const char model_getgenconstrindicator_doc[] =
    "getGenConstrIndicator($self, genconstr)\n--\n\n"
    "Returns (binvar, binval, expr, sense, rhs) of an INDICATOR constraint: binvar == binval\n"
    "(True or False) implies expr sense rhs, expr a LinExpr without constant, sense '<', '>'\n"
    "or '='.\n" READER_NOTE;
const char model_getgenconstrpwl_doc[] =
    "getGenConstrPWL($self, genconstr)\n--\n\n"
    "Returns (xvar, yvar, xpts, ypts) of a PWL constraint.\n" READER_NOTE;
const char model_getgenconstrpoly_doc[] =
    "getGenConstrPoly($self, genconstr)\n--\n\n"
    "Returns (xvar, yvar, p) of a POLY constraint, p from the highest power down.\n" READER_NOTE;
const char model_getgenconstrexp_doc[] =
    "getGenConstrExp($self, genconstr)\n--\n\nReturns (xvar, yvar) of an EXP constraint.\n" READER_NOTE;
const char model_getgenconstrexpa_doc[] =
    "getGenConstrExpA($self, genconstr)\n--\n\nReturns (xvar, yvar, a) of an EXPA constraint.\n" READER_NOTE;
const char model_getgenconstrlog_doc[] =
    "getGenConstrLog($self, genconstr)\n--\n\nReturns (xvar, yvar) of a LOG constraint.\n" READER_NOTE;
const char model_getgenconstrloga_doc[] =
    "getGenConstrLogA($self, genconstr)\n--\n\nReturns (xvar, yvar, a) of a LOGA constraint.\n" READER_NOTE;
const char model_getgenconstrpow_doc[] =
    "getGenConstrPow($self, genconstr)\n--\n\nReturns (xvar, yvar, a) of a POW constraint.\n" READER_NOTE;
const char model_getgenconstrlogistic_doc[] =
    "getGenConstrLogistic($self, genconstr)\n--\n\nReturns (xvar, yvar) of a LOGISTIC constraint.\n" READER_NOTE;
const char model_getgenconstrsin_doc[] =
    "getGenConstrSin($self, genconstr)\n--\n\nReturns (xvar, yvar) of a SIN constraint.\n" READER_NOTE;
const char model_getgenconstrcos_doc[] =
    "getGenConstrCos($self, genconstr)\n--\n\nReturns (xvar, yvar) of a COS constraint.\n" READER_NOTE;
const char model_getgenconstrtan_doc[] =
    "getGenConstrTan($self, genconstr)\n--\n\nReturns (xvar, yvar) of a TAN constraint.\n" READER_NOTE;

#undef READER_NOTE
