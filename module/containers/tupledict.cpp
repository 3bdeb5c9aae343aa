// tupledict: a dict subclass in C whose keys are selected by pattern through a cached tuplelist.
//
// Invariants: `keys` is None or a tuplelist of the keys in iteration order (the positions of
// `pos` first, in position order, then the unpositioned keys in insertion order); every
// mutating method resets it to None after the dict operation succeeded. `pos` maps a key to its
// position; __setitem__ writes it, nothing removes from it. Operations that bypass the methods
// (dict.__setitem__(td, k, v)) leave `keys` stale until clean(), as documented.
//
// Hot paths (select, sum, values, items) for the exact type walk the positions that the key
// tuplelist's index yields, without building intermediate tuplelists. Values are read from a
// snapshot taken while the keys were collected (one array aligned with the key list, borrowed
// pointers), which saves a hash lookup and its cache misses per selected key. The snapshot is
// used only while the dict's version tag and the key list are unchanged since it was taken, so
// the borrowed pointers are still owned by the dict and the values are current; otherwise each
// value is looked up. Subclasses go through their own keys() and __getitem__.
#include "containers/tupledict.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <vector>

#include "expr/linexpr.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "containers/subclass.h"
#include "containers/tuplelist.h"

namespace {

// The values of the dict in key-list order when the key list was built (borrowed).
struct ValueSnapshot {
  std::vector<PyObject*> values;
  std::uint64_t dict_version;
  unsigned long keys_generation;
};

}  // namespace

struct TupleDictObject {
  PyDictObject dict;
  PyObject* wild;
  PyObject* keys;  // tuplelist cache or None; nullptr only after `del td._tupledict__keys`
  PyObject* pos;   // key -> position
  PyObject* inst_dict;
  PyObject* weakreflist;
  ValueSnapshot* snapshot;  // belongs to `keys`; dropped whenever `keys` is written
};

namespace {

PyObject* star = nullptr;      // '*', kept for the process lifetime
PyObject* dict_pop = nullptr;  // dict's own method descriptors (borrowed from its type)
PyObject* dict_popitem = nullptr;
PyObject* dict_update = nullptr;
PyObject* dict_setdefault = nullptr;

TupleDictObject* as_td(PyObject* o) { return reinterpret_cast<TupleDictObject*>(o); }
bool exact(PyObject* o) { return Py_IS_TYPE(o, &TupleDictType); }

// Version tags exist up to 3.13 (deprecated from 3.12 but still maintained); without them the
// snapshot is never trusted and every value is looked up.
#if PY_VERSION_HEX < 0x030E0000
#define VELMOR_DICT_VERSION 1
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
std::uint64_t dict_version(PyObject* d) {
  return reinterpret_cast<PyDictObject*>(d)->ma_version_tag;
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
#else
#define VELMOR_DICT_VERSION 0
std::uint64_t dict_version(PyObject*) { return 0; }
#endif

void drop_snapshot(TupleDictObject* t) {
  delete t->snapshot;
  t->snapshot = nullptr;
}

void td_clean(PyObject* self) {
  drop_snapshot(as_td(self));
  py::assign(as_td(self)->keys, Py_None);
}

PyObject* missing_attribute(const char* name) {
  PyErr_Format(PyExc_AttributeError, "'tupledict' object has no attribute '%s'", name);
  return nullptr;
}

// self[key]: a plain lookup for the exact type, __getitem__ (and __missing__) otherwise.
py::Ref value_of(PyObject* self, PyObject* key) {
  if (!exact(self)) return py::Ref::steal(PyObject_GetItem(self, key));
  PyObject* v = PyDict_GetItemWithError(self, key);
  if (v != nullptr) return py::Ref::borrow(v);
  if (!PyErr_Occurred()) {
    py::Ref args = py::Ref::steal(PyTuple_Pack(1, key));
    if (args) PyErr_SetObject(PyExc_KeyError, args.get());
  }
  return py::Ref();
}

int contains(PyObject* self, PyObject* key) {
  return exact(self) ? PyDict_Contains(self, key) : PySequence_Contains(self, key);
}

py::Ref call_method(PyObject* self, const char* name, PyObject* const* args, Py_ssize_t nargs) {
  py::Ref method = py::Ref::steal(PyObject_GetAttrString(self, name));
  if (!method) return method;
  return py::Ref::steal(
      PyObject_Vectorcall(method.get(), args, static_cast<size_t>(nargs), nullptr));
}

// ---- key order ----------------------------------------------------------------------------------

// The stable order of `keys` (a list) by position, pos.get(k, len(pos) + 1), as a permutation;
// left empty when the order is the list's own.
int order_by_position(PyObject* keys, PyObject* pos, std::vector<Py_ssize_t>& perm) {
  Py_ssize_t n = PyList_GET_SIZE(keys);
  Py_ssize_t npos = PyObject_Length(pos);
  if (npos < 0) return -1;
  if (npos == 0 && PyDict_CheckExact(pos)) return 0;
  py::Ref missing = py::Ref::steal(PyLong_FromSsize_t(npos + 1));
  if (!missing) return -1;
  py::Ref ranks = py::Ref::steal(PyList_New(n));
  if (!ranks) return -1;
  bool all_ints = true;
  std::vector<long long> rank(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* key = PyList_GET_ITEM(keys, i);
    py::Ref r;
    if (PyDict_CheckExact(pos)) {
      PyObject* v = PyDict_GetItemWithError(pos, key);
      if (v == nullptr && PyErr_Occurred()) return -1;
      r = py::Ref::borrow(v ? v : missing.get());
    } else {
      PyObject* args[] = {key, missing.get()};
      r = call_method(pos, "get", args, 2);
      if (!r) return -1;
    }
    if (all_ints && PyLong_CheckExact(r.get())) {
      int overflow = 0;
      rank[static_cast<size_t>(i)] = PyLong_AsLongLongAndOverflow(r.get(), &overflow);
      if (overflow) all_ints = false;
    } else {
      all_ints = false;
    }
    PyList_SET_ITEM(ranks.get(), i, r.release());
  }
  perm.resize(static_cast<size_t>(n));
  std::iota(perm.begin(), perm.end(), 0);
  if (all_ints) {
    std::stable_sort(perm.begin(), perm.end(), [&](Py_ssize_t a, Py_ssize_t b) {
      return rank[static_cast<size_t>(a)] < rank[static_cast<size_t>(b)];
    });
    return 0;
  }
  // Positions of other types compare with their own '<' (which may fail or be inconsistent):
  // list.sort orders the indices.
  py::Ref idx = py::Ref::steal(PyList_New(n));
  if (!idx) return -1;
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* v = PyLong_FromSsize_t(i);
    if (v == nullptr) return -1;
    PyList_SET_ITEM(idx.get(), i, v);
  }
  py::Ref getter = py::Ref::steal(PyObject_GetAttrString(ranks.get(), "__getitem__"));
  py::Ref sort = py::Ref::steal(PyObject_GetAttrString(idx.get(), "sort"));
  py::Ref kwargs = py::Ref::steal(PyDict_New());
  py::Ref noargs = py::Ref::steal(PyTuple_New(0));
  if (!getter || !sort || !kwargs || !noargs) return -1;
  if (PyDict_SetItemString(kwargs.get(), "key", getter.get()) < 0) return -1;
  if (!py::Ref::steal(PyObject_Call(sort.get(), noargs.get(), kwargs.get()))) return -1;
  for (Py_ssize_t i = 0; i < n; ++i)
    perm[static_cast<size_t>(i)] = PyLong_AsSsize_t(PyList_GET_ITEM(idx.get(), i));
  return 0;
}

// keys() of the exact implementation: the cache when it is truthy, else a new key tuplelist
// (with the value snapshot, taken in the same walk over the dict).
py::Ref own_keys(PyObject* self) {
  TupleDictObject* t = as_td(self);
  if (t->keys != nullptr && t->keys != Py_None) {
    int truth = PyObject_IsTrue(t->keys);
    if (truth < 0) return py::Ref();
    if (truth) return py::Ref::borrow(t->keys);
  }
  if (t->pos == nullptr) return py::Ref::steal(missing_attribute("_tupledict__pos"));
  if (t->wild == nullptr) return py::Ref::steal(missing_attribute("wild"));
  py::Ref pos = py::Ref::borrow(t->pos);
  py::Ref wild = py::Ref::borrow(t->wild);
  Py_ssize_t n = PyDict_GET_SIZE(self);
  py::Ref list = py::Ref::steal(PyList_New(n));
  if (!list) return list;
  auto snap = std::make_unique<ValueSnapshot>();
  snap->values.resize(static_cast<size_t>(n));
  // PyDict_Next runs no Python code: keys and values come from one consistent state.
  Py_ssize_t i = 0, at = 0;
  PyObject* key;
  PyObject* value;
  while (i < n && PyDict_Next(self, &at, &key, &value)) {
    PyList_SET_ITEM(list.get(), i, py::new_ref(key));
    snap->values[static_cast<size_t>(i++)] = value;
  }
  snap->dict_version = dict_version(self);
  std::vector<Py_ssize_t> perm;
  if (order_by_position(list.get(), pos.get(), perm) < 0) return py::Ref();
  if (!perm.empty()) {
    py::Ref sorted = py::Ref::steal(PyList_New(n));
    if (!sorted) return sorted;
    std::vector<PyObject*> values(static_cast<size_t>(n));
    for (Py_ssize_t j = 0; j < n; ++j) {
      Py_ssize_t from = perm[static_cast<size_t>(j)];
      PyList_SET_ITEM(sorted.get(), j, py::new_ref(PyList_GET_ITEM(list.get(), from)));
      values[static_cast<size_t>(j)] = snap->values[static_cast<size_t>(from)];
    }
    list = std::move(sorted);
    snap->values.swap(values);
  }
  py::Ref keys = tuplelist_adopt(list.get(), wild.get());
  if (!keys) return keys;
  td_clean(self);
  py::assign(t->keys, keys.get());
  snap->keys_generation = tuplelist_generation(keys.get());
  if (VELMOR_DICT_VERSION) t->snapshot = snap.release();
  return keys;
}

// ---- selection ----------------------------------------------------------------------------------

// The keys that keys().select(*vals) names. With `every_key_if_no_pattern`, a call without
// pattern values takes every key (iteritems and the methods built on it); without it, the
// tuplelist decides (select() on scalar keys is empty).
struct Selection {
  py::Ref keys;                 // the key list selected from
  bool all = false;             // every element of `keys`, in order
  std::vector<Py_ssize_t> pos;  // otherwise: positions in `keys` (exact lists)
  py::Ref generic;              // or: the result of keys.select(*vals) for other key objects
};

int select_keys(PyObject* self, PyObject* const* vals, Py_ssize_t n, bool every_key_if_no_pattern,
                Selection& sel) {
  sel.keys = tupledict_keys(self);
  if (!sel.keys) return -1;
  if (n == 0 && every_key_if_no_pattern) {
    sel.all = true;
    return 0;
  }
  if (tuplelist_check_exact(sel.keys.get()))
    return tuplelist_match(sel.keys.get(), vals, n, sel.pos, &sel.all);
  sel.generic = call_method(sel.keys.get(), "select", vals, n);
  return sel.generic ? 0 : -1;
}

bool fast_list(PyObject* o) { return tuplelist_check_exact(o) || PyList_CheckExact(o); }

// Calls fn(key) for each selected key in order; fn returns 0 or -1.
template <class Fn>
int for_each_key(const Selection& sel, Fn&& fn) {
  PyObject* keys = sel.keys.get();
  if (sel.generic || (sel.all && !fast_list(keys))) {
    py::Ref it = py::Ref::steal(PyObject_GetIter(sel.generic ? sel.generic.get() : keys));
    if (!it) return -1;
    while (py::Ref key = py::Ref::steal(PyIter_Next(it.get()))) {
      if (fn(key.get()) < 0) return -1;
    }
    return PyErr_Occurred() ? -1 : 0;
  }
  if (sel.all) {
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(keys); ++i) {
      py::Ref key = py::Ref::borrow(PyList_GET_ITEM(keys, i));
      if (fn(key.get()) < 0) return -1;
    }
    return 0;
  }
  for (Py_ssize_t p : sel.pos) {
    if (p >= PyList_GET_SIZE(keys))
      return py::raise(PyExc_RuntimeError, "tupledict keys changed during select"), -1;
    py::Ref key = py::Ref::borrow(PyList_GET_ITEM(keys, p));
    if (fn(key.get()) < 0) return -1;
  }
  return 0;
}

// A new list of the selected keys.
py::Ref selected_key_list(const Selection& sel) {
  py::Ref out = py::Ref::steal(PyList_New(0));
  if (!out) return out;
  if (for_each_key(sel, [&](PyObject* k) { return PyList_Append(out.get(), k); }) < 0)
    return py::Ref();
  return out;
}

// The value snapshot when it may be used for `sel`: the exact type, selecting from the cached
// key list, with neither the dict nor the key list changed since the snapshot was taken.
const std::vector<PyObject*>* usable_snapshot(PyObject* self, const Selection& sel) {
  TupleDictObject* t = as_td(self);
  const ValueSnapshot* snap = t->snapshot;
  PyObject* keys = sel.keys.get();
  if (snap == nullptr || !exact(self) || sel.generic || keys != t->keys) return nullptr;
  if (dict_version(self) != snap->dict_version ||
      tuplelist_generation(keys) != snap->keys_generation ||
      Py_SIZE(keys) != static_cast<Py_ssize_t>(snap->values.size())) {
    return nullptr;
  }
  return &snap->values;
}

// Strong references to the selected values (and to their keys when `keys_out` is given), in
// selection order.
int gather(PyObject* self, const Selection& sel, std::vector<py::Ref>& vals,
           std::vector<py::Ref>* keys_out) {
  if (const std::vector<PyObject*>* snap = usable_snapshot(self, sel)) {
    PyObject* keys = sel.keys.get();
    size_t n = sel.all ? snap->size() : sel.pos.size();
    bool in_range = std::all_of(sel.pos.begin(), sel.pos.end(), [&](Py_ssize_t p) {
      return static_cast<size_t>(p) < snap->size();
    });
    if (in_range) {
      vals.reserve(n);
      if (keys_out) keys_out->reserve(n);
      // No Python code runs in this loop, so the borrowed pointers stay owned by the dict.
      for (size_t i = 0; i < n; ++i) {
        size_t p = sel.all ? i : static_cast<size_t>(sel.pos[i]);
        vals.push_back(py::Ref::borrow((*snap)[p]));
        if (keys_out)
          keys_out->push_back(py::Ref::borrow(PyList_GET_ITEM(keys, static_cast<Py_ssize_t>(p))));
      }
      return 0;
    }
  }
  return for_each_key(sel, [&](PyObject* k) {
    py::Ref v = value_of(self, k);
    if (!v) return -1;
    vals.push_back(std::move(v));
    if (keys_out) keys_out->push_back(py::Ref::borrow(k));
    return 0;
  });
}

py::Ref list_of(std::vector<py::Ref>& items) {
  py::Ref out = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(items.size())));
  if (!out) return out;
  for (size_t i = 0; i < items.size(); ++i)
    PyList_SET_ITEM(out.get(), static_cast<Py_ssize_t>(i), items[i].release());
  return out;
}

py::Ref selected_values(PyObject* self, const Selection& sel) {
  std::vector<py::Ref> vals;
  if (gather(self, sel, vals, nullptr) < 0) return py::Ref();
  return list_of(vals);
}

py::Ref selected_items(PyObject* self, const Selection& sel) {
  std::vector<py::Ref> vals, keys;
  if (gather(self, sel, vals, &keys) < 0) return py::Ref();
  std::vector<py::Ref> pairs;
  pairs.reserve(vals.size());
  for (size_t i = 0; i < vals.size(); ++i) {
    pairs.push_back(py::Ref::steal(PyTuple_Pack(2, keys[i].get(), vals[i].get())));
    if (!pairs.back()) return py::Ref();
  }
  return list_of(pairs);
}

// ---- iterators ----------------------------------------------------------------------------------

enum IterMode { kValues = 1, kItems = 2 };

// Walks a selection of keys and reads each value when it is reached.
struct TupleDictIterObject {
  PyObject ob_base;
  PyObject* td;
  PyObject* keys;  // iterator over the selected keys
  int mode;
};

PyTypeObject TupleDictIterType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.tupledict_iterator"};

py::Ref make_iter(PyObject* self, const Selection& sel, int mode) {
  py::Ref source;
  if (sel.generic) {
    source = py::Ref::borrow(sel.generic.get());
  } else if (sel.all) {
    source = py::Ref::borrow(sel.keys.get());
  } else {
    source = selected_key_list(sel);
    if (!source) return source;
  }
  py::Ref it = py::Ref::steal(PyObject_GetIter(source.get()));
  if (!it) return it;
  auto* obj = PyObject_GC_New(TupleDictIterObject, &TupleDictIterType);
  if (obj == nullptr) return py::Ref();
  obj->td = py::new_ref(self);
  obj->keys = it.release();
  obj->mode = mode;
  PyObject_GC_Track(obj);
  return py::Ref::steal(reinterpret_cast<PyObject*>(obj));
}

PyObject* tdi_next(PyObject* o) {
  auto* it = reinterpret_cast<TupleDictIterObject*>(o);
  if (it->keys == nullptr) return nullptr;
  py::Ref key = py::Ref::steal(PyIter_Next(it->keys));
  if (!key) return nullptr;
  py::Ref value = value_of(it->td, key.get());
  if (!value) return nullptr;
  if (it->mode == kValues) return value.release();
  return PyTuple_Pack(2, key.get(), value.get());
}

int tdi_traverse(PyObject* o, visitproc visit, void* arg) {
  auto* it = reinterpret_cast<TupleDictIterObject*>(o);
  Py_VISIT(it->td);
  Py_VISIT(it->keys);
  return 0;
}

int tdi_clear(PyObject* o) {
  auto* it = reinterpret_cast<TupleDictIterObject*>(o);
  Py_CLEAR(it->td);
  Py_CLEAR(it->keys);
  return 0;
}

void tdi_dealloc(PyObject* o) {
  PyObject_GC_UnTrack(o);
  tdi_clear(o);
  PyObject_GC_Del(o);
}

// ---- construction and lifecycle -----------------------------------------------------------------

int set_defaults(PyObject* self) {
  TupleDictObject* t = as_td(self);
  py::Ref pos = py::Ref::steal(PyDict_New());
  if (!pos) return -1;
  py::assign(t->wild, star);
  py::assign(t->pos, pos.get());
  td_clean(self);
  return 0;
}

PyObject* tupledict_new(PyTypeObject* type, PyObject* args, PyObject* kwds) {
  py::Ref self = py::Ref::steal(PyDict_Type.tp_new(type, args, kwds));
  if (!self || set_defaults(self.get()) < 0) return nullptr;
  return self.release();
}

int tupledict_init(PyObject* self, PyObject* args, PyObject* kwds) {
  if (PyDict_Type.tp_init(self, args, kwds) < 0) return -1;
  return set_defaults(self);
}

int tupledict_traverse(PyObject* self, visitproc visit, void* arg) {
  TupleDictObject* t = as_td(self);
  int r = PyDict_Type.tp_traverse(self, visit, arg);
  if (r) return r;
  Py_VISIT(t->wild);
  Py_VISIT(t->keys);
  Py_VISIT(t->pos);
  Py_VISIT(t->inst_dict);
  return 0;
}

// The subclass's own fields, dropped by clear and by dealloc.
void release_fields(PyObject* self) {
  TupleDictObject* t = as_td(self);
  drop_snapshot(t);
  Py_CLEAR(t->wild);
  Py_CLEAR(t->keys);
  Py_CLEAR(t->pos);
  Py_CLEAR(t->inst_dict);
}

int tupledict_clear(PyObject* self) {
  PyDict_Type.tp_clear(self);
  release_fields(self);
  return 0;
}

void tupledict_dealloc(PyObject* self) {
  subclass_dealloc(self, as_td(self)->weakreflist, release_fields, &PyDict_Type);
}

// ---- order and keys -----------------------------------------------------------------------------

PyObject* tupledict_clean(PyObject* self, PyObject*) {
  td_clean(self);
  return py::none();
}

PyObject* tupledict_setord(PyObject* self, PyObject* ord) {
  Py_ssize_t n = PyObject_Length(ord);
  if (n < 0) return nullptr;
  py::Ref pos = py::Ref::steal(PyDict_New());
  if (!pos) return nullptr;
  bool direct = PyTuple_CheckExact(ord) || PyList_CheckExact(ord) || tuplelist_check_exact(ord);
  for (Py_ssize_t i = 0; i < n; ++i) {
    py::Ref index = py::Ref::steal(PyLong_FromSsize_t(i));
    if (!index) return nullptr;
    py::Ref item;
    if (direct && i < PySequence_Fast_GET_SIZE(ord)) {
      item = py::Ref::borrow(PySequence_Fast_GET_ITEM(ord, i));
    } else {
      item = py::Ref::steal(PyObject_GetItem(ord, index.get()));
      if (!item) return nullptr;
    }
    if (PyDict_SetItem(pos.get(), item.get(), index.get()) < 0) return nullptr;
  }
  py::assign(as_td(self)->pos, pos.get());
  return py::none();
}

PyObject* tupledict_keys_method(PyObject* self, PyObject*) { return own_keys(self).release(); }

// ---- queries ------------------------------------------------------------------------------------

PyObject* tupledict_select(PyObject* self, PyObject* const* vals, Py_ssize_t n) {
  Selection sel;
  if (select_keys(self, vals, n, true, sel) < 0) return nullptr;
  return selected_values(self, sel).release();
}

PyObject* tupledict_iteritems(PyObject* self, PyObject* const* vals, Py_ssize_t n) {
  Selection sel;
  if (select_keys(self, vals, n, true, sel) < 0) return nullptr;
  return make_iter(self, sel, kItems).release();
}

PyObject* tupledict_itervalues(PyObject* self, PyObject*) {
  Selection sel;
  if (select_keys(self, nullptr, 0, true, sel) < 0) return nullptr;
  return make_iter(self, sel, kValues).release();
}

PyObject* tupledict_iterkeys(PyObject* self, PyObject*) {
  py::Ref keys = tupledict_keys(self);
  if (!keys) return nullptr;
  return PyObject_GetIter(keys.get());
}

PyObject* tupledict_iter(PyObject* self) { return tupledict_iterkeys(self, nullptr); }

PyObject* tupledict_values_method(PyObject* self, PyObject*) {
  return tupledict_values(self).release();
}

PyObject* tupledict_items(PyObject* self, PyObject*) {
  Selection sel;
  if (select_keys(self, nullptr, 0, true, sel) < 0) return nullptr;
  return selected_items(self, sel).release();
}

PyObject* tupledict_subset(PyObject* self, PyObject* const* vals, Py_ssize_t n) {
  Selection sel;
  if (select_keys(self, vals, n, true, sel) < 0) return nullptr;
  std::vector<py::Ref> values, keys;
  if (gather(self, sel, values, &keys) < 0) return nullptr;
  py::Ref result = tupledict_new_empty();
  if (!result) return nullptr;
  for (size_t i = 0; i < values.size(); ++i) {
    if (PyDict_SetItem(result.get(), keys[i].get(), values[i].get()) < 0) return nullptr;
  }
  Selection order;
  if (select_keys(self, vals, n, false, order) < 0) return nullptr;
  py::Ref ord = selected_key_list(order);
  if (!ord) return nullptr;
  if (!py::Ref::steal(tupledict_setord(result.get(), ord.get()))) return nullptr;
  PyObject* wild = as_td(self)->wild;
  if (!exact(self)) {
    py::Ref w = py::Ref::steal(PyObject_GetAttrString(self, "wild"));
    if (!w) return nullptr;
    py::assign(as_td(result.get())->wild, w.get());
  } else {
    if (wild == nullptr) return missing_attribute("wild");
    py::assign(as_td(result.get())->wild, wild);
  }
  return result.release();
}

PyObject* tupledict_sum(PyObject* self, PyObject* const* vals, Py_ssize_t n) {
  Selection sel;
  if (select_keys(self, vals, n, true, sel) < 0) return nullptr;
  py::Ref terms = selected_values(self, sel);
  if (!terms) return nullptr;
  return quicksum_impl(terms.get()).release();
}

int append_product(PyObject* terms, PyObject* a, PyObject* b) {
  py::Ref term = py::Ref::steal(PyNumber_Multiply(a, b));
  return term ? PyList_Append(terms, term.get()) : -1;
}

// Terms c * self[i] for the positions i of the list `coeff` that are keys.
int list_products(PyObject* self, PyObject* coeff, PyObject* terms) {
  py::Ref it = py::Ref::steal(PyObject_GetIter(coeff));
  if (!it) return -1;
  Py_ssize_t i = 0;
  while (py::Ref c = py::Ref::steal(PyIter_Next(it.get()))) {
    py::Ref index = py::Ref::steal(PyLong_FromSsize_t(i++));
    if (!index) return -1;
    int has = contains(self, index.get());
    if (has < 0) return -1;
    if (!has) continue;
    py::Ref v = value_of(self, index.get());
    if (!v || append_product(terms, c.get(), v.get()) < 0) return -1;
  }
  return PyErr_Occurred() ? -1 : 0;
}

PyObject* tupledict_prod(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs < 1) return py::raise(PyExc_TypeError, "prod() missing required argument 'coeff'");
  PyObject* coeff = args[0];
  PyObject* const* vals = args + 1;
  Py_ssize_t n = nargs - 1;
  py::Ref terms = py::Ref::steal(PyList_New(0));
  if (!terms) return nullptr;
  if (PyDict_Check(coeff)) {
    Py_ssize_t ncoeff = PyObject_Size(coeff);
    if (ncoeff < 0) return nullptr;
    Py_ssize_t nself = PyObject_Size(self);
    if (nself < 0) return nullptr;
    if (n == 0 && ncoeff < nself) {
      // Walk the smaller dictionary.
      py::Ref items = py::Ref::steal(PyMapping_Items(coeff));
      if (!items) return nullptr;
      for (Py_ssize_t i = 0; i < PyList_GET_SIZE(items.get()); ++i) {
        py::Ref pair = py::Ref::steal(PySequence_Tuple(PyList_GET_ITEM(items.get(), i)));
        if (!pair) return nullptr;
        if (PyTuple_GET_SIZE(pair.get()) != 2)
          return py::raise(PyExc_ValueError, "items() must yield (key, value) pairs");
        PyObject* k = PyTuple_GET_ITEM(pair.get(), 0);
        int has = contains(self, k);
        if (has < 0) return nullptr;
        if (!has) continue;
        py::Ref v = value_of(self, k);
        if (!v || append_product(terms.get(), PyTuple_GET_ITEM(pair.get(), 1), v.get()) < 0)
          return nullptr;
      }
    } else {
      Selection sel;
      if (select_keys(self, vals, n, true, sel) < 0) return nullptr;
      std::vector<py::Ref> values, keys;
      if (gather(self, sel, values, &keys) < 0) return nullptr;
      for (size_t i = 0; i < values.size(); ++i) {
        PyObject* k = keys[i].get();
        int has = PySequence_Contains(coeff, k);
        if (has < 0) return nullptr;
        if (!has) continue;
        py::Ref c = py::Ref::steal(PyObject_GetItem(coeff, k));
        if (!c || append_product(terms.get(), values[i].get(), c.get()) < 0) return nullptr;
      }
    }
    return quicksum_impl(terms.get()).release();
  }
  if (PyList_Check(coeff) && n == 0) {
    py::Ref result;
    if (list_products(self, coeff, terms.get()) == 0) result = quicksum_impl(terms.get());
    if (!result) {
      PyErr_Clear();
      return py::raise(PyExc_TypeError, "Invalid tupledict.prod argument");
    }
    return result.release();
  }
  return py::raise(PyExc_TypeError, "tupledict.prod requires a dictionary");
}

// ---- mutators -----------------------------------------------------------------------------------

int tupledict_ass_subscript(PyObject* self, PyObject* key, PyObject* value) {
  TupleDictObject* t = as_td(self);
  if (value == nullptr) {
    if (PyDict_DelItem(self, key) < 0) return -1;
    td_clean(self);
    return 0;
  }
  if (PyDict_SetItem(self, key, value) < 0) return -1;
  // Re-assigning moves the key to the end of the order: its position is always written anew.
  if (t->pos == nullptr) return missing_attribute("_tupledict__pos"), -1;
  py::Ref pos = py::Ref::borrow(t->pos);
  Py_ssize_t n = PyObject_Length(pos.get());
  if (n < 0) return -1;
  py::Ref position = py::Ref::steal(PyLong_FromSsize_t(n));
  if (!position) return -1;
  if (PyObject_SetItem(pos.get(), key, position.get()) < 0) return -1;
  td_clean(self);
  return 0;
}

// pop, popitem, update and setdefault: the dict operation with the same arguments, then clean().
template <PyObject** Method>
PyObject* tupledict_base_op(PyObject* self, PyObject* const* args, Py_ssize_t nargs,
                            PyObject* kwnames) {
  py::Ref r = py::Ref::steal(subclass_call_base(*Method, self, args, nargs, kwnames));
  if (!r) return nullptr;
  td_clean(self);
  return r.release();
}

PyObject* tupledict_clear_method(PyObject* self, PyObject*) {
  PyDict_Clear(self);
  td_clean(self);
  return py::none();
}

PyObject* tupledict_inplace_or(PyObject* self, PyObject* other) {
  py::Ref r = py::Ref::steal(PyDict_Type.tp_as_number->nb_inplace_or(self, other));
  if (r && r.get() != Py_NotImplemented) td_clean(self);
  return r.release();
}

// ---- pickling -----------------------------------------------------------------------------------

// The attributes live in C fields, so the state names them. The key cache is left out: it is
// rebuilt on demand.
PyObject* tupledict_getstate(PyObject* self, PyObject*) {
  TupleDictObject* t = as_td(self);
  py::Ref state = py::Ref::steal(t->inst_dict ? PyDict_Copy(t->inst_dict) : PyDict_New());
  if (!state) return nullptr;
  if (t->wild && PyDict_SetItemString(state.get(), "wild", t->wild) < 0) return nullptr;
  if (t->pos && PyDict_SetItemString(state.get(), "_tupledict__pos", t->pos) < 0) return nullptr;
  if (PyDict_SetItemString(state.get(), "_tupledict__keys", Py_None) < 0) return nullptr;
  return state.release();
}

PyObject* tupledict_setstate(PyObject* self, PyObject* state) {
  return subclass_setstate(self, state, "tupledict state must be a dict");
}

// ---- attributes ---------------------------------------------------------------------------------

template <PyObject* TupleDictObject::* Field>
PyObject* get_field(PyObject* self, void* name) {
  PyObject* v = as_td(self)->*Field;
  if (v == nullptr) return missing_attribute(static_cast<const char*>(name));
  return py::new_ref(v);
}

template <PyObject* TupleDictObject::* Field>
int set_field(PyObject* self, PyObject* value, void* name) {
  PyObject*& field = as_td(self)->*Field;
  if (value == nullptr && field == nullptr)
    return missing_attribute(static_cast<const char*>(name)), -1;
  if (Field == &TupleDictObject::keys) drop_snapshot(as_td(self));
  py::assign(field, value);
  return 0;
}

// ---- tables -------------------------------------------------------------------------------------

PyMethodDef tupledict_methods[] = {
    {"keys", py::guarded<&tupledict_keys_method>, METH_NOARGS,
     "keys($self)\n--\n\nReturns the keys as a tuplelist, in iteration order. The list is cached until the\n"
     "dictionary changes and is shared: do not modify it."},
    {"clean", py::guarded<&tupledict_clean>, METH_NOARGS,
     "clean($self)\n--\n\nDiscards the cached key list and its select() indexes; they are rebuilt on "
     "demand."},
    {"setord", py::guarded<&tupledict_setord>, METH_O,
     "setord($self, ord)\n--\n\nSets the iteration order: ord[i] gets position i; keys not in ord follow, in\n"
     "insertion order. Takes effect once the key cache is rebuilt (after clean() or a change)."},
    {"select", (PyCFunction)(void (*)(void))py::guarded<&tupledict_select>, METH_FASTCALL,
     "select($self, *pattern)\n--\n\nReturns a list of the values whose keys match the pattern, in key "
     "order.\n"
     "The pattern is that of tuplelist.select(): one value per key field, '*' matching any value,\n"
     "a list matching any of its values. With no pattern, all values are returned.\n\n"
     "Example:\n"
     "  d = tupledict({(1, 2): 'a', (1, 3): 'b', (2, 3): 'c'})\n"
     "  d.select(1, '*')   # ['a', 'b']"},
    {"iteritems", (PyCFunction)(void (*)(void))py::guarded<&tupledict_iteritems>, METH_FASTCALL,
     "iteritems($self, *pattern)\n--\n\nIterates over the (key, value) pairs whose keys match the pattern."},
    {"iterkeys", py::guarded<&tupledict_iterkeys>, METH_NOARGS,
     "iterkeys($self)\n--\n\nIterates over the keys in order."},
    {"itervalues", py::guarded<&tupledict_itervalues>, METH_NOARGS,
     "itervalues($self)\n--\n\nIterates over the values in key order."},
    {"values", py::guarded<&tupledict_values_method>, METH_NOARGS,
     "values($self)\n--\n\nReturns a list of the values in key order."},
    {"items", py::guarded<&tupledict_items>, METH_NOARGS,
     "items($self)\n--\n\nReturns a list of the (key, value) pairs in key order."},
    {"subset", (PyCFunction)(void (*)(void))py::guarded<&tupledict_subset>, METH_FASTCALL,
     "subset($self, *pattern)\n--\n\nReturns a new tupledict of the entries whose keys match the pattern, in\n"
     "this dictionary's order and with its wildcard."},
    {"sum", (PyCFunction)(void (*)(void))py::guarded<&tupledict_sum>, METH_FASTCALL,
     "sum($self, *pattern)\n--\n\nReturns the sum (quicksum) of the values whose keys match the pattern.\n\n"
     "Example:\n"
     "  x = m.addVars(3, 4)\n"
     "  m.addConstr(x.sum(1, '*') <= 2)"},
    {"prod", (PyCFunction)(void (*)(void))py::guarded<&tupledict_prod>, METH_FASTCALL,
     "prod($self, coeff, *pattern)\n--\n\nReturns the sum (quicksum) of coeff[k] * self[k] over the keys k "
     "that\n"
     "match the pattern and are keys of coeff, a dict. Keys in only one of the two are skipped.\n"
     "Without a pattern, coeff may also be a list: element i multiplies self[i].\n\n"
     "Example:\n"
     "  cost = {(0, 0): 2.0, (1, 2): 3.5}\n"
     "  m.setObjective(x.prod(cost))"},
    {"clear", py::guarded<&tupledict_clear_method>, METH_NOARGS, "clear($self)\n--\n\nRemoves every entry."},
    {"pop", (PyCFunction)(void (*)(void))py::guarded<&tupledict_base_op<&dict_pop>>,
     METH_FASTCALL | METH_KEYWORDS,
     "pop(key[, default])\n\nRemoves key and returns its value, as dict.pop()."},
    {"popitem", (PyCFunction)(void (*)(void))py::guarded<&tupledict_base_op<&dict_popitem>>,
     METH_FASTCALL | METH_KEYWORDS,
     "popitem($self)\n--\n\nRemoves and returns a (key, value) pair, as dict.popitem()."},
    {"update", (PyCFunction)(void (*)(void))py::guarded<&tupledict_base_op<&dict_update>>,
     METH_FASTCALL | METH_KEYWORDS,
     "update([other], **kwargs)\n\nUpdates the dictionary as dict.update(). The new keys get no\n"
     "position: they follow the positioned keys in insertion order."},
    {"setdefault", (PyCFunction)(void (*)(void))py::guarded<&tupledict_base_op<&dict_setdefault>>,
     METH_FASTCALL | METH_KEYWORDS, "setdefault(key[, default])\n\nAs dict.setdefault()."},
    {"__getstate__", py::guarded<&tupledict_getstate>, METH_NOARGS, "Pickling support."},
    {"__setstate__", py::guarded<&tupledict_setstate>, METH_O, "Pickling support."},
    {nullptr, nullptr, 0, nullptr}};

char wild_name[] = "wild";
char keys_name[] = "_tupledict__keys";
char pos_name[] = "_tupledict__pos";

PyGetSetDef tupledict_getset[] = {
    {"wild", get_field<&TupleDictObject::wild>, set_field<&TupleDictObject::wild>,
     "The wildcard value of select() and the other pattern methods ('*').", wild_name},
    {"_tupledict__keys", get_field<&TupleDictObject::keys>, set_field<&TupleDictObject::keys>,
     "The cached key tuplelist, or None when it must be rebuilt.", keys_name},
    {"_tupledict__pos", get_field<&TupleDictObject::pos>, set_field<&TupleDictObject::pos>,
     "The order map: key -> position.", pos_name},
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, "The instance attributes.",
     nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

PyMappingMethods tupledict_as_mapping = {};
PyNumberMethods tupledict_as_number = {};

const char tupledict_doc[] =
    "\n  Custom Velmor class: tupledict is a subclass of dict where\n"
    "  the keys are a tuplelist.\n";

}  // namespace

PyTypeObject TupleDictType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.tupledict"};

py::Ref tupledict_new_empty() {
  return py::Ref::steal(PyObject_CallNoArgs(reinterpret_cast<PyObject*>(&TupleDictType)));
}

py::Ref tupledict_keys(PyObject* td) {
  if (exact(td)) return own_keys(td);
  return call_method(td, "keys", nullptr, 0);
}

py::Ref tupledict_values(PyObject* td) {
  Selection sel;
  if (select_keys(td, nullptr, 0, true, sel) < 0) return py::Ref();
  return selected_values(td, sel);
}

int register_tupledict(PyObject* m) {
  star = PyUnicode_InternFromString("*");
  if (star == nullptr) return -1;
  const BaseMethod methods[] = {{"pop", &dict_pop},
                                 {"popitem", &dict_popitem},
                                 {"update", &dict_update},
                                 {"setdefault", &dict_setdefault}};
  if (subclass_base_methods(&PyDict_Type, methods, std::size(methods), "dict methods not found") <
      0) {
    return -1;
  }
  tupledict_as_mapping.mp_ass_subscript = py::guarded<&tupledict_ass_subscript>;
  tupledict_as_number.nb_inplace_or = py::guarded<&tupledict_inplace_or>;

  TupleDictIterType.tp_basicsize = sizeof(TupleDictIterObject);
  TupleDictIterType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC;
  TupleDictIterType.tp_doc = "Iterator over selected tupledict entries.";
  TupleDictIterType.tp_dealloc = tdi_dealloc;
  TupleDictIterType.tp_traverse = tdi_traverse;
  TupleDictIterType.tp_clear = tdi_clear;
  TupleDictIterType.tp_iter = PyObject_SelfIter;
  TupleDictIterType.tp_iternext = py::guarded<&tdi_next>;
  if (PyType_Ready(&TupleDictIterType) < 0) return -1;

  TupleDictType.tp_doc = tupledict_doc;
  TupleDictType.tp_new = py::guarded<&tupledict_new>;
  TupleDictType.tp_init = py::guarded<&tupledict_init>;
  TupleDictType.tp_dealloc = tupledict_dealloc;
  TupleDictType.tp_traverse = tupledict_traverse;
  TupleDictType.tp_clear = tupledict_clear;
  TupleDictType.tp_iter = py::guarded<&tupledict_iter>;
  TupleDictType.tp_as_mapping = &tupledict_as_mapping;
  TupleDictType.tp_as_number = &tupledict_as_number;
  TupleDictType.tp_methods = tupledict_methods;
  TupleDictType.tp_getset = tupledict_getset;
  return subclass_add_type(m, "tupledict", &TupleDictType, &PyDict_Type, sizeof(TupleDictObject),
                           offsetof(TupleDictObject, inst_dict),
                           offsetof(TupleDictObject, weakreflist));
}
