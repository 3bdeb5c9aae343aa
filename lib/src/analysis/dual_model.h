// The dual of a linear program, as a model of its own.
//
// Primal, with s = 1 to minimise and s = -1 to maximise:
//   s-opt  c'x + k   s.t.  a_i x (<=, >=, =) b_i,   l <= x <= u.
// Dual (sense -s):
//   opt  b'y + s (l'w - u'v) + k   s.t.  A'y + s (w - v) = c,   w, v >= 0,
// with y_i >= 0 for a '>' row of a minimisation ('<' of a maximisation), y_i <= 0 for the
// other inequality, y_i free for '='; w_j exists only for a finite l_j, v_j for a finite u_j.
// The usual bounds x >= 0 and x <= 0 need no w or v: the row becomes an inequality
// (A'y <= c for x >= 0 in a minimisation, >= in a maximisation; the reverse for x <= 0).
// At optimality both objectives are equal (strong duality).
//
// Names: the dual variable of constraint c is named c; the dual constraint of variable x is
// named x; the bound multipliers are lb_x and ub_x.
#pragma once

#include <memory>

#include "core/status.h"
#include "model/model.h"

namespace vlm::analysis {

// The dual of the model's updated state, on a copy of its environment. Fails with
// VLM_ERROR_NOT_FOR_MIP for integer, semi-continuous, SOS or general constraints, and with
// VLM_ERROR_NOT_SUPPORTED for quadratic objectives or constraints, piecewise-linear or
// multiple objectives. Linear in the model size.
StatusOr<std::unique_ptr<Model>> dual_model(Model& m);

}  // namespace vlm::analysis
