// Solution quality: how far a solution is from satisfying the user's model.
#pragma once

#include "engine/solution.h"
#include "model/model_data.h"

namespace vlm {

// Bound, constraint and integrality violations of the primal values; for solutions with
// duals also dual feasibility, the dual residual c + Qx - A'pi - rc and complementarity.
// The constraint measures also cover function constraints (y = f(x)), by |y - f(x)| with the
// true f, so the error of their piecewise-linear approximation shows; their indices follow the
// rows' (num_constrs() + general constraint index). Indices of other constraint measures are
// row indices; dual measures index variables first, then
// rows offset by the number of variables. O(nonzeros).
const Quality& solution_quality(const ModelData& d, const Solution& s);

}  // namespace vlm
