// Multiple scenarios: the base model and every scenario solved in one optimize call.
//
// A scenario changes variable bounds (ScenNLB, ScenNUB), objective coefficients (ScenNObj) and
// right-hand sides (ScenNRHS) of the base model; what it leaves undefined keeps the base value.
// Each scenario is its own model: a copy of the user's model with the changes applied goes
// through the reformulation step (so bounds used for big-M constants are the scenario's) and
// is solved on its own, starting from the base model's basis (continuous) or solution (MIP).
#pragma once

#include "core/status.h"
#include "model/model.h"

namespace vlm::algorithms {

// The user's model with scenario `s`'s changes applied. A right-hand side change applies to a
// linear constraint of any sense; objective changes apply to Obj and, in a multi-objective
// model, to objective 0 as solved. `s` must be valid. O(model size).
ModelData scenario_model(const ModelData& d, int s);

// Solves the base model (X, ObjVal, Status and the other results read as without scenarios),
// then every scenario, storing ScenNX, ScenNObjVal and ScenNObjBound per scenario with the
// Solution. A scenario without a solution has ScenNObjVal at +infinity for a minimisation
// (-infinity for a maximisation) and ScenNObjBound at the same infinity when it is infeasible,
// at the opposite one (no bound known) otherwise. TimeLimit covers all solves together. The
// caller has updated the model and holds it in its solving state. Fails as the engine does,
// for the base model or any scenario (the message then names the scenario). Cost: one solve
// per scenario, plus one.
// A model with multiple objectives too runs the multi-objective sequence (multiobj.h) on the
// base model and on every scenario; a scenario's ScenNObj changes objective 0. Per scenario,
// ScenNObjVal and ScenNObjBound are those of the first level's (blended) objective, constant
// included, and every objective's value is kept for ObjNVal; the base model's results are as
// without scenarios.
Status optimize_scenarios(Model& m);

}  // namespace vlm::algorithms
