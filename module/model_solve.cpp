// Model.optimize and Model.terminate: the solve runs in the library with the interpreter lock
// released, so other Python threads (one calling terminate(), say) go on meanwhile.
#include <cstring>

#include "model.h"
#include "py_error.h"

namespace {

// Releases the interpreter lock for its lifetime.
class WithoutGil {
 public:
  WithoutGil() : state_(PyEval_SaveThread()) {}
  ~WithoutGil() { PyEval_RestoreThread(state_); }
  WithoutGil(const WithoutGil&) = delete;
  WithoutGil& operator=(const WithoutGil&) = delete;

 private:
  PyThreadState* state_;
};

}  // namespace

const char model_optimize_doc[] =
    "optimize(callback=None)\n\n"
    "Applies pending changes (update()) and solves the model. The outcome is the Status\n"
    "attribute (VLM.OPTIMAL, VLM.INFEASIBLE, VLM.TIME_LIMIT, ...); when a solution was found,\n"
    "ObjVal, X, Slack and, for continuous models, Pi and RC can be read. Other Python threads\n"
    "keep running during the solve; Ctrl-C stops it with status VLM.INTERRUPTED.\n\n"
    "callback: a plain Python function cb(model, where) called during the solve.\n\n"
    "Example:\n"
    "    m.optimize()\n"
    "    if m.Status == VLM.OPTIMAL:\n"
    "        print(m.ObjVal)";

const char model_terminate_doc[] =
    "terminate()\n\n"
    "Asks a running optimize() of this model to stop as soon as it can (status\n"
    "VLM.INTERRUPTED). Safe to call from another thread or from a callback.";

PyObject* model_optimize(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  PyObject* callback = Py_None;
  if (nargs > 1) return py::raise(PyExc_TypeError, "optimize() takes at most 1 argument");
  if (nargs == 1) callback = args[0];
  for (Py_ssize_t k = 0; kwnames && k < PyTuple_GET_SIZE(kwnames); ++k) {
    const char* kw = PyUnicode_AsUTF8(PyTuple_GET_ITEM(kwnames, k));
    if (kw == nullptr) return nullptr;
    if (std::strcmp(kw, "callback") != 0 || nargs == 1) {
      return PyErr_Format(PyExc_TypeError, "optimize() got an unexpected keyword argument '%s'", kw);
    }
    callback = args[nargs + k];
  }
  ModelObject* m = as_model(self);
  if (m->handle == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  if (m->solving) {
    return raise_velmor_msg(VLM_ERROR_OPTIMIZATION_IN_PROGRESS, "The model is already being optimized");
  }
  if (model_update(self) < 0) return nullptr;
  if (callback != Py_None) {
    if (!PyFunction_Check(callback)) {
      return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Callback argument must be a function");
    }
    // TODO(#7): the callback protocol (where codes, cbGet..., lazy constraints).
    return raise_velmor_msg(VLM_ERROR_NOT_SUPPORTED, "Callbacks are not supported yet");
  }
  Py_CLEAR(m->callback);
  VLMmodel* h = m->handle;
  int rc = VLMsetsignal(h);
  if (rc != 0) return raise_velmor(rc, self);
  m->solving = 1;
  {
    WithoutGil released;
    rc = VLMoptimize(h);
  }
  m->solving = 0;
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

PyObject* model_terminate(PyObject* self, PyObject*) {
  VLMmodel* h = model_handle(self);
  if (h != nullptr) VLMterminate(h);
  return py::none();
}
