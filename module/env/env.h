// Env: the Python side of one library environment.
#pragma once

#include "core/py_ref.h"
#include "velmor_c.h"

struct EnvObject {
  PyObject_HEAD
  PyObject* cenv;  // the wrapped handle (a capsule), or nullptr for None
  bool is_default;
  bool user;
  long modcnt;
  bool empty;
  PyObject* dict;
  PyObject* weakreflist;
};

bool env_check(PyObject* o);
// The library handle, or nullptr when closed or never created.
VLMenv* env_handle(PyObject* env);
// Wraps a library handle as the capsule kept in `_cenv`.
py::Ref wrap_env_handle(VLMenv* cenv);

// Env(logfilename=..., isDefault=...) as the default environment is made.
py::Ref env_new_default(const char* logfilename);
// env.close(); -1 with an exception set on failure.
int env_close(PyObject* env);
// env.setParam(name, value) and friends, for the module-level functions.
PyObject* env_call_method(PyObject* env, const char* method, PyObject* const* args,
                          Py_ssize_t nargs);
