// Model methods of the matrix layer: addMVar, addMConstr, addMQConstr, setMObjective, getA, getQ, _createX,
// _nd_indexed_names and the routes from addConstr for matrix expressions (_addNDConstr, _addNDQConstr).
//
// Each adder checks and converts its arrays completely, then makes one library call for the
// whole block (VLMaddvars, VLMaddconstrs, VLMaddqconstrs) and appends the handles only when it succeeded, so a
// refused call leaves the model as it was.
#pragma once

#include <Python.h>

// The method-table entries, nullptr-terminated; the Model type takes them into its own table.
extern PyMethodDef model_matrix_methods[];
