// Helpers shared by the analysis tools: models built from a ModelData of our own making, and
// the edits every derived model needs (objective removed, elements dropped).
#pragma once

#include <memory>
#include <vector>

#include "core/status.h"
#include "env/env.h"
#include "model/model.h"
#include "model/model_data.h"

namespace vlm::analysis {

// A new, updated model on a copy of `env` holding exactly `data`. `data` must satisfy the
// ModelData invariants (the callers derive it from an updated model). Linear in its size.
StatusOr<std::unique_ptr<Model>> model_from_data(const Env& env, ModelData data);

// Settings for the helper solves of an algorithm: logging off (their output would only drown
// the caller's log), and the stops that refer to the user's objective (Cutoff, BestObjStop,
// BestBdStop) at their defaults, since a helper model has an objective of its own.
Status helper_settings(Env& env);

// model_from_data on a copy of `env` with helper_settings.
StatusOr<std::unique_ptr<Model>> quiet_model_from_data(const Env& env, ModelData data);

// Removes every objective: linear, quadratic, constant, piecewise-linear and the objectives of
// a multi-objective model. The sense stays.
void clear_objective(ModelData& d);

// Keeps the linear, quadratic, SOS and general constraints whose flag is non-zero (an empty
// vector keeps all of that kind), with their extra attribute columns. Linear in the model size.
void keep_constraints(ModelData& d, const std::vector<char>& constr, const std::vector<char>& qconstr,
                      const std::vector<char>& sos, const std::vector<char>& genconstr);

// Keeps the variables whose flag is non-zero and renumbers every reference to them. The
// caller guarantees that no kept element refers to a dropped variable, except the objective,
// whose dropped terms go. Linear in the model size.
void keep_vars(ModelData& d, const std::vector<char>& keep);

// Whether the model has integer, binary, semi-continuous or semi-integer variables, SOS or
// general constraints.
bool is_mip(const ModelData& d);

}  // namespace vlm::analysis
