// The optimiser environments of Model (see model_envs.h): one library call each; a NULL
// handle or a non-zero code becomes VelmorError with the model's last error text.
#include "model/model_envs.h"

#include <climits>

#include "core/py_error.h"
#include "env/env.h"
#include "model/model.h"

namespace {

// An Env over `cenv`, of the same type as the model's own environment object.
PyObject* wrap_env(PyObject* self, VLMenv* cenv) {
  py::Ref capsule = wrap_env_handle(cenv);
  if (!capsule) return nullptr;
  py::Ref noargs = py::Ref::steal(PyTuple_New(0));
  py::Ref kw = py::Ref::steal(Py_BuildValue("{sO}", "cenv", capsule.get()));
  if (!noargs || !kw) return nullptr;
  PyObject* type = reinterpret_cast<PyObject*>(Py_TYPE(as_model(self)->env));
  return PyObject_Call(type, noargs.get(), kw.get());
}

template <VLMenv* (*Get)(VLMmodel*, int)>
PyObject* get_env(PyObject* self, PyObject* arg) {
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  const long num = PyLong_AsLong(arg);
  if (num == -1 && PyErr_Occurred()) return nullptr;
  if (num < INT_MIN || num > INT_MAX) {
    PyErr_SetString(PyExc_OverflowError, "environment index out of range");
    return nullptr;
  }
  VLMenv* cenv = Get(h, static_cast<int>(num));
  // The index is the only argument the library can refuse here.
  if (cenv == nullptr) return raise_velmor(VLM_ERROR_INDEX_OUT_OF_RANGE, self);
  return wrap_env(self, cenv);
}

template <int (*Discard)(VLMmodel*)>
PyObject* discard_envs(PyObject* self, PyObject*) {
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  const int rc = Discard(h);
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

const char getconcurrentenv_doc[] =
    "getConcurrentEnv($self, num)\n--\n\n"
    "Returns an Env holding the parameters of the num-th run of a concurrent solve of this model\n"
    "(0 <= num < 64), made as a copy of the model's environment on first request, together with\n"
    "those of all lower runs. Once concurrent environments exist, optimize() runs the model\n"
    "under each environment's settings and keeps the run that finishes first. Raises VelmorError\n"
    "for an index out of range.";

const char discardconcurrentenvs_doc[] =
    "discardConcurrentEnvs($self)\n--\n\n"
    "Discards the concurrent environments of this model; later solves are ordinary ones.";

const char getmultiobjenv_doc[] =
    "getMultiobjEnv($self, num)\n--\n\n"
    "Returns an Env holding the parameters used for the num-th priority level (0 the highest)\n"
    "of a multi-objective solve of this model (0 <= num < 1024), made as a copy of the model's\n"
    "environment on first request. Levels without an environment use the model's parameters.\n"
    "Raises VelmorError for an index out of range.";

const char discardmultiobjenvs_doc[] =
    "discardMultiobjEnvs($self)\n--\n\n"
    "Discards the multi-objective environments of this model; every level then uses the\n"
    "model's parameters.";

}  // namespace

PyMethodDef model_envs_methods[] = {
    {"getConcurrentEnv", py::guarded<&get_env<VLMgetconcurrentenv>>, METH_O, getconcurrentenv_doc},
    {"discardConcurrentEnvs", py::guarded<&discard_envs<VLMdiscardconcurrentenvs>>, METH_NOARGS,
     discardconcurrentenvs_doc},
    {"getMultiobjEnv", py::guarded<&get_env<VLMgetmultiobjenv>>, METH_O, getmultiobjenv_doc},
    {"discardMultiobjEnvs", py::guarded<&discard_envs<VLMdiscardmultiobjenvs>>, METH_NOARGS,
     discardmultiobjenvs_doc},
    {nullptr, nullptr, 0, nullptr},
};
