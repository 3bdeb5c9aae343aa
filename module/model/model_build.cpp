// Model: adding variables and constraints, and reading or changing coefficients, columns and
// rows (see model_build.h).
//
// Expressions are read in place, node by node along their frozen tails, into index and value
// arrays; nothing is flattened or copied on the Python side. Every variable is checked (same
// model, not pending in lazy update mode, not removed) and every coefficient is checked
// (finite) before the one library call, so a refused argument leaves the model as it was. New
// handles are appended only after the library accepted the element.
#include "model/model_build.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "expr/genexpr.h"
#include "elements/handle.h"
#include "expr/linexpr.h"
#include "model/model.h"
#include "model/model_genconstr.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "expr/quadexpr.h"
#include "expr/tempconstr.h"
#include "containers/tupledict.h"
#include "elements/var.h"

namespace {

// ---- errors and argument parsing -------------------------------------------------------------

PyObject* invalid(const char* message) { return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message); }
PyObject* invalid(const std::string& message) { return invalid(message.c_str()); }

PyObject* not_in_model(int kind) {
  std::string msg = std::string(handle_element_word(kind)) + " not in model";
  return raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, msg.c_str());
}

// "Unsupported type (<class 'str'>) for <what>", the wording the expressions use.
PyObject* unsupported(PyObject* o, const char* what) {
  py::Ref t = py::Ref::steal(PyObject_Str(reinterpret_cast<PyObject*>(Py_TYPE(o))));
  if (!t) return nullptr;
  const char* s = PyUnicode_AsUTF8(t.get());
  if (s == nullptr) return nullptr;
  return invalid(std::string("Unsupported type (") + s + ") for " + what);
}

// A disposed model has no library handle; every method refuses it the way the lifecycle
// methods do.
bool model_alive(PyObject* self) {
  if (model_handle(self) != nullptr) return true;
  raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  return false;
}

// Fills out[0..n) from the arguments of a METH_FASTCALL | METH_KEYWORDS call by Python's rules;
// absent arguments stay nullptr. The first `required` names are required.
bool parse_args(const char* fname, const char* const* names, int n, int required, PyObject* const* args,
                Py_ssize_t nargs, PyObject* kwnames, PyObject** out) {
  if (nargs > n) {
    PyErr_Format(PyExc_TypeError, "%s() takes at most %d arguments (%zd given)", fname, n, nargs);
    return false;
  }
  for (int i = 0; i < n; ++i) out[i] = i < nargs ? args[i] : nullptr;
  const Py_ssize_t nkw = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
  for (Py_ssize_t k = 0; k < nkw; ++k) {
    PyObject* key = PyTuple_GET_ITEM(kwnames, k);
    int i = 0;
    while (i < n && PyUnicode_CompareWithASCIIString(key, names[i]) != 0) ++i;
    if (i == n) {
      PyErr_Format(PyExc_TypeError, "%s() got an unexpected keyword argument '%U'", fname, key);
      return false;
    }
    if (out[i] != nullptr) {
      PyErr_Format(PyExc_TypeError, "%s() got multiple values for argument '%s'", fname, names[i]);
      return false;
    }
    out[i] = args[nargs + k];
  }
  for (int i = 0; i < required; ++i) {
    if (out[i] == nullptr) {
      PyErr_Format(PyExc_TypeError, "%s() missing required argument '%s' (pos %d)", fname, names[i], i + 1);
      return false;
    }
  }
  return true;
}

bool is_none(PyObject* o) { return o == nullptr || o == Py_None; }

// A number argument (bounds, right-hand sides); `dflt` when absent. Infinite values pass as
// they are: the library reads anything at or beyond 1e100 as infinite.
bool double_arg(PyObject* o, double dflt, double* out) {
  if (o == nullptr) {
    *out = dflt;
    return true;
  }
  double v = PyFloat_AsDouble(o);
  if (v == -1.0 && PyErr_Occurred()) return false;
  *out = v;
  return true;
}

// The name handed to the library: nullptr for None or "" (the library then names the element
// by its index, "C0", "R0", ...), else the UTF-8 text of str(name). `keep` owns the text.
bool name_arg(PyObject* name, py::Ref* keep, const char** out) {
  *out = nullptr;
  if (is_none(name)) return true;
  *keep = PyUnicode_Check(name) ? py::Ref::borrow(name) : py::Ref::steal(PyObject_Str(name));
  if (!*keep) return false;
  if (PyUnicode_GET_LENGTH(keep->get()) == 0) return true;
  *out = PyUnicode_AsUTF8(keep->get());
  return *out != nullptr;
}

// One character of a one-character str or bytes (variable types, senses).
bool single_char(PyObject* o, char* out) {
  if (PyUnicode_Check(o) && PyUnicode_GET_LENGTH(o) == 1) {
    Py_UCS4 c = PyUnicode_READ_CHAR(o, 0);
    if (c < 128) {
      *out = static_cast<char>(c);
      return true;
    }
  } else if (PyBytes_Check(o) && PyBytes_GET_SIZE(o) == 1) {
    *out = PyBytes_AS_STRING(o)[0];
    return true;
  }
  return false;
}

bool vtype_arg(PyObject* o, char* out) {
  if (single_char(o, out)) return true;
  py::Ref r = py::Ref::steal(PyObject_Repr(o));
  const char* s = r ? PyUnicode_AsUTF8(r.get()) : nullptr;
  if (s == nullptr) return false;
  invalid(std::string("Invalid variable type ") + s + " (expected 'C', 'B', 'I', 'S' or 'N')");
  return false;
}

// Senses as VLM gives them ("<", ">", "=") and as people write them ("<=", ">=", "==").
bool sense_arg(PyObject* o, char* out) {
  static const struct {
    const char* text;
    char sense;
  } kSenses[] = {{"<", '<'}, {"<=", '<'}, {">", '>'}, {">=", '>'}, {"=", '='}, {"==", '='}};
  if (PyUnicode_Check(o)) {
    const char* s = PyUnicode_AsUTF8(o);
    if (s == nullptr) return false;
    for (const auto& k : kSenses) {
      if (std::strcmp(s, k.text) == 0) {
        *out = k.sense;
        return true;
      }
    }
  }
  py::Ref r = py::Ref::steal(PyObject_Repr(o));
  const char* s = r ? PyUnicode_AsUTF8(r.get()) : nullptr;
  if (s == nullptr) return false;
  invalid(std::string("Invalid constraint sense ") + s + " (expected '<', '>' or '=')");
  return false;
}

char tempconstr_sense(PyObject* tc) {
  PyObject* s = as_tempconstr(tc)->sense;
  if (!PyUnicode_Check(s) || PyUnicode_GET_LENGTH(s) < 1) return 0;
  Py_UCS4 c = PyUnicode_READ_CHAR(s, 0);
  return c < 128 ? static_cast<char>(c) : 0;
}

// True when a class named `name` is in the MRO of o's type (the matrix classes live elsewhere).
bool has_class(PyObject* o, const char* name) {
  PyObject* mro = Py_TYPE(o)->tp_mro;
  if (mro == nullptr) return false;
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(mro); ++i) {
    const char* n = reinterpret_cast<PyTypeObject*>(PyTuple_GET_ITEM(mro, i))->tp_name;
    const char* dot = std::strrchr(n, '.');
    if (std::strcmp(dot ? dot + 1 : n, name) == 0) return true;
  }
  return false;
}

// Library counts and indices are int.
bool fits_int(size_t n, const char* what) {
  if (n <= static_cast<size_t>(INT32_MAX)) return true;
  invalid(std::string("Too many ") + what + " for one library call");
  return false;
}

// ---- element positions -----------------------------------------------------------------------

// The library position of a handle of `kind` that must belong to this model and be in it
// (pending removals still are); "<Element> not in model" otherwise.
bool position_of(PyObject* self, PyObject* o, int kind, int* pos) {
  if (handle_kind(o) != kind) {
    not_in_model(kind);
    return false;
  }
  HandleObject* h = as_handle(o);
  if (!model_has(self, o) || h->index == kIndexPending || h->index == kIndexRemoved) {
    not_in_model(kind);
    return false;
  }
  *pos = handle_position(h->index);
  return true;
}

// Reads see the model as of the last update: an element added since is not there yet.
bool in_library(int pos, Py_ssize_t live, int kind) {
  if (pos < live) return true;
  not_in_model(kind);
  return false;
}

// The handle of a library index as of the last update, from the model's list.
PyObject* handle_at(PyObject* list, int index) {
  if (index < 0 || index >= PyList_GET_SIZE(list)) {
    raise_velmor_msg(VLM_ERROR_INTERNAL, "The model's element lists are out of step with the library");
    return nullptr;
  }
  return PyList_GET_ITEM(list, index);
}

// ---- taking expressions apart ----------------------------------------------------------------

// The terms of `lhs - rhs`, as the library wants them: column indices, coefficients, and the
// constant that moves to the right-hand side.
struct Terms {
  std::vector<int> lind;
  std::vector<double> lval;
  std::vector<int> qrow, qcol;
  std::vector<double> qval;
  double constant = 0.0;
  bool quadratic = false;  // a QuadExpr took part, even if it had no quadratic terms
};

bool finite_coeff(double c) {
  if (std::isfinite(c)) return true;
  invalid("Coefficient is Nan or Inf");
  return false;
}

bool collect_var(PyObject* self, PyObject* var, double coeff, Terms& t) {
  int col = 0;
  if (!position_of(self, var, VLM_KIND_VAR, &col) || !finite_coeff(coeff)) return false;
  t.lind.push_back(col);
  t.lval.push_back(coeff);
  return true;
}

// mult times a LinExpr (its whole chain of tails) into t.
bool collect_linexpr(PyObject* self, PyObject* e, double mult, Terms& t) {
  const size_t more = linexpr_total_size(e);
  t.lind.reserve(t.lind.size() + more);
  t.lval.reserve(t.lval.size() + more);
  bool ok = true;
  linexpr_for_each_node(e, [&](const LinExprObject* node) {
    if (!ok) return;
    t.constant += mult * node->constant;
    for (const LinTerm& term : node->terms) {
      if (!collect_var(self, term.var, mult * term.coeff, t)) {
        ok = false;
        return;
      }
    }
  });
  return ok;
}

// mult times a QuadExpr: each node of the tail chain contributes its linear part and its
// quadratic terms (the value of the expression is their sum, as after flattening).
bool collect_quadexpr(PyObject* self, PyObject* q, double mult, Terms& t) {
  t.quadratic = true;
  for (PyObject* p = q; p != nullptr; p = as_quadexpr(p)->cont) {
    const QuadExprObject* node = as_quadexpr(p);
    if (!collect_linexpr(self, node->lin, mult, t)) return false;
    for (const QuadTerm& term : node->terms) {
      int r = 0, c = 0;
      const double v = mult * term.coeff;
      if (!position_of(self, term.var1, VLM_KIND_VAR, &r) || !position_of(self, term.var2, VLM_KIND_VAR, &c) ||
          !finite_coeff(v)) {
        return false;
      }
      t.qrow.push_back(r);
      t.qcol.push_back(c);
      t.qval.push_back(v);
    }
  }
  return true;
}

// mult times a number, Var, LinExpr or QuadExpr into t: 1 done; 0 for any other type
// (nothing set); -1 with an exception set.
int collect(PyObject* self, PyObject* o, double mult, Terms& t) {
  double v = 0;
  switch (expr_classify(o, &v)) {
    case kOperandNumber:
      t.constant += mult * v;
      return 1;
    case kOperandVar:
      return collect_var(self, o, mult, t) ? 1 : -1;
    case kOperandLinExpr:
      return collect_linexpr(self, o, mult, t) ? 1 : -1;
    case kOperandQuadExpr:
      return collect_quadexpr(self, o, mult, t) ? 1 : -1;
    case kOperandError:
      return -1;
    default:
      return 0;
  }
}

// lhs - rhs into t; false with an exception set (an unsupported side names `what`).
bool collect_sides(PyObject* self, PyObject* lhs, PyObject* rhs, const char* what, Terms& t) {
  for (auto [side, mult] : {std::pair{lhs, 1.0}, std::pair{rhs, -1.0}}) {
    int r = collect(self, side, mult, t);
    if (r < 0) return false;
    if (r == 0) {
      unsupported(side, what);
      return false;
    }
  }
  return true;
}

// ---- adding collected terms ------------------------------------------------------------------

// VLMclean2/VLMclean3 merge duplicate indices and drop zeros (they refuse empty arrays, which
// have no data pointer).
int clean_linear(Terms& t) {
  int n = static_cast<int>(t.lind.size());
  if (n > 0) VLMclean2(&n, t.lind.data(), t.lval.data());
  return n;
}

int clean_quadratic(Terms& t) {
  int n = static_cast<int>(t.qrow.size());
  if (n > 0) VLMclean3(&n, t.qrow.data(), t.qcol.data(), t.qval.data());
  return n;
}

// Adds `terms sense 0` as a linear constraint, or as a quadratic one when a QuadExpr took part
// or `as_quadratic` is set. Returns the new handle.
PyObject* add_collected(PyObject* self, Terms& t, char sense, const char* name, bool as_quadratic) {
  if (!fits_int(t.lind.size(), "terms") || !fits_int(t.qrow.size(), "terms")) return nullptr;
  const double rhs = -t.constant;
  const int nl = clean_linear(t);
  if (t.quadratic || as_quadratic) {
    const int nq = clean_quadratic(t);
    int rc = VLMaddqconstr(model_handle(self), nl, t.lind.data(), t.lval.data(), nq, t.qrow.data(), t.qcol.data(),
                           t.qval.data(), sense, rhs, name);
    if (rc != 0) return raise_velmor(rc, self);
    return model_append_handle(self, VLM_KIND_QCONSTR).release();
  }
  int rc = VLMaddconstr(model_handle(self), nl, t.lind.data(), t.lval.data(), sense, rhs, name);
  if (rc != 0) return raise_velmor(rc, self);
  return model_append_handle(self, VLM_KIND_CONSTR).release();
}

// lhs sense rhs, any mix of numbers, Var, LinExpr and QuadExpr.
PyObject* add_sides(PyObject* self, PyObject* lhs, char sense, PyObject* rhs, PyObject* name, const char* what,
                    bool as_quadratic) {
  py::Ref keep;
  const char* cname = nullptr;
  if (!name_arg(name, &keep, &cname)) return nullptr;
  if (model_setup(self, false) < 0) return nullptr;
  Terms t;
  if (!collect_sides(self, lhs, rhs, what, t)) return nullptr;
  return add_collected(self, t, sense, cname, as_quadratic);
}

// lower <= expr <= upper. In immediate update mode the slack that the library adds gets its
// handle at the next update (Model's range count).
PyObject* add_range(PyObject* self, PyObject* expr, double lower, double upper, PyObject* name) {
  py::Ref keep;
  const char* cname = nullptr;
  if (!name_arg(name, &keep, &cname)) return nullptr;
  if (model_setup(self, false) < 0) return nullptr;
  const int mode = model_getupdatemode(self);
  if (mode == -1 && PyErr_Occurred()) return nullptr;
  Terms t;
  int r = collect(self, expr, 1.0, t);
  if (r < 0) return nullptr;
  if (r == 0) return unsupported(expr, "range constraint expression");
  if (t.quadratic) return invalid("Range constraints must be linear");
  if (!fits_int(t.lind.size(), "terms")) return nullptr;
  const int n = clean_linear(t);
  int rc = VLMaddrangeconstr(model_handle(self), n, t.lind.data(), t.lval.data(), lower - t.constant,
                             upper - t.constant, cname);
  if (rc != 0) return raise_velmor(rc, self);
  if (mode == 1) as_model(self)->newranges += 1;
  return model_append_handle(self, VLM_KIND_CONSTR).release();
}

PyObject* g_real = nullptr;  // numbers.Real, kept for the process lifetime

int is_real(PyObject* o) {
  if (PyFloat_Check(o) || PyLong_Check(o)) return 1;
  if (g_real == nullptr) {
    py::Ref numbers = py::Ref::steal(PyImport_ImportModule("numbers"));
    if (!numbers) return -1;
    g_real = PyObject_GetAttrString(numbers.get(), "Real");
    if (g_real == nullptr) return -1;
  }
  return PyObject_IsInstance(o, g_real);
}

// expr == [lb, ub].
PyObject* add_range_list(PyObject* self, PyObject* expr, PyObject* bounds, PyObject* name) {
  if (!PyList_Check(bounds)) return invalid("Range constraint requires a list [lb,ub]");
  if (PyList_GET_SIZE(bounds) != 2) return invalid("Range constraint requires two values");
  double b[2];
  for (Py_ssize_t i = 0; i < 2; ++i) {
    PyObject* v = PyList_GET_ITEM(bounds, i);
    int real = is_real(v);
    if (real < 0) return nullptr;
    if (!real) return invalid("Range constraint requires numeric values");
    if (!double_arg(v, 0.0, &b[i])) return nullptr;
  }
  return add_range(self, expr, b[0], b[1], name);
}

// The matrix layer's hooks: Model._addNDConstr / _addNDQConstr(expr, sense, name).
PyObject* add_matrix(PyObject* self, PyObject* tc, PyObject* name) {
  const bool quad = has_class(as_tempconstr(tc)->lhs, "MQuadExpr");
  const char* hook = quad ? "_addNDQConstr" : "_addNDConstr";
  py::Ref fn = py::Ref::steal(PyObject_GetAttrString(self, hook));
  if (!fn) {
    if (!PyErr_ExceptionMatches(PyExc_AttributeError)) return nullptr;
    PyErr_Clear();
    return raise_velmor_msg(VLM_ERROR_NOT_SUPPORTED,
                            quad ? "Matrix quadratic constraints are not available (no Model._addNDQConstr)"
                                 : "Matrix constraints are not available (no Model._addNDConstr)");
  }
  PyObject* call_args[] = {as_tempconstr(tc)->lhs, as_tempconstr(tc)->sense, is_none(name) ? Py_None : name};
  return PyObject_Vectorcall(fn.get(), call_args, 3, nullptr);
}

// addConstr's dispatch for one TempConstr or the older argument forms; `name` may be nullptr.
PyObject* add_constr_any(PyObject* self, PyObject* lhs, PyObject* sense, PyObject* rhs, PyObject* name) {
  if (!model_alive(self)) return nullptr;
  if (!tempconstr_check(lhs)) {
    if (PyBool_Check(lhs) && is_none(sense) && is_none(rhs)) {
      // A comparison Python has already decided: True holds always (0 <= 0), False never (1 <= 0).
      py::Ref constant = py::Ref::steal(PyFloat_FromDouble(lhs == Py_True ? 0.0 : 1.0));
      py::Ref zero = py::Ref::steal(PyFloat_FromDouble(0.0));
      if (!constant || !zero) return nullptr;
      return add_sides(self, constant.get(), '<', zero.get(), name, "constraint", false);
    }
    if (lhs == Py_None) return invalid("Invalid None value for lhs when calling Model.addConstr");
    if (is_none(sense)) {
      return invalid("Model.addConstr() needs a constraint such as x + y <= 1 (or lhs, sense and rhs)");
    }
    if (PyErr_WarnEx(PyExc_DeprecationWarning, "Deprecated, pass a TempConstr or use Model.addLConstr", 1) < 0) {
      return nullptr;
    }
    char s = 0;
    if (!sense_arg(sense, &s)) return nullptr;
    return add_sides(self, lhs, s, is_none(rhs) ? Py_None : rhs, name, "constraint argument", false);
  }
  TempConstrObject* tc = as_tempconstr(lhs);
  if (expr_is_matrix(tc->lhs)) return add_matrix(self, lhs, name);
  if (genexpr_check(tc->lhs)) {
    return invalid("General expressions can only appear on the right hand side of a constraint");
  }
  const char s = tempconstr_sense(lhs);
  if (genexpr_check(tc->rhs) || s == 'I') {
    return model_addgenconstr_from_tempconstr(self, lhs, is_none(name) ? Py_None : name);
  }
  if (s == '=' && (PyList_Check(tc->rhs) || PyTuple_Check(tc->rhs)))
    return add_range_list(self, tc->lhs, tc->rhs, name);
  return add_sides(self, tc->lhs, s, tc->rhs, name, "constraint argument", false);
}

// ---- addVars: index sets, per-key values, names ----------------------------------------------

// The keys of one index argument: an int n gives 0 .. n-1, anything else is iterated.
py::Ref index_keys(PyObject* arg) {
  if (PyLong_Check(arg) || (PyIndex_Check(arg) && !PySequence_Check(arg))) {
    Py_ssize_t n = PyNumber_AsSsize_t(arg, PyExc_OverflowError);
    if (n == -1 && PyErr_Occurred()) return py::Ref();
    if (n < 0) n = 0;
    py::Ref list = py::Ref::steal(PyList_New(n));
    if (!list) return list;
    for (Py_ssize_t i = 0; i < n; ++i) {
      PyObject* k = PyLong_FromSsize_t(i);
      if (k == nullptr) return py::Ref();
      PyList_SET_ITEM(list.get(), i, k);
    }
    return list;
  }
  return py::Ref::steal(PySequence_List(arg));
}

// The key set of addVars: one argument gives its keys as they are; several give the Cartesian
// product (last argument fastest) with tuple parts spliced into one flat tuple.
py::Ref expand_keys(PyObject* const* args, Py_ssize_t nargs) {
  if (nargs == 1) return index_keys(args[0]);
  std::vector<py::Ref> sets;
  size_t total = 1;
  for (Py_ssize_t a = 0; a < nargs; ++a) {
    py::Ref keys = index_keys(args[a]);
    if (!keys) return keys;
    const size_t n = static_cast<size_t>(PyList_GET_SIZE(keys.get()));
    total = (n == 0 || total == 0) ? 0 : total * n;
    if (total > static_cast<size_t>(INT32_MAX)) {
      invalid("Too many variables for one library call");
      return py::Ref();
    }
    sets.push_back(std::move(keys));
  }
  py::Ref result = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(total)));
  if (!result || total == 0) return result;
  std::vector<Py_ssize_t> at(sets.size(), 0);
  for (size_t k = 0; k < total; ++k) {
    Py_ssize_t width = 0;
    for (size_t d = 0; d < sets.size(); ++d) {
      PyObject* part = PyList_GET_ITEM(sets[d].get(), at[d]);
      width += PyTuple_Check(part) ? PyTuple_GET_SIZE(part) : 1;
    }
    PyObject* key = PyTuple_New(width);
    if (key == nullptr) return py::Ref();
    PyList_SET_ITEM(result.get(), static_cast<Py_ssize_t>(k), key);
    Py_ssize_t w = 0;
    for (size_t d = 0; d < sets.size(); ++d) {
      PyObject* part = PyList_GET_ITEM(sets[d].get(), at[d]);
      if (PyTuple_Check(part)) {
        for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(part); ++i)
          PyTuple_SET_ITEM(key, w++, py::new_ref(PyTuple_GET_ITEM(part, i)));
      } else {
        PyTuple_SET_ITEM(key, w++, py::new_ref(part));
      }
    }
    for (size_t d = sets.size(); d-- > 0;) {
      if (++at[d] < PyList_GET_SIZE(sets[d].get())) break;
      at[d] = 0;
    }
  }
  return result;
}

bool is_iterable(PyObject* o) {
  if (PyUnicode_Check(o) || PyBytes_Check(o)) return false;
  return Py_TYPE(o)->tp_iter != nullptr || PySequence_Check(o);
}

// How a keyword's value gives one value per key (listify): a dict by key, any other iterable
// in key order, anything else repeated. Calls get(value, i) for each key; false with an
// exception set.
template <class Get>
bool listify(PyObject* arg, const char* what, PyObject* keys, Get&& get) {
  const Py_ssize_t n = PyList_GET_SIZE(keys);
  if (PyDict_Check(arg)) {
    for (Py_ssize_t i = 0; i < n; ++i) {
      py::Ref v = py::Ref::steal(PyObject_GetItem(arg, PyList_GET_ITEM(keys, i)));
      if (!v || !get(v.get(), i)) return false;
    }
    return true;
  }
  if (!is_iterable(arg)) {
    for (Py_ssize_t i = 0; i < n; ++i) {
      if (!get(arg, i)) return false;
    }
    return true;
  }
  py::Ref seq = py::Ref::steal(PySequence_Fast(arg, "addVars() values must be iterable"));
  if (!seq) return false;
  if (PySequence_Fast_GET_SIZE(seq.get()) != n) {
    invalid(std::string("addVars() argument '") + what + "' has " +
            std::to_string(PySequence_Fast_GET_SIZE(seq.get())) + " values for " + std::to_string(n) + " variables");
    return false;
  }
  PyObject** items = PySequence_Fast_ITEMS(seq.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (!get(items[i], i)) return false;
  }
  return true;
}

// A contiguous float64 buffer (a NumPy array, say) with one value per key, copied at once.
// 1 copied, 0 not such a buffer, -1 with an exception set.
int copy_double_buffer(PyObject* arg, Py_ssize_t n, const char* what, std::vector<double>& out) {
  if (!PyObject_CheckBuffer(arg) || PyBytes_Check(arg)) return 0;
  Py_buffer view;
  if (PyObject_GetBuffer(arg, &view, PyBUF_C_CONTIGUOUS | PyBUF_FORMAT) < 0) {
    PyErr_Clear();
    return 0;
  }
  const char* f = view.format ? view.format : "B";
  if (*f == '@' || *f == '=' || *f == '<') ++f;
  int result = 0;
  if (std::strcmp(f, "d") == 0 && view.itemsize == 8 && view.ndim > 0) {
    const Py_ssize_t count = view.len / 8;
    if (count != n) {
      invalid(std::string("addVars() argument '") + what + "' has " + std::to_string(count) + " values for " +
              std::to_string(n) + " variables");
      result = -1;
    } else {
      out.resize(static_cast<size_t>(n));
      if (n > 0) std::memcpy(out.data(), view.buf, static_cast<size_t>(n) * 8);
      result = 1;
    }
  }
  PyBuffer_Release(&view);
  return result;
}

// One double per key for lb, ub or obj.
bool listify_doubles(PyObject* arg, const char* what, PyObject* keys, std::vector<double>& out) {
  const Py_ssize_t n = PyList_GET_SIZE(keys);
  if (PyFloat_Check(arg) || PyLong_Check(arg)) {
    double v = PyFloat_AsDouble(arg);
    if (v == -1.0 && PyErr_Occurred()) return false;
    out.assign(static_cast<size_t>(n), v);
    return true;
  }
  int copied = copy_double_buffer(arg, n, what, out);
  if (copied != 0) return copied > 0;
  out.resize(static_cast<size_t>(n));
  return listify(arg, what, keys, [&](PyObject* v, Py_ssize_t i) {
    double d = PyFloat_AsDouble(v);
    if (d == -1.0 && PyErr_Occurred()) return false;
    out[static_cast<size_t>(i)] = d;
    return true;
  });
}

// str(o) appended as UTF-8, with the common int and str keys done without Python calls.
bool append_text(std::string& out, PyObject* o) {
  if (PyLong_CheckExact(o)) {
    int overflow = 0;
    long long v = PyLong_AsLongLongAndOverflow(o, &overflow);
    if (!overflow && !(v == -1 && PyErr_Occurred())) {
      char buf[24];
      auto r = std::to_chars(buf, buf + sizeof buf, v);
      out.append(buf, r.ptr);
      return true;
    }
    PyErr_Clear();
  }
  py::Ref s = PyUnicode_CheckExact(o) ? py::Ref::borrow(o) : py::Ref::steal(PyObject_Str(o));
  if (!s) return false;
  Py_ssize_t len = 0;
  const char* u = PyUnicode_AsUTF8AndSize(s.get(), &len);
  if (u == nullptr) return false;
  out.append(u, static_cast<size_t>(len));
  return true;
}

// The index part of a name: a scalar key as str(key), a tuple key as its parts joined by ",".
bool append_key_text(std::string& out, PyObject* key) {
  if (!PyTuple_Check(key)) return append_text(out, key);
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(key); ++i) {
    if (i > 0) out.push_back(',');
    if (!append_text(out, PyTuple_GET_ITEM(key, i))) return false;
  }
  return true;
}

// name[key] ("%s[%s]").
bool append_index_name(std::string& out, const std::string& base, PyObject* key) {
  out += base;
  out.push_back('[');
  if (!append_key_text(out, key)) return false;
  out.push_back(']');
  return true;
}

// Variable names of one addVars call, packed into one buffer: names[i] is nullptr for the
// library's default name.
struct NameTable {
  std::string buffer;
  std::vector<size_t> offsets;  // SIZE_MAX: no name
  std::vector<const char*> pointers;
};

bool ascii_only(const char* s, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (static_cast<unsigned char>(s[i]) >= 0x80) return false;
  }
  return true;
}

bool add_name(NameTable& names, size_t start) {
  const char* s = names.buffer.data() + start;
  const size_t n = names.buffer.size() - start;
  if (!ascii_only(s, n)) {
    invalid("Cannot convert " + std::string(s, n) + " to ASCII characters");
    return false;
  }
  names.offsets.push_back(n == 0 ? SIZE_MAX : start);
  names.buffer.push_back('\0');
  return true;
}

// Builds the names from `name`: a str is subscripted by each key, a dict or iterable gives one
// name per key. False with an exception set; names.pointers stays empty when nothing is named.
bool build_names(PyObject* name, PyObject* keys, NameTable& names) {
  if (is_none(name)) return true;
  const Py_ssize_t n = PyList_GET_SIZE(keys);
  try {
    if (PyUnicode_Check(name) || !is_iterable(name)) {
      py::Ref s = PyUnicode_Check(name) ? py::Ref::borrow(name) : py::Ref::steal(PyObject_Str(name));
      if (!s) return false;
      if (PyUnicode_GET_LENGTH(s.get()) == 0) return true;
      Py_ssize_t len = 0;
      const char* u = PyUnicode_AsUTF8AndSize(s.get(), &len);
      if (u == nullptr) return false;
      const std::string base(u, static_cast<size_t>(len));
      names.buffer.reserve(static_cast<size_t>(n) * (base.size() + 10));
      names.offsets.reserve(static_cast<size_t>(n));
      for (Py_ssize_t i = 0; i < n; ++i) {
        const size_t start = names.buffer.size();
        if (!append_index_name(names.buffer, base, PyList_GET_ITEM(keys, i)) || !add_name(names, start)) return false;
      }
    } else {
      names.offsets.reserve(static_cast<size_t>(n));
      bool ok = listify(name, "name", keys, [&](PyObject* v, Py_ssize_t) {
        const size_t start = names.buffer.size();
        if (v != Py_None && !append_text(names.buffer, v)) return false;
        return add_name(names, start);
      });
      if (!ok) return false;
    }
    names.pointers.resize(names.offsets.size());
    for (size_t i = 0; i < names.offsets.size(); ++i) {
      names.pointers[i] = names.offsets[i] == SIZE_MAX ? nullptr : names.buffer.data() + names.offsets[i];
    }
  } catch (const std::bad_alloc&) {
    raise_velmor_msg(VLM_ERROR_OUT_OF_MEMORY, "Out of memory for variable namespace");
    return false;
  }
  return true;
}

// ---- addConstrs: the keys of a generator ------------------------------------------------------

PyObject* g_dis_get_instructions = nullptr;  // dis.get_instructions, kept for the process lifetime

bool str_in(PyObject* list, PyObject* s) {
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
    int eq = PyUnicode_Compare(PyList_GET_ITEM(list, i), s);
    if (eq == 0) return true;
  }
  return false;
}

// The loop variables of a generator's code in the order its loops bind them: the names stored
// by the target of each `for` before the generator first yields. A target is the run of
// instructions right after FOR_ITER that unpacks (UNPACK_SEQUENCE, UNPACK_EX) and stores
// (STORE_FAST, or STORE_DEREF when an inner function captures the name; 3.13 fuses two stores
// into STORE_FAST_STORE_FAST and a store with the next load into STORE_FAST_LOAD_FAST). Left
// out: names that a comprehension inlined into the generator (3.12+) keeps to itself, which it
// saves with LOAD_FAST_AND_CLEAR; names of the enclosing scope (free variables); the hidden
// iterator argument ".0". MAKE_CELL only declares a cell and never starts a target.
py::Ref genexpr_loop_names(PyObject* code) {
  if (g_dis_get_instructions == nullptr) {
    py::Ref dis = py::Ref::steal(PyImport_ImportModule("dis"));
    if (!dis) return dis;
    g_dis_get_instructions = PyObject_GetAttrString(dis.get(), "get_instructions");
    if (g_dis_get_instructions == nullptr) return py::Ref();
  }
  py::Ref instrs = py::Ref::steal(PyObject_CallOneArg(g_dis_get_instructions, code));
  if (!instrs) return instrs;
  py::Ref stored = py::Ref::steal(PyList_New(0));
  py::Ref excluded = py::Ref::steal(PyList_New(0));
  if (!stored || !excluded) return py::Ref();
  py::Ref freevars = py::Ref::steal(PyObject_GetAttrString(code, "co_freevars"));
  if (!freevars) return freevars;
  py::Ref it = py::Ref::steal(PyObject_GetIter(instrs.get()));
  if (!it) return it;
  bool yielded = false;
  bool in_target = false;
  while (py::Ref ins = py::Ref::steal(PyIter_Next(it.get()))) {
    py::Ref opname = py::Ref::steal(PyObject_GetAttrString(ins.get(), "opname"));
    py::Ref argval = opname ? py::Ref::steal(PyObject_GetAttrString(ins.get(), "argval")) : py::Ref();
    if (!argval) return py::Ref();
    const char* op = PyUnicode_AsUTF8(opname.get());
    if (op == nullptr) return py::Ref();
    auto is = [op](const char* name) { return std::strcmp(op, name) == 0; };
    PyObject* names[2] = {nullptr, nullptr};
    PyObject* target = stored.get();
    const bool pair = PyTuple_Check(argval.get()) && PyTuple_GET_SIZE(argval.get()) == 2;
    if (is("LOAD_FAST_AND_CLEAR")) {
      names[0] = argval.get();
      target = excluded.get();
    } else if (is("YIELD_VALUE")) {
      yielded = true;
    } else if (is("FOR_ITER")) {
      in_target = !yielded;
      continue;
    } else if (!in_target) {
      continue;
    } else if (is("EXTENDED_ARG") || is("UNPACK_SEQUENCE") || is("UNPACK_EX")) {
      continue;
    } else if (is("STORE_FAST") || is("STORE_DEREF")) {
      names[0] = argval.get();
    } else if (is("STORE_FAST_STORE_FAST") && pair) {
      names[0] = PyTuple_GET_ITEM(argval.get(), 0);
      names[1] = PyTuple_GET_ITEM(argval.get(), 1);
    } else if (is("STORE_FAST_LOAD_FAST") && pair) {
      names[0] = PyTuple_GET_ITEM(argval.get(), 0);
      in_target = false;
    } else {
      in_target = false;
    }
    for (PyObject* nm : names) {
      if (nm != nullptr && PyUnicode_Check(nm) && !str_in(target, nm) && PyList_Append(target, nm) < 0)
        return py::Ref();
    }
  }
  if (PyErr_Occurred()) return py::Ref();
  py::Ref result = py::Ref::steal(PyList_New(0));
  if (!result) return result;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(stored.get()); ++i) {
    PyObject* nm = PyList_GET_ITEM(stored.get(), i);
    if (PyUnicode_GET_LENGTH(nm) > 0 && PyUnicode_READ_CHAR(nm, 0) == '.') continue;
    if (str_in(excluded.get(), nm)) continue;
    int in_free = PySequence_Contains(freevars.get(), nm);
    if (in_free < 0) return py::Ref();
    if (in_free) continue;
    if (PyList_Append(result.get(), nm) < 0) return py::Ref();
  }
  return result;
}

// The current values of the loop variables of a suspended generator: one value, or a tuple.
py::Ref read_key(PyObject* gen, PyObject* names) {
  py::Ref frame = py::Ref::steal(PyObject_GetAttrString(gen, "gi_frame"));
  if (!frame) return frame;
  if (frame.get() == Py_None) return py::Ref::steal(invalid("addConstrs() lost the generator's frame"));
  const Py_ssize_t n = PyList_GET_SIZE(names);
#if PY_VERSION_HEX < 0x030C0000
  py::Ref locals = py::Ref::steal(PyObject_GetAttrString(frame.get(), "f_locals"));
  if (!locals) return locals;
#endif
  auto value = [&](Py_ssize_t i) {
    PyObject* name = PyList_GET_ITEM(names, i);
#if PY_VERSION_HEX >= 0x030C0000
    py::Ref v = py::Ref::steal(PyFrame_GetVar(reinterpret_cast<PyFrameObject*>(frame.get()), name));
#else
    py::Ref v = py::Ref::steal(PyObject_GetItem(locals.get(), name));
#endif
    if (!v && (PyErr_ExceptionMatches(PyExc_KeyError) || PyErr_ExceptionMatches(PyExc_NameError))) {
      PyErr_Clear();
      std::string msg = "addConstrs() cannot read the loop variable '";
      msg += PyUnicode_AsUTF8(name);
      msg += "'";
      invalid(msg);
    }
    return v;
  };
  if (n == 1) return value(0);
  py::Ref key = py::Ref::steal(PyTuple_New(n));
  if (!key) return key;
  for (Py_ssize_t i = 0; i < n; ++i) {
    py::Ref v = value(i);
    if (!v) return v;
    PyTuple_SET_ITEM(key.get(), i, v.release());
  }
  return key;
}

// The name of the constraint for `key`: nullptr for none (library default), the key itself
// for "_", else name[key].
py::Ref constr_name_for(PyObject* name, PyObject* key) {
  if (is_none(name)) return py::Ref::borrow(Py_None);
  const char* base = PyUnicode_AsUTF8(name);
  if (base == nullptr) return py::Ref();
  if (base[0] == '\0') return py::Ref::borrow(Py_None);
  std::string text;
  bool ok = std::strcmp(base, "_") == 0 ? append_key_text(text, key) : append_index_name(text, base, key);
  if (!ok) return py::Ref();
  return py::str(text);
}

// ---- element lists ---------------------------------------------------------------------------

// Positions of the elements of `o`: one handle of `kind`, a matrix object (its `attr` array of
// handles), or an iterable of handles. Each must be in this model.
bool positions(PyObject* self, PyObject* o, int kind, const char* attr, std::vector<int>& out) {
  int pos = 0;
  if (handle_kind(o) != 0) {
    if (!position_of(self, o, kind, &pos)) return false;
    out.push_back(pos);
    return true;
  }
  py::Ref source = py::Ref::borrow(o);
  if (PyObject_HasAttrString(o, attr)) {
    py::Ref arr = py::Ref::steal(PyObject_GetAttrString(o, attr));
    if (!arr) return false;
    source = PyObject_HasAttrString(arr.get(), "flat") ? py::Ref::steal(PyObject_GetAttrString(arr.get(), "flat"))
                                                       : std::move(arr);
    if (!source) return false;
  } else if (PyDict_Check(o)) {
    source = py::Ref::steal(PyDict_Values(o));
    if (!source) return false;
  }
  py::Ref it = py::Ref::steal(PyObject_GetIter(source.get()));
  if (!it) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError)) return false;
    PyErr_Clear();
    not_in_model(kind);
    return false;
  }
  while (py::Ref item = py::Ref::steal(PyIter_Next(it.get()))) {
    if (!position_of(self, item.get(), kind, &pos)) return false;
    out.push_back(pos);
  }
  return !PyErr_Occurred();
}

// Numbers of `o`: one number, or the items of an iterable (arrays flattened with ravel()).
bool numbers_of(PyObject* o, std::vector<double>& out) {
  if (!is_iterable(o)) {
    double v = PyFloat_AsDouble(o);
    if (v == -1.0 && PyErr_Occurred()) return false;
    out.push_back(v);
    return true;
  }
  py::Ref flat = PyObject_HasAttrString(o, "ravel") ? py::Ref::steal(PyObject_CallMethod(o, "ravel", nullptr))
                                                    : py::Ref::borrow(o);
  if (!flat) return false;
  py::Ref seq = py::Ref::steal(PySequence_Fast(flat.get(), "expected numbers"));
  if (!seq) return false;
  for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(seq.get()); ++i) {
    double v = PyFloat_AsDouble(PySequence_Fast_GET_ITEM(seq.get(), i));
    if (v == -1.0 && PyErr_Occurred()) return false;
    out.push_back(v);
  }
  return true;
}

PyObject* g_column_type = nullptr;  // velmorpy.Column, kept for the process lifetime

PyObject* column_type() {
  if (g_column_type == nullptr) {
    py::Ref mod = py::Ref::steal(PyImport_ImportModule("velmorpy"));
    if (!mod) return nullptr;
    g_column_type = PyObject_GetAttrString(mod.get(), "Column");
  }
  return g_column_type;
}

// A list of the handles at `ind` in the model's list of `kind`.
py::Ref handles_at(PyObject* self, int kind, const int* ind, size_t n) {
  PyObject* list = model_list(self, kind);
  if (list == nullptr) return py::Ref();
  py::Ref out = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(n)));
  if (!out) return out;
  for (size_t k = 0; k < n; ++k) {
    PyObject* h = handle_at(list, ind[k]);
    if (h == nullptr) return py::Ref();
    PyList_SET_ITEM(out.get(), static_cast<Py_ssize_t>(k), py::new_ref(h));
  }
  return out;
}

py::Ref float_list(const double* v, size_t n) {
  py::Ref out = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(n)));
  if (!out) return out;
  for (size_t k = 0; k < n; ++k) {
    PyObject* f = PyFloat_FromDouble(v[k]);
    if (f == nullptr) return py::Ref();
    PyList_SET_ITEM(out.get(), static_cast<Py_ssize_t>(k), f);
  }
  return out;
}

// The LinExpr terms of (ind, val) over the model's Var handles.
// The indices are checked before any reference is taken, so a failure leaves `terms` empty.
bool linear_terms(PyObject* vars, const int* ind, const double* val, size_t n, TermVec<LinTerm>& terms) {
  for (size_t k = 0; k < n; ++k) {
    if (handle_at(vars, ind[k]) == nullptr) return false;
  }
  terms.reserve(n);
  for (size_t k = 0; k < n; ++k) terms.push_back({val[k], py::new_ref(PyList_GET_ITEM(vars, ind[k]))});
  return true;
}

}  // namespace

// ---- the methods -----------------------------------------------------------------------------

PyObject* model_addvar(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"lb", "ub", "obj", "vtype", "name", "column"};
  PyObject* a[6];
  if (!parse_args("addVar", names, 6, 0, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self)) return nullptr;
  char vtype = 'C';
  if (a[3] != nullptr && !vtype_arg(a[3], &vtype)) return nullptr;
  double lb = 0, ub = 0, obj = 0;
  // A binary variable added without an upper bound gets 1, as addVars gives it.
  if (!double_arg(a[0], 0.0, &lb) || !double_arg(a[1], vtype == 'B' ? 1.0 : VLM_INFINITY, &ub) ||
      !double_arg(a[2], 0.0, &obj)) {
    return nullptr;
  }
  py::Ref keep;
  const char* cname = nullptr;
  if (!name_arg(a[4], &keep, &cname)) return nullptr;
  if (model_setup(self, false) < 0) return nullptr;
  std::vector<int> ind;
  std::vector<double> val;
  if (!is_none(a[5])) {
    PyObject* column = a[5];
    if (!PyObject_HasAttrString(column, "_normalize")) return unsupported(column, "column argument");
    py::Ref r = py::Ref::steal(PyObject_CallMethod(column, "_normalize", nullptr));
    py::Ref coeffs = r ? py::Ref::steal(PyObject_GetAttrString(column, "_coeffs")) : py::Ref();
    py::Ref constrs = coeffs ? py::Ref::steal(PyObject_GetAttrString(column, "_constrs")) : py::Ref();
    if (!constrs) return nullptr;
    py::Ref cs = py::Ref::steal(PySequence_Fast(constrs.get(), "Column._constrs must be a list"));
    py::Ref vs = cs ? py::Ref::steal(PySequence_Fast(coeffs.get(), "Column._coeffs must be a list")) : py::Ref();
    if (!vs) return nullptr;
    const Py_ssize_t n = PySequence_Fast_GET_SIZE(cs.get());
    if (PySequence_Fast_GET_SIZE(vs.get()) != n) return invalid("Column has lists of different lengths");
    if (!fits_int(static_cast<size_t>(n), "column terms")) return nullptr;
    for (Py_ssize_t k = 0; k < n; ++k) {
      int row = 0;
      if (!position_of(self, PySequence_Fast_GET_ITEM(cs.get(), k), VLM_KIND_CONSTR, &row)) return nullptr;
      double v = PyFloat_AsDouble(PySequence_Fast_GET_ITEM(vs.get(), k));
      if ((v == -1.0 && PyErr_Occurred()) || !finite_coeff(v)) return nullptr;
      ind.push_back(row);
      val.push_back(v);
    }
  }
  int rc =
      VLMaddvar(model_handle(self), static_cast<int>(ind.size()), ind.data(), val.data(), obj, lb, ub, vtype, cname);
  if (rc != 0) return raise_velmor(rc, self);
  return model_append_handle(self, VLM_KIND_VAR).release();
}

PyObject* model_addvars(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"lb", "ub", "obj", "vtype", "name"};
  PyObject* kw[5] = {nullptr, nullptr, nullptr, nullptr, nullptr};
  std::string unknown;
  const Py_ssize_t nkw = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
  for (Py_ssize_t k = 0; k < nkw; ++k) {
    PyObject* key = PyTuple_GET_ITEM(kwnames, k);
    int i = 0;
    while (i < 5 && PyUnicode_CompareWithASCIIString(key, names[i]) != 0) ++i;
    if (i < 5) {
      kw[i] = args[nargs + k];
      continue;
    }
    const char* s = PyUnicode_AsUTF8(key);
    if (s == nullptr) return nullptr;
    if (!unknown.empty()) unknown += ", ";
    unknown += s;
  }
  if (!unknown.empty()) return invalid("addVars() got unexpected keyword argument(s) " + unknown);
  if (nargs == 0) return invalid("addVars() needs at least one index argument (a count or a list of keys)");
  if (!model_alive(self)) return nullptr;
  py::Ref keys = expand_keys(args, nargs);
  if (!keys) return nullptr;
  const Py_ssize_t n = PyList_GET_SIZE(keys.get());
  if (!fits_int(static_cast<size_t>(n), "variables")) return nullptr;

  std::vector<double> lb, ub, obj;
  std::vector<char> vtype;
  if ((!is_none(kw[0]) && !listify_doubles(kw[0], "lb", keys.get(), lb)) ||
      (!is_none(kw[1]) && !listify_doubles(kw[1], "ub", keys.get(), ub)) ||
      (!is_none(kw[2]) && !listify_doubles(kw[2], "obj", keys.get(), obj))) {
    return nullptr;
  }
  if (!is_none(kw[3])) {
    vtype.resize(static_cast<size_t>(n));
    bool ok = listify(kw[3], "vtype", keys.get(),
                      [&](PyObject* v, Py_ssize_t i) { return vtype_arg(v, &vtype[static_cast<size_t>(i)]); });
    if (!ok) return nullptr;
  }
  NameTable table;
  if (!build_names(kw[4], keys.get(), table)) return nullptr;
  if (model_setup(self, false) < 0) return nullptr;
  PyObject* vars = model_list(self, VLM_KIND_VAR);
  py::Ref result = vars ? tupledict_new_empty() : py::Ref();
  if (!result) return nullptr;
  if (n == 0) return result.release();
  const Py_ssize_t first = PyList_GET_SIZE(vars);

  auto data = [](const auto& v) { return v.empty() ? nullptr : v.data(); };
  int rc = VLMaddvars(model_handle(self), static_cast<int>(n), 0, nullptr, nullptr, nullptr, data(obj), data(lb),
                      data(ub), data(vtype), table.pointers.empty() ? nullptr : table.pointers.data());
  if (rc != 0) return raise_velmor(rc, self);
  // The new handles are the tail of the model's list.
  if (model_append_handles(self, VLM_KIND_VAR, n) < 0) return nullptr;
  vars = model_list(self, VLM_KIND_VAR);
  if (vars == nullptr) return nullptr;
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (PyDict_SetItem(result.get(), PyList_GET_ITEM(keys.get(), i), PyList_GET_ITEM(vars, first + i)) < 0)
      return nullptr;
  }
  return result.release();
}

PyObject* model_addlconstr(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"lhs", "sense", "rhs", "name"};
  PyObject* a[4];
  if (!parse_args("addLConstr", names, 4, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self)) return nullptr;
  PyObject* lhs = a[0];
  PyObject* rhs = a[2];
  char sense = 0;
  if (tempconstr_check(lhs)) {
    TempConstrObject* tc = as_tempconstr(lhs);
    lhs = tc->lhs;
    rhs = tc->rhs;
    sense = tempconstr_sense(a[0]);
    if (sense != '<' && sense != '>' && sense != '=') return unsupported(rhs, "Model.addLConstr argument");
  } else {
    if (is_none(a[1])) return invalid("Model.addLConstr() needs a sense when lhs is not a constraint");
    if (!sense_arg(a[1], &sense)) return nullptr;
    if (rhs == nullptr) rhs = Py_None;
  }
  py::Ref keep;
  const char* cname = nullptr;
  if (!name_arg(a[3], &keep, &cname)) return nullptr;
  if (model_setup(self, false) < 0) return nullptr;
  Terms t;
  if (!collect_sides(self, lhs, rhs, "Model.addLConstr argument", t)) return nullptr;
  if (t.quadratic) return invalid("Model.addLConstr() takes linear expressions only (use addQConstr)");
  return add_collected(self, t, sense, cname, false);
}

PyObject* model_addconstr(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  // The fast path of addConstr(tc) and addConstr(tc, name) without keywords.
  if (kwnames == nullptr && (nargs == 1 || (nargs == 2 && tempconstr_check(args[0])))) {
    return add_constr_any(self, args[0], nullptr, nullptr, nargs == 2 ? args[1] : nullptr);
  }
  static const char* const names[] = {"lhs", "sense", "rhs", "name"};
  PyObject* a[4];
  if (!parse_args("addConstr", names, 4, 1, args, nargs, kwnames, a)) return nullptr;
  // addConstr(tc, "c0") passes the name second; the older form is (lhs, sense, rhs, name).
  if (tempconstr_check(a[0]) && a[1] != nullptr && a[2] == nullptr && a[3] == nullptr) {
    return add_constr_any(self, a[0], nullptr, nullptr, a[1]);
  }
  return add_constr_any(self, a[0], a[1], a[2], a[3]);
}

PyObject* model_addqconstr(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"lhs", "sense", "rhs", "name"};
  PyObject* a[4];
  if (!parse_args("addQConstr", names, 4, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self)) return nullptr;
  PyObject* lhs = a[0];
  PyObject* rhs = a[2];
  PyObject* name = a[3];
  char sense = 0;
  if (tempconstr_check(lhs)) {
    if (a[1] != nullptr && a[2] == nullptr && a[3] == nullptr) name = a[1];  // addQConstr(tc, "qc0")
    TempConstrObject* tc = as_tempconstr(lhs);
    lhs = tc->lhs;
    rhs = tc->rhs;
    sense = tempconstr_sense(a[0]);
    if (sense != '<' && sense != '>' && sense != '=') return unsupported(rhs, "Model.addQConstr argument");
  } else {
    if (lhs == Py_None) return invalid("Invalid None value for lhs when calling Model.addQConstr");
    if (is_none(a[1])) return invalid("Model.addQConstr() needs a sense when lhs is not a constraint");
    if (!sense_arg(a[1], &sense)) return nullptr;
    if (rhs == nullptr) rhs = Py_None;
  }
  return add_sides(self, lhs, sense, rhs, name, "Model.addQConstr argument", true);
}

PyObject* model_addrange(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"expr", "lower", "upper", "name"};
  PyObject* a[4];
  if (!parse_args("addRange", names, 4, 3, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self)) return nullptr;
  double lower = 0, upper = 0;
  if (!double_arg(a[1], 0.0, &lower) || !double_arg(a[2], 0.0, &upper)) return nullptr;
  return add_range(self, a[0], lower, upper, a[3]);
}

PyObject* model_addconstrs(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"constrs", "name"};
  PyObject* a[2];
  if (!parse_args("addConstrs", names, 2, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self)) return nullptr;
  PyObject* gen = a[0];
  if (!PyGen_Check(gen))
    return invalid("Model.addConstrs() takes a generator expression, such as (x[i] <= 1 for i in I)");
  py::Ref name;
  if (!is_none(a[1])) {
    name = PyUnicode_Check(a[1]) ? py::Ref::borrow(a[1]) : py::Ref::steal(PyObject_Str(a[1]));
    if (!name) return nullptr;
  }
  py::Ref code = py::Ref::steal(PyObject_GetAttrString(gen, "gi_code"));
  py::Ref loopvars = code ? genexpr_loop_names(code.get()) : py::Ref();
  if (!loopvars) return nullptr;
  py::Ref result = tupledict_new_empty();
  if (!result) return nullptr;
  long counter = 0;  // the key when the generator binds no loop variable at all
  while (py::Ref tc = py::Ref::steal(PyIter_Next(gen))) {
    py::Ref key = PyList_GET_SIZE(loopvars.get()) > 0 ? read_key(gen, loopvars.get())
                                                      : py::Ref::steal(PyLong_FromLong(counter++));
    if (!key) return nullptr;
    py::Ref cname = constr_name_for(name.get(), key.get());
    if (!cname) return nullptr;
    py::Ref added = py::Ref::steal(add_constr_any(self, tc.get(), nullptr, nullptr, cname.get()));
    if (!added || PyDict_SetItem(result.get(), key.get(), added.get()) < 0) return nullptr;
  }
  if (PyErr_Occurred()) return nullptr;
  return result.release();
}

PyObject* model_addsos(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"type", "vars", "wts"};
  PyObject* a[3];
  if (!parse_args("addSOS", names, 3, 2, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self)) return nullptr;
  const long t = PyLong_AsLong(a[0]);
  if (t == -1 && PyErr_Occurred()) return nullptr;
  int type = static_cast<int>(t);
  if (model_setup(self, false) < 0) return nullptr;
  std::vector<int> ind;
  if (!positions(self, a[1], VLM_KIND_VAR, "_vararr", ind)) return nullptr;
  std::vector<double> wts;
  if (is_none(a[2])) {
    // Without weights the members are ordered as given: weights 1, 2, 3, ...
    for (size_t k = 0; k < ind.size(); ++k) wts.push_back(static_cast<double>(k + 1));
  } else {
    if (!numbers_of(a[2], wts)) return nullptr;
    if (wts.size() != ind.size()) return invalid("addSOS() got different numbers of variables and weights");
  }
  for (double w : wts) {
    if (!std::isfinite(w)) return invalid("SOS weight is Nan or Inf");
  }
  if (!fits_int(ind.size(), "SOS members")) return nullptr;
  const int beg = 0;
  int rc = VLMaddsos(model_handle(self), 1, static_cast<int>(ind.size()), &type, &beg, ind.data(), wts.data());
  if (rc != 0) return raise_velmor(rc, self);
  return model_append_handle(self, VLM_KIND_SOS).release();
}

PyObject* model_getcoeff(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"constr", "var"};
  PyObject* a[2];
  if (!parse_args("getCoeff", names, 2, 2, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  ModelObject* m = as_model(self);
  // Only elements present at the last update have coefficients to read.
  auto live = [&](PyObject* o, int kind, Py_ssize_t count) {
    if (handle_kind(o) != kind || !model_has(self, o) || as_handle(o)->index < 0 ||
        as_handle(o)->index >= count) {
      not_in_model(kind);
      return false;
    }
    return true;
  };
  if (!live(a[0], VLM_KIND_CONSTR, m->liveconstrs) || !live(a[1], VLM_KIND_VAR, m->livevars)) return nullptr;
  double v = 0;
  int rc = VLMgetcoeff(m->handle, as_handle(a[0])->index, as_handle(a[1])->index, &v);
  if (rc != 0) return raise_velmor(rc, self);
  return PyFloat_FromDouble(v);
}

PyObject* model_chgcoeff(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"constr", "var", "newvalue"};
  PyObject* a[3];
  if (!parse_args("chgCoeff", names, 3, 3, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  std::vector<int> rows, cols;
  std::vector<double> vals;
  if (!positions(self, a[0], VLM_KIND_CONSTR, "_constrarr", rows) ||
      !positions(self, a[1], VLM_KIND_VAR, "_vararr", cols) || !numbers_of(a[2], vals)) {
    return nullptr;
  }
  // One constraint with many variables (or the reverse) pairs it with each of them.
  const size_t n = std::max(rows.size(), cols.size());
  if ((rows.size() != n && rows.size() != 1) || (cols.size() != n && cols.size() != 1)) {
    return invalid("chgCoeff() got different numbers of constraints and variables");
  }
  if (vals.size() != n && vals.size() != 1) return invalid("chgCoeff() got a wrong number of values");
  rows.resize(n, rows.empty() ? 0 : rows[0]);
  cols.resize(n, cols.empty() ? 0 : cols[0]);
  vals.resize(n, vals.empty() ? 0.0 : vals[0]);
  for (double v : vals) {
    if (!finite_coeff(v)) return nullptr;
  }
  if (!fits_int(n, "coefficients")) return nullptr;
  if (n == 0) return py::none();
  int rc = VLMchgcoeffs(model_handle(self), static_cast<int>(n), rows.data(), cols.data(), vals.data());
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

PyObject* model_getcol(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"var"};
  PyObject* a[1];
  if (!parse_args("getCol", names, 1, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  int col = 0;
  if (!position_of(self, a[0], VLM_KIND_VAR, &col) || !in_library(col, as_model(self)->livevars, VLM_KIND_VAR)) {
    return nullptr;
  }
  VLMmodel* h = model_handle(self);
  size_t nz = 0, beg = 0;
  int rc = VLMXgetvars(h, &nz, &beg, nullptr, nullptr, col, 1);
  std::vector<int> ind(nz);
  std::vector<double> val(nz);
  if (rc == 0 && nz > 0) rc = VLMXgetvars(h, &nz, &beg, ind.data(), val.data(), col, 1);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref coeffs = float_list(val.data(), nz);
  py::Ref constrs = coeffs ? handles_at(self, VLM_KIND_CONSTR, ind.data(), nz) : py::Ref();
  PyObject* type = constrs ? column_type() : nullptr;
  if (type == nullptr) return nullptr;
  return PyObject_CallFunctionObjArgs(type, coeffs.get(), constrs.get(), nullptr);
}

PyObject* model_getrow(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"constr"};
  PyObject* a[1];
  if (!parse_args("getRow", names, 1, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  int row = 0;
  if (!position_of(self, a[0], VLM_KIND_CONSTR, &row) ||
      !in_library(row, as_model(self)->liveconstrs, VLM_KIND_CONSTR)) {
    return nullptr;
  }
  VLMmodel* h = model_handle(self);
  size_t nz = 0, beg = 0;
  int rc = VLMXgetconstrs(h, &nz, &beg, nullptr, nullptr, row, 1);
  std::vector<int> ind(nz);
  std::vector<double> val(nz);
  if (rc == 0 && nz > 0) rc = VLMXgetconstrs(h, &nz, &beg, ind.data(), val.data(), row, 1);
  if (rc != 0) return raise_velmor(rc, self);
  PyObject* vars = model_list(self, VLM_KIND_VAR);
  py::Ref e = vars ? linexpr_new() : py::Ref();
  if (!e) return nullptr;
  TermVec<LinTerm> terms;
  if (!linear_terms(vars, ind.data(), val.data(), nz, terms)) return nullptr;
  linexpr_replace(e.get(), terms, 0.0);
  return e.release();
}

PyObject* model_getqcrow(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"qc"};
  PyObject* a[1];
  if (!parse_args("getQCRow", names, 1, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  int qc = 0;
  if (!position_of(self, a[0], VLM_KIND_QCONSTR, &qc)) return nullptr;
  VLMmodel* h = model_handle(self);
  int nl = 0, nq = 0;
  int rc = VLMgetqconstr(h, qc, &nl, nullptr, nullptr, &nq, nullptr, nullptr, nullptr);
  std::vector<int> lind(static_cast<size_t>(nl)), qrow(static_cast<size_t>(nq)), qcol(static_cast<size_t>(nq));
  std::vector<double> lval(static_cast<size_t>(nl)), qval(static_cast<size_t>(nq));
  if (rc == 0) rc = VLMgetqconstr(h, qc, &nl, lind.data(), lval.data(), &nq, qrow.data(), qcol.data(), qval.data());
  if (rc != 0) return raise_velmor(rc, self);
  PyObject* vars = model_list(self, VLM_KIND_VAR);
  py::Ref q = vars ? quadexpr_from(Py_None) : py::Ref();
  if (!q) return nullptr;
  QuadExprObject* qe = as_quadexpr(q.get());
  TermVec<LinTerm> lin;
  if (!linear_terms(vars, lind.data(), lval.data(), lind.size(), lin)) return nullptr;
  linexpr_replace(qe->lin, lin, 0.0);
  qe->terms.reserve(qval.size());
  for (size_t k = 0; k < qval.size(); ++k) {
    PyObject* v1 = handle_at(vars, qrow[k]);
    PyObject* v2 = v1 ? handle_at(vars, qcol[k]) : nullptr;
    if (v2 == nullptr) return nullptr;
    qe->terms.push_back({qval[k], py::new_ref(v1), py::new_ref(v2)});
  }
  return q.release();
}

PyObject* model_getsos(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"sos"};
  PyObject* a[1];
  if (!parse_args("getSOS", names, 1, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  int pos = 0;
  if (!position_of(self, a[0], VLM_KIND_SOS, &pos)) return nullptr;
  VLMmodel* h = model_handle(self);
  int n = 0, type = 0, beg = 0;
  int rc = VLMgetsos(h, &n, &type, &beg, nullptr, nullptr, pos, 1);
  std::vector<int> ind(static_cast<size_t>(n));
  std::vector<double> wts(static_cast<size_t>(n));
  if (rc == 0) rc = VLMgetsos(h, &n, &type, &beg, ind.data(), wts.data(), pos, 1);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref vars = handles_at(self, VLM_KIND_VAR, ind.data(), ind.size());
  py::Ref weights = vars ? float_list(wts.data(), wts.size()) : py::Ref();
  if (!weights) return nullptr;
  return Py_BuildValue("(iOO)", type, vars.get(), weights.get());
}

// ---- docstrings ------------------------------------------------------------------------------

const char model_addvar_doc[] =
    "addVar(lb=0.0, ub=inf, obj=0.0, vtype=VLM.CONTINUOUS, name=\"\", column=None)\n\n"
    "Adds one variable and returns its Var.\n\n"
    "lb, ub: bounds (float('inf') or VLM.INFINITY for none); a binary variable without ub gets 1.\n"
    "obj: objective coefficient.\n"
    "vtype: VLM.CONTINUOUS 'C', VLM.BINARY 'B', VLM.INTEGER 'I', VLM.SEMICONT 'S' or\n"
    "    VLM.SEMIINT 'N'.\n"
    "name: the variable's name; empty for the default name C<index>.\n"
    "column: a Column of (coefficient, Constr) pairs placing the variable in existing\n"
    "    constraints.\n\n"
    "With UpdateMode 1 (the default) the variable can be used in constraints at once; it shows\n"
    "in getVars() after update().\n\n"
    "Example:\n"
    "    x = m.addVar(ub=4.0, vtype=VLM.INTEGER, name=\"x\")";

const char model_addvars_doc[] =
    "addVars(*indexes, lb=0.0, ub=inf, obj=0.0, vtype=VLM.CONTINUOUS, name=\"\")\n\n"
    "Adds one variable per key of an index set, in one library call, and returns a tupledict\n"
    "from key to Var.\n\n"
    "indexes: each an int n (keys 0 .. n-1) or an iterable of keys; several give their\n"
    "    Cartesian product (tuple keys, the last index varying fastest, tuple members spliced\n"
    "    in).\n"
    "lb, ub, obj, vtype: one value for all, a list (or array) in key order, or a dict by key.\n"
    "name: a str gives name[key] per variable (tuple keys joined by ','), a list or dict one\n"
    "    name each; names must be ASCII.\n\n"
    "Examples:\n"
    "    x = m.addVars(2, 3, name=\"x\")          # x[0,0] .. x[1,2]\n"
    "    y = m.addVars([\"a\", \"b\"], ub=[1, 2])   # keys 'a' and 'b'";

const char model_addlconstr_doc[] =
    "addLConstr(lhs, sense=None, rhs=None, name=\"\")\n\n"
    "Adds one linear constraint lhs sense rhs and returns its Constr. lhs and rhs are numbers,\n"
    "Vars or LinExprs; sense is VLM.LESS_EQUAL '<', VLM.GREATER_EQUAL '>' or VLM.EQUAL '='.\n"
    "lhs may instead be a linear TempConstr (x + y <= 1), which gives all three.\n\n"
    "Example:\n"
    "    m.addLConstr(x + 2 * y, VLM.LESS_EQUAL, 4, name=\"c0\")";

const char model_addconstr_doc[] =
    "addConstr(constr, name=\"\")\n\n"
    "Adds the constraint that a comparison built: returns a Constr for a linear one\n"
    "(x + y <= 1), a QConstr for a quadratic one (x * x + y * y <= 4), a Constr for a range\n"
    "(x + y == [1, 2]) and a GenConstr for a general expression (z == max_(x, y)) or an\n"
    "indicator ((b == 1) >> (x + y <= 1)). Matrix comparisons go to the matrix layer.\n\n"
    "True and False (a comparison of constants) add a constraint that always or never holds.\n"
    "The older form addConstr(lhs, sense, rhs, name) still works and warns.\n\n"
    "Example:\n"
    "    c = m.addConstr(x + 2 * y <= 4, name=\"c0\")";

const char model_addqconstr_doc[] =
    "addQConstr(lhs, sense=None, rhs=None, name=\"\")\n\n"
    "Adds one quadratic constraint and returns its QConstr (also for a linear expression).\n"
    "lhs may be a TempConstr (x * x + y * y <= 4), or lhs, sense and rhs are given apart.\n\n"
    "Example:\n"
    "    m.addQConstr(x * x + y * y <= 4, name=\"disc\")";

const char model_addrange_doc[] =
    "addRange(expr, lower, upper, name=\"\")\n\n"
    "Adds lower <= expr <= upper as one range constraint and returns its Constr. The library\n"
    "adds a slack variable RgName for it, which appears among the variables after update().\n\n"
    "Example:\n"
    "    m.addRange(x + y, 1.0, 2.0, name=\"r\")";

const char model_addconstrs_doc[] =
    "addConstrs(generator, name=\"\")\n\n"
    "Adds one constraint per item of a generator expression of comparisons and returns a\n"
    "tupledict keyed by the values of the generator's loop variables (one value, or a tuple in\n"
    "the order of the for-clauses). With a name, constraint names are name[key]; with \"_\" the\n"
    "key itself.\n\n"
    "Example:\n"
    "    c = m.addConstrs((x[i, j] <= 1 for i in I for j in J), name=\"c\")  # keys (i, j)";

const char model_addsos_doc[] =
    "addSOS(type, vars, wts=None)\n\n"
    "Adds an SOS constraint of VLM.SOS_TYPE1 (at most one member non-zero) or VLM.SOS_TYPE2\n"
    "(at most two, adjacent in weight order) over a list of Vars (or a matrix variable) and\n"
    "returns its SOS. Without wts the weights are 1, 2, 3, ... in list order.";

const char model_getcoeff_doc[] =
    "getCoeff(constr, var)\n\n"
    "The coefficient of var in constr as of the last update (0.0 when absent).";

const char model_chgcoeff_doc[] =
    "chgCoeff(constr, var, newvalue)\n\n"
    "Sets the coefficient of var in constr (0 removes it); takes effect at the next update.\n"
    "Lists or matrix objects of equal size change many coefficients at once.";

const char model_getcol_doc[] =
    "getCol(var)\n\n"
    "The constraints that var appears in, with its coefficients, as a Column (last update).";

const char model_getrow_doc[] =
    "getRow(constr)\n\n"
    "The left-hand side of a linear constraint as a LinExpr over the model's Vars (last update).";

const char model_getqcrow_doc[] =
    "getQCRow(qc)\n\n"
    "The left-hand side of a quadratic constraint as a QuadExpr (linear and quadratic part).";

const char model_getsos_doc[] =
    "getSOS(sos)\n\n"
    "The tuple (type, list of Var, list of weights) of an SOS constraint.";
