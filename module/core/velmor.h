// The module-level `velmor` object: default environment, live models, shutdown state.
#pragma once

#include "core/py_ref.h"

// The default Env (borrowed), created when `create` is true and none exists; nullptr with an
// exception set on failure, or nullptr without one when none exists and create is false.
PyObject* velmor_default_env(bool create);
// True while the interpreter shuts down (set by velmor._cleanup).
bool velmor_exiting();
// The (name, model) pairs of live models bound in __main__ (a new list).
py::Ref velmor_live_models();
