// Model methods that return a derived model: linearize() and singleScenarioModel().
#pragma once

#include <Python.h>

// The Model method-table entries of this file, null-terminated, each with its docstring.
extern PyMethodDef model_derive_methods[];
