// Presolve: a smaller model with the same optimal value, made by reductions that need no
// search. This is the library's own presolve, not the engine's (whose reductions are far
// stronger but whose reduced model the engine does not hand out yet).
//
// Repeated until nothing changes:
//   - a row without variables (after fixed ones are substituted) is dropped when its constant
//     satisfies it (an infeasible one stays, so the model stays infeasible);
//   - a row with one variable, a x (<=, >=, =) b, becomes a bound on x (b/a, rounded inwards
//     for an integer x) and is dropped;
//   - a variable with lb = ub is substituted: its objective term goes into the constant, its
//     row terms into the right-hand sides;
//   - a variable in no row is fixed at the bound its objective favours (at 0, or a finite
//     bound, when it has no objective); when that bound is infinite it stays (unbounded).
// Kept variables and rows keep their names and order; the objective, sense and types stay.
#pragma once

#include <memory>

#include "core/status.h"
#include "model/model.h"

namespace vlm::analysis {

// The presolved model of the updated state, on a copy of the model's environment. Fails with
// VLM_ERROR_NOT_SUPPORTED for quadratic objectives or constraints, SOS, general constraints,
// piecewise-linear or multiple objectives. Cost: a few passes over the rows, each linear in
// the number of nonzeros.
StatusOr<std::unique_ptr<Model>> presolved_model(Model& m);

}  // namespace vlm::analysis
