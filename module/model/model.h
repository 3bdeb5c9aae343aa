// Model: one Python object per library model, with the element handles it owns.
//
// The handle lists (`_Model__vars`, ... as Python lists) hold, per element kind, the handles of
// the library's elements in index order followed by additions not yet applied. They are built
// lazily by setup. For variables and linear constraints the live count tells how many leading
// entries existed at the last update; the other kinds read removal from the handles' indices.
#pragma once

#include "elements/handle.h"
#include "elements/model_core.h"
#include "core/py_error.h"
#include "core/py_ref.h"
#include "velmor_c.h"


struct ModelObject {
  PyObject_HEAD
  PyObject* cmodel;    // capsule "velmorpy.model" around `handle`, or nullptr for None
  VLMmodel* handle;    // the library model, nullptr exactly when `cmodel` is
  ModelCore* core;     // shared with the handles; created by __init__, released at dealloc
  PyObject* callback;  // the active callback object during a solve, or nullptr
  PyObject* uenv;      // the user's Env, or nullptr once disposed
  PyObject* env;       // Env over the model's own environment
  PyObject* lists[kNumElementKinds];  // handle lists by kind - 1, or nullptr before setup
  Py_ssize_t livevars;
  Py_ssize_t liveconstrs;
  bool delvars;
  bool delconstrs;
  int updatemode;  // cached UpdateMode parameter; -1 = read again
  int newranges;   // range constraints added in immediate mode since the last update
  long modcnt;
  int solving;  // non-zero while optimize() runs with the interpreter lock released
  PyObject* dict;
  PyObject* weakreflist;
};

inline ModelObject* as_model(PyObject* o) { return reinterpret_cast<ModelObject*>(o); }

bool model_check(PyObject* o);
PyTypeObject* model_type_object();

// The library model of a Model (nullptr when disposed).
inline VLMmodel* model_handle(PyObject* model) { return as_model(model)->handle; }

// Whether the element handle `h` belongs to `model`.
inline bool model_has(PyObject* model, PyObject* h) { return as_handle(h)->core == as_model(model)->core; }

// The library model behind a Model or an element handle; nullptr for other objects and for
// disposed models. `*found` tells whether `obj` was a Model or a handle at all.
VLMmodel* model_handle_of(PyObject* obj, bool* found);

// Builds the handle lists if they do not exist yet (empty: without asking the library for
// counts). 0, or -1 with an exception set.
int model_setup(PyObject* model, bool empty);

// The UpdateMode parameter, cached until the next update; -1 with an exception set.
int model_getupdatemode(PyObject* model);

// The handle list of one kind after setup (borrowed), or nullptr with an exception set.
PyObject* model_list(PyObject* model, int kind);

// Appends a handle for an element just added to the library and returns it: its index is the
// list length in immediate update mode (UpdateMode 1), else -1 (pending).
py::Ref model_append_handle(PyObject* model, int kind);

// The same for `count` elements added in one library call (addVars): the handles are appended
// to the model's list. 0, or -1 with an exception set.
int model_append_handles(PyObject* model, int kind, Py_ssize_t count);

// Model(cmodel=<capsule of handle>, env=env): the new Model owns `handle` from here on, also
// when the construction fails.
py::Ref model_adopt(VLMmodel* handle, PyObject* env);

// The library column of `var` for a term of an expression given to `model`: -1 with
// VelmorError(ERROR_NOT_IN_MODEL, "Variable not in model") when `var` is not a variable of
// this model that exists (or, in immediate update mode, is being added).
int model_var_column(PyObject* model, PyObject* var);

// model.update(); 0, or -1 with an exception set.
int model_update(PyObject* model);

// Runs `call(VLMmodel*) -> int`, a library call that may run long (a solve, an IIS), with the
// interpreter lock released and the model marked as solving, so that other threads may run
// and a second solve of it is refused. With `sigint`, Ctrl-C stops it. 0, or -1 with
// VelmorError set from the library's code.
template <class Call>
int model_run_released(PyObject* self, bool sigint, Call&& call) {
  ModelObject* m = as_model(self);
  VLMmodel* h = m->handle;
  int rc = sigint ? VLMsetsignal(h) : 0;
  if (rc == 0) {
    m->solving = 1;
    {
      py::WithoutGil released;
      rc = call(h);
    }
    m->solving = 0;
  }
  if (rc != 0) {
    raise_velmor(rc, self);
    return -1;
  }
  return 0;
}

// Objective and solving (model_solve.cpp).
PyObject* model_optimize(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);
PyObject* model_terminate(PyObject* self, PyObject*);
PyObject* model_setobjective(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_setobjectiven(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_getobjective(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_setpwlobj(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_getpwlobj(PyObject* self, PyObject* var);
PyObject* model_tune(PyObject* self, PyObject*);
PyObject* model_gettuneresult(PyObject* self, PyObject* arg);
PyObject* model_optimizebatch(PyObject* self, PyObject*);
extern const char model_tune_doc[];
extern const char model_gettuneresult_doc[];
extern const char model_optimizebatch_doc[];
extern const char model_optimize_doc[];
extern const char model_terminate_doc[];
extern const char model_setobjective_doc[];
extern const char model_setobjectiven_doc[];
extern const char model_getobjective_doc[];
extern const char model_setpwlobj_doc[];
extern const char model_getpwlobj_doc[];
