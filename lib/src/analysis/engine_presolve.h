// The engine's presolve for pure LP and MIP models, read back as a model of ours.
//
// HiGHS presolves a copy of the problem (columns and rows carrying our names) in an instance
// of its own; its reduced problem keeps a subset of the original columns and rows, with new
// bounds, costs, coefficients and offset. Each reduced column and row is matched to ours by
// its name, so the result keeps our names, types and order. HiGHS's reductions are far
// stronger than the library's own (dominated columns, doubleton substitutions, coefficient
// tightening, probing on binaries); the optimal value stays the same.
#pragma once

#include "core/status.h"
#include "env/env.h"
#include "model/model_data.h"

namespace vlm::analysis {

// Whether `d` is a plain LP or MIP: no quadratic parts, SOS, general constraints,
// piecewise-linear or multiple objectives, semi-continuous or semi-integer variables.
bool plain_linear(const ModelData& d);

// HiGHS's presolved form of the plain linear `d`, with the environment's thread setting.
// Fails with VLM_ERROR_NOT_SUPPORTED when the result cannot be expressed in our terms:
// duplicate names, a reduced row with two finite sides, HiGHS finding the model infeasible or
// unbounded, or HiGHS refusing a call; the caller then uses the library's presolve. Cost: one
// HiGHS presolve plus a pass over the model.
StatusOr<ModelData> engine_presolved(const ModelData& d, Env& env);

}  // namespace vlm::analysis
