// Element handles: Var, Constr, QConstr, SOS and GenConstr, the Python objects that stand for
// one element of a model. The five classes share this one mechanism and differ in their names,
// element kind, index field name and repr.
//
// A handle holds its model's shared core (model_core.h) and one index that encodes state and
// position at once (attrs/element_index.h). The Model writes the index; the handle only reads it.
#pragma once

#include "attrs/attrutil.h"
#include "attrs/element_index.h"
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

// The element kinds VLM_KIND_VAR .. VLM_KIND_GENCONSTR, which index per-kind tables as
// table[kind - 1].
inline constexpr int kNumElementKinds = 5;


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

// A new handle of the exact class for `kind` over an initialised Model's core. This is the
// Model's fast path: no argument parsing, no type checks. The handle is not tracked by the
// collector until it gets a __dict__.
py::Ref handle_new(int kind, ModelCore* core, int index);

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

// The repr of the handles shown by position (SOS, GenConstr): "<velmor.<type> N>", with
// " (Removed)" for a pending removal, or "*Awaiting Model Update*" / "*Removed*". A position the
// model does not have yet (a new element in immediate update mode) is awaiting its update.
PyObject* handle_position_repr(PyObject* self, const char* type, const char* count_attr);

// Reads an int model attribute (NumVars, ...) for a handle's repr; -1 with an exception set.
int handle_model_count(PyObject* self, const char* attr, int* out);
// Reads a string element attribute (VarName, ...) of the handle's position.
py::Ref handle_name_attr(PyObject* self, const char* attr);
