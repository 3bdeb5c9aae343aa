// The error raisers that the Model's building methods share (model_build_util.h).
#include "model/model_build_util.h"

#include <string>

#include "elements/handle.h"
#include "core/py_error.h"

PyObject* invalid(const char* message) { return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message); }
PyObject* invalid(const std::string& message) { return invalid(message.c_str()); }

PyObject* not_in_model(int kind) {
  std::string msg = std::string(handle_element_word(kind)) + " not in model";
  return raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, msg.c_str());
}

PyObject* unsupported(PyObject* o, const char* what) {
  py::Ref t = py::Ref::steal(PyObject_Str(reinterpret_cast<PyObject*>(Py_TYPE(o))));
  if (!t) return nullptr;
  const char* s = PyUnicode_AsUTF8(t.get());
  if (s == nullptr) return nullptr;
  return invalid(std::string("Unsupported type (") + s + ") for " + what);
}
