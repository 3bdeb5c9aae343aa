// Env: owns one library environment (parameters, log, licence context) and implements the
// parameter methods: name resolution with wildcards, typed setting, parameter files.
//
// Invariant: `cenv` is nullptr exactly when the environment was closed or never created; while
// `empty` is true the environment exists but has not been started.
#include "env/env.h"

#include <cctype>
#include <cmath>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "core/services.h"
#include "core/velmor.h"

extern PyTypeObject EnvType;

namespace {

const char kCapsuleName[] = "velmorpy.env";

// ---- parameter names -----------------------------------------------------------------------

// Lower-case name -> the library's spelling, built once from the library's walk.
const std::unordered_map<std::string, std::string>& canonical_names() {
  static const std::unordered_map<std::string, std::string> names = [] {
    std::unordered_map<std::string, std::string> m;
    int n = VLMgetnumparams(nullptr);
    for (int i = 0; i < n; ++i) {
      char* name = nullptr;
      if (VLMgetparamname(nullptr, i, &name) != 0) continue;
      std::string low(name);
      for (char& c : low) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      m.emplace(low, name);
    }
    return m;
  }();
  return names;
}

py::Ref canonical_name(const char* name) {
  std::string low(name);
  for (char& c : low) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  auto it = canonical_names().find(low);
  return py::str(it == canonical_names().end() ? std::string(name) : it->second);
}

EnvObject* as_env(PyObject* o) { return reinterpret_cast<EnvObject*>(o); }

PyObject* invalid_env() { return raise_velmor_msg(-1, "Invalid Environment"); }

// Writes a line through the environment's log (started) or standard output (empty env with
// OutputFlag on).
int env_message(PyObject* self, const std::string& msg) {
  EnvObject* e = as_env(self);
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return 0;
  if (!e->empty) {
    std::string line = msg + "\n";
    int rc = VLMmsg(cenv, line.c_str());
    if (rc != 0) {
      raise_velmor(rc, self);
      return -1;
    }
    return 0;
  }
  int flag = 1;
  if (VLMgetintparam(cenv, "OutputFlag", &flag) != 0 || flag == 0) return 0;
  PyObject* out = PySys_GetObject("stdout");  // borrowed
  if (out == nullptr || out == Py_None) return 0;
  std::string line = msg + "\n";
  py::Ref r = py::Ref::steal(PyObject_CallMethod(out, "write", "s", line.c_str()));
  return r ? 0 : -1;
}

// ---- the log callback ------------------------------------------------------------------------

// Receives every log line of the environment while OutputFlag is 1, possibly on a solving
// thread: writes it to sys.stdout when LogToConsole is 1, and always to the module's logging
// logger, so that LogToConsole=0 quiets the console only. Never raises.
void log_callback_stub(const char* msg, int to_console, void*) {
  PyGILState_STATE gil = PyGILState_Ensure();
  PyObject *type, *value, *tb;
  PyErr_Fetch(&type, &value, &tb);
  py::Ref text = py::Ref::steal(PyUnicode_DecodeUTF8(msg, static_cast<Py_ssize_t>(std::strlen(msg)), "replace"));
  if (text) {
    PyObject* out = PySys_GetObject("stdout");
    if (to_console && out != nullptr && out != Py_None) {
      py::Ref r = py::Ref::steal(PyObject_CallMethod(out, "write", "O", text.get()));
      if (r) r = py::Ref::steal(PyObject_CallMethod(out, "flush", nullptr));
      if (!r) PyErr_WriteUnraisable(out);
    }
    static PyObject* logger = nullptr;  // kept for the process lifetime
    if (logger == nullptr) {
      py::Ref logging = py::Ref::steal(PyImport_ImportModule("logging"));
      if (logging) logger = PyObject_CallMethod(logging.get(), "getLogger", "s", "velmorpy");
    }
    if (logger != nullptr) {
      std::string line(msg);
      if (!line.empty() && line.back() == '\n') line.pop_back();
      py::Ref r = py::Ref::steal(PyObject_CallMethod(logger, "info", "s", line.c_str()));
      if (!r) PyErr_WriteUnraisable(logger);
    } else {
      PyErr_WriteUnraisable(Py_None);
    }
  } else {
    PyErr_Clear();
  }
  PyErr_Restore(type, value, tb);
  PyGILState_Release(gil);
}

// ---- construction and lifecycle --------------------------------------------------------------

PyObject* env_new(PyTypeObject* type, PyObject*, PyObject*) {
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return nullptr;
  EnvObject* e = as_env(self);
  e->cenv = nullptr;
  e->is_default = false;
  e->user = true;
  e->modcnt = 0;
  e->empty = false;
  return self;
}

int env_init(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"logfilename", "empty", "params", "cenv", "isDefault", nullptr};
  const char* logfilename = "";
  int empty = 0, is_default = 0;
  PyObject* params = Py_None;
  PyObject* cenv = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|spOOp:Env", const_cast<char**>(kwlist),
                                   &logfilename, &empty, &params, &cenv, &is_default)) {
    return -1;
  }
  EnvObject* e = as_env(self);
  if (e->cenv != nullptr) {
    PyErr_SetString(PyExc_RuntimeError, "Env.__init__ called twice");
    return -1;
  }
  e->is_default = false;
  e->user = true;
  e->modcnt = 0;
  e->empty = false;
  if (cenv != Py_None) {
    if (!PyCapsule_IsValid(cenv, kCapsuleName)) {
      PyErr_SetString(PyExc_TypeError, "cenv must be an environment handle");
      return -1;
    }
    py::assign(e->cenv, cenv);
    e->user = false;
    return 0;
  }
  e->empty = true;
  VLMenv* handle = nullptr;
  int rc = VLMemptyenvadvinternal(&handle, 0, VLM_VERSION_MAJOR, VLM_VERSION_MINOR,
                                  VLM_VERSION_TECHNICAL, nullptr, nullptr);
  if (rc != 0) {
    raise_velmor(rc, self);
    return -1;
  }
  py::Ref capsule = wrap_env_handle(handle);
  if (!capsule) {
    VLMfreeenv(handle);
    return -1;
  }
  e->cenv = capsule.release();
  rc = VLMsetstrparam(handle, "LogFile", logfilename);
  if (rc == 0) rc = VLMsetlogroutefuncenv(handle, log_callback_stub, nullptr);
  if (rc != 0) {
    raise_velmor(rc, self);
    return -1;
  }
  if (params != Py_None) {
    py::Ref items = py::Ref::steal(PyMapping_Items(params));
    if (!items) return -1;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(items.get()); ++i) {
      PyObject* kv = PyList_GET_ITEM(items.get(), i);
      PyObject* call_args[] = {PyTuple_GET_ITEM(kv, 0), PyTuple_GET_ITEM(kv, 1)};
      py::Ref r = py::Ref::steal(env_call_method(self, "setParam", call_args, 2));
      if (!r) return -1;
    }
  }
  if (!empty) {
    e->empty = false;
    rc = VLMstartenv(handle);
    if (rc != 0) {
      raise_velmor(rc, self);
      return -1;
    }
  }
  if (is_default) e->is_default = true;
  return 0;
}

PyObject* env_start(PyObject* self, PyObject*) {
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return invalid_env();
  EnvObject* e = as_env(self);
  e->empty = false;
  int rc = VLMstartenv(cenv);
  if (rc != 0) {
    e->empty = true;
    return raise_velmor(rc, self);
  }
  return py::new_ref(self);
}

PyObject* env_dispose(PyObject* self, PyObject*) {
  EnvObject* e = as_env(self);
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return py::none();
  if (e->user) {
    if (e->is_default && !velmor_exiting()) {
      py::Ref models = velmor_live_models();
      if (!models) return nullptr;
      for (Py_ssize_t i = 0; i < PyList_GET_SIZE(models.get()); ++i) {
        PyObject* model = PyTuple_GET_ITEM(PyList_GET_ITEM(models.get(), i), 1);
        py::Ref r = py::Ref::steal(PyObject_CallMethod(model, "close", nullptr));
        if (!r) return nullptr;
      }
      VLMmsg(cenv, "Freeing default Velmor environment\n");
    }
    VLMfreeenv(cenv);
  }
  Py_CLEAR(e->cenv);
  return py::none();
}

PyObject* env_enter(PyObject* self, PyObject*) { return py::new_ref(self); }

PyObject* env_exit(PyObject* self, PyObject* const*, Py_ssize_t) {
  py::Ref r = py::Ref::steal(env_dispose(self, nullptr));
  if (!r) return nullptr;
  return py::boolean(false);
}

void env_finalize(PyObject* self) {
  PyObject *type, *value, *tb;
  PyErr_Fetch(&type, &value, &tb);
  py::Ref r = py::Ref::steal(env_dispose(self, nullptr));
  if (!r) PyErr_WriteUnraisable(self);
  PyErr_Restore(type, value, tb);
}

int env_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(as_env(self)->dict);
  Py_VISIT(Py_TYPE(self));
  return 0;
}

int env_clear(PyObject* self) {
  Py_CLEAR(as_env(self)->dict);
  return 0;
}

void env_dealloc(PyObject* self) {
  if (PyObject_CallFinalizerFromDealloc(self) < 0) return;  // resurrected
  PyObject_GC_UnTrack(self);
  EnvObject* e = as_env(self);
  if (e->weakreflist != nullptr) PyObject_ClearWeakRefs(self);
  env_clear(self);
  Py_CLEAR(e->cenv);
  Py_TYPE(self)->tp_free(self);
}

// ---- parameters -------------------------------------------------------------------------------

// (name, type, current, min, max, default) of one parameter.
py::Ref param_info(PyObject* self, PyObject* name_obj) {
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return py::Ref::steal(invalid_env());
  const char* name = py::utf8(name_obj);
  if (name == nullptr) return py::Ref();
  int type = VLMgetparamtype(cenv, name);
  if (type < 0) {
    std::string msg = std::string("Unknown parameter ") + name;
    return py::Ref::steal(raise_velmor_msg(VLM_ERROR_UNKNOWN_PARAMETER, msg.c_str()));
  }
  py::Ref canonical = canonical_name(name);
  if (!canonical) return py::Ref();
  int rc = 0;
  if (type == VLM_INT) {
    int cur, mn, mx, def;
    rc = VLMgetintparaminfo(cenv, name, &cur, &mn, &mx, &def);
    if (rc != 0) return py::Ref::steal(raise_velmor(rc, self));
    return py::Ref::steal(Py_BuildValue("(OOiiii)", canonical.get(), &PyLong_Type, cur, mn, mx, def));
  }
  if (type == VLM_DBL) {
    double cur, mn, mx, def;
    rc = VLMgetdblparaminfo(cenv, name, &cur, &mn, &mx, &def);
    if (rc != 0) return py::Ref::steal(raise_velmor(rc, self));
    py::Ref c = py::from_dbl(cur), lo = py::from_dbl(mn), hi = py::from_dbl(mx), d = py::from_dbl(def);
    if (!c || !lo || !hi || !d) return py::Ref();
    return py::Ref::steal(PyTuple_Pack(6, canonical.get(), &PyFloat_Type, c.get(), lo.get(), hi.get(), d.get()));
  }
  int needed = 0;
  rc = VLMgetlongstrparam(cenv, name, nullptr, 0, &needed);
  if (rc != 0) return py::Ref::steal(raise_velmor(rc, self));
  std::string value(static_cast<std::size_t>(needed), '\0');
  std::string def(VLM_MAX_STRLEN, '\0');
  rc = VLMgetlongstrparam(cenv, name, value.data(), needed, nullptr);
  if (rc == 0) rc = VLMgetstrparaminfo(cenv, name, nullptr, def.data());
  if (rc != 0) return py::Ref::steal(raise_velmor(rc, self));
  value.resize(std::strlen(value.c_str()));
  def.resize(std::strlen(def.c_str()));
  py::Ref v = py::str(value), d = py::str(def);
  if (!v || !d) return py::Ref();
  return py::Ref::steal(PyTuple_Pack(6, canonical.get(), &PyUnicode_Type, v.get(), Py_None, Py_None, d.get()));
}

// The parameter names `pattern` denotes: the name itself when the library knows it, else every
// name matching it with wildcards, ignoring case.
py::Ref param_list(PyObject* self, PyObject* pattern) {
  VLMenv* cenv = env_handle(self);
  const char* name = py::utf8(pattern);
  if (name == nullptr) return py::Ref();
  py::Ref result = py::Ref::steal(PyList_New(0));
  if (!result) return py::Ref();
  if (VLMgetparamtype(cenv, name) >= 0) {
    if (PyList_Append(result.get(), pattern) < 0) return py::Ref();
    return result;
  }
  py::Ref fnmatch = py::Ref::steal(PyImport_ImportModule("fnmatch"));
  if (!fnmatch) return py::Ref();
  py::Ref upper_pattern = py::Ref::steal(PyObject_CallMethod(pattern, "upper", nullptr));
  if (!upper_pattern) return py::Ref();
  int n = VLMgetnumparams(cenv);
  for (int i = 0; i < n; ++i) {
    char* pname = nullptr;
    if (VLMgetparamname(cenv, i, &pname) != 0) continue;
    py::Ref s = py::str(pname);
    if (!s) return py::Ref();
    py::Ref upper = py::Ref::steal(PyObject_CallMethod(s.get(), "upper", nullptr));
    if (!upper) return py::Ref();
    py::Ref hit = py::Ref::steal(PyObject_CallMethod(fnmatch.get(), "fnmatch", "OO", upper.get(), upper_pattern.get()));
    if (!hit) return py::Ref();
    if (PyObject_IsTrue(hit.get()) && PyList_Append(result.get(), s.get()) < 0) return py::Ref();
  }
  return result;
}

PyObject* env_paramlist(PyObject* self, PyObject* pattern) {
  if (env_handle(self) == nullptr) return invalid_env();
  return param_list(self, pattern).release();
}

PyObject* env_getparaminfo(PyObject* self, PyObject* name) { return param_info(self, name).release(); }

// Sets one parameter from its info tuple: "default" (any case) restores the default; values
// go to the setter of the parameter's type.
PyObject* env_setone(PyObject* self, PyObject* info, PyObject* value) {
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return invalid_env();
  PyObject* name_obj = PyTuple_GET_ITEM(info, 0);
  PyObject* type = PyTuple_GET_ITEM(info, 1);
  const char* name = PyUnicode_AsUTF8(name_obj);
  if (name == nullptr) return nullptr;
  if (PyUnicode_Check(value)) {
    py::Ref upper = py::Ref::steal(PyObject_CallMethod(value, "upper", nullptr));
    if (!upper) return nullptr;
    if (PyUnicode_CompareWithASCIIString(upper.get(), "DEFAULT") == 0) value = PyTuple_GET_ITEM(info, 5);
  }
  int rc = 0;
  if (type == reinterpret_cast<PyObject*>(&PyUnicode_Type)) {
    py::Ref text = py::Ref::steal(PyObject_Str(value));
    if (!text) return nullptr;
    const char* s = PyUnicode_AsUTF8(text.get());
    if (s == nullptr) return nullptr;
    rc = VLMsetstrparam(cenv, name, s);
  } else if (PyUnicode_Check(value)) {
    const char* s = PyUnicode_AsUTF8(value);
    if (s == nullptr) return nullptr;
    rc = VLMsetparam(cenv, name, s);
  } else if (type == reinterpret_cast<PyObject*>(&PyLong_Type) && PyIndex_Check(value)) {
    int overflow = 0;
    py::Ref idx = py::Ref::steal(PyNumber_Index(value));
    if (!idx) return nullptr;
    long long v = PyLong_AsLongLongAndOverflow(idx.get(), &overflow);
    if (v == -1 && PyErr_Occurred()) return nullptr;
    if (overflow == 0 && v >= INT32_MIN && v <= INT32_MAX) {
      rc = VLMsetintparam(cenv, name, static_cast<int>(v));
    } else {
      double d = PyLong_AsDouble(idx.get());
      if (d == -1.0 && PyErr_Occurred()) {
        PyErr_Clear();
        d = overflow < 0 || v < 0 ? -HUGE_VAL : HUGE_VAL;
      }
      rc = VLMsetdblparam(cenv, name, d);
    }
  } else {
    double d = PyFloat_AsDouble(value);
    if (d == -1.0 && PyErr_Occurred()) {
      if (!PyErr_ExceptionMatches(PyExc_TypeError)) return nullptr;
      PyErr_Clear();
      std::string msg = std::string("Parameter '") + name + "' takes " +
                        (type == reinterpret_cast<PyObject*>(&PyLong_Type) ? "an integer" : "a numeric") +
                        " value, not '" + Py_TYPE(value)->tp_name + "'";
      return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, msg.c_str());
    }
    rc = VLMsetdblparam(cenv, name, py::to_lib_dbl(d));
  }
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

// Resolves a user-given name for setParam/fixTuneParam: returns the one matching name, or None
// after writing a message when nothing or several match.
py::Ref resolve_name(PyObject* self, PyObject* name) {
  const char* s = py::utf8(name);
  if (s == nullptr) return py::Ref();
  if (std::strncmp(s, "VELM_PAR_", 9) == 0) return py::Ref::borrow(name);
  py::Ref matches = param_list(self, name);
  if (!matches) return py::Ref();
  Py_ssize_t n = PyList_GET_SIZE(matches.get());
  if (n == 1) return py::Ref::borrow(PyList_GET_ITEM(matches.get(), 0));
  std::string msg;
  if (n == 0) {
    msg = std::string("No parameters matching '") + s + "' found";
  } else {
    py::Ref text = py::Ref::steal(PyObject_Str(matches.get()));
    if (!text) return py::Ref();
    msg = std::string("Matching parameters: ") + PyUnicode_AsUTF8(text.get());
  }
  if (env_message(self, msg) < 0) return py::Ref();
  return py::Ref::borrow(Py_None);
}

// Applies `fn(env)` to the environment of every live model when `self` is the default env, so
// that interactive changes reach the models already loaded.
template <class Fn>
int for_models_of_default(PyObject* self, Fn&& fn) {
  PyObject* def = velmor_default_env(false);
  if (def == nullptr) return PyErr_Occurred() ? -1 : 0;
  if (def != self) return 0;
  py::Ref models = velmor_live_models();
  if (!models) return -1;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(models.get()); ++i) {
    PyObject* model = PyTuple_GET_ITEM(PyList_GET_ITEM(models.get(), i), 1);
    py::Ref menv = py::Ref::steal(PyObject_GetAttrString(model, "_env"));
    if (!menv) return -1;
    if (!fn(menv.get())) return -1;
  }
  return 0;
}

PyObject* env_setparam(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* names[] = {"paramname", "newval"};
  PyObject* a[2] = {nullptr, nullptr};
  Py_ssize_t nkw = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
  if (nargs > 2) return py::raise(PyExc_TypeError, "setParam() takes 2 arguments");
  for (Py_ssize_t i = 0; i < nargs; ++i) a[i] = args[i];
  for (Py_ssize_t k = 0; k < nkw; ++k) {
    const char* kw = PyUnicode_AsUTF8(PyTuple_GET_ITEM(kwnames, k));
    int slot = std::strcmp(kw, names[0]) == 0 ? 0 : std::strcmp(kw, names[1]) == 0 ? 1 : -1;
    if (slot < 0 || a[slot] != nullptr) {
      return PyErr_Format(PyExc_TypeError, "setParam() got an unexpected keyword argument '%s'", kw);
    }
    a[slot] = args[nargs + k];
  }
  if (a[0] == nullptr || a[1] == nullptr) return py::raise(PyExc_TypeError, "setParam() takes 2 arguments");
  if (env_handle(self) == nullptr) return invalid_env();
  py::Ref name = resolve_name(self, a[0]);
  if (!name) return nullptr;
  if (name.get() == Py_None) return py::none();
  py::Ref info = param_info(self, name.get());
  if (!info) return nullptr;
  if (!py::Ref::steal(env_setone(self, info.get(), a[1]))) return nullptr;
  PyObject* value = a[1];
  int rc = for_models_of_default(self, [&](PyObject* menv) {
    return static_cast<bool>(py::Ref::steal(env_setone(menv, info.get(), value)));
  });
  if (rc < 0) return nullptr;
  return py::none();
}

PyObject* env_fixtuneparam(PyObject* self, PyObject* name_arg) {
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return invalid_env();
  py::Ref name = resolve_name(self, name_arg);
  if (!name) return nullptr;
  if (name.get() == Py_None) return py::none();
  py::Ref info = param_info(self, name.get());
  if (!info) return nullptr;
  const char* s = PyUnicode_AsUTF8(PyTuple_GET_ITEM(info.get(), 0));
  int rc = VLMfixtuneparam(cenv, s);
  if (rc != 0) return raise_velmor(rc, self);
  rc = for_models_of_default(self, [&](PyObject* menv) {
    VLMenv* m = env_handle(menv);
    int code = m ? VLMfixtuneparam(m, s) : 0;
    if (code != 0) raise_velmor(code, menv);
    return code == 0;
  });
  if (rc < 0) return nullptr;
  return py::none();
}

PyObject* env_resetparams(PyObject* self, PyObject*) {
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return invalid_env();
  int rc = VLMresetparams(cenv);
  if (rc != 0) return raise_velmor(rc, self);
  if (env_message(self, "Reset all parameters") < 0) return nullptr;
  return py::none();
}

PyObject* env_readparams(PyObject* self, PyObject* filename) {
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return invalid_env();
  const char* f = py::utf8(filename);
  if (f == nullptr) return nullptr;
  int rc = VLMreadparams(cenv, f);
  if (rc != 0) return raise_velmor(rc, self);
  if (env_message(self, std::string("Read parameters from file ") + f) < 0) return nullptr;
  return py::none();
}

PyObject* env_writeparams(PyObject* self, PyObject* filename) {
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return invalid_env();
  const char* f = py::utf8(filename);
  if (f == nullptr) return nullptr;
  int rc = VLMwriteparams(cenv, f);
  if (rc != 0) return raise_velmor(rc, self);
  if (env_message(self, std::string("Wrote non-default parameter settings to file ") + f) < 0) return nullptr;
  return py::none();
}

// "No parameter changes", or "Parameter changes: Name=value, ..." in the library's order.
PyObject* env_getchangelist(PyObject* self, PyObject*) {
  if (env_handle(self) == nullptr) return invalid_env();
  py::Ref star = py::str("*");
  py::Ref names = param_list(self, star.get());
  if (!names) return nullptr;
  std::string out;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(names.get()); ++i) {
    py::Ref info = param_info(self, PyList_GET_ITEM(names.get(), i));
    if (!info) return nullptr;
    int eq = PyObject_RichCompareBool(PyTuple_GET_ITEM(info.get(), 2), PyTuple_GET_ITEM(info.get(), 5), Py_EQ);
    if (eq < 0) return nullptr;
    if (eq) continue;
    py::Ref value = py::Ref::steal(PyObject_Str(PyTuple_GET_ITEM(info.get(), 2)));
    if (!value) return nullptr;
    out += out.empty() ? "Parameter changes: " : ", ";
    out += PyUnicode_AsUTF8(PyTuple_GET_ITEM(info.get(), 0));
    out += "=";
    out += PyUnicode_AsUTF8(value.get());
  }
  if (out.empty()) out = "No parameter changes";
  return py::str(out).release();
}

PyObject* env_repr(PyObject* self) {
  if (env_handle(self) == nullptr) return PyUnicode_FromString("<velmorpy.Env, invalid or closed state>");
  py::Ref changes = py::Ref::steal(env_getchangelist(self, nullptr));
  if (!changes) return nullptr;
  return PyUnicode_FromFormat("<velmorpy.Env, %U>", changes.get());
}

PyObject* env_message_method(PyObject* self, PyObject* msg) {
  const char* s = py::utf8(msg);
  if (s == nullptr) return nullptr;
  if (env_message(self, s) < 0) return nullptr;
  return py::none();
}

PyObject* env_getcommstats(PyObject* self, PyObject*) {
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return invalid_env();
  double v[6] = {0, 0, 0, 0, 0, 0};
  int rc = VLMgetcommstats(cenv, &v[0], &v[1], &v[2], &v[3], &v[4], &v[5]);
  if (rc != 0) return raise_velmor(rc, self);
  return Py_BuildValue("{sdsdsdsdsdsd}", "recvtime", v[0], "recvbytes", v[1], "recvmsgs", v[2],
                       "sendtime", v[3], "sendbytes", v[4], "sendmsgs", v[5]);
}

PyObject* env_gettokenlifespan(PyObject* self, PyObject*) {
  VLMenv* cenv = env_handle(self);
  if (cenv == nullptr) return invalid_env();
  int seconds = 0;
  int rc = VLMgettokenlifespan(cenv, &seconds);
  if (rc != 0) return raise_velmor(rc, self);
  return PyLong_FromLong(seconds);
}

// Env.OtherEnv / Env.AppEnv: deprecated constructors taking licence identification. Velmor
// needs no licence, so the identification values are accepted and not used.
PyObject* env_otherenv(PyObject* cls, PyObject* args) {
  const char* logfilename = "";
  PyObject *i = nullptr, *a = nullptr, *e = nullptr, *k = nullptr;
  if (!PyArg_ParseTuple(args, "s|OOOO:OtherEnv", &logfilename, &i, &a, &e, &k)) return nullptr;
  py::Ref warnings = py::Ref::steal(PyImport_ImportModule("warnings"));
  if (!warnings) return nullptr;
  py::Ref w = py::Ref::steal(PyObject_CallMethod(warnings.get(), "warn", "sO",
                                                 "Env.OtherEnv and Env.AppEnv are deprecated; use Env()",
                                                 PyExc_DeprecationWarning));
  if (!w) return nullptr;
  py::Ref env = py::Ref::steal(PyObject_CallFunction(cls, "sO", logfilename, Py_True));
  if (!env) return nullptr;
  py::Ref r = py::Ref::steal(env_start(env.get(), nullptr));
  if (!r) return nullptr;
  return env.release();
}

PyObject* get_cenv(PyObject* self, void*) {
  PyObject* c = as_env(self)->cenv;
  return py::new_ref(c ? c : Py_None);
}
PyObject* get_default(PyObject* self, void*) { return py::boolean(as_env(self)->is_default); }
PyObject* get_user(PyObject* self, void*) { return py::boolean(as_env(self)->user); }
PyObject* get_empty(PyObject* self, void*) { return py::boolean(as_env(self)->empty); }
PyObject* get_modcnt(PyObject* self, void*) { return PyLong_FromLong(as_env(self)->modcnt); }
int set_modcnt(PyObject* self, PyObject* value, void*) {
  if (value == nullptr) {
    PyErr_SetString(PyExc_AttributeError, "cannot delete _modcnt");
    return -1;
  }
  long v = PyLong_AsLong(value);
  if (v == -1 && PyErr_Occurred()) return -1;
  as_env(self)->modcnt = v;
  return 0;
}

PyMethodDef env_methods[] = {
    {"start", py::guarded<&env_start>, METH_NOARGS,
     "start($self)\n--\n\nStarts an environment created with empty=True. Returns the environment."},
    {"dispose", py::guarded<&env_dispose>, METH_NOARGS,
     "dispose($self)\n--\n\nFrees the environment's library resources. Disposing the default environment\n"
     "also closes the live models. Disposing twice does nothing."},
    {"close", py::guarded<&env_dispose>, METH_NOARGS, "close($self)\n--\n\nSame as dispose()."},
    {"__enter__", py::guarded<&env_enter>, METH_NOARGS, "Returns the environment itself."},
    {"__exit__", (PyCFunction)(void (*)(void))py::guarded<&env_exit>, METH_FASTCALL,
     "Closes the environment when the with-block ends; exceptions propagate."},
    {"_message", py::guarded<&env_message_method>, METH_O,
     "_message($self, msg)\n--\n\nWrites msg to the environment's log (or, for an empty environment with\n"
     "OutputFlag on, to standard output)."},
    {"_getCommStats", py::guarded<&env_getcommstats>, METH_NOARGS,
     "_getCommStats($self)\n--\n\nReturns a dict of traffic statistics with a remote solve service\n"
     "(recvtime, recvbytes, recvmsgs, sendtime, sendbytes, sendmsgs)."},
    {"getTokenLifespan", py::guarded<&env_gettokenlifespan>, METH_NOARGS,
     "getTokenLifespan($self)\n--\n\nReturns the remaining lifespan, in seconds, of the licence-service\n"
     "token. Velmor runs without a licence service, so this raises VelmorError\n"
     "(ERROR_DATA_NOT_AVAILABLE)."},
    {"OtherEnv", py::guarded<&env_otherenv>, METH_VARARGS | METH_CLASS,
     "OtherEnv($type, logfilename, isvname, appname, expiration, code)\n--\n\nDeprecated: creates and\n"
     "starts an environment. The licence identification arguments are accepted and not used."},
    {"AppEnv", py::guarded<&env_otherenv>, METH_VARARGS | METH_CLASS,
     "AppEnv($type, logfilename, isvname, appname)\n--\n\nDeprecated: same as OtherEnv."},
    {"_paramlist", py::guarded<&env_paramlist>, METH_O,
     "_paramlist($self, paramname)\n--\n\nReturns the list of parameter names that paramname denotes: the\n"
     "name itself when it names a parameter exactly (ignoring case), else every name matching\n"
     "it with the wildcards '*' and '?', ignoring case."},
    {"setParam", (PyCFunction)(void (*)(void))py::guarded<&env_setparam>, METH_FASTCALL | METH_KEYWORDS,
     "setParam($self, paramname, newval)\n--\n\nSets a parameter. The name ignores case and may hold the\n"
     "wildcards '*' and '?' as long as it matches exactly one parameter (otherwise the matches\n"
     "are listed and nothing is set). newval may be 'default' to restore the default value.\n"
     "On the default environment the change also reaches the live models.\n\n"
     "Example: env.setParam('TimeLimit', 60)"},
    {"fixTuneParam", py::guarded<&env_fixtuneparam>, METH_O,
     "fixTuneParam($self, paramname)\n--\n\nKeeps the tuner from changing this parameter."},
    {"resetParams", py::guarded<&env_resetparams>, METH_NOARGS,
     "resetParams($self)\n--\n\nRestores every parameter to its default value."},
    {"readParams", py::guarded<&env_readparams>, METH_O,
     "readParams($self, filename)\n--\n\nReads parameter settings from a file of 'Name value' lines (lines\n"
     "starting with '#' are comments). On an error nothing is changed."},
    {"writeParams", py::guarded<&env_writeparams>, METH_O,
     "writeParams($self, filename)\n--\n\nWrites every parameter that differs from its default to a file."},
    {"_getParamInfo", py::guarded<&env_getparaminfo>, METH_O,
     "_getParamInfo($self, paramname)\n--\n\nReturns (name, type, current value, minimum, maximum, default)\n"
     "of one parameter. Infinite double values are float('inf'); string parameters have no\n"
     "bounds (None)."},
    {"_getChangeList", py::guarded<&env_getchangelist>, METH_NOARGS,
     "_getChangeList($self)\n--\n\nReturns the text listing the parameters that differ from their\n"
     "defaults."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef env_getset[] = {
    {"_cenv", get_cenv, nullptr, "The library environment handle, or None once closed.", nullptr},
    {"_default", get_default, nullptr, "True for the default environment.", nullptr},
    {"_user", get_user, nullptr, "True when this object created the handle and frees it.", nullptr},
    {"_modcnt", get_modcnt, set_modcnt, "Number of models made in this environment.", nullptr},
    {"_empty", get_empty, nullptr, "True while the environment is created but not started.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

const char env_doc[] =
    "Env(logfilename=\"\", empty=False, params=None)\n--\n\n"
    "A Velmor environment: the container of parameter settings and the log from which models\n"
    "are created. Most programs use the default environment, made on first need; create one\n"
    "explicitly to give models their own settings or log file.\n\n"
    "logfilename: the log file to append to (\"\" for none).\n"
    "empty: when True, the environment is created but not started, so parameters can be set\n"
    "       before start() is called.\n"
    "params: a dict of parameter settings applied before the start.\n\n"
    "Use it as a context manager to dispose it at the end of a with-block:\n\n"
    "    with Env(params={'OutputFlag': 0}) as env:\n"
    "        ...";

}  // namespace

PyTypeObject EnvType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.Env"};

bool env_check(PyObject* o) { return PyObject_TypeCheck(o, &EnvType); }

VLMenv* env_handle(PyObject* env) {
  PyObject* c = as_env(env)->cenv;
  if (c == nullptr) return nullptr;
  return static_cast<VLMenv*>(PyCapsule_GetPointer(c, kCapsuleName));
}

py::Ref wrap_env_handle(VLMenv* cenv) {
  return py::Ref::steal(PyCapsule_New(cenv, kCapsuleName, nullptr));
}

py::Ref env_new_default(const char* logfilename) {
  py::Ref args = py::Ref::steal(PyTuple_New(0));
  py::Ref kwargs = py::Ref::steal(Py_BuildValue("{sssO}", "logfilename", logfilename, "isDefault", Py_True));
  if (!args || !kwargs) return py::Ref();
  return py::Ref::steal(PyObject_Call(reinterpret_cast<PyObject*>(&EnvType), args.get(), kwargs.get()));
}

int env_close(PyObject* env) {
  py::Ref r = py::Ref::steal(env_dispose(env, nullptr));
  return r ? 0 : -1;
}

PyObject* env_call_method(PyObject* env, const char* method, PyObject* const* args, Py_ssize_t nargs) {
  py::Ref name = py::str(method);
  if (!name) return nullptr;
  std::vector<PyObject*> all{env};
  all.insert(all.end(), args, args + nargs);
  return PyObject_VectorcallMethod(name.get(), all.data(), static_cast<size_t>(all.size()), nullptr);
}

int register_env(PyObject* m) {
  ModuleServices& s = services();
  s.env_check = env_check;
  s.env_handle = env_handle;
  s.env_new_default = env_new_default;
  s.env_close = env_close;
  EnvType.tp_basicsize = sizeof(EnvObject);
  EnvType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  EnvType.tp_doc = env_doc;
  EnvType.tp_new = env_new;
  EnvType.tp_init = py::guarded<&env_init>;
  EnvType.tp_dealloc = env_dealloc;
  EnvType.tp_finalize = env_finalize;
  EnvType.tp_traverse = env_traverse;
  EnvType.tp_clear = env_clear;
  EnvType.tp_repr = py::guarded<&env_repr>;
  EnvType.tp_methods = env_methods;
  EnvType.tp_getset = env_getset;
  EnvType.tp_dictoffset = offsetof(EnvObject, dict);
  EnvType.tp_weaklistoffset = offsetof(EnvObject, weakreflist);
  if (PyType_Ready(&EnvType) < 0) return -1;
  Py_INCREF(&EnvType);
  return PyModule_AddObject(m, "Env", reinterpret_cast<PyObject*>(&EnvType));
}
