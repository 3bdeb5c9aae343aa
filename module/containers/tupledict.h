// tupledict: the dict subclass for indexed model data, selecting over its keys with patterns.
#pragma once

#include "core/py_ref.h"

extern PyTypeObject TupleDictType;

inline bool tupledict_check(PyObject* o) { return PyObject_TypeCheck(o, &TupleDictType); }

// tupledict(): a new empty tupledict, or empty Ref with an exception set.
py::Ref tupledict_new_empty();

// td.keys(): the cached tuplelist of keys in iteration order, built when absent. Calls an
// overriding keys() of a subclass.
py::Ref tupledict_keys(PyObject* td);

// td.values(): a new list of the values in key order.
py::Ref tupledict_values(PyObject* td);
