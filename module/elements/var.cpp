// Var: the handle of one variable. Besides the shared handle behaviour it has its display
// state (_safename), repr and hash; the arithmetic and comparison operators that build
// expressions belong with LinExpr.
#include "elements/var.h"

#include <cstdint>

#include "core/py_error.h"
#include "core/registry.h"

PyTypeObject VarType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.Var"};

namespace {

const char kAwaiting[] = "*Awaiting Model Update*";

PyObject* var_safename_method(PyObject* self, PyObject*) {
  VarDisplay d;
  if (!var_safename(self, &d)) return nullptr;
  return Py_BuildValue("(OOO)", d.name.get(), d.pending ? Py_True : Py_False, d.removed ? Py_True : Py_False);
}

PyObject* var_repr(PyObject* self) {
  VarDisplay d;
  if (!var_safename(self, &d)) return nullptr;
  if (d.removed) return PyUnicode_FromFormat("<velmor.Var %U (Removed)>", d.name.get());
  if (d.pending) return PyUnicode_FromFormat("<velmor.Var %U>", d.name.get());
  int solcount = 0;
  if (handle_model_count(self, "SolCount", &solcount) < 0) return nullptr;
  if (solcount <= 0) return PyUnicode_FromFormat("<velmor.Var %U>", d.name.get());
  double x = 0;
  HandleObject* h = as_handle(self);
  int rc = VLMgetdblattrelement(handle_cmodel(self), "X", handle_position(h->index), &x);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref value = py::Ref::steal(PyFloat_FromDouble(x));
  if (!value) return nullptr;
  return PyUnicode_FromFormat("<velmor.Var %U (value %S)>", d.name.get(), value.get());
}

// Hash of (model, position) so that two handles of one variable hash alike; no library call.
Py_hash_t var_hash(PyObject* self) {
  HandleObject* h = as_handle(self);
  if (h->index == kIndexPending) {
    raise_velmor_msg(0, "Variable has not yet been added to the model");
    return -1;
  }
  if (h->index == kIndexRemoved) {
    raise_velmor_msg(0, "Variable was removed from the model");
    return -1;
  }
  auto model = static_cast<Py_uhash_t>(reinterpret_cast<std::uintptr_t>(h->core) >> 4);
  Py_uhash_t x = static_cast<Py_uhash_t>(handle_position(h->index)) * 1000003u ^ model;
  Py_hash_t result = static_cast<Py_hash_t>(x);
  return result == -1 ? -2 : result;
}

PyObject* var_numcols(PyObject* self, PyObject*) {
  int n = 0;
  if (handle_model_count(self, "NumVars", &n) < 0) return nullptr;
  return PyLong_FromLong(n);
}

PyMethodDef var_methods[] = {
    {"_safename", py::guarded<&var_safename_method>, METH_NOARGS,
     "_safename($self)\n--\n\nReturns (name, is_pending, is_removed): the name shown for the variable\n"
     "('*Awaiting Model Update*' or '*Removed*' when it has none yet or any more)."},
    {"__numcols__", py::guarded<&var_numcols>, METH_NOARGS,
     "__numcols__($self)\n--\n\nThe model's current number of variables (NumVars)."},
    {nullptr, nullptr, 0, nullptr}};

const char var_doc[] =
    "Var(cmodel, colno)\n--\n\n"
    "A variable of a model. Variables are created by Model.addVar and Model.addVars, not\n"
    "directly. Library attributes read and write as Python attributes:\n\n"
    "    x.LB = 0.0; x.UB = 4.0; print(x.VarName, x.X)\n\n"
    "Names that begin with '_' are stored on the object and never reach the library.\n"
    "Comparisons (<=, >=, ==) build constraints; use sameAs to compare two handles.";

}  // namespace

bool var_safename(PyObject* var, VarDisplay* out) {
  int index = as_handle(var)->index;
  out->pending = false;
  out->removed = false;
  if (index == kIndexPending) {
    out->name = py::str(kAwaiting);
    out->pending = true;
    return static_cast<bool>(out->name);
  }
  if (index >= 0) {
    int numvars = 0;
    if (handle_model_count(var, "NumVars", &numvars) < 0) return false;
    if (index >= numvars) {
      out->name = py::str(kAwaiting);
      out->pending = true;
      return static_cast<bool>(out->name);
    }
  }
  if (index == kIndexRemoved) {
    out->name = py::str("*Removed*");
    out->removed = true;
    return static_cast<bool>(out->name);
  }
  out->name = handle_name_attr(var, "VarName");
  if (index < kIndexRemoved) {
    out->pending = true;
    out->removed = true;
  }
  return static_cast<bool>(out->name);
}

PyTypeObject* var_type_object() { return &VarType; }

int register_var(PyObject* m) {
  VarType.tp_hash = py::guarded<&var_hash>;
  if (VarType.tp_as_number == nullptr) {  // installed by register_var_ops (expr/var_ops.cpp)
    PyErr_SetString(PyExc_SystemError, "the Var operators must be installed before Var is registered");
    return -1;
  }
  HandleClass cls{VLM_KIND_VAR, "_colno", var_doc, py::guarded<&var_repr>, var_methods};
  return handle_register(m, &VarType, cls);
}
