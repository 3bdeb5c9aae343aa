// The shared mechanism of the five element handle classes (see handle.h): construction, GC,
// the `_cmodel` / index fields, attribute forwarding to the engine, and the common methods.
#include "elements/handle.h"

#include <vector>

#include "core/services.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"

namespace {

bool is_model(PyObject* o) { return PyObject_TypeCheck(o, services().model_type); }

// Indexed by element kind; slot 0 (VLM_KIND_MODEL) is unused.
PyTypeObject* g_types[kNumElementKinds + 1] = {};
std::vector<PyMethodDef> g_methods[kNumElementKinds + 1];
std::vector<PyGetSetDef> g_getsets[kNumElementKinds + 1];

const char* const kTypeNames[] = {"Model", "Var", "Constr", "SOS", "QConstr", "GenConstr"};
const char* const kElementWords[] = {"Model", "Variable", "Constraint", "SOS", "Quadratic constraint",
                                     "General constraint"};

int kind_of_type(PyTypeObject* type) {
  for (int k = VLM_KIND_VAR; k <= VLM_KIND_GENCONSTR; ++k) {
    if (type == g_types[k]) return k;
  }
  for (int k = VLM_KIND_VAR; k <= VLM_KIND_GENCONSTR; ++k) {
    if (g_types[k] != nullptr && PyType_IsSubtype(type, g_types[k])) return k;
  }
  return 0;
}

// Converts a Python int to an index; false with OverflowError/TypeError set.
bool index_value(PyObject* v, int* out) {
  py::Ref idx = py::Ref::steal(PyNumber_Index(v));
  if (!idx) return false;
  long x = PyLong_AsLong(idx.get());
  if (x == -1 && PyErr_Occurred()) return false;
  if (x < INT32_MIN || x > INT32_MAX) {
    PyErr_SetString(PyExc_OverflowError, "index out of range");
    return false;
  }
  *out = static_cast<int>(x);
  return true;
}

// ---- construction and GC ---------------------------------------------------------------------

// Var(cmodel, colno) and the like: exactly two positional arguments.
PyObject* handle_tp_new(PyTypeObject* type, PyObject* args, PyObject* kwds) {
  const char* name = kTypeNames[kind_of_type(type)];
  if (kwds != nullptr && PyDict_GET_SIZE(kwds) != 0) {
    return PyErr_Format(PyExc_TypeError, "%s() takes no keyword arguments", name);
  }
  if (PyTuple_GET_SIZE(args) != 2) {
    return PyErr_Format(PyExc_TypeError, "%s() takes exactly 2 arguments (%zd given)", name,
                        PyTuple_GET_SIZE(args));
  }
  PyObject* model = PyTuple_GET_ITEM(args, 0);
  if (!is_model(model)) {
    return PyErr_Format(PyExc_TypeError, "%s() argument 1 must be a Model, not %.200s", name,
                        Py_TYPE(model)->tp_name);
  }
  int index = 0;
  if (!index_value(PyTuple_GET_ITEM(args, 1), &index)) return nullptr;
  ModelCore* core = services().model_core(model);
  if (core == nullptr) {
    return PyErr_Format(PyExc_TypeError, "%s() argument 1 must be an initialised Model", name);
  }
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return nullptr;
  HandleObject* h = as_handle(self);
  h->core = core_acquire(core);
  h->index = index;
  return self;
}

// The model is reached through the core, which is no Python object: the dictionary is the
// only reference the collector needs to see.
int handle_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(as_handle(self)->dict);
  return 0;
}

int handle_clear(PyObject* self) {
  Py_CLEAR(as_handle(self)->dict);
  return 0;
}

void handle_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  HandleObject* h = as_handle(self);
  Py_CLEAR(h->dict);
  if (h->core != nullptr) core_release(h->core);
  h->core = nullptr;
  Py_TYPE(self)->tp_free(self);
}

// A handle without a dictionary references no Python object and is left untracked; the first
// dictionary makes cycles possible, so the handle is tracked from then on.
void track_for_dict(PyObject* self) {
  if (!PyObject_GC_IsTracked(self)) PyObject_GC_Track(self);
}

PyObject* handle_get_dict(PyObject* self, void* closure) {
  track_for_dict(self);
  return PyObject_GenericGetDict(self, closure);
}

int handle_set_dict(PyObject* self, PyObject* value, void* closure) {
  track_for_dict(self);
  return PyObject_GenericSetDict(self, value, closure);
}

// ---- attribute forwarding --------------------------------------------------------------------

// Names not found on the instance or its class are library attributes. Library names never
// begin with "_", so misses of such names (dunder probes by numpy, copy, pickle) keep the
// generic error, which has the same text, without asking the library.
PyObject* handle_getattro(PyObject* self, PyObject* name) {
  PyObject* found = PyObject_GenericGetAttr(self, name);
  if (found != nullptr || !PyErr_ExceptionMatches(PyExc_AttributeError)) return found;
  if (PyUnicode_Check(name) && PyUnicode_GET_LENGTH(name) > 0 && PyUnicode_READ_CHAR(name, 0) == '_') {
    return nullptr;
  }
  PyErr_Clear();
  return attr_get(handle_target(self), name).release();
}

// "_" names are Python-side fields; every other name is a library attribute.
int handle_setattro(PyObject* self, PyObject* name, PyObject* value) {
  if (value == nullptr || !PyUnicode_Check(name) || PyUnicode_GET_LENGTH(name) == 0 ||
      PyUnicode_READ_CHAR(name, 0) == '_') {
    if (value != nullptr) track_for_dict(self);
    return PyObject_GenericSetAttr(self, name, value);
  }
  return attr_set(handle_target(self), name, value);
}

// ---- methods ---------------------------------------------------------------------------------

PyObject* handle_getattr_method(PyObject* self, PyObject* name) {
  return attr_get(handle_target(self), name).release();
}

PyObject* handle_setattr_method(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 2) return py::raise(PyExc_TypeError, "setAttr() takes exactly 2 arguments (attrname, newval)");
  if (attr_set(handle_target(self), args[0], args[1]) < 0) return nullptr;
  return py::none();
}

PyObject* handle_prefetchattr(PyObject* self, PyObject* name) {
  if (attr_prefetch(handle_target(self), name) < 0) return nullptr;
  return py::none();
}

PyObject* handle_dir(PyObject* self, PyObject*) {
  HandleObject* h = as_handle(self);
  py::Ref names = attr_names(handle_cmodel(self), handle_kind(self));
  if (!names) return nullptr;
  if (h->dict != nullptr) {
    PyObject *key, *value;
    Py_ssize_t pos = 0;
    while (PyDict_Next(h->dict, &pos, &key, &value)) {
      if (PyList_Append(names.get(), key) < 0) return nullptr;
    }
  }
  return names.release();
}

PyObject* handle_cindex(PyObject* self, PyObject*) {
  return PyLong_FromLong(handle_position(as_handle(self)->index));
}

PyObject* handle_sameas(PyObject* self, PyObject* other) {
  int kind = handle_kind(self);
  if (handle_kind(other) != kind) return py::boolean(false);
  HandleObject* a = as_handle(self);
  HandleObject* b = as_handle(other);
  return py::boolean(a->core == b->core && a->index == b->index);
}

PyObject* handle_typename_method(PyObject* cls, PyObject*) {
  return PyUnicode_FromString(kTypeNames[kind_of_type(reinterpret_cast<PyTypeObject*>(cls))]);
}

PyObject* handle_typeenum_method(PyObject* cls, PyObject*) {
  return PyLong_FromLong(kind_of_type(reinterpret_cast<PyTypeObject*>(cls)));
}

const PyMethodDef kCommonMethods[] = {
    {"getAttr", py::guarded<&handle_getattr_method>, METH_O,
     "getAttr($self, attrname)\n--\n\nReturns the value of a library attribute of this element, for\n"
     "example x.getAttr('LB') or c.getAttr(VLM.Attr.RHS). Same as reading x.LB."},
    {"setAttr", (PyCFunction)(void (*)(void))py::guarded<&handle_setattr_method>, METH_FASTCALL,
     "setAttr($self, attrname, newval)\n--\n\nSets a library attribute of this element, for example\n"
     "x.setAttr('UB', 4.0). Same as x.UB = 4.0. The change takes effect at the next update."},
    {"prefetchAttr", py::guarded<&handle_prefetchattr>, METH_O,
     "prefetchAttr($self, attrname)\n--\n\nPrepares a run of reads of one attribute over many elements."},
    {"__dir__", py::guarded<&handle_dir>, METH_NOARGS,
     "The attribute names of this element kind plus the names stored on the object."},
    {"__cindex__", py::guarded<&handle_cindex>, METH_NOARGS,
     "__cindex__($self)\n--\n\nThe element's position in the model; negative when it has none."},
    {"sameAs", py::guarded<&handle_sameas>, METH_O,
     "sameAs($self, other)\n--\n\nTrue when other stands for the same element of the same model. Use it\n"
     "instead of == (which builds a constraint for variables)."},
    {"_typename", py::guarded<&handle_typename_method>, METH_CLASS | METH_NOARGS,
     "_typename($type)\n--\n\nThe class name used by the attribute engine ('Var', 'Constr', ...)."},
    {"_typeenum", py::guarded<&handle_typeenum_method>, METH_CLASS | METH_NOARGS,
     "_typeenum($type)\n--\n\nThe element kind code used by the attribute engine."},
};

// ---- fields ----------------------------------------------------------------------------------

// None once the Model object is gone (the handle can still read the library model).
PyObject* get_model(PyObject* self, void*) {
  PyObject* m = handle_model(self);
  return py::new_ref(m ? m : Py_None);
}

int set_model(PyObject* self, PyObject* value, void*) {
  ModelCore* core = value != nullptr && is_model(value) ? services().model_core(value) : nullptr;
  if (core == nullptr) {
    PyErr_SetString(PyExc_TypeError, "_cmodel must be an initialised Model");
    return -1;
  }
  HandleObject* h = as_handle(self);
  ModelCore* old = h->core;
  h->core = core_acquire(core);
  core_release(old);
  return 0;
}

PyObject* get_index(PyObject* self, void*) { return PyLong_FromLong(as_handle(self)->index); }

int set_index(PyObject* self, PyObject* value, void*) {
  if (value == nullptr) {
    PyErr_SetString(PyExc_TypeError, "the index field cannot be deleted");
    return -1;
  }
  int index = 0;
  if (!index_value(value, &index)) return -1;
  as_handle(self)->index = index;
  return 0;
}

PyObject* get_position(PyObject* self, void*) { return handle_cindex(self, nullptr); }

}  // namespace

int handle_kind(PyObject* o) {
  PyTypeObject* t = Py_TYPE(o);
  for (int k = VLM_KIND_VAR; k <= VLM_KIND_GENCONSTR; ++k) {
    if (t == g_types[k]) return k;
  }
  if (t->tp_dealloc != &handle_dealloc && !PyType_HasFeature(t, Py_TPFLAGS_HEAPTYPE)) return 0;
  return kind_of_type(t);
}

PyTypeObject* handle_type(int kind) { return g_types[kind]; }

const char* handle_type_name(int kind) { return kTypeNames[kind]; }

const char* handle_element_word(int kind) { return kElementWords[kind]; }

py::Ref handle_new(int kind, ModelCore* core, int index) {
  HandleObject* h = PyObject_GC_New(HandleObject, g_types[kind]);
  if (h == nullptr) return py::Ref();
  h->core = core_acquire(core);
  h->index = index;
  h->dict = nullptr;
  return py::Ref::steal(reinterpret_cast<PyObject*>(h));
}

AttrTarget handle_target(PyObject* self) {
  HandleObject* h = as_handle(self);
  int kind = handle_kind(self);
  return AttrTarget{self, handle_cmodel(self), kTypeNames[kind], kind, h->index};
}

int handle_model_count(PyObject* self, const char* attr, int* out) {
  int rc = VLMgetintattr(handle_cmodel(self), attr, out);
  if (rc != 0) {
    raise_velmor(rc, self);
    return -1;
  }
  return 0;
}

py::Ref handle_name_attr(PyObject* self, const char* attr) {
  HandleObject* h = as_handle(self);
  char* name = nullptr;
  int rc = VLMgetstrattrelement(handle_cmodel(self), attr, handle_position(h->index), &name);
  if (rc != 0) return py::Ref::steal(raise_velmor(rc, self));
  return py::str(name);
}

int handle_register(PyObject* m, PyTypeObject* type, const HandleClass& cls) {
  const int kind = cls.kind;
  g_types[kind] = type;

  std::vector<PyMethodDef>& methods = g_methods[kind];
  methods.assign(std::begin(kCommonMethods), std::end(kCommonMethods));
  for (PyMethodDef* d = cls.extra_methods; d != nullptr && d->ml_name != nullptr; ++d) methods.push_back(*d);
  methods.push_back({nullptr, nullptr, 0, nullptr});

  std::vector<PyGetSetDef>& getsets = g_getsets[kind];
  getsets = {
      {"_cmodel", get_model, set_model,
       "The Model this element belongs to; None once that Model object is gone (the element's\n"
       "attributes stay readable while the handle lives).",
       nullptr},
      {cls.index_name, get_index, set_index,
       "The encoded index: the position (>= 0), -1 awaiting the model update, -2 removed,\n"
       "-3 - position while a removal awaits the update.",
       nullptr},
      {"index", get_position, nullptr, "The element's position in the model (__cindex__()).", nullptr},
      {"__dict__", handle_get_dict, handle_set_dict, "The object's own fields.", nullptr},
      {nullptr, nullptr, nullptr, nullptr, nullptr}};

  type->tp_basicsize = sizeof(HandleObject);
  type->tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  type->tp_doc = cls.doc;
  type->tp_new = py::guarded<&handle_tp_new>;
  type->tp_dealloc = handle_dealloc;
  type->tp_traverse = handle_traverse;
  type->tp_clear = handle_clear;
  type->tp_free = PyObject_GC_Del;
  type->tp_getattro = py::guarded<&handle_getattro>;
  type->tp_setattro = py::guarded<&handle_setattro>;
  type->tp_repr = cls.repr;
  type->tp_methods = methods.data();
  type->tp_getset = getsets.data();
  type->tp_dictoffset = offsetof(HandleObject, dict);
  if (PyType_Ready(type) < 0) return -1;
  Py_INCREF(type);
  if (PyModule_AddObject(m, kTypeNames[kind], reinterpret_cast<PyObject*>(type)) < 0) {
    Py_DECREF(type);
    return -1;
  }
  return 0;
}

PyObject* handle_position_repr(PyObject* self, const char* type, const char* count_attr) {
  const int index = as_handle(self)->index;
  bool awaiting = index == kIndexPending;
  if (index >= 0) {
    int n = 0;
    if (handle_model_count(self, count_attr, &n) < 0) return nullptr;
    awaiting = index >= n;
  }
  if (awaiting) return PyUnicode_FromFormat("<velmor.%s *Awaiting Model Update*>", type);
  if (index == kIndexRemoved) return PyUnicode_FromFormat("<velmor.%s *Removed*>", type);
  if (index < kIndexRemoved) return PyUnicode_FromFormat("<velmor.%s %d (Removed)>", type, handle_position(index));
  return PyUnicode_FromFormat("<velmor.%s %d>", type, index);
}
