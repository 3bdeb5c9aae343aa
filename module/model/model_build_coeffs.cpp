// Model: SOS constraints, and reading or changing single coefficients, columns and rows. Reads
// see the model as of the last update.
#include "model/model_build.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "elements/handle.h"
#include "expr/linexpr.h"
#include "model/model.h"
#include "model/model_build_util.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "expr/quadexpr.h"

namespace {

// Reads see the model as of the last update: an element added since is not there yet.
bool in_library(int pos, Py_ssize_t live, int kind) {
  if (pos < live) return true;
  not_in_model(kind);
  return false;
}

// The handle of a library index as of the last update, from the model's list.
PyObject* handle_at(PyObject* list, int index) {
  if (index < 0 || index >= PyList_GET_SIZE(list)) {
    raise_velmor_msg(VLM_ERROR_INTERNAL, "The model's element lists are out of step with the library");
    return nullptr;
  }
  return PyList_GET_ITEM(list, index);
}

// ---- element lists ---------------------------------------------------------------------------

// Positions of the elements of `o`: one handle of `kind`, a matrix object (its `attr` array of
// handles), or an iterable of handles. Each must be in this model.
bool positions(PyObject* self, PyObject* o, int kind, const char* attr, std::vector<int>& out) {
  int pos = 0;
  if (handle_kind(o) != 0) {
    if (!position_of(self, o, kind, &pos)) return false;
    out.push_back(pos);
    return true;
  }
  py::Ref source = py::Ref::borrow(o);
  if (PyObject_HasAttrString(o, attr)) {
    py::Ref arr = py::Ref::steal(PyObject_GetAttrString(o, attr));
    if (!arr) return false;
    source = PyObject_HasAttrString(arr.get(), "flat") ? py::Ref::steal(PyObject_GetAttrString(arr.get(), "flat"))
                                                       : std::move(arr);
    if (!source) return false;
  } else if (PyDict_Check(o)) {
    source = py::Ref::steal(PyDict_Values(o));
    if (!source) return false;
  }
  py::Ref it = py::Ref::steal(PyObject_GetIter(source.get()));
  if (!it) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError)) return false;
    PyErr_Clear();
    not_in_model(kind);
    return false;
  }
  while (py::Ref item = py::Ref::steal(PyIter_Next(it.get()))) {
    if (!position_of(self, item.get(), kind, &pos)) return false;
    out.push_back(pos);
  }
  return !PyErr_Occurred();
}

// Numbers of `o`: one number, or the items of an iterable (arrays flattened with ravel()).
bool numbers_of(PyObject* o, std::vector<double>& out) {
  if (!is_iterable(o)) {
    double v = PyFloat_AsDouble(o);
    if (v == -1.0 && PyErr_Occurred()) return false;
    out.push_back(v);
    return true;
  }
  py::Ref flat = PyObject_HasAttrString(o, "ravel") ? py::Ref::steal(PyObject_CallMethod(o, "ravel", nullptr))
                                                    : py::Ref::borrow(o);
  if (!flat) return false;
  py::Ref seq = py::Ref::steal(PySequence_Fast(flat.get(), "expected numbers"));
  if (!seq) return false;
  for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(seq.get()); ++i) {
    double v = PyFloat_AsDouble(PySequence_Fast_GET_ITEM(seq.get(), i));
    if (v == -1.0 && PyErr_Occurred()) return false;
    out.push_back(v);
  }
  return true;
}

PyObject* g_column_type = nullptr;  // velmorpy.Column, kept for the process lifetime

PyObject* column_type() {
  if (g_column_type == nullptr) {
    py::Ref mod = py::Ref::steal(PyImport_ImportModule("velmorpy"));
    if (!mod) return nullptr;
    g_column_type = PyObject_GetAttrString(mod.get(), "Column");
  }
  return g_column_type;
}

// A list of the handles at `ind` in the model's list of `kind`.
py::Ref handles_at(PyObject* self, int kind, const int* ind, size_t n) {
  PyObject* list = model_list(self, kind);
  if (list == nullptr) return py::Ref();
  py::Ref out = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(n)));
  if (!out) return out;
  for (size_t k = 0; k < n; ++k) {
    PyObject* h = handle_at(list, ind[k]);
    if (h == nullptr) return py::Ref();
    PyList_SET_ITEM(out.get(), static_cast<Py_ssize_t>(k), py::new_ref(h));
  }
  return out;
}

py::Ref float_list(const double* v, size_t n) {
  py::Ref out = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(n)));
  if (!out) return out;
  for (size_t k = 0; k < n; ++k) {
    PyObject* f = PyFloat_FromDouble(v[k]);
    if (f == nullptr) return py::Ref();
    PyList_SET_ITEM(out.get(), static_cast<Py_ssize_t>(k), f);
  }
  return out;
}

// The LinExpr terms of (ind, val) over the model's Var handles.
// The indices are checked before any reference is taken, so a failure leaves `terms` empty.
bool linear_terms(PyObject* vars, const int* ind, const double* val, size_t n, TermVec<LinTerm>& terms) {
  for (size_t k = 0; k < n; ++k) {
    if (handle_at(vars, ind[k]) == nullptr) return false;
  }
  terms.reserve(n);
  for (size_t k = 0; k < n; ++k) terms.push_back({val[k], py::new_ref(PyList_GET_ITEM(vars, ind[k]))});
  return true;
}

}  // namespace

// ---- the methods -----------------------------------------------------------------------------

PyObject* model_addsos(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"type", "vars", "wts"};
  PyObject* a[3];
  if (!parse_args("addSOS", names, 3, 2, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self)) return nullptr;
  const long t = PyLong_AsLong(a[0]);
  if (t == -1 && PyErr_Occurred()) return nullptr;
  int type = static_cast<int>(t);
  if (model_setup(self, false) < 0) return nullptr;
  std::vector<int> ind;
  if (!positions(self, a[1], VLM_KIND_VAR, "_vararr", ind)) return nullptr;
  std::vector<double> wts;
  if (is_none(a[2])) {
    // Without weights the members are ordered as given: weights 1, 2, 3, ...
    for (size_t k = 0; k < ind.size(); ++k) wts.push_back(static_cast<double>(k + 1));
  } else {
    if (!numbers_of(a[2], wts)) return nullptr;
    if (wts.size() != ind.size()) return invalid("addSOS() got different numbers of variables and weights");
  }
  for (double w : wts) {
    if (!std::isfinite(w)) return invalid("SOS weight is Nan or Inf");
  }
  if (!fits_int(ind.size(), "SOS members")) return nullptr;
  const int beg = 0;
  int rc = VLMaddsos(model_handle(self), 1, static_cast<int>(ind.size()), &type, &beg, ind.data(), wts.data());
  if (rc != 0) return raise_velmor(rc, self);
  return model_append_handle(self, VLM_KIND_SOS).release();
}

PyObject* model_getcoeff(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"constr", "var"};
  PyObject* a[2];
  if (!parse_args("getCoeff", names, 2, 2, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  ModelObject* m = as_model(self);
  // Only elements present at the last update have coefficients to read.
  auto live = [&](PyObject* o, int kind, Py_ssize_t count) {
    if (handle_kind(o) != kind || !model_has(self, o) || as_handle(o)->index < 0 ||
        as_handle(o)->index >= count) {
      not_in_model(kind);
      return false;
    }
    return true;
  };
  if (!live(a[0], VLM_KIND_CONSTR, m->liveconstrs) || !live(a[1], VLM_KIND_VAR, m->livevars)) return nullptr;
  double v = 0;
  int rc = VLMgetcoeff(m->handle, as_handle(a[0])->index, as_handle(a[1])->index, &v);
  if (rc != 0) return raise_velmor(rc, self);
  return PyFloat_FromDouble(v);
}

PyObject* model_chgcoeff(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"constr", "var", "newvalue"};
  PyObject* a[3];
  if (!parse_args("chgCoeff", names, 3, 3, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  std::vector<int> rows, cols;
  std::vector<double> vals;
  if (!positions(self, a[0], VLM_KIND_CONSTR, "_constrarr", rows) ||
      !positions(self, a[1], VLM_KIND_VAR, "_vararr", cols) || !numbers_of(a[2], vals)) {
    return nullptr;
  }
  // One constraint with many variables (or the reverse) pairs it with each of them.
  const size_t n = std::max(rows.size(), cols.size());
  if ((rows.size() != n && rows.size() != 1) || (cols.size() != n && cols.size() != 1)) {
    return invalid("chgCoeff() got different numbers of constraints and variables");
  }
  if (vals.size() != n && vals.size() != 1) return invalid("chgCoeff() got a wrong number of values");
  rows.resize(n, rows.empty() ? 0 : rows[0]);
  cols.resize(n, cols.empty() ? 0 : cols[0]);
  vals.resize(n, vals.empty() ? 0.0 : vals[0]);
  for (double v : vals) {
    if (!finite_coeff(v)) return nullptr;
  }
  if (!fits_int(n, "coefficients")) return nullptr;
  if (n == 0) return py::none();
  int rc = VLMchgcoeffs(model_handle(self), static_cast<int>(n), rows.data(), cols.data(), vals.data());
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

PyObject* model_getcol(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"var"};
  PyObject* a[1];
  if (!parse_args("getCol", names, 1, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  int col = 0;
  if (!position_of(self, a[0], VLM_KIND_VAR, &col) || !in_library(col, as_model(self)->livevars, VLM_KIND_VAR)) {
    return nullptr;
  }
  VLMmodel* h = model_handle(self);
  size_t nz = 0, beg = 0;
  int rc = VLMXgetvars(h, &nz, &beg, nullptr, nullptr, col, 1);
  std::vector<int> ind(nz);
  std::vector<double> val(nz);
  if (rc == 0 && nz > 0) rc = VLMXgetvars(h, &nz, &beg, ind.data(), val.data(), col, 1);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref coeffs = float_list(val.data(), nz);
  py::Ref constrs = coeffs ? handles_at(self, VLM_KIND_CONSTR, ind.data(), nz) : py::Ref();
  PyObject* type = constrs ? column_type() : nullptr;
  if (type == nullptr) return nullptr;
  return PyObject_CallFunctionObjArgs(type, coeffs.get(), constrs.get(), nullptr);
}

PyObject* model_getrow(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"constr"};
  PyObject* a[1];
  if (!parse_args("getRow", names, 1, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  int row = 0;
  if (!position_of(self, a[0], VLM_KIND_CONSTR, &row) ||
      !in_library(row, as_model(self)->liveconstrs, VLM_KIND_CONSTR)) {
    return nullptr;
  }
  VLMmodel* h = model_handle(self);
  size_t nz = 0, beg = 0;
  int rc = VLMXgetconstrs(h, &nz, &beg, nullptr, nullptr, row, 1);
  std::vector<int> ind(nz);
  std::vector<double> val(nz);
  if (rc == 0 && nz > 0) rc = VLMXgetconstrs(h, &nz, &beg, ind.data(), val.data(), row, 1);
  if (rc != 0) return raise_velmor(rc, self);
  PyObject* vars = model_list(self, VLM_KIND_VAR);
  py::Ref e = vars ? linexpr_new() : py::Ref();
  if (!e) return nullptr;
  TermVec<LinTerm> terms;
  if (!linear_terms(vars, ind.data(), val.data(), nz, terms)) return nullptr;
  linexpr_replace(e.get(), terms, 0.0);
  return e.release();
}

PyObject* model_getqcrow(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"qc"};
  PyObject* a[1];
  if (!parse_args("getQCRow", names, 1, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  int qc = 0;
  if (!position_of(self, a[0], VLM_KIND_QCONSTR, &qc)) return nullptr;
  VLMmodel* h = model_handle(self);
  int nl = 0, nq = 0;
  int rc = VLMgetqconstr(h, qc, &nl, nullptr, nullptr, &nq, nullptr, nullptr, nullptr);
  std::vector<int> lind(static_cast<size_t>(nl)), qrow(static_cast<size_t>(nq)), qcol(static_cast<size_t>(nq));
  std::vector<double> lval(static_cast<size_t>(nl)), qval(static_cast<size_t>(nq));
  if (rc == 0) rc = VLMgetqconstr(h, qc, &nl, lind.data(), lval.data(), &nq, qrow.data(), qcol.data(), qval.data());
  if (rc != 0) return raise_velmor(rc, self);
  PyObject* vars = model_list(self, VLM_KIND_VAR);
  py::Ref q = vars ? quadexpr_from(Py_None) : py::Ref();
  if (!q) return nullptr;
  QuadExprObject* qe = as_quadexpr(q.get());
  TermVec<LinTerm> lin;
  if (!linear_terms(vars, lind.data(), lval.data(), lind.size(), lin)) return nullptr;
  linexpr_replace(qe->lin, lin, 0.0);
  qe->terms.reserve(qval.size());
  for (size_t k = 0; k < qval.size(); ++k) {
    PyObject* v1 = handle_at(vars, qrow[k]);
    PyObject* v2 = v1 ? handle_at(vars, qcol[k]) : nullptr;
    if (v2 == nullptr) return nullptr;
    qe->terms.push_back({qval[k], py::new_ref(v1), py::new_ref(v2)});
  }
  return q.release();
}

PyObject* model_getsos(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"sos"};
  PyObject* a[1];
  if (!parse_args("getSOS", names, 1, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self) || model_setup(self, false) < 0) return nullptr;
  int pos = 0;
  if (!position_of(self, a[0], VLM_KIND_SOS, &pos)) return nullptr;
  VLMmodel* h = model_handle(self);
  int n = 0, type = 0, beg = 0;
  int rc = VLMgetsos(h, &n, &type, &beg, nullptr, nullptr, pos, 1);
  std::vector<int> ind(static_cast<size_t>(n));
  std::vector<double> wts(static_cast<size_t>(n));
  if (rc == 0) rc = VLMgetsos(h, &n, &type, &beg, ind.data(), wts.data(), pos, 1);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref vars = handles_at(self, VLM_KIND_VAR, ind.data(), ind.size());
  py::Ref weights = vars ? float_list(wts.data(), wts.size()) : py::Ref();
  if (!weights) return nullptr;
  return Py_BuildValue("(iOO)", type, vars.get(), weights.get());
}

// ---- docstrings ------------------------------------------------------------------------------

const char model_addsos_doc[] =
    "addSOS($self, type, vars, wts=None)\n--\n\n"
    "Adds an SOS constraint of VLM.SOS_TYPE1 (at most one member non-zero) or VLM.SOS_TYPE2\n"
    "(at most two, adjacent in weight order) over a list of Vars (or a matrix variable) and\n"
    "returns its SOS. Without wts the weights are 1, 2, 3, ... in list order.";

const char model_getcoeff_doc[] =
    "getCoeff($self, constr, var)\n--\n\n"
    "The coefficient of var in constr as of the last update (0.0 when absent).";

const char model_chgcoeff_doc[] =
    "chgCoeff($self, constr, var, newvalue)\n--\n\n"
    "Sets the coefficient of var in constr (0 removes it); takes effect at the next update.\n"
    "Lists or matrix objects of equal size change many coefficients at once.";

const char model_getcol_doc[] =
    "getCol($self, var)\n--\n\n"
    "The constraints that var appears in, with its coefficients, as a Column (last update).";

const char model_getrow_doc[] =
    "getRow($self, constr)\n--\n\n"
    "The left-hand side of a linear constraint as a LinExpr over the model's Vars (last update).";

const char model_getqcrow_doc[] =
    "getQCRow($self, qc)\n--\n\n"
    "The left-hand side of a quadratic constraint as a QuadExpr (linear and quadratic part).";

const char model_getsos_doc[] =
    "getSOS($self, sos)\n--\n\n"
    "The tuple (type, list of Var, list of weights) of an SOS constraint.";
