// The array of element handles behind MVar, MConstr and MQConstr (see melem.h).
#include "matrix/melem.h"

#include <cmath>
#include <cstring>
#include <string>

#include "attrs/attrutil.h"
#include "core/py_error.h"
#include "core/services.h"
#include "elements/handle.h"
#include "matrix/np_call.h"

namespace {

PyObject* no_attribute(int kind, PyObject* name) {
  return PyErr_Format(PyExc_AttributeError, "'velmorpy.%s' object has no attribute '%U'", handle_type_name(kind),
                      name);
}

// Library attribute names begin with an upper-case letter; everything else is Python's.
bool is_library_name(PyObject* name) {
  if (!PyUnicode_Check(name) || PyUnicode_GET_LENGTH(name) == 0) return false;
  Py_UCS4 c = PyUnicode_READ_CHAR(name, 0);
  return c >= 'A' && c <= 'Z';
}

// Looks the attribute up for the elements' kind.
bool lookup(PyObject* self, VLMmodel* model, PyObject* name, const char** cname, AttrInfo* info) {
  MElemObject* m = as_melem(self);
  AttrTarget t{self, model, handle_type_name(m->kind), m->kind, 0};
  if (!attr_info(t, name, cname, info)) return false;
  if (info->kind != m->kind) {
    no_attribute(m->kind, name);
    return false;
  }
  return true;
}

// Whether every position exists in the library: in immediate update mode a new element has
// its position before the update applies it, and reading it then gets the single element's text.
bool applied(PyObject* self, VLMmodel* model, const std::vector<int>& ind) {
  static const char* const counts[] = {"NumVars", "NumConstrs", "NumSOS", "NumQConstrs", "NumGenConstrs"};
  const int kind = as_melem(self)->kind;
  int have = 0;
  if (ind.empty() || kind < 1 || kind > 5 || VLMgetintattr(model, counts[kind - 1], &have) != 0) return true;
  for (int p : ind) {
    if (p >= have) {
      std::string text = std::string(handle_type_name(kind)) + " has not yet been added to the model";
      raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, text.c_str());
      return false;
    }
  }
  return true;
}

py::Ref get_attr_array(PyObject* self, PyObject* name) {
  MElemObject* m = as_melem(self);
  VLMmodel* model = melem_cmodel(self);
  if (model == nullptr) return py::Ref();
  const char* cname = nullptr;
  AttrInfo info;
  if (!lookup(self, model, name, &cname, &info)) return py::Ref();
  std::vector<int> ind;
  if (!melem_positions(self, &ind)) return py::Ref();
  if (!applied(self, model, ind)) return py::Ref();
  const int n = static_cast<int>(ind.size());
  py::Ref shape = np::shape_of(m->arr);
  py::Ref flat;
  if (info.datatype == VLM_DBL || info.datatype == VLM_INT) {
    const bool dbl = info.datatype == VLM_DBL;
    py::Ref dtype = np::text(dbl ? "float64" : "int32");
    flat = np::fn("empty", {py::Ref::steal(PyLong_FromLong(n)).get()}, {{"dtype", dtype.get()}});
    np::View v;
    if (!flat || !v.open(flat.get(), dbl ? "float64" : "int32")) return py::Ref();
    int rc = 0;
    if (n > 0) {
      rc = dbl ? VLMgetdblattrlist(model, cname, n, ind.data(), v.data<double>())
               : VLMgetintattrlist(model, cname, n, ind.data(), v.data<int>());
    }
    if (rc != 0) return py::Ref::steal(raise_velmor(rc, m->model));
    if (dbl) {
      double* d = v.data<double>();
      for (int i = 0; i < n; ++i) {
        if (d[i] >= VLM_INFINITY) d[i] = HUGE_VAL;
        if (d[i] <= -VLM_INFINITY) d[i] = -HUGE_VAL;
      }
    }
  } else {
    py::Ref list = attr_get_list(m->model, model, cname, info, ind.data(), n);
    py::Ref dtype = np::text(info.datatype == VLM_CHAR ? "U1" : "O");
    flat = np::fn("array", {list.get()}, {{"dtype", dtype.get()}});
  }
  return np::meth(flat.get(), "reshape", {shape.get()});
}

// The values of a write: a scalar for every element, or an ndarray of the object's shape.
int set_attr_array(PyObject* self, PyObject* name, PyObject* value) {
  MElemObject* m = as_melem(self);
  VLMmodel* model = melem_cmodel(self);
  if (model == nullptr) return -1;
  const char* cname = nullptr;
  AttrInfo info;
  if (!lookup(self, model, name, &cname, &info)) return -1;
  if (!info.settable) {
    PyErr_Format(PyExc_AttributeError, "Attribute '%U' cannot be set", name);
    return -1;
  }
  std::vector<int> ind;
  if (!melem_positions(self, &ind)) return -1;
  if (np::isndarray(value)) {
    py::Ref mine = np::shape_of(m->arr);
    py::Ref theirs = np::shape_of(value);
    if (!mine || !theirs) return -1;
    int same = PyObject_RichCompareBool(mine.get(), theirs.get(), Py_EQ);
    if (same < 0) return -1;
    if (!same) {
      PyErr_SetString(PyExc_AttributeError, "Shape mismatch");
      return -1;
    }
    py::Ref list = np::meth(value, "ravel");
    list = np::meth(list.get(), "tolist");
    if (!list) return -1;
    return attr_set_list(model, cname, info, ind, list.get(), nullptr);
  }
  py::Ref scalar = np::fn("isscalar", {value});
  if (!scalar) return -1;
  if (scalar.get() != Py_True) {
    PyErr_SetString(PyExc_AttributeError, "Use scalar or ndarray to set attribute");
    return -1;
  }
  // NumPy scalars are handed over as the matching Python values.
  py::Ref plain = PyObject_HasAttrString(value, "item") && !PyUnicode_Check(value) ? np::meth(value, "item")
                                                                                   : py::Ref::borrow(value);
  if (!plain) return -1;
  return attr_set_list(model, cname, info, ind, nullptr, plain.get());
}

// ---- methods ---------------------------------------------------------------------------------

PyObject* melem_tolist(PyObject* self, PyObject*) { return np::meth(as_melem(self)->arr, "tolist").release(); }

PyObject* melem_item(PyObject* self, PyObject*) { return np::meth(as_melem(self)->arr, "item").release(); }

PyObject* melem_copy(PyObject* self, PyObject*) {
  py::Ref arr = np::meth(as_melem(self)->arr, "copy");
  if (!arr) return nullptr;
  return melem_derive(self, arr.get()).release();
}

PyObject* melem_transpose(PyObject* self, PyObject*) {
  py::Ref arr = np::meth(as_melem(self)->arr, "transpose");
  if (!arr) return nullptr;
  return melem_derive(self, arr.get()).release();
}

PyObject* melem_reshape(PyObject* self, PyObject* args, PyObject* kwds) {
  PyObject* order = nullptr;
  if (kwds != nullptr) {
    order = PyDict_GetItemString(kwds, "order");
    if (PyDict_GET_SIZE(kwds) != (order ? 1 : 0)) {
      return py::raise(PyExc_TypeError, "reshape() takes only the keyword argument 'order'");
    }
  }
  // reshape(2, 3) and reshape((2, 3)) alike.
  PyObject* shape = PyTuple_GET_SIZE(args) == 1 ? PyTuple_GET_ITEM(args, 0) : args;
  py::Ref dflt = np::text("C");
  py::Ref arr = np::meth(as_melem(self)->arr, "reshape", {shape}, {{"order", order ? order : dflt.get()}});
  if (!arr) return nullptr;
  return melem_derive(self, arr.get()).release();
}

PyObject* melem_diagonal(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"offset", "axis1", "axis2", nullptr};
  int offset = 0, axis1 = 0, axis2 = 1;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|iii:diagonal", const_cast<char**>(kwlist), &offset, &axis1, &axis2)) {
    return nullptr;
  }
  py::Ref a = np::integer(offset), b = np::integer(axis1), c = np::integer(axis2);
  py::Ref arr = np::meth(as_melem(self)->arr, "diagonal", {a.get(), b.get(), c.get()});
  if (!arr) return nullptr;
  // NumPy gives a read-only view; the copy keeps the result independent like every other one.
  arr = np::meth(arr.get(), "copy");
  if (!arr) return nullptr;
  return melem_derive(self, arr.get()).release();
}

PyObject* melem_squeeze(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  py::Ref arr = nargs > 0 ? np::meth(as_melem(self)->arr, "squeeze", {args[0]})
                          : np::meth(as_melem(self)->arr, "squeeze");
  if (!arr) return nullptr;
  return melem_derive(self, arr.get()).release();
}

PyObject* melem_getattr_method(PyObject* self, PyObject* name) { return get_attr_array(self, name).release(); }

PyObject* melem_setattr_method(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 2) return py::raise(PyExc_TypeError, "setAttr() takes exactly 2 arguments (attrname, value)");
  if (set_attr_array(self, args[0], args[1]) < 0) return nullptr;
  return py::none();
}

PyObject* melem_prefetch(PyObject* self, PyObject* name) {
  MElemObject* m = as_melem(self);
  VLMmodel* model = melem_cmodel(self);
  if (model == nullptr) return nullptr;
  AttrTarget t{self, model, handle_type_name(m->kind), m->kind, 0};
  if (attr_prefetch(t, name) < 0) return nullptr;
  return py::none();
}

PyObject* melem_dir(PyObject* self, PyObject*) {
  py::Ref base = py::Ref::steal(PyObject_CallMethod(reinterpret_cast<PyObject*>(&PyBaseObject_Type), "__dir__", "O", self));
  if (!base) return nullptr;
  bool found = false;
  VLMmodel* model = services().model_handle_of(as_melem(self)->model, &found);
  py::Ref names = attr_names(model, as_melem(self)->kind);
  if (!names) return nullptr;
  py::Ref all = py::Ref::steal(PySequence_List(base.get()));
  if (!all || _PyList_Extend(reinterpret_cast<PyListObject*>(all.get()), names.get()) == nullptr) return nullptr;
  return all.release();
}

// ---- getset ----------------------------------------------------------------------------------

PyObject* get_arr(PyObject* self, void*) { return py::new_ref(as_melem(self)->arr); }
PyObject* get_model(PyObject* self, void*) { return py::new_ref(as_melem(self)->model); }
PyObject* get_shape(PyObject* self, void*) { return np::attr(as_melem(self)->arr, "shape").release(); }
PyObject* get_ndim(PyObject* self, void*) { return np::attr(as_melem(self)->arr, "ndim").release(); }
PyObject* get_size(PyObject* self, void*) { return np::attr(as_melem(self)->arr, "size").release(); }
PyObject* get_T(PyObject* self, void*) { return melem_transpose(self, nullptr); }

// The raw index field of every handle (negative: pending or removed), shaped like the array.
PyObject* get_idxarr(PyObject* self, void*) {
  MElemObject* m = as_melem(self);
  np::View objs;
  if (!objs.open(m->arr, "O")) return nullptr;
  py::Ref out = np::fn("empty_like", {m->arr}, {{"dtype", np::text("int32").get()}});
  np::View v;
  if (!out || !v.open(out.get(), "int32")) return nullptr;
  PyObject** h = objs.data<PyObject*>();
  for (Py_ssize_t i = 0; i < objs.size(); ++i) {
    if (handle_kind(h[i]) != m->kind) return PyErr_Format(PyExc_ValueError, "element %zd is not a %s", i, handle_type_name(m->kind));
    v.data<int>()[i] = as_handle(h[i])->index;
  }
  return out.release();
}

}  // namespace

PyMethodDef melem_methods[] = {
    {"tolist", py::guarded<&melem_tolist>, METH_NOARGS, "tolist($self)\n--\n\nThe elements as a (nested) list."},
    {"item", py::guarded<&melem_item>, METH_NOARGS,
     "item($self)\n--\n\nThe one element of an object of size 1 (ValueError otherwise)."},
    {"copy", py::guarded<&melem_copy>, METH_NOARGS, "copy($self)\n--\n\nA new object over a copy of the element array."},
    {"transpose", py::guarded<&melem_transpose>, METH_NOARGS,
     "transpose($self)\n--\n\nThe object with its axes reversed (the same elements)."},
    {"reshape", (PyCFunction)(void (*)(void))py::guarded<&melem_reshape>, METH_VARARGS | METH_KEYWORDS,
     "reshape($self, *shape, order='C')\n--\n\nThe same elements in a new shape, as ndarray.reshape arranges them."},
    {"diagonal", (PyCFunction)(void (*)(void))py::guarded<&melem_diagonal>, METH_VARARGS | METH_KEYWORDS,
     "diagonal($self, offset=0, axis1=0, axis2=1)\n--\n\nThe diagonal elements, as ndarray.diagonal picks them."},
    {"_squeeze", (PyCFunction)(void (*)(void))py::guarded<&melem_squeeze>, METH_FASTCALL,
     "_squeeze($self, axis=None)\n--\n\nThe object with axes of length one removed."},
    {"getAttr", py::guarded<&melem_getattr_method>, METH_O,
     "getAttr($self, attrname)\n--\n\nThe attribute for all elements as an ndarray of this shape (int32, float64\n"
     "or str values), read in one library call."},
    {"setAttr", (PyCFunction)(void (*)(void))py::guarded<&melem_setattr_method>, METH_FASTCALL,
     "setAttr($self, attrname, value)\n--\n\nSets the attribute of all elements: value is a scalar for all of them or\n"
     "an ndarray of this shape. Written in one library call."},
    {"prefetchAttr", py::guarded<&melem_prefetch>, METH_O,
     "prefetchAttr($self, attrname)\n--\n\nAsks the library to prepare the attribute's values for all elements."},
    {"__dir__", py::guarded<&melem_dir>, METH_NOARGS, "The object's names and the attributes of its elements."},
    {nullptr, nullptr, 0, nullptr}};

py::Ref melem_new(PyTypeObject* type, int kind, PyObject* arr, PyObject* model) {
  py::Ref self = py::Ref::steal(type->tp_alloc(type, 0));
  if (!self) return self;
  MElemObject* m = as_melem(self.get());
  m->arr = py::new_ref(arr);
  m->model = py::new_ref(model ? model : Py_None);
  m->kind = kind;
  return self;
}

py::Ref melem_derive(PyObject* self, PyObject* arr) {
  MElemObject* m = as_melem(self);
  if (!np::isndarray(arr)) {
    // A single element (arr[0] of a 1-D array) becomes a 0-D array.
    py::Ref scalar_shape = py::Ref::steal(PyTuple_New(0));
    py::Ref zero = np::fn("empty", {scalar_shape.get()}, {{"dtype", np::text("O").get()}});
    if (!zero || PyObject_SetItem(zero.get(), py::Ref::steal(PyTuple_New(0)).get(), arr) < 0) return py::Ref();
    return melem_new(Py_TYPE(self), m->kind, zero.get(), m->model);
  }
  return melem_new(Py_TYPE(self), m->kind, arr, m->model);
}

bool melem_positions(PyObject* self, std::vector<int>* out) {
  MElemObject* m = as_melem(self);
  np::View objs;
  if (!objs.open(m->arr, "O")) return false;
  PyObject** h = objs.data<PyObject*>();
  out->resize(static_cast<size_t>(objs.size()));
  // Elements of another model would read that model's positions in this one.
  ModelCore* core = services().model_core(m->model);
  for (Py_ssize_t i = 0; i < objs.size(); ++i) {
    if (handle_kind(h[i]) != m->kind) {
      PyErr_Format(PyExc_ValueError, "element %zd is not a %s", i, handle_type_name(m->kind));
      return false;
    }
    if (as_handle(h[i])->core != core) {
      std::string text = std::string(handle_element_word(m->kind)) + " not in model";
      raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, text.c_str());
      return false;
    }
    int idx = as_handle(h[i])->index;
    if (idx == kIndexPending || idx == kIndexRemoved) {
      // The texts of the single-element access.
      std::string text = std::string(handle_type_name(m->kind)) +
                         (idx == kIndexPending ? " has not yet been added to the model" : " was removed from the model");
      raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, text.c_str());
      return false;
    }
    (*out)[static_cast<size_t>(i)] = handle_position(idx);
  }
  return true;
}

VLMmodel* melem_cmodel(PyObject* self) {
  bool found = false;
  VLMmodel* model = services().model_handle_of(as_melem(self)->model, &found);
  if (model == nullptr) raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Model has already been freed");
  return model;
}

int melem_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(as_melem(self)->arr);
  Py_VISIT(as_melem(self)->model);
  return 0;
}

int melem_clear(PyObject* self) {
  Py_CLEAR(as_melem(self)->arr);
  Py_CLEAR(as_melem(self)->model);
  return 0;
}

void melem_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  melem_clear(self);
  Py_TYPE(self)->tp_free(self);
}

PyObject* melem_getattro(PyObject* self, PyObject* name) {
  PyObject* r = PyObject_GenericGetAttr(self, name);
  if (r != nullptr || !PyErr_ExceptionMatches(PyExc_AttributeError) || !is_library_name(name)) return r;
  PyErr_Clear();
  return get_attr_array(self, name).release();
}

int melem_setattro(PyObject* self, PyObject* name, PyObject* value) {
  if (value == nullptr || !is_library_name(name)) return PyObject_GenericSetAttr(self, name, value);
  return set_attr_array(self, name, value);
}

PyObject* melem_subscript(PyObject* self, PyObject* key) {
  py::Ref r = py::Ref::steal(PyObject_GetItem(as_melem(self)->arr, key));
  if (!r) return nullptr;
  return melem_derive(self, r.get()).release();
}

Py_ssize_t melem_length(PyObject* self) { return PyObject_Length(as_melem(self)->arr); }

PyObject* melem_iter(PyObject* self) {
  // Iterates over the first axis, as an ndarray does: x[0], x[1], ...
  const Py_ssize_t n = PyObject_Length(as_melem(self)->arr);
  if (n < 0) return nullptr;
  py::Ref items = py::Ref::steal(PyList_New(n));
  if (!items) return nullptr;
  for (Py_ssize_t i = 0; i < n; ++i) {
    py::Ref key = py::Ref::steal(PyLong_FromSsize_t(i));
    py::Ref item = key ? py::Ref::steal(melem_subscript(self, key.get())) : py::Ref();
    if (!item) return nullptr;
    PyList_SET_ITEM(items.get(), i, item.release());
  }
  return PyObject_GetIter(items.get());
}

PyObject* melem_repr(PyObject* self, const char* label) {
  MElemObject* m = as_melem(self);
  py::Ref shape = np::shape_of(m->arr);
  np::View objs;
  if (!shape || !objs.open(m->arr, "O")) return nullptr;
  bool pending = false, removed = false;
  for (Py_ssize_t i = 0; i < objs.size(); ++i) {
    PyObject* h = objs.data<PyObject*>()[i];
    if (handle_kind(h) == 0) continue;
    pending |= as_handle(h)->index == kIndexPending;
    removed |= as_handle(h)->index == kIndexRemoved;
  }
  return PyUnicode_FromFormat("<%s %S%s%s\n%R>\n", label, shape.get(), pending ? " *awaiting update*" : "",
                              removed ? " (some removed)" : "", m->arr);
}

int melem_ready(PyTypeObject* type, const char* array_field, PyMethodDef* extra) {
  // The tables live as long as the type, that is for the whole process.
  size_t n_extra = 0;
  while (extra != nullptr && extra[n_extra].ml_name != nullptr) ++n_extra;
  size_t n_shared = sizeof(melem_methods) / sizeof(melem_methods[0]) - 1;
  auto* methods = new PyMethodDef[n_shared + n_extra + 1];
  std::memcpy(methods, melem_methods, n_shared * sizeof(PyMethodDef));
  if (n_extra) std::memcpy(methods + n_shared, extra, n_extra * sizeof(PyMethodDef));
  methods[n_shared + n_extra] = {nullptr, nullptr, 0, nullptr};
  auto* getset = new PyGetSetDef[8]{
      {array_field, get_arr, nullptr, "The NumPy object array of the element handles.", nullptr},
      {"_cmodel", get_model, nullptr, "The owning Model.", nullptr},
      {"_idxarr", get_idxarr, nullptr, "The index field of every element (negative: not in the model).", nullptr},
      {"shape", get_shape, nullptr, "The shape (a tuple).", nullptr},
      {"ndim", get_ndim, nullptr, "The number of dimensions.", nullptr},
      {"size", get_size, nullptr, "The number of elements.", nullptr},
      {"T", get_T, nullptr, "The transpose.", nullptr},
      {nullptr, nullptr, nullptr, nullptr, nullptr}};
  type->tp_basicsize = sizeof(MElemObject);
  type->tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_BASETYPE;
  type->tp_traverse = melem_traverse;
  type->tp_clear = melem_clear;
  type->tp_dealloc = melem_dealloc;
  type->tp_getattro = py::guarded<&melem_getattro>;
  type->tp_iter = py::guarded<&melem_iter>;
  type->tp_setattro = py::guarded<&melem_setattro>;
  type->tp_methods = methods;
  type->tp_getset = getset;
  if (PyType_Ready(type) < 0) return -1;
  // NumPy hands every operator with one of these objects to the object's own methods.
  return PyDict_SetItemString(type->tp_dict, "__array_ufunc__", Py_None);
}

bool melem_check(PyObject* o) {
  for (PyTypeObject* t = Py_TYPE(o); t != nullptr; t = t->tp_base) {
    if (t->tp_dealloc == melem_dealloc) return true;
  }
  return false;
}
