// Conversions between Python values and the library's: text as UTF-8, and the infinity rule
// (a double at or beyond 1e100 in magnitude is infinite on the Python side).
#pragma once

#include <cmath>
#include <cstring>
#include <string>

#include "core/py_error.h"
#include "core/py_ref.h"
#include "velmor_c.h"

namespace py {

// UTF-8 bytes of a str for the library, which takes NUL-terminated text: nullptr with TypeError
// if `o` is not a str, and with VelmorError (invalid argument) if it holds a NUL character or
// lone surrogates, which the library could only receive cut short or not at all. The pointer
// lives as long as `o`.
inline const char* utf8(PyObject* o) {
  if (!PyUnicode_Check(o)) {
    PyErr_Format(PyExc_TypeError, "expected str, got %.200s", Py_TYPE(o)->tp_name);
    return nullptr;
  }
  Py_ssize_t n = 0;
  const char* s = PyUnicode_AsUTF8AndSize(o, &n);
  const char* problem = nullptr;
  if (s == nullptr) {
    if (!PyErr_ExceptionMatches(PyExc_UnicodeEncodeError)) return nullptr;
    PyErr_Clear();
    problem = "it holds characters that cannot be encoded as UTF-8";
  } else if (std::strlen(s) != static_cast<size_t>(n)) {
    problem = "it holds a NUL character";
  }
  if (problem == nullptr) return s;
  Ref text = Ref::steal(PyUnicode_FromFormat("Invalid text %R: %s", o, problem));
  if (text) raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, PyUnicode_AsUTF8(text.get()));
  return nullptr;
}

// Library text -> str. Bytes that are not UTF-8 (a name read from a file written elsewhere)
// become U+FFFD rather than an error.
inline Ref str(const char* s) {
  if (s == nullptr) s = "";
  return Ref::steal(PyUnicode_DecodeUTF8(s, static_cast<Py_ssize_t>(std::strlen(s)), "replace"));
}
inline Ref str(const std::string& s) {
  return Ref::steal(PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "replace"));
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
