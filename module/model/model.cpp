// Model: lifecycle, attributes, the element handle lists and the lazy update; the printers.
//
// Invariants: `handle` is nullptr exactly when `cmodel` is (never created or disposed). After
// setup, lists[kind - 1] holds the handles of the library's elements of that kind in index
// order followed by additions not yet applied; a handle's index is -3 - i while its removal
// waits for update(), which sends all removals of one kind in one call, then updates, then
// renumbers every handle by its list position.
#include "model/model.h"

#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "attrs/attrutil.h"
#include "env/env.h"
#include "elements/handle.h"
#include "model/model_build.h"
#include "model/model_genconstr.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "core/services.h"
#include "core/velmor.h"

PyTypeObject ModelType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.Model"};

namespace {

const char kCapsuleName[] = "velmorpy.model";

PyObject* g_env_type = nullptr;    // velmorpy.Env, kept for the process lifetime
PyObject* g_param_type = nullptr;  // velmorpy.ParamClass

// Per element kind: the count attribute, the name attribute, the default name prefix and the
// deletion call. Indexed by VLM_KIND_*.
struct KindInfo {
  const char* count_attr;
  const char* name_attr;  // nullptr: SOS constraints have no name
  const char* prefix;
  int (*del)(VLMmodel*, int, const int*);
};
const KindInfo kKinds[] = {
    {nullptr, nullptr, nullptr, nullptr},
    {"NumVars", "VarName", "C", VLMdelvars},
    {"NumConstrs", "ConstrName", "R", VLMdelconstrs},
    {"NumSOS", nullptr, "SOS", VLMdelsos},
    {"NumQConstrs", "QCName", "QC", VLMdelqconstrs},
    {"NumGenConstrs", "GenConstrName", "GC", VLMdelgenconstrs},
};

PyObject*& list_of(ModelObject* m, int kind) { return m->lists[kind - VLM_KIND_VAR]; }

AttrTarget model_target(PyObject* self) {
  return AttrTarget{self, model_handle(self), "Model", VLM_KIND_MODEL, 0};
}

// ---- small helpers ---------------------------------------------------------------------------

std::string format(const char* fmt, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, fmt);
  int n = std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  if (n < 0) return std::string();
  if (static_cast<std::size_t>(n) < sizeof buf) return std::string(buf, static_cast<std::size_t>(n));
  std::string out(static_cast<std::size_t>(n) + 1, '\0');
  va_start(ap, fmt);
  std::vsnprintf(out.data(), out.size(), fmt, ap);
  va_end(ap);
  out.resize(static_cast<std::size_t>(n));
  return out;
}

// Python's str() of a float, so printed expressions read like LinExpr texts.
std::string float_repr(double v) {
  char* s = PyOS_double_to_string(v, 'r', 0, Py_DTSF_ADD_DOT_0, nullptr);
  if (s == nullptr) return "nan";
  std::string out(s);
  PyMem_Free(s);
  return out;
}

// Library doubles at or beyond VLM_INFINITY print as inf.
double shown(double v) {
  if (v >= VLM_INFINITY) return HUGE_VAL;
  if (v <= -VLM_INFINITY) return -HUGE_VAL;
  return v;
}

bool get_int(PyObject* self, const char* attr, int* out) {
  int rc = VLMgetintattr(model_handle(self), attr, out);
  if (rc != 0) raise_velmor(rc, self);
  return rc == 0;
}

bool get_dbl(PyObject* self, const char* attr, double* out) {
  int rc = VLMgetdblattr(model_handle(self), attr, out);
  if (rc != 0) raise_velmor(rc, self);
  return rc == 0;
}

bool get_str(PyObject* self, const char* attr, std::string* out) {
  char* v = nullptr;
  int rc = VLMgetstrattr(model_handle(self), attr, &v);
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  *out = v ? v : "";
  return true;
}

// Reads all values of a string element attribute (copied: the library's strings live only
// until the next call).
bool get_str_array(PyObject* self, const char* attr, int n, std::vector<std::string>* out) {
  std::vector<char*> v(static_cast<std::size_t>(n));
  int rc = n > 0 ? VLMgetstrattrarray(model_handle(self), attr, 0, n, v.data()) : 0;
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  out->assign(v.begin(), v.end());
  return true;
}

template <class T, class Get>
bool get_array(PyObject* self, int n, std::vector<T>* out, Get get) {
  out->resize(static_cast<std::size_t>(n));
  int rc = n > 0 ? get(out->data()) : 0;
  if (rc != 0) raise_velmor(rc, self);
  return rc == 0;
}

// Writes one line to the model's log.
bool model_message(PyObject* self, const std::string& text) {
  int rc = VLMmsg(VLMgetenv(model_handle(self)), text.c_str());
  if (rc != 0) raise_velmor(rc, self);
  return rc == 0;
}

bool write_stdout(const std::string& text) {
  PyObject* out = PySys_GetObject("stdout");  // borrowed
  if (out == nullptr || out == Py_None) return true;
  py::Ref r = py::Ref::steal(PyObject_CallMethod(out, "write", "s", text.c_str()));
  return static_cast<bool>(r);
}

PyObject* disposed_error(PyObject* self) { return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self); }

// Expands '*' and '?' with glob; the first match, or VelmorError when nothing matches.
py::Ref expand_filename(PyObject* filename) {
  const char* name = py::utf8(filename);
  if (name == nullptr) return py::Ref();
  if (std::strpbrk(name, "*?") == nullptr) return py::Ref::borrow(filename);
  py::Ref glob = py::Ref::steal(PyImport_ImportModule("glob"));
  if (!glob) return py::Ref();
  py::Ref matches = py::Ref::steal(PyObject_CallMethod(glob.get(), "glob", "O", filename));
  if (!matches) return py::Ref();
  if (PyList_GET_SIZE(matches.get()) == 0) {
    std::string msg = std::string("No file matching '") + name + "' found";
    return py::Ref::steal(raise_velmor_msg(VLM_ERROR_FILE_READ, msg.c_str()));
  }
  return py::Ref::borrow(PyList_GET_ITEM(matches.get(), 0));
}

// ---- the garbage collector during setup ------------------------------------------------------

// Raises the first-generation threshold while setup creates (possibly millions of) handles, so
// that the collector does not run over and over; the destructor restores the old thresholds,
// also when setup fails, without disturbing a pending exception.
class GcThresholdRaise {
 public:
  GcThresholdRaise() {
    gc_ = py::Ref::steal(PyImport_ImportModule("gc"));
    if (!gc_) return;
    old_ = py::Ref::steal(PyObject_CallMethod(gc_.get(), "get_threshold", nullptr));
    if (!old_ || !PyTuple_Check(old_.get()) || PyTuple_GET_SIZE(old_.get()) < 1) {
      old_ = py::Ref();
      return;
    }
    long first = PyLong_AsLong(PyTuple_GET_ITEM(old_.get(), 0));
    if (first == -1 && PyErr_Occurred()) {
      old_ = py::Ref();
      return;
    }
    py::Ref args = py::Ref::steal(PyTuple_New(PyTuple_GET_SIZE(old_.get())));
    if (!args) {
      old_ = py::Ref();
      return;
    }
    PyTuple_SET_ITEM(args.get(), 0, PyLong_FromLong(first > kRaised ? first : kRaised));
    for (Py_ssize_t i = 1; i < PyTuple_GET_SIZE(old_.get()); ++i) {
      PyTuple_SET_ITEM(args.get(), i, py::new_ref(PyTuple_GET_ITEM(old_.get(), i)));
    }
    set(args.get());
  }
  ~GcThresholdRaise() {
    if (!old_) return;
    PyObject *type, *value, *tb;
    PyErr_Fetch(&type, &value, &tb);
    set(old_.get());
    PyErr_Restore(type, value, tb);
  }
  bool ok() const { return static_cast<bool>(old_); }
  GcThresholdRaise(const GcThresholdRaise&) = delete;
  GcThresholdRaise& operator=(const GcThresholdRaise&) = delete;

 private:
  static constexpr long kRaised = 1000000;
  void set(PyObject* thresholds) {
    py::Ref fn = py::Ref::steal(PyObject_GetAttrString(gc_.get(), "set_threshold"));
    py::Ref r = fn ? py::Ref::steal(PyObject_CallObject(fn.get(), thresholds)) : py::Ref();
    if (!r) PyErr_WriteUnraisable(gc_.get());
  }
  py::Ref gc_;
  py::Ref old_;
};

// ---- construction and lifecycle --------------------------------------------------------------

// Gives the Model its library model and the core its handles will share.
void attach(ModelObject* m, VLMmodel* handle) {
  m->handle = handle;
  m->core = new ModelCore;
  m->core->handle = handle;
  m->core->model = reinterpret_cast<PyObject*>(m);
}

PyObject* model_new(PyTypeObject* type, PyObject*, PyObject*) {
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return nullptr;
  as_model(self)->updatemode = -1;
  return self;
}

int model_init(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"name", "env", "cmodel", nullptr};
  PyObject* name = Py_None;
  PyObject* env = Py_None;
  PyObject* cmodel = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|OOO:Model", const_cast<char**>(kwlist), &name, &env, &cmodel)) {
    return -1;
  }
  ModelObject* m = as_model(self);
  if (m->cmodel != nullptr || m->env != nullptr || m->core != nullptr) {
    PyErr_SetString(PyExc_RuntimeError, "Model.__init__ called twice");
    return -1;
  }
  Py_CLEAR(m->callback);
  m->updatemode = -1;
  m->newranges = 0;
  // An adopted handle belongs to this object from here on: its finalizer frees it even when
  // the rest of the construction fails.
  if (cmodel != Py_None) {
    if (!PyCapsule_IsValid(cmodel, kCapsuleName)) {
      PyErr_SetString(PyExc_TypeError, "cmodel must be a library model handle");
      return -1;
    }
    // A capsule's context marks it as owned: a second Model over it would free it twice.
    if (PyCapsule_GetContext(cmodel) != nullptr) {
      PyErr_SetString(PyExc_ValueError, "cmodel already belongs to a Model");
      return -1;
    }
    if (PyCapsule_SetContext(cmodel, cmodel) < 0) return -1;
    attach(m, static_cast<VLMmodel*>(PyCapsule_GetPointer(cmodel, kCapsuleName)));
    py::assign(m->cmodel, cmodel);
  }
  if (env == Py_None) {
    env = velmor_default_env(true);
    if (env == nullptr) return -1;
  }
  if (!env_check(env)) {
    PyErr_Format(PyExc_TypeError, "env must be an Env, not %.200s", Py_TYPE(env)->tp_name);
    return -1;
  }
  const bool adopted = m->handle != nullptr;
  if (!adopted && env_handle(env) == nullptr) {
    raise_velmor_msg(-1, "Invalid Environment");
    return -1;
  }
  if (!adopted) {
    const char* cname = "";
    if (name != Py_None && (cname = py::utf8(name)) == nullptr) return -1;
    VLMmodel* handle = nullptr;
    int rc = VLMnewmodel(env_handle(env), &handle, cname, 0, nullptr, nullptr, nullptr, nullptr, nullptr);
    if (rc != 0) {
      raise_velmor(rc, env);
      return -1;
    }
    PyObject* capsule = PyCapsule_New(handle, kCapsuleName, nullptr);
    if (capsule == nullptr || PyCapsule_SetContext(capsule, capsule) < 0) {
      Py_XDECREF(capsule);
      VLMfreemodel(handle);
      return -1;
    }
    m->cmodel = capsule;
    attach(m, handle);
  }
  py::assign(m->uenv, env);
  reinterpret_cast<EnvObject*>(env)->modcnt += 1;
  py::Ref cenv = wrap_env_handle(VLMgetenv(m->handle));
  if (!cenv) return -1;
  py::Ref noargs = py::Ref::steal(PyTuple_New(0));
  py::Ref kw = py::Ref::steal(Py_BuildValue("{sO}", "cenv", cenv.get()));
  if (!noargs || !kw) return -1;
  py::Ref menv = py::Ref::steal(PyObject_Call(g_env_type, noargs.get(), kw.get()));
  if (!menv) return -1;
  py::assign(m->env, menv.get());
  // The model's environment is a copy of `env`, log callback included, so the model's log
  // lines already reach Python without installing the callback again.
  for (PyObject*& list : m->lists) Py_CLEAR(list);
  if (!adopted && model_setup(self, true) < 0) return -1;
  m->modcnt = 0;
  py::Ref params = py::Ref::steal(PyObject_CallFunctionObjArgs(g_param_type, m->env, nullptr));
  if (!params) return -1;
  for (const char* key : {"Params", "params"}) {
    py::Ref k = py::str(key);
    if (!k || PyObject_GenericSetAttr(self, k.get(), params.get()) < 0) return -1;
  }
  return 0;
}

// The Model no longer stands for a library model (disposed, or handed to its handles).
void forget_library_model(ModelObject* m) {
  m->handle = nullptr;
  Py_CLEAR(m->cmodel);
  if (m->uenv != nullptr) {
    reinterpret_cast<EnvObject*>(m->uenv)->modcnt -= 1;
    Py_CLEAR(m->uenv);
  }
}

PyObject* model_dispose(PyObject* self, PyObject*) {
  ModelObject* m = as_model(self);
  if (m->handle == nullptr) return py::none();
  if (m->solving) {
    return raise_velmor_msg(VLM_ERROR_OPTIMIZATION_IN_PROGRESS,
                            "Cannot dispose a model while it is being optimized");
  }
  for (PyObject*& list : m->lists) {
    if (list == nullptr) continue;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
      PyObject* h = PyList_GET_ITEM(list, i);
      if (handle_kind(h) != 0) as_handle(h)->index = kIndexPending;
    }
    Py_CLEAR(list);
  }
  // The Env over the model's own environment would dangle once the model is freed.
  if (m->env != nullptr && env_close(m->env) < 0) return nullptr;
  VLMfreemodel(m->handle);
  m->handle = nullptr;
  m->core->handle = nullptr;
  forget_library_model(m);
  return py::none();
}

PyObject* model_enter(PyObject* self, PyObject*) { return py::new_ref(self); }

PyObject* model_exit(PyObject* self, PyObject* const*, Py_ssize_t) {
  py::Ref r = py::Ref::steal(model_dispose(self, nullptr));
  if (!r) return nullptr;
  return py::boolean(false);
}

// The Model object is going away. Its handles drop with its lists unless someone else holds
// them; when none is left the library model is freed as by dispose(), otherwise the core keeps
// it for the survivors, whose attributes stay readable, and frees it with the last of them.
bool model_release(PyObject* self) {
  ModelObject* m = as_model(self);
  if (m->handle == nullptr) return true;
  if (m->solving) return py::Ref::steal(model_dispose(self, nullptr)).get() != nullptr;
  for (PyObject*& list : m->lists) Py_CLEAR(list);
  if (m->core->refs == 1) return py::Ref::steal(model_dispose(self, nullptr)).get() != nullptr;
  bool ok = m->env == nullptr || env_close(m->env) == 0;
  m->core->model = nullptr;
  forget_library_model(m);
  return ok;
}

void model_finalize(PyObject* self) {
  PyObject *type, *value, *tb;
  PyErr_Fetch(&type, &value, &tb);
  if (!model_release(self)) PyErr_WriteUnraisable(self);
  PyErr_Restore(type, value, tb);
}

int model_traverse(PyObject* self, visitproc visit, void* arg) {
  ModelObject* m = as_model(self);
  Py_VISIT(m->callback);
  Py_VISIT(m->uenv);
  Py_VISIT(m->env);
  for (PyObject* list : m->lists) Py_VISIT(list);
  Py_VISIT(m->dict);
  return 0;
}

int model_clear(PyObject* self) {
  ModelObject* m = as_model(self);
  Py_CLEAR(m->callback);
  Py_CLEAR(m->uenv);
  Py_CLEAR(m->env);
  for (PyObject*& list : m->lists) Py_CLEAR(list);
  Py_CLEAR(m->dict);
  return 0;
}

void model_dealloc(PyObject* self) {
  if (PyObject_CallFinalizerFromDealloc(self) < 0) return;  // resurrected
  PyObject_GC_UnTrack(self);
  ModelObject* m = as_model(self);
  if (m->weakreflist != nullptr) PyObject_ClearWeakRefs(self);
  model_clear(self);
  Py_CLEAR(m->cmodel);
  if (m->core != nullptr) {
    if (m->core->model == self) m->core->model = nullptr;
    core_release(m->core);
    m->core = nullptr;
  }
  Py_TYPE(self)->tp_free(self);
}

// ---- repr, dir, attributes -------------------------------------------------------------------

PyObject* model_repr(PyObject* self) {
  ModelObject* m = as_model(self);
  if (m->handle == nullptr) return PyUnicode_FromString("<velmor.Model empty model>");
  int ismip = 0, numconstrs = 0, numvars = 0;
  std::string name;
  if (!get_int(self, "IsMIP", &ismip) || !get_str(self, "ModelName", &name) ||
      !get_int(self, "NumConstrs", &numconstrs) || !get_int(self, "NumVars", &numvars)) {
    return nullptr;
  }
  std::string text = std::string("<velmor.Model ") + (ismip ? "MIP" : "Continuous") + " instance " +
                     (name.empty() ? "Unnamed" : name) + ": " + std::to_string(numconstrs) + " constrs, " +
                     std::to_string(numvars) + " vars";
  if (m->env != nullptr) {
    py::Ref changes = py::Ref::steal(PyObject_CallMethod(m->env, "_getChangeList", nullptr));
    if (!changes) return nullptr;
    const char* c = PyUnicode_AsUTF8(changes.get());
    if (c == nullptr) return nullptr;
    if (std::strcmp(c, "No parameter changes") != 0) text += std::string(", ") + c;
  }
  text += ">";
  return py::str(text).release();
}

PyObject* model_dir(PyObject* self, PyObject*) {
  ModelObject* m = as_model(self);
  py::Ref names = py::Ref::steal(PyList_New(0));
  if (!names) return nullptr;
  if (m->dict != nullptr) {
    PyObject *key, *value;
    Py_ssize_t pos = 0;
    while (PyDict_Next(m->dict, &pos, &key, &value)) {
      if (PyList_Append(names.get(), key) < 0) return nullptr;
    }
  }
  if (m->handle != nullptr) {
    py::Ref attrs = attr_names(m->handle, VLM_KIND_MODEL);
    if (!attrs) return nullptr;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(attrs.get()); ++i) {
      if (PyList_Append(names.get(), PyList_GET_ITEM(attrs.get(), i)) < 0) return nullptr;
    }
  }
  return names.release();
}

// As for handles: names beginning with "_" are never library attributes.
PyObject* model_getattro(PyObject* self, PyObject* name) {
  PyObject* found = PyObject_GenericGetAttr(self, name);
  if (found != nullptr || !PyErr_ExceptionMatches(PyExc_AttributeError)) return found;
  if (PyUnicode_Check(name) && PyUnicode_GET_LENGTH(name) > 0 && PyUnicode_READ_CHAR(name, 0) == '_') {
    return nullptr;
  }
  PyErr_Clear();
  return attr_get(model_target(self), name).release();
}

int model_setattro(PyObject* self, PyObject* name, PyObject* value) {
  if (value == nullptr || !PyUnicode_Check(name) || PyUnicode_GET_LENGTH(name) == 0 ||
      PyUnicode_READ_CHAR(name, 0) == '_') {
    return PyObject_GenericSetAttr(self, name, value);
  }
  return attr_set(model_target(self), name, value);
}

// The library indices of the handles in `items` (a PySequence_Fast sequence) for an attribute
// of kind `kind`; every handle must be of that kind, belong to this model and be in it.
bool collect_indices(PyObject* self, PyObject* attrname, int kind, PyObject* items, std::vector<int>* ind) {
  Py_ssize_t n = PySequence_Fast_GET_SIZE(items);
  PyObject** it = PySequence_Fast_ITEMS(items);
  ind->resize(static_cast<std::size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* o = it[i];
    int k = handle_kind(o);
    if (k == 0) {
      PyErr_Format(PyExc_TypeError, "expected model elements (Var, Constr, ...), got '%.200s'", Py_TYPE(o)->tp_name);
      return false;
    }
    if (k != kind) {
      PyErr_Format(PyExc_AttributeError, "'velmorpy.%s' object has no attribute '%U'", handle_type_name(k), attrname);
      return false;
    }
    HandleObject* h = as_handle(o);
    if (!model_has(self, o)) {
      std::string msg = std::string(handle_element_word(k)) + " not in model";
      raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, msg.c_str());
      return false;
    }
    if (h->index == kIndexPending || h->index == kIndexRemoved) {
      std::string msg = std::string(handle_type_name(k)) +
                        (h->index == kIndexPending ? " has not yet been added to the model" : " was removed from the model");
      raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, msg.c_str());
      return false;
    }
    (*ind)[static_cast<std::size_t>(i)] = handle_position(h->index);
  }
  return true;
}

bool element_kind(int kind) { return kind >= VLM_KIND_VAR && kind <= VLM_KIND_GENCONSTR; }

// The values of an attribute for a sequence of handles, as a list.
py::Ref get_for(PyObject* self, PyObject* attrname, PyObject* objs) {
  const char* s = nullptr;
  AttrInfo info;
  if (!attr_info(model_target(self), attrname, &s, &info)) return py::Ref();
  py::Ref items = py::Ref::steal(PySequence_Fast(objs, "getAttr() expects a list or dict of model elements"));
  if (!items) return py::Ref();
  std::vector<int> ind;
  if (!collect_indices(self, attrname, info.kind, items.get(), &ind)) return py::Ref();
  return attr_get_list(self, model_handle(self), s, info, ind.data(), static_cast<int>(ind.size()));
}

PyObject* model_getattr_method(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"attrname", "objs", nullptr};
  PyObject* attrname = nullptr;
  PyObject* objs = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O|O:getAttr", const_cast<char**>(kwlist), &attrname, &objs)) {
    return nullptr;
  }
  AttrTarget t = model_target(self);
  if (objs == Py_None) {
    const char* s = nullptr;
    AttrInfo info;
    if (!attr_info(t, attrname, &s, &info)) return nullptr;
    if (info.kind == VLM_KIND_MODEL) return attr_get(t, attrname).release();
    if (!element_kind(info.kind)) {
      return PyErr_Format(PyExc_AttributeError, "'velmorpy.Model' object has no attribute '%U'", attrname);
    }
    int n = 0;
    if (!get_int(self, kKinds[info.kind].count_attr, &n)) return nullptr;
    return attr_get_array(self, model_handle(self), s, info, 0, n).release();
  }
  if (PyDict_Check(objs)) {
    py::Ref keys = py::Ref::steal(PyDict_Keys(objs));
    py::Ref values = keys ? py::Ref::steal(PyDict_Values(objs)) : py::Ref();
    if (!values) return nullptr;
    py::Ref got = get_for(self, attrname, values.get());
    if (!got) return nullptr;
    py::Ref result = py::Ref::steal(PyDict_New());
    if (!result) return nullptr;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(keys.get()); ++i) {
      if (PyDict_SetItem(result.get(), PyList_GET_ITEM(keys.get(), i), PyList_GET_ITEM(got.get(), i)) < 0) return nullptr;
    }
    return result.release();
  }
  return get_for(self, attrname, objs).release();
}

// True for values given as a list of values rather than one value for all elements.
bool is_value_list(PyObject* v) {
  if (PyList_Check(v) || PyTuple_Check(v)) return true;
  if (PyUnicode_Check(v) || PyBytes_Check(v) || PyDict_Check(v) || !PySequence_Check(v)) return false;
  // A zero-dimensional array is a sequence type without a length: one value.
  if (PyObject_Length(v) < 0) {
    PyErr_Clear();
    return false;
  }
  return true;
}

PyObject* model_setattr_method(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"attrname", "arg1", "arg2", nullptr};
  PyObject *attrname = nullptr, *arg1 = nullptr, *arg2 = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO|O:setAttr", const_cast<char**>(kwlist), &attrname, &arg1, &arg2)) {
    return nullptr;
  }
  AttrTarget t = model_target(self);
  if (arg2 == Py_None) {
    if (attr_set(t, attrname, arg1) < 0) return nullptr;
    return py::none();
  }
  const char* s = nullptr;
  AttrInfo info;
  if (!attr_info(t, attrname, &s, &info)) return nullptr;
  py::Ref handles;
  py::Ref values;  // a PySequence_Fast of the values, or empty for one value for all
  if (PyDict_Check(arg1)) {
    handles = py::Ref::steal(PyDict_Values(arg1));
    if (!handles) return nullptr;
    if (PyDict_Check(arg2)) {
      py::Ref keys = py::Ref::steal(PyDict_Keys(arg1));
      if (!keys) return nullptr;
      values = py::Ref::steal(PyList_New(PyList_GET_SIZE(keys.get())));
      if (!values) return nullptr;
      for (Py_ssize_t i = 0; i < PyList_GET_SIZE(keys.get()); ++i) {
        py::Ref v = py::Ref::steal(PyObject_GetItem(arg2, PyList_GET_ITEM(keys.get(), i)));
        if (!v) return nullptr;
        PyList_SET_ITEM(values.get(), i, v.release());
      }
    }
  } else {
    handles = py::Ref::steal(PySequence_Fast(arg1, "setAttr() expects a list or dict of model elements"));
    if (!handles) return nullptr;
  }
  if (!values && is_value_list(arg2)) {
    values = py::Ref::steal(PySequence_Fast(arg2, "setAttr() values must be a list"));
    if (!values) return nullptr;
  }
  if (values && PySequence_Fast_GET_SIZE(values.get()) != PySequence_Fast_GET_SIZE(handles.get())) {
    return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "setAttr() got lists of elements and values of different lengths");
  }
  std::vector<int> ind;
  if (!collect_indices(self, attrname, info.kind, handles.get(), &ind)) return nullptr;
  if (!info.settable) return PyErr_Format(PyExc_AttributeError, "Attribute '%U' cannot be set", attrname);
  if (attr_set_list(model_handle(self), s, info, ind, values.get(), arg2) < 0) return nullptr;
  return py::none();
}

PyObject* model_prefetchattr(PyObject* self, PyObject* name) {
  if (attr_prefetch(model_target(self), name) < 0) return nullptr;
  return py::none();
}

// ---- parameters: forwarded to the model's own environment ------------------------------------

PyObject* forward_env(PyObject* self, const char* method, PyObject* const* args, Py_ssize_t nargs) {
  PyObject* env = as_model(self)->env;
  if (env == nullptr) return raise_velmor_msg(-1, "Invalid Environment");
  return env_call_method(env, method, args, nargs);
}

PyObject* model_setparam(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"paramname", "newval", nullptr};
  PyObject *name = nullptr, *value = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO:setParam", const_cast<char**>(kwlist), &name, &value)) return nullptr;
  PyObject* a[] = {name, value};
  return forward_env(self, "setParam", a, 2);
}

PyObject* model_getparaminfo(PyObject* self, PyObject* name) { return forward_env(self, "_getParamInfo", &name, 1); }
PyObject* model_fixtuneparam(PyObject* self, PyObject* name) { return forward_env(self, "fixTuneParam", &name, 1); }
PyObject* model_resetparams(PyObject* self, PyObject*) { return forward_env(self, "resetParams", nullptr, 0); }

// ---- the element lists -----------------------------------------------------------------------

PyObject* model_setup_method(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"empty", nullptr};
  int empty = 0;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|p:__setup", const_cast<char**>(kwlist), &empty)) return nullptr;
  if (model_setup(self, empty != 0) < 0) return nullptr;
  return py::none();
}

PyObject* model_getupdatemode_method(PyObject* self, PyObject*) {
  int mode = model_getupdatemode(self);
  if (mode == -1 && PyErr_Occurred()) return nullptr;
  return PyLong_FromLong(mode);
}

PyObject* live_slice(PyObject* self, int kind, Py_ssize_t live) {
  PyObject* list = model_list(self, kind);
  if (list == nullptr) return nullptr;
  if (live > PyList_GET_SIZE(list)) live = PyList_GET_SIZE(list);
  return PyList_GetSlice(list, 0, live);
}

PyObject* model_getvars(PyObject* self, PyObject*) {
  if (model_setup(self, false) < 0) return nullptr;
  return live_slice(self, VLM_KIND_VAR, as_model(self)->livevars);
}

PyObject* model_getconstrs(PyObject* self, PyObject*) {
  if (model_setup(self, false) < 0) return nullptr;
  return live_slice(self, VLM_KIND_CONSTR, as_model(self)->liveconstrs);
}

PyObject* placed_handles(PyObject* self, int kind) {
  PyObject* list = model_list(self, kind);
  if (list == nullptr) return nullptr;
  py::Ref result = py::Ref::steal(PyList_New(0));
  if (!result) return nullptr;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
    PyObject* h = PyList_GET_ITEM(list, i);
    if (handle_kind(h) != 0 && as_handle(h)->index >= 0 && PyList_Append(result.get(), h) < 0) return nullptr;
  }
  return result.release();
}

PyObject* model_getsoss(PyObject* self, PyObject*) { return placed_handles(self, VLM_KIND_SOS); }
PyObject* model_getqconstrs(PyObject* self, PyObject*) { return placed_handles(self, VLM_KIND_QCONSTR); }
PyObject* model_getgenconstrs(PyObject* self, PyObject*) { return placed_handles(self, VLM_KIND_GENCONSTR); }

PyObject* by_name(PyObject* self, PyObject* name, int kind, int (*lookup)(VLMmodel*, const char*, int*)) {
  PyObject* list = model_list(self, kind);
  if (list == nullptr) return nullptr;
  const char* s = py::utf8(name);
  if (s == nullptr) return nullptr;
  int index = -1;
  int rc = lookup(model_handle(self), s, &index);
  if (rc != 0) return raise_velmor(rc, self);
  if (index < 0 || index >= PyList_GET_SIZE(list)) return py::none();
  return py::new_ref(PyList_GET_ITEM(list, index));
}

PyObject* model_getvarbyname(PyObject* self, PyObject* name) {
  return by_name(self, name, VLM_KIND_VAR, VLMgetvarbyname);
}

PyObject* model_getconstrbyname(PyObject* self, PyObject* name) {
  return by_name(self, name, VLM_KIND_CONSTR, VLMgetconstrbyname);
}

PyObject* model_owns(PyObject* self, PyObject* obj) {
  if (handle_kind(obj) != 0) return py::boolean(model_has(self, obj));
  py::Ref owner = py::Ref::steal(PyObject_GetAttrString(obj, "_cmodel"));
  if (!owner) {
    if (!PyErr_ExceptionMatches(PyExc_AttributeError)) return nullptr;
    PyErr_Clear();
    return py::boolean(false);
  }
  return py::boolean(owner.get() == self);
}

// ---- removal ---------------------------------------------------------------------------------

PyObject* model_removeone(PyObject* self, PyObject* item) {
  int kind = handle_kind(item);
  if (kind == 0) {
    return raise_velmor_msg(-1, "Tried to remove an object that is not a Var, Constr, SOS, QConstr or GenConstr");
  }
  HandleObject* h = as_handle(item);
  if (!model_has(self, item)) {
    std::string msg = std::string("Tried to remove a ") + handle_type_name(kind) + " that belongs to another model";
    return raise_velmor_msg(-1, msg.c_str());
  }
  if (h->index >= 0) {
    h->index = -3 - h->index;
    ModelObject* m = as_model(self);
    if (kind == VLM_KIND_VAR) m->delvars = true;
    if (kind == VLM_KIND_CONSTR) m->delconstrs = true;
  }
  return py::none();
}

bool remove_all(PyObject* self, PyObject* iterable) {
  py::Ref it = py::Ref::steal(PyObject_GetIter(iterable));
  if (!it) return false;
  while (py::Ref item = py::Ref::steal(PyIter_Next(it.get()))) {
    if (!py::Ref::steal(model_removeone(self, item.get()))) return false;
  }
  return !PyErr_Occurred();
}

PyObject* model_remove(PyObject* self, PyObject* items) {
  if (handle_kind(items) != 0) return model_removeone(self, items);
  if (PyDict_Check(items)) {
    py::Ref values = py::Ref::steal(PyDict_Values(items));
    if (!values || !remove_all(self, values.get())) return nullptr;
    return py::none();
  }
  if (PyList_Check(items) || PyTuple_Check(items)) {
    if (!remove_all(self, items)) return nullptr;
    return py::none();
  }
  // Matrix objects (MVar, MConstr, MQConstr) are removed element by element.
  for (const char* field : {"_vararr", "_constrarr", "_qconstrarr"}) {
    if (!PyObject_HasAttrString(items, field)) continue;
    py::Ref arr = py::Ref::steal(PyObject_GetAttrString(items, field));
    if (!arr) return nullptr;
    py::Ref flat = PyObject_HasAttrString(arr.get(), "flat")
                       ? py::Ref::steal(PyObject_GetAttrString(arr.get(), "flat"))
                       : py::Ref::borrow(arr.get());
    if (!flat || !remove_all(self, flat.get())) return nullptr;
    return py::none();
  }
  return model_removeone(self, items);
}

// ---- update ----------------------------------------------------------------------------------

// Sends the pending removals of one kind to the library and drops the removed handles.
// The list stays as it was when the library refuses.
bool apply_removals(PyObject* self, int kind) {
  ModelObject* m = as_model(self);
  PyObject* list = list_of(m, kind);
  const Py_ssize_t n = PyList_GET_SIZE(list);
  std::vector<int> del;
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* h = PyList_GET_ITEM(list, i);
    if (handle_kind(h) != 0 && as_handle(h)->index <= -3) del.push_back(-3 - as_handle(h)->index);
  }
  if (del.empty()) return true;
  int rc = kKinds[kind].del(m->handle, static_cast<int>(del.size()), del.data());
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  py::Ref kept = py::Ref::steal(PyList_New(n - static_cast<Py_ssize_t>(del.size())));
  if (!kept) return false;
  Py_ssize_t j = 0;
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* h = PyList_GET_ITEM(list, i);
    bool is_handle = handle_kind(h) != 0;
    if (is_handle && as_handle(h)->index <= -3) {
      as_handle(h)->index = kIndexRemoved;
      continue;
    }
    if (is_handle) as_handle(h)->index = static_cast<int>(j);
    PyList_SET_ITEM(kept.get(), j++, py::new_ref(h));
  }
  Py_SETREF(list_of(m, kind), kept.release());
  return true;
}

// After the library update: the handles added since the last update take their list
// positions, and elements the library made without a handle (range slacks added in lazy
// update mode, or additions made outside this module) get one. Additions sit at the end of
// the list, so the walk back stops at the first handle already in place: an update costs
// O(changes), not O(model).
bool renumber(PyObject* self, int kind) {
  ModelObject* m = as_model(self);
  PyObject* list = list_of(m, kind);
  for (Py_ssize_t i = PyList_GET_SIZE(list) - 1; i >= 0; --i) {
    PyObject* o = PyList_GET_ITEM(list, i);
    if (handle_kind(o) == 0) continue;
    HandleObject* h = as_handle(o);
    if (h->index == i) break;
    h->index = static_cast<int>(i);
  }
  int count = 0;
  if (!get_int(self, kKinds[kind].count_attr, &count)) return false;
  for (Py_ssize_t i = PyList_GET_SIZE(list); i < count; ++i) {
    py::Ref h = handle_new(kind, as_model(self)->core, static_cast<int>(i));
    if (!h || PyList_Append(list, h.get()) < 0) return false;
  }
  return true;
}

PyObject* model_update_method(PyObject* self, PyObject*) {
  if (model_update(self) < 0) return nullptr;
  return py::none();
}

// ---- reset, copy, files, messages ------------------------------------------------------------

PyObject* model_reset(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"clearall", nullptr};
  int clearall = 0;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|p:reset", const_cast<char**>(kwlist), &clearall)) return nullptr;
  int rc = VLMreset(model_handle(self), clearall);
  if (rc != 0) return raise_velmor(rc, self);
  std::string msg = "Discarded solution information";
  if (clearall) msg += " including additional information";
  if (!model_message(self, msg)) return nullptr;
  return py::none();
}

PyObject* model_copy(PyObject* self, PyObject*) {
  VLMmodel* copy = VLMcopymodel(model_handle(self));
  if (copy == nullptr) return raise_velmor(VLM_ERROR_FAILED_TO_CREATE_MODEL, self);
  return model_adopt(copy, as_model(self)->uenv).release();
}

PyObject* model_write(PyObject* self, PyObject* filename) {
  const char* f = py::utf8(filename);
  if (f == nullptr) return nullptr;
  // Model and attribute files show the model with its pending changes applied.
  if ((VLMismodelfile(f) || VLMisattrfile(f)) && model_update(self) < 0) return nullptr;
  int rc = VLMwrite(model_handle(self), f);
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

bool ends_with(const std::string& s, const char* suffix) {
  std::size_t n = std::strlen(suffix);
  return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

PyObject* model_read(PyObject* self, PyObject* filename) {
  py::Ref chosen = expand_filename(filename);
  if (!chosen) return nullptr;
  const char* f = PyUnicode_AsUTF8(chosen.get());
  if (f == nullptr) return nullptr;
  int rc = VLMread(model_handle(self), f);
  if (rc != 0) return raise_velmor(rc, self);
  std::string name(f);
  const char* what = ends_with(name, ".mst")   ? "Read MIP start from file "
                     : ends_with(name, ".prm") ? "Read parameters from file "
                     : ends_with(name, ".ord") ? "Read branching order from file "
                     : ends_with(name, ".bas") ? "Read basis from file "
                                               : nullptr;
  if (what != nullptr && !model_message(self, what + name)) return nullptr;
  return py::none();
}

PyObject* model_message_method(PyObject* self, PyObject* msg) {
  const char* s = py::utf8(msg);
  if (s == nullptr) return nullptr;
  if (!model_message(self, s)) return nullptr;
  return py::none();
}

// ---- printers --------------------------------------------------------------------------------

// Writes `text` in pieces of at most `length` characters, cut at the last separator before the
// limit (or at the limit when there is none), each stripped of surrounding blanks.
bool split_long_message(PyObject* self, const std::string& text, const std::string& sep, std::size_t length) {
  std::string rest = text;
  auto strip = [](const std::string& s) {
    std::size_t b = s.find_first_not_of(" \t\n");
    if (b == std::string::npos) return std::string();
    std::size_t e = s.find_last_not_of(" \t\n");
    return s.substr(b, e - b + 1);
  };
  while (rest.size() > length) {
    std::size_t cut = sep.empty() ? std::string::npos : rest.rfind(sep, length);
    std::size_t skip = sep.size();
    if (cut == std::string::npos || cut == 0) {
      cut = length;
      skip = 0;
    }
    std::string piece = strip(rest.substr(0, cut));
    if (!piece.empty() && !model_message(self, piece)) return false;
    rest = rest.substr(cut + skip);
  }
  std::string piece = strip(rest);
  if (!piece.empty() && !model_message(self, piece)) return false;
  return true;
}

PyObject* model_splitlongmessage(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"longstring", "sep", "length", nullptr};
  const char* text = nullptr;
  const char* sep = " ";
  Py_ssize_t length = 80;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "s|sn:_splitlongmessage", const_cast<char**>(kwlist), &text, &sep, &length)) {
    return nullptr;
  }
  if (length < 1) return py::raise(PyExc_ValueError, "length must be positive");
  if (!split_long_message(self, text, sep, static_cast<std::size_t>(length))) return nullptr;
  return py::none();
}

// The readable text of a linear part, as LinExpr prints it: "0.0" when empty, the constant
// first when non-zero, then the terms joined by " + ", coefficient 1 left out.
std::string linear_text(double constant, const std::vector<std::pair<double, std::string>>& terms) {
  std::string out;
  if (constant != 0.0) out = float_repr(constant);
  for (const auto& [coef, name] : terms) {
    if (!out.empty()) out += " + ";
    if (coef != 1.0) out += float_repr(coef) + " ";
    out += name;
  }
  return out.empty() ? "0.0" : out;
}

// Element i of a library-sized array (library counts and indices are int).
template <class V>
auto& at(V& v, int i) {
  return v[static_cast<std::size_t>(i)];
}

template <class T>
std::vector<T> sized(int n) {
  return std::vector<T>(static_cast<std::size_t>(n > 0 ? n : 0));
}

// Terms of a sparse row over the variables' names.
std::vector<std::pair<double, std::string>> named_terms(const int* ind, const double* val, int n,
                                                        const std::vector<std::string>& names) {
  std::vector<std::pair<double, std::string>> terms;
  for (int k = 0; k < n; ++k) terms.emplace_back(val[k], at(names, ind[k]));
  return terms;
}

// The quadratic part " + [ ... ]" as QuadExpr prints it ("" without terms).
std::string quad_text(const int* row, const int* col, const double* val, int n,
                      const std::vector<std::string>& names) {
  if (n == 0) return std::string();
  std::string out = " + [ ";
  for (int k = 0; k < n; ++k) {
    if (k > 0) out += " + ";
    if (val[k] != 1.0) out += float_repr(val[k]) + " ";
    out += at(names, row[k]);
    out += row[k] == col[k] ? " ^ 2" : " * " + at(names, col[k]);
  }
  return out + " ]";
}

const char* sense_text(char c) { return c == '<' ? "<=" : c == '>' ? ">=" : "="; }

// The objective as an expression text: ObjCon, the linear terms, the quadratic terms.
bool objective_text(PyObject* self, const std::vector<std::string>& names, std::string* out) {
  VLMmodel* h = model_handle(self);
  const int n = static_cast<int>(names.size());
  double objcon = 0;
  std::vector<double> obj;
  if (!get_dbl(self, "ObjCon", &objcon) ||
      !get_array(self, n, &obj, [&](double* v) { return VLMgetdblattrarray(h, "Obj", 0, n, v); })) {
    return false;
  }
  std::vector<std::pair<double, std::string>> terms;
  for (int j = 0; j < n; ++j) {
    if (at(obj, j) != 0.0) terms.emplace_back(at(obj, j), at(names, j));
  }
  int nq = 0;
  int rc = VLMgetq(h, &nq, nullptr, nullptr, nullptr);
  auto qrow = sized<int>(nq), qcol = sized<int>(nq);
  auto qval = sized<double>(nq);
  if (rc == 0 && nq > 0) rc = VLMgetq(h, &nq, qrow.data(), qcol.data(), qval.data());
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  *out = linear_text(objcon, terms) + quad_text(qrow.data(), qcol.data(), qval.data(), nq, names);
  return true;
}

// "  name: expression sense rhs" for every linear constraint.
bool linear_rows(PyObject* self, const std::vector<std::string>& names, std::vector<std::string>* lines) {
  VLMmodel* h = model_handle(self);
  int m = 0;
  if (!get_int(self, "NumConstrs", &m)) return false;
  std::vector<std::string> rownames;
  std::vector<char> sense;
  std::vector<double> rhs;
  if (!get_str_array(self, "ConstrName", m, &rownames) ||
      !get_array(self, m, &sense, [&](char* v) { return VLMgetcharattrarray(h, "Sense", 0, m, v); }) ||
      !get_array(self, m, &rhs, [&](double* v) { return VLMgetdblattrarray(h, "RHS", 0, m, v); })) {
    return false;
  }
  int nnz = 0;
  int rc = m > 0 ? VLMgetconstrs(h, &nnz, nullptr, nullptr, nullptr, 0, m) : 0;
  auto beg = sized<int>(m), ind = sized<int>(nnz);
  auto val = sized<double>(nnz);
  if (rc == 0 && m > 0) rc = VLMgetconstrs(h, &nnz, beg.data(), ind.data(), val.data(), 0, m);
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  for (int i = 0; i < m; ++i) {
    int first = at(beg, i);
    int end = i + 1 < m ? at(beg, i + 1) : nnz;
    auto terms = named_terms(ind.data() + first, val.data() + first, end - first, names);
    lines->push_back("  " + at(rownames, i) + ": " + linear_text(0.0, terms) + " " + sense_text(at(sense, i)) +
                     " " + format("%g", shown(at(rhs, i))));
  }
  return true;
}

// The same for quadratic constraints.
bool quadratic_rows(PyObject* self, const std::vector<std::string>& names, std::vector<std::string>* lines) {
  VLMmodel* h = model_handle(self);
  int m = 0;
  if (!get_int(self, "NumQConstrs", &m)) return false;
  std::vector<std::string> rownames;
  std::vector<char> sense;
  std::vector<double> rhs;
  if (!get_str_array(self, "QCName", m, &rownames) ||
      !get_array(self, m, &sense, [&](char* v) { return VLMgetcharattrarray(h, "QCSense", 0, m, v); }) ||
      !get_array(self, m, &rhs, [&](double* v) { return VLMgetdblattrarray(h, "QCRHS", 0, m, v); })) {
    return false;
  }
  for (int i = 0; i < m; ++i) {
    int nl = 0, nq = 0;
    int rc = VLMgetqconstr(h, i, &nl, nullptr, nullptr, &nq, nullptr, nullptr, nullptr);
    auto lind = sized<int>(nl), qrow = sized<int>(nq), qcol = sized<int>(nq);
    auto lval = sized<double>(nl), qval = sized<double>(nq);
    if (rc == 0) {
      rc = VLMgetqconstr(h, i, &nl, lind.data(), lval.data(), &nq, qrow.data(), qcol.data(), qval.data());
    }
    if (rc != 0) {
      raise_velmor(rc, self);
      return false;
    }
    auto terms = named_terms(lind.data(), lval.data(), nl, names);
    lines->push_back("  " + at(rownames, i) + ": " + linear_text(0.0, terms) +
                     quad_text(qrow.data(), qcol.data(), qval.data(), nq, names) + " " + sense_text(at(sense, i)) +
                     " " + format("%g", shown(at(rhs, i))));
  }
  return true;
}

// "Bounds" lines, then the names of binary and general integer variables.
bool bound_lines(PyObject* self, const std::vector<std::string>& names, std::vector<std::string>* lines) {
  VLMmodel* h = model_handle(self);
  const int n = static_cast<int>(names.size());
  std::vector<double> lb, ub;
  std::vector<char> vtype;
  if (!get_array(self, n, &lb, [&](double* v) { return VLMgetdblattrarray(h, "LB", 0, n, v); }) ||
      !get_array(self, n, &ub, [&](double* v) { return VLMgetdblattrarray(h, "UB", 0, n, v); }) ||
      !get_array(self, n, &vtype, [&](char* v) { return VLMgetcharattrarray(h, "VType", 0, n, v); })) {
    return false;
  }
  lines->push_back("Bounds");
  std::vector<std::string> binaries, integers;
  for (int j = 0; j < n; ++j) {
    const char* name = at(names, j).c_str();
    double lo = at(lb, j), hi = at(ub, j);
    if (lo == hi) {
      lines->push_back(format("  %s = %g", name, shown(lo)));
    } else if (lo <= -VLM_INFINITY && hi >= VLM_INFINITY) {
      lines->push_back(format("  %s free", name));
    } else {
      lines->push_back(format("  %g <= %s <= %g", shown(lo), name, shown(hi)));
    }
    if (at(vtype, j) == 'B') binaries.push_back("  " + at(names, j));
    if (at(vtype, j) == 'I') integers.push_back("  " + at(names, j));
  }
  if (!binaries.empty()) {
    lines->push_back("Binaries");
    lines->insert(lines->end(), binaries.begin(), binaries.end());
  }
  if (!integers.empty()) {
    lines->push_back("General Integers");
    lines->insert(lines->end(), integers.begin(), integers.end());
  }
  return true;
}

PyObject* model_display(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"obj", nullptr};
  PyObject* obj = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|O:display", const_cast<char**>(kwlist), &obj)) return nullptr;
  if (obj != Py_None) {
    py::Ref text = py::Ref::steal(PyObject_Str(obj));
    const char* s = text ? PyUnicode_AsUTF8(text.get()) : nullptr;
    if (s == nullptr || !model_message(self, s)) return nullptr;
    return py::none();
  }
  int nvars = 0, sense = 1;
  std::vector<std::string> names;
  std::string objective;
  if (!get_int(self, "NumVars", &nvars) || !get_int(self, "ModelSense", &sense) ||
      !get_str_array(self, "VarName", nvars, &names) || !objective_text(self, names, &objective)) {
    return nullptr;
  }
  std::vector<std::string> rows{"Subject To"};
  std::vector<std::string> bounds;
  if (!linear_rows(self, names, &rows) || !quadratic_rows(self, names, &rows) || !bound_lines(self, names, &bounds)) {
    return nullptr;
  }
  if (!model_message(self, sense == -1 ? "Maximize" : "Minimize")) return nullptr;
  if (!split_long_message(self, objective, " ", 80)) return nullptr;
  for (const auto* part : {&rows, &bounds}) {
    for (const std::string& line : *part) {
      if (!model_message(self, line)) return nullptr;
    }
  }
  return py::none();
}

PyObject* model_printstats(PyObject* self, PyObject*) {
  std::string name;
  int nconstrs, nvars, nnz, nint, nbin, npwl, nsos, nqc, nqcnz, ngen;
  double mincoef, maxcoef, minobj, maxobj, minbound, maxbound, minrhs, maxrhs;
  if (!get_str(self, "ModelName", &name) || !get_int(self, "NumConstrs", &nconstrs) ||
      !get_int(self, "NumVars", &nvars) || !get_int(self, "NumNZs", &nnz) || !get_int(self, "NumIntVars", &nint) ||
      !get_int(self, "NumBinVars", &nbin) || !get_int(self, "NumPWLObjVars", &npwl) ||
      !get_int(self, "NumSOS", &nsos) || !get_int(self, "NumQConstrs", &nqc) || !get_int(self, "NumQCNZs", &nqcnz) ||
      !get_int(self, "NumGenConstrs", &ngen) || !get_dbl(self, "MinCoeff", &mincoef) ||
      !get_dbl(self, "MaxCoeff", &maxcoef) || !get_dbl(self, "MinObjCoeff", &minobj) ||
      !get_dbl(self, "MaxObjCoeff", &maxobj) || !get_dbl(self, "MinBound", &minbound) ||
      !get_dbl(self, "MaxBound", &maxbound) || !get_dbl(self, "MinRHS", &minrhs) || !get_dbl(self, "MaxRHS", &maxrhs)) {
    return nullptr;
  }
  std::vector<std::string> lines;
  lines.push_back("Statistics for model " + (name.empty() ? std::string("Unnamed") : name) + ":");
  lines.push_back(format("  Linear constraint matrix    : %d Constrs, %d Vars, %d NZs", nconstrs, nvars, nnz));
  std::string types = format("  Variable types              : %d Continuous,", nvars - nint);
  types += nbin > 0 ? format(" %d Integer (%d Binary)", nint, nbin) : format(" %d Integer", nint);
  lines.push_back(types);
  if (npwl != 0) lines.push_back(format("  PWL Objective variables     : %d", npwl));
  if (nsos != 0) lines.push_back(format("  SOS constraints             : %d", nsos));
  if (nqc != 0) lines.push_back(format("  Quadratic constraints       : %d Constrs, %d NZs", nqc, nqcnz));
  if (ngen != 0) lines.push_back(format("  General constraints         : %d Constrs", ngen));
  lines.push_back(format("  Matrix coefficient range    : [ %g, %g ]", shown(mincoef), shown(maxcoef)));
  lines.push_back(format("  Objective coefficient range : [ %g, %g ]", shown(minobj), shown(maxobj)));
  lines.push_back(format("  Variable bound range        : [ %g, %g ]", shown(minbound), shown(maxbound)));
  lines.push_back(format("  RHS coefficient range       : [ %g, %g ]", shown(minrhs), shown(maxrhs)));
  for (const std::string& line : lines) {
    if (!model_message(self, line)) return nullptr;
  }
  return py::none();
}

// Name of a row index counted across linear, quadratic, SOS and general constraints.
bool constr_name(PyObject* self, int index, std::string* out) {
  VLMmodel* h = model_handle(self);
  for (int kind : {VLM_KIND_CONSTR, VLM_KIND_QCONSTR, VLM_KIND_SOS, VLM_KIND_GENCONSTR}) {
    int count = 0;
    if (!get_int(self, kKinds[kind].count_attr, &count)) return false;
    if (index < count || kind == VLM_KIND_GENCONSTR) {
      char* name = nullptr;
      if (kKinds[kind].name_attr != nullptr && index >= 0 && index < count &&
          VLMgetstrattrelement(h, kKinds[kind].name_attr, index, &name) == 0 && name != nullptr && name[0] != '\0') {
        *out = name;
      } else {
        *out = kKinds[kind].prefix + std::to_string(index);
      }
      return true;
    }
    index -= count;
  }
  return true;
}

PyObject* model_getconstrname(PyObject* self, PyObject* arg) {
  long index = PyLong_AsLong(arg);
  if (index == -1 && PyErr_Occurred()) return nullptr;
  std::string name;
  if (!constr_name(self, static_cast<int>(index), &name)) return nullptr;
  return py::str(name).release();
}

bool var_name(PyObject* self, int index, std::string* out) {
  char* name = nullptr;
  int rc = VLMgetstrattrelement(model_handle(self), "VarName", index, &name);
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  *out = name ? name : "";
  return true;
}

PyObject* model_printquality(PyObject* self, PyObject*) {
  std::string name;
  int ismip = 0, solcount = 0;
  if (!get_str(self, "ModelName", &name) || !get_int(self, "IsMIP", &ismip) || !get_int(self, "SolCount", &solcount)) {
    return nullptr;
  }
  if (!model_message(self, "Solution quality statistics for model " + (name.empty() ? std::string("Unnamed") : name) + " :")) {
    return nullptr;
  }
  if (solcount <= 0) return py::none();
  std::vector<std::string> lines;
  auto pad = [](const char* label, std::size_t width) {
    std::string s(label);
    if (s.size() < width) s.append(width - s.size(), ' ');
    return s;
  };
  // " (name)" of the element with the largest violation, when there is a violation.
  auto where = [&](const char* index_attr, bool is_var, double vio, std::string* out) {
    out->clear();
    if (vio <= 0) return true;
    int index = 0;
    if (!get_int(self, index_attr, &index)) return false;
    std::string n;
    if (!(is_var ? var_name(self, index, &n) : constr_name(self, index, &n))) return false;
    *out = " (" + n + ")";
    return true;
  };
  std::string at;
  if (ismip) {
    lines.push_back("  Maximum violation:");
    struct Row {
      const char* label;
      const char* vio;
      const char* index;
      bool is_var;
    };
    for (const Row& r : {Row{"Bound", "BoundVio", "BoundVioIndex", true},
                         Row{"Constraint", "ConstrVio", "ConstrVioIndex", false},
                         Row{"Integrality", "IntVio", "IntVioIndex", true}}) {
      double v = 0;
      if (!get_dbl(self, r.vio, &v) || !where(r.index, r.is_var, v, &at)) return nullptr;
      lines.push_back(format("    %s : %.8e", pad(r.label, 11).c_str(), v) + at);
    }
  } else {
    lines.push_back("  Maximum violation (unscaled/scaled):");
    struct Row {
      const char* label;
      const char* vio;
      const char* svio;
      const char* index;
      bool is_var;
    };
    for (const Row& r : {Row{"Bound", "BoundVio", "BoundSVio", "BoundVioIndex", true},
                         Row{"Constraint", "ConstrVio", "ConstrSVio", "ConstrVioIndex", false},
                         Row{"Dual", "DualVio", "DualSVio", nullptr, false}}) {
      double v = 0, sv = 0;
      if (!get_dbl(self, r.vio, &v) || !get_dbl(self, r.svio, &sv)) return nullptr;
      if (r.index != nullptr && !where(r.index, r.is_var, v, &at)) return nullptr;
      lines.push_back(format("    %s : %.8e / %.8e", pad(r.label, 15).c_str(), v, sv) + (r.index ? at : ""));
    }
    double compl_vio = 0;
    if (!get_dbl(self, "ComplVio", &compl_vio)) return nullptr;
    lines.push_back(format("    %s : %.8e", pad("Complementarity", 15).c_str(), compl_vio));
  }
  for (const std::string& line : lines) {
    if (!model_message(self, line)) return nullptr;
  }
  return py::none();
}

// One table of printAttr: the element names matching `filter` in the first column, one
// column per attribute; for numeric attributes only rows with a non-zero value are shown.
std::string value_text(PyObject* v) {
  if (PyFloat_Check(v)) return format("%g", PyFloat_AS_DOUBLE(v));
  py::Ref s = py::Ref::steal(PyObject_Str(v));
  const char* c = s ? PyUnicode_AsUTF8(s.get()) : nullptr;
  if (c == nullptr) {
    PyErr_Clear();
    return "?";
  }
  return c;
}

bool nonzero_value(PyObject* v) {
  if (PyFloat_Check(v)) return PyFloat_AS_DOUBLE(v) != 0.0;
  if (PyLong_Check(v)) return PyLong_AsLong(v) != 0;
  if (PyUnicode_Check(v)) return PyUnicode_GET_LENGTH(v) > 0;
  return true;
}

PyObject* model_printattr(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"attrname", "filter", nullptr};
  PyObject* attrs = nullptr;
  PyObject* filter = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O|U:printAttr", const_cast<char**>(kwlist), &attrs, &filter)) return nullptr;
  py::Ref pattern = filter ? py::Ref::borrow(filter) : py::str("*");
  py::Ref names = PyUnicode_Check(attrs) ? py::Ref::steal(PyList_New(0)) : py::Ref::steal(PySequence_List(attrs));
  if (!names || !pattern) return nullptr;
  if (PyUnicode_Check(attrs) && PyList_Append(names.get(), attrs) < 0) return nullptr;
  VLMmodel* h = model_handle(self);
  // Attribute names grouped by element kind, in the order the tables are printed.
  const int order[] = {VLM_KIND_MODEL, VLM_KIND_VAR, VLM_KIND_CONSTR, VLM_KIND_QCONSTR, VLM_KIND_SOS, VLM_KIND_GENCONSTR};
  std::vector<std::pair<std::string, AttrInfo>> by_kind[VLM_KIND_GENCONSTR + 1];
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(names.get()); ++i) {
    const char* s = py::utf8(PyList_GET_ITEM(names.get(), i));
    if (s == nullptr) return nullptr;
    AttrInfo info;
    int rc = VLMgetattrinfo(h, s, &info.datatype, &info.kind, &info.settable);
    if (rc != 0) return raise_velmor(rc, self);
    if (info.kind < VLM_KIND_MODEL || info.kind > VLM_KIND_GENCONSTR) {
      std::string msg = std::string("Attribute '") + s + "' does not belong to a model or its elements";
      return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, msg.c_str());
    }
    by_kind[info.kind].emplace_back(s, info);
  }
  py::Ref fnmatch = py::Ref::steal(PyImport_ImportModule("fnmatch"));
  if (!fnmatch) return nullptr;
  const char* labels[] = {"Model", "Variable", "Constraint", "SOS", "QConstraint", "GenConstr"};
  std::string out;
  for (int kind : order) {
    auto& list = by_kind[kind];
    if (list.empty()) continue;
    int count = 1;
    if (kind != VLM_KIND_MODEL && !get_int(self, kKinds[kind].count_attr, &count)) return nullptr;
    std::vector<std::string> rownames;
    std::vector<py::Ref> columns;
    for (auto& [name, info] : list) {
      py::Ref values;
      if (kind == VLM_KIND_MODEL) {
        py::Ref pyname = py::str(name);
        py::Ref v = pyname ? attr_get(model_target(self), pyname.get()) : py::Ref();
        if (!v) return nullptr;
        values = py::Ref::steal(PyList_New(1));
        if (!values) return nullptr;
        PyList_SET_ITEM(values.get(), 0, v.release());
      } else {
        values = attr_get_array(self, h, name.c_str(), info, 0, count);
        if (!values) return nullptr;
      }
      columns.push_back(std::move(values));
    }
    if (kind == VLM_KIND_MODEL) {
      rownames.emplace_back("");
    } else if (kKinds[kind].name_attr != nullptr) {
      if (!get_str_array(self, kKinds[kind].name_attr, count, &rownames)) return nullptr;
    } else {
      for (int i = 0; i < count; ++i) rownames.push_back(kKinds[kind].prefix + std::to_string(i));
    }
    std::size_t w0 = std::strlen(labels[kind]);
    std::vector<std::size_t> widths;
    for (auto& [name, info] : list) widths.push_back(name.size() + 2 > 12 ? name.size() + 2 : 12);
    std::vector<std::string> rows;
    std::vector<std::size_t> shown_rows;
    for (int i = 0; i < count; ++i) {
      const auto ui = static_cast<std::size_t>(i);
      if (kind != VLM_KIND_MODEL) {
        py::Ref hit = py::Ref::steal(PyObject_CallMethod(fnmatch.get(), "fnmatch", "sO", rownames[ui].c_str(), pattern.get()));
        if (!hit) return nullptr;
        if (!PyObject_IsTrue(hit.get())) continue;
      }
      bool any = kind == VLM_KIND_MODEL;
      for (std::size_t c = 0; c < columns.size(); ++c) {
        PyObject* v = PyList_GET_ITEM(columns[c].get(), i);
        if (nonzero_value(v) || list[c].second.datatype == VLM_STR || list[c].second.datatype == VLM_CHAR) any = true;
      }
      if (!any) continue;
      shown_rows.push_back(ui);
      if (rownames[ui].size() > w0) w0 = rownames[ui].size();
    }
    std::string header = std::string(labels[kind]);
    header.resize(w0, ' ');
    for (std::size_t c = 0; c < list.size(); ++c) {
      std::string col(widths[c] > list[c].first.size() ? widths[c] - list[c].first.size() : 0, ' ');
      header += " " + col + list[c].first;
    }
    out += "\n" + header + "\n" + std::string(header.size(), '-') + "\n";
    for (std::size_t ui : shown_rows) {
      std::string row = rownames[ui];
      row.resize(w0, ' ');
      for (std::size_t c = 0; c < columns.size(); ++c) {
        std::string v = value_text(PyList_GET_ITEM(columns[c].get(), static_cast<Py_ssize_t>(ui)));
        row += " " + std::string(widths[c] > v.size() ? widths[c] - v.size() : 0, ' ') + v;
      }
      out += row + "\n";
    }
  }
  if (!write_stdout(out)) return nullptr;
  return py::none();
}

// ---- fields ----------------------------------------------------------------------------------

PyObject* or_none(PyObject* o) { return py::new_ref(o ? o : Py_None); }

PyObject* get_cmodel(PyObject* self, void*) { return or_none(as_model(self)->cmodel); }
PyObject* get_uenv(PyObject* self, void*) { return or_none(as_model(self)->uenv); }
PyObject* get_env(PyObject* self, void*) { return or_none(as_model(self)->env); }
PyObject* get_callback(PyObject* self, void*) { return or_none(as_model(self)->callback); }

int set_callback(PyObject* self, PyObject* value, void*) {
  py::assign(as_model(self)->callback, value == Py_None ? nullptr : value);
  return 0;
}

PyObject* get_list(PyObject* self, void* closure) {
  return or_none(list_of(as_model(self), static_cast<int>(reinterpret_cast<std::intptr_t>(closure))));
}

int set_list(PyObject* self, PyObject* value, void* closure) {
  if (value != nullptr && value != Py_None && !PyList_Check(value)) {
    PyErr_SetString(PyExc_TypeError, "the handle list must be a list or None");
    return -1;
  }
  py::assign(list_of(as_model(self), static_cast<int>(reinterpret_cast<std::intptr_t>(closure))),
             value == Py_None ? nullptr : value);
  return 0;
}

// Integer fields, addressed by their offset in ModelObject.
template <class T, T ModelObject::*Field>
PyObject* get_number(PyObject* self, void*) {
  if constexpr (std::is_same_v<T, bool>) {
    return py::boolean(as_model(self)->*Field);
  } else {
    return PyLong_FromLongLong(static_cast<long long>(as_model(self)->*Field));
  }
}

template <class T, T ModelObject::*Field>
int set_number(PyObject* self, PyObject* value, void*) {
  if (value == nullptr) {
    PyErr_SetString(PyExc_TypeError, "this field cannot be deleted");
    return -1;
  }
  if constexpr (std::is_same_v<T, bool>) {
    int t = PyObject_IsTrue(value);
    if (t < 0) return -1;
    as_model(self)->*Field = t != 0;
  } else {
    long long v = PyLong_AsLongLong(value);
    if (v == -1 && PyErr_Occurred()) return -1;
    as_model(self)->*Field = static_cast<T>(v);
  }
  return 0;
}

#define MODEL_NUMBER(name, type, field, doc) \
  {name, get_number<type, &ModelObject::field>, set_number<type, &ModelObject::field>, doc, nullptr}
#define MODEL_LIST(name, kind, doc) \
  {name, get_list, set_list, doc, reinterpret_cast<void*>(static_cast<std::intptr_t>(kind))}

PyGetSetDef model_getset[] = {
    {"_cmodel", get_cmodel, nullptr, "The library model handle, or None once disposed.", nullptr},
    {"_callback", get_callback, set_callback, "The active callback object during a solve, or None.", nullptr},
    {"_uenv", get_uenv, nullptr, "The environment the model was created in.", nullptr},
    {"_env", get_env, nullptr, "The Env over the model's own copy of its environment.", nullptr},
    MODEL_LIST("_Model__vars", VLM_KIND_VAR, "Variable handles in index order, then pending additions."),
    MODEL_LIST("_Model__constrs", VLM_KIND_CONSTR, "Linear constraint handles, as for variables."),
    MODEL_LIST("_Model__sos", VLM_KIND_SOS, "SOS constraint handles."),
    MODEL_LIST("_Model__qconstrs", VLM_KIND_QCONSTR, "Quadratic constraint handles."),
    MODEL_LIST("_Model__genconstrs", VLM_KIND_GENCONSTR, "General constraint handles."),
    MODEL_NUMBER("_Model__livevars", Py_ssize_t, livevars, "Variables that existed at the last update."),
    MODEL_NUMBER("_Model__liveconstrs", Py_ssize_t, liveconstrs, "Linear constraints that existed at the last update."),
    MODEL_NUMBER("_Model__delvars", bool, delvars, "True when a variable removal awaits the update."),
    MODEL_NUMBER("_Model__delconstrs", bool, delconstrs, "True when a constraint removal awaits the update."),
    MODEL_NUMBER("_Model__updatemode", int, updatemode, "Cached UpdateMode parameter; -1 reads it again."),
    MODEL_NUMBER("_Model__newranges", int, newranges, "Range constraints added in immediate mode since the last update."),
    MODEL_NUMBER("_modcnt", long, modcnt, "Modification counter."),
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, "The object's own fields.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

#undef MODEL_NUMBER
#undef MODEL_LIST

#define VARARGS_KW(fn) (PyCFunction)(void (*)(void))py::guarded<&fn>, METH_VARARGS | METH_KEYWORDS

PyMethodDef model_methods[] = {
    {"getAttr", VARARGS_KW(model_getattr_method),
     "getAttr(attrname, objs=None)\n\n"
     "Reads a library attribute. Without objs: a model attribute (m.getAttr('ObjVal')), or an\n"
     "element attribute for all elements of its kind as a list (m.getAttr('X')). With a list\n"
     "of elements: the list of their values, read in one call. With a dict (e.g. a tupledict of\n"
     "variables): a dict with the same keys.\n\n"
     "Failures of the list reads raise VelmorError; model attributes that are not available\n"
     "raise AttributeError."},
    {"setAttr", VARARGS_KW(model_setattr_method),
     "setAttr(attrname, arg1, arg2=None)\n\n"
     "Sets a library attribute: m.setAttr('ModelSense', -1) for a model attribute;\n"
     "m.setAttr('UB', vars, [1, 2, 3]) or m.setAttr('UB', vars, 0.0) for elements (a dict of\n"
     "elements takes a dict of values by key, a list, or one value). Changes take effect at the\n"
     "next update."},
    {"prefetchAttr", py::guarded<&model_prefetchattr>, METH_O,
     "prefetchAttr(attrname)\n\nPrepares a run of element reads of one attribute."},
    {"__dir__", py::guarded<&model_dir>, METH_NOARGS,
     "The names stored on the model plus the model attribute names of the library."},
    {"setParam", VARARGS_KW(model_setparam),
     "setParam(paramname, newval)\n\nSets a parameter of this model only (its own copy of the\n"
     "environment). Example: m.setParam('TimeLimit', 60)"},
    {"getParamInfo", py::guarded<&model_getparaminfo>, METH_O,
     "getParamInfo(paramname)\n\nReturns (name, type, value, minimum, maximum, default) of a\n"
     "parameter of this model."},
    {"fixTuneParam", py::guarded<&model_fixtuneparam>, METH_O,
     "fixTuneParam(paramname)\n\nKeeps the tuner from changing this parameter of the model."},
    {"resetParams", py::guarded<&model_resetparams>, METH_NOARGS,
     "resetParams()\n\nRestores every parameter of this model to its default."},
    {"_Model__setup", VARARGS_KW(model_setup_method),
     "__setup(empty=False)\n\nBuilds the element handle lists when they do not exist yet."},
    {"_Model__getupdatemode", py::guarded<&model_getupdatemode_method>, METH_NOARGS,
     "__getupdatemode()\n\nThe UpdateMode parameter, cached until the next update."},
    {"getVars", py::guarded<&model_getvars>, METH_NOARGS,
     "getVars()\n\nReturns a new list of the model's variables as of the last update."},
    {"getConstrs", py::guarded<&model_getconstrs>, METH_NOARGS,
     "getConstrs()\n\nReturns a new list of the model's linear constraints as of the last update."},
    {"getSOSs", py::guarded<&model_getsoss>, METH_NOARGS,
     "getSOSs()\n\nReturns a new list of the model's SOS constraints."},
    {"getQConstrs", py::guarded<&model_getqconstrs>, METH_NOARGS,
     "getQConstrs()\n\nReturns a new list of the model's quadratic constraints."},
    {"getGenConstrs", py::guarded<&model_getgenconstrs>, METH_NOARGS,
     "getGenConstrs()\n\nReturns a new list of the model's general constraints."},
    {"getVarByName", py::guarded<&model_getvarbyname>, METH_O,
     "getVarByName(name)\n\nThe variable with this name, or None."},
    {"getConstrByName", py::guarded<&model_getconstrbyname>, METH_O,
     "getConstrByName(name)\n\nThe linear constraint with this name, or None."},
    {"_owns", py::guarded<&model_owns>, METH_O,
     "_owns(object)\n\nTrue when the element belongs to this model."},
    {"remove", py::guarded<&model_remove>, METH_O,
     "remove(items)\n\nRemoves a Var, Constr, SOS, QConstr or GenConstr, or every element of a\n"
     "list, tuple or dict (its values) of them, or of a matrix variable or constraint. The\n"
     "removal takes effect at the next update; elements already removed are ignored."},
    {"_removeone", py::guarded<&model_removeone>, METH_O,
     "_removeone(item)\n\nMarks one element for removal at the next update."},
#define FASTCALL_KW(fn) (PyCFunction)(void (*)(void))py::guarded<&fn>, METH_FASTCALL | METH_KEYWORDS
    {"addVar", FASTCALL_KW(model_addvar), model_addvar_doc},
    {"addVars", FASTCALL_KW(model_addvars), model_addvars_doc},
    {"addLConstr", FASTCALL_KW(model_addlconstr), model_addlconstr_doc},
    {"addConstr", FASTCALL_KW(model_addconstr), model_addconstr_doc},
    {"addQConstr", FASTCALL_KW(model_addqconstr), model_addqconstr_doc},
    {"addRange", FASTCALL_KW(model_addrange), model_addrange_doc},
    {"addConstrs", FASTCALL_KW(model_addconstrs), model_addconstrs_doc},
    {"addSOS", FASTCALL_KW(model_addsos), model_addsos_doc},
    {"getCoeff", FASTCALL_KW(model_getcoeff), model_getcoeff_doc},
    {"chgCoeff", FASTCALL_KW(model_chgcoeff), model_chgcoeff_doc},
    {"getCol", FASTCALL_KW(model_getcol), model_getcol_doc},
    {"getRow", FASTCALL_KW(model_getrow), model_getrow_doc},
    {"getQCRow", FASTCALL_KW(model_getqcrow), model_getqcrow_doc},
    {"getSOS", FASTCALL_KW(model_getsos), model_getsos_doc},
#undef FASTCALL_KW
    {"optimize", (PyCFunction)(void (*)(void))py::guarded<&model_optimize>,
     METH_FASTCALL | METH_KEYWORDS, model_optimize_doc},
    {"terminate", py::guarded<&model_terminate>, METH_NOARGS, model_terminate_doc},
    {"tune", py::guarded<&model_tune>, METH_NOARGS, model_tune_doc},
    {"getTuneResult", py::guarded<&model_gettuneresult>, METH_O, model_gettuneresult_doc},
    {"optimizeBatch", py::guarded<&model_optimizebatch>, METH_NOARGS, model_optimizebatch_doc},
    {"setObjective", VARARGS_KW(model_setobjective), model_setobjective_doc},
    {"setObjectiveN", VARARGS_KW(model_setobjectiven), model_setobjectiven_doc},
    {"getObjective", VARARGS_KW(model_getobjective), model_getobjective_doc},
    {"setPWLObj", VARARGS_KW(model_setpwlobj), model_setpwlobj_doc},
    {"getPWLObj", py::guarded<&model_getpwlobj>, METH_O, model_getpwlobj_doc},
    {"update", py::guarded<&model_update_method>, METH_NOARGS,
     "update()\n\nApplies pending changes: removals, then additions and modifications. Elements\n"
     "added since the last update appear in getVars() and getConstrs() afterwards."},
    {"reset", VARARGS_KW(model_reset),
     "reset(clearall=0)\n\nDiscards solution information; with clearall=1 also starts, hints\n"
     "and other inputs that only guide the solver."},
    {"copy", py::guarded<&model_copy>, METH_NOARGS,
     "copy()\n\nReturns a copy of the model as of its last update (pending changes are not\n"
     "copied), created in the same environment."},
    {"write", py::guarded<&model_write>, METH_O,
     "write(filename)\n\nWrites the model (.lp, .mps, optionally .gz), its attribute data or its\n"
     "parameters (.prm); the suffix decides. Pending changes are applied first for model and\n"
     "attribute files.\n\nExample: m.write('model.lp')"},
    {"read", py::guarded<&model_read>, METH_O,
     "read(filename)\n\nReads data into the model by the file's suffix: attributes, parameters,\n"
     "starts, bases. '*' and '?' are expanded (the first match is read)."},
    {"message", py::guarded<&model_message_method>, METH_O,
     "message(msg)\n\nWrites a line to the model's log."},
    {"dispose", py::guarded<&model_dispose>, METH_NOARGS,
     "dispose()\n\nFrees the library model. Its elements become unusable. Disposing twice does\n"
     "nothing."},
    {"close", py::guarded<&model_dispose>, METH_NOARGS, "close()\n\nSame as dispose()."},
    {"__enter__", py::guarded<&model_enter>, METH_NOARGS, "Returns the model itself."},
    {"__exit__", (PyCFunction)(void (*)(void))py::guarded<&model_exit>, METH_FASTCALL,
     "Disposes the model when the with-block ends; exceptions propagate."},
    {"display", VARARGS_KW(model_display),
     "display(obj=None)\n\nWrites the model to the log in a readable, LP-like form: objective,\n"
     "constraints, bounds and integer variables. With obj, writes str(obj) instead."},
    {"_splitlongmessage", VARARGS_KW(model_splitlongmessage),
     "_splitlongmessage(longstring, sep=' ', length=80)\n\nWrites a long text to the log in pieces cut\n"
     "at the last separator before the length limit."},
    {"printStats", py::guarded<&model_printstats>, METH_NOARGS,
     "printStats()\n\nWrites size, variable types and coefficient ranges of the model to the log."},
    {"printQuality", py::guarded<&model_printquality>, METH_NOARGS,
     "printQuality()\n\nWrites the largest bound, constraint and integrality (or dual and\n"
     "complementarity) violations of the current solution to the log."},
    {"printAttr", VARARGS_KW(model_printattr),
     "printAttr(attrname, filter='*')\n\nPrints a table of one attribute (or a list of them) for\n"
     "the model or every element that carries it, for elements whose names match filter; zero\n"
     "numeric values are left out.\n\nExample: m.printAttr('X')"},
    {"_getConstrName", py::guarded<&model_getconstrname>, METH_O,
     "_getConstrName(index)\n\nThe name of a row index counted across linear, quadratic, SOS and\n"
     "general constraints."},
    {"addGenConstrMax", VARARGS_KW(model_addgenconstrmax), model_addgenconstrmax_doc},
    {"addGenConstrMin", VARARGS_KW(model_addgenconstrmin), model_addgenconstrmin_doc},
    {"addGenConstrAbs", VARARGS_KW(model_addgenconstrabs), model_addgenconstrabs_doc},
    {"addGenConstrAnd", VARARGS_KW(model_addgenconstrand), model_addgenconstrand_doc},
    {"addGenConstrOr", VARARGS_KW(model_addgenconstror), model_addgenconstror_doc},
    {"addGenConstrNorm", VARARGS_KW(model_addgenconstrnorm), model_addgenconstrnorm_doc},
    {"addGenConstrIndicator", VARARGS_KW(model_addgenconstrindicator), model_addgenconstrindicator_doc},
    {"addGenConstrPWL", VARARGS_KW(model_addgenconstrpwl), model_addgenconstrpwl_doc},
    {"addGenConstrPoly", VARARGS_KW(model_addgenconstrpoly), model_addgenconstrpoly_doc},
    {"addGenConstrExp", VARARGS_KW(model_addgenconstrexp), model_addgenconstrexp_doc},
    {"addGenConstrExpA", VARARGS_KW(model_addgenconstrexpa), model_addgenconstrexpa_doc},
    {"addGenConstrLog", VARARGS_KW(model_addgenconstrlog), model_addgenconstrlog_doc},
    {"addGenConstrLogA", VARARGS_KW(model_addgenconstrloga), model_addgenconstrloga_doc},
    {"addGenConstrPow", VARARGS_KW(model_addgenconstrpow), model_addgenconstrpow_doc},
    {"addGenConstrLogistic", VARARGS_KW(model_addgenconstrlogistic), model_addgenconstrlogistic_doc},
    {"addGenConstrSin", VARARGS_KW(model_addgenconstrsin), model_addgenconstrsin_doc},
    {"addGenConstrCos", VARARGS_KW(model_addgenconstrcos), model_addgenconstrcos_doc},
    {"addGenConstrTan", VARARGS_KW(model_addgenconstrtan), model_addgenconstrtan_doc},
    {"getGenConstrMax", py::guarded<&model_getgenconstrmax>, METH_O, model_getgenconstrmax_doc},
    {"getGenConstrMin", py::guarded<&model_getgenconstrmin>, METH_O, model_getgenconstrmin_doc},
    {"getGenConstrAbs", py::guarded<&model_getgenconstrabs>, METH_O, model_getgenconstrabs_doc},
    {"getGenConstrAnd", py::guarded<&model_getgenconstrand>, METH_O, model_getgenconstrand_doc},
    {"getGenConstrOr", py::guarded<&model_getgenconstror>, METH_O, model_getgenconstror_doc},
    {"getGenConstrNorm", py::guarded<&model_getgenconstrnorm>, METH_O, model_getgenconstrnorm_doc},
    {"getGenConstrIndicator", py::guarded<&model_getgenconstrindicator>, METH_O, model_getgenconstrindicator_doc},
    {"getGenConstrPWL", py::guarded<&model_getgenconstrpwl>, METH_O, model_getgenconstrpwl_doc},
    {"getGenConstrPoly", py::guarded<&model_getgenconstrpoly>, METH_O, model_getgenconstrpoly_doc},
    {"getGenConstrExp", py::guarded<&model_getgenconstrexp>, METH_O, model_getgenconstrexp_doc},
    {"getGenConstrExpA", py::guarded<&model_getgenconstrexpa>, METH_O, model_getgenconstrexpa_doc},
    {"getGenConstrLog", py::guarded<&model_getgenconstrlog>, METH_O, model_getgenconstrlog_doc},
    {"getGenConstrLogA", py::guarded<&model_getgenconstrloga>, METH_O, model_getgenconstrloga_doc},
    {"getGenConstrPow", py::guarded<&model_getgenconstrpow>, METH_O, model_getgenconstrpow_doc},
    {"getGenConstrLogistic", py::guarded<&model_getgenconstrlogistic>, METH_O, model_getgenconstrlogistic_doc},
    {"getGenConstrSin", py::guarded<&model_getgenconstrsin>, METH_O, model_getgenconstrsin_doc},
    {"getGenConstrCos", py::guarded<&model_getgenconstrcos>, METH_O, model_getgenconstrcos_doc},
    {"getGenConstrTan", py::guarded<&model_getgenconstrtan>, METH_O, model_getgenconstrtan_doc},
    {nullptr, nullptr, 0, nullptr}};

#undef VARARGS_KW

const char model_doc[] =
    "Model(name=\"\", env=None)\n\n"
    "An optimisation model: variables, constraints and an objective, held by the library.\n"
    "Without env the default environment is used. Library attributes read and write as\n"
    "Python attributes (m.NumVars, m.ModelSense = -1); names that begin with '_' are stored\n"
    "on the object. Additions and removals take effect at update(), which optimize() and\n"
    "write() run first.\n\n"
    "Use it as a context manager to dispose it at the end of a with-block:\n\n"
    "    with Model(\"diet\") as m:\n"
    "        ...";

}  // namespace

bool model_check(PyObject* o) { return PyObject_TypeCheck(o, &ModelType); }

PyTypeObject* model_type_object() { return &ModelType; }

int model_var_column(PyObject* model, PyObject* var) {
  if (handle_kind(var) == VLM_KIND_VAR) {
    HandleObject* h = as_handle(var);
    if (model_has(model, var) && h->index != kIndexPending && h->index != kIndexRemoved) {
      return handle_position(h->index);
    }
  }
  raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, "Variable not in model");
  return -1;
}

// The shared core of an initialised Model, for the element handles (through services()).
ModelCore* model_core_of(PyObject* obj) { return model_check(obj) ? as_model(obj)->core : nullptr; }

VLMmodel* model_handle_of(PyObject* obj, bool* found) {
  *found = true;
  if (model_check(obj)) return model_handle(obj);
  if (handle_kind(obj) != 0) return handle_cmodel(obj);
  *found = false;
  return nullptr;
}

int model_setup(PyObject* self, bool empty) {
  ModelObject* m = as_model(self);
  if (list_of(m, VLM_KIND_VAR) != nullptr) return 0;
  int counts[kNumElementKinds] = {0, 0, 0, 0, 0};
  if (!empty) {
    for (int kind = VLM_KIND_VAR; kind <= VLM_KIND_GENCONSTR; ++kind) {
      if (!get_int(self, kKinds[kind].count_attr, &counts[kind - 1])) return -1;
    }
  }
  py::Ref lists[kNumElementKinds];
  {
    GcThresholdRaise raised;
    if (!raised.ok()) return -1;
    for (int kind = VLM_KIND_VAR; kind <= VLM_KIND_GENCONSTR; ++kind) {
      const int n = counts[kind - 1];
      py::Ref list = py::Ref::steal(PyList_New(n));
      if (!list) return -1;
      for (int i = 0; i < n; ++i) {
        py::Ref h = handle_new(kind, as_model(self)->core, i);
        if (!h) return -1;
        PyList_SET_ITEM(list.get(), i, h.release());
      }
      lists[kind - 1] = std::move(list);
    }
  }
  if (PyErr_Occurred()) return -1;
  for (int k = 0; k < kNumElementKinds; ++k) m->lists[k] = lists[k].release();
  m->livevars = counts[0];
  m->liveconstrs = counts[1];
  m->delvars = false;
  m->delconstrs = false;
  return 0;
}

int model_getupdatemode(PyObject* self) {
  ModelObject* m = as_model(self);
  if (m->updatemode == -1) {
    int mode = 0;
    int rc = VLMgetintparam(VLMgetenv(m->handle), "UpdateMode", &mode);
    if (rc != 0) {
      if (m->handle == nullptr) {
        disposed_error(self);
      } else {
        raise_velmor(rc, m->env);
      }
      return -1;
    }
    m->updatemode = mode;
  }
  return m->updatemode;
}

PyObject* model_list(PyObject* self, int kind) {
  if (model_setup(self, false) < 0) return nullptr;
  return list_of(as_model(self), kind);
}

py::Ref model_append_handle(PyObject* self, int kind) {
  PyObject* list = model_list(self, kind);
  if (list == nullptr) return py::Ref();
  int mode = model_getupdatemode(self);
  if (mode == -1 && PyErr_Occurred()) return py::Ref();
  int index = mode == 1 ? static_cast<int>(PyList_GET_SIZE(list)) : kIndexPending;
  py::Ref h = handle_new(kind, as_model(self)->core, index);
  if (!h || PyList_Append(list, h.get()) < 0) return py::Ref();
  return h;
}

int model_append_handles(PyObject* self, int kind, Py_ssize_t count) {
  PyObject* list = model_list(self, kind);
  if (list == nullptr) return -1;
  int mode = model_getupdatemode(self);
  if (mode == -1 && PyErr_Occurred()) return -1;
  Py_ssize_t first = PyList_GET_SIZE(list);
  py::Ref added = py::Ref::steal(PyList_New(count));
  if (!added) return -1;
  {
    GcThresholdRaise raised;
    if (!raised.ok()) return -1;
    for (Py_ssize_t i = 0; i < count; ++i) {
      py::Ref h = handle_new(kind, as_model(self)->core, mode == 1 ? static_cast<int>(first + i) : kIndexPending);
      if (!h) return -1;
      PyList_SET_ITEM(added.get(), i, h.release());
    }
  }
  if (PyErr_Occurred()) return -1;
  // The first batch of a model becomes its list as it is, without a copy.
  if (first == 0) {
    py::assign(list_of(as_model(self), kind), added.get());
    return 0;
  }
  return PyList_SetSlice(list, first, first, added.get());
}

py::Ref model_adopt(VLMmodel* handle, PyObject* env) {
  py::Ref capsule = py::Ref::steal(PyCapsule_New(handle, kCapsuleName, nullptr));
  if (!capsule) {
    VLMfreemodel(handle);
    return capsule;
  }
  py::Ref args = py::Ref::steal(PyTuple_New(0));
  py::Ref kwargs = py::Ref::steal(Py_BuildValue("{sOsO}", "cmodel", capsule.get(), "env", env ? env : Py_None));
  if (!args || !kwargs) {
    VLMfreemodel(handle);
    return py::Ref();
  }
  return py::Ref::steal(PyObject_Call(reinterpret_cast<PyObject*>(&ModelType), args.get(), kwargs.get()));
}

// The library deletes a general constraint together with its result or argument variable;
// marking those constraints for removal keeps their handles in step.
bool mark_dependent_genconstrs(PyObject* self) {
  ModelObject* m = as_model(self);
  PyObject* gens = list_of(m, VLM_KIND_GENCONSTR);
  if (gens == nullptr || PyList_GET_SIZE(gens) == 0) return true;
  PyObject* vars = list_of(m, VLM_KIND_VAR);
  std::vector<char> deleted;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(vars); ++i) {
    int idx = as_handle(PyList_GET_ITEM(vars, i))->index;
    if (idx <= -3) {
      std::size_t col = static_cast<std::size_t>(handle_position(idx));
      if (deleted.size() <= col) deleted.resize(col + 1, 0);
      deleted[col] = 1;
    }
  }
  auto gone = [&](int col) { return col >= 0 && static_cast<std::size_t>(col) < deleted.size() && deleted[col]; };
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(gens); ++i) {
    HandleObject* g = as_handle(PyList_GET_ITEM(gens, i));
    if (g->index < 0) continue;
    int res = -1, arg = -1;
    int rc = VLMgetgenconstrvars(m->handle, g->index, &res, &arg);
    if (rc == VLM_ERROR_INDEX_OUT_OF_RANGE) continue;  // added in this batch: not in the library yet
    if (rc != 0) {
      raise_velmor(rc, self);
      return false;
    }
    if (gone(res) || gone(arg)) g->index = -3 - g->index;
  }
  return true;
}

int model_update(PyObject* self) {
  ModelObject* m = as_model(self);
  if (m->handle == nullptr) {
    disposed_error(self);
    return -1;
  }
  if (model_setup(self, false) < 0) return -1;
  // One variable handle per slack of the range constraints added in immediate mode. The count
  // is cleared at once so that a failing update cannot append them twice.
  PyObject* vars = list_of(m, VLM_KIND_VAR);
  for (; m->newranges > 0; --m->newranges) {
    py::Ref h = handle_new(VLM_KIND_VAR, as_model(self)->core, static_cast<int>(PyList_GET_SIZE(vars)));
    if (!h || PyList_Append(vars, h.get()) < 0) return -1;
  }
  if (m->delvars && !mark_dependent_genconstrs(self)) return -1;
  for (int kind = VLM_KIND_VAR; kind <= VLM_KIND_GENCONSTR; ++kind) {
    if (kind == VLM_KIND_VAR && !m->delvars) continue;
    if (kind == VLM_KIND_CONSTR && !m->delconstrs) continue;
    if (!apply_removals(self, kind)) return -1;
    if (kind == VLM_KIND_VAR) {
      m->delvars = false;
      m->livevars = PyList_GET_SIZE(list_of(m, kind));
    }
    if (kind == VLM_KIND_CONSTR) {
      m->delconstrs = false;
      m->liveconstrs = PyList_GET_SIZE(list_of(m, kind));
    }
  }
  int rc = VLMupdatemodel(m->handle);
  if (rc != 0) {
    raise_velmor(rc, self);
    return -1;
  }
  for (int kind = VLM_KIND_VAR; kind <= VLM_KIND_GENCONSTR; ++kind) {
    if (!renumber(self, kind)) return -1;
  }
  m->livevars = PyList_GET_SIZE(list_of(m, VLM_KIND_VAR));
  m->liveconstrs = PyList_GET_SIZE(list_of(m, VLM_KIND_CONSTR));
  m->newranges = 0;
  m->updatemode = -1;
  return 0;
}

int register_model(PyObject* m) {
  ModuleServices& s = services();
  s.model_type = &ModelType;
  s.model_handle_of = model_handle_of;
  s.model_adopt = model_adopt;
  s.model_core = model_core_of;
  g_env_type = PyObject_GetAttrString(m, "Env");
  g_param_type = g_env_type ? PyObject_GetAttrString(m, "ParamClass") : nullptr;
  if (g_param_type == nullptr) return -1;
  ModelType.tp_basicsize = sizeof(ModelObject);
  ModelType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  ModelType.tp_doc = model_doc;
  ModelType.tp_new = py::guarded<&model_new>;
  ModelType.tp_init = py::guarded<&model_init>;
  ModelType.tp_dealloc = model_dealloc;
  ModelType.tp_finalize = model_finalize;
  ModelType.tp_traverse = model_traverse;
  ModelType.tp_clear = model_clear;
  ModelType.tp_repr = py::guarded<&model_repr>;
  ModelType.tp_getattro = py::guarded<&model_getattro>;
  ModelType.tp_setattro = py::guarded<&model_setattro>;
  ModelType.tp_methods = model_methods;
  ModelType.tp_getset = model_getset;
  ModelType.tp_dictoffset = offsetof(ModelObject, dict);
  ModelType.tp_weaklistoffset = offsetof(ModelObject, weakreflist);
  if (PyType_Ready(&ModelType) < 0) return -1;
  Py_INCREF(&ModelType);
  return PyModule_AddObject(m, "Model", reinterpret_cast<PyObject*>(&ModelType));
}
