// Conversions between Python values and the library's: text as UTF-8, and the infinity rule
// (a double at or beyond 1e100 in magnitude is infinite on the Python side).
#pragma once

#include <cmath>
#include <string>

#include "core/py_ref.h"
#include "velmor_c.h"

namespace py {

// UTF-8 bytes of a str (nullptr with TypeError if `o` is not a str). The pointer lives as
// long as `o`.
inline const char* utf8(PyObject* o) {
  if (!PyUnicode_Check(o)) {
    PyErr_Format(PyExc_TypeError, "expected str, got %.200s", Py_TYPE(o)->tp_name);
    return nullptr;
  }
  return PyUnicode_AsUTF8(o);
}

inline Ref str(const char* s) { return Ref::steal(PyUnicode_FromString(s ? s : "")); }
inline Ref str(const std::string& s) {
  return Ref::steal(PyUnicode_FromStringAndSize(s.data(), static_cast<Py_ssize_t>(s.size())));
}

// Library double -> Python float.
inline Ref from_dbl(double v) {
  if (v >= VLM_INFINITY) v = HUGE_VAL;
  if (v <= -VLM_INFINITY) v = -HUGE_VAL;
  return Ref::steal(PyFloat_FromDouble(v));
}

// Python float -> library double.
inline double to_lib_dbl(double v) {
  if (v >= VLM_INFINITY) return VLM_INFINITY;
  if (v <= -VLM_INFINITY) return -VLM_INFINITY;
  return v;
}

}  // namespace py
