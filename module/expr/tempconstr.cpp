// TempConstr (see tempconstr.h).
#include "expr/tempconstr.h"

#include <structmember.h>

#include "expr/genexpr.h"
#include "expr/linexpr.h"
#include "core/py_error.h"
#include "expr/quadexpr.h"
#include "elements/var.h"

PyTypeObject TempConstrType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.TempConstr"};

namespace {

PyObject* g_senses[4] = {};  // "<", ">", "=", "I"

PyObject* sense_str(char sense) {
  switch (sense) {
    case '<':
      return g_senses[0];
    case '>':
      return g_senses[1];
    case '=':
      return g_senses[2];
    default:
      return g_senses[3];
  }
}

// Builds the object from the sides as they are to be stored.
py::Ref make(PyTypeObject* type, PyObject* lhs, PyObject* sense, PyObject* rhs) {
  PyObject* self = type == &TempConstrType ? reinterpret_cast<PyObject*>(PyObject_GC_New(TempConstrObject, type))
                                           : type->tp_alloc(type, 0);
  if (self == nullptr) return py::Ref();
  TempConstrObject* t = as_tempconstr(self);
  t->lhs = py::new_ref(lhs);
  t->sense = py::new_ref(sense);
  t->rhs = py::new_ref(rhs);
  if (type == &TempConstrType) PyObject_GC_Track(self);
  return py::Ref::steal(self);
}

// The constructor's rules for matrix operands: an MVar equated with a general expression
// stands for its single variable; any other matrix side moves everything to the left.
py::Ref build(PyTypeObject* type, PyObject* lhs, PyObject* sense, PyObject* rhs) {
  if (expr_is_mvar(lhs) && genexpr_check(rhs)) {
    // An MVar of several variables stays whole: the general constraint takes its matrix form.
    py::Ref size = py::Ref::steal(PyObject_GetAttrString(lhs, "size"));
    if (!size) PyErr_Clear();  // an array-like without a size: taken as one variable
    if (size && PyLong_AsSsize_t(size.get()) != 1) return make(type, lhs, sense, rhs);
    py::Ref item = py::Ref::steal(PyObject_CallMethod(lhs, "item", nullptr));
    if (!item) return item;
    py::Ref lin = linexpr_new();
    if (!lin || linexpr_add(lin.get(), item.get(), 1.0) < 0) return py::Ref();
    return make(type, lin.get(), sense, rhs);
  }
  if (expr_is_matrix(lhs) || expr_is_matrix(rhs)) {
    py::Ref diff = py::Ref::steal(PyNumber_Subtract(lhs, rhs));
    if (!diff) return diff;
    py::Ref zero = py::Ref::steal(PyFloat_FromDouble(0.0));
    if (!zero) return zero;
    return make(type, diff.get(), sense, zero.get());
  }
  return make(type, lhs, sense, rhs);
}

PyObject* tc_new(PyTypeObject* type, PyObject* args, PyObject* kwds) {
  if (kwds != nullptr && PyDict_GET_SIZE(kwds) != 0) return py::raise(PyExc_TypeError, "TempConstr() takes no keyword arguments");
  if (PyTuple_GET_SIZE(args) != 3) {
    return PyErr_Format(PyExc_TypeError, "TempConstr() takes exactly 3 arguments (%zd given)", PyTuple_GET_SIZE(args));
  }
  return build(type, PyTuple_GET_ITEM(args, 0), PyTuple_GET_ITEM(args, 1), PyTuple_GET_ITEM(args, 2)).release();
}

int tc_traverse(PyObject* self, visitproc visit, void* arg) {
  TempConstrObject* t = as_tempconstr(self);
  Py_VISIT(t->lhs);
  Py_VISIT(t->sense);
  Py_VISIT(t->rhs);
  return 0;
}

int tc_clear(PyObject* self) {
  TempConstrObject* t = as_tempconstr(self);
  Py_CLEAR(t->lhs);
  Py_CLEAR(t->sense);
  Py_CLEAR(t->rhs);
  return 0;
}

void tc_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  // Indicator constraints nest; a long chain of `>>` releases iteratively.
  Py_TRASHCAN_BEGIN(self, tc_dealloc)
  tc_clear(self);
  Py_TYPE(self)->tp_free(self);
  Py_TRASHCAN_END
}

bool sense_is(PyObject* sense, const char* text) {
  return PyUnicode_Check(sense) && PyUnicode_CompareWithASCIIString(sense, text) == 0;
}

PyObject* tc_repr(PyObject* self) {
  TempConstrObject* t = as_tempconstr(self);
  const char* op = sense_is(t->sense, "<") ? " <= " : sense_is(t->sense, ">") ? " >= " : " == ";
  return PyUnicode_FromFormat("<velmor.TempConstr: %S%s%S>", t->lhs, op, t->rhs);
}

// `cond >> constr`: an indicator; Model.addConstr checks both sides.
PyObject* tc_rshift(PyObject* a, PyObject* b) {
  if (!tempconstr_check(a)) return py::new_ref(Py_NotImplemented);
  return make(&TempConstrType, a, g_senses[3], b).release();
}

int tc_bool(PyObject*) {
  raise_velmor_msg(0, "Constraint has no bool value (are you trying \"lb <= expr <= ub\"?)");
  return -1;
}

PyObject* tc_nonzero(PyObject* self, PyObject*) {
  int r = tc_bool(self);
  return r < 0 ? nullptr : py::boolean(r != 0);
}

// Only <= and >= are refused; == and != keep Python's identity comparison.
PyObject* tc_richcompare(PyObject*, PyObject*, int op) {
  if (op == Py_LE || op == Py_GE) return raise_velmor_msg(0, "Constraint comparison not implemented");
  return py::new_ref(Py_NotImplemented);
}

PyNumberMethods tc_as_number = {
    .nb_bool = tc_bool,
    .nb_rshift = py::guarded<&tc_rshift>,
};

PyMemberDef tc_members[] = {
    {"_lhs", T_OBJECT, offsetof(TempConstrObject, lhs), READONLY, "The left side."},
    {"_sense", T_OBJECT, offsetof(TempConstrObject, sense), READONLY,
     "The sense: '<', '>', '=', or 'I' for an indicator."},
    {"_rhs", T_OBJECT, offsetof(TempConstrObject, rhs), READONLY, "The right side."},
    {nullptr, 0, 0, 0, nullptr}};

PyMethodDef tc_methods[] = {
    {"__nonzero__", py::guarded<&tc_nonzero>, METH_NOARGS, "Same as __bool__: always raises."},
    {nullptr, nullptr, 0, nullptr}};

const char tc_doc[] =
    "TempConstr(lhs, sense, rhs)\n--\n\n"
    "A constraint not yet added to a model: the result of a comparison such as x + y <= 3\n"
    "or x == max_(y, z), and of cond >> constr for an indicator constraint. Pass it to\n"
    "Model.addConstr. A TempConstr has no truth value, so 'lb <= expr <= ub' does not work:\n"
    "use Model.addRange for ranges.";

}  // namespace

py::Ref tempconstr_new(PyObject* lhs, char sense, PyObject* rhs) {
  // The usual sides need no matrix checks.
  auto plain = [](PyObject* o) {
    PyTypeObject* t = Py_TYPE(o);
    return t == &PyFloat_Type || t == &PyLong_Type || t == &LinExprType || t == &QuadExprType || var_check(o);
  };
  if (plain(lhs) && plain(rhs)) return make(&TempConstrType, lhs, sense_str(sense), rhs);
  return build(&TempConstrType, lhs, sense_str(sense), rhs);
}

int register_tempconstr(PyObject* m) {
  const char* texts[] = {"<", ">", "=", "I"};
  for (int i = 0; i < 4; ++i) {
    g_senses[i] = PyUnicode_InternFromString(texts[i]);
    if (g_senses[i] == nullptr) return -1;
  }
  TempConstrType.tp_basicsize = sizeof(TempConstrObject);
  TempConstrType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  TempConstrType.tp_doc = tc_doc;
  TempConstrType.tp_new = py::guarded<&tc_new>;
  TempConstrType.tp_dealloc = tc_dealloc;
  TempConstrType.tp_traverse = tc_traverse;
  TempConstrType.tp_clear = tc_clear;
  TempConstrType.tp_free = PyObject_GC_Del;
  TempConstrType.tp_repr = py::guarded<&tc_repr>;
  TempConstrType.tp_hash = expr_identity_hash;
  TempConstrType.tp_richcompare = py::guarded<&tc_richcompare>;
  TempConstrType.tp_as_number = &tc_as_number;
  TempConstrType.tp_members = tc_members;
  TempConstrType.tp_methods = tc_methods;
  if (PyType_Ready(&TempConstrType) < 0) return -1;
  Py_INCREF(&TempConstrType);
  if (PyModule_AddObject(m, "TempConstr", reinterpret_cast<PyObject*>(&TempConstrType)) < 0) {
    Py_DECREF(&TempConstrType);
    return -1;
  }
  return 0;
}
