// The helpers that every expression family uses (declared in linexpr.h; expr_classify itself is
// inline there): the array hand-off, divisors and scalars, recognising matrix objects and
// tupledicts, the shared comparison that builds a TempConstr, expression text, solution values,
// list-style indexes and variable identity.
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "attrs/attrutil.h"
#include "core/py_error.h"
#include "elements/handle.h"
#include "elements/var.h"
#include "expr/linexpr.h"
#include "expr/linexpr_util.h"
#include "expr/quadexpr.h"
#include "expr/tempconstr.h"
#include "velmor_c.h"

namespace {

PyObject* s_array_ufunc = nullptr;     // "__array_ufunc__"
PyObject* s_array_priority = nullptr;  // "__array_priority__"
PyObject* s_X = nullptr;               // "X"

}  // namespace

bool expr_is_array_like(PyObject* o) {
  PyTypeObject* t = Py_TYPE(o);
  if (_PyType_Lookup(t, s_array_ufunc) != nullptr) return true;
  if (_PyType_Lookup(t, s_array_priority) == nullptr) return false;
  PyNumberMethods* nb = t->tp_as_number;
  return !(nb != nullptr && (nb->nb_float != nullptr || nb->nb_index != nullptr));
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

int linexpr_shared_init() {
  s_array_ufunc = PyUnicode_InternFromString("__array_ufunc__");
  s_array_priority = PyUnicode_InternFromString("__array_priority__");
  s_X = PyUnicode_InternFromString("X");
  if (s_array_ufunc == nullptr || s_array_priority == nullptr || s_X == nullptr) return -1;
  return 0;
}
