#include "model/model_callback.h"

#include <structmember.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "containers/tupledict.h"
#include "core/py_error.h"
#include "elements/handle.h"
#include "expr/linexpr.h"
#include "expr/tempconstr.h"
#include "model/model.h"

namespace {

// ---- CallbackClass: the per-solve callback object -----------------------------------------

struct CallbackObject {
  PyObject_HEAD
  PyObject* cbfunc;   // the user's function
  int n;              // NumVars when the object was made
  PyObject* cbdata;   // capsule around the library's callback data of the current call, or None
  int where;          // the current where code; -1 outside a call
  PyObject* sol;      // cached MIPSOL_SOL / MULTIOBJ_SOL list, or None
  PyObject* noderel;  // cached MIPNODE_REL list, or None
  PyObject* setsol;   // the partial solution of cbSetSolution (list of n floats), or None
  void* raw;          // the callback data itself (null outside a call)
};

PyTypeObject CallbackType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.CallbackClass"};
PyObject* g_modelmap = nullptr;  // {model handle address: Model or None}

CallbackObject* as_cb(PyObject* o) { return reinterpret_cast<CallbackObject*>(o); }

int cb_traverse(PyObject* self, visitproc visit, void* arg) {
  CallbackObject* c = as_cb(self);
  Py_VISIT(c->cbfunc);
  Py_VISIT(c->cbdata);
  Py_VISIT(c->sol);
  Py_VISIT(c->noderel);
  Py_VISIT(c->setsol);
  return 0;
}

int cb_clear(PyObject* self) {
  CallbackObject* c = as_cb(self);
  Py_CLEAR(c->cbfunc);
  Py_CLEAR(c->cbdata);
  Py_CLEAR(c->sol);
  Py_CLEAR(c->noderel);
  Py_CLEAR(c->setsol);
  return 0;
}

void cb_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  cb_clear(self);
  Py_TYPE(self)->tp_free(self);
}

// CallbackClass(model, cbfunc).
py::Ref callback_new(PyObject* model, PyObject* cbfunc) {
  int n = 0;
  int rc = VLMgetintattr(model_handle(model), "NumVars", &n);
  if (rc != 0) return py::Ref::steal(raise_velmor(rc, model));
  PyObject* o = PyType_GenericAlloc(&CallbackType, 0);
  if (o == nullptr) return py::Ref();
  CallbackObject* c = as_cb(o);
  c->cbfunc = py::new_ref(cbfunc);
  c->n = n;
  c->cbdata = py::none();
  c->where = -1;
  c->sol = py::none();
  c->noderel = py::none();
  c->setsol = py::none();
  c->raw = nullptr;
  return py::Ref::steal(o);
}

void set_field(PyObject*& field, PyObject* value) {
  PyObject* old = field;
  field = py::new_ref(value);
  Py_XDECREF(old);
}

// _solnow(): hands the partial solution to the library; returns its objective (None when
// nothing was pending).
PyObject* solnow(PyObject* self, PyObject* model) {
  CallbackObject* c = as_cb(self);
  if (c->setsol == Py_None) return py::none();
  py::Ref sol = py::Ref::borrow(c->setsol);
  set_field(c->setsol, Py_None);
  std::vector<double> x(c->n);
  for (int j = 0; j < c->n && j < PyList_GET_SIZE(sol.get()); ++j) x[j] = PyFloat_AsDouble(PyList_GET_ITEM(sol.get(), j));
  double obj = VLM_INFINITY;
  int rc = VLMcbsolution(c->raw, x.data(), &obj);
  if (rc != 0) return raise_velmor(rc, model);
  return PyFloat_FromDouble(obj);
}

PyObject* cb_solnow(PyObject* self, PyObject* model) { return solnow(self, model); }

// callback(model, cbdata, where): runs the user's function for one call of the library.
int run_callback(PyObject* self, PyObject* model, void* cbdata, int where) {
  CallbackObject* c = as_cb(self);
  py::Ref capsule = cbdata ? py::Ref::steal(PyCapsule_New(cbdata, "velmorpy.cbdata", nullptr)) : py::Ref::borrow(Py_None);
  if (!capsule) return -1;
  set_field(c->cbdata, capsule.get());
  c->raw = cbdata;
  c->where = where;
  set_field(c->sol, Py_None);
  set_field(c->noderel, Py_None);
  set_field(c->setsol, Py_None);
  py::Ref w = py::Ref::steal(PyLong_FromLong(where));
  py::Ref r = w ? py::Ref::steal(PyObject_CallFunctionObjArgs(c->cbfunc, model, w.get(), nullptr)) : py::Ref();
  int out = r ? 0 : -1;
  set_field(c->sol, Py_None);
  set_field(c->noderel, Py_None);
  if (out == 0) {
    py::Ref o = py::Ref::steal(solnow(self, model));
    if (!o) out = -1;
  }
  // The data is the library's for this call only: later cb* calls must not reach it.
  set_field(c->setsol, Py_None);
  set_field(c->cbdata, Py_None);
  c->raw = nullptr;
  c->where = -1;
  return out;
}

PyObject* cb_callback(PyObject* self, PyObject* args) {
  PyObject *model = nullptr, *cbdata = nullptr;
  int where = 0;
  if (!PyArg_ParseTuple(args, "OOi:callback", &model, &cbdata, &where)) return nullptr;
  void* raw = cbdata == Py_None ? nullptr : PyCapsule_GetPointer(cbdata, "velmorpy.cbdata");
  if (raw == nullptr && PyErr_Occurred()) return nullptr;
  if (run_callback(self, model, raw, where) < 0) return nullptr;
  return py::none();
}

PyMemberDef cb_members[] = {
    {"_CallbackClass__cbfunc", T_OBJECT, offsetof(CallbackObject, cbfunc), READONLY, "The user's function."},
    {"_n", T_INT, offsetof(CallbackObject, n), READONLY, "NumVars when the solve started."},
    {"_cbdata", T_OBJECT, offsetof(CallbackObject, cbdata), READONLY, "The library's data of the current call, or None."},
    {"_where", T_INT, offsetof(CallbackObject, where), READONLY, "The current where code (-1 outside a call)."},
    {"_sol", T_OBJECT, offsetof(CallbackObject, sol), READONLY, "The cached solution vector, or None."},
    {"_noderel", T_OBJECT, offsetof(CallbackObject, noderel), READONLY, "The cached node relaxation, or None."},
    {"_setsol", T_OBJECT, offsetof(CallbackObject, setsol), READONLY, "The partial solution being built, or None."},
    {nullptr, 0, 0, 0, nullptr}};

PyMethodDef cb_methods[] = {
    {"callback", py::guarded<&cb_callback>, METH_VARARGS,
     "callback($self, model, cbdata, where)\n--\n\nRuns the user's function for one call of the solver."},
    {"_solnow", py::guarded<&cb_solnow>, METH_O,
     "_solnow($self, model)\n--\n\nHands the solution built by cbSetSolution to the solver."},
    {nullptr, nullptr, 0, nullptr}};

// ---- the entry point the library calls --------------------------------------------------

py::Ref map_key(VLMmodel* h) { return py::Ref::steal(PyLong_FromVoidPtr(h)); }

int callbackstub(VLMmodel* model, void* cbdata, int where, void*) {
  PyGILState_STATE gil = PyGILState_Ensure();
  py::Ref key = map_key(model);
  PyObject* m = key && g_modelmap ? PyDict_GetItemWithError(g_modelmap, key.get()) : nullptr;
  if (m != nullptr && m != Py_None) {
    py::Ref keep = py::Ref::borrow(m);
    PyObject* cb = as_model(m)->callback;
    if (cb != nullptr && Py_IS_TYPE(cb, &CallbackType)) {
      py::Ref hold = py::Ref::borrow(cb);
      try {
        run_callback(cb, m, cbdata, where);
      } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
      } catch (...) {
        if (!PyErr_Occurred()) PyErr_SetString(PyExc_RuntimeError, "internal error in callback");
      }
    }
  }
  if (PyErr_Occurred()) {
    py::Ref name = py::Ref::steal(PyUnicode_FromString("velmorpy.callbackstub"));
    PyErr_WriteUnraisable(name.get());
  }
  PyGILState_Release(gil);
  return 0;
}

// ---- helpers of the cb* methods ------------------------------------------------------------

// The running callback object, or nullptr with VelmorError.
CallbackObject* running(PyObject* self) {
  PyObject* cb = as_model(self)->callback;
  if (cb == nullptr || !Py_IS_TYPE(cb, &CallbackType)) {
    raise_velmor_msg(VLM_ERROR_CALLBACK, "No callback is running: cb methods can only be called from a callback");
    return nullptr;
  }
  return as_cb(cb);
}

bool where_in(const CallbackObject* c, std::initializer_list<int> allowed) {
  for (int w : allowed) {
    if (c->where == w) return true;
  }
  return false;
}

// A vector of n doubles read with `what`, as a list.
py::Ref read_vector(CallbackObject* c, int what, const char* failure) {
  std::vector<double> x(c->n);
  int rc = c->raw ? VLMcbget(c->raw, c->where, what, x.data()) : VLM_ERROR_CALLBACK;
  if (rc != 0) return py::Ref::steal(raise_velmor_msg(rc, failure));
  py::Ref list = py::Ref::steal(PyList_New(c->n));
  if (!list) return list;
  for (int j = 0; j < c->n; ++j) {
    PyObject* f = PyFloat_FromDouble(x[j]);
    if (f == nullptr) return py::Ref();
    PyList_SET_ITEM(list.get(), j, f);
  }
  return list;
}

// The column of a Var of this model within the callback's vector, or -1 with an exception.
int column_of(PyObject* self, CallbackObject* c, PyObject* var) {
  if (handle_kind(var) != VLM_KIND_VAR) {
    py::raise(PyExc_TypeError, "Expected a Var");
    return -1;
  }
  int col = model_var_column(self, var);
  if (col < 0) return -1;
  if (col >= c->n) {
    raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, "Variable not in model");
    return -1;
  }
  return col;
}

// _map_coldata_to_vars(coldata, vars): a float, a list, a tupledict or an ndarray shaped like
// `vars`.
PyObject* map_coldata(PyObject* self, CallbackObject* c, PyObject* coldata, PyObject* vars) {
  if (handle_kind(vars) == VLM_KIND_VAR) {
    int col = column_of(self, c, vars);
    return col < 0 ? nullptr : py::new_ref(PyList_GET_ITEM(coldata, col));
  }
  if (expr_is_mvar(vars)) return PyObject_CallMethod(vars, "_indexed_data", "O", coldata);
  if (tupledict_check(vars)) {
    py::Ref out = tupledict_new_empty();
    if (!out) return nullptr;
    PyObject *k = nullptr, *v = nullptr;
    Py_ssize_t pos = 0;
    while (PyDict_Next(vars, &pos, &k, &v)) {
      int col = column_of(self, c, v);
      if (col < 0 || PyDict_SetItem(out.get(), k, PyList_GET_ITEM(coldata, col)) < 0) return nullptr;
    }
    return out.release();
  }
  py::Ref seq = py::Ref::steal(PySequence_Fast(vars, "Expected a Var, a list of Vars, an MVar or a tupledict"));
  if (!seq) return nullptr;
  Py_ssize_t n = PySequence_Fast_GET_SIZE(seq.get());
  py::Ref out = py::Ref::steal(PyList_New(n));
  if (!out) return nullptr;
  for (Py_ssize_t i = 0; i < n; ++i) {
    int col = column_of(self, c, PySequence_Fast_GET_ITEM(seq.get(), i));
    if (col < 0) return nullptr;
    PyList_SET_ITEM(out.get(), i, py::new_ref(PyList_GET_ITEM(coldata, col)));
  }
  return out.release();
}

const char kSolWhere[] = "where != VLM.Callback.MIP, VLM.Callback.MIPNODE, or VLM.Callback.MIPSOL";

// Stores value at var's column in _setsol.
bool store_value(PyObject* self, CallbackObject* c, PyObject* var, PyObject* value) {
  int col = column_of(self, c, var);
  if (col < 0) return false;
  double v = PyFloat_AsDouble(value);
  if (v == -1.0 && PyErr_Occurred()) return false;
  if (c->setsol == Py_None) {
    py::Ref list = py::Ref::steal(PyList_New(c->n));
    if (!list) return false;
    for (int j = 0; j < c->n; ++j) {
      PyObject* u = PyFloat_FromDouble(VLM_UNDEFINED);
      if (u == nullptr) return false;
      PyList_SET_ITEM(list.get(), j, u);
    }
    set_field(c->setsol, list.get());
  }
  PyObject* f = PyFloat_FromDouble(v);
  return f != nullptr && PyList_SetItem(c->setsol, col, f) == 0;
}

// ---- the cb* methods -----------------------------------------------------------------------

PyObject* model_cbget(PyObject* self, PyObject* arg) {
  CallbackObject* c = running(self);
  if (c == nullptr) return nullptr;
  long what = PyLong_AsLong(arg);
  if (what == -1 && PyErr_Occurred()) return nullptr;
  int type = 0, size = 0;
  int rc = VLMgetcbwhatinfo(model_handle(self), static_cast<int>(what), &type, &size);
  if (rc != 0) return raise_velmor(rc, self);
  if (what == VLM_CB_MIPSOL_SOL || what == VLM_CB_MIPNODE_REL || what == VLM_CB_MULTIOBJ_SOL) {
    return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT,
                            "cbGet cannot return a vector item: use cbGetSolution or cbGetNodeRel");
  }
  if (c->raw == nullptr) return raise_velmor_msg(VLM_ERROR_CALLBACK, "Callback error");
  auto failed = [&](int code) {
    const char* msg = VLMgetmerrormsg(model_handle(self));
    return raise_velmor_msg(code, msg != nullptr && *msg ? msg : "Callback error");
  };
  if (type == 1) {
    int v = 0;
    rc = VLMcbget(c->raw, c->where, static_cast<int>(what), &v);
    return rc != 0 ? failed(rc) : PyLong_FromLong(v);
  }
  if (type == 2) {
    double v = 0.0;
    rc = VLMcbget(c->raw, c->where, static_cast<int>(what), &v);
    return rc != 0 ? failed(rc) : PyFloat_FromDouble(v);
  }
  char* s = nullptr;
  rc = VLMcbget(c->raw, c->where, static_cast<int>(what), &s);
  return rc != 0 ? failed(rc) : PyUnicode_FromString(s != nullptr ? s : "");
}

PyObject* model_cbgetsolution(PyObject* self, PyObject* vars) {
  CallbackObject* c = running(self);
  if (c == nullptr) return nullptr;
  if (!where_in(c, {VLM_CB_MIPSOL, VLM_CB_MULTIOBJ})) return raise_velmor_msg(VLM_ERROR_CALLBACK, "where != VLM.Callback.MIPSOL");
  if (c->sol == Py_None) {
    py::Ref v = read_vector(c, c->where == VLM_CB_MIPSOL ? VLM_CB_MIPSOL_SOL : VLM_CB_MULTIOBJ_SOL,
                            "Failed to retrieve solution in callback");
    if (!v) return nullptr;
    set_field(c->sol, v.get());
  }
  py::Ref keep = py::Ref::borrow(c->sol);
  return map_coldata(self, c, keep.get(), vars);
}

PyObject* model_cbgetnoderel(PyObject* self, PyObject* vars) {
  CallbackObject* c = running(self);
  if (c == nullptr) return nullptr;
  if (c->where != VLM_CB_MIPNODE) return raise_velmor_msg(VLM_ERROR_CALLBACK, "where != VLM.Callback.MIPNODE");
  if (c->noderel == Py_None) {
    py::Ref v = read_vector(c, VLM_CB_MIPNODE_REL, "Node relaxation not available");
    if (!v) return nullptr;
    set_field(c->noderel, v.get());
  }
  py::Ref keep = py::Ref::borrow(c->noderel);
  return map_coldata(self, c, keep.get(), vars);
}

PyObject* model_cbsetsolution(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"vars", "solution", nullptr};
  PyObject *vars = nullptr, *solution = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO:cbSetSolution", const_cast<char**>(kwlist), &vars, &solution)) {
    return nullptr;
  }
  CallbackObject* c = running(self);
  if (c == nullptr) return nullptr;
  if (!where_in(c, {VLM_CB_MIP, VLM_CB_MIPNODE, VLM_CB_MIPSOL})) return raise_velmor_msg(VLM_ERROR_CALLBACK, kSolWhere);
  if (handle_kind(vars) == VLM_KIND_VAR) {
    if (!store_value(self, c, vars, solution)) return nullptr;
    return py::none();
  }
  if (PyDict_Check(vars)) {
    PyObject *k = nullptr, *v = nullptr;
    Py_ssize_t pos = 0;
    while (PyDict_Next(vars, &pos, &k, &v)) {
      py::Ref value = py::Ref::steal(PyObject_GetItem(solution, k));
      if (!value || !store_value(self, c, v, value.get())) return nullptr;
    }
    return py::none();
  }
  py::Ref flat_vars = expr_is_mvar(vars) ? py::Ref::steal(PyObject_CallMethod(vars, "tolist", nullptr)) : py::Ref::borrow(vars);
  if (!flat_vars) return nullptr;
  if (expr_is_mvar(vars)) {
    // An MVar's values come as an array of its shape: both are read flat.
    py::Ref flat = py::Ref::steal(PyObject_CallMethod(vars, "reshape", "i", -1));
    py::Ref list = flat ? py::Ref::steal(PyObject_CallMethod(flat.get(), "tolist", nullptr)) : py::Ref();
    py::Ref np = list ? py::Ref::steal(PyImport_ImportModule("numpy")) : py::Ref();
    py::Ref arr = np ? py::Ref::steal(PyObject_CallMethod(np.get(), "ravel", "O", solution)) : py::Ref();
    py::Ref vals = arr ? py::Ref::steal(PyObject_CallMethod(arr.get(), "tolist", nullptr)) : py::Ref();
    if (!vals) return nullptr;
    flat_vars = std::move(list);
    solution = vals.get();
    py::Ref sv = py::Ref::steal(PySequence_Fast(solution, "solution must be a sequence"));
    py::Ref vv = py::Ref::steal(PySequence_Fast(flat_vars.get(), "vars must be a sequence"));
    if (!sv || !vv) return nullptr;
    if (PySequence_Fast_GET_SIZE(sv.get()) != PySequence_Fast_GET_SIZE(vv.get())) {
      return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Variables and values must have the same length");
    }
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(vv.get()); ++i) {
      if (!store_value(self, c, PySequence_Fast_GET_ITEM(vv.get(), i), PySequence_Fast_GET_ITEM(sv.get(), i))) return nullptr;
    }
    return py::none();
  }
  py::Ref vv = py::Ref::steal(PySequence_Fast(vars, "vars must be a Var, a list of Vars, an MVar or a dict"));
  py::Ref sv = vv ? py::Ref::steal(PySequence_Fast(solution, "solution must be a sequence of numbers")) : py::Ref();
  if (!sv) return nullptr;
  if (PySequence_Fast_GET_SIZE(sv.get()) != PySequence_Fast_GET_SIZE(vv.get())) {
    return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Variables and values must have the same length");
  }
  for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(vv.get()); ++i) {
    if (!store_value(self, c, PySequence_Fast_GET_ITEM(vv.get(), i), PySequence_Fast_GET_ITEM(sv.get(), i))) return nullptr;
  }
  return py::none();
}

PyObject* model_cbusesolution(PyObject* self, PyObject*) {
  CallbackObject* c = running(self);
  if (c == nullptr) return nullptr;
  if (!where_in(c, {VLM_CB_MIP, VLM_CB_MIPNODE, VLM_CB_MIPSOL})) return raise_velmor_msg(VLM_ERROR_CALLBACK, kSolWhere);
  PyObject* cb = as_model(self)->callback;
  return solnow(cb, self);
}

// __cbCutOrLazy: lhs - rhs flattened onto this model's columns and handed to the library.
PyObject* cut_or_lazy(PyObject* self, PyObject* args, PyObject* kwds, bool is_cut) {
  static const char* kwlist[] = {"lhs", "sense", "rhs", nullptr};
  PyObject *lhs = nullptr, *sense = Py_None, *rhs = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, is_cut ? "O|OO:cbCut" : "O|OO:cbLazy", const_cast<char**>(kwlist), &lhs,
                                   &sense, &rhs)) {
    return nullptr;
  }
  CallbackObject* c = running(self);
  if (c == nullptr) return nullptr;
  if (is_cut ? c->where != VLM_CB_MIPNODE : !where_in(c, {VLM_CB_MIPNODE, VLM_CB_MIPSOL})) {
    return raise_velmor_msg(VLM_ERROR_CALLBACK, is_cut ? "where != VLM.Callback.MIPNODE"
                                                       : "where != VLM.Callback.MIPNODE or VLM.Callback.MIPSOL");
  }
  if (tempconstr_check(lhs)) {
    TempConstrObject* tc = as_tempconstr(lhs);
    lhs = tc->lhs;
    sense = tc->sense;
    rhs = tc->rhs;
  }
  char s = 0;
  if (PyUnicode_Check(sense) && PyUnicode_GET_LENGTH(sense) == 1) {
    Py_UCS4 ch = PyUnicode_READ_CHAR(sense, 0);
    if (ch == '<' || ch == '>' || ch == '=') s = static_cast<char>(ch);
  }
  if (s == 0) return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Invalid constraint sense (expected '<', '>' or '=')");
  py::Ref e = linexpr_new(0.0);
  if (!e) return nullptr;
  for (auto [part, mult] : {std::pair<PyObject*, double>{lhs, 1.0}, {rhs, -1.0}}) {
    if (part == Py_None) continue;
    int added = linexpr_add(e.get(), part, mult);
    if (added < 0) return nullptr;
    if (added == 0) return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Callback constraints must be linear");
  }
  linexpr_flatten(e.get());
  LinExprObject* le = as_linexpr(e.get());
  std::vector<int> ind;
  std::vector<double> val;
  for (const LinTerm& t : le->terms) {
    if (!model_has(self, t.var)) return raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, "Variable not in model");
    int col = model_var_column(self, t.var);
    if (col < 0) return nullptr;
    ind.push_back(col);
    val.push_back(t.coeff);
  }
  int len = static_cast<int>(ind.size());
  int rc = VLMclean2(&len, ind.data(), val.data());
  if (rc == 0) {
    rc = is_cut ? VLMcbcut(c->raw, len, ind.data(), val.data(), s, -le->constant)
                : VLMcblazy(c->raw, len, ind.data(), val.data(), s, -le->constant);
  }
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

PyObject* model_cbcut(PyObject* self, PyObject* args, PyObject* kwds) { return cut_or_lazy(self, args, kwds, true); }
PyObject* model_cblazy(PyObject* self, PyObject* args, PyObject* kwds) { return cut_or_lazy(self, args, kwds, false); }

PyObject* model_cbproceed(PyObject* self, PyObject*) {
  CallbackObject* c = running(self);
  if (c == nullptr) return nullptr;
  int rc = c->raw ? VLMcbproceed(c->raw) : VLM_ERROR_CALLBACK;
  if (rc != 0) return raise_velmor_msg(rc, "Callback error");
  return py::none();
}

PyObject* model_cbstoponemultiobj(PyObject* self, PyObject* arg) {
  CallbackObject* c = running(self);
  if (c == nullptr) return nullptr;
  long k = PyLong_AsLong(arg);
  if (k == -1 && PyErr_Occurred()) return nullptr;
  int rc = c->raw ? VLMcbstoponemultiobj(model_handle(self), c->raw, static_cast<int>(k)) : VLM_ERROR_CALLBACK;
  if (rc != 0) return c->raw ? raise_velmor(rc, self) : raise_velmor_msg(rc, "Callback error");
  return py::none();
}

// Whether a code object (or one nested in its constants: inner functions, comprehensions) names
// one of the things only the branch-and-cut search provides: MIPNODE calls, cuts, node
// relaxations. Helpers the function calls are not looked into.
bool names_search_features(PyObject* code, int depth = 0) {
  if (code == nullptr || !PyCode_Check(code) || depth > 8) return false;
  py::Ref names = py::Ref::steal(PyObject_GetAttrString(code, "co_names"));
  if (!names) {
    PyErr_Clear();
    return false;
  }
  for (Py_ssize_t i = 0; PyTuple_Check(names.get()) && i < PyTuple_GET_SIZE(names.get()); ++i) {
    const char* n = PyUnicode_AsUTF8(PyTuple_GET_ITEM(names.get(), i));
    if (n == nullptr) {
      PyErr_Clear();
      continue;
    }
    if (std::strcmp(n, "cbCut") == 0 || std::strcmp(n, "cbGetNodeRel") == 0 || std::strcmp(n, "MIPNODE") == 0) return true;
  }
  py::Ref consts = py::Ref::steal(PyObject_GetAttrString(code, "co_consts"));
  if (!consts) {
    PyErr_Clear();
    return false;
  }
  for (Py_ssize_t i = 0; PyTuple_Check(consts.get()) && i < PyTuple_GET_SIZE(consts.get()); ++i) {
    if (names_search_features(PyTuple_GET_ITEM(consts.get(), i), depth + 1)) return true;
  }
  return false;
}

}  // namespace

int model_solve_with_callback(PyObject* self, PyObject* callback, int (*call)(VLMmodel*)) {
  ModelObject* m = as_model(self);
  if (callback == Py_None) {
    Py_CLEAR(m->callback);
    return model_run_released(self, true, call);
  }
  if (!PyFunction_Check(callback)) {
    raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Callback argument must be a function");
    return -1;
  }
  py::Ref cb = callback_new(self, callback);
  if (!cb) return -1;
  py::assign(m->callback, cb.get());
  py::Ref key = map_key(m->handle);
  if (!key || PyDict_SetItem(g_modelmap, key.get(), self) < 0) return -1;
  const bool search = names_search_features(PyFunction_GetCode(callback));
  int rc = VLMsetcallbackfuncsearch(m->handle, callbackstub, nullptr, search ? 1 : 0);
  int out = 0;
  if (rc != 0) {
    raise_velmor(rc, self);
    out = -1;
  } else {
    out = model_run_released(self, true, call);
  }
  // Clean-up, whatever happened: the map entry and the registration go.
  PyObject *type = nullptr, *value = nullptr, *tb = nullptr;
  PyErr_Fetch(&type, &value, &tb);
  if (PyDict_SetItem(g_modelmap, key.get(), Py_None) < 0) PyErr_Clear();
  if (m->handle != nullptr) {
    int undo = VLMsetcallbackfunc(m->handle, nullptr, nullptr);
    (void)undo;  // fails only for a null handle, excluded above
  }
  PyErr_Restore(type, value, tb);
  return out;
}

PyMethodDef model_callback_methods[] = {
    {"cbGet", py::guarded<&model_cbget>, METH_O,
     "cbGet($self, what)\n--\n\nThe progress value `what` (a VLM.Callback what code of the current where) inside a\n"
     "callback: an int, a float or a string. Vector items are read with cbGetSolution and cbGetNodeRel."},
    {"cbGetSolution", py::guarded<&model_cbgetsolution>, METH_O,
     "cbGetSolution($self, vars)\n--\n\nThe values of the new solution (MIPSOL) or of the objective level's solution\n"
     "(MULTIOBJ) for vars: a Var gives a float, a list a list, a tupledict a tupledict, an MVar an ndarray."},
    {"cbGetNodeRel", py::guarded<&model_cbgetnoderel>, METH_O,
     "cbGetNodeRel($self, vars)\n--\n\nThe values of the current node's relaxation (MIPNODE) for vars, shaped like vars."},
    {"cbSetSolution", (PyCFunction)(void (*)(void))py::guarded<&model_cbsetsolution>, METH_VARARGS | METH_KEYWORDS,
     "cbSetSolution($self, vars, solution)\n--\n\nGives values to vars (a Var and a number, lists of equal length, or a\n"
     "dict whose keys pick the values) for a heuristic solution, handed to the solver when the callback returns\n"
     "(or at once by cbUseSolution). Allowed at MIP, MIPNODE and MIPSOL."},
    {"cbUseSolution", py::guarded<&model_cbusesolution>, METH_NOARGS,
     "cbUseSolution($self)\n--\n\nHands the solution built by cbSetSolution to the solver now; returns its objective\n"
     "(VLM.INFINITY while some values are unset, None when there was nothing to hand over)."},
    {"cbCut", (PyCFunction)(void (*)(void))py::guarded<&model_cbcut>, METH_VARARGS | METH_KEYWORDS,
     "cbCut($self, lhs, sense=None, rhs=None)\n--\n\nAdds a user cut (a TempConstr, or lhs, sense, rhs) at MIPNODE."},
    {"cbLazy", (PyCFunction)(void (*)(void))py::guarded<&model_cblazy>, METH_VARARGS | METH_KEYWORDS,
     "cbLazy($self, lhs, sense=None, rhs=None)\n--\n\nAdds a lazy constraint (a TempConstr, or lhs, sense, rhs) at MIPNODE\n"
     "or MIPSOL; no solution reported violates it. Set the LazyConstraints parameter to 1 first."},
    {"cbProceed", py::guarded<&model_cbproceed>, METH_NOARGS,
     "cbProceed($self)\n--\n\nAsks the solver to move on from its current phase."},
    {"cbStopOneMultiObj", py::guarded<&model_cbstoponemultiobj>, METH_O,
     "cbStopOneMultiObj($self, objnum)\n--\n\nEnds objective level objnum of a multi-objective solve and goes on with the next."},
    {nullptr, nullptr, 0, nullptr}};

int register_model_callback(PyObject* m) {
  CallbackType.tp_basicsize = sizeof(CallbackObject);
  CallbackType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC;
  CallbackType.tp_doc = "The callback object of one optimize(callback) call: the user's function and the state of the current call.";
  CallbackType.tp_dealloc = cb_dealloc;
  CallbackType.tp_traverse = cb_traverse;
  CallbackType.tp_clear = cb_clear;
  CallbackType.tp_members = cb_members;
  CallbackType.tp_methods = cb_methods;
  if (PyType_Ready(&CallbackType) < 0) return -1;
  g_modelmap = PyDict_New();
  if (g_modelmap == nullptr) return -1;
  Py_INCREF(g_modelmap);
  return PyModule_AddObject(m, "__modelmap", g_modelmap);
}
