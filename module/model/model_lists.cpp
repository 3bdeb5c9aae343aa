// Model: the element handle lists, removal and the lazy update.
//
// Invariants: after setup, lists[kind - 1] holds the handles of the library's elements of that
// kind in index order followed by additions not yet applied; a handle's index is -3 - i while
// its removal waits for update(), which sends all removals of one kind in one call, then
// updates, then renumbers every handle by its list position.
#include "model/model_lists.h"

#include <vector>

#include "elements/handle.h"
#include "model/model.h"
#include "model/model_util.h"
#include "core/py_convert.h"
#include "core/py_error.h"

namespace {

PyObject* disposed_error(PyObject* self) { return raise_velmor(VLM_ERROR_NULL_ARGUMENT, self); }

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

// ---- the element lists -----------------------------------------------------------------------

PyObject* live_slice(PyObject* self, int kind, Py_ssize_t live) {
  PyObject* list = model_list(self, kind);
  if (list == nullptr) return nullptr;
  if (live > PyList_GET_SIZE(list)) live = PyList_GET_SIZE(list);
  return PyList_GetSlice(list, 0, live);
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

// ---- removal ---------------------------------------------------------------------------------

// Whether `item` is an element handle of this model; false with VelmorError set otherwise.
bool check_removable(PyObject* self, PyObject* item) {
  int kind = handle_kind(item);
  if (kind == 0) {
    raise_velmor_msg(-1, "Tried to remove an object that is not a Var, Constr, SOS, QConstr or GenConstr");
    return false;
  }
  if (!model_has(self, item)) {
    std::string msg = std::string("Tried to remove a ") + handle_type_name(kind) + " that belongs to another model";
    raise_velmor_msg(-1, msg.c_str());
    return false;
  }
  return true;
}

// Marks a checked handle for removal at the next update.
void mark_removed(PyObject* self, PyObject* item) {
  HandleObject* h = as_handle(item);
  if (h->index < 0) return;
  h->index = -3 - h->index;
  ModelObject* m = as_model(self);
  int kind = handle_kind(item);
  if (kind == VLM_KIND_VAR) m->delvars = true;
  if (kind == VLM_KIND_CONSTR) m->delconstrs = true;
}

// All or nothing: every item is checked before the first one is marked.
bool remove_all(PyObject* self, PyObject* iterable) {
  py::Ref items = py::Ref::steal(PySequence_Fast(iterable, "remove() takes an element or a collection of elements"));
  if (!items) return false;
  const Py_ssize_t n = PySequence_Fast_GET_SIZE(items.get());
  PyObject** data = PySequence_Fast_ITEMS(items.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (!check_removable(self, data[i])) return false;
  }
  for (Py_ssize_t i = 0; i < n; ++i) mark_removed(self, data[i]);
  return true;
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

}  // namespace

// ---- the methods -----------------------------------------------------------------------------

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

PyObject* model_getvars(PyObject* self, PyObject*) {
  if (model_setup(self, false) < 0) return nullptr;
  return live_slice(self, VLM_KIND_VAR, as_model(self)->livevars);
}

PyObject* model_getconstrs(PyObject* self, PyObject*) {
  if (model_setup(self, false) < 0) return nullptr;
  return live_slice(self, VLM_KIND_CONSTR, as_model(self)->liveconstrs);
}

PyObject* model_getsoss(PyObject* self, PyObject*) { return placed_handles(self, VLM_KIND_SOS); }
PyObject* model_getqconstrs(PyObject* self, PyObject*) { return placed_handles(self, VLM_KIND_QCONSTR); }
PyObject* model_getgenconstrs(PyObject* self, PyObject*) { return placed_handles(self, VLM_KIND_GENCONSTR); }

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

PyObject* model_removeone(PyObject* self, PyObject* item) {
  if (!check_removable(self, item)) return nullptr;
  mark_removed(self, item);
  return py::none();
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

PyObject* model_update_method(PyObject* self, PyObject*) {
  if (model_update(self) < 0) return nullptr;
  return py::none();
}

// ---- for the other aspect files (model.h) ----------------------------------------------------

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
