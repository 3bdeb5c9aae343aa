// Model: linear, quadratic and range constraints, and addConstr's dispatch over what a
// comparison built.
//
// Expressions are read in place, node by node along their frozen tails, into index and value
// arrays; nothing is flattened or copied on the Python side. Every variable is checked (same
// model, not pending in lazy update mode, not removed) and every coefficient is checked
// (finite) before the one library call, so a refused argument leaves the model as it was. New
// handles are appended only after the library accepted the element.
#include "model/model_build.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "expr/genexpr.h"
#include "elements/handle.h"
#include "expr/linexpr.h"
#include "model/model.h"
#include "model/model_build_util.h"
#include "model/model_genconstr.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "expr/quadexpr.h"
#include "expr/tempconstr.h"

namespace {

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

}  // namespace

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
  if (expr_is_matrix(tc->lhs) && !genexpr_check(tc->rhs)) return add_matrix(self, lhs, name);
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

// ---- the methods -----------------------------------------------------------------------------

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

// ---- docstrings ------------------------------------------------------------------------------

const char model_addlconstr_doc[] =
    "addLConstr($self, lhs, sense=None, rhs=None, name=\"\")\n--\n\n"
    "Adds one linear constraint lhs sense rhs and returns its Constr. lhs and rhs are numbers,\n"
    "Vars or LinExprs; sense is VLM.LESS_EQUAL '<', VLM.GREATER_EQUAL '>' or VLM.EQUAL '='.\n"
    "lhs may instead be a linear TempConstr (x + y <= 1), which gives all three.\n\n"
    "Example:\n"
    "    m.addLConstr(x + 2 * y, VLM.LESS_EQUAL, 4, name=\"c0\")";

const char model_addconstr_doc[] =
    "addConstr($self, constr, name=\"\")\n--\n\n"
    "Adds the constraint that a comparison built: returns a Constr for a linear one\n"
    "(x + y <= 1), a QConstr for a quadratic one (x * x + y * y <= 4), a Constr for a range\n"
    "(x + y == [1, 2]) and a GenConstr for a general expression (z == max_(x, y)) or an\n"
    "indicator ((b == 1) >> (x + y <= 1)). Matrix comparisons go to the matrix layer.\n\n"
    "True and False (a comparison of constants) add a constraint that always or never holds.\n"
    "The older form addConstr(lhs, sense, rhs, name) still works and warns.\n\n"
    "Example:\n"
    "    c = m.addConstr(x + 2 * y <= 4, name=\"c0\")";

const char model_addqconstr_doc[] =
    "addQConstr($self, lhs, sense=None, rhs=None, name=\"\")\n--\n\n"
    "Adds one quadratic constraint and returns its QConstr (also for a linear expression).\n"
    "lhs may be a TempConstr (x * x + y * y <= 4), or lhs, sense and rhs are given apart.\n\n"
    "Example:\n"
    "    m.addQConstr(x * x + y * y <= 4, name=\"disc\")";

const char model_addrange_doc[] =
    "addRange($self, expr, lower, upper, name=\"\")\n--\n\n"
    "Adds lower <= expr <= upper as one range constraint and returns its Constr. The library\n"
    "adds a slack variable RgName for it, which appears among the variables after update().\n\n"
    "Example:\n"
    "    m.addRange(x + y, 1.0, 2.0, name=\"r\")";
