// VLM: the single namespace of named constants (VLM.OPTIMAL, VLM.INFINITY, VLM.attr.ObjVal, ...)
// and register_constants, which builds it and its groups at import.
//
// VLM holds three kinds of values as plain class attributes: the constants of this file; copies
// of the status, error (as ERROR_*) and callback codes; and the group objects (VLM.attr,
// VLM.error, VLM.param, VLM.status, VLM.callback, each also capitalised). Nothing on it can be
// assigned: see constclass.h.
#include <string>

#include "core/constclass.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "velmor_codes.h"

namespace {

struct StrConst {
  const char* name;
  const char* value;
  const char* help;
};

const IntConst kLimits[] = {
    {"MAXINT", VLM_MAXINT, nullptr},
    {"MAX_NAMELEN", VLM_MAX_NAMELEN, nullptr},
    {"MAX_STRLEN", VLM_MAX_STRLEN, nullptr},
    {"MAX_TAGLEN", VLM_MAX_TAGLEN, nullptr},
    {"MAX_CONCURRENT", VLM_MAX_CONCURRENT, nullptr},
    {"VERSION_MAJOR", VLM_VERSION_MAJOR, nullptr},
    {"VERSION_MINOR", VLM_VERSION_MINOR, nullptr},
    {"VERSION_TECHNICAL", VLM_VERSION_TECHNICAL, nullptr},
};

const IntConst kObjSense[] = {
    {"MINIMIZE", 1, "Minimize the objective"},
    {"MAXIMIZE", -1, "Maximize the objective"},
};

const IntConst kBasis[] = {
    {"BASIC", 0, "Basic"},
    {"NONBASIC_LOWER", -1, "Nonbasic at its lower bound"},
    {"NONBASIC_UPPER", -2, "Nonbasic at its upper bound"},
    {"SUPERBASIC", -3, "Nonbasic between its bounds"},
};

const StrConst kSense[] = {
    {"LESS_EQUAL", "<", "Left-hand side at most the right-hand side"},
    {"GREATER_EQUAL", ">", "Left-hand side at least the right-hand side"},
    {"EQUAL", "=", "Left-hand side equal to the right-hand side"},
};

const StrConst kVarType[] = {
    {"CONTINUOUS", "C", "Continuous"},
    {"BINARY", "B", "Binary: 0 or 1"},
    {"INTEGER", "I", "Integer"},
    {"SEMICONT", "S", "Semi-continuous: 0, or between its bounds"},
    {"SEMIINT", "N", "Semi-integer: 0, or an integer between its bounds"},
};

const IntConst kSos[] = {
    {"SOS_TYPE1", 1, "At most one member is nonzero"},
    {"SOS_TYPE2", 2, "At most two members are nonzero, and they are adjacent"},
};

const IntConst kGenConstr[] = {
    {"GENCONSTR_MAX", 0, "y = max(x1, ..., xn, c)"},
    {"GENCONSTR_MIN", 1, "y = min(x1, ..., xn, c)"},
    {"GENCONSTR_ABS", 2, "y = |x|"},
    {"GENCONSTR_AND", 3, "y = x1 and ... and xn (binary variables)"},
    {"GENCONSTR_OR", 4, "y = x1 or ... or xn (binary variables)"},
    {"GENCONSTR_NORM", 5, "y = norm(x1, ..., xn) (1-, 2- or infinity-norm)"},
    {"GENCONSTR_INDICATOR", 6, "z = value implies a linear constraint (z binary)"},
    {"GENCONSTR_PWL", 7, "y = f(x), f piecewise-linear"},
    {"GENCONSTR_POLY", 8, "y = p(x), p a polynomial"},
    {"GENCONSTR_EXP", 9, "y = exp(x)"},
    {"GENCONSTR_EXPA", 10, "y = a^x"},
    {"GENCONSTR_LOG", 11, "y = ln(x)"},
    {"GENCONSTR_LOGA", 12, "y = log_a(x)"},
    {"GENCONSTR_POW", 13, "y = x^a"},
    {"GENCONSTR_SIN", 14, "y = sin(x)"},
    {"GENCONSTR_COS", 15, "y = cos(x)"},
    {"GENCONSTR_TAN", 16, "y = tan(x)"},
    {"GENCONSTR_LOGISTIC", 17, "y = 1 / (1 + exp(-x))"},
};

const IntConst kBatch[] = {
    {"BATCH_CREATED", 1, nullptr},
    {"BATCH_SUBMITTED", 2, nullptr},
    {"BATCH_ABORTED", 3, nullptr},
    {"BATCH_FAILED", 4, nullptr},
    {"BATCH_COMPLETED", 5, nullptr},
};

const IntConst kCuts[] = {
    {"CUTS_AUTO", -1, nullptr},
    {"CUTS_OFF", 0, nullptr},
    {"CUTS_CONSERVATIVE", 1, nullptr},
    {"CUTS_AGGRESSIVE", 2, nullptr},
    {"CUTS_VERYAGGRESSIVE", 3, nullptr},
};

// METHOD_NONE and METHOD_AUTO are both -1 on purpose: two names for the same setting.
const IntConst kMethod[] = {
    {"METHOD_NONE", -1, nullptr},
    {"METHOD_AUTO", -1, nullptr},
    {"METHOD_PRIMAL", 0, nullptr},
    {"METHOD_DUAL", 1, nullptr},
    {"METHOD_BARRIER", 2, nullptr},
    {"METHOD_CONCURRENT", 3, nullptr},
    {"METHOD_DETERMINISTIC_CONCURRENT", 4, nullptr},
    {"METHOD_DETERMINISTIC_CONCURRENT_SIMPLEX", 5, nullptr},
};

const IntConst kFeasRelax[] = {
    {"FEASRELAX_LINEAR", 0, nullptr},
    {"FEASRELAX_QUADRATIC", 1, nullptr},
    {"FEASRELAX_CARDINALITY", 2, nullptr},
};

const IntConst kPhase[] = {
    {"PHASE_MIP_NOREL", 0, nullptr},
    {"PHASE_MIP_SEARCH", 1, nullptr},
    {"PHASE_MIP_IMPROVE", 2, nullptr},
};

const std::span<const IntConst> kIntTables[] = {
    kLimits, kObjSense, kBasis, kSos, kGenConstr, kBatch, kCuts, kFeasRelax, kMethod, kPhase,
};

struct Group {
  const char* name;         // VLM.<name>, and capitalised
  const char* capitalised;
  const char* what;         // for VLM's docstring
  py::Ref (*make_class)();
};

const Group kGroups[] = {
    {"attr", "Attr", "attribute names", attrconst_class},
    {"error", "Error", "error codes", errorconst_class},
    {"param", "Param", "parameter names", paramconst_class},
    {"status", "Status", "optimization status codes", statusconst_class},
    {"callback", "Callback", "callback codes", callback_class},
};

void add_str_rows(HelpTable& table, std::span<const StrConst> consts) {
  for (const StrConst& c : consts) table.row(c.name, std::string("'") + c.value + "'", c.help);
}

std::string vlm_doc() {
  HelpTable table;
  table.heading("Velmor constants.  Constants defined in this class are as follows:");
  table.heading("");
  table.heading("Basis status (of a variable or a linear constraint):");
  table.rows(kBasis);
  table.heading("");
  table.heading("Constraint sense:");
  add_str_rows(table, kSense);
  table.heading("");
  table.heading("Variable types:");
  add_str_rows(table, kVarType);
  table.heading("");
  table.heading("SOS types:");
  table.rows(kSos);
  table.heading("");
  table.heading("General constraint types:");
  table.rows(kGenConstr);
  table.heading("");
  table.heading("Objective sense:");
  table.rows(kObjSense);
  HelpTable groups;
  groups.heading("");
  groups.heading("The class also holds the groups below, each with help of its own (e.g.");
  groups.heading("help(VLM.attr)), and reachable capitalised as well (VLM.Attr is VLM.attr):");
  for (const Group& g : kGroups) groups.row(std::string("VLM.") + g.name, "", g.what);
  std::string doc = table.str() + groups.str();
  doc +=
      "Status codes, error codes (prefixed ERROR_) and callback codes are plain attributes of\n"
      "VLM as well: VLM.OPTIMAL, VLM.ERROR_OUT_OF_MEMORY, VLM.MIPSOL.\n";
  return doc;
}

int add_float(PyObject* dict, const char* name, double value) {
  py::Ref v = py::Ref::steal(PyFloat_FromDouble(value));
  return v ? constclass_add(dict, name, v.get()) : -1;
}

int add_strs(PyObject* dict, std::span<const StrConst> consts) {
  for (const StrConst& c : consts) {
    py::Ref v = py::str(c.value);
    if (!v || constclass_add(dict, c.name, v.get()) < 0) return -1;
  }
  return 0;
}

// Builds the group class, exports it from the module and stores its instance in `dict` under
// both spellings.
int add_group(PyObject* m, PyObject* dict, const Group& g) {
  py::Ref cls = g.make_class();
  if (!cls) return -1;
  py::Ref instance = constclass_instance(cls.get());
  if (!instance) return -1;
  const char* class_name = reinterpret_cast<PyTypeObject*>(cls.get())->tp_name;
  if (PyModule_AddObjectRef(m, class_name, cls.get()) < 0) return -1;
  if (constclass_add(dict, g.name, instance.get()) < 0) return -1;
  return constclass_add(dict, g.capitalised, instance.get());
}

int register_constants_impl(PyObject* m) {
  if (constclass_ready() < 0) return -1;
  py::Ref dict = py::Ref::steal(PyDict_New());
  if (!dict) return -1;
  if (add_float(dict.get(), "INFINITY", VLM_INFINITY) < 0 ||
      add_float(dict.get(), "UNDEFINED", VLM_UNDEFINED) < 0 || add_strs(dict.get(), kSense) < 0 ||
      add_strs(dict.get(), kVarType) < 0) {
    return -1;
  }
  for (std::span<const IntConst> t : kIntTables) {
    if (constclass_add_ints(dict.get(), t) < 0) return -1;
  }
  if (constclass_add_ints(dict.get(), statusconst_codes()) < 0 ||
      constclass_add_ints(dict.get(), errorconst_codes(), "ERROR_") < 0 ||
      constclass_add_ints(dict.get(), callback_codes()) < 0) {
    return -1;
  }
  for (const Group& g : kGroups) {
    if (add_group(m, dict.get(), g) < 0) return -1;
  }
  py::Ref vlm = constclass_new("VLM", vlm_doc(), dict.get());
  if (!vlm) return -1;
  return PyModule_AddObjectRef(m, "VLM", vlm.get());
}

}  // namespace

// Guarded: building the tables allocates C++ strings, and PyInit must not see an exception.
int register_constants(PyObject* m) { return py::guarded<&register_constants_impl>(m); }
