// Internal to the tuplelist family files (tuplelist*.cpp): the object layout and the index
// types that the type's methods and the pattern index both use.
//
// Invariants: `kind` is kUnknown only while nothing has been added since the list was last
// emptied by a tuplelist method; `tuplelen` is set for tuple lists only. The index cache, the
// membership dict and the neighbour maps describe the list as it was when they were built and
// are dropped by every mutating method (clean()). Operations that bypass the methods
// (list.append(tl, x)) leave them stale, so every cached list position is bounds-checked
// before use: a stale cache gives stale answers, never a crash.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "containers/tuplelist.h"
#include "core/py_ref.h"

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

using Positions = std::vector<Py_ssize_t>;
using IndexCache = std::map<Positions, std::shared_ptr<PatternIndex>>;

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

// The string '*', the default wildcard, kept for the process lifetime.
extern PyObject* default_wild;

inline TupleListObject* as_tl(PyObject* o) { return reinterpret_cast<TupleListObject*>(o); }

// A new empty tuplelist of `type` with wildcard `wild`.
py::Ref make_tuplelist(PyTypeObject* type, PyObject* wild);

// select(*pattern) and the `_tuplelist__index` snapshot (tuplelist_index.cpp).
PyObject* tuplelist_select(PyObject* self, PyObject* const* vals, Py_ssize_t n);
PyObject* tuplelist_get_index(PyObject* self, void*);
