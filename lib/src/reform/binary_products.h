// Exact linearisation of products with a binary factor (PreQLinearize): x b with b binary and x
// in [l, u] (finite) becomes a column w with
//   w <= u b,   w >= l b,   w <= x - l (1 - b),   w >= x - u (1 - b),
// which force w = x when b = 1 and w = 0 when b = 0; b^2 becomes b. The rest of the model is
// unchanged, so a model whose only nonconvex terms have a binary factor becomes convex.
#pragma once

#include <vector>

#include "model/model_data.h"
#include "reform/working_problem.h"

namespace vlm::reform {

// Whether the term v x_i x_j has a binary factor (an integer column with bounds within [0, 1])
// and, for i != j, the other factor finite bounds: the terms linearize_binary_products
// replaces. `p` gives the working bounds and integrality of the user's columns. O(1).
bool is_binary_product(const WorkingProblem& p, int i, int j);

// Whether the objective's terms other than binary products form a convex objective (concave
// for a maximisation): what it is once they are linearised. O(check_psd).
bool convex_without_binary_products(const ModelData& d, const WorkingProblem& p);

// Replaces every binary product of the objective and the quadratic constraints of `d` by the
// linear form above: columns and rows are appended to `p`, the objective's terms move to `p`'s
// costs (the Hessian of `p` is rebuilt from what remains) and a constraint's terms to its
// linear part, which may then name columns of `p` beyond the user's. Returns how many products
// were replaced. O(terms log terms).
int linearize_binary_products(ModelData& d, WorkingProblem& p);

}  // namespace vlm::reform
