// Raising and the guard that keeps C++ exceptions from reaching CPython.
//
// A failure is one line: `return py::raise(PyExc_TypeError, "...")` or
// `return raise_velmor(rc, self)`. Every method-table and slot entry is wrapped with
// py::guarded<&impl>, which turns std::bad_alloc into MemoryError and any other C++ exception
// into SystemError.
#pragma once

#include <exception>
#include <new>
#include <type_traits>

#include "core/py_ref.h"
#include "velmor_c.h"

namespace py {

inline PyObject* raise(PyObject* type, const char* message) {
  PyErr_SetString(type, message);
  return nullptr;
}

template <class R>
R on_cpp_exception(R failure) {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& e) {
    PyErr_SetString(PyExc_SystemError, e.what());
  } catch (...) {
    PyErr_SetString(PyExc_SystemError, "unexpected C++ exception");
  }
  return failure;
}

template <auto Impl>
struct Guard;

template <class R, class... Args, R (*Impl)(Args...)>
struct Guard<Impl> {
  static R call(Args... args) noexcept {
    try {
      return Impl(args...);
    } catch (...) {
      if constexpr (std::is_pointer_v<R>) {
        return on_cpp_exception<R>(nullptr);
      } else {
        return on_cpp_exception<R>(static_cast<R>(-1));
      }
    }
  }
};

// The wrapper to put in method tables and slots.
template <auto Impl>
constexpr auto guarded = &Guard<Impl>::call;

}  // namespace py

// Raises VelmorError(code, obj): the message comes from the library's last error text of obj
// (environment or model). Returns nullptr.
PyObject* raise_velmor(int code, PyObject* obj);
// Raises VelmorError(code, message). Returns nullptr.
PyObject* raise_velmor_msg(int code, const char* message);
// The text for a failed library call on a model: the model's last error text ("Model has been
// disposed" when there is none), except for a call refused because another thread is solving
// the model, which records no text (the solving thread owns the model's state).
const char* model_error_text(VLMmodel* model, int code = 0);
