// The matrix forms of the general constraints (see model_mgenconstr.h).
//
// NumPy does the broadcasting: every argument becomes an array of the block's shape (object
// arrays of Var handles, float64 arrays of numbers), read in C order through buffer views, so
// a block of n constraints costs O(n + operands) in C++ plus a few NumPy calls.
#include "model/model_mgenconstr.h"

#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "elements/handle.h"
#include "elements/var.h"
#include "expr/tempconstr.h"
#include "matrix/mexpr.h"
#include "matrix/mgenconstr.h"
#include "matrix/mvar.h"
#include "matrix/np_call.h"
#include "model/model.h"
#include "model/model_matrix.h"

namespace {

// The library's GENCONSTR codes.
enum : int {
  kMax = 0, kMin = 1, kAbs = 2, kAnd = 3, kOr = 4, kNorm = 5, kIndicator = 6, kPwl = 7, kPoly = 8,
  kExpA = 10, kLogA = 12, kPow = 13
};

const char* const kTypeWord[] = {"max", "min", "abs", "and", "or", "norm", "indicator", "pwl", "poly", "exp",
                                 "expa", "log", "loga", "pow", "sin", "cos", "tan", "logistic"};

PyObject* invalid(const std::string& message) { return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message.c_str()); }

std::string arg_message(const char* arg, int type) {
  return std::string("Invalid ") + arg + " argument for general constraint of " + kTypeWord[type] + " type";
}

std::string repr_text(PyObject* o) {
  py::Ref r = py::Ref::steal(PyObject_Repr(o));
  const char* s = r ? PyUnicode_AsUTF8(r.get()) : nullptr;
  if (s == nullptr) {
    PyErr_Clear();
    return "?";
  }
  return s;
}

Py_ssize_t size_of(PyObject* o) {
  py::Ref n = np::attr(o, "size");
  Py_ssize_t v = n ? PyLong_AsSsize_t(n.get()) : -1;
  if (v < 0) PyErr_Clear();
  return v;
}

bool many(PyObject* o) {
  if (mvar_check(o) || mexpr_check(o)) return size_of(o) != 1;
  return false;
}

// A Var or an MVar as an object array of Var handles (a Var as a 0-D array); an empty Ref
// with `message` as VelmorError for anything else.
py::Ref var_array(PyObject* o, const std::string& message) {
  if (mvar_check(o)) return py::Ref::borrow(as_melem(o)->arr);
  if (var_check(o)) {
    py::Ref arr = np::fn("empty", {py::Ref::steal(PyTuple_New(0)).get()}, {{"dtype", np::text("O").get()}});
    if (!arr || PyObject_SetItem(arr.get(), py::Ref::steal(PyTuple_New(0)).get(), o) < 0) return py::Ref();
    return arr;
  }
  invalid(message);
  return py::Ref();
}

// `arr` broadcast to `shape`; VelmorError naming both shapes when NumPy refuses.
py::Ref broadcast(PyObject* arr, PyObject* shape, const char* what) {
  py::Ref r = np::fn("broadcast_to", {arr, shape});
  if (!r && PyErr_ExceptionMatches(PyExc_ValueError)) {
    PyErr_Clear();
    py::Ref given = np::shape_of(arr);
    if (!given) return py::Ref();
    invalid(std::string(what) + " has shape " + repr_text(given.get()) + ", which does not broadcast to " +
            repr_text(shape));
  }
  return r;
}

// The common shape of two arrays; VelmorError naming both when they do not broadcast.
py::Ref common_shape(PyObject* a, const char* a_what, PyObject* b, const char* b_what) {
  py::Ref sa = np::shape_of(a), sb = np::shape_of(b);
  py::Ref s = np::fn("broadcast_shapes", {sa.get(), sb.get()});
  if (!s && PyErr_ExceptionMatches(PyExc_ValueError)) {
    PyErr_Clear();
    invalid(std::string("Shapes ") + repr_text(sa.get()) + " of " + a_what + " and " + repr_text(sb.get()) + " of " +
            b_what + " do not broadcast together");
  }
  return s;
}

// The library columns of an object array of Vars broadcast to `shape`, C order.
bool columns(PyObject* self, PyObject* arr, PyObject* shape, const char* what, std::vector<int>* out) {
  py::Ref b = broadcast(arr, shape, what);
  np::View v;
  if (!b || !v.open(b.get(), "O")) return false;
  out->resize(static_cast<size_t>(v.size()));
  for (Py_ssize_t i = 0; i < v.size(); ++i) {
    int c = model_var_column(self, v.data<PyObject*>()[i]);
    if (c < 0) return false;
    (*out)[static_cast<size_t>(i)] = c;
  }
  return true;
}

// Numbers (a scalar, list or ndarray) broadcast to `shape` as doubles for the library.
bool numbers(PyObject* value, PyObject* shape, const char* what, const std::string& message, std::vector<double>* out) {
  py::Ref arr = np::fn("asarray", {value}, {{"dtype", np::text("float64").get()}});
  if (!arr) {
    if (!PyErr_ExceptionMatches(PyExc_ValueError) && !PyErr_ExceptionMatches(PyExc_TypeError)) return false;
    PyErr_Clear();
    invalid(message);
    return false;
  }
  py::Ref b = broadcast(arr.get(), shape, what);
  np::View v;
  if (!b || !v.open(b.get(), "float64")) return false;
  out->resize(static_cast<size_t>(v.size()));
  for (Py_ssize_t i = 0; i < v.size(); ++i) (*out)[static_cast<size_t>(i)] = py::to_lib_dbl(v.data<double>()[i]);
  return true;
}

// A sequence of numbers shared by the block (PWL points, polynomial coefficients).
bool point_list(PyObject* value, const std::string& message, std::vector<double>* out) {
  py::Ref arr = np::fn("asarray", {value}, {{"dtype", np::text("float64").get()}});
  if (!arr) {
    if (!PyErr_ExceptionMatches(PyExc_ValueError) && !PyErr_ExceptionMatches(PyExc_TypeError)) return false;
    PyErr_Clear();
    invalid(message);
    return false;
  }
  np::View v;
  if (!v.open(np::meth(arr.get(), "ravel").get(), "float64")) return false;
  out->assign(v.data<double>(), v.data<double>() + v.size());
  return true;
}

bool text_or_none(PyObject* o, const char* what, const char** out) {
  *out = nullptr;
  if (o == nullptr || o == Py_None) return true;
  if (!PyUnicode_Check(o)) {
    PyErr_Format(PyExc_TypeError, "%s must be a str, not '%.200s'", what, Py_TYPE(o)->tp_name);
    return false;
  }
  *out = py::utf8(o);
  return *out != nullptr;
}

// The block's names, the call, and the MGenConstr of `shape` over the new handles.
struct Names {
  std::vector<std::string> store;
  std::vector<const char*> ptrs;
  py::Ref keep;
  const char* const* data() const { return ptrs.empty() ? nullptr : ptrs.data(); }
};

PyObject* finish(PyObject* self, int rc, Py_ssize_t n, PyObject* shape) {
  if (rc != 0) return raise_velmor(rc, self);
  if (model_append_handles(self, VLM_KIND_GENCONSTR, n) < 0) return nullptr;
  py::Ref arr = matrix_tail_array(self, VLM_KIND_GENCONSTR, n, shape);
  if (!arr) return nullptr;
  return mgenconstr_new(arr.get(), self).release();
}

bool fits(size_t n) {
  if (n <= static_cast<size_t>(INT_MAX)) return true;
  invalid("Too many general constraints or operands for one block");
  return false;
}

bool ready(PyObject* self) {
  if (model_handle(self) == nullptr) {
    raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Model has already been freed");
    return false;
  }
  return model_setup(self, false) == 0;
}

// ---- operand lists: MAX, MIN, AND, OR, NORM --------------------------------------------------

// resvar[e] = f(operands of e; a[e]). `vars`: a Var or MVar broadcast to the shape of resvar
// (one operand), an MVar of that shape plus one axis (the operands of e along the last axis),
// or a list or tuple of Vars and MVars, each broadcast (one operand each).
PyObject* add_lists(PyObject* self, int type, PyObject* resvar, PyObject* vars, PyObject* a, PyObject* name) {
  if (!ready(self)) return nullptr;
  py::Ref res_arr = var_array(resvar, arg_message("resvar", type));
  if (!res_arr) return nullptr;
  py::Ref shape = np::shape_of(res_arr.get());
  std::vector<int> res;
  if (!shape || !columns(self, res_arr.get(), shape.get(), "resvar", &res)) return nullptr;
  const size_t n = res.size();
  std::vector<int> beg(n + 1, 0), ops;
  const char kBadVars[] = "Invalid data in vars array";
  bool last_axis = false;
  if (mvar_check(vars)) {
    py::Ref vshape = np::shape_of(as_melem(vars)->arr);
    if (!vshape) return nullptr;
    const Py_ssize_t nd = PyTuple_GET_SIZE(shape.get());
    if (PyTuple_GET_SIZE(vshape.get()) == nd + 1) {
      py::Ref head = py::Ref::steal(PyTuple_GetSlice(vshape.get(), 0, nd));
      int same = head ? PyObject_RichCompareBool(head.get(), shape.get(), Py_EQ) : -1;
      if (same < 0) return nullptr;
      last_axis = same == 1;
    }
    if (last_axis) {
      if (!columns(self, as_melem(vars)->arr, vshape.get(), "vars", &ops)) return nullptr;
      const size_t k = n == 0 ? 0 : ops.size() / n;
      for (size_t e = 0; e <= n; ++e) beg[e] = static_cast<int>(e * k);
    }
  }
  if (!last_axis) {
    std::vector<std::vector<int>> each;
    auto take = [&](PyObject* item) {
      py::Ref arr = var_array(item, kBadVars);
      std::vector<int> cols;
      if (!arr || !columns(self, arr.get(), shape.get(), "vars operand", &cols)) return false;
      each.push_back(std::move(cols));
      return true;
    };
    if (mvar_check(vars) || var_check(vars)) {
      if (!take(vars)) return nullptr;
    } else if (PyList_Check(vars) || PyTuple_Check(vars)) {
      py::Ref seq = py::Ref::steal(PySequence_Fast(vars, "vars"));
      if (!seq) return nullptr;
      for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(seq.get()); ++i) {
        if (!take(PySequence_Fast_GET_ITEM(seq.get(), i))) return nullptr;
      }
    } else {
      return invalid(kBadVars);
    }
    const size_t m = each.size();
    ops.resize(n * m);
    for (size_t e = 0; e < n; ++e) {
      for (size_t j = 0; j < m; ++j) ops[e * m + j] = each[j][e];
      beg[e + 1] = static_cast<int>((e + 1) * m);
    }
  }
  std::vector<double> av;
  if (a != nullptr && a != Py_None) {
    const char* what = type == kNorm ? "which" : "constant";
    if (!numbers(a, shape.get(), what, arg_message(what, type), &av)) return nullptr;
  }
  Names names;
  if (!matrix_names_arg(name, shape.get(), &names.store, &names.ptrs, &names.keep)) return nullptr;
  if (!fits(ops.size())) return nullptr;
  int rc = VLMaddgenconstrlists(model_handle(self), type, static_cast<int>(n), names.data(), res.data(), beg.data(),
                                ops.data(), av.empty() ? nullptr : av.data());
  return finish(self, rc, static_cast<Py_ssize_t>(n), shape.get());
}

// ---- functions of one variable: ABS, PWL, POLY, EXP ... ---------------------------------------

struct FuncArgs {
  PyObject* a = nullptr;      // base or exponent (EXPA, LOGA, POW)
  PyObject* xpts = nullptr;   // PWL x points, POLY coefficients
  PyObject* ypts = nullptr;   // PWL y points
  PyObject* options = nullptr;
};

// yvar[e] = f(xvar[e]) over the common shape of xvar and yvar.
PyObject* add_funcs(PyObject* self, int type, PyObject* xvar, const char* xname, PyObject* yvar, const char* yname,
                    const FuncArgs& f, PyObject* name) {
  if (!ready(self)) return nullptr;
  py::Ref xa = var_array(xvar, arg_message(xname, type));
  if (!xa) return nullptr;
  py::Ref ya = var_array(yvar, arg_message(yname, type));
  if (!ya) return nullptr;
  py::Ref shape = common_shape(xa.get(), xname, ya.get(), yname);
  std::vector<int> xs, ys;
  if (!shape || !columns(self, xa.get(), shape.get(), xname, &xs) ||
      !columns(self, ya.get(), shape.get(), yname, &ys)) {
    return nullptr;
  }
  std::vector<double> av, xp, yp;
  if (type == kExpA || type == kLogA || type == kPow) {
    if (!numbers(f.a, shape.get(), "a", arg_message("a", type), &av)) return nullptr;
  }
  if (type == kPwl) {
    if (f.xpts == Py_None) return invalid("xpts is None");
    if (f.ypts == Py_None) return invalid("ypts is None");
    if (!point_list(f.xpts, "Invalid data in xpts array", &xp) ||
        !point_list(f.ypts, "Invalid data in ypts array", &yp)) {
      return nullptr;
    }
    if (xp.size() < 2 || yp.size() < 2) return invalid("Less than 2 points for PWL constraint");
    if (xp.size() != yp.size()) return invalid("xpts and ypts differ in length");
  }
  if (type == kPoly && !point_list(f.xpts, "Invalid data in p array", &xp)) return nullptr;
  const char* opts = nullptr;
  if (!text_or_none(f.options, "options", &opts)) return nullptr;
  Names names;
  if (!matrix_names_arg(name, shape.get(), &names.store, &names.ptrs, &names.keep)) return nullptr;
  if (!fits(xs.size()) || !fits(xp.size())) return nullptr;
  int rc = VLMaddgenconstrfuncs(model_handle(self), type, static_cast<int>(xs.size()), names.data(), xs.data(),
                                ys.data(), av.empty() ? nullptr : av.data(), static_cast<int>(xp.size()),
                                xp.empty() ? nullptr : xp.data(), yp.empty() ? nullptr : yp.data(), opts);
  return finish(self, rc, static_cast<Py_ssize_t>(xs.size()), shape.get());
}

// ---- indicators --------------------------------------------------------------------------------

bool is_constant(PyObject* o) {
  if (PyFloat_Check(o) || PyLong_Check(o)) return true;
  if (np::isndarray(o)) {
    py::Ref kind = np::attr(np::attr(o, "dtype").get(), "kind");
    const char* k = kind ? PyUnicode_AsUTF8(kind.get()) : nullptr;
    if (k == nullptr) PyErr_Clear();
    return k != nullptr && (k[0] == 'f' || k[0] == 'i' || k[0] == 'u' || k[0] == 'b');
  }
  py::Ref r = np::fn("isscalar", {o});
  if (!r) {
    PyErr_Clear();
    return false;
  }
  return r.get() == Py_True && PyNumber_Check(o);
}

// binvar[e] = binval[e] implies row e of (lhs - rhs) sense 0. `both_sides`: the `>>` route,
// where the right side may hold variables.
PyObject* add_indicators(PyObject* self, PyObject* binvar, PyObject* binval, PyObject* lhs, PyObject* sense,
                         PyObject* rhs, PyObject* name, bool both_sides) {
  if (!ready(self)) return nullptr;
  if (tempconstr_check(lhs)) {
    TempConstrObject* t = as_tempconstr(lhs);
    lhs = t->lhs;
    sense = t->sense;
    rhs = t->rhs;
  } else {
    both_sides = false;
  }
  py::Ref bin_arr = var_array(binvar, arg_message("binvar", kIndicator));
  if (!bin_arr) return nullptr;
  char s = 0;
  if (sense != nullptr && PyUnicode_Check(sense) && PyUnicode_GET_LENGTH(sense) == 1) {
    Py_UCS4 c = PyUnicode_READ_CHAR(sense, 0);
    if (c == '<' || c == '>' || c == '=') s = static_cast<char>(c);
  }
  if (s == 0) return invalid(arg_message("sense", kIndicator));
  if (rhs == nullptr || rhs == Py_None || (!both_sides && !is_constant(rhs))) {
    return invalid(arg_message("rhs", kIndicator));
  }
  // zeros(binvar's shape) + lhs - rhs: an MLinExpr of the block's shape, NumPy's broadcasting.
  py::Ref zeros = np::fn("zeros", {np::shape_of(bin_arr.get()).get()});
  if (!zeros) return nullptr;
  py::Ref expr = py::Ref::steal(mexpr_add(zeros.get(), lhs));
  if (expr && expr.get() != Py_NotImplemented && mlinexpr_check(expr.get())) {
    expr = py::Ref::steal(mexpr_sub(expr.get(), rhs));
  } else if (expr) {
    return invalid(arg_message("lhs", kIndicator));
  }
  if (!expr) {
    if (!PyErr_ExceptionMatches(velmor_error_type())) return nullptr;
    // A shape mismatch: say which shapes.
    PyErr_Clear();
    py::Ref ls = np::attr(lhs, "shape");
    PyErr_Clear();
    return invalid("lhs of shape " + (ls ? repr_text(ls.get()) : std::string("()")) +
                   " and the right-hand side do not broadcast to binvar's shape " +
                   repr_text(np::shape_of(bin_arr.get()).get()));
  }
  if (expr.get() == Py_NotImplemented || !mlinexpr_check(expr.get())) return invalid(arg_message("rhs", kIndicator));
  MExprObject* me = as_mexpr(expr.get());
  py::Ref shape = np::shape_of(me->constant);
  std::vector<int> bins, vcols;
  if (!shape || !columns(self, bin_arr.get(), shape.get(), "binvar", &bins)) return nullptr;
  if (!columns(self, me->vars, np::shape_of(me->vars).get(), "lhs", &vcols)) return nullptr;
  // binval: true/false for all, or an array of 0/1 values.
  std::vector<double> bv;
  if (!numbers(binval, shape.get(), "binval", arg_message("binval", kIndicator), &bv)) {
    return nullptr;
  }
  std::vector<int> binv(bv.size());
  for (size_t e = 0; e < bv.size(); ++e) binv[e] = bv[e] != 0.0 ? 1 : 0;
  np::CsrView csr;
  np::View cst;
  if (!csr.open(me->coef) || !cst.open(me->constant, "float64")) return nullptr;
  const size_t n = bins.size();
  std::vector<int> beg(n + 1, 0), ind;
  std::vector<double> val, rhsv(n);
  std::vector<char> senses(n, s);
  for (size_t e = 0; e < n; ++e) {
    const int from = static_cast<int>(ind.size());
    for (long long k = csr.begin(static_cast<Py_ssize_t>(e)); k < csr.end(static_cast<Py_ssize_t>(e)); ++k) {
      ind.push_back(vcols[static_cast<size_t>(csr.col(k))]);
      val.push_back(csr.value(k));
    }
    int len = static_cast<int>(ind.size()) - from;
    if (len > 0) VLMclean2(&len, ind.data() + from, val.data() + from);
    ind.resize(static_cast<size_t>(from + len));
    val.resize(static_cast<size_t>(from + len));
    beg[e + 1] = static_cast<int>(ind.size());
    rhsv[e] = py::to_lib_dbl(-cst.data<double>()[e]);
  }
  Names names;
  if (!matrix_names_arg(name, shape.get(), &names.store, &names.ptrs, &names.keep)) return nullptr;
  if (!fits(ind.size())) return nullptr;
  int rc = VLMaddgenconstrIndicators(model_handle(self), static_cast<int>(n), names.data(), bins.data(), binv.data(),
                                     beg.data(), ind.data(), val.data(), senses.data(), rhsv.data());
  return finish(self, rc, static_cast<Py_ssize_t>(n), shape.get());
}

// ---- argument parsing ----------------------------------------------------------------------------

struct Signature {
  const char* kw[7];
  int required;
};

// The keywords of each adder, as the single forms take them.
const Signature* signature(int type) {
  static const Signature maxmin{{"resvar", "vars", "constant", "name", nullptr}, 2};
  static const Signature andor{{"resvar", "vars", "name", nullptr}, 2};
  static const Signature norm{{"resvar", "vars", "which", "name", nullptr}, 3};
  static const Signature abs{{"resvar", "argvar", "name", nullptr}, 2};
  static const Signature ind{{"binvar", "binval", "lhs", "sense", "rhs", "name", nullptr}, 3};
  static const Signature pwl{{"xvar", "yvar", "xpts", "ypts", "name", nullptr}, 4};
  static const Signature poly{{"xvar", "yvar", "p", "name", "options", nullptr}, 3};
  static const Signature func{{"xvar", "yvar", "name", "options", nullptr}, 2};
  static const Signature func_a{{"xvar", "yvar", "a", "name", "options", nullptr}, 3};
  switch (type) {
    case kMax: case kMin: return &maxmin;
    case kAnd: case kOr: return &andor;
    case kNorm: return &norm;
    case kAbs: return &abs;
    case kIndicator: return &ind;
    case kPwl: return &pwl;
    case kPoly: return &poly;
    case kExpA: case kLogA: case kPow: return &func_a;
    default: return &func;
  }
}

}  // namespace

int model_mgenconstr_type(const char* word) {
  for (int t = 0; t < static_cast<int>(sizeof(kTypeWord) / sizeof(kTypeWord[0])); ++t) {
    if (std::string(word) == kTypeWord[t]) return t;
  }
  return -1;
}

bool model_mgenconstr_is_matrix(PyObject* o) {
  if (tempconstr_check(o)) return many(as_tempconstr(o)->lhs);
  return many(o);
}

bool model_mgenconstr_route(PyObject* self, int type, PyObject* args, PyObject* kwds, PyObject** result) {
  if (type < 0) return false;
  const Signature* sig = signature(type);
  PyObject* a[6] = {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
  int nkw = 0;
  while (sig->kw[nkw] != nullptr) ++nkw;
  std::string format(static_cast<size_t>(sig->required), 'O');
  format += '|';
  format.append(static_cast<size_t>(nkw - sig->required), 'O');
  if (!PyArg_ParseTupleAndKeywords(args, kwds, format.c_str(), const_cast<char**>(sig->kw), &a[0], &a[1], &a[2], &a[3],
                                   &a[4], &a[5])) {
    PyErr_Clear();
    return false;
  }
  const bool matrix = many(a[0]) || (type != kMax && type != kMin && type != kAnd && type != kOr && type != kNorm &&
                                     (type == kIndicator ? model_mgenconstr_is_matrix(a[2]) : many(a[1])));
  if (!matrix) return false;
  switch (type) {
    case kMax: case kMin: *result = add_lists(self, type, a[0], a[1], a[2], a[3]); break;
    case kAnd: case kOr: *result = add_lists(self, type, a[0], a[1], nullptr, a[2]); break;
    case kNorm: *result = add_lists(self, type, a[0], a[1], a[2], a[3]); break;
    case kAbs: *result = add_funcs(self, type, a[1], "argvar", a[0], "resvar", FuncArgs{}, a[2]); break;
    case kIndicator: {
      PyObject* rhs = a[4] == Py_None ? nullptr : a[4];
      *result = add_indicators(self, a[0], a[1], a[2], a[3], rhs, a[5], false);
      break;
    }
    case kPwl: {
      FuncArgs f;
      f.xpts = a[2];
      f.ypts = a[3];
      *result = add_funcs(self, type, a[0], "xvar", a[1], "yvar", f, a[4]);
      break;
    }
    case kPoly: {
      FuncArgs f;
      f.xpts = a[2];
      f.options = a[4];
      *result = add_funcs(self, type, a[0], "xvar", a[1], "yvar", f, a[3]);
      break;
    }
    case kExpA: case kLogA: case kPow: {
      FuncArgs f;
      f.a = a[2];
      f.options = a[4];
      *result = add_funcs(self, type, a[0], "xvar", a[1], "yvar", f, a[3]);
      break;
    }
    default: {
      FuncArgs f;
      f.options = a[3];
      *result = add_funcs(self, type, a[0], "xvar", a[1], "yvar", f, a[2]);
      break;
    }
  }
  return true;
}

bool model_mgenconstr_route_indicator(PyObject* self, PyObject* tc, PyObject* name, PyObject** result) {
  TempConstrObject* t = as_tempconstr(tc);
  PyObject* cond = t->lhs;
  if (!tempconstr_check(cond)) return false;
  PyObject* binvar = as_tempconstr(cond)->lhs;
  if (!many(binvar) && !model_mgenconstr_is_matrix(t->rhs)) return false;
  PyObject* value = as_tempconstr(cond)->rhs;
  const char kBadTrigger[] =
      "Indicator constraints can only be triggered by a single binary variable at a given value";
  // `b == 1` of an MVar arrives as (b - 1 == 0): rows of one variable with coefficient 1.
  py::Ref bin_keep, value_keep;
  if (mlinexpr_check(binvar)) {
    MExprObject* e = as_mexpr(binvar);
    np::CsrView csr;
    np::View cst;
    if (!csr.open(e->coef) || !cst.open(e->constant, "float64")) {
      *result = nullptr;
      return true;
    }
    for (Py_ssize_t r = 0; r < cst.size(); ++r) {
      if (csr.end(r) - csr.begin(r) != 1 || csr.value(csr.begin(r)) != 1.0) {
        *result = invalid(kBadTrigger);
        return true;
      }
    }
    py::Ref shape = np::shape_of(e->constant);
    py::Ref vars = np::fn("take", {e->vars, np::attr(e->coef, "indices").get()});
    vars = vars ? np::meth(vars.get(), "reshape", {shape.get()}) : py::Ref();
    bin_keep = vars ? mvar_new(vars.get(), self) : py::Ref();
    value_keep = np::fn("subtract", {value, e->constant});
    if (!bin_keep || !value_keep) {
      *result = nullptr;
      return true;
    }
    binvar = bin_keep.get();
    value = value_keep.get();
  }
  // The condition: an MVar (or one variable) == 0 or 1, elementwise.
  bool ok = mvar_check(binvar) || var_check(binvar);
  PyObject* s = as_tempconstr(cond)->sense;
  ok = ok && PyUnicode_Check(s) && PyUnicode_GET_LENGTH(s) == 1 && PyUnicode_READ_CHAR(s, 0) == '=';
  if (ok) {
    py::Ref arr = np::fn("asarray", {value}, {{"dtype", np::text("float64").get()}});
    py::Ref good = arr ? np::fn("isin", {arr.get(), py::Ref::steal(Py_BuildValue("(dd)", 0.0, 1.0)).get()}) : py::Ref();
    good = good ? np::meth(good.get(), "all") : py::Ref();
    if (!good) PyErr_Clear();
    ok = good && PyObject_IsTrue(good.get()) == 1;
  }
  if (!ok) {
    *result = invalid(kBadTrigger);
    return true;
  }
  if (!tempconstr_check(t->rhs)) {
    *result = invalid(arg_message("lhs", kIndicator));
    return true;
  }
  *result = add_indicators(self, binvar, value, t->rhs, nullptr, nullptr, name, true);
  return true;
}
