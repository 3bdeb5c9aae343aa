// What tuplelist and tupledict share as C subclasses of a built-in type (list, dict): calling
// the base type's own methods, restoring the pickled attribute state, and readying the type.
#pragma once

#include <cstddef>

#include "core/py_ref.h"

// A method of the base type that the subclass calls after overriding it, looked up once at
// registration and kept for the life of the process.
struct BaseMethod {
  const char* name;
  PyObject** slot;
};

// Looks up the `n` methods on `base` into their slots; -1 with SystemError `missing` when one
// is not found.
int subclass_base_methods(PyTypeObject* base, const BaseMethod* methods, size_t n,
                          const char* missing);

// method(self, *args, **kwargs) for a base method looked up above, with the vectorcall
// arguments as the overriding method received them.
PyObject* subclass_call_base(PyObject* method, PyObject* self, PyObject* const* args,
                             Py_ssize_t nargs, PyObject* kwnames);

// tp_dealloc: untracks `self`, clears its weak references (`weakreflist` is the object's list),
// lets `release` drop the subclass's own fields, then has the base type free the rest.
void subclass_dealloc(PyObject* self, PyObject* weakreflist, void (*release)(PyObject*),
                      PyTypeObject* base);

// __setstate__: sets each attribute named in the state dict (None: nothing to set); TypeError
// `not_a_dict` for any other state.
PyObject* subclass_setstate(PyObject* self, PyObject* state, const char* not_a_dict);

// Readies `type`, a subclass of `base` with GC, an instance __dict__ and weak references (the
// caller sets the other slots first), and adds it to the module `m` as `name`. -1 with an
// exception set.
int subclass_add_type(PyObject* m, const char* name, PyTypeObject* type, PyTypeObject* base,
                      Py_ssize_t basicsize, Py_ssize_t dictoffset, Py_ssize_t weaklistoffset);
