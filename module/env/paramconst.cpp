// ParamConstClass: the parameter names (VLM.param.TimeLimit == "TimeLimit"), read from the
// library's parameter table at import so that the two cannot disagree.
#include <memory>
#include <new>
#include <string>

#include "core/constclass.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "velmor_c.h"

namespace {

struct EnvFree {
  void operator()(VLMenv* env) const { VLMfreeenv(env); }
};
using EnvPtr = std::unique_ptr<VLMenv, EnvFree>;

std::string format_dbl(double v) {
  if (v >= VLM_INFINITY) return "inf";
  if (v <= -VLM_INFINITY) return "-inf";
  // Python's repr, so that the table reads like the values Python code gets back.
  char* text = PyOS_double_to_string(v, 'r', 0, 0, nullptr);
  if (text == nullptr) throw std::bad_alloc();
  std::string out(text);
  PyMem_Free(text);
  return out;
}

// "int", "default 0, range [0, 2000000000]"-style columns for one parameter.
int describe(VLMenv* env, const char* name, std::string& type, std::string& text) {
  switch (VLMgetparamtype(env, name)) {
    case VLM_INT: {
      int def = 0, mn = 0, mx = 0;
      int rc = VLMgetintparaminfo(env, name, nullptr, &mn, &mx, &def);
      if (rc != 0) return rc;
      type = "int";
      text = "default " + std::to_string(def) + ", range [" + std::to_string(mn) + ", " +
             std::to_string(mx) + "]";
      return 0;
    }
    case VLM_DBL: {
      double def = 0, mn = 0, mx = 0;
      int rc = VLMgetdblparaminfo(env, name, nullptr, &mn, &mx, &def);
      if (rc != 0) return rc;
      type = "double";
      text = "default " + format_dbl(def) + ", range [" + format_dbl(mn) + ", " + format_dbl(mx) +
             "]";
      return 0;
    }
    case VLM_STR: {
      char def[VLM_MAX_STRLEN] = {};
      int rc = VLMgetstrparaminfo(env, name, nullptr, def);
      if (rc != 0) return rc;
      type = "string";
      text = std::string("default \"") + def + "\"";
      return 0;
    }
  }
  return VLM_ERROR_UNKNOWN_PARAMETER;
}

}  // namespace

py::Ref paramconst_class() {
  // Defaults and ranges are read through an environment; a fresh one holds the defaults.
  VLMenv* raw = nullptr;
  int rc = VLMemptyenv(&raw);
  EnvPtr env(raw);
  if (rc != 0) return py::Ref::steal(raise_velmor_msg(rc, "Failed to create environment"));

  int count = VLMgetnumparams(nullptr);
  if (count < 0) {
    return py::Ref::steal(raise_velmor_msg(VLM_ERROR_INTERNAL, "Cannot read the parameter table"));
  }
  py::Ref dict = py::Ref::steal(PyDict_New());
  if (!dict) return {};
  HelpTable table;
  table.heading(
      "Velmor parameter names: each constant is the name itself (VLM.param.TimeLimit == "
      "\"TimeLimit\").");
  table.heading("Listed with the value type, the default and the valid range.");
  table.heading("");
  std::string type, text;
  for (int i = 0; i < count; ++i) {
    char* name = nullptr;
    rc = VLMgetparamname(nullptr, i, &name);
    if (rc == 0) rc = describe(env.get(), name, type, text);
    if (rc != 0) {
      return py::Ref::steal(raise_velmor_msg(rc, "Cannot read the parameter table"));
    }
    py::Ref value = py::str(name);
    if (!value || constclass_add(dict.get(), name, value.get()) < 0) return {};
    table.row(name, type, text);
  }
  return constclass_new("ParamConstClass", table.str(), dict.get());
}
