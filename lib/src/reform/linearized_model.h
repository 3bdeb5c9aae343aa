// The working problem as an ordinary model: what HiGHS solves, in the form the store and the
// writers know. The user's variables and constraints come first with their names; auxiliary
// columns are named _aux0, _aux1, ... and auxiliary rows _rf0, _rf1, ... in the order the
// units added them. The result has no SOS, general constraints or PWL objective terms, except
// the constructs held for branching (no finite big-M): their SOS sets as they are, and an
// indicator (b == v) => s = 0 on the slack of each held indicator's row.
// Used to show a reformulation (tests compare it as LP text) and as the base of a model the
// user can inspect.
#pragma once

#include "model/model_data.h"
#include "reform/working_problem.h"

namespace vlm::reform {

// Converts `p`, built from `user` by build_working_problem, into a ModelData. A row with two
// finite sides that differ becomes two rows. O(size of p).
ModelData linearized_model(const ModelData& user, const WorkingProblem& p);

}  // namespace vlm::reform
