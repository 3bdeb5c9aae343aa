// Model methods giving access to the environments of the concurrent and multi-objective
// optimisers: getConcurrentEnv, discardConcurrentEnvs, getMultiobjEnv, discardMultiobjEnvs.
//
// The environments belong to the library model; the Env objects returned wrap their handles
// (Env(cenv=...)) and are never freed from Python.
#pragma once

#include "core/py_ref.h"

// The Model methods of this aspect, null-terminated, each with its docstring.
extern PyMethodDef model_envs_methods[];
