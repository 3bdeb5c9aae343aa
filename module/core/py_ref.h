// py::Ref: the one owner of a Python reference in the module.
//
// Move-only. Ref::steal takes a new reference returned by an API call, Ref::borrow takes a
// reference to a borrowed pointer, get() lends it, release() hands it to CPython. An empty Ref
// signals failure with a Python exception set. Raw reference counting appears only here and in
// GC slots.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <utility>

namespace py {

class Ref {
 public:
  Ref() = default;
  static Ref steal(PyObject* p) { return Ref(p); }
  static Ref borrow(PyObject* p) {
    Py_XINCREF(p);
    return Ref(p);
  }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  Ref(Ref&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
  Ref& operator=(Ref&& o) noexcept {
    if (this != &o) {
      PyObject* old = p_;
      p_ = o.p_;
      o.p_ = nullptr;
      Py_XDECREF(old);
    }
    return *this;
  }
  ~Ref() { Py_XDECREF(p_); }

  PyObject* get() const { return p_; }
  PyObject* release() {
    PyObject* p = p_;
    p_ = nullptr;
    return p;
  }
  explicit operator bool() const { return p_ != nullptr; }

 private:
  explicit Ref(PyObject* p) : p_(p) {}
  PyObject* p_ = nullptr;
};

// Replaces the object in a PyObject* field, releasing the old one (for struct fields).
inline void assign(PyObject*& field, PyObject* value) {
  PyObject* old = field;
  Py_XINCREF(value);
  field = value;
  Py_XDECREF(old);
}

inline PyObject* new_ref(PyObject* p) {
  Py_INCREF(p);
  return p;
}

inline PyObject* none() { return new_ref(Py_None); }

inline PyObject* boolean(bool b) { return new_ref(b ? Py_True : Py_False); }

// Releases the interpreter lock for its lifetime (around library calls that may run long, such
// as a solve); the guarded code must not touch Python objects.
class WithoutGil {
 public:
  WithoutGil() : state_(PyEval_SaveThread()) {}
  ~WithoutGil() { PyEval_RestoreThread(state_); }
  WithoutGil(const WithoutGil&) = delete;
  WithoutGil& operator=(const WithoutGil&) = delete;

 private:
  PyThreadState* state_;
};

}  // namespace py
