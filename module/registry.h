// Registration of the class families into the module object, called in this order by
// PyInit_velmorpy. Each returns 0, or -1 with a Python exception set.
#pragma once

#include "py_ref.h"

int register_exception(PyObject* m);  // exception.cpp: VelmorError
int register_env(PyObject* m);        // env.cpp: Env
int register_param(PyObject* m);      // param.cpp: ParamClass and the parameter functions
int register_constants(PyObject* m);  // vlm.cpp (with statusconst, callback, attrconst,
                                      // paramconst, errorconst): VLM and its groups
int register_velmor(PyObject* m);     // velmor.cpp: the module-level class and functions

// The VelmorError class (borrowed; valid after register_exception).
PyObject* velmor_error_type();
