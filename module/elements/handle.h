// Element handles: Var, Constr, QConstr, SOS and GenConstr, the Python objects that stand for
// one element of a model. The five classes share this one mechanism and differ in their names,
// element kind, index field name and repr.
//
// A handle holds its model's shared core (model_core.h) and one index that encodes state and
// position at once:
//   index >= 0   the element's position in the library (it may still be awaiting the update
//                when the index is not below the model's count, in immediate update mode);
//   -1           added, waiting for Model.update();
//   -2           removed by an update: the handle is dead;
//   <= -3        removal pending: the element is still at position -index - 3.
// The Model writes the index; the handle only reads it.
#pragma once

#include "attrs/attrutil.h"
#include "elements/model_core.h"
#include "core/py_convert.h"
#include "core/py_ref.h"
#include "velmor_c.h"

struct HandleObject {
  PyObject_HEAD
  ModelCore* core;  // the owning model's core (one reference); never null
  int index;        // encoded as above
  PyObject* dict;   // the instance dictionary for user extras, created on first use
};

inline constexpr int kIndexPending = -1;
inline constexpr int kIndexRemoved = -2;

// The position an index stands for; -2 for pending and -1 for removed handles, which callers
// treat as "no position".
inline int handle_position(int index) { return index >= 0 ? index : -index - 3; }

inline HandleObject* as_handle(PyObject* o) { return reinterpret_cast<HandleObject*>(o); }

// The Model of a handle while that object lives (borrowed), else nullptr.
inline PyObject* handle_model(PyObject* h) { return as_handle(h)->core->model; }

// The library model of a handle; nullptr once it has been freed.
inline VLMmodel* handle_cmodel(PyObject* h) { return as_handle(h)->core->handle; }

// Whether two handles belong to the same model.
inline bool handle_same_model(PyObject* a, PyObject* b) { return as_handle(a)->core == as_handle(b)->core; }

// The element kind of `o` (VLM_KIND_VAR .. VLM_KIND_GENCONSTR) when it is a handle, subclasses
// included; 0 otherwise.
int handle_kind(PyObject* o);

// The type of the handles of one kind (valid after registration).
PyTypeObject* handle_type(int kind);

// "Var", "Constr", "SOS", "QConstr", "GenConstr".
const char* handle_type_name(int kind);

// "Variable", "Constraint", "SOS", "Quadratic constraint", "General constraint": the word used
// in "... not in model" messages.
const char* handle_element_word(int kind);

// A new handle of the exact class for `kind`. This is the Model's fast path: no argument
// parsing, no type checks (`model` must be an initialised Model). The handle is not tracked
// by the collector until it gets a __dict__.
py::Ref handle_new(int kind, PyObject* model, int index);

// The attribute target of a handle for the engine.
AttrTarget handle_target(PyObject* self);

// Description of one handle class, given by its family file at registration.
struct HandleClass {
  int kind;
  const char* index_name;  // "_colno", "_rowno", ...
  const char* doc;
  reprfunc repr;
  PyMethodDef* extra_methods;  // nullptr-terminated, or nullptr
};

// Fills and readies `type` (whose tp_name is already set) and adds it to the module.
int handle_register(PyObject* m, PyTypeObject* type, const HandleClass& cls);

// Reads an int model attribute (NumVars, ...) for a handle's repr; -1 with an exception set.
int handle_model_count(PyObject* self, const char* attr, int* out);
// Reads a string element attribute (VarName, ...) of the handle's position.
py::Ref handle_name_attr(PyObject* self, const char* attr);
