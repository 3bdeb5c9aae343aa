// Derived models: linearize() and singleScenarioModel(). Each makes one library call that
// returns a new library model and wraps it as a Model of its own over the user's environment.
// Neither runs update(): both see the model as of its last update.
#include "model/model_derive.h"

#include "model/model.h"
#include "core/py_error.h"

namespace {

// Wraps a new library model, or raises VelmorError with the source model's error text.
PyObject* adopt_or_raise(PyObject* self, VLMmodel* derived) {
  if (derived == nullptr) return raise_velmor(VLM_ERROR_FAILED_TO_CREATE_MODEL, self);
  return model_adopt(derived, as_model(self)->uenv).release();
}

PyObject* model_linearize(PyObject* self, PyObject*) {
  if (model_handle(self) == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  return adopt_or_raise(self, VLMlinearizemodel(model_handle(self)));
}

PyObject* model_singlescenariomodel(PyObject* self, PyObject*) {
  if (model_handle(self) == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  return adopt_or_raise(self, VLMsinglescenariomodel(model_handle(self)));
}

}  // namespace

PyMethodDef model_derive_methods[] = {
    {"linearize", py::guarded<&model_linearize>, METH_NOARGS,
     "linearize($self)\n--\n\n"
     "Returns a new Model in which every SOS constraint, general constraint and piecewise-\n"
     "linear objective term is replaced by the linear constraints and integer variables the\n"
     "solver uses for it (auxiliary variables are named _aux0, _aux1, ..., auxiliary\n"
     "constraints _rf0, _rf1, ...). The model's own variables and constraints come first,\n"
     "with their names. Uses the model as of its last update(). Raises VelmorError when a\n"
     "construct cannot be linearized (for example an indicator whose variable has no bound),\n"
     "with the same message optimize() would give.\n\n"
     "Example:\n"
     "    lin = m.linearize()\n"
     "    lin.write('linearized.lp')"},
    {"singleScenarioModel", py::guarded<&model_singlescenariomodel>, METH_NOARGS,
     "singleScenarioModel($self)\n--\n\n"
     "Returns a new Model: this model with the changes of the scenario selected by the\n"
     "ScenarioNumber parameter applied (bounds, objective coefficients, right-hand sides) and\n"
     "no scenarios. Uses the model as of its last update(). Raises VelmorError when the\n"
     "selected scenario does not exist.\n\n"
     "Example:\n"
     "    m.Params.ScenarioNumber = 1\n"
     "    s1 = m.singleScenarioModel()"},
    {nullptr, nullptr, 0, nullptr},
};
