// Column: the (coefficient, constraint) pairs of one variable across existing linear
// constraints, read by Model.addVar(column=...) and returned by Model.getCol.
//
// Invariant: `coeffs` (floats) and `constrs` (Constr handles) are lists of equal length; term i
// is (coeffs[i], constrs[i]). A constraint may occur in several terms until _normalize().
#include <climits>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "elements/handle.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"

namespace {

struct ColumnObject {
  PyObject_HEAD
  PyObject* coeffs;
  PyObject* constrs;
  PyObject* dict;
};

extern PyTypeObject ColumnType;

ColumnObject* as_column(PyObject* o) { return reinterpret_cast<ColumnObject*>(o); }

bool is_constr(PyObject* o) { return handle_kind(o) == VLM_KIND_CONSTR; }

bool is_number(PyObject* o) {
  if (PyUnicode_Check(o) || PyBytes_Check(o)) return false;
  return PyFloat_Check(o) || PyLong_Check(o) || PyNumber_Check(o);
}

bool is_iterable(PyObject* o) {
  if (PyUnicode_Check(o) || PyBytes_Check(o)) return false;
  PyTypeObject* t = Py_TYPE(o);
  return t->tp_iter != nullptr || PySequence_Check(o);
}

PyObject* invalid(const char* message) { return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message); }

PyObject* type_text(PyObject* o) { return PyObject_Str(reinterpret_cast<PyObject*>(Py_TYPE(o))); }

// Converts the coefficients to a list of floats; false with an exception set.
py::Ref float_list(PyObject* coeffs) {
  py::Ref seq = py::Ref::steal(PySequence_Fast(coeffs, "coefficients must be iterable"));
  if (!seq) return seq;
  Py_ssize_t n = PySequence_Fast_GET_SIZE(seq.get());
  py::Ref out = py::Ref::steal(PyList_New(n));
  if (!out) return out;
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* c = PySequence_Fast_GET_ITEM(seq.get(), i);
    double v = PyFloat_AsDouble(c);
    if (v == -1.0 && PyErr_Occurred()) return py::Ref();
    PyList_SET_ITEM(out.get(), i, PyFloat_FromDouble(v));
  }
  return out;
}

// Appends terms after checking all of them, so that a bad argument leaves the column as it was.
int add_terms(PyObject* self, PyObject* coeffs, PyObject* constrs) {
  ColumnObject* col = as_column(self);
  if (is_iterable(coeffs)) {
    if (!(PyList_Check(constrs) || PyTuple_Check(constrs))) {
      invalid("Second argument should be a list of Constr");
      return -1;
    }
    py::Ref cs = py::Ref::steal(PySequence_List(constrs));
    if (!cs) return -1;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(cs.get()); ++i) {
      if (!is_constr(PyList_GET_ITEM(cs.get(), i))) {
        invalid("Second argument should be a list of Constr");
        return -1;
      }
    }
    py::Ref vs = float_list(coeffs);
    if (!vs) return -1;
    if (PyList_GET_SIZE(vs.get()) != PyList_GET_SIZE(cs.get())) {
      invalid("Coefficient and constraint lists have different lengths");
      return -1;
    }
    Py_ssize_t n = PyList_GET_SIZE(col->coeffs);
    if (PyList_SetSlice(col->coeffs, n, n, vs.get()) < 0) return -1;
    if (PyList_SetSlice(col->constrs, n, n, cs.get()) < 0) {
      PyList_SetSlice(col->coeffs, n, PY_SSIZE_T_MAX, nullptr);
      return -1;
    }
    return 0;
  }
  if (!is_constr(constrs)) {
    py::Ref t = py::Ref::steal(type_text(constrs));
    if (!t) return -1;
    py::Ref msg = py::Ref::steal(PyUnicode_FromFormat("Unsupported data type (%U) for constraint argument", t.get()));
    if (!msg) return -1;
    invalid(PyUnicode_AsUTF8(msg.get()));
    return -1;
  }
  double v = PyFloat_AsDouble(coeffs);
  if (v == -1.0 && PyErr_Occurred()) return -1;
  py::Ref f = py::Ref::steal(PyFloat_FromDouble(v));
  if (!f || PyList_Append(col->coeffs, f.get()) < 0) return -1;
  if (PyList_Append(col->constrs, constrs) < 0) {
    PyList_SetSlice(col->coeffs, PyList_GET_SIZE(col->coeffs) - 1, PY_SSIZE_T_MAX, nullptr);
    return -1;
  }
  return 0;
}

// ---- construction and GC ---------------------------------------------------------------------

PyObject* column_new(PyTypeObject* type, PyObject*, PyObject*) {
  py::Ref self = py::Ref::steal(type->tp_alloc(type, 0));
  if (!self) return nullptr;
  ColumnObject* col = as_column(self.get());
  col->coeffs = PyList_New(0);
  col->constrs = PyList_New(0);
  if (col->coeffs == nullptr || col->constrs == nullptr) return nullptr;
  return self.release();
}

bool scalar_form(PyObject* coeffs, PyObject* constrs) {
  return is_number(coeffs) && !is_iterable(coeffs) && is_constr(constrs);
}

// The two arguments as lists when they are iterables of numbers and of Constr of one length.
bool list_form(PyObject* coeffs, PyObject* constrs, py::Ref* a, py::Ref* b) {
  if (!is_iterable(coeffs) || !is_iterable(constrs)) return false;
  *a = py::Ref::steal(PySequence_List(coeffs));
  *b = *a ? py::Ref::steal(PySequence_List(constrs)) : py::Ref();
  if (!*b) {
    PyErr_Clear();
    return false;
  }
  if (PyList_GET_SIZE(a->get()) != PyList_GET_SIZE(b->get())) return false;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(a->get()); ++i) {
    if (!is_number(PyList_GET_ITEM(a->get(), i)) || !is_constr(PyList_GET_ITEM(b->get(), i))) return false;
  }
  return true;
}

int column_init(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"coeffs", "constrs", nullptr};
  PyObject* coeffs = Py_None;
  PyObject* constrs = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|OO:Column", const_cast<char**>(kwlist), &coeffs, &constrs)) return -1;
  ColumnObject* col = as_column(self);
  if (PyList_SetSlice(col->coeffs, 0, PY_SSIZE_T_MAX, nullptr) < 0 ||
      PyList_SetSlice(col->constrs, 0, PY_SSIZE_T_MAX, nullptr) < 0) {
    return -1;
  }
  if (coeffs == Py_None && constrs == Py_None) return 0;
  if (scalar_form(coeffs, constrs)) return add_terms(self, coeffs, constrs);
  py::Ref a, b;
  if (list_form(coeffs, constrs, &a, &b)) return add_terms(self, a.get(), b.get());
  py::Ref msg = py::Ref::steal(PyUnicode_FromFormat("No constructor available for Column(%S, %S)", coeffs, constrs));
  if (!msg) return -1;
  invalid(PyUnicode_AsUTF8(msg.get()));
  return -1;
}

int column_traverse(PyObject* self, visitproc visit, void* arg) {
  ColumnObject* col = as_column(self);
  Py_VISIT(col->coeffs);
  Py_VISIT(col->constrs);
  Py_VISIT(col->dict);
  return 0;
}

int column_clear_slot(PyObject* self) {
  ColumnObject* col = as_column(self);
  Py_CLEAR(col->coeffs);
  Py_CLEAR(col->constrs);
  Py_CLEAR(col->dict);
  return 0;
}

void column_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  column_clear_slot(self);
  Py_TYPE(self)->tp_free(self);
}

// Lists may have been cleared by the GC or replaced through the fields.
bool column_ok(PyObject* self) {
  ColumnObject* col = as_column(self);
  if (col->coeffs == nullptr || col->constrs == nullptr) {
    PyErr_SetString(PyExc_RuntimeError, "Column has no terms lists");
    return false;
  }
  return true;
}

// ---- methods ---------------------------------------------------------------------------------

PyObject* column_addterms(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"coeffs", "constrs", nullptr};
  PyObject *coeffs = nullptr, *constrs = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO:addTerms", const_cast<char**>(kwlist), &coeffs, &constrs)) return nullptr;
  if (!column_ok(self) || add_terms(self, coeffs, constrs) < 0) return nullptr;
  return py::none();
}

PyObject* column_size(PyObject* self, PyObject*) {
  if (!column_ok(self)) return nullptr;
  return PyLong_FromSsize_t(PyList_GET_SIZE(as_column(self)->coeffs));
}

PyObject* item_at(PyObject* list, PyObject* i) {
  Py_ssize_t k = PyNumber_AsSsize_t(i, PyExc_IndexError);
  if (k == -1 && PyErr_Occurred()) return nullptr;
  return PySequence_GetItem(list, k);
}

PyObject* column_getcoeff(PyObject* self, PyObject* i) {
  if (!column_ok(self)) return nullptr;
  return item_at(as_column(self)->coeffs, i);
}

PyObject* column_getconstr(PyObject* self, PyObject* i) {
  if (!column_ok(self)) return nullptr;
  return item_at(as_column(self)->constrs, i);
}

bool same_constr(PyObject* a, PyObject* b) {
  if (a == b) return true;
  if (!is_constr(a) || !is_constr(b)) return false;
  return handle_same_model(a, b) && as_handle(a)->index == as_handle(b)->index &&
         as_handle(a)->index != kIndexPending;
}

PyObject* column_remove(PyObject* self, PyObject* which) {
  if (!column_ok(self)) return nullptr;
  ColumnObject* col = as_column(self);
  if (PyLong_Check(which)) {
    Py_ssize_t i = PyNumber_AsSsize_t(which, PyExc_IndexError);
    if (i == -1 && PyErr_Occurred()) return nullptr;
    if (PySequence_DelItem(col->coeffs, i) < 0) return nullptr;
    if (PySequence_DelItem(col->constrs, i) < 0) return nullptr;
    return py::none();
  }
  if (!is_constr(which)) {
    py::Ref t = py::Ref::steal(type_text(which));
    if (!t) return nullptr;
    py::Ref msg = py::Ref::steal(PyUnicode_FromFormat("Unsupported data type (%U) for Column.remove argument", t.get()));
    if (!msg) return nullptr;
    return invalid(PyUnicode_AsUTF8(msg.get()));
  }
  for (Py_ssize_t i = PyList_GET_SIZE(col->constrs) - 1; i >= 0; --i) {
    if (!same_constr(PyList_GET_ITEM(col->constrs, i), which)) continue;
    if (PyList_SetSlice(col->coeffs, i, i + 1, nullptr) < 0 || PyList_SetSlice(col->constrs, i, i + 1, nullptr) < 0) {
      return nullptr;
    }
  }
  return py::none();
}

PyObject* column_clear_method(PyObject* self, PyObject*) {
  if (!column_ok(self)) return nullptr;
  ColumnObject* col = as_column(self);
  if (PyList_SetSlice(col->coeffs, 0, PY_SSIZE_T_MAX, nullptr) < 0 ||
      PyList_SetSlice(col->constrs, 0, PY_SSIZE_T_MAX, nullptr) < 0) {
    return nullptr;
  }
  return py::none();
}

PyObject* column_copy(PyObject* self, PyObject*) {
  if (!column_ok(self)) return nullptr;
  ColumnObject* col = as_column(self);
  return PyObject_CallFunctionObjArgs(reinterpret_cast<PyObject*>(&ColumnType), col->coeffs, col->constrs, nullptr);
}

// copy.copy() and pickling rebuild the column from its two lists.
PyObject* column_reduce(PyObject* self, PyObject*) {
  if (!column_ok(self)) return nullptr;
  ColumnObject* col = as_column(self);
  py::Ref coeffs = py::Ref::steal(PyList_GetSlice(col->coeffs, 0, PY_SSIZE_T_MAX));
  py::Ref constrs = coeffs ? py::Ref::steal(PyList_GetSlice(col->constrs, 0, PY_SSIZE_T_MAX)) : py::Ref();
  if (!constrs) return nullptr;
  return Py_BuildValue("(O(OO))", reinterpret_cast<PyObject*>(Py_TYPE(self)), coeffs.get(), constrs.get());
}

// Merges the terms of one constraint (coefficients added, in the order of first occurrence).
// Handles of one placed constraint count as one even when they are distinct objects; pending
// handles (index -1) only match themselves.
PyObject* column_normalize(PyObject* self, PyObject*) {
  if (!column_ok(self)) return nullptr;
  ColumnObject* col = as_column(self);
  Py_ssize_t n = PyList_GET_SIZE(col->coeffs);
  if (PyList_GET_SIZE(col->constrs) != n) {
    return invalid("Column has coefficient and constraint lists of different lengths");
  }
  std::map<std::pair<std::uintptr_t, long long>, Py_ssize_t> seen;
  py::Ref coeffs = py::Ref::steal(PyList_New(0));
  py::Ref constrs = py::Ref::steal(PyList_New(0));
  if (!coeffs || !constrs) return nullptr;
  std::vector<double> sums;
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* c = PyList_GET_ITEM(col->constrs, i);
    double v = PyFloat_AsDouble(PyList_GET_ITEM(col->coeffs, i));
    if (v == -1.0 && PyErr_Occurred()) return nullptr;
    std::pair<std::uintptr_t, long long> key{reinterpret_cast<std::uintptr_t>(c), LLONG_MIN};
    if (is_constr(c) && as_handle(c)->index != kIndexPending) {
      key = {reinterpret_cast<std::uintptr_t>(as_handle(c)->core), as_handle(c)->index};
    }
    auto [it, fresh] = seen.emplace(key, PyList_GET_SIZE(constrs.get()));
    if (fresh) {
      sums.push_back(v);
      if (PyList_Append(constrs.get(), c) < 0) return nullptr;
    } else {
      sums[static_cast<std::size_t>(it->second)] += v;
    }
  }
  for (double v : sums) {
    py::Ref f = py::Ref::steal(PyFloat_FromDouble(v));
    if (!f || PyList_Append(coeffs.get(), f.get()) < 0) return nullptr;
  }
  Py_SETREF(col->coeffs, coeffs.release());
  Py_SETREF(col->constrs, constrs.release());
  return py::none();
}

PyObject* column_repr(PyObject* self) {
  if (!column_ok(self)) return nullptr;
  ColumnObject* col = as_column(self);
  py::Ref parts = py::Ref::steal(PyList_New(0));
  py::Ref attr = py::str("ConstrName");
  if (!parts || !attr) return nullptr;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(col->coeffs) && i < PyList_GET_SIZE(col->constrs); ++i) {
    py::Ref name = py::Ref::steal(PyObject_CallMethod(PyList_GET_ITEM(col->constrs, i), "getAttr", "O", attr.get()));
    if (!name) return nullptr;
    py::Ref term = py::Ref::steal(PyUnicode_FromFormat("%S %S", PyList_GET_ITEM(col->coeffs, i), name.get()));
    if (!term || PyList_Append(parts.get(), term.get()) < 0) return nullptr;
  }
  py::Ref sep = py::str(" ");
  py::Ref joined = sep ? py::Ref::steal(PyUnicode_Join(sep.get(), parts.get())) : py::Ref();
  if (!joined) return nullptr;
  return PyUnicode_FromFormat("<velmor.Column: %U>", joined.get());
}

PyObject* get_coeffs(PyObject* self, void*) { return py::new_ref(as_column(self)->coeffs ? as_column(self)->coeffs : Py_None); }
PyObject* get_constrs(PyObject* self, void*) { return py::new_ref(as_column(self)->constrs ? as_column(self)->constrs : Py_None); }

int set_list_field(PyObject*& field, PyObject* value) {
  if (value == nullptr || !PyList_Check(value)) {
    PyErr_SetString(PyExc_TypeError, "Column terms must be a list");
    return -1;
  }
  py::assign(field, value);
  return 0;
}

int set_coeffs(PyObject* self, PyObject* value, void*) { return set_list_field(as_column(self)->coeffs, value); }
int set_constrs(PyObject* self, PyObject* value, void*) { return set_list_field(as_column(self)->constrs, value); }

PyMethodDef column_methods[] = {
    {"addTerms", (PyCFunction)(void (*)(void))py::guarded<&column_addterms>, METH_VARARGS | METH_KEYWORDS,
     "addTerms($self, coeffs, constrs)\n--\n\nAppends terms: a number and a Constr, or a list of numbers and\n"
     "a list of Constr of the same length.\n\nExample: col.addTerms([1.0, 2.0], [c0, c1])"},
    {"size", py::guarded<&column_size>, METH_NOARGS, "size($self)\n--\n\nThe number of terms."},
    {"getCoeff", py::guarded<&column_getcoeff>, METH_O, "getCoeff($self, i)\n--\n\nThe coefficient of term i."},
    {"getConstr", py::guarded<&column_getconstr>, METH_O, "getConstr($self, i)\n--\n\nThe constraint of term i."},
    {"remove", py::guarded<&column_remove>, METH_O,
     "remove($self, which)\n--\n\nRemoves the term at position which (an int), or every term of the\n"
     "constraint which (a Constr)."},
    {"clear", py::guarded<&column_clear_method>, METH_NOARGS, "clear($self)\n--\n\nRemoves every term."},
    {"copy", py::guarded<&column_copy>, METH_NOARGS,
     "copy($self)\n--\n\nA new Column with the same terms (the constraints themselves are shared)."},
    {"__reduce__", py::guarded<&column_reduce>, METH_NOARGS, "Rebuilds the column from its terms."},
    {"_normalize", py::guarded<&column_normalize>, METH_NOARGS,
     "_normalize($self)\n--\n\nMerges the terms of each constraint into one (coefficients added), keeping\n"
     "the order of first occurrence."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef column_getset[] = {
    {"_coeffs", get_coeffs, set_coeffs, "The coefficients, one per term.", nullptr},
    {"_constrs", get_constrs, set_constrs, "The constraints, one per term.", nullptr},
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, "The object's own fields.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

const char column_doc[] =
    "Column(coeffs=None, constrs=None)\n--\n\n"
    "The coefficients of one variable in existing linear constraints, used to add a variable\n"
    "directly into them with Model.addVar(column=...). Build it from a number and a Constr, or\n"
    "from a list of numbers and a list of Constr:\n\n"
    "    col = Column([1.0, 2.0], [c0, c1])\n"
    "    x = m.addVar(obj=3.0, column=col)";

PyTypeObject ColumnType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.Column"};

}  // namespace

int register_column(PyObject* m) {
  ColumnType.tp_basicsize = sizeof(ColumnObject);
  ColumnType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  ColumnType.tp_doc = column_doc;
  ColumnType.tp_new = py::guarded<&column_new>;
  ColumnType.tp_init = py::guarded<&column_init>;
  ColumnType.tp_traverse = column_traverse;
  ColumnType.tp_clear = column_clear_slot;
  ColumnType.tp_dealloc = column_dealloc;
  ColumnType.tp_repr = py::guarded<&column_repr>;
  ColumnType.tp_methods = column_methods;
  ColumnType.tp_getset = column_getset;
  ColumnType.tp_dictoffset = offsetof(ColumnObject, dict);
  if (PyType_Ready(&ColumnType) < 0) return -1;
  Py_INCREF(&ColumnType);
  return PyModule_AddObject(m, "Column", reinterpret_cast<PyObject*>(&ColumnType));
}
