// The pipeline step between the model store and the engine: from the updated ModelData to the
// WorkingProblem the engine solves.
#pragma once

#include "core/status.h"
#include "model/model_data.h"
#include "reform/reformulation.h"
#include "reform/working_problem.h"

namespace vlm::reform {

// Builds the working problem of `d`: the user's model as it is (its primary objective; the
// multiple objectives and scenarios are the caller's to apply) and, when it holds SOS, general
// constraints or piecewise-linear objective terms, their reformulations appended after bound
// propagation. A model without such constructs takes no step beyond build_base.
// Quadratic constraints stay in the ModelData: the driver that solves them reads them there;
// quadratic rows that units emit (2-norms) are in p.qrows. SOS and indicators without finite
// big-Ms are in p.held for the search to branch on.
// Fails with VLM_ERROR_NOT_SUPPORTED for what this version cannot solve (nonconvex objectives)
// and for a construct whose needed bound is infinite (the message names the variable); `p` is
// then unusable. The user's model is never
// changed. `opt` carries the solve's settings that units read. Cost: O(model size) without
// constructs; with them, bound propagation adds O(8 * nonzeros) plus each unit's own linear
// cost.
Status build_working_problem(const ModelData& d, WorkingProblem& p, const ReformOptions& opt = ReformOptions{});

}  // namespace vlm::reform
