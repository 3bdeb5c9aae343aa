// The pattern index of tuplelist: select(*pattern) and tuplelist_match answer through hash
// indexes built lazily, one per set of constrained positions.
//
// An index is kept in C++ rather than as a dict of tuplelists: each bucket is a slice of one
// position array (grouped by bucket, list order inside a bucket), found through an open-address
// table keyed by a hash of the constrained fields. Projected keys are never materialised as
// tuples; equality is checked field by field against the bucket's first element, exactly as a
// dict keyed by itemgetter(*positions) would compare. A bucket becomes a Python tuplelist only
// when select hands it out, and that object is then kept so repeated queries return it again.
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "containers/tuplelist.h"
#include "containers/tuplelist_util.h"
#include "core/py_error.h"

namespace {

// Buffers reused across the elements of one pass.
struct Scratch {
  std::vector<PyObject*> stored;
  std::vector<py::Ref> hold;
};

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

// A snapshot of the index cache in the shape {positions: {key: bucket}}; the buckets are the
// objects select returns.
PyObject* tuplelist_get_index(PyObject* self, void*) {
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
