// tuplelist: a list of equal-length tuples (or of scalars) answering pattern queries through
// per-pattern hash indexes. tupledict keeps its keys in one and selects through it.
#pragma once

#include <vector>

#include "core/py_ref.h"

extern PyTypeObject TupleListType;

inline bool tuplelist_check_exact(PyObject* o) { return Py_IS_TYPE(o, &TupleListType); }

// A new tuplelist with wildcard `wild` holding the items of `list` (an exact list, emptied: its
// item array moves into the result). The element checks run first; on failure `list` is kept.
py::Ref tuplelist_adopt(PyObject* list, PyObject* wild);

// Counts the clean()s of `tl`: positions taken from it stay meaningful while this is unchanged
// (and nothing bypassed the tuplelist methods).
unsigned long tuplelist_generation(PyObject* tl);

// The positions in `tl` of the elements that tl.select(*vals) returns, in that order, appended
// to `out`. Sets *all and leaves `out` alone when every element matches in list order. Returns 0,
// or -1 with an exception set. Cost: one hash lookup per pattern once the pattern's index
// exists; the first query of a pattern shape walks the list once.
int tuplelist_match(PyObject* tl, PyObject* const* vals, Py_ssize_t nvals,
                    std::vector<Py_ssize_t>& out, bool* all);
