// VelmorError: the module's exception, with the library's error code in `errno` and the text in
// `message` (a property over `_message`).
//
// The class is made with PyErr_NewExceptionWithDoc from a dict of C functions wrapped as
// instance methods, so it is an ordinary exception class (picklable by args, subclassable).
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "core/services.h"

namespace {

PyObject* g_velmor_error = nullptr;  // owned by the module for the process lifetime

const char velmorerror_doc[] =
    "VelmorError(errno, argument)\n--\n\n"
    "The exception raised for every failure reported by the Velmor library, and for the\n"
    "module's own checks.\n\n"
    "errno: the integer error code (one of the VLM.ERROR_* values, or a code chosen by the\n"
    "       module such as -1 for module-level failures).\n"
    "message: the text describing the failure. str(error) returns it.\n\n"
    "The argument is either the message itself or the object whose library call failed: an\n"
    "Env (its last error message is used), a Model or one of its elements (the model's last\n"
    "error message is used).";

// The library's last error text for the object a failed call used; an empty Ref with no error
// set when the object carries no library handle.
py::Ref message_of(PyObject* argument, int code) {
  if (PyUnicode_Check(argument)) return py::Ref::borrow(argument);
  const ModuleServices& s = services();
  if (s.env_check != nullptr && s.env_check(argument)) {
    VLMenv* cenv = s.env_handle(argument);
    if (cenv == nullptr) return py::str("Failed to create environment");
    return py::str(VLMgeterrormsg(cenv));
  }
  if (s.batch_env_of != nullptr) {
    bool is_batch = false;
    VLMenv* benv = s.batch_env_of(argument, &is_batch);
    if (is_batch) return py::str(benv == nullptr ? "Failed to create batch request" : VLMgeterrormsg(benv));
  }
  bool is_model_object = false;
  if (s.model_handle_of == nullptr) return py::Ref();
  VLMmodel* model = s.model_handle_of(argument, &is_model_object);
  if (is_model_object) return py::str(model_error_text(model, code));
  return py::Ref();
}

}  // namespace

const char* model_error_text(VLMmodel* model, int code) {
  if (model == nullptr) return "Model has been disposed";
  if (code == VLM_ERROR_OPTIMIZATION_IN_PROGRESS) return "Must stop optimization to query results";
  return VLMgetmerrormsg(model);
}

namespace {

PyObject* velmorerror_init(PyObject*, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  if (kwnames != nullptr && PyTuple_GET_SIZE(kwnames) != 0) {
    return py::raise(PyExc_TypeError, "VelmorError() takes no keyword arguments");
  }
  if (nargs != 3) {
    return py::raise(PyExc_TypeError, "VelmorError() takes exactly 2 arguments (errno, argument)");
  }
  PyObject* self = args[0];
  PyObject* err = args[1];
  PyObject* argument = args[2];
  if (PyObject_SetAttrString(self, "errno", err) < 0) return nullptr;
  int code = PyLong_Check(err) ? PyLong_AsLong(err) : 0;
  if (code == -1 && PyErr_Occurred()) PyErr_Clear();  // a huge errno is no library code
  py::Ref message = message_of(argument, code);
  if (PyErr_Occurred()) return nullptr;
  if (message) {
    if (PyObject_SetAttrString(self, "_message", message.get()) < 0) return nullptr;
  }
  py::Ref call_args = py::Ref::steal(PyTuple_Pack(2, err, message ? message.get() : argument));
  if (!call_args) return nullptr;
  if (PyObject_SetAttrString(self, "args", call_args.get()) < 0) return nullptr;
  return py::none();
}

PyObject* velmorerror_get_message(PyObject*, PyObject* self) {
  PyObject* dict = PyObject_GenericGetDict(self, nullptr);
  if (dict == nullptr) return nullptr;
  py::Ref owned = py::Ref::steal(dict);
  PyObject* m = PyDict_GetItemString(dict, "_message");
  if (m == nullptr) {
    return py::raise(PyExc_AttributeError, "'VelmorError' object has no attribute 'message'");
  }
  return py::new_ref(m);
}

PyObject* velmorerror_set_message(PyObject*, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 2) return py::raise(PyExc_TypeError, "_set_message() takes exactly one argument");
  if (PyObject_SetAttrString(args[0], "_message", args[1]) < 0) return nullptr;
  return py::none();
}

PyObject* velmorerror_str(PyObject*, PyObject* self) {
  py::Ref m = py::Ref::steal(velmorerror_get_message(nullptr, self));
  if (!m) {
    PyErr_Clear();
    return PyUnicode_FromString("");
  }
  return PyObject_Str(m.get());
}

PyMethodDef velmorerror_init_def = {"__init__", (PyCFunction)(void (*)(void))py::guarded<&velmorerror_init>,
                                    METH_FASTCALL | METH_KEYWORDS,
                                    "Sets errno and the message from the text or the object."};
PyMethodDef velmorerror_get_message_def = {"_get_message", py::guarded<&velmorerror_get_message>,
                                           METH_O, "Returns the error message."};
PyMethodDef velmorerror_set_message_def = {
    "_set_message", (PyCFunction)(void (*)(void))py::guarded<&velmorerror_set_message>,
    METH_FASTCALL, "Replaces the error message."};
PyMethodDef velmorerror_str_def = {"__str__", py::guarded<&velmorerror_str>, METH_O,
                                   "Returns the error message."};

// Adds `def` to `dict` as a method that binds to instances.
int add_method(PyObject* dict, PyMethodDef* def) {
  py::Ref fn = py::Ref::steal(PyCFunction_New(def, nullptr));
  if (!fn) return -1;
  py::Ref meth = py::Ref::steal(PyInstanceMethod_New(fn.get()));
  if (!meth) return -1;
  return PyDict_SetItemString(dict, def->ml_name, meth.get());
}

}  // namespace

PyObject* velmor_error_type() { return g_velmor_error; }

int register_exception(PyObject* m) {
  py::Ref dict = py::Ref::steal(PyDict_New());
  if (!dict) return -1;
  for (PyMethodDef* def : {&velmorerror_init_def, &velmorerror_get_message_def,
                           &velmorerror_set_message_def, &velmorerror_str_def}) {
    if (add_method(dict.get(), def) < 0) return -1;
  }
  PyObject* getter = PyDict_GetItemString(dict.get(), "_get_message");
  PyObject* setter = PyDict_GetItemString(dict.get(), "_set_message");
  py::Ref prop = py::Ref::steal(PyObject_CallFunction(
      reinterpret_cast<PyObject*>(&PyProperty_Type), "OOOs", getter, setter, Py_None,
      "The error message (str(error) returns it)."));
  if (!prop || PyDict_SetItemString(dict.get(), "message", prop.get()) < 0) return -1;
  g_velmor_error = PyErr_NewExceptionWithDoc("velmorpy.VelmorError", velmorerror_doc,
                                             PyExc_Exception, dict.get());
  if (g_velmor_error == nullptr) return -1;
  Py_INCREF(g_velmor_error);
  return PyModule_AddObject(m, "VelmorError", g_velmor_error) < 0 ? -1 : 0;
}

PyObject* raise_velmor_msg(int code, const char* message) {
  py::Ref text = py::str(message);
  if (!text) return nullptr;
  py::Ref exc = py::Ref::steal(PyObject_CallFunction(g_velmor_error, "iO", code, text.get()));
  if (exc) PyErr_SetObject(g_velmor_error, exc.get());
  return nullptr;
}

PyObject* raise_velmor(int code, PyObject* obj) {
  py::Ref exc = py::Ref::steal(PyObject_CallFunction(g_velmor_error, "iO", code, obj));
  if (exc) PyErr_SetObject(g_velmor_error, exc.get());
  return nullptr;
}
