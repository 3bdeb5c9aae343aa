// Analysis and derived models of Model (see model_analysis.h). Each method makes one library
// call (VLMcomputeIIS, VLMfeasrelax, VLMrelaxmodel, VLMfixmodel, VLMfeasibility,
// VLMdualmodel, VLMpresolvemodel, VLMgetjsonsolution); every non-zero code becomes
// VelmorError with the model's last error text.
#include "model/model_analysis.h"

#include <cmath>
#include <vector>

#include "core/py_convert.h"
#include "core/py_error.h"
#include "elements/handle.h"
#include "model/model.h"
#include "model/model_callback.h"

namespace {

// The model's library handle, or nullptr with VelmorError("Model has been disposed") set.
VLMmodel* live_handle(PyObject* self) {
  VLMmodel* h = model_handle(self);
  if (h == nullptr) raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  return h;
}

bool read_count(PyObject* self, const char* attr, int* out) {
  int rc = VLMgetintattr(model_handle(self), attr, out);
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  return true;
}

// A penalty given by Python: a number; +-inf become +-VLM_INFINITY.
bool penalty_value(PyObject* o, double* out) {
  double v = PyFloat_AsDouble(o);
  if (v == -1.0 && PyErr_Occurred()) return false;
  if (v >= VLM_INFINITY) v = VLM_INFINITY;
  if (v <= -VLM_INFINITY) v = -VLM_INFINITY;
  *out = v;
  return true;
}

// The penalties of `items` (Var, or Constr/QConstr when `constraints`) written into `pen`
// at each element's position (a quadratic constraint after the `numconstrs` linear ones).
// `values` None leaves them unrelaxed. false with an exception set.
bool fill_penalties(PyObject* self, PyObject* items, PyObject* values, bool constraints,
                    int numconstrs, std::vector<double>& pen, const char* what) {
  if (items == Py_None || values == Py_None) return true;
  py::Ref seq = py::Ref::steal(PySequence_Fast(items, "feasRelax: elements must be given as a list"));
  if (!seq) return false;
  py::Ref vals = py::Ref::steal(PySequence_Fast(values, "feasRelax: penalties must be given as a list"));
  if (!vals) return false;
  const Py_ssize_t n = PySequence_Fast_GET_SIZE(seq.get());
  if (PySequence_Fast_GET_SIZE(vals.get()) != n) {
    PyErr_Format(PyExc_ValueError, "feasRelax: %s has %zd entries for %zd elements", what,
                 PySequence_Fast_GET_SIZE(vals.get()), n);
    return false;
  }
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* e = PySequence_Fast_GET_ITEM(seq.get(), i);
    int pos = -1;
    if (!constraints) {
      pos = model_var_column(self, e);
      if (pos < 0) return false;
    } else {
      const int kind = handle_kind(e);
      const bool ours = (kind == VLM_KIND_CONSTR || kind == VLM_KIND_QCONSTR) && model_has(self, e) &&
                        as_handle(e)->index >= 0;
      if (!ours) {
        raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, "Constraint not in model");
        return false;
      }
      pos = as_handle(e)->index + (kind == VLM_KIND_QCONSTR ? numconstrs : 0);
    }
    if (!penalty_value(PySequence_Fast_GET_ITEM(vals.get(), i), &pen[pos])) return false;
  }
  return true;
}

// The private routine behind feasRelax and feasRelaxS: one library call with penalty arrays
// over all variables and constraints, then fresh handle lists for the enlarged model.
PyObject* feasrelax_call(PyObject* self, int relaxobjtype, bool minrelax, const std::vector<double>& lbpen,
                         const std::vector<double>& ubpen, const std::vector<double>& rhspen) {
  double obj = 0.0;
  ModelObject* m = as_model(self);
  if (m->solving) {
    return raise_velmor_msg(VLM_ERROR_OPTIMIZATION_IN_PROGRESS, "The model is already being optimized");
  }
  // With minrelax the library solves the relaxation: other threads may run meanwhile.
  if (model_run_released(self, false, [&](VLMmodel* h) {
        return VLMfeasrelax(h, relaxobjtype, minrelax ? 1 : 0, lbpen.data(), ubpen.data(), rhspen.data(), &obj);
      }) < 0) {
    return nullptr;
  }
  for (PyObject*& list : m->lists) Py_CLEAR(list);
  if (model_setup(self, false) < 0) return nullptr;
  return PyFloat_FromDouble(minrelax ? obj : 0.0);
}

struct Sizes {
  int vars = 0, constrs = 0, qconstrs = 0;
};

bool sizes_after_update(PyObject* self, Sizes* s) {
  if (model_update(self) < 0) return false;
  return read_count(self, "NumVars", &s->vars) && read_count(self, "NumConstrs", &s->constrs) &&
         read_count(self, "NumQConstrs", &s->qconstrs);
}

// ---- methods ---------------------------------------------------------------------------------

PyObject* model_computeiis(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"callback", nullptr};
  PyObject* callback = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|O:computeIIS", const_cast<char**>(kwlist), &callback)) {
    return nullptr;
  }
  ModelObject* m = as_model(self);
  if (live_handle(self) == nullptr) return nullptr;
  if (m->solving) {
    return raise_velmor_msg(VLM_ERROR_OPTIMIZATION_IN_PROGRESS, "The model is already being optimized");
  }
  if (model_update(self) < 0) return nullptr;
  if (model_solve_with_callback(self, callback, VLMcomputeIIS) < 0) return nullptr;
  return py::none();
}

PyObject* model_feasrelax(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"relaxobjtype", "minrelax", "vars", "lbpen", "ubpen", "constrs", "rhspen", nullptr};
  int type = 0, minrelax = 0;
  PyObject *vars = Py_None, *lbpen = Py_None, *ubpen = Py_None, *constrs = Py_None, *rhspen = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "ipOOOOO:feasRelax", const_cast<char**>(kwlist), &type,
                                   &minrelax, &vars, &lbpen, &ubpen, &constrs, &rhspen)) {
    return nullptr;
  }
  if (live_handle(self) == nullptr) return nullptr;
  Sizes n;
  if (!sizes_after_update(self, &n)) return nullptr;
  std::vector<double> lb(n.vars, VLM_INFINITY), ub(n.vars, VLM_INFINITY);
  std::vector<double> rhs(static_cast<std::size_t>(n.constrs) + n.qconstrs, VLM_INFINITY);
  if (!fill_penalties(self, vars, lbpen, false, n.constrs, lb, "lbpen") ||
      !fill_penalties(self, vars, ubpen, false, n.constrs, ub, "ubpen") ||
      !fill_penalties(self, constrs, rhspen, true, n.constrs, rhs, "rhspen")) {
    return nullptr;
  }
  return feasrelax_call(self, type, minrelax != 0, lb, ub, rhs);
}

PyObject* model_feasrelaxs(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"relaxobjtype", "minrelax", "vrelax", "crelax", nullptr};
  int type = 0, minrelax = 0, vrelax = 0, crelax = 0;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "ippp:feasRelaxS", const_cast<char**>(kwlist), &type,
                                   &minrelax, &vrelax, &crelax)) {
    return nullptr;
  }
  if (live_handle(self) == nullptr) return nullptr;
  Sizes n;
  if (!sizes_after_update(self, &n)) return nullptr;
  // The simple form gives every chosen element the unit penalty.
  std::vector<double> lb(n.vars, vrelax ? 1.0 : VLM_INFINITY);
  std::vector<double> ub(n.vars, vrelax ? 1.0 : VLM_INFINITY);
  std::vector<double> rhs(static_cast<std::size_t>(n.constrs) + n.qconstrs, crelax ? 1.0 : VLM_INFINITY);
  return feasrelax_call(self, type, minrelax != 0, lb, ub, rhs);
}

// A derived model: one library call that makes a new model, wrapped on the user's Env.
template <int (*Derive)(VLMmodel*, VLMmodel**)>
PyObject* derived(PyObject* self, bool update_first) {
  if (live_handle(self) == nullptr) return nullptr;
  if (update_first && model_update(self) < 0) return nullptr;
  VLMmodel* out = nullptr;
  int rc = Derive(model_handle(self), &out);
  if (rc != 0) return raise_velmor(rc, self);
  if (out == nullptr) return raise_velmor(VLM_ERROR_FAILED_TO_CREATE_MODEL, self);
  return model_adopt(out, as_model(self)->uenv).release();
}

PyObject* model_relax(PyObject* self, PyObject*) { return derived<VLMrelaxmodel>(self, false); }
PyObject* model_fixed(PyObject* self, PyObject*) { return derived<VLMfixmodel>(self, false); }
PyObject* model_feasibility(PyObject* self, PyObject*) { return derived<VLMfeasibility>(self, false); }
PyObject* model_dualize(PyObject* self, PyObject*) { return derived<VLMdualmodel>(self, true); }
PyObject* model_presolve(PyObject* self, PyObject*) { return derived<VLMpresolvemodel>(self, true); }

PyObject* model_getjsonsolution(PyObject* self, PyObject*) {
  VLMmodel* h = live_handle(self);
  if (h == nullptr) return nullptr;
  char* text = nullptr;
  int rc = VLMgetjsonsolution(h, &text);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref out = py::str(text);
  VLMfree(text);
  return out.release();
}

const char presolve_doc[] =
    "presolve($self)\n--\n\n"
    "Applies pending changes (update()) and returns a new Model with the same optimal value and\n"
    "usually fewer elements: rows without variables or with a single variable (which becomes a\n"
    "bound) are removed, fixed variables and variables that appear in no constraint are\n"
    "substituted into the objective constant and right-hand sides (into linear terms where they\n"
    "appear in products). Variables of SOS, general constraints, piecewise-linear or further\n"
    "objectives are kept, and those elements are carried over. With the Presolve parameter at 2,\n"
    "a linear model goes through HiGHS's stronger presolve instead. What remains keeps its names;\n"
    "solutions of the presolved model are not mapped back.";

const char getjsonsolution_doc[] =
    "getJSONSolution($self)\n--\n\n"
    "Returns the model's solution as JSON text: SolutionInfo (Status, SolCount, ObjVal, ...),\n"
    "then Vars (VarName, X, RC) and Constrs (ConstrName, Slack, Pi); values that do not exist\n"
    "(no solution, no duals) are left out.\n\n"
    "Example:\n"
    "    import json\n"
    "    values = {v['VarName']: v['X'] for v in json.loads(m.getJSONSolution())['Vars']}";

const char computeiis_doc[] =
    "computeIIS($self, callback=None)\n--\n\n"
    "Applies pending changes (update()) and computes an Irreducible Inconsistent Subsystem of\n"
    "the infeasible model: constraints and variable bounds that cannot hold together, and of\n"
    "which any one removed leaves a feasible rest. Members are marked by the attributes\n"
    "IISConstr, IISLB, IISUB, IISQConstr, IISSOS and IISGenConstr (1 for a member); IISMinimal\n"
    "is 0 when TimeLimit stopped the search before the subsystem was shown minimal. The\n"
    "IISConstrForce, IISLBForce, ... attributes put elements into (1) or leave them out of (0)\n"
    "the subsystem; the IISMethod parameter chooses the method. m.write('model.ilp') writes the\n"
    "subsystem as an LP file. A feasible model raises VelmorError\n"
    "(VLM.ERROR_IIS_NOT_INFEASIBLE).\n\n"
    "Example:\n"
    "    m.computeIIS()\n"
    "    print([c.ConstrName for c in m.getConstrs() if c.IISConstr])";

const char feasrelax_doc[] =
    "feasRelax($self, relaxobjtype, minrelax, vars, lbpen, ubpen, constrs, rhspen)\n--\n\n"
    "Changes the model into its feasibility relaxation: for each listed variable bound and\n"
    "constraint an artificial variable takes the violation (ArtL_x, ArtU_x for the bounds of x;\n"
    "ArtP_c, ArtN_c for constraint c) and is penalised: relaxobjtype 0 by penalty times\n"
    "violation, 1 by penalty times violation squared, 2 by penalty per violated element.\n"
    "vars with lbpen and ubpen, and constrs with rhspen, are lists of equal length; any may be\n"
    "None, and an infinite penalty keeps an element as it is. With minrelax False the penalty\n"
    "becomes the objective; with minrelax True the least penalty is computed now, returned, and\n"
    "imposed (constraint FeasRelaxObj) while the original objective is kept. Returns 0 when\n"
    "minrelax is False. Handles taken from the model earlier no longer appear in its lists.\n\n"
    "Example:\n"
    "    m.feasRelax(0, False, None, None, None, m.getConstrs(), [1.0] * m.NumConstrs)\n"
    "    m.optimize()";

const char feasrelaxs_doc[] =
    "feasRelaxS($self, relaxobjtype, minrelax, vrelax, crelax)\n--\n\n"
    "The simple form of feasRelax: vrelax True lets every variable bound be violated, crelax\n"
    "True every constraint, each with penalty 1. Returns the least penalty when minrelax is\n"
    "True, else 0.\n\n"
    "Example:\n"
    "    m.feasRelaxS(0, True, False, True)";

const char relax_doc[] =
    "relax($self)\n--\n\n"
    "Returns a new Model, the continuous relaxation of this one as of its last update: integer,\n"
    "binary, semi-continuous and semi-integer variables made continuous, SOS and general\n"
    "constraints removed. For a continuous model it equals a copy.";

const char fixed_doc[] =
    "fixed($self)\n--\n\n"
    "Returns a new Model, the fixed version of this solved MIP: the integer variables fixed at\n"
    "their values in the best solution, so that the result is continuous and its solve gives\n"
    "duals (Pi, RC). Raises VelmorError for a continuous model and for a MIP without a solution.";

const char feasibility_doc[] =
    "feasibility($self)\n--\n\n"
    "Returns a new Model, a copy of this one as of its last update with the objective removed.";

const char dualize_doc[] =
    "dualize($self)\n--\n\n"
    "Applies pending changes (update()) and returns a new Model, the dual of this LP: one\n"
    "variable per constraint (named like the constraint), one constraint per variable (named\n"
    "like the variable), variables lb_x and ub_x for finite bounds other than x >= 0; the\n"
    "opposite sense and, at optimality, the same objective value. Raises VelmorError for MIPs\n"
    "and for quadratic models.";

}  // namespace

#define VARARGS_KW(fn) (PyCFunction)(void (*)(void))py::guarded<&fn>, METH_VARARGS | METH_KEYWORDS

PyMethodDef model_analysis_methods[] = {
    {"computeIIS", VARARGS_KW(model_computeiis), computeiis_doc},
    {"feasRelax", VARARGS_KW(model_feasrelax), feasrelax_doc},
    {"feasRelaxS", VARARGS_KW(model_feasrelaxs), feasrelaxs_doc},
    {"relax", py::guarded<&model_relax>, METH_NOARGS, relax_doc},
    {"fixed", py::guarded<&model_fixed>, METH_NOARGS, fixed_doc},
    {"feasibility", py::guarded<&model_feasibility>, METH_NOARGS, feasibility_doc},
    {"dualize", py::guarded<&model_dualize>, METH_NOARGS, dualize_doc},
    {"presolve", py::guarded<&model_presolve>, METH_NOARGS, presolve_doc},
    {"getJSONSolution", py::guarded<&model_getjsonsolution>, METH_NOARGS, getjsonsolution_doc},
    {nullptr, nullptr, 0, nullptr},
};

#undef VARARGS_KW
