// The objective (setObjective, setObjectiveN, getObjective, setPWLObj, getPWLObj) and solving
// (optimize, terminate) of Model. The solve runs in the library with the interpreter lock
// released, so other Python threads (one calling terminate(), say) go on meanwhile.
#include <cstring>
#include <utility>
#include <vector>

#include "elements/handle.h"
#include "expr/linexpr.h"
#include "model/model.h"
#include "model/model_callback.h"
#include "core/py_error.h"
#include "expr/quadexpr.h"
#include "core/registry.h"

const char model_optimize_doc[] =
    "optimize($self, callback=None)\n--\n\n"
    "Applies pending changes (update()) and solves the model. The outcome is the Status\n"
    "attribute (VLM.OPTIMAL, VLM.INFEASIBLE, VLM.TIME_LIMIT, ...); when a solution was found,\n"
    "ObjVal, X, Slack and, for continuous models, Pi and RC can be read. Other Python threads\n"
    "keep running during the solve; Ctrl-C stops it with status VLM.INTERRUPTED.\n\n"
    "callback: a plain Python function cb(model, where) called during the solve.\n\n"
    "Example:\n"
    "    m.optimize()\n"
    "    if m.Status == VLM.OPTIMAL:\n"
    "        print(m.ObjVal)";

const char model_terminate_doc[] =
    "terminate($self)\n--\n\n"
    "Asks a running optimize() of this model to stop as soon as it can (status\n"
    "VLM.INTERRUPTED). Safe to call from another thread or from a callback.";

PyObject* model_optimize(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  PyObject* callback = Py_None;
  if (nargs > 1) return py::raise(PyExc_TypeError, "optimize() takes at most 1 argument");
  if (nargs == 1) callback = args[0];
  for (Py_ssize_t k = 0; kwnames && k < PyTuple_GET_SIZE(kwnames); ++k) {
    const char* kw = PyUnicode_AsUTF8(PyTuple_GET_ITEM(kwnames, k));
    if (kw == nullptr) return nullptr;
    if (std::strcmp(kw, "callback") != 0 || nargs == 1) {
      return PyErr_Format(PyExc_TypeError, "optimize() got an unexpected keyword argument '%s'", kw);
    }
    callback = args[nargs + k];
  }
  ModelObject* m = as_model(self);
  if (m->handle == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  if (m->solving) {
    return raise_velmor_msg(VLM_ERROR_OPTIMIZATION_IN_PROGRESS, "The model is already being optimized");
  }
  if (model_update(self) < 0) return nullptr;
  if (model_solve_with_callback(self, callback, VLMoptimize) < 0) return nullptr;
  return py::none();
}

PyObject* model_terminate(PyObject* self, PyObject*) {
  VLMmodel* h = model_handle(self);
  if (h != nullptr) VLMterminate(h);
  return py::none();
}

// ---- objective -------------------------------------------------------------------------------

namespace {

// Linear and quadratic terms of an objective expression in library form.
struct ObjectiveArrays {
  double constant = 0.0;
  std::vector<int> lind;
  std::vector<double> lval;
  std::vector<int> qrow, qcol;
  std::vector<double> qval;
};

bool collect_linear(PyObject* model, PyObject* lin, ObjectiveArrays& out) {
  linexpr_flatten(lin);
  LinExprObject* e = as_linexpr(lin);
  out.constant += e->constant;
  out.lind.reserve(out.lind.size() + e->terms.size());
  for (const LinTerm& t : e->terms) {
    int col = model_var_column(model, t.var);
    if (col < 0) return false;
    out.lind.push_back(col);
    out.lval.push_back(t.coeff);
  }
  return true;
}

// Takes an objective expression apart: a number, Var, LinExpr or QuadExpr.
bool objective_arrays(PyObject* model, PyObject* expr, bool linear_only, ObjectiveArrays& out) {
  if (quadexpr_check(expr)) {
    if (linear_only) {
      raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Objective must be linear");
      return false;
    }
    quadexpr_flatten(expr);
    QuadExprObject* q = as_quadexpr(expr);
    if (!collect_linear(model, q->lin, out)) return false;
    for (const QuadTerm& t : q->terms) {
      int i = model_var_column(model, t.var1);
      if (i < 0) return false;
      int j = model_var_column(model, t.var2);
      if (j < 0) return false;
      out.qrow.push_back(i);
      out.qcol.push_back(j);
      out.qval.push_back(t.coeff);
    }
    return true;
  }
  py::Ref lin = linexpr_new(0.0);
  if (!lin) return false;
  int added = linexpr_add(lin.get(), expr, 1.0);
  if (added < 0) return false;
  if (added == 0) {
    // Anything else is made an expression as LinExpr.add would, with its refusal.
    py::Ref text = py::Ref::steal(PyUnicode_FromFormat(
        "Unsupported type (%S) for LinExpr addition argument", reinterpret_cast<PyObject*>(Py_TYPE(expr))));
    if (!text) return false;
    raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, PyUnicode_AsUTF8(text.get()));
    return false;
  }
  return collect_linear(model, lin.get(), out);
}

int sense_code(PyObject* sense) {
  if (sense == Py_None) return 0;
  long s = PyLong_AsLong(sense);
  if (s == -1 && PyErr_Occurred()) {
    PyErr_Clear();
    s = 0;
  }
  if (s != 1 && s != -1) {
    raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Objective sense must be VLM.MINIMIZE or VLM.MAXIMIZE");
    return 2;
  }
  return static_cast<int>(s);
}

// A matrix expression of one element: its matrices (_extract_xQy for a quadratic one,
// _extract_Axb for a linear one) go to setMObjective.
PyObject* set_matrix_objective(PyObject* self, PyObject* expr, PyObject* sense) {
  if (sense_code(sense) == 2) return nullptr;
  py::Ref size = py::Ref::steal(PyObject_GetAttrString(expr, "size"));
  if (!size) return nullptr;
  if (PyLong_AsLong(size.get()) != 1) {
    py::Ref shape = py::Ref::steal(PyObject_GetAttrString(expr, "shape"));
    py::Ref text = shape ? py::Ref::steal(PyUnicode_FromFormat(
                               "The objective must be one expression, not a matrix expression of shape %S", shape.get()))
                         : py::Ref();
    return text ? raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, PyUnicode_AsUTF8(text.get())) : nullptr;
  }
  py::Ref fn = py::Ref::steal(PyObject_GetAttrString(self, "setMObjective"));
  if (!fn) return nullptr;
  if (PyObject_HasAttrString(expr, "_extract_xQy")) {
    py::Ref parts = py::Ref::steal(PyObject_CallMethod(expr, "_extract_xQy", nullptr));
    PyObject *Q = nullptr, *x = nullptr, *c = nullptr, *constant = nullptr;
    if (!parts || !PyArg_ParseTuple(parts.get(), "OOOO", &Q, &x, &c, &constant)) return nullptr;
    py::Ref args = py::Ref::steal(PyTuple_Pack(3, Q, c, constant));
    py::Ref kw = args ? py::Ref::steal(Py_BuildValue("{sOsOsOsO}", "xQ_L", x, "xQ_R", x, "xc", x, "sense", sense))
                      : py::Ref();
    return kw ? PyObject_Call(fn.get(), args.get(), kw.get()) : nullptr;
  }
  py::Ref lin = expr_is_mvar(expr) ? py::Ref::steal(PyObject_CallMethod(expr, "_toexpr", nullptr)) : py::Ref::borrow(expr);
  py::Ref parts = lin ? py::Ref::steal(PyObject_CallMethod(lin.get(), "_extract_Axb", nullptr)) : py::Ref();
  PyObject *A = nullptr, *x = nullptr, *b = nullptr;
  if (!parts || !PyArg_ParseTuple(parts.get(), "OOO", &A, &x, &b)) return nullptr;
  py::Ref row = py::Ref::steal(PyObject_CallMethod(A, "toarray", nullptr));
  py::Ref constant = py::Ref::steal(PyObject_CallMethod(b, "item", nullptr));
  if (!row || !constant) return nullptr;
  py::Ref args = py::Ref::steal(PyTuple_Pack(3, Py_None, row.get(), constant.get()));
  py::Ref kw = args ? py::Ref::steal(Py_BuildValue("{sOsO}", "xc", x, "sense", sense)) : py::Ref();
  return kw ? PyObject_Call(fn.get(), args.get(), kw.get()) : nullptr;
}

}  // namespace

const char model_setobjective_doc[] =
    "setObjective($self, expr, sense=None)\n--\n\n"
    "Replaces the whole objective (linear coefficients, quadratic terms and constant) by expr,\n"
    "a number, Var, LinExpr or QuadExpr. sense is VLM.MINIMIZE or VLM.MAXIMIZE; None keeps the\n"
    "model's ModelSense.\n\n"
    "Example: m.setObjective(3*x + 2*y, VLM.MAXIMIZE)";

PyObject* model_setobjective(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"expr", "sense", nullptr};
  PyObject *expr = nullptr, *sense = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O|O:setObjective", const_cast<char**>(kwlist), &expr, &sense)) {
    return nullptr;
  }
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  if (model_setup(self, false) < 0) return nullptr;
  if (expr_is_matrix(expr)) return set_matrix_objective(self, expr, sense);
  int s = sense_code(sense);
  if (s == 2) return nullptr;
  ObjectiveArrays a;
  if (!objective_arrays(self, expr, false, a)) return nullptr;
  int rc = VLMsetobjective(h, s, a.constant, static_cast<int>(a.lind.size()), a.lind.data(), a.lval.data(),
                           static_cast<int>(a.qval.size()), a.qrow.data(), a.qcol.data(), a.qval.data());
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

const char model_setobjectiven_doc[] =
    "setObjectiveN($self, expr, index, priority=0, weight=1, abstol=1e-6, reltol=0, name=\"\")\n--\n\n"
    "Sets objective number index of a multi-objective model to the linear expression expr.\n"
    "Objectives of higher priority are optimised first; equal priorities are blended by\n"
    "weight; abstol and reltol bound how much an objective may degrade for later ones.";

PyObject* model_setobjectiven(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"expr", "index", "priority", "weight", "abstol", "reltol", "name", nullptr};
  PyObject* expr = nullptr;
  int index = 0, priority = 0;
  double weight = 1.0, abstol = 1e-6, reltol = 0.0;
  const char* name = "";
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "Oi|iddds:setObjectiveN", const_cast<char**>(kwlist), &expr,
                                   &index, &priority, &weight, &abstol, &reltol, &name)) {
    return nullptr;
  }
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  if (model_setup(self, false) < 0) return nullptr;
  if (expr_is_matrix(expr) && PyObject_HasAttrString(expr, "_extract_xQy")) {
    return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Objective must be linear");
  }
  // A one-element MVar or MLinExpr stands for its Var or LinExpr (item() refuses larger ones).
  py::Ref single;
  if (expr_is_matrix(expr)) {
    single = py::Ref::steal(PyObject_CallMethod(expr, "item", nullptr));
    if (!single) return nullptr;
    expr = single.get();
  }
  ObjectiveArrays a;
  if (!objective_arrays(self, expr, true, a)) return nullptr;
  int rc = VLMsetobjectiven(h, index, priority, weight, abstol, reltol, name, a.constant,
                            static_cast<int>(a.lind.size()), a.lind.data(), a.lval.data());
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

namespace {

// A LinExpr from the values of a per-variable double attribute (non-zero terms) and a constant.
py::Ref linear_from_attr(PyObject* self, const char* attr, double constant) {
  VLMmodel* h = model_handle(self);
  int n = 0;
  int rc = VLMgetintattr(h, "NumVars", &n);
  if (rc != 0) return py::Ref::steal(raise_velmor(rc, self));
  std::vector<double> c(static_cast<std::size_t>(n));
  rc = n > 0 ? VLMgetdblattrarray(h, attr, 0, n, c.data()) : 0;
  if (rc != 0) return py::Ref::steal(raise_velmor(rc, self));
  PyObject* vars = model_list(self, VLM_KIND_VAR);
  if (vars == nullptr) return py::Ref();
  py::Ref e = linexpr_new(constant);
  if (!e) return py::Ref();
  LinExprObject* le = as_linexpr(e.get());
  for (int j = 0; j < n && j < PyList_GET_SIZE(vars); ++j) {
    if (c[j] == 0.0) continue;
    PyObject* v = PyList_GET_ITEM(vars, j);
    le->terms.push_back({c[j], py::new_ref(v)});
  }
  return e;
}

}  // namespace

const char model_getobjective_doc[] =
    "getObjective($self, index=None)\n--\n\n"
    "The objective as an expression: a LinExpr, or a QuadExpr when the objective has\n"
    "quadratic terms. With index, objective number index of a multi-objective model (this\n"
    "sets the ObjNumber parameter).";

PyObject* model_getobjective(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"index", nullptr};
  PyObject* index = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|O:getObjective", const_cast<char**>(kwlist), &index)) return nullptr;
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  if (model_setup(self, false) < 0) return nullptr;
  if (index != Py_None) {
    long k = PyLong_AsLong(index);
    if (k == -1 && PyErr_Occurred()) return nullptr;
    int rc = VLMsetintparam(VLMgetenv(h), "ObjNumber", static_cast<int>(k));
    if (rc != 0) return raise_velmor(rc, self);
    double con = 0.0;
    rc = VLMgetdblattr(h, "ObjNCon", &con);
    if (rc != 0) return raise_velmor(rc, self);
    return linear_from_attr(self, "ObjN", con).release();
  }
  double con = 0.0;
  int rc = VLMgetdblattr(h, "ObjCon", &con);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref lin = linear_from_attr(self, "Obj", con);
  if (!lin) return nullptr;
  int nq = 0;
  rc = VLMgetq(h, &nq, nullptr, nullptr, nullptr);
  if (rc != 0) return raise_velmor(rc, self);
  if (nq == 0) return lin.release();
  std::vector<int> qi(nq), qj(nq);
  std::vector<double> qv(nq);
  rc = VLMgetq(h, &nq, qi.data(), qj.data(), qv.data());
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref q = quadexpr_from(lin.get());
  if (!q) return nullptr;
  PyObject* vars = model_list(self, VLM_KIND_VAR);
  if (vars == nullptr) return nullptr;
  QuadExprObject* qe = as_quadexpr(q.get());
  for (int k = 0; k < nq; ++k) {
    qe->terms.push_back({qv[k], py::new_ref(PyList_GET_ITEM(vars, qi[k])), py::new_ref(PyList_GET_ITEM(vars, qj[k]))});
  }
  return q.release();
}

const char model_setpwlobj_doc[] =
    "setPWLObj($self, var, x, y)\n--\n\n"
    "Gives var a piecewise-linear objective through the points (x[i], y[i]); x must not\n"
    "decrease. It replaces the variable's linear objective coefficient.";

PyObject* model_setpwlobj(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"var", "x", "y", nullptr};
  PyObject *var = nullptr, *x = nullptr, *y = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OOO:setPWLObj", const_cast<char**>(kwlist), &var, &x, &y)) return nullptr;
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  if (handle_kind(var) != VLM_KIND_VAR) {
    return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "setPWLObj requires a Var as its first argument");
  }
  int col = model_var_column(self, var);
  if (col < 0) return nullptr;
  std::vector<double> xs, ys;
  for (auto [src, dst] : {std::pair<PyObject*, std::vector<double>*>{x, &xs}, {y, &ys}}) {
    py::Ref seq = py::Ref::steal(PySequence_Fast(src, "setPWLObj expects sequences of numbers"));
    if (!seq) return nullptr;
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(seq.get()); ++i) {
      double v = PyFloat_AsDouble(PySequence_Fast_GET_ITEM(seq.get(), i));
      if (v == -1.0 && PyErr_Occurred()) return nullptr;
      dst->push_back(v);
    }
  }
  if (xs.size() != ys.size()) {
    return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "x and y must have the same length");
  }
  int rc = VLMsetpwlobj(h, col, static_cast<int>(xs.size()), xs.data(), ys.data());
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

const char model_getpwlobj_doc[] =
    "getPWLObj($self, var)\n--\n\nThe points of var's piecewise-linear objective as a list of (x, y) tuples\n"
    "(empty when it has none).";

PyObject* model_getpwlobj(PyObject* self, PyObject* var) {
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  int col = model_var_column(self, var);
  if (col < 0) return nullptr;
  int n = 0;
  int rc = VLMgetpwlobj(h, col, &n, nullptr, nullptr);
  if (rc != 0) return raise_velmor(rc, self);
  std::vector<double> xs(n), ys(n);
  rc = VLMgetpwlobj(h, col, &n, xs.data(), ys.data());
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref out = py::Ref::steal(PyList_New(n));
  if (!out) return nullptr;
  for (int i = 0; i < n; ++i) {
    PyObject* t = Py_BuildValue("(dd)", xs[i], ys[i]);
    if (t == nullptr) return nullptr;
    PyList_SET_ITEM(out.get(), i, t);
  }
  return out.release();
}

// ---- tuning and batch requests ---------------------------------------------------------------

const char model_tune_doc[] =
    "tune($self)\n--\n\n"
    "Applies pending changes and tunes the parameters of this model: solves copies of it under\n"
    "changed settings (TuneTrials seeds each, within TuneTimeLimit) and keeps the settings that\n"
    "beat the current ones, best first; their number is the attribute TuneResultCount, and\n"
    "getTuneResult(i) loads one. Parameters fixed with fixTuneParam are never changed.";

PyObject* model_tune(PyObject* self, PyObject*) {
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  if (model_update(self) < 0) return nullptr;
  if (model_run_released(self, true, VLMtunemodel) < 0) return nullptr;
  return py::none();
}

const char model_gettuneresult_doc[] =
    "getTuneResult($self, i)\n--\n\n"
    "Loads the parameter settings of tuning result i (0 the best) into the model: the settings\n"
    "the model had when tuning started, with the result's changes.";

PyObject* model_gettuneresult(PyObject* self, PyObject* arg) {
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  long i = PyLong_AsLong(arg);
  if (i == -1 && PyErr_Occurred()) return nullptr;
  int rc = VLMgettuneresult(h, static_cast<int>(i));
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

const char model_optimizebatch_doc[] =
    "optimizeBatch($self)\n--\n\nApplies pending changes and submits the model as a batch request to\n"
    "the batch service named by the CSManager parameter (authenticated with CSAPIAccessID and\n"
    "CSAPISecret); the request carries the model and its non-default parameters. Returns the\n"
    "request's ID, which Batch(batchID) looks up. Raises VelmorError when no service is set or\n"
    "it cannot be reached (ERROR_NETWORK) or refuses the request.";

PyObject* model_optimizebatch(PyObject* self, PyObject*) {
  VLMmodel* h = model_handle(self);
  if (h == nullptr) return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self);
  if (model_update(self) < 0) return nullptr;
  char batchid[VLM_MAX_STRLEN];
  int rc = VLMsetsignal(h);
  if (rc == 0) {
    // The service may take up to ServerTimeout to answer, and may run in this process.
    py::WithoutGil nogil;
    rc = VLMoptimizebatch(h, batchid);
  }
  if (rc != 0) return raise_velmor(rc, self);
  return PyUnicode_FromString(batchid);
}
