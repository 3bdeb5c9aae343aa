// The module frame: PyInit__velmorpy builds the extension and registers every class family. The
// package velmorpy (module/velmorpy/__init__.py.in) loads HiGHS first, then re-exports it.
#include "core/py_ref.h"
#include "core/registry.h"
#include "core/services.h"

namespace {

const char module_doc[] =
    "velmorpy: the Python interface of the Velmor optimisation library.\n\n"
    "Create an Env (or use the default one), build a Model from variables and constraints,\n"
    "optimise it, and read results as attributes. Constants live in the class VLM; the\n"
    "module-level functions setParam, readParams, writeParams, resetParams, paramHelp and\n"
    "read act on the default environment. Call help() for the list of shell commands.\n\n"
    "Logging: the solver log goes to the console and to the Python logger 'velmorpy'.\n"
    "LogToConsole=0 silences the console only, records still reach the logger;\n"
    "OutputFlag=0 silences both.";

// Named "velmorpy", not "velmorpy._velmorpy": the functions it defines then report the package
// as their __module__, where users (and documentation tools) find them.
PyModuleDef velmorpy_module = {PyModuleDef_HEAD_INIT, "velmorpy", module_doc, -1, nullptr,
                               nullptr, nullptr, nullptr, nullptr};

}  // namespace

ModuleServices& services() {
  static ModuleServices instance;
  return instance;
}

PyMODINIT_FUNC PyInit__velmorpy(void) {
  py::Ref m = py::Ref::steal(PyModule_Create(&velmorpy_module));
  if (!m) return nullptr;
  for (auto reg : {register_exception, register_env, register_param, register_constants,
                   register_linexpr, register_quadexpr, register_tempconstr, register_genexpr, register_var_ops,
                   register_tuplelist, register_tupledict, register_multidict,
                   register_var, register_constr, register_qconstr, register_sos, register_genconstr,
                   register_column, register_mvar, register_mlinexpr, register_mquadexpr, register_mconstr, register_mqconstr, register_mgenconstr, register_model, register_batch, register_velmor}) {
    if (reg(m.get()) < 0) return nullptr;
  }
  // The package version is the library's: one number for both products.
  int major = 0, minor = 0, technical = 0;
  VLMversion(&major, &minor, &technical);
  py::Ref version = py::Ref::steal(PyUnicode_FromFormat("%d.%d.%d", major, minor, technical));
  if (!version || PyModule_AddObjectRef(m.get(), "__version__", version.get()) < 0) return nullptr;
  return m.release();
}
