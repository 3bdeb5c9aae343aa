// Calls into NumPy and scipy.sparse (see np_call.h).
#include "matrix/np_call.h"

#include <cstring>

namespace np {

namespace {

PyObject* g_numpy = nullptr;
PyObject* g_sparse = nullptr;
PyObject* g_ndarray = nullptr;

// An argument that is nullptr stands for a failure whose exception is already set.
bool any_missing(std::initializer_list<PyObject*> args, std::initializer_list<Kw> kw) {
  for (PyObject* a : args) {
    if (a == nullptr) return true;
  }
  for (const Kw& k : kw) {
    if (k.value == nullptr) return true;
  }
  return false;
}

py::Ref missing() {
  if (!PyErr_Occurred()) PyErr_SetString(PyExc_SystemError, "matrix layer: argument missing without an error");
  return py::Ref();
}

}  // namespace

PyObject* numpy() {
  if (g_numpy == nullptr) {
    g_numpy = PyImport_ImportModule("numpy");
    if (g_numpy != nullptr) g_ndarray = PyObject_GetAttrString(g_numpy, "ndarray");
    if (g_ndarray == nullptr) Py_CLEAR(g_numpy);
  }
  return g_numpy;
}

PyObject* sparse() {
  if (g_sparse == nullptr) g_sparse = PyImport_ImportModule("scipy.sparse");
  return g_sparse;
}

py::Ref call(PyObject* callable, std::initializer_list<PyObject*> args, std::initializer_list<Kw> kw) {
  if (callable == nullptr || any_missing(args, kw)) return missing();
  py::Ref tuple = py::Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(args.size())));
  if (!tuple) return tuple;
  Py_ssize_t i = 0;
  for (PyObject* a : args) PyTuple_SET_ITEM(tuple.get(), i++, py::new_ref(a));
  py::Ref dict;
  if (kw.size() != 0) {
    dict = py::Ref::steal(PyDict_New());
    if (!dict) return dict;
    for (const Kw& k : kw) {
      if (PyDict_SetItemString(dict.get(), k.name, k.value) < 0) return py::Ref();
    }
  }
  return py::Ref::steal(PyObject_Call(callable, tuple.get(), dict.get()));
}

py::Ref attr(PyObject* obj, const char* name) {
  if (obj == nullptr) return missing();
  return py::Ref::steal(PyObject_GetAttrString(obj, name));
}

py::Ref fn(const char* name, std::initializer_list<PyObject*> args, std::initializer_list<Kw> kw) {
  py::Ref f = attr(numpy(), name);
  return call(f.get(), args, kw);
}

py::Ref spfn(const char* name, std::initializer_list<PyObject*> args, std::initializer_list<Kw> kw) {
  py::Ref f = attr(sparse(), name);
  return call(f.get(), args, kw);
}

py::Ref meth(PyObject* obj, const char* name, std::initializer_list<PyObject*> args, std::initializer_list<Kw> kw) {
  py::Ref f = attr(obj, name);
  return call(f.get(), args, kw);
}

py::Ref integer(long long v) { return py::Ref::steal(PyLong_FromLongLong(v)); }
py::Ref text(const char* s) { return py::Ref::steal(PyUnicode_FromString(s)); }

py::Ref array_from(const void* data, Py_ssize_t n, const char* dtype) {
  py::Ref arr = fn("empty", {integer(n).get()}, {{"dtype", text(dtype).get()}});
  View v;
  if (!arr || !v.open(arr.get(), dtype)) return py::Ref();
  if (n > 0) std::memcpy(v.data<char>(), data, static_cast<size_t>(n) * static_cast<size_t>(v.itemsize()));
  return arr;
}

bool issparse(PyObject* o) {
  PyObject* sp = sparse();
  if (sp == nullptr) {
    PyErr_Clear();
    return false;
  }
  py::Ref r = meth(sp, "issparse", {o});
  if (!r) {
    PyErr_Clear();
    return false;
  }
  return r.get() == Py_True;
}

bool isndarray(PyObject* o) {
  if (numpy() == nullptr) {
    PyErr_Clear();
    return false;
  }
  return PyObject_TypeCheck(o, reinterpret_cast<PyTypeObject*>(g_ndarray));
}

Py_ssize_t shape_size(PyObject* shape) {
  Py_ssize_t n = 1;
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(shape); ++i) {
    Py_ssize_t d = PyLong_AsSsize_t(PyTuple_GET_ITEM(shape, i));
    if (d == -1 && PyErr_Occurred()) return -1;
    n *= d;
  }
  return n;
}

bool View::open(PyObject* arr, const char* dtype) {
  py::Ref dt = text(dtype);
  arr_ = fn("ascontiguousarray", {arr}, {{"dtype", dt.get()}});
  if (!arr_) return false;
  // A 0-d array exports a buffer as well; flatten anyway so that len/itemsize is the count.
  if (PyObject_GetBuffer(arr_.get(), &buf_, PyBUF_C_CONTIGUOUS | PyBUF_FORMAT) < 0) return false;
  held_ = true;
  return true;
}

}  // namespace np
