// Var: the handle of one variable (see handle.h for the shared handle mechanism).
#pragma once

#include "elements/handle.h"
#include "core/py_ref.h"

// How a variable shows in texts (Var._safename()): its name, or "*Awaiting Model Update*" /
// "*Removed*", and whether it is pending (added or removed, not yet updated) and removed.
struct VarDisplay {
  py::Ref name;
  bool pending = false;
  bool removed = false;
};

inline bool var_check(PyObject* o) { return handle_kind(o) == VLM_KIND_VAR; }

// Fills `out`; false with an exception set when the library cannot tell the name.
bool var_safename(PyObject* var, VarDisplay* out);

// The Var type (not yet ready before register_var): the expression floor installs the
// variable's operators into it.
PyTypeObject* var_type_object();
