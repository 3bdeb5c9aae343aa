// tuplelist: a list subclass in C holding tuples of one length (or scalars only): the type, its
// lifecycle, the checked mutators, membership, neighbours, repr, pickling and attributes. The
// select() index is in tuplelist_index.cpp.
#include "containers/tuplelist.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "containers/subclass.h"
#include "containers/tuplelist_util.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"

PyObject* default_wild = nullptr;  // the string '*', kept for the process lifetime

namespace {

enum Neighbour { kPrev = 0, kNext = 1, kPrevc = 2, kNextc = 3 };

PyObject* list_pop = nullptr;      // list's own method descriptors (borrowed from its type)
PyObject* list_remove = nullptr;
PyObject* list_insert = nullptr;
PyObject* list_sort = nullptr;
PyObject* list_reverse = nullptr;

// ---- caches -------------------------------------------------------------------------------------

void drop_caches(TupleListObject* self) {
  ++self->generation;
  IndexCache* cache = self->cache;
  self->cache = nullptr;
  Py_CLEAR(self->contents);
  for (PyObject*& n : self->neighbour) Py_CLEAR(n);
  delete cache;  // may release handed-out buckets, so it runs after the fields are consistent
}

// The emptiness check: an emptied list accepts elements of any kind again.
void release_kind_if_empty(TupleListObject* self) {
  if (Py_SIZE(self) == 0) {
    self->kind = kUnknown;
    self->tuplelen = -1;
  }
}

// The add check, run before the list changes. The kind and length it records stay recorded
// even when it rejects the elements.
int add_check(TupleListObject* self, PyObject* const* items, Py_ssize_t n) {
  if (n == 0) return 0;
  if (self->kind == kUnknown) self->kind = Py_IS_TYPE(items[0], &PyTuple_Type) ? kTuple : kScalar;
  bool scalar = self->kind == kScalar;
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (Py_IS_TYPE(items[i], &PyTuple_Type) == scalar) {
      PyErr_SetString(PyExc_ValueError, "Cannot mix scalar and tuple values in a tuplelist");
      return -1;
    }
  }
  if (scalar) return 0;
  if (self->tuplelen < 0) self->tuplelen = PyTuple_GET_SIZE(items[0]);
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (PyTuple_GET_SIZE(items[i]) != self->tuplelen) {
      PyErr_SetString(PyExc_ValueError, "All tuples in a tuplelist must be the same length");
      return -1;
    }
  }
  return 0;
}

}  // namespace

// ---- allocation ---------------------------------------------------------------------------------

py::Ref make_tuplelist(PyTypeObject* type, PyObject* wild) {
  py::Ref self = py::Ref::steal(type->tp_alloc(type, 0));
  if (!self) return self;
  TupleListObject* t = as_tl(self.get());
  t->wild = py::new_ref(wild);
  t->kind = kUnknown;
  t->tuplelen = -1;
  return self;
}

namespace {

// Moves the item array of the exact list `from` into the empty list `to`.
void steal_items(PyObject* to, PyObject* from) {
  PyListObject* a = reinterpret_cast<PyListObject*>(to);
  PyListObject* b = reinterpret_cast<PyListObject*>(from);
  std::swap(a->ob_item, b->ob_item);
  std::swap(a->allocated, b->allocated);
  Py_ssize_t n = Py_SIZE(b);
  Py_SET_SIZE(b, Py_SIZE(a));
  Py_SET_SIZE(a, n);
}

}  // namespace

unsigned long tuplelist_generation(PyObject* tl) { return as_tl(tl)->generation; }

py::Ref tuplelist_adopt(PyObject* list, PyObject* wild) {
  py::Ref self = make_tuplelist(&TupleListType, wild);
  if (!self) return self;
  if (add_check(as_tl(self.get()), reinterpret_cast<PyListObject*>(list)->ob_item, Py_SIZE(list)) <
      0) {
    return py::Ref();
  }
  steal_items(self.get(), list);
  return self;
}

namespace {

// ---- construction and lifecycle -----------------------------------------------------------------

PyObject* tuplelist_new(PyTypeObject* type, PyObject*, PyObject*) {
  return make_tuplelist(type, default_wild).release();
}

int extend_with(TupleListObject* self, PyObject* data);

// self.extend(data), for subclasses that may override it.
py::Ref call_extend(PyObject* self, PyObject* data) {
  py::Ref name = py::Ref::steal(PyUnicode_FromString("extend"));
  if (!name) return name;
  return py::Ref::steal(PyObject_CallMethodOneArg(self, name.get(), data));
}

int tuplelist_init(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"data", "wild", nullptr};
  PyObject* data = nullptr;
  PyObject* wild = default_wild;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|OO:tuplelist", const_cast<char**>(kwlist), &data,
                                   &wild)) {
    return -1;
  }
  py::Ref noargs = py::Ref::steal(PyTuple_New(0));
  if (!noargs) return -1;
  if (PyList_Type.tp_init(self, noargs.get(), nullptr) < 0) return -1;
  TupleListObject* t = as_tl(self);
  py::assign(t->wild, wild);
  release_kind_if_empty(t);
  drop_caches(t);
  if (data == nullptr) return 0;
  if (tuplelist_check_exact(self)) return extend_with(t, data);
  py::Ref r = call_extend(self, data);
  return r ? 0 : -1;
}

int tuplelist_traverse(PyObject* self, visitproc visit, void* arg) {
  TupleListObject* t = as_tl(self);
  int r = PyList_Type.tp_traverse(self, visit, arg);
  if (r) return r;
  Py_VISIT(t->wild);
  Py_VISIT(t->contents);
  for (PyObject* n : t->neighbour) Py_VISIT(n);
  Py_VISIT(t->dict);
  if (t->cache != nullptr) {
    for (const auto& [positions, idx] : *t->cache) {
      for (const auto& [bucket, obj] : idx->handed_out) Py_VISIT(obj.get());
    }
  }
  return 0;
}

int tuplelist_clear(PyObject* self) {
  TupleListObject* t = as_tl(self);
  PyList_Type.tp_clear(self);
  drop_caches(t);
  Py_CLEAR(t->dict);
  return 0;
}

// The subclass's own fields, dropped by dealloc (clear keeps the wildcard).
void release_fields(PyObject* self) {
  TupleListObject* t = as_tl(self);
  drop_caches(t);
  Py_CLEAR(t->wild);
  Py_CLEAR(t->dict);
}

void tuplelist_dealloc(PyObject* self) {
  subclass_dealloc(self, as_tl(self)->weakreflist, release_fields, &PyList_Type);
}

// ---- mutators -----------------------------------------------------------------------------------

int extend_with(TupleListObject* self, PyObject* data) {
  py::Ref seq =
      py::Ref::steal(PySequence_Fast(data, "tuplelist.extend() argument must be iterable"));
  if (!seq) return -1;
  if (add_check(self, PySequence_Fast_ITEMS(seq.get()), PySequence_Fast_GET_SIZE(seq.get())) < 0)
    return -1;
  PyObject* list = reinterpret_cast<PyObject*>(self);
  Py_ssize_t n = Py_SIZE(self);
  if (PyList_SetSlice(list, n, n, seq.get()) < 0) return -1;
  drop_caches(self);
  return 0;
}

PyObject* tuplelist_clean(PyObject* self, PyObject*) {
  drop_caches(as_tl(self));
  return py::none();
}

PyObject* tuplelist_append(PyObject* self, PyObject* x) {
  TupleListObject* t = as_tl(self);
  if (add_check(t, &x, 1) < 0) return nullptr;
  if (PyList_Append(self, x) < 0) return nullptr;
  drop_caches(t);
  return py::none();
}

PyObject* tuplelist_extend(PyObject* self, PyObject* data) {
  if (extend_with(as_tl(self), data) < 0) return nullptr;
  return py::none();
}

PyObject* tuplelist_insert(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  TupleListObject* t = as_tl(self);
  if (nargs == 2 && add_check(t, &args[1], 1) < 0) return nullptr;
  py::Ref r = py::Ref::steal(subclass_call_base(list_insert, self, args, nargs, nullptr));
  if (!r) return nullptr;
  drop_caches(t);
  return r.release();
}

// pop, remove and clear: the list operation, then the emptiness check, then clean().
template <PyObject** Method>
PyObject* tuplelist_delete_op(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  py::Ref r = py::Ref::steal(subclass_call_base(*Method, self, args, nargs, nullptr));
  if (!r) return nullptr;
  TupleListObject* t = as_tl(self);
  release_kind_if_empty(t);
  drop_caches(t);
  return r.release();
}

PyObject* tuplelist_clear_method(PyObject* self, PyObject*) {
  if (PyList_SetSlice(self, 0, PY_SSIZE_T_MAX, nullptr) < 0) return nullptr;
  TupleListObject* t = as_tl(self);
  release_kind_if_empty(t);
  drop_caches(t);
  return py::none();
}

// sort and reverse reorder the elements, so the indexes' positions go stale.
template <PyObject** Method>
PyObject* tuplelist_reorder_op(PyObject* self, PyObject* const* args, Py_ssize_t nargs,
                               PyObject* kwnames) {
  py::Ref r = py::Ref::steal(subclass_call_base(*Method, self, args, nargs, kwnames));
  if (!r) return nullptr;
  drop_caches(as_tl(self));
  return r.release();
}

int tuplelist_ass_subscript(PyObject* self, PyObject* key, PyObject* value) {
  if (PyList_Type.tp_as_mapping->mp_ass_subscript(self, key, value) < 0) return -1;
  TupleListObject* t = as_tl(self);
  release_kind_if_empty(t);
  drop_caches(t);
  return 0;
}

int tuplelist_ass_item(PyObject* self, Py_ssize_t i, PyObject* value) {
  if (PyList_Type.tp_as_sequence->sq_ass_item(self, i, value) < 0) return -1;
  TupleListObject* t = as_tl(self);
  release_kind_if_empty(t);
  drop_caches(t);
  return 0;
}

PyObject* tuplelist_delslice(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 2) return py::raise(PyExc_TypeError, "__delslice__() takes exactly 2 arguments");
  py::Ref slice = py::Ref::steal(PySlice_New(args[0], args[1], nullptr));
  if (!slice) return nullptr;
  if (tuplelist_ass_subscript(self, slice.get(), nullptr) < 0) return nullptr;
  return py::none();
}

PyObject* tuplelist_getslice(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 2) return py::raise(PyExc_TypeError, "__getslice__() takes exactly 2 arguments");
  py::Ref slice = py::Ref::steal(PySlice_New(args[0], args[1], nullptr));
  if (!slice) return nullptr;
  py::Ref part = py::Ref::steal(PyList_Type.tp_as_mapping->mp_subscript(self, slice.get()));
  if (!part) return nullptr;
  return tuplelist_adopt(part.get(), as_tl(self)->wild).release();
}

// A slice keeps the class and the wildcard, as __getslice__ does; an index gives the member.
PyObject* tuplelist_subscript(PyObject* self, PyObject* key) {
  py::Ref part = py::Ref::steal(PyList_Type.tp_as_mapping->mp_subscript(self, key));
  if (!part || !PySlice_Check(key)) return part.release();
  return tuplelist_adopt(part.get(), as_tl(self)->wild).release();
}

PyObject* tuplelist_concat(PyObject* self, PyObject* other) {
  py::Ref all = py::Ref::steal(PySequence_List(self));
  if (!all) return nullptr;
  py::Ref rest = py::Ref::steal(PySequence_List(other));
  if (!rest) return nullptr;
  Py_ssize_t n = PyList_GET_SIZE(all.get());
  if (PyList_SetSlice(all.get(), n, n, rest.get()) < 0) return nullptr;
  return tuplelist_adopt(all.get(), as_tl(self)->wild).release();
}

PyObject* tuplelist_inplace_concat(PyObject* self, PyObject* other) {
  if (tuplelist_check_exact(self)) {
    if (extend_with(as_tl(self), other) < 0) return nullptr;
  } else {
    py::Ref r = call_extend(self, other);
    if (!r) return nullptr;
  }
  return py::new_ref(self);
}

PyObject* tuplelist_inplace_repeat(PyObject* self, Py_ssize_t n) {
  py::Ref r = py::Ref::steal(PyList_Type.tp_as_sequence->sq_inplace_repeat(self, n));
  if (!r) return nullptr;
  TupleListObject* t = as_tl(self);
  release_kind_if_empty(t);
  drop_caches(t);
  return r.release();
}

int tuplelist_contains(PyObject* self, PyObject* val) {
  TupleListObject* t = as_tl(self);
  if (t->contents == nullptr) {
    py::Ref contents = py::Ref::steal(PyDict_New());
    if (!contents) return -1;
    py::Ref items = py::Ref::steal(PyList_GetSlice(self, 0, Py_SIZE(self)));
    if (!items) return -1;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(items.get()); ++i) {
      if (PyDict_SetItem(contents.get(), PyList_GET_ITEM(items.get(), i), Py_True) < 0) return -1;
    }
    py::assign(t->contents, contents.get());
  }
  py::Ref contents = py::Ref::borrow(t->contents);
  PyObject* hit = PyDict_GetItemWithError(contents.get(), val);
  if (hit == nullptr) return PyErr_Occurred() ? -1 : 0;
  return PyObject_IsTrue(hit);
}

// The neighbour map of `which`, built on first use: prev and next pair each element with the one
// before (after) it; prevc and nextc wrap around. Duplicate elements collapse entries, which the
// size check catches.
PyObject* neighbour_map(PyObject* self, int which) {
  TupleListObject* t = as_tl(self);
  if (t->neighbour[which] != nullptr && PyDict_GET_SIZE(t->neighbour[which]) > 0)
    return t->neighbour[which];
  py::Ref items = py::Ref::steal(PyList_GetSlice(self, 0, Py_SIZE(self)));
  if (!items) return nullptr;
  Py_ssize_t n = PyList_GET_SIZE(items.get());
  py::Ref map = py::Ref::steal(PyDict_New());
  if (!map) return nullptr;
  auto item = [&](Py_ssize_t i) { return PyList_GET_ITEM(items.get(), i); };
  bool cyclic = which == kPrevc || which == kNextc;
  Py_ssize_t pairs = cyclic ? n : n - 1;
  for (Py_ssize_t i = 0; i < pairs; ++i) {
    PyObject* key;
    PyObject* value;
    switch (which) {
      case kPrev:
        key = item(i + 1);
        value = item(i);
        break;
      case kNext:
        key = item(i);
        value = item(i + 1);
        break;
      case kPrevc:
        key = item(i);
        value = item((i + n - 1) % n);
        break;
      default:
        key = item(i);
        value = item((i + 1) % n);
        break;
    }
    if (PyDict_SetItem(map.get(), key, value) < 0) return nullptr;
  }
  if (PyDict_GET_SIZE(map.get()) != pairs) {
    py::Ref msg = py::Ref::steal(PyUnicode_FromString("Duplicate values in tupledict"));
    if (msg) PyErr_SetObject(PyExc_KeyError, msg.get());
    return nullptr;
  }
  py::assign(t->neighbour[which], map.get());
  return t->neighbour[which];
}

PyObject* neighbour_of(PyObject* self, PyObject* v, int which) {
  PyObject* map = neighbour_map(self, which);
  if (map == nullptr) return nullptr;
  py::Ref hold = py::Ref::borrow(map);
  PyObject* r = PyDict_GetItemWithError(map, v);
  if (r != nullptr) return py::new_ref(r);
  if (!PyErr_Occurred()) {
    py::Ref key = py::Ref::steal(PyTuple_Pack(1, v));
    if (key) PyErr_SetObject(PyExc_KeyError, key.get());
  }
  return nullptr;
}

PyObject* tuplelist_prev(PyObject* self, PyObject* v) { return neighbour_of(self, v, kPrev); }
PyObject* tuplelist_next(PyObject* self, PyObject* v) { return neighbour_of(self, v, kNext); }
PyObject* tuplelist_prevc(PyObject* self, PyObject* v) { return neighbour_of(self, v, kPrevc); }
PyObject* tuplelist_nextc(PyObject* self, PyObject* v) { return neighbour_of(self, v, kNextc); }

PyObject* tuplelist_repr(PyObject* self) {
  TupleListObject* t = as_tl(self);
  py::Ref items = py::Ref::steal(PyList_GetSlice(self, 0, Py_SIZE(self)));
  if (!items) return nullptr;
  Py_ssize_t n = PyList_GET_SIZE(items.get());
  if (n == 0 || t->kind != kTuple) return PyObject_Repr(items.get());
  // Field j is padded to the widest printed value of field j over the whole list.
  std::vector<std::vector<py::Ref>> text(static_cast<size_t>(n));
  std::vector<Py_ssize_t> width;
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* tup = PyList_GET_ITEM(items.get(), i);
    py::Ref fields = py::Ref::steal(PySequence_Tuple(tup));
    if (!fields) return nullptr;
    for (Py_ssize_t j = 0; j < PyTuple_GET_SIZE(fields.get()); ++j) {
      py::Ref s = py::Ref::steal(PyObject_Str(PyTuple_GET_ITEM(fields.get(), j)));
      if (!s) return nullptr;
      if (static_cast<size_t>(j) >= width.size()) width.push_back(0);
      width[static_cast<size_t>(j)] =
          std::max(width[static_cast<size_t>(j)], PyUnicode_GET_LENGTH(s.get()));
      text[static_cast<size_t>(i)].push_back(std::move(s));
    }
  }
  py::Ref pieces = py::Ref::steal(PyList_New(0));
  if (!pieces) return nullptr;
  auto add = [&](py::Ref piece) { return piece && PyList_Append(pieces.get(), piece.get()) == 0; };
  if (!add(py::Ref::steal(PyUnicode_FromFormat("<velmor.tuplelist (%zd tuples, %zd values each):\n",
                                               n, t->tuplelen)))) {
    return nullptr;
  }
  for (const auto& row : text) {
    if (!add(py::Ref::steal(PyUnicode_FromString(" ( ")))) return nullptr;
    for (size_t j = 0; j < row.size(); ++j) {
      if (j > 0 && !add(py::Ref::steal(PyUnicode_FromString(", ")))) return nullptr;
      if (!add(py::Ref::borrow(row[j].get()))) return nullptr;
      Py_ssize_t pad = width[j] - PyUnicode_GET_LENGTH(row[j].get());
      if (pad > 0 && !add(py::str(std::string(static_cast<size_t>(pad), ' ')))) return nullptr;
    }
    if (!add(py::Ref::steal(PyUnicode_FromString(")\n")))) return nullptr;
  }
  if (!add(py::Ref::steal(PyUnicode_FromString(">")))) return nullptr;
  py::Ref empty = py::Ref::steal(PyUnicode_FromString(""));
  if (!empty) return nullptr;
  return PyUnicode_Join(empty.get(), pieces.get());
}

// ---- pickling -----------------------------------------------------------------------------------

// The C fields are not in __dict__, so the state names them; caches are rebuilt on demand.
PyObject* tuplelist_getstate(PyObject* self, PyObject*) {
  TupleListObject* t = as_tl(self);
  py::Ref state = py::Ref::steal(t->dict ? PyDict_Copy(t->dict) : PyDict_New());
  if (!state) return nullptr;
  if (PyDict_SetItemString(state.get(), "_tuplelist__wild", t->wild) < 0) return nullptr;
  return state.release();
}

PyObject* tuplelist_setstate(PyObject* self, PyObject* state) {
  return subclass_setstate(self, state, "tuplelist state must be a dict");
}

// ---- attributes ---------------------------------------------------------------------------------

PyObject* get_wild(PyObject* self, void*) { return py::new_ref(as_tl(self)->wild); }
int set_wild(PyObject* self, PyObject* value, void*) {
  if (value == nullptr)
    return PyErr_SetString(PyExc_AttributeError, "cannot delete _tuplelist__wild"), -1;
  py::assign(as_tl(self)->wild, value);
  return 0;
}

PyObject* get_scalar(PyObject* self, void*) {
  signed char k = as_tl(self)->kind;
  return k == kUnknown ? py::none() : py::boolean(k == kScalar);
}
int set_scalar(PyObject* self, PyObject* value, void*) {
  TupleListObject* t = as_tl(self);
  if (value == nullptr)
    return PyErr_SetString(PyExc_AttributeError, "cannot delete _tuplelist__scalar"), -1;
  signed char kind = kUnknown;
  if (value != Py_None) {
    int truth = PyObject_IsTrue(value);
    if (truth < 0) return -1;
    kind = truth ? kScalar : kTuple;
  }
  t->kind = kind;
  drop_caches(t);
  return 0;
}

PyObject* get_tuplelen(PyObject* self, void*) {
  Py_ssize_t n = as_tl(self)->tuplelen;
  return n < 0 ? py::none() : PyLong_FromSsize_t(n);
}
int set_tuplelen(PyObject* self, PyObject* value, void*) {
  TupleListObject* t = as_tl(self);
  if (value == nullptr)
    return PyErr_SetString(PyExc_AttributeError, "cannot delete _tuplelist__tuplelen"), -1;
  Py_ssize_t n = -1;
  if (value != Py_None) {
    n = PyNumber_AsSsize_t(value, PyExc_OverflowError);
    if (n == -1 && PyErr_Occurred()) return -1;
    if (n < 0)
      return PyErr_SetString(PyExc_ValueError, "_tuplelist__tuplelen must be None or >= 0"), -1;
  }
  t->tuplelen = n;
  drop_caches(t);
  return 0;
}

PyObject* get_contents(PyObject* self, void*) {
  PyObject* c = as_tl(self)->contents;
  return py::new_ref(c ? c : Py_None);
}
int set_contents(PyObject* self, PyObject* value, void*) {
  TupleListObject* t = as_tl(self);
  if (value == nullptr || value == Py_None) {
    Py_CLEAR(t->contents);
    return 0;
  }
  if (!PyDict_Check(value))
    return PyErr_SetString(PyExc_TypeError, "_tuplelist__contents must be a dict or None"), -1;
  py::assign(t->contents, value);
  return 0;
}

template <int Which>
PyObject* get_neighbour(PyObject* self, void*) {
  TupleListObject* t = as_tl(self);
  if (t->neighbour[Which] == nullptr) {
    t->neighbour[Which] = PyDict_New();
    if (t->neighbour[Which] == nullptr) return nullptr;
  }
  return py::new_ref(t->neighbour[Which]);
}
template <int Which>
int set_neighbour(PyObject* self, PyObject* value, void*) {
  TupleListObject* t = as_tl(self);
  if (value != nullptr && !PyDict_Check(value)) {
    PyErr_SetString(PyExc_TypeError, "neighbour maps must be dicts");
    return -1;
  }
  py::assign(t->neighbour[Which], value);
  return 0;
}

// ---- tables -------------------------------------------------------------------------------------

const char select_doc[] =
    "select($self, *pattern)\n--\n\n"
    "Returns a tuplelist of the members that match the pattern, in list order. Field i of a\n"
    "member must equal pattern[i] unless pattern[i] is the wildcard ('*' by default); fields\n"
    "beyond the pattern are unconstrained. A list (or any non-string iterable) in the pattern\n"
    "matches any of its values; the matches of each value follow one another. With every\n"
    "field a wildcard, all members are returned. A missing value gives an empty tuplelist.\n\n"
    "The first query on a set of constrained fields builds an index over them in one pass;\n"
    "later queries on the same fields are a single lookup. clean() frees the indexes.\n\n"
    "Example:\n"
    "  l = tuplelist([(1, 2), (1, 3), (2, 3)])\n"
    "  l.select(1, '*')        # <(1, 2), (1, 3)>\n"
    "  l.select([1, 2], 3)     # <(1, 3), (2, 3)>";

const char clean_doc[] =
    "clean($self)\n--\n\n"
    "Discards the indexes built by select() and the lookup tables of 'in', prev(), next(),\n"
    "prevc() and nextc(). The indexes consume memory; call clean() to reclaim it. They are\n"
    "rebuilt on demand.";

PyMethodDef tuplelist_methods[] = {
    {"select", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_select>, METH_FASTCALL,
     select_doc},
    {"clean", py::guarded<&tuplelist_clean>, METH_NOARGS, clean_doc},
    {"append", py::guarded<&tuplelist_append>, METH_O,
     "append($self, x)\n--\n\nAppends x. x must be of the list's kind (a tuple of the members' length, or a\n"
     "non-tuple in a list of scalars); otherwise ValueError is raised and the list is unchanged."},
    {"extend", py::guarded<&tuplelist_extend>, METH_O,
     "extend($self, L)\n--\n\nAppends the members of L, after checking all of them as append() does."},
    {"insert", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_insert>, METH_FASTCALL,
     "insert($self, i, x)\n--\n\nInserts x before position i, after checking it as append() does."},
    {"pop", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_delete_op<&list_pop>>,
     METH_FASTCALL,
     "pop($self, i=-1)\n--\n\nRemoves and returns the member at position i. An emptied list accepts members\n"
     "of any kind again."},
    {"remove", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_delete_op<&list_remove>>,
     METH_FASTCALL, "remove($self, x)\n--\n\nRemoves the first member equal to x."},
    {"clear", py::guarded<&tuplelist_clear_method>, METH_NOARGS,
     "clear($self)\n--\n\nRemoves every member."},
    {"sort", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_reorder_op<&list_sort>>,
     METH_FASTCALL | METH_KEYWORDS,
     "sort($self, *, key=None, reverse=False)\n--\n\nSorts the list in place (stable)."},
    {"reverse", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_reorder_op<&list_reverse>>,
     METH_FASTCALL | METH_KEYWORDS, "reverse($self)\n--\n\nReverses the list in place."},
    {"prev", py::guarded<&tuplelist_prev>, METH_O,
     "prev($self, v)\n--\n\nThe member just before v. KeyError for the first member, for a value not in the\n"
     "list, and when the list holds duplicates."},
    {"next", py::guarded<&tuplelist_next>, METH_O,
     "next($self, v)\n--\n\nThe member just after v. KeyError for the last member, for a value not in the\n"
     "list, and when the list holds duplicates."},
    {"prevc", py::guarded<&tuplelist_prevc>, METH_O,
     "prevc($self, v)\n--\n\nThe member before v, cyclically: the first member's predecessor is the last."},
    {"nextc", py::guarded<&tuplelist_nextc>, METH_O,
     "nextc($self, v)\n--\n\nThe member after v, cyclically: the last member's successor is the first."},
    {"__getslice__", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_getslice>, METH_FASTCALL,
     "__getslice__($self, b, c)\n--\n\nThe members from b to c as a tuplelist with this list's wildcard."},
    {"__delslice__", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_delslice>, METH_FASTCALL,
     "__delslice__($self, i, j)\n--\n\nDeletes the members from i to j."},
    {"__getstate__", py::guarded<&tuplelist_getstate>, METH_NOARGS, "Pickling support."},
    {"__setstate__", py::guarded<&tuplelist_setstate>, METH_O, "Pickling support."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef tuplelist_getset[] = {
    {"_tuplelist__wild", get_wild, set_wild, "The wildcard value of select().", nullptr},
    {"_tuplelist__scalar", get_scalar, set_scalar,
     "None while the list is empty, True for a list of scalars, False for a list of tuples.",
     nullptr},
    {"_tuplelist__tuplelen", get_tuplelen, set_tuplelen,
     "The common length of the member tuples, or None.", nullptr},
    {"_tuplelist__index", tuplelist_get_index, nullptr,
     "A snapshot of the select() indexes: {positions: {key: tuplelist}}.", nullptr},
    {"_tuplelist__contents", get_contents, set_contents, "The membership table of 'in', or None.",
     nullptr},
    {"_tuplelist__prev", get_neighbour<kPrev>, set_neighbour<kPrev>, "The lookup table of prev().",
     nullptr},
    {"_tuplelist__next", get_neighbour<kNext>, set_neighbour<kNext>, "The lookup table of next().",
     nullptr},
    {"_tuplelist__prevc", get_neighbour<kPrevc>, set_neighbour<kPrevc>,
     "The lookup table of prevc().", nullptr},
    {"_tuplelist__nextc", get_neighbour<kNextc>, set_neighbour<kNextc>,
     "The lookup table of nextc().", nullptr},
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, "The instance attributes.",
     nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

PySequenceMethods tuplelist_as_sequence = {};
PyMappingMethods tuplelist_as_mapping = {};

const char tuplelist_doc[] =
    "\n  Custom Velmor class: tuplelist is a subclass of list that is\n"
    "  designed to work with lists of tuples.  Using the select()\n"
    "  method, this class allows you to efficiently select sub-lists of\n"
    "  tuples by matching specific values in specific fields of the\n"
    "  member tuples.\n"
    "\n"
    "  To use it, build a tuplelist from a list of tuples, then query it\n"
    "  with one value per field, '*' matching anything:\n"
    "\n"
    "    > l = tuplelist([(1, 2), (1, 3), (2, 3), (2, 4)])\n"
    "    > print(l.select(1, '*'))\n"
    "    <velmor.tuplelist (2 tuples, 2 values each):\n"
    "     ( 1, 2)\n"
    "     ( 1, 3)\n"
    "    >\n"
    "    > print(l.select('*', 3))\n"
    "    <velmor.tuplelist (2 tuples, 2 values each):\n"
    "     ( 1, 3)\n"
    "     ( 2, 3)\n"
    "    >\n"
    "\n"
    "  A field may also be given a list of values:\n"
    "\n"
    "    > print(l.select([1, 2], 3))\n"
    "    <velmor.tuplelist (2 tuples, 2 values each):\n"
    "     ( 1, 3)\n"
    "     ( 2, 3)\n"
    "    >\n"
    "\n"
    "  and select('*', '*') returns every member.  A tuplelist may also\n"
    "  hold scalars (no tuples); then select(v) returns the members\n"
    "  equal to v.  All tuples must have the same length, and tuples\n"
    "  and scalars cannot be mixed.\n"
    "\n"
    "  Note that nested tuples (tuples whose fields are tuples) are not\n"
    "  supported: selecting on them gives unpredictable results.\n";

}  // namespace

PyTypeObject TupleListType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.tuplelist"};

int register_tuplelist(PyObject* m) {
  default_wild = PyUnicode_InternFromString("*");
  if (default_wild == nullptr) return -1;
  const BaseMethod methods[] = {{"pop", &list_pop},
                                 {"remove", &list_remove},
                                 {"insert", &list_insert},
                                 {"sort", &list_sort},
                                 {"reverse", &list_reverse}};
  if (subclass_base_methods(&PyList_Type, methods, std::size(methods), "list methods not found") <
      0) {
    return -1;
  }
  tuplelist_as_sequence.sq_concat = py::guarded<&tuplelist_concat>;
  tuplelist_as_sequence.sq_contains = py::guarded<&tuplelist_contains>;
  tuplelist_as_sequence.sq_ass_item = py::guarded<&tuplelist_ass_item>;
  tuplelist_as_sequence.sq_inplace_concat = py::guarded<&tuplelist_inplace_concat>;
  tuplelist_as_sequence.sq_inplace_repeat = py::guarded<&tuplelist_inplace_repeat>;
  tuplelist_as_mapping.mp_subscript = py::guarded<&tuplelist_subscript>;
  tuplelist_as_mapping.mp_ass_subscript = py::guarded<&tuplelist_ass_subscript>;

  TupleListType.tp_doc = tuplelist_doc;
  TupleListType.tp_new = py::guarded<&tuplelist_new>;
  TupleListType.tp_init = py::guarded<&tuplelist_init>;
  TupleListType.tp_dealloc = tuplelist_dealloc;
  TupleListType.tp_traverse = tuplelist_traverse;
  TupleListType.tp_clear = tuplelist_clear;
  TupleListType.tp_repr = py::guarded<&tuplelist_repr>;
  TupleListType.tp_as_sequence = &tuplelist_as_sequence;
  TupleListType.tp_as_mapping = &tuplelist_as_mapping;
  TupleListType.tp_methods = tuplelist_methods;
  TupleListType.tp_getset = tuplelist_getset;
  return subclass_add_type(m, "tuplelist", &TupleListType, &PyList_Type, sizeof(TupleListObject),
                           offsetof(TupleListObject, dict),
                           offsetof(TupleListObject, weakreflist));
}

