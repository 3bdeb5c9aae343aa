// tuplelist: a list subclass in C holding tuples of one length (or scalars only) and answering
// select(*pattern) through hash indexes built lazily, one per set of constrained positions.
//
// Invariants: `kind` is kUnknown only while nothing has been added since the list was last
// emptied by a tuplelist method; `tuplelen` is set for tuple lists only. The index cache, the
// membership dict and the neighbour maps describe the list as it was when they were built and
// are dropped by every mutating method (clean()). Operations that bypass the methods
// (list.append(tl, x)) leave them stale, so every cached list position is bounds-checked
// before use: a stale cache gives stale answers, never a crash.
//
// An index is kept in C++ rather than as a dict of tuplelists: each bucket is a slice of one
// position array (grouped by bucket, list order inside a bucket), found through an open-address
// table keyed by a hash of the constrained fields. Projected keys are never materialised as
// tuples; equality is checked field by field against the bucket's first element, exactly as a
// dict keyed by itemgetter(*positions) would compare. A bucket becomes a Python tuplelist only
// when select hands it out, and that object is then kept so repeated queries return it again.
#include "containers/tuplelist.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"

namespace {

enum Kind : signed char { kUnknown = -1, kTuple = 0, kScalar = 1 };

struct PatternIndex {
  struct Slot {
    std::uint32_t tag;     // high half of the key hash (the low bits choose the slot)
    std::uint32_t bucket;  // bucket + 1; 0 marks an empty slot
  };
  std::vector<Slot> table;        // power-of-two size, linear probing, load <= 1/2
  std::vector<Py_ssize_t> first;  // list position of each bucket's first element
  std::vector<Py_ssize_t> start;  // bucket b is order[start[b] .. start[b+1])
  std::vector<Py_ssize_t> order;  // list positions grouped by bucket, list order inside
  std::unordered_map<Py_ssize_t, py::Ref> handed_out;  // bucket -> tuplelist given by select
};

// Buffers reused across the elements of one pass.
struct Scratch {
  std::vector<PyObject*> stored;
  std::vector<py::Ref> hold;
};

using Positions = std::vector<Py_ssize_t>;
using IndexCache = std::map<Positions, std::shared_ptr<PatternIndex>>;

enum Neighbour { kPrev = 0, kNext = 1, kPrevc = 2, kNextc = 3 };

}  // namespace

struct TupleListObject {
  PyListObject list;
  PyObject* wild;
  PyObject* contents;      // element -> True, or nullptr for None
  PyObject* neighbour[4];  // prev, next, prevc, nextc maps; nullptr until built
  PyObject* dict;
  PyObject* weakreflist;
  IndexCache* cache;         // nullptr when no index is built
  Py_ssize_t tuplelen;       // -1 for None
  unsigned long generation;  // counts clean()s, so a build that Python code cleaned is not kept
  signed char kind;
};

namespace {

PyObject* default_wild = nullptr;  // the string '*', kept for the process lifetime
PyObject* list_pop = nullptr;      // list's own method descriptors (borrowed from its type)
PyObject* list_remove = nullptr;
PyObject* list_insert = nullptr;
PyObject* list_sort = nullptr;
PyObject* list_reverse = nullptr;

TupleListObject* as_tl(PyObject* o) { return reinterpret_cast<TupleListObject*>(o); }

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

// A new tuplelist (wildcard '*') of the elements at `pos` in `self`.
py::Ref tuplelist_of_positions(PyObject* self, const Py_ssize_t* pos, size_t n) {
  py::Ref items = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(n)));
  if (!items) return items;
  for (size_t i = 0; i < n; ++i) {
    if (pos[i] >= Py_SIZE(self)) {
      PyErr_SetString(PyExc_RuntimeError, "tuplelist changed size during select");
      return py::Ref();
    }
    PyList_SET_ITEM(items.get(), static_cast<Py_ssize_t>(i),
                    py::new_ref(PyList_GET_ITEM(self, pos[i])));
  }
  return tuplelist_adopt(items.get(), default_wild);
}

// ---- keys and hashing ---------------------------------------------------------------------------

std::uint64_t mix64(std::uint64_t x) {
  x ^= x >> 30;
  x *= 0xbf58476d1ce4e5b9ULL;
  x ^= x >> 27;
  x *= 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}

// The key fields of `elem`: the element itself in a scalar list, else its fields at
// `positions`. Returns 1; 0 when the element is too short (itemgetter's IndexError: the element
// is left out of the index); -1 on error. Items that are not tuples are read with elem[p];
// `hold` keeps those alive.
int key_fields(PyObject* elem, bool scalar, const Positions& positions, std::vector<PyObject*>& out,
               std::vector<py::Ref>& hold) {
  if (scalar) {
    out[0] = elem;
    return 1;
  }
  if (PyTuple_Check(elem)) {
    Py_ssize_t len = PyTuple_GET_SIZE(elem);
    for (size_t k = 0; k < positions.size(); ++k) {
      if (positions[k] >= len) return 0;
      out[k] = PyTuple_GET_ITEM(elem, positions[k]);
    }
    return 1;
  }
  hold.clear();
  for (size_t k = 0; k < positions.size(); ++k) {
    py::Ref p = py::Ref::steal(PyLong_FromSsize_t(positions[k]));
    if (!p) return -1;
    py::Ref item = py::Ref::steal(PyObject_GetItem(elem, p.get()));
    if (!item) {
      if (!PyErr_ExceptionMatches(PyExc_IndexError)) return -1;
      PyErr_Clear();
      return 0;
    }
    out[k] = item.get();
    hold.push_back(std::move(item));
  }
  return 1;
}

int hash_fields(const std::vector<PyObject*>& f, std::uint64_t* out) {
  std::uint64_t h = f.size();
  for (PyObject* o : f) {
    Py_hash_t fh = PyObject_Hash(o);
    if (fh == -1) return -1;
    h = mix64(h ^ static_cast<std::uint64_t>(fh));
  }
  *out = h;
  return 0;
}

// Field-wise equality, the stored key on the left as a dict compares it.
int fields_equal(const std::vector<PyObject*>& stored, const std::vector<PyObject*>& probe) {
  for (size_t k = 0; k < stored.size(); ++k) {
    if (stored[k] == probe[k]) continue;
    int r = PyObject_RichCompareBool(stored[k], probe[k], Py_EQ);
    if (r <= 0) return r;
  }
  return 1;
}

PyObject* changed_during_select() {
  return py::raise(PyExc_RuntimeError, "tuplelist changed size during select");
}

// Looks up the bucket whose key equals `probe` (hash `h`); *bucket = -1 when there is none, with
// *slot the free slot where it would go. Comparisons may run Python code, so the first element
// of each candidate bucket is re-read from the list (bounds-checked) and held while compared.
int probe_table(PyObject* self, const PatternIndex& idx, bool scalar, const Positions& positions,
                const std::vector<PyObject*>& probe, std::uint64_t h, Scratch& scratch,
                size_t* slot, Py_ssize_t* bucket) {
  size_t mask = idx.table.size() - 1;
  std::uint32_t tag = static_cast<std::uint32_t>(h >> 32);
  for (size_t s = h & mask;; s = (s + 1) & mask) {
    const PatternIndex::Slot sl = idx.table[s];
    if (sl.bucket == 0) {
      *slot = s;
      *bucket = -1;
      return 0;
    }
    if (sl.tag != tag) continue;
    Py_ssize_t at = idx.first[sl.bucket - 1];
    if (at >= Py_SIZE(self)) {
      changed_during_select();
      return -1;
    }
    py::Ref elem = py::Ref::borrow(PyList_GET_ITEM(self, at));
    int r = key_fields(elem.get(), scalar, positions, scratch.stored, scratch.hold);
    if (r < 0) return -1;
    if (r == 0) continue;  // replaced behind our back by a shorter element
    r = fields_equal(scratch.stored, probe);
    if (r < 0) return -1;
    if (r) {
      *slot = s;
      *bucket = static_cast<Py_ssize_t>(sl.bucket) - 1;
      return 0;
    }
  }
}

// One pass over the list: every element with the needed fields goes to the bucket of its key.
std::shared_ptr<PatternIndex> build_index(TupleListObject* self, bool scalar,
                                          const Positions& positions) {
  PyObject* list = reinterpret_cast<PyObject*>(self);
  Py_ssize_t n = Py_SIZE(self);
  if (static_cast<std::uint64_t>(n) >= UINT32_MAX) {
    PyErr_SetString(PyExc_OverflowError, "tuplelist too long to index");
    return nullptr;
  }
  auto idx = std::make_shared<PatternIndex>();
  size_t k = scalar ? 1 : positions.size();
  std::vector<PyObject*> fields(k);
  std::vector<py::Ref> hold;
  Scratch scratch{std::vector<PyObject*>(k), {}};
  std::vector<Py_ssize_t> bucket_of(static_cast<size_t>(n), -1);
  std::vector<Py_ssize_t> count;
  std::vector<std::uint64_t> bucket_hash;  // only while building: the slot of each bucket
  idx->table.assign(16, PatternIndex::Slot{0, 0});
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (i >= Py_SIZE(self)) {
      changed_during_select();
      return nullptr;
    }
    py::Ref elem = py::Ref::borrow(PyList_GET_ITEM(list, i));
    int r = key_fields(elem.get(), scalar, positions, fields, hold);
    if (r < 0) return nullptr;
    if (r == 0) continue;
    std::uint64_t h;
    if (hash_fields(fields, &h) < 0) return nullptr;
    size_t slot;
    Py_ssize_t b;
    if (probe_table(list, *idx, scalar, positions, fields, h, scratch, &slot, &b) < 0)
      return nullptr;
    if (b < 0) {
      b = static_cast<Py_ssize_t>(idx->first.size());
      idx->first.push_back(i);
      count.push_back(0);
      idx->table[slot] = PatternIndex::Slot{static_cast<std::uint32_t>(h >> 32),
                                            static_cast<std::uint32_t>(b + 1)};
      bucket_hash.push_back(h);
      if (idx->first.size() * 2 > idx->table.size()) {
        std::vector<PatternIndex::Slot> grown(idx->table.size() * 2, PatternIndex::Slot{0, 0});
        size_t mask = grown.size() - 1;
        for (size_t j = 0; j < bucket_hash.size(); ++j) {
          size_t s = bucket_hash[j] & mask;
          while (grown[s].bucket != 0) s = (s + 1) & mask;
          grown[s] = PatternIndex::Slot{static_cast<std::uint32_t>(bucket_hash[j] >> 32),
                                        static_cast<std::uint32_t>(j + 1)};
        }
        idx->table.swap(grown);
      }
    }
    bucket_of[static_cast<size_t>(i)] = b;
    ++count[static_cast<size_t>(b)];
  }
  idx->start.resize(idx->first.size() + 1);
  idx->start[0] = 0;
  for (size_t b = 0; b < count.size(); ++b) idx->start[b + 1] = idx->start[b] + count[b];
  idx->order.resize(static_cast<size_t>(idx->start.back()));
  std::vector<Py_ssize_t> cursor(idx->start.begin(), idx->start.end() - 1);
  for (Py_ssize_t i = 0; i < n; ++i) {
    Py_ssize_t b = bucket_of[static_cast<size_t>(i)];
    if (b >= 0) idx->order[static_cast<size_t>(cursor[static_cast<size_t>(b)]++)] = i;
  }
  return idx;
}

// ---- matching -----------------------------------------------------------------------------------

struct Match {
  enum Kind { kNone, kAll, kBucket } kind = kNone;
  std::shared_ptr<PatternIndex> index;
  Py_ssize_t bucket = -1;
};

// Whether vals[i] is to be expanded item by item: not a str, and iterable. Plain values are
// recognised without raising (and swallowing) a TypeError per query.
int expandable(PyObject* v, py::Ref* iter) {
  if (PyUnicode_Check(v)) return 0;
  if (Py_TYPE(v)->tp_iter == nullptr && !PySequence_Check(v)) return 0;
  *iter = py::Ref::steal(PyObject_GetIter(v));
  if (*iter) return 1;
  if (!PyErr_ExceptionMatches(PyExc_TypeError)) return -1;
  PyErr_Clear();
  return 0;
}

int is_constrained(PyObject* v, PyObject* wild) {
  if (v == wild && PyUnicode_CheckExact(v)) return 0;
  py::Ref ne = py::Ref::steal(PyObject_RichCompare(v, wild, Py_NE));
  if (!ne) return -1;
  return PyObject_IsTrue(ne.get());
}

// A pattern without list arguments: the bucket it names, all elements, or none.
int match_pattern_inner(TupleListObject* self, PyObject* const* vals, Py_ssize_t n, Match& m) {
  Positions positions;
  for (Py_ssize_t i = 0; i < n; ++i) {
    int c = is_constrained(vals[i], self->wild);
    if (c < 0) return -1;
    if (c) positions.push_back(i);
  }
  bool scalar = self->kind == kScalar;
  if (scalar && n == 0) {
    m.kind = Match::kNone;
    return 0;
  }
  if (positions.empty()) {
    m.kind = Match::kAll;
    return 0;
  }
  std::shared_ptr<PatternIndex> idx;
  if (self->cache != nullptr) {
    auto it = self->cache->find(positions);
    if (it != self->cache->end()) idx = it->second;
  }
  if (!idx) {
    unsigned long generation = self->generation;
    idx = build_index(self, scalar, positions);
    if (!idx) return -1;
    if (generation == self->generation) {
      if (self->cache == nullptr) self->cache = new IndexCache();
      (*self->cache)[positions] = idx;
    }
  }
  std::vector<PyObject*> probe;
  if (scalar) {
    probe.push_back(vals[0]);
  } else {
    for (Py_ssize_t p : positions) probe.push_back(vals[p]);
  }
  std::uint64_t h;
  if (hash_fields(probe, &h) < 0) return -1;
  Scratch scratch{std::vector<PyObject*>(probe.size()), {}};
  size_t slot;
  Py_ssize_t b;
  if (probe_table(reinterpret_cast<PyObject*>(self), *idx, scalar, positions, probe, h, scratch,
                  &slot, &b) < 0) {
    return -1;
  }
  m.kind = b < 0 ? Match::kNone : Match::kBucket;
  m.index = std::move(idx);
  m.bucket = b;
  return 0;
}

// A missing key (KeyError) or a too short pattern (IndexError) is no match, not an error.
int match_pattern(TupleListObject* self, PyObject* const* vals, Py_ssize_t n, Match& m) {
  if (match_pattern_inner(self, vals, n, m) == 0) return 0;
  if (!PyErr_ExceptionMatches(PyExc_KeyError) && !PyErr_ExceptionMatches(PyExc_IndexError))
    return -1;
  PyErr_Clear();
  m = Match();
  return 0;
}

// Finds the first list argument. Returns its position (with an iterator over it), -1 when there
// is none, -2 on error.
Py_ssize_t find_list_argument(PyObject* const* vals, Py_ssize_t n, py::Ref* iter) {
  for (Py_ssize_t i = 0; i < n; ++i) {
    int e = expandable(vals[i], iter);
    if (e < 0) return -2;
    if (e) return i;
  }
  return -1;
}

void append_all(PyObject* self, std::vector<Py_ssize_t>& out) {
  for (Py_ssize_t i = 0; i < Py_SIZE(self); ++i) out.push_back(i);
}

}  // namespace

int tuplelist_match(PyObject* tl, PyObject* const* vals, Py_ssize_t nvals,
                    std::vector<Py_ssize_t>& out, bool* all) {
  TupleListObject* self = as_tl(tl);
  *all = false;
  py::Ref iter;
  Py_ssize_t i = find_list_argument(vals, nvals, &iter);
  if (i == -2) return -1;
  if (i >= 0) {
    std::vector<PyObject*> w(vals, vals + nvals);
    while (py::Ref item = py::Ref::steal(PyIter_Next(iter.get()))) {
      w[static_cast<size_t>(i)] = item.get();
      bool sub_all = false;
      if (tuplelist_match(tl, w.data(), nvals, out, &sub_all) < 0) return -1;
      if (sub_all) append_all(tl, out);
    }
    return PyErr_Occurred() ? -1 : 0;
  }
  Match m;
  if (match_pattern(self, vals, nvals, m) < 0) return -1;
  if (m.kind == Match::kAll) {
    *all = true;
  } else if (m.kind == Match::kBucket) {
    const auto& idx = *m.index;
    out.insert(out.end(), idx.order.begin() + idx.start[m.bucket],
               idx.order.begin() + idx.start[m.bucket + 1]);
  }
  return 0;
}

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

void tuplelist_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  TupleListObject* t = as_tl(self);
  if (t->weakreflist != nullptr) PyObject_ClearWeakRefs(self);
  drop_caches(t);
  Py_CLEAR(t->wild);
  Py_CLEAR(t->dict);
  PyList_Type.tp_dealloc(self);
}

// ---- mutators -----------------------------------------------------------------------------------

PyObject* call_base(PyObject* method, PyObject* self, PyObject* const* args, Py_ssize_t nargs,
                    PyObject* kwnames) {
  Py_ssize_t nkw = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
  std::vector<PyObject*> all;
  all.reserve(static_cast<size_t>(1 + nargs + nkw));
  all.push_back(self);
  all.insert(all.end(), args, args + nargs + nkw);
  return PyObject_Vectorcall(method, all.data(), static_cast<size_t>(nargs) + 1, kwnames);
}

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
  py::Ref r = py::Ref::steal(call_base(list_insert, self, args, nargs, nullptr));
  if (!r) return nullptr;
  drop_caches(t);
  return r.release();
}

// pop, remove and clear: the list operation, then the emptiness check, then clean().
template <PyObject** Method>
PyObject* tuplelist_delete_op(PyObject* self, PyObject* const* args, Py_ssize_t nargs) {
  py::Ref r = py::Ref::steal(call_base(*Method, self, args, nargs, nullptr));
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
  py::Ref r = py::Ref::steal(call_base(*Method, self, args, nargs, kwnames));
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

// ---- queries ------------------------------------------------------------------------------------

PyObject* tuplelist_select(PyObject* self, PyObject* const* vals, Py_ssize_t n) {
  TupleListObject* t = as_tl(self);
  py::Ref iter;
  Py_ssize_t i = find_list_argument(vals, n, &iter);
  if (i == -2) return nullptr;
  if (i >= 0) {
    std::vector<Py_ssize_t> pos;
    std::vector<PyObject*> w(vals, vals + n);
    while (py::Ref item = py::Ref::steal(PyIter_Next(iter.get()))) {
      w[static_cast<size_t>(i)] = item.get();
      bool all = false;
      if (tuplelist_match(self, w.data(), n, pos, &all) < 0) return nullptr;
      if (all) append_all(self, pos);
    }
    if (PyErr_Occurred()) return nullptr;
    return tuplelist_of_positions(self, pos.data(), pos.size()).release();
  }
  Match m;
  if (match_pattern(t, vals, n, m) < 0) return nullptr;
  if (m.kind == Match::kNone) return make_tuplelist(&TupleListType, default_wild).release();
  if (m.kind == Match::kAll) {
    py::Ref all = py::Ref::steal(PyList_GetSlice(self, 0, Py_SIZE(self)));
    if (!all) return nullptr;
    return tuplelist_adopt(all.get(), default_wild).release();
  }
  PatternIndex& idx = *m.index;
  auto found = idx.handed_out.find(m.bucket);
  if (found != idx.handed_out.end()) return py::new_ref(found->second.get());
  const Py_ssize_t* pos = idx.order.data() + idx.start[m.bucket];
  size_t count = static_cast<size_t>(idx.start[m.bucket + 1] - idx.start[m.bucket]);
  py::Ref bucket = tuplelist_of_positions(self, pos, count);
  if (!bucket) return nullptr;
  PyObject* result = py::new_ref(bucket.get());
  idx.handed_out.emplace(m.bucket, std::move(bucket));
  return result;
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
  if (state == Py_None) return py::none();
  if (!PyDict_Check(state)) return py::raise(PyExc_TypeError, "tuplelist state must be a dict");
  PyObject* key;
  PyObject* value;
  Py_ssize_t pos = 0;
  while (PyDict_Next(state, &pos, &key, &value)) {
    if (PyObject_SetAttr(self, key, value) < 0) return nullptr;
  }
  return py::none();
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

// A snapshot of the index cache in the shape {positions: {key: bucket}}; the buckets are the
// objects select returns.
PyObject* get_index(PyObject* self, void*) {
  TupleListObject* t = as_tl(self);
  py::Ref result = py::Ref::steal(PyDict_New());
  if (!result || t->cache == nullptr) return result.release();
  std::vector<std::pair<Positions, std::shared_ptr<PatternIndex>>> entries(t->cache->begin(),
                                                                           t->cache->end());
  bool scalar = t->kind == kScalar;
  for (auto& [positions, idx] : entries) {
    py::Ref pos_key = py::Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(positions.size())));
    py::Ref buckets = py::Ref::steal(PyDict_New());
    if (!pos_key || !buckets) return nullptr;
    for (size_t k = 0; k < positions.size(); ++k) {
      PyObject* p = PyLong_FromSsize_t(positions[k]);
      if (p == nullptr) return nullptr;
      PyTuple_SET_ITEM(pos_key.get(), static_cast<Py_ssize_t>(k), p);
    }
    size_t nfields = scalar ? 1 : positions.size();
    std::vector<PyObject*> fields(nfields);
    std::vector<py::Ref> hold;
    for (Py_ssize_t b = 0; b + 1 < static_cast<Py_ssize_t>(idx->start.size()); ++b) {
      Py_ssize_t at = idx->order[static_cast<size_t>(idx->start[b])];
      if (at >= Py_SIZE(self)) return changed_during_select();
      py::Ref elem = py::Ref::borrow(PyList_GET_ITEM(self, at));
      int r = key_fields(elem.get(), scalar, positions, fields, hold);
      if (r < 0) return nullptr;
      if (r == 0) continue;
      py::Ref key;
      if (nfields == 1) {
        key = py::Ref::borrow(fields[0]);
      } else {
        key = py::Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(nfields)));
        if (!key) return nullptr;
        for (size_t k = 0; k < nfields; ++k)
          PyTuple_SET_ITEM(key.get(), static_cast<Py_ssize_t>(k), py::new_ref(fields[k]));
      }
      auto found = idx->handed_out.find(b);
      if (found == idx->handed_out.end()) {
        const Py_ssize_t* pos = idx->order.data() + idx->start[b];
        py::Ref bucket = tuplelist_of_positions(
            self, pos, static_cast<size_t>(idx->start[b + 1] - idx->start[b]));
        if (!bucket) return nullptr;
        found = idx->handed_out.emplace(b, std::move(bucket)).first;
      }
      if (PyDict_SetItem(buckets.get(), key.get(), found->second.get()) < 0) return nullptr;
    }
    if (PyDict_SetItem(result.get(), pos_key.get(), buckets.get()) < 0) return nullptr;
  }
  return result.release();
}

// ---- tables -------------------------------------------------------------------------------------

const char select_doc[] =
    "select(*pattern)\n\n"
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
    "clean()\n\n"
    "Discards the indexes built by select() and the lookup tables of 'in', prev(), next(),\n"
    "prevc() and nextc(). The indexes consume memory; call clean() to reclaim it. They are\n"
    "rebuilt on demand.";

PyMethodDef tuplelist_methods[] = {
    {"select", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_select>, METH_FASTCALL,
     select_doc},
    {"clean", py::guarded<&tuplelist_clean>, METH_NOARGS, clean_doc},
    {"append", py::guarded<&tuplelist_append>, METH_O,
     "append(x)\n\nAppends x. x must be of the list's kind (a tuple of the members' length, or a\n"
     "non-tuple in a list of scalars); otherwise ValueError is raised and the list is unchanged."},
    {"extend", py::guarded<&tuplelist_extend>, METH_O,
     "extend(L)\n\nAppends the members of L, after checking all of them as append() does."},
    {"insert", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_insert>, METH_FASTCALL,
     "insert(i, x)\n\nInserts x before position i, after checking it as append() does."},
    {"pop", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_delete_op<&list_pop>>,
     METH_FASTCALL,
     "pop(i=-1)\n\nRemoves and returns the member at position i. An emptied list accepts members\n"
     "of any kind again."},
    {"remove", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_delete_op<&list_remove>>,
     METH_FASTCALL, "remove(x)\n\nRemoves the first member equal to x."},
    {"clear", py::guarded<&tuplelist_clear_method>, METH_NOARGS,
     "clear()\n\nRemoves every member."},
    {"sort", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_reorder_op<&list_sort>>,
     METH_FASTCALL | METH_KEYWORDS,
     "sort(*, key=None, reverse=False)\n\nSorts the list in place (stable)."},
    {"reverse", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_reorder_op<&list_reverse>>,
     METH_FASTCALL | METH_KEYWORDS, "reverse()\n\nReverses the list in place."},
    {"prev", py::guarded<&tuplelist_prev>, METH_O,
     "prev(v)\n\nThe member just before v. KeyError for the first member, for a value not in the\n"
     "list, and when the list holds duplicates."},
    {"next", py::guarded<&tuplelist_next>, METH_O,
     "next(v)\n\nThe member just after v. KeyError for the last member, for a value not in the\n"
     "list, and when the list holds duplicates."},
    {"prevc", py::guarded<&tuplelist_prevc>, METH_O,
     "prevc(v)\n\nThe member before v, cyclically: the first member's predecessor is the last."},
    {"nextc", py::guarded<&tuplelist_nextc>, METH_O,
     "nextc(v)\n\nThe member after v, cyclically: the last member's successor is the first."},
    {"__getslice__", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_getslice>, METH_FASTCALL,
     "__getslice__(b, c)\n\nThe members from b to c as a tuplelist with this list's wildcard."},
    {"__delslice__", (PyCFunction)(void (*)(void))py::guarded<&tuplelist_delslice>, METH_FASTCALL,
     "__delslice__(i, j)\n\nDeletes the members from i to j."},
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
    {"_tuplelist__index", get_index, nullptr,
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
  // Looked up through the type (its tp_dict is not filled for built-in types on 3.12+); the
  // references are kept for the life of the process.
  PyObject* base = reinterpret_cast<PyObject*>(&PyList_Type);
  list_pop = PyObject_GetAttrString(base, "pop");
  list_remove = PyObject_GetAttrString(base, "remove");
  list_insert = PyObject_GetAttrString(base, "insert");
  list_sort = PyObject_GetAttrString(base, "sort");
  list_reverse = PyObject_GetAttrString(base, "reverse");
  if (!list_pop || !list_remove || !list_insert || !list_sort || !list_reverse) {
    PyErr_SetString(PyExc_SystemError, "list methods not found");
    return -1;
  }
  tuplelist_as_sequence.sq_concat = py::guarded<&tuplelist_concat>;
  tuplelist_as_sequence.sq_contains = py::guarded<&tuplelist_contains>;
  tuplelist_as_sequence.sq_ass_item = py::guarded<&tuplelist_ass_item>;
  tuplelist_as_sequence.sq_inplace_concat = py::guarded<&tuplelist_inplace_concat>;
  tuplelist_as_sequence.sq_inplace_repeat = py::guarded<&tuplelist_inplace_repeat>;
  tuplelist_as_mapping.mp_ass_subscript = py::guarded<&tuplelist_ass_subscript>;

  TupleListType.tp_base = &PyList_Type;
  TupleListType.tp_basicsize = sizeof(TupleListObject);
  TupleListType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
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
  TupleListType.tp_dictoffset = offsetof(TupleListObject, dict);
  TupleListType.tp_weaklistoffset = offsetof(TupleListObject, weakreflist);
  if (PyType_Ready(&TupleListType) < 0) return -1;
  Py_INCREF(&TupleListType);
  if (PyModule_AddObject(m, "tuplelist", reinterpret_cast<PyObject*>(&TupleListType)) < 0) {
    Py_DECREF(&TupleListType);
    return -1;
  }
  return 0;
}
