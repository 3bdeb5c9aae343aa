// Calls into NumPy and scipy.sparse through their Python interface, and typed views of arrays.
//
// The matrix layer keeps its data in NumPy arrays and scipy.sparse matrices and lets them do the
// arithmetic; the C++ side only arranges the calls and reads the finished arrays through the
// buffer protocol. Every call returns an empty Ref with a Python exception set on failure, and
// an argument that is nullptr (an earlier failure) makes the call fail at once, so a chain of
// calls needs one check at its end.
#pragma once

#include <initializer_list>

#include "core/py_ref.h"

namespace np {

// One keyword argument of a call.
struct Kw {
  const char* name;
  PyObject* value;
};

// The numpy and scipy.sparse modules (borrowed), imported on first use; nullptr with the
// ImportError set.
PyObject* numpy();
PyObject* sparse();

// callable(*args, **kw).
py::Ref call(PyObject* callable, std::initializer_list<PyObject*> args, std::initializer_list<Kw> kw = {});
// numpy.<name>(...), scipy.sparse.<name>(...), obj.<name>(...).
py::Ref fn(const char* name, std::initializer_list<PyObject*> args, std::initializer_list<Kw> kw = {});
py::Ref spfn(const char* name, std::initializer_list<PyObject*> args, std::initializer_list<Kw> kw = {});
py::Ref meth(PyObject* obj, const char* name, std::initializer_list<PyObject*> args = {},
             std::initializer_list<Kw> kw = {});
// obj.<name>.
py::Ref attr(PyObject* obj, const char* name);

// Small Python values.
py::Ref integer(long long v);
py::Ref text(const char* s);

// A new 1-D array of `n` items of `dtype` copied from `data` (itemsize must match dtype).
py::Ref array_from(const void* data, Py_ssize_t n, const char* dtype);

// Whether `o` is a scipy.sparse matrix or array (false, no exception, when SciPy is missing).
bool issparse(PyObject* o);
// Whether `o` is a NumPy ndarray.
bool isndarray(PyObject* o);

// The number of elements of a shape tuple; -1 with an exception set.
Py_ssize_t shape_size(PyObject* shape);
// The shape tuple of an ndarray or sparse matrix.
inline py::Ref shape_of(PyObject* arr) { return attr(arr, "shape"); }

// A C-contiguous view of `arr` converted to `dtype` ("float64", "int32", "S1", "O"); the
// converted array is held as long as the view. O(n) when a conversion or copy is needed.
class View {
 public:
  View() = default;
  View(const View&) = delete;
  View& operator=(const View&) = delete;
  ~View() {
    if (held_) PyBuffer_Release(&buf_);
  }
  // false with an exception set when `arr` cannot be converted.
  bool open(PyObject* arr, const char* dtype);
  template <class T>
  T* data() const {
    return static_cast<T*>(buf_.buf);
  }
  Py_ssize_t size() const { return held_ ? buf_.len / buf_.itemsize : 0; }
  Py_ssize_t itemsize() const { return held_ ? buf_.itemsize : 0; }
  PyObject* array() const { return arr_.get(); }

 private:
  py::Ref arr_;
  Py_buffer buf_{};
  bool held_ = false;
};

// The three arrays of a scipy.sparse CSR matrix as 64-bit views.
struct CsrView {
  View ptr, ind, val;
  bool open(PyObject* m) {
    return ptr.open(attr(m, "indptr").get(), "int64") && ind.open(attr(m, "indices").get(), "int64") &&
           val.open(attr(m, "data").get(), "float64");
  }
  long long begin(Py_ssize_t r) const { return ptr.data<long long>()[r]; }
  long long end(Py_ssize_t r) const { return ptr.data<long long>()[r + 1]; }
  long long col(long long t) const { return ind.data<long long>()[t]; }
  double value(long long t) const { return val.data<double>()[t]; }
};

}  // namespace np
