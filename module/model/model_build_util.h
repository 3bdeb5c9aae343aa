// What the files of the Model's building methods (model_build_*.cpp) share: errors worded as
// the expressions word them, argument parsing, element positions, the text of keys in names,
// and addConstr's dispatch, which addConstrs uses too. The helpers on the path of every call,
// term or key are inline, so that they cost no call; only the error raisers are out of line.
#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "elements/handle.h"
#include "model/model.h"
#include "core/py_error.h"
#include "core/py_ref.h"

// ---- errors and argument parsing -------------------------------------------------------------

// VelmorError(ERROR_INVALID_ARGUMENT, message); returns nullptr.
PyObject* invalid(const char* message);
PyObject* invalid(const std::string& message);

// VelmorError(ERROR_NOT_IN_MODEL, "<Element> not in model"); returns nullptr.
PyObject* not_in_model(int kind);

// "Unsupported type (<class 'str'>) for <what>", the wording the expressions use.
PyObject* unsupported(PyObject* o, const char* what);

// A disposed model has no library handle; every method refuses it the way the lifecycle
// methods do.
inline bool model_alive(PyObject* self) {
  if (model_handle(self) != nullptr) return true;
  raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  return false;
}

// Fills out[0..n) from the arguments of a METH_FASTCALL | METH_KEYWORDS call by Python's rules;
// absent arguments stay nullptr. The first `required` names are required.
inline bool parse_args(const char* fname, const char* const* names, int n, int required, PyObject* const* args,
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

inline bool is_none(PyObject* o) { return o == nullptr || o == Py_None; }

// A number argument (bounds, right-hand sides); `dflt` when absent. Infinite values pass as
// they are: the library reads anything at or beyond 1e100 as infinite.
inline bool double_arg(PyObject* o, double dflt, double* out) {
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
inline bool name_arg(PyObject* name, py::Ref* keep, const char** out) {
  *out = nullptr;
  if (is_none(name)) return true;
  *keep = PyUnicode_Check(name) ? py::Ref::borrow(name) : py::Ref::steal(PyObject_Str(name));
  if (!*keep) return false;
  if (PyUnicode_GET_LENGTH(keep->get()) == 0) return true;
  *out = py::utf8(keep->get());
  return *out != nullptr;
}

// Library counts and indices are int.
inline bool fits_int(size_t n, const char* what) {
  if (n <= static_cast<size_t>(INT32_MAX)) return true;
  invalid(std::string("Too many ") + what + " for one library call");
  return false;
}

// ---- element positions -----------------------------------------------------------------------

// The library position of a handle of `kind` that must belong to this model and be in it
// (pending removals still are); "<Element> not in model" otherwise.
inline bool position_of(PyObject* self, PyObject* o, int kind, int* pos) {
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

// Coefficients must be finite numbers.
inline bool finite_coeff(double c) {
  if (std::isfinite(c)) return true;
  invalid("Coefficient is Nan or Inf");
  return false;
}

// ---- iterables and the text of keys ----------------------------------------------------------

inline bool is_iterable(PyObject* o) {
  if (PyUnicode_Check(o) || PyBytes_Check(o)) return false;
  return Py_TYPE(o)->tp_iter != nullptr || PySequence_Check(o);
}

// str(o) appended as UTF-8, with the common int and str keys done without Python calls.
inline bool append_text(std::string& out, PyObject* o) {
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
  if (u == nullptr) {
    // Lone surrogates: let the common conversion raise its VelmorError.
    if (PyErr_ExceptionMatches(PyExc_UnicodeEncodeError)) {
      PyErr_Clear();
      py::utf8(s.get());
    }
    return false;
  }
  out.append(u, static_cast<size_t>(len));
  return true;
}

// The index part of a name: a scalar key as str(key), a tuple key as its parts joined by ",".
inline bool append_key_text(std::string& out, PyObject* key) {
  if (!PyTuple_Check(key)) return append_text(out, key);
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(key); ++i) {
    if (i > 0) out.push_back(',');
    if (!append_text(out, PyTuple_GET_ITEM(key, i))) return false;
  }
  return true;
}

// name[key] ("%s[%s]").
inline bool append_index_name(std::string& out, const std::string& base, PyObject* key) {
  out += base;
  out.push_back('[');
  if (!append_key_text(out, key)) return false;
  out.push_back(']');
  return true;
}

// ---- addConstr's dispatch (model_build_constrs.cpp) ------------------------------------------

// addConstr's dispatch for one TempConstr or the older argument forms; `name` may be nullptr.
PyObject* add_constr_any(PyObject* self, PyObject* lhs, PyObject* sense, PyObject* rhs, PyObject* name);
