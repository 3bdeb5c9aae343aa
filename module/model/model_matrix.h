// Model methods of the matrix layer: addMVar, addMConstr, addMQConstr, setMObjective, getA, getQ, _createX,
// _nd_indexed_names and the routes from addConstr for matrix expressions (_addNDConstr, _addNDQConstr).
//
// Each adder checks and converts its arrays completely, then makes one library call for the
// whole block (VLMaddvars, VLMaddconstrs, VLMaddqconstrs) and appends the handles only when it succeeded, so a
// refused call leaves the model as it was.
#pragma once

#include <Python.h>

#include <string>
#include <vector>

#include "core/py_ref.h"

// The method-table entries, nullptr-terminated; the Model type takes them into its own table.
extern PyMethodDef model_matrix_methods[];

// Shared with the matrix forms of the general constraints (model_mgenconstr.cpp).
// The names of a block: none for None or "", prefix[i,j,...] for a str, else an array of
// exactly `shape` (ValueError "name argument has incompatible shape"). `ptrs` point into
// `store` or into the str objects `keep` holds. false with an exception set.
bool matrix_names_arg(PyObject* name, PyObject* shape, std::vector<std::string>* store,
                      std::vector<const char*>* ptrs, py::Ref* keep);
// The last `n` handles of one kind of the model as an object array of `shape`. O(n).
py::Ref matrix_tail_array(PyObject* self, int kind, Py_ssize_t n, PyObject* shape);
