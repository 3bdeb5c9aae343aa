// Multiple objectives: hierarchical by priority, blended within one priority.
//
// The objectives are the model's ObjN list (index = ObjNumber; coefficients the model does not
// hold count as zero); the primary objective (Obj, the Hessian, PWL objective terms) is not
// used, except that an objective 0 without any coefficient or constant stands for the primary
// linear objective (Obj and ObjCon) when that has one: the model whose first objective came
// through setObjective and the others through setObjectiveN. All objectives follow the model's sense. Objectives of equal ObjNPriority form one
// level whose objective is the sum of weight * objective (ObjNWeight; a negative weight turns
// an objective around). Levels are solved from the highest priority down on the working
// problem; after a level with optimum z (its blended value, constants left out), every later
// level keeps
//     c'x <= z + t   (minimisation),   c'x >= z - t   (maximisation),
//     t = max(largest ObjNAbsTol, largest ObjNRelTol * |z|) over the level's objectives.
// A later level starts from the previous level's basis (continuous) or solution (MIP).
// MultiObjMethod picks how a later continuous level is re-solved (0 primal simplex, 1 dual
// simplex, 2 without the previous basis by Method, -1 the engine's choice); MultiObjPre 0
// solves every level without presolve, 1 and 2 with it, -1 as Presolve says.
// A level k with a multi-objective environment (Model::multiobj_envs()[k]) is solved under
// that environment's parameters (TimeLimit, MIPGap, Method, ...); TimeLimit of the model still
// covers all levels together.
// docs/multiobjective.md has the formulation and what was measured.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/status.h"
#include "engine/engine.h"
#include "model/model.h"

namespace vlm::algorithms {

// One priority level: its objectives (ObjNumber order), blended costs over the user's
// variables, blended constant and allowed degradation.
struct ObjectiveLevel {
  int priority = 0;
  std::vector<int> members;
  std::vector<double> cost;
  double constant = 0.0;
  double abstol = 0.0, reltol = 0.0;
};

// `d`'s objectives as solved: the ObjN list with dense coefficients, objective 0 replaced by
// the primary linear objective as the file comment says. O(objectives * variables).
std::vector<ObjectiveN> effective_objectives(const ModelData& d);

// The levels of `d`'s objectives, highest priority first. O(objectives * variables).
std::vector<ObjectiveLevel> objective_levels(const ModelData& d);

// Solves the updated model level by level as the file comment says and stores the Solution:
// X (and slacks) of the last level solved; ObjNVal for every objective; ObjVal the value of
// objective 0; ObjBound equal to ObjVal for an optimal continuous model, else (with MIPGap)
// that of the last level's solve; Runtime, IterCount and NodeCount summed over the levels.
// TimeLimit covers all levels together. Status: that of the first level when it finds no solution
// (INFEASIBLE, UNBOUNDED, a limit, ...); else that of the last level solved, which is the
// last one unless a level stops short of optimal (a limit), in which case its solution, or the
// previous level's when it has none, is kept and no later level runs. With more than one
// level no duals or basis are reported (they would belong to the last level's problem).
// The caller has updated the model and holds it in its solving state. Fails as the engine
// does (a construct that cannot be reformulated, the engine itself). Cost: one solve per level.
Status optimize_multiobj(Model& m);

// What solve_multiobj hands back: the Solution optimize_multiobj would store, and the value
// and bound of the first level's blended objective (constant included; meaningful when the
// Solution has a point).
struct MultiobjResult {
  std::unique_ptr<Solution> sol;
  double first_obj = 0.0, first_bound = 0.0;
  // The first level's final basis (continuous) or point over all working columns (MIP), for
  // starting the first level of a similar sequence (a scenario's); empty when there is none.
  engine::EngineBasis first_basis;
  std::vector<double> first_x;
};

// The level sequence of optimize_multiobj on `d` (the model's data or a scenario of it),
// without storing anything in `m`; log titles start with `title_prefix`; `time_limit` is
// what the sequence may spend. `log_summary` writes the closing summary line. With `start`
// (the result of the base model's sequence) the first level starts from its first level's
// basis or point, which the engine takes when it fits. Fails as optimize_multiobj does.
// Cost: one solve per level.
StatusOr<MultiobjResult> solve_multiobj(Model& m, const ModelData& d, const std::string& title_prefix,
                                        double time_limit, bool log_summary,
                                        const MultiobjResult* start = nullptr);

}  // namespace vlm::algorithms
