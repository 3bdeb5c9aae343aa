// The helpers of the containers that subclass a built-in type (see subclass.h).
#include "containers/subclass.h"

#include <vector>

#include "core/py_error.h"

int subclass_base_methods(PyTypeObject* base, const BaseMethod* methods, size_t n,
                          const char* missing) {
  // Looked up through the type (its tp_dict is not filled for built-in types on 3.12+); the
  // references are kept for the life of the process.
  PyObject* type = reinterpret_cast<PyObject*>(base);
  for (size_t i = 0; i < n; ++i) {
    *methods[i].slot = PyObject_GetAttrString(type, methods[i].name);
    if (*methods[i].slot == nullptr) {
      PyErr_SetString(PyExc_SystemError, missing);
      return -1;
    }
  }
  return 0;
}

PyObject* subclass_call_base(PyObject* method, PyObject* self, PyObject* const* args,
                             Py_ssize_t nargs, PyObject* kwnames) {
  Py_ssize_t nkw = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
  std::vector<PyObject*> all;
  all.reserve(static_cast<size_t>(1 + nargs + nkw));
  all.push_back(self);
  all.insert(all.end(), args, args + nargs + nkw);
  return PyObject_Vectorcall(method, all.data(), static_cast<size_t>(nargs) + 1, kwnames);
}

void subclass_dealloc(PyObject* self, PyObject* weakreflist, void (*release)(PyObject*),
                      PyTypeObject* base) {
  PyObject_GC_UnTrack(self);
  if (weakreflist != nullptr) PyObject_ClearWeakRefs(self);
  release(self);
  base->tp_dealloc(self);
}

PyObject* subclass_setstate(PyObject* self, PyObject* state, const char* not_a_dict) {
  if (state == Py_None) return py::none();
  if (!PyDict_Check(state)) return py::raise(PyExc_TypeError, not_a_dict);
  PyObject* key;
  PyObject* value;
  Py_ssize_t pos = 0;
  while (PyDict_Next(state, &pos, &key, &value)) {
    if (PyObject_SetAttr(self, key, value) < 0) return nullptr;
  }
  return py::none();
}

int subclass_add_type(PyObject* m, const char* name, PyTypeObject* type, PyTypeObject* base,
                      Py_ssize_t basicsize, Py_ssize_t dictoffset, Py_ssize_t weaklistoffset) {
  type->tp_base = base;
  type->tp_basicsize = basicsize;
  type->tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  type->tp_dictoffset = dictoffset;
  type->tp_weaklistoffset = weaklistoffset;
  if (PyType_Ready(type) < 0) return -1;
  Py_INCREF(type);
  if (PyModule_AddObject(m, name, reinterpret_cast<PyObject*>(type)) < 0) {
    Py_DECREF(type);
    return -1;
  }
  return 0;
}
