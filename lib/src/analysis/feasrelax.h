// Feasibility relaxation: turns a model into one that measures how far its bounds and
// constraints must be violated to become feasible.
//
// For each bound or constraint the caller allows to be violated (a finite penalty p), an
// artificial variable a >= 0 takes the violation, named after the element:
//   lower bound of x:  x + ArtL_x >= lb   (row ArtLB_x; x's own lower bound becomes -inf)
//   upper bound of x:  x - ArtU_x <= ub   (row ArtUB_x; x's own upper bound becomes +inf)
//   constraint c:      lhs - ArtP_c <= rhs  (a '<' row; '=' rows get both)
//                      lhs + ArtN_c >= rhs  (a '>' row)
// Quadratic constraints get the same artificials in their linear part. The penalty is
//   0 (linear):       sum p a
//   1 (quadratic):    sum p a^2
//   2 (cardinality):  sum p z, with a binary Card_a per artificial and the row
//                     Card_a: a - M z <= 0 (M = FeasRelaxBigM, the largest violation allowed).
// Without minrelax the penalty replaces the objective (minimised). With minrelax the library
// first minimises the penalty (phase 1, on a copy), then keeps the original objective and adds
// the row (quadratic constraint for type 1) FeasRelaxObj: penalty <= its minimum, so that the
// next solve finds the best solution among the least violating ones.
#pragma once

#include "core/status.h"
#include "model/model.h"

namespace vlm::analysis {

// Relaxes the updated model in place (updating it first). lbpen/ubpen hold one penalty per
// variable, rhspen one per linear constraint followed by one per quadratic constraint; any of
// them may be nullptr (nothing of that kind relaxed); a penalty at or beyond VLM_INFINITY
// keeps the element as it is. Infinite bounds and the bounds of semi-continuous variables are
// never relaxed. Returns the minimum penalty when minrelax is set, else 0.
// Fails, leaving the model as it was, with VLM_ERROR_INVALID_ARGUMENT for a bad type or a
// negative or NaN penalty; with VLM_ERROR_DATA_NOT_AVAILABLE when phase 1 ends without an
// optimal penalty (the relaxation is itself infeasible, or a limit stopped it); and with the
// engine's code when it cannot solve phase 1. Cost: linear in the model size, plus one solve
// with minrelax.
StatusOr<double> feas_relax(Model& m, int type, bool minrelax, const double* lbpen,
                            const double* ubpen, const double* rhspen);

}  // namespace vlm::analysis
