// ModelCore: the part of a Model that its element handles share.
//
// Handles hold the core, not the Model. A handle then references no Python object except its
// own __dict__, so it takes part in no reference cycle through its model and the collector
// need not track it; with millions of handles per model, tracking them would cost a full
// collector pass over all of them. The core also keeps the library model readable for
// handles that outlive their Model object.
#pragma once

#include <Python.h>

#include "velmor_c.h"

struct ModelCore {
  Py_ssize_t refs = 1;         // the Model plus one per handle
  VLMmodel* handle = nullptr;  // the library model; nullptr once freed
  PyObject* model = nullptr;   // the Model while that object lives (borrowed), else nullptr
};

inline ModelCore* core_acquire(ModelCore* core) {
  ++core->refs;
  return core;
}

// Drops one reference; the last one frees the library model, if it is still there, and the
// core itself.
inline void core_release(ModelCore* core) {
  if (--core->refs > 0) return;
  if (core->handle != nullptr) VLMfreemodel(core->handle);
  delete core;
}
