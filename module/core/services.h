// Services that upper floors lend to the lower ones.
//
// core/ and the other lower folders never include the headers of env/ or model/ (README.md lists
// the floors), yet a few of their functions need an Env or a Model: VelmorError finds the last
// error text of the object a failed call used, the `velmor` object creates the default Env and
// reads models, element handles reach their Model's shared core. The owning families fill these
// entries from their registration functions (register_env, register_model), which
// PyInit__velmorpy calls before any Python code can run, so every entry is set whenever a caller
// can reach it.
#pragma once

#include "core/py_ref.h"
#include "velmor_c.h"

struct ModelCore;  // elements/model_core.h

struct ModuleServices {
  // env/env.cpp
  bool (*env_check)(PyObject* obj) = nullptr;
  VLMenv* (*env_handle)(PyObject* env) = nullptr;  // nullptr when closed
  py::Ref (*env_new_default)(const char* logfilename) = nullptr;
  int (*env_close)(PyObject* env) = nullptr;  // -1 with an exception set
  // model/model.cpp
  PyTypeObject* model_type = nullptr;
  // The library model behind a Model or an element handle; `*found` tells whether `obj` was
  // one of them at all (the model is nullptr when disposed).
  VLMmodel* (*model_handle_of)(PyObject* obj, bool* found) = nullptr;
  // Model(cmodel=..., env=env): takes ownership of `handle`, also on failure.
  py::Ref (*model_adopt)(VLMmodel* handle, PyObject* env) = nullptr;
  // The shared core of an initialised Model; nullptr when `obj` is not one.
  ModelCore* (*model_core)(PyObject* obj) = nullptr;
  // batch/batch.cpp: the environment of a Batch's library handle; `*found` tells whether
  // `obj` was a Batch at all (the environment is nullptr when it has no handle).
  VLMenv* (*batch_env_of)(PyObject* obj, bool* found) = nullptr;
};

// The one instance, filled during module initialisation.
ModuleServices& services();
