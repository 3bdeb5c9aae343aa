// Convexity of quadratic forms: whether f(x) = sum_k v_k x_{r_k} x_{c_k} is convex, i.e.
// whether its symmetric matrix H (H_ii = the sum of v over (i, i) terms, H_ij = H_ji = half the
// sum over (i, j) and (j, i) terms) is positive semidefinite.
//
// Method: the variables the form mentions are split into connected blocks (two variables are
// connected by a non-zero product term); each block's H is factorised densely by Cholesky
// with diagonal pivoting. At each step the largest remaining diagonal entry d is the pivot:
// d < -tol means H is not PSD; d <= tol means the rest of H must be zero within tol (a PSD
// matrix with a zero diagonal entry has a zero row), else it is not PSD; otherwise the block
// is reduced by the pivot's Schur complement. tol = 1e-9 times the largest |H_ij| of the
// block. Blocks above kMaxDenseBlock variables are not factorised (O(k^3) work and k^2
// memory) and are reported as unchecked.
#pragma once

#include <vector>

#include "core/status.h"
#include "model/model_data.h"

namespace vlm::reform {

// Largest block that is factorised: 1,500 variables take about 1 s and 18 MB (measured,
// docs/convexity.md).
inline constexpr int kMaxDenseBlock = 1500;

struct CurvatureCheck {
  bool psd = true;             // every checked block is PSD (within tolerance)
  std::vector<int> culprit;    // when !psd: the variables of a block that is not, ascending
  int unchecked_vars = 0;      // variables in blocks above kMaxDenseBlock, not checked
};

// Checks the form given by parallel term arrays (any order, repeats and both (i, j) and
// (j, i) allowed; variable indices >= 0). With `negate` the form -f is checked (a concave
// objective of a maximisation is PSD after negation). Never fails; O(terms + sum of k^3
// over the blocks), memory O(largest k^2).
CurvatureCheck check_psd(const std::vector<int>& row, const std::vector<int>& col,
                         const std::vector<double>& val, bool negate);

// Refuses a quadratic objective that is not convex for a minimisation (not concave for a
// maximisation) with VLM_ERROR_Q_NOT_PSD "Q matrix isn't Positive Semi-Definite: the
// quadratic objective of this minimisation is not convex in the terms over 'x', 'y'; ...",
// naming up to five variables of an offending block. Blocks too large to check pass (HiGHS
// then judges them). Cost as check_psd.
Status check_objective_curvature(const ModelData& d);

}  // namespace vlm::reform
