// Presolve: a smaller model with the same optimal value, made by reductions that need no
// search. This is the library's own presolve, not the engine's (whose reductions are far
// stronger but whose reduced model the engine does not hand out yet).
//
// Repeated until nothing changes:
//   - a row without variables (after fixed ones are substituted) is dropped when its constant
//     satisfies it (an infeasible one stays, so the model stays infeasible);
//   - a row with one variable, a x (<=, >=, =) b, becomes a bound on x (b/a, rounded inwards
//     for an integer x) and is dropped;
//   - a variable with lb = ub is substituted: its objective terms (of every objective) go into
//     the constants, its row terms into the right-hand sides, its products in the quadratic
//     objective and quadratic constraints into linear terms or constants;
//   - a quadratic constraint left without terms is dropped when its constant satisfies it;
//   - a variable in no row, quadratic term or other objective is fixed at the bound its
//     objective favours (at 0, or a finite bound, when it has no objective); when that bound
//     is infinite it stays (unbounded).
// Members of SOS, general constraints and piecewise-linear objective terms, and variables of
// objective 0 of a multi-objective model, are never removed (only their bounds tighten).
// Kept elements keep their names and order; SOS, general constraints, piecewise-linear and
// multiple objectives are carried over on the renumbered variables; sense and types stay.
#pragma once

#include <memory>

#include "core/status.h"
#include "model/model.h"

namespace vlm::analysis {

// The presolved model of the updated state, on a copy of the model's environment; any model
// kind. With the Presolve parameter at 2 a plain LP or MIP is reduced by the engine instead
// (engine_presolve.h), falling back to the reductions above when that result cannot be
// expressed in our names. Fails only when the new model cannot be built (an error of the copy). Cost: a few
// passes over the rows and quadratic terms, each linear in the number of nonzeros.
StatusOr<std::unique_ptr<Model>> presolved_model(Model& m);

}  // namespace vlm::analysis
