// The module-level class `velmor`: one instance per interpreter, owner of the default
// environment, and the interactive commands (read, models, system, help, disposeDefaultEnv).
#include "core/velmor.h"

#include <cstring>
#include <string>

#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "core/services.h"

namespace {

struct VelmorObject {
  PyObject_HEAD
  PyObject* defaultenv;  // the default Env, or nullptr for None
  bool interactive;
  bool exiting;
};

extern PyTypeObject VelmorType;
VelmorObject* g_velmor = nullptr;  // the single instance, owned by the module

const char shell_help[] =
    "Velmor shell.  Available top-level commands are:\n"
    "  read(): Read a model from a file (e.g., m = read(\"junk.mps\")\n"
    "  models(): List the currently loaded models (e.g., models())\n"
    "  setParam(): Set a parameter (e.g., setParam(\"TimeLimit\", 100))\n"
    "  readParams(): Read parameter settings from a file (e.g., readParams(\"a.prm\"))\n"
    "  resetParams(): Reset all parameters to their default values (e.g., resetParams())\n"
    "  paramHelp(): Get help on a parameter (e.g., paramHelp(\"MIPGap\"))\n"
    "  writeParams(): Write non-default parameter settings to a file (e.g., writeParams(\"a.prm\"))\n"
    "  system(): Perform a shell command (e.g., system(\"ls\")).\n"
    "\n"
    "Type \"help(command)\" for more help on a command (e.g., help(read)), or\n"
    "\"help(object)\" for help on a Velmor object (e.g., help(Model), help(Var)).\n";

bool detect_interactive() {
  PyObject* ps1 = PySys_GetObject("ps1");  // set only by an interactive interpreter
  if (ps1 != nullptr) return true;
  PyObject* flags = PySys_GetObject("flags");
  if (flags == nullptr) return false;
  py::Ref inter = py::Ref::steal(PyObject_GetAttrString(flags, "interactive"));
  if (!inter) {
    PyErr_Clear();
    return false;
  }
  return PyObject_IsTrue(inter.get()) == 1;
}

PyObject* velmor_getdefaultenv_method(PyObject*, PyObject* const* args, Py_ssize_t nargs) {
  bool create = true;
  if (nargs > 1) return py::raise(PyExc_TypeError, "_getdefaultenv(create=True)");
  if (nargs == 1) {
    int t = PyObject_IsTrue(args[0]);
    if (t < 0) return nullptr;
    create = t != 0;
  }
  PyObject* env = velmor_default_env(create);
  if (env == nullptr) return PyErr_Occurred() ? nullptr : py::none();
  return py::new_ref(env);
}

PyObject* velmor_getmodels(PyObject*, PyObject*) { return velmor_live_models().release(); }

int write_stdout(const std::string& text) {
  PyObject* out = PySys_GetObject("stdout");
  if (out == nullptr || out == Py_None) return 0;
  py::Ref r = py::Ref::steal(PyObject_CallMethod(out, "write", "s", text.c_str()));
  return r ? 0 : -1;
}

PyObject* velmor_models(PyObject*, PyObject*) {
  py::Ref models = velmor_live_models();
  if (!models) return nullptr;
  Py_ssize_t n = PyList_GET_SIZE(models.get());
  if (n == 0) {
    if (write_stdout("No models currently loaded\n") < 0) return nullptr;
    return py::none();
  }
  if (write_stdout("Currently loaded models:\n") < 0) return nullptr;
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* pair = PyList_GET_ITEM(models.get(), i);
    py::Ref text = py::Ref::steal(PyUnicode_FromFormat("%S : %R\n", PyTuple_GET_ITEM(pair, 0), PyTuple_GET_ITEM(pair, 1)));
    if (!text || write_stdout(PyUnicode_AsUTF8(text.get())) < 0) return nullptr;
  }
  return py::none();
}

PyObject* velmor_read(PyObject*, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  PyObject* filename = nullptr;
  PyObject* env = Py_None;
  Py_ssize_t nkw = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
  if (nargs >= 1) filename = args[0];
  if (nargs >= 2) env = args[1];
  if (nargs > 2) return py::raise(PyExc_TypeError, "read(filename, env=None)");
  for (Py_ssize_t k = 0; k < nkw; ++k) {
    const char* kw = PyUnicode_AsUTF8(PyTuple_GET_ITEM(kwnames, k));
    if (std::string(kw) == "env") env = args[nargs + k];
    else if (std::string(kw) == "filename" || std::string(kw) == "modelname") filename = args[nargs + k];
    else return PyErr_Format(PyExc_TypeError, "read() got an unexpected keyword argument '%s'", kw);
  }
  if (filename == nullptr) return py::raise(PyExc_TypeError, "read() missing argument 'filename'");
  const char* name = py::utf8(filename);
  if (name == nullptr) return nullptr;
  py::Ref chosen = py::Ref::borrow(filename);
  std::string s(name);
  if (s.find_first_of("*?") != std::string::npos) {
    py::Ref glob = py::Ref::steal(PyImport_ImportModule("glob"));
    if (!glob) return nullptr;
    py::Ref matches = py::Ref::steal(PyObject_CallMethod(glob.get(), "glob", "O", filename));
    if (!matches) return nullptr;
    if (PyList_GET_SIZE(matches.get()) == 0) {
      std::string msg = "No file matching '" + s + "' found";
      return raise_velmor_msg(VLM_ERROR_FILE_READ, msg.c_str());
    }
    chosen = py::Ref::borrow(PyList_GET_ITEM(matches.get(), 0));
  }
  if (env == Py_None) {
    env = velmor_default_env(true);
    if (env == nullptr) return nullptr;
  }
  const ModuleServices& services_ = services();
  if (!services_.env_check(env)) return PyErr_Format(PyExc_TypeError, "env must be an Env, not %.200s", Py_TYPE(env)->tp_name);
  const char* path = PyUnicode_AsUTF8(chosen.get());
  if (path == nullptr) return nullptr;
  VLMmodel* model = nullptr;
  int rc = VLMreadmodel(services_.env_handle(env), path, &model);
  if (rc != 0) return raise_velmor(rc, env);
  return services_.model_adopt(model, env).release();
}

PyObject* velmor_version(PyObject*, PyObject*) {
  int major, minor, tech;
  VLMversion(&major, &minor, &tech);
  return Py_BuildValue("(iii)", major, minor, tech);
}

PyObject* velmor_platform(PyObject*, PyObject*) { return PyUnicode_FromString(VLMplatform()); }
PyObject* velmor_iscontainer(PyObject*, PyObject*) { return PyLong_FromLong(VLMisContainer()); }

PyObject* velmor_disposedefaultenv(PyObject*, PyObject*) {
  if (g_velmor->defaultenv != nullptr) {
    // Detach first so that a failing close cannot leave a half-closed default behind.
    py::Ref env = py::Ref::steal(g_velmor->defaultenv);
    g_velmor->defaultenv = nullptr;
    if (services().env_close(env.get()) < 0) return nullptr;
  }
  return py::none();
}

PyObject* velmor_cleanup(PyObject* self, PyObject*) {
  g_velmor->exiting = true;
  return velmor_disposedefaultenv(self, nullptr);
}

PyObject* get_defaultenv(PyObject*, void*) {
  return py::new_ref(g_velmor->defaultenv ? g_velmor->defaultenv : Py_None);
}
PyObject* get_interactive(PyObject*, void*) { return py::boolean(g_velmor->interactive); }
PyObject* get_exiting(PyObject*, void*) { return py::boolean(g_velmor->exiting); }
int set_exiting(PyObject*, PyObject* value, void*) {
  int t = value ? PyObject_IsTrue(value) : 0;
  if (t < 0) return -1;
  g_velmor->exiting = t != 0;
  return 0;
}

PyMethodDef velmor_methods[] = {
    {"_getdefaultenv", (PyCFunction)(void (*)(void))py::guarded<&velmor_getdefaultenv_method>, METH_FASTCALL,
     "_getdefaultenv($self, create=True)\n--\n\nReturns the default environment, creating it when needed\n"
     "and create is true (else it may return None)."},
    {"_getmodels", py::guarded<&velmor_getmodels>, METH_NOARGS,
     "_getmodels($self)\n--\n\nReturns the (name, model) pairs of the live models bound in __main__."},
    {"models", py::guarded<&velmor_models>, METH_NOARGS, "models($self)\n--\n\nPrints the live models."},
    {"read", (PyCFunction)(void (*)(void))py::guarded<&velmor_read>, METH_FASTCALL | METH_KEYWORDS,
     "read($self, filename, env=None)\n--\n\nReads a model from a file."},
    {"version", py::guarded<&velmor_version>, METH_NOARGS,
     "version($self)\n--\n\nReturns the library version as (major, minor, technical)."},
    {"platform", py::guarded<&velmor_platform>, METH_NOARGS,
     "platform($self)\n--\n\nReturns the platform the library was built for, e.g. 'linux64'."},
    {"_iscontainer", py::guarded<&velmor_iscontainer>, METH_NOARGS,
     "_iscontainer($self)\n--\n\nReturns 1 when running inside a container, else 0."},
    {"disposeDefaultEnv", py::guarded<&velmor_disposedefaultenv>, METH_NOARGS,
     "disposeDefaultEnv($self)\n--\n\nDisposes the default environment; the next user creates a new one."},
    {"_cleanup", py::guarded<&velmor_cleanup>, METH_NOARGS,
     "_cleanup($self)\n--\n\nRun at interpreter exit: marks the module as exiting and disposes the\n"
     "default environment."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef velmor_getset[] = {
    {"_defaultenv", get_defaultenv, nullptr, "The default Env, or None.", nullptr},
    {"interactive", get_interactive, nullptr, "True when Python runs as an interactive shell.", nullptr},
    {"_exiting", get_exiting, set_exiting, "True while the interpreter shuts down.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

PyTypeObject VelmorType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.velmor"};

// ---- module-level functions ------------------------------------------------------------------

PyObject* mod_read(PyObject* m, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  return velmor_read(m, args, nargs, kwnames);
}

PyObject* mod_system(PyObject*, PyObject* command) {
  py::Ref os = py::Ref::steal(PyImport_ImportModule("os"));
  if (!os) return nullptr;
  return PyObject_CallMethod(os.get(), "system", "O", command);
}

PyObject* mod_help(PyObject*, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs > 1) return py::raise(PyExc_TypeError, "help() takes at most 1 argument");
  if (nargs == 0 || args[0] == Py_None) {
    if (write_stdout(shell_help) < 0) return nullptr;
    return py::none();
  }
  py::Ref doc = py::Ref::steal(PyObject_GetAttrString(args[0], "__doc__"));
  if (!doc) return nullptr;
  py::Ref text = py::Ref::steal(PyObject_Str(doc.get()));
  if (!text) return nullptr;
  // CPython keeps a callable's signature line apart from __doc__: put it back in front, as
  // inspect renders it (defaults as values), without the instance a bound call supplies.
  std::string out;
  py::Ref inspect = py::Ref::steal(PyImport_ImportModule("inspect"));
  py::Ref sig = inspect ? py::Ref::steal(PyObject_CallMethod(inspect.get(), "signature", "O", args[0])) : py::Ref();
  py::Ref sig_text = sig ? py::Ref::steal(PyObject_Str(sig.get())) : py::Ref();
  py::Ref name = py::Ref::steal(PyObject_GetAttrString(args[0], "__name__"));
  if (sig_text && name && PyUnicode_Check(name.get())) {
    std::string params = PyUnicode_AsUTF8(sig_text.get());
    for (const char* me : {"(self, /, ", "(self, /", "(cls, /, ", "(cls, /"}) {
      if (params.rfind(me, 0) == 0) {
        params = "(" + params.substr(std::strlen(me));
        break;
      }
    }
    out = std::string(PyUnicode_AsUTF8(name.get())) + params + "\n\n";
  }
  PyErr_Clear();
  out += PyUnicode_AsUTF8(text.get());
  if (write_stdout(out + "\n") < 0) return nullptr;
  return py::none();
}

// The `velmor_cl` console command: replaces this process by the command-line solver that is
// installed beside the library, with the same arguments.
PyObject* mod_cl_main(PyObject*, PyObject*) {
  py::Ref os = py::Ref::steal(PyImport_ImportModule("os"));
  py::Ref module = py::Ref::steal(PyImport_ImportModule("velmorpy"));
  if (!os || !module) return nullptr;
  py::Ref file = py::Ref::steal(PyObject_GetAttrString(module.get(), "__file__"));
  if (!file) return nullptr;
  py::Ref ospath = py::Ref::steal(PyObject_GetAttrString(os.get(), "path"));
  if (!ospath) return nullptr;
  py::Ref dir = py::Ref::steal(PyObject_CallMethod(ospath.get(), "dirname", "O", file.get()));
  if (!dir) return nullptr;
  py::Ref path = py::Ref::steal(PyObject_CallMethod(ospath.get(), "join", "Oss", dir.get(), "libvelmor", "velmor_cl"));
  if (!path) return nullptr;
  PyObject* argv = PySys_GetObject("argv");  // borrowed
  py::Ref args = py::Ref::steal(PyList_New(0));
  if (!args || PyList_Append(args.get(), path.get()) < 0) return nullptr;
  for (Py_ssize_t i = 1; argv != nullptr && i < PyList_Size(argv); ++i) {
    if (PyList_Append(args.get(), PyList_GET_ITEM(argv, i)) < 0) return nullptr;
  }
  return PyObject_CallMethod(os.get(), "execv", "OO", path.get(), args.get());
}

PyMethodDef module_functions[] = {
    {"_cl_main", py::guarded<&mod_cl_main>, METH_NOARGS,
     "_cl_main()\n--\n\nRuns the velmor_cl command-line solver with this program's arguments\n"
     "(the entry point of the installed velmor_cl command)."},
    {"read", (PyCFunction)(void (*)(void))py::guarded<&mod_read>, METH_FASTCALL | METH_KEYWORDS,
     "read(filename, env=None)\n--\n\nReads a model from a file and returns it. The name may hold\n"
     "the wildcards '*' and '?' (the first match is used). Without env the default\n"
     "environment is used.\n\nExample: m = read(\"afiro.mps\")"},
    {"models", py::guarded<&velmor_models>, METH_NOARGS,
     "models()\n--\n\nPrints the models currently loaded in the main program."},
    {"disposeDefaultEnv", py::guarded<&velmor_disposedefaultenv>, METH_NOARGS,
     "disposeDefaultEnv()\n--\n\nDisposes the default environment. The next Model() or parameter\n"
     "function without an environment creates a new one."},
    {"system", py::guarded<&mod_system>, METH_O,
     "system(command)\n--\n\nRuns a shell command and returns its exit status.\n\n"
     "Example: system(\"ls\")"},
    {"help", (PyCFunction)(void (*)(void))py::guarded<&mod_help>, METH_FASTCALL,
     "help(argument=None)\n--\n\nWithout an argument, prints the list of shell commands; with one,\n"
     "prints the object's documentation."},
    {nullptr, nullptr, 0, nullptr}};

}  // namespace

PyObject* velmor_default_env(bool create) {
  if (g_velmor->defaultenv == nullptr && create) {
    py::Ref env = services().env_new_default(g_velmor->interactive ? "velmor.log" : "");
    if (!env) return nullptr;
    g_velmor->defaultenv = env.release();
  }
  return g_velmor->defaultenv;
}

bool velmor_exiting() { return g_velmor != nullptr && g_velmor->exiting; }

py::Ref velmor_live_models() {
  PyObject* model_type = reinterpret_cast<PyObject*>(services().model_type);
  py::Ref result = py::Ref::steal(PyList_New(0));
  if (!result || model_type == nullptr) return result;
  PyObject* modules = PySys_GetObject("modules");
  PyObject* main = modules ? PyDict_GetItemString(modules, "__main__") : nullptr;
  if (main == nullptr) return result;
  py::Ref inspect = py::Ref::steal(PyImport_ImportModule("inspect"));
  if (!inspect) return py::Ref();
  py::Ref members = py::Ref::steal(PyObject_CallMethod(inspect.get(), "getmembers", "O", main));
  if (!members) return py::Ref();
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(members.get()); ++i) {
    PyObject* pair = PyList_GET_ITEM(members.get(), i);
    PyObject* obj = PyTuple_GET_ITEM(pair, 1);
    int is_model = PyObject_IsInstance(obj, model_type);
    if (is_model < 0) return py::Ref();
    if (!is_model) continue;
    py::Ref cmodel = py::Ref::steal(PyObject_GetAttrString(obj, "_cmodel"));
    if (!cmodel) return py::Ref();
    if (cmodel.get() != Py_None && PyList_Append(result.get(), pair) < 0) return py::Ref();
  }
  return result;
}

int register_velmor(PyObject* m) {
  VelmorType.tp_basicsize = sizeof(VelmorObject);
  VelmorType.tp_flags = Py_TPFLAGS_DEFAULT;
  VelmorType.tp_doc =
      "The module-level Velmor object: owns the default environment and provides the\n"
      "interactive commands read(), models(), disposeDefaultEnv(), version() and platform().";
  VelmorType.tp_methods = velmor_methods;
  VelmorType.tp_getset = velmor_getset;
  if (PyType_Ready(&VelmorType) < 0) return -1;
  g_velmor = PyObject_New(VelmorObject, &VelmorType);
  if (g_velmor == nullptr) return -1;
  g_velmor->defaultenv = nullptr;
  g_velmor->interactive = detect_interactive();
  g_velmor->exiting = false;
  Py_INCREF(g_velmor);  // one reference kept by this file for the process lifetime
  if (PyModule_AddObject(m, "velmor", reinterpret_cast<PyObject*>(g_velmor)) < 0) return -1;
  if (PyModule_AddFunctions(m, module_functions) < 0) return -1;
  // velmor._cleanup runs at interpreter exit.
  py::Ref atexit = py::Ref::steal(PyImport_ImportModule("atexit"));
  if (!atexit) return -1;
  py::Ref cleanup = py::Ref::steal(PyObject_GetAttrString(reinterpret_cast<PyObject*>(g_velmor), "_cleanup"));
  if (!cleanup) return -1;
  py::Ref r = py::Ref::steal(PyObject_CallMethod(atexit.get(), "register", "O", cleanup.get()));
  return r ? 0 : -1;
}
