// General expressions (see genexpr.h): one base class and six subclasses that differ only in
// their field names, repr and the Model method that adds them.
#include "expr/genexpr.h"

#include <structmember.h>

#include "expr/linexpr.h"
#include "core/py_error.h"
#include "velmor_c.h"

PyTypeObject GenExprType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.GenExpr"};

namespace {

struct GenExprObject {
  PyObject_HEAD
  PyObject* first;   // argvar or argvars
  PyObject* second;  // constant or which; nullptr for the one- and list-argument kinds
  PyObject* dict;
};

GenExprObject* as_genexpr(PyObject* o) { return reinterpret_cast<GenExprObject*>(o); }

PyTypeObject AbsType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.GenExprAbs"};
PyTypeObject AndType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.GenExprAnd"};
PyTypeObject OrType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.GenExprOr"};
PyTypeObject MaxType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.GenExprMax"};
PyTypeObject MinType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.GenExprMin"};
PyTypeObject NormType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.GenExprNorm"};

#define MEMBER(name, field, doc) {name, T_OBJECT_EX, offsetof(GenExprObject, field), 0, doc}
PyMemberDef abs_members[] = {MEMBER("argvar", first, "The argument variable."), {nullptr, 0, 0, 0, nullptr}};
PyMemberDef list_members[] = {MEMBER("argvars", first, "The argument variables."), {nullptr, 0, 0, 0, nullptr}};
PyMemberDef const_members[] = {MEMBER("argvars", first, "The argument variables."),
                               MEMBER("constant", second, "The constant operand, or None."),
                               {nullptr, 0, 0, 0, nullptr}};
PyMemberDef norm_members[] = {MEMBER("argvars", first, "The argument variables."),
                              MEMBER("which", second, "Which norm: 0, 1, 2 or infinity."),
                              {nullptr, 0, 0, 0, nullptr}};
#undef MEMBER

struct Kind {
  PyTypeObject* type;
  const char* name;    // class name
  int nfields;         // 1 or 2
  const char* method;  // the Model method that adds it
  PyMemberDef* members;
  const char* doc;
};

const Kind kKinds[] = {
    {&AbsType, "GenExprAbs", 1, "addGenConstrAbs", abs_members,
     "GenExprAbs(argvar)\n--\n\nabs_(argvar): the absolute value of a variable."},
    {&AndType, "GenExprAnd", 1, "addGenConstrAnd", list_members,
     "GenExprAnd(argvars)\n--\n\nand_(*args): the logical 'and' of binary variables."},
    {&OrType, "GenExprOr", 1, "addGenConstrOr", list_members,
     "GenExprOr(argvars)\n--\n\nor_(*args): the logical 'or' of binary variables."},
    {&MaxType, "GenExprMax", 2, "addGenConstrMax", const_members,
     "GenExprMax(argvars, constant)\n--\n\nmax_(*args, constant=None): the maximum of variables and a constant."},
    {&MinType, "GenExprMin", 2, "addGenConstrMin", const_members,
     "GenExprMin(argvars, constant)\n--\n\nmin_(*args, constant=None): the minimum of variables and a constant."},
    {&NormType, "GenExprNorm", 2, "addGenConstrNorm", norm_members,
     "GenExprNorm(argvars, which)\n--\n\nnorm(argvars, which): the norm of a vector of variables."},
};

const Kind* kind_of(PyTypeObject* type) {
  for (const Kind& k : kKinds) {
    if (PyType_IsSubtype(type, k.type)) return &k;
  }
  return nullptr;
}

PyObject* invalid(const char* message) { return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message); }

py::Ref make(PyTypeObject* type, PyObject* first, PyObject* second) {
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return py::Ref();
  GenExprObject* g = as_genexpr(self);
  g->first = first ? py::new_ref(first) : nullptr;
  g->second = second ? py::new_ref(second) : nullptr;
  return py::Ref::steal(self);
}

// GenExprMax(argvars, constant) and the like: exactly the fields, positionally.
PyObject* ge_new(PyTypeObject* type, PyObject* args, PyObject* kwds) {
  const Kind* k = kind_of(type);
  int n = k ? k->nfields : 0;
  const char* name = k ? k->name : "GenExpr";
  if (kwds != nullptr && PyDict_GET_SIZE(kwds) != 0) return PyErr_Format(PyExc_TypeError, "%s() takes no keyword arguments", name);
  if (PyTuple_GET_SIZE(args) != n) {
    return PyErr_Format(PyExc_TypeError, "%s() takes exactly %d argument%s (%zd given)", name, n, n == 1 ? "" : "s",
                        PyTuple_GET_SIZE(args));
  }
  return make(type, n > 0 ? PyTuple_GET_ITEM(args, 0) : nullptr, n > 1 ? PyTuple_GET_ITEM(args, 1) : nullptr).release();
}

int ge_traverse(PyObject* self, visitproc visit, void* arg) {
  GenExprObject* g = as_genexpr(self);
  Py_VISIT(g->first);
  Py_VISIT(g->second);
  Py_VISIT(g->dict);
  return 0;
}

int ge_clear(PyObject* self) {
  GenExprObject* g = as_genexpr(self);
  Py_CLEAR(g->first);
  Py_CLEAR(g->second);
  Py_CLEAR(g->dict);
  return 0;
}

void ge_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  ge_clear(self);
  Py_TYPE(self)->tp_free(self);
}

PyObject* field(PyObject* o) { return o ? o : Py_None; }

PyObject* ge_repr(PyObject* self) {
  GenExprObject* g = as_genexpr(self);
  const Kind* k = kind_of(Py_TYPE(self));
  if (k == nullptr) return PyUnicode_FromString("<velmor.GenExpr>");
  if (k->type == &NormType) return PyUnicode_FromFormat("<velmor.GenExprNorm-%S: (%S)>", field(g->second), field(g->first));
  if (k->nfields == 2) {
    return PyUnicode_FromFormat("<velmor.%s: (%S), constant=%S>", k->name, field(g->first), field(g->second));
  }
  return PyUnicode_FromFormat("<velmor.%s: (%S)>", k->name, field(g->first));
}

// A general expression stands only on the right of `var == ...`.
PyObject* ge_richcompare(PyObject*, PyObject*, int op) {
  if (op == Py_EQ || op == Py_NE) {
    return invalid("General expressions can only be the right hand side part of an assignment to a single variable");
  }
  return py::new_ref(Py_NotImplemented);
}

PyObject* ge_addasconstr(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"model", "resvar", "name", nullptr};
  PyObject* model = nullptr;
  PyObject* resvar = nullptr;
  PyObject* name = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO|O:_addAsConstr", const_cast<char**>(kwlist), &model, &resvar, &name)) {
    return nullptr;
  }
  const Kind* k = kind_of(Py_TYPE(self));
  if (k == nullptr) return py::raise(PyExc_TypeError, "a plain GenExpr cannot be added to a model");
  py::Ref empty;
  if (name == nullptr) {
    empty = py::Ref::steal(PyUnicode_FromString(""));
    if (!empty) return nullptr;
    name = empty.get();
  }
  GenExprObject* g = as_genexpr(self);
  py::Ref method = py::Ref::steal(PyObject_GetAttrString(model, k->method));
  if (!method) return nullptr;
  if (k->nfields == 2) return PyObject_CallFunctionObjArgs(method.get(), resvar, field(g->first), field(g->second), name, nullptr);
  return PyObject_CallFunctionObjArgs(method.get(), resvar, field(g->first), name, nullptr);
}

PyMethodDef ge_methods[] = {
    {"_addAsConstr", (PyCFunction)(void (*)(void))py::guarded<&ge_addasconstr>, METH_VARARGS | METH_KEYWORDS,
     "_addAsConstr($self, model, resvar, name='')\n--\n\nAdds the general constraint resvar == this expression\n"
     "through the Model's matching addGenConstr... method; returns its GenConstr."},
    {nullptr, nullptr, 0, nullptr}};

// ---- module functions ------------------------------------------------------------------------

PyObject* concat_fn(PyObject*, PyObject* args) { return genexpr_concat_args(args).release(); }

PyObject* abs_fn(PyObject*, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"argvar", nullptr};
  PyObject* argvar = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O:abs_", const_cast<char**>(kwlist), &argvar)) return nullptr;
  return make(&AbsType, argvar, nullptr).release();
}

PyObject* list_kind(PyTypeObject* type, PyObject* args) {
  py::Ref list = genexpr_concat_args(args);
  if (!list) return nullptr;
  return make(type, list.get(), nullptr).release();
}

PyObject* and_fn(PyObject*, PyObject* args) { return list_kind(&AndType, args); }
PyObject* or_fn(PyObject*, PyObject* args) { return list_kind(&OrType, args); }

PyObject* const_kind(PyTypeObject* type, const char* fname, PyObject* args, PyObject* kwds) {
  PyObject* constant = Py_None;
  if (kwds != nullptr) {
    PyObject *key, *value;
    Py_ssize_t pos = 0;
    while (PyDict_Next(kwds, &pos, &key, &value)) {
      if (!PyUnicode_Check(key) || PyUnicode_CompareWithASCIIString(key, "constant") != 0) {
        return PyErr_Format(PyExc_TypeError, "%s() got an unexpected keyword argument '%S'", fname, key);
      }
      constant = value;
    }
  }
  py::Ref list = genexpr_concat_args(args);
  if (!list) return nullptr;
  return make(type, list.get(), constant).release();
}

PyObject* max_fn(PyObject*, PyObject* args, PyObject* kwds) { return const_kind(&MaxType, "max_", args, kwds); }
PyObject* min_fn(PyObject*, PyObject* args, PyObject* kwds) { return const_kind(&MinType, "min_", args, kwds); }

PyObject* norm_fn(PyObject*, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"argvars", "which", nullptr};
  PyObject* argvars = nullptr;
  PyObject* which = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO:norm", const_cast<char**>(kwlist), &argvars, &which)) return nullptr;
  return make(&NormType, argvars, which).release();
}

PyMethodDef module_functions[] = {
    {"abs_", (PyCFunction)(void (*)(void))py::guarded<&abs_fn>, METH_VARARGS | METH_KEYWORDS,
     "abs_(argvar)\n--\n\nReturn expression for the absolute value of argvar"},
    {"and_", py::guarded<&and_fn>, METH_VARARGS,
     "and_(*args)\n--\n\nReturn expression for logical 'and'"},
    {"or_", py::guarded<&or_fn>, METH_VARARGS, "or_(*args)\n--\n\nReturn expression for logical 'or'"},
    {"max_", (PyCFunction)(void (*)(void))py::guarded<&max_fn>, METH_VARARGS | METH_KEYWORDS,
     "max_(*args, constant=None)\n--\n\nReturn expression for maximum"},
    {"min_", (PyCFunction)(void (*)(void))py::guarded<&min_fn>, METH_VARARGS | METH_KEYWORDS,
     "min_(*args, constant=None)\n--\n\nReturn expression for minimum"},
    {"norm", (PyCFunction)(void (*)(void))py::guarded<&norm_fn>, METH_VARARGS | METH_KEYWORDS,
     "norm(argvars, which)\n--\n\nReturn expression for norm of a vector"},
    {"_special_gcargs_concat", py::guarded<&concat_fn>, METH_O,
     "_special_gcargs_concat(args)\n--\n\nThe arguments as one list; a tupledict contributes its values."},
    {nullptr, nullptr, 0, nullptr}};

int ready(PyTypeObject* type, PyTypeObject* base, const char* doc, PyMemberDef* members) {
  type->tp_basicsize = sizeof(GenExprObject);
  type->tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  type->tp_doc = doc;
  type->tp_base = base;
  type->tp_new = py::guarded<&ge_new>;
  type->tp_dealloc = ge_dealloc;
  type->tp_traverse = ge_traverse;
  type->tp_clear = ge_clear;
  type->tp_free = PyObject_GC_Del;
  type->tp_repr = py::guarded<&ge_repr>;
  type->tp_hash = expr_identity_hash;
  type->tp_richcompare = py::guarded<&ge_richcompare>;
  type->tp_dictoffset = offsetof(GenExprObject, dict);
  type->tp_members = members;
  if (base == nullptr) type->tp_methods = ge_methods;
  return PyType_Ready(type);
}

int add_type(PyObject* m, PyTypeObject* type, const char* name) {
  Py_INCREF(type);
  if (PyModule_AddObject(m, name, reinterpret_cast<PyObject*>(type)) < 0) {
    Py_DECREF(type);
    return -1;
  }
  return 0;
}

}  // namespace

py::Ref genexpr_concat_args(PyObject* args) {
  py::Ref seq = py::Ref::steal(PySequence_Fast(args, "_special_gcargs_concat() needs a sequence of arguments"));
  if (!seq) return seq;
  py::Ref out = py::Ref::steal(PyList_New(0));
  if (!out) return out;
  Py_ssize_t n = PySequence_Fast_GET_SIZE(seq.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* a = PySequence_Fast_GET_ITEM(seq.get(), i);
    if (expr_is_tupledict(a)) {
      py::Ref values = py::Ref::steal(PyObject_CallMethod(a, "values", nullptr));
      if (!values) return values;
      py::Ref it = py::Ref::steal(PyObject_GetIter(values.get()));
      if (!it) return it;
      while (py::Ref v = py::Ref::steal(PyIter_Next(it.get()))) {
        if (PyList_Append(out.get(), v.get()) < 0) return py::Ref();
      }
      if (PyErr_Occurred()) return py::Ref();
    } else if (PyList_Append(out.get(), a) < 0) {
      return py::Ref();
    }
  }
  return out;
}

int register_genexpr(PyObject* m) {
  if (ready(&GenExprType, nullptr, "General expression class.  Used by General constraints.", nullptr) < 0) return -1;
  if (add_type(m, &GenExprType, "GenExpr") < 0) return -1;
  for (const Kind& k : kKinds) {
    if (ready(k.type, &GenExprType, k.doc, k.members) < 0) return -1;
    if (add_type(m, k.type, k.name) < 0) return -1;
  }
  return PyModule_AddFunctions(m, module_functions);
}
