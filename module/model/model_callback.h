// Callbacks of Model: optimize(callback) and computeIIS(callback) run the library with a
// C-level entry point (callbackstub) that finds the Model through a module-level map and runs
// the per-solve CallbackClass object, which calls the user's function; inside it the cb*
// methods of Model query and steer the solve.
#pragma once

#include "core/py_ref.h"
#include "velmor_c.h"

// The Model methods of this aspect (cbGet, cbGetSolution, ...), null-terminated.
extern PyMethodDef model_callback_methods[];

// Creates CallbackClass and the model map on the module. 0, or -1 with an exception set.
int register_model_callback(PyObject* m);

// Solves with `call` (VLMoptimize or VLMcomputeIIS) as optimize(callback)/computeIIS(callback)
// do, after update(): `callback` None runs without one, else it must be a plain function
// ("Callback argument must be a function"). The registration is always undone. 0, or -1 with
// an exception set.
int model_solve_with_callback(PyObject* self, PyObject* callback, int (*call)(VLMmodel*));
