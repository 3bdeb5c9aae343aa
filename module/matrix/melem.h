// The array of element handles behind MVar, MConstr and MQConstr.
//
// Each of those classes is a NumPy object array of handles of one element kind plus the owning
// Model; shape operations return a new object of the same class over a new array (sharing the
// handles), and attribute access reads or writes one attribute for all elements in one library
// call and answers with an ndarray of the object's shape. The classes share this struct and the
// functions below and differ in their name, element kind and the name of the array field.
#pragma once

#include <vector>

#include "core/py_ref.h"
#include "velmor_c.h"

struct MElemObject {
  PyObject_HEAD
  PyObject* arr;    // ndarray of dtype object; every element is a handle of `kind`
  PyObject* model;  // the owning Model, or None when unknown (an empty array)
  int kind;         // VLM_KIND_VAR, VLM_KIND_CONSTR or VLM_KIND_QCONSTR
};

inline MElemObject* as_melem(PyObject* o) { return reinterpret_cast<MElemObject*>(o); }

// A new object of `type` (one of the three classes) over `arr`, which it keeps as it is.
py::Ref melem_new(PyTypeObject* type, int kind, PyObject* arr, PyObject* model);

// The same class as `self` over another array of the same handles.
py::Ref melem_derive(PyObject* self, PyObject* arr);

// The library positions of the elements in C order. An element awaiting its update or removed
// raises VelmorError (not in model) with the texts of a single element's attribute access
// ("Var has not yet been added to the model", "... was removed from the model"), one of
// another model "Variable not in model". O(n).
bool melem_positions(PyObject* self, std::vector<int>* out);

// The library model; nullptr with VelmorError "Model has already been freed" when it is gone.
VLMmodel* melem_cmodel(PyObject* self);

// Whether `o` is an element array (MVar, MConstr, MQConstr or a subclass of one).
bool melem_check(PyObject* o);

// Slots and methods shared by the three classes (each returns nullptr / -1 with an exception).
int melem_traverse(PyObject* self, visitproc visit, void* arg);
int melem_clear(PyObject* self);
void melem_dealloc(PyObject* self);
PyObject* melem_getattro(PyObject* self, PyObject* name);
int melem_setattro(PyObject* self, PyObject* name, PyObject* value);
PyObject* melem_subscript(PyObject* self, PyObject* key);
Py_ssize_t melem_length(PyObject* self);
// "<MVar (2, 3)" + state suffixes + "\n" + the array's repr + ">\n", `label` being the class name.
PyObject* melem_repr(PyObject* self, const char* label);

// The method-table entries of the shared methods (nullptr-terminated) and the getset entries
// shape, ndim, size, T and _idxarr-style index array; `array_field` is "_vararr", ... .
extern PyMethodDef melem_methods[];
int melem_ready(PyTypeObject* type, const char* array_field, PyMethodDef* extra_methods);
