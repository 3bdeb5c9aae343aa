// ParamClass (attribute-style access to an environment's parameters) and the module-level
// parameter functions, which act on the default environment.
#include <memory>
#include <string>

#include "env/env.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "core/velmor.h"

namespace {

struct ParamObject {
  PyObject_HEAD
  PyObject* dict;  // holds _ParamClass__env and any other private names
};

extern PyTypeObject ParamType;

const char kEnvKey[] = "_ParamClass__env";

PyObject* param_env(PyObject* self) {
  PyObject* dict = reinterpret_cast<ParamObject*>(self)->dict;
  PyObject* env = dict ? PyDict_GetItemString(dict, kEnvKey) : nullptr;
  if (env == nullptr) PyErr_SetString(PyExc_AttributeError, "ParamClass has no environment");
  return env;
}

int param_init(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"env", nullptr};
  PyObject* env = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O:ParamClass", const_cast<char**>(kwlist), &env)) return -1;
  ParamObject* p = reinterpret_cast<ParamObject*>(self);
  if (p->dict == nullptr) {
    p->dict = PyDict_New();
    if (p->dict == nullptr) return -1;
  }
  return PyDict_SetItemString(p->dict, kEnvKey, env);
}

PyObject* param_getattro(PyObject* self, PyObject* name) {
  PyObject* found = PyObject_GenericGetAttr(self, name);
  if (found != nullptr || !PyErr_ExceptionMatches(PyExc_AttributeError)) return found;
  PyErr_Clear();
  PyObject* env = param_env(self);
  if (env == nullptr) return nullptr;
  py::Ref info = py::Ref::steal(PyObject_CallMethod(env, "_getParamInfo", "O", name));
  if (!info) {
    if (!PyErr_ExceptionMatches(velmor_error_type())) return nullptr;
    PyErr_Clear();
    return PyErr_Format(PyExc_AttributeError, "No parameter named '%U'", name);
  }
  return py::new_ref(PyTuple_GET_ITEM(info.get(), 2));
}

int param_setattro(PyObject* self, PyObject* name, PyObject* value) {
  const char* s = py::utf8(name);
  if (s == nullptr) return -1;
  if (s[0] == '_') return PyObject_GenericSetAttr(self, name, value);
  if (value == nullptr) {
    PyErr_Format(PyExc_AttributeError, "Parameter '%U' cannot be deleted", name);
    return -1;
  }
  PyObject* env = param_env(self);
  if (env == nullptr) return -1;
  py::Ref r = py::Ref::steal(PyObject_CallMethod(env, "setParam", "OO", name, value));
  return r ? 0 : -1;
}

PyObject* param_dir(PyObject* self, PyObject*) {
  PyObject* env = param_env(self);
  if (env == nullptr) return nullptr;
  py::Ref names = py::Ref::steal(PyObject_CallMethod(env, "_paramlist", "s", "*"));
  if (!names) return nullptr;
  PyObject* dict = reinterpret_cast<ParamObject*>(self)->dict;
  if (dict != nullptr) {
    PyObject *key, *val;
    Py_ssize_t pos = 0;
    while (PyDict_Next(dict, &pos, &key, &val)) {
      if (PyList_Append(names.get(), key) < 0) return nullptr;
    }
  }
  return names.release();
}

PyObject* param_getchangelist(PyObject* self, PyObject*) {
  PyObject* env = param_env(self);
  if (env == nullptr) return nullptr;
  return PyObject_CallMethod(env, "_getChangeList", nullptr);
}

PyObject* param_repr(PyObject* self) {
  py::Ref changes = py::Ref::steal(param_getchangelist(self, nullptr));
  if (!changes) return nullptr;
  return PyUnicode_FromFormat("<velmorpy.ParamClass: %U>", changes.get());
}

int param_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(reinterpret_cast<ParamObject*>(self)->dict);
  Py_VISIT(Py_TYPE(self));
  return 0;
}

int param_clear(PyObject* self) {
  Py_CLEAR(reinterpret_cast<ParamObject*>(self)->dict);
  return 0;
}

void param_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  param_clear(self);
  Py_TYPE(self)->tp_free(self);
}

PyMethodDef param_methods[] = {
    {"__dir__", py::guarded<&param_dir>, METH_NOARGS, "Lists every parameter name."},
    {"_getChangeList", py::guarded<&param_getchangelist>, METH_NOARGS,
     "_getChangeList($self)\n--\n\nReturns the text listing the parameters that differ from their\n"
     "defaults."},
    {nullptr, nullptr, 0, nullptr}};

PyTypeObject ParamType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.ParamClass"};

// ---- module-level functions on the default environment ---------------------------------------

PyObject* default_env_call(const char* method, PyObject* const* args, Py_ssize_t nargs) {
  PyObject* env = velmor_default_env(true);
  if (env == nullptr) return nullptr;
  return env_call_method(env, method, args, nargs);
}

PyObject* mod_setparam(PyObject*, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 2) return py::raise(PyExc_TypeError, "setParam(paramname, newvalue) takes 2 arguments");
  return default_env_call("setParam", args, nargs);
}

PyObject* mod_getparaminfo(PyObject*, PyObject* name) { return default_env_call("_getParamInfo", &name, 1); }
PyObject* mod_fixtuneparam(PyObject*, PyObject* name) { return default_env_call("fixTuneParam", &name, 1); }
PyObject* mod_resetparams(PyObject*, PyObject*) { return default_env_call("resetParams", nullptr, 0); }
PyObject* mod_readparams(PyObject*, PyObject* f) { return default_env_call("readParams", &f, 1); }
PyObject* mod_writeparams(PyObject*, PyObject* f) { return default_env_call("writeParams", &f, 1); }

// Prints the help text of each parameter matching `paramname` (wildcards allowed); without an
// argument, lists the parameter names.
PyObject* mod_paramhelp(PyObject*, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs > 1) return py::raise(PyExc_TypeError, "paramHelp() takes at most 1 argument");
  VLMenv* scratch = nullptr;
  if (VLMemptyenv(&scratch) != 0) return raise_velmor_msg(VLM_ERROR_OUT_OF_MEMORY, "Out of memory");
  std::unique_ptr<VLMenv, void (*)(VLMenv*)> holder(scratch, VLMfreeenv);
  std::string out;
  if (nargs == 0 || args[0] == Py_None) {
    out = "Velmor parameters (use paramHelp(\"Name\") for details; '*' and '?' are wildcards):\n";
    int n = VLMgetnumparams(scratch);
    for (int i = 0; i < n; ++i) {
      char* name = nullptr;
      if (VLMgetparamname(scratch, i, &name) == 0) out += std::string("  ") + name + "\n";
    }
  } else {
    PyObject* env = velmor_default_env(true);
    if (env == nullptr) return nullptr;
    py::Ref names = py::Ref::steal(env_call_method(env, "_paramlist", args, 1));
    if (!names) return nullptr;
    Py_ssize_t n = PyList_GET_SIZE(names.get());
    if (n == 0) {
      py::Ref text = py::Ref::steal(PyObject_Str(args[0]));
      if (!text) return nullptr;
      out = std::string("No parameters matching '") + PyUnicode_AsUTF8(text.get()) + "' found\n";
    }
    for (Py_ssize_t i = 0; i < n; ++i) {
      const char* help = nullptr;
      int rc = VLMgetparamhelp(scratch, PyUnicode_AsUTF8(PyList_GET_ITEM(names.get(), i)), &help);
      if (rc != 0) return raise_velmor_msg(rc, VLMgeterrormsg(scratch));
      if (i > 0) out += "\n";
      out += help;
    }
  }
  PyObject* stdout_ = PySys_GetObject("stdout");
  if (stdout_ == nullptr || stdout_ == Py_None) return py::none();
  py::Ref r = py::Ref::steal(PyObject_CallMethod(stdout_, "write", "s", out.c_str()));
  if (!r) return nullptr;
  return py::none();
}

PyMethodDef module_functions[] = {
    {"setParam", (PyCFunction)(void (*)(void))py::guarded<&mod_setparam>, METH_FASTCALL,
     "setParam(paramname, newvalue)\n--\n\nSets a parameter of the default environment (and of the\n"
     "live models). The name ignores case and may hold wildcards; 'default' restores the\n"
     "default.\n\nExample: setParam(\"TimeLimit\", 100)"},
    {"getParamInfo", py::guarded<&mod_getparaminfo>, METH_O,
     "getParamInfo(paramname)\n--\n\nReturns (name, type, value, minimum, maximum, default) of a\n"
     "parameter of the default environment."},
    {"fixTuneParam", py::guarded<&mod_fixtuneparam>, METH_O,
     "fixTuneParam(paramname)\n--\n\nKeeps the tuner from changing a parameter of the default\n"
     "environment."},
    {"resetParams", py::guarded<&mod_resetparams>, METH_NOARGS,
     "resetParams()\n--\n\nRestores every parameter of the default environment to its default."},
    {"readParams", py::guarded<&mod_readparams>, METH_O,
     "readParams(filename)\n--\n\nReads parameter settings into the default environment.\n\n"
     "Example: readParams(\"settings.prm\")"},
    {"writeParams", py::guarded<&mod_writeparams>, METH_O,
     "writeParams(filename)\n--\n\nWrites the non-default settings of the default environment.\n\n"
     "Example: writeParams(\"settings.prm\")"},
    {"paramHelp", (PyCFunction)(void (*)(void))py::guarded<&mod_paramhelp>, METH_FASTCALL,
     "paramHelp(paramname=None)\n--\n\nPrints the help text of each parameter matching paramname\n"
     "('*' and '?' are wildcards, case is ignored). Without an argument, lists all parameter\n"
     "names.\n\nExample: paramHelp(\"MIPGap\")"},
    {nullptr, nullptr, 0, nullptr}};

}  // namespace

int register_param(PyObject* m) {
  ParamType.tp_basicsize = sizeof(ParamObject);
  ParamType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC;
  ParamType.tp_doc =
      "ParamClass(env)\n--\n\nAttribute-style access to the parameters of an environment:\n"
      "params.TimeLimit reads a value, params.TimeLimit = 60 sets it (with the rules of\n"
      "Env.setParam). Reading an unknown name raises AttributeError.";
  ParamType.tp_new = PyType_GenericNew;
  ParamType.tp_init = py::guarded<&param_init>;
  ParamType.tp_getattro = py::guarded<&param_getattro>;
  ParamType.tp_setattro = py::guarded<&param_setattro>;
  ParamType.tp_repr = py::guarded<&param_repr>;
  ParamType.tp_traverse = param_traverse;
  ParamType.tp_clear = param_clear;
  ParamType.tp_dealloc = param_dealloc;
  ParamType.tp_methods = param_methods;
  ParamType.tp_dictoffset = offsetof(ParamObject, dict);
  if (PyType_Ready(&ParamType) < 0) return -1;
  Py_INCREF(&ParamType);
  if (PyModule_AddObject(m, "ParamClass", reinterpret_cast<PyObject*>(&ParamType)) < 0) return -1;
  return PyModule_AddFunctions(m, module_functions);
}
