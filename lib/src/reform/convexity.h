// Convexity of quadratic forms: whether f(x) = sum_k v_k x_{r_k} x_{c_k} is convex, i.e.
// whether its symmetric matrix H (H_ii = the sum of v over (i, i) terms, H_ij = H_ji = half the
// sum over (i, j) and (j, i) terms) is positive semidefinite.
//
// Method: the variables the form mentions are split into connected blocks (two variables are
// connected by a non-zero product term); each block's H is factorised densely by Cholesky
// with diagonal pivoting (factor_psd_dense, below; the quadratic constraints' test in
// algorithms/psd.h uses it too). tol = 1e-9 times the largest |H_ij| of the block. Blocks above kMaxDenseBlock variables are not factorised (O(k^3) work and k^2
// memory) and are reported as unchecked.
#pragma once

#include <utility>
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

// The one semidefiniteness test of the library: pivoted symmetric elimination of the dense
// symmetric k x k matrix `h` (row-major; overwritten). The largest remaining diagonal entry d
// is the pivot: d < -eps means not PSD; d <= eps needs the pivot's row to be zero within
// sqrt(eps * max|h|) (a PSD matrix with a zero diagonal entry has a zero row); eps = tol *
// max|h|. Returns whether h is PSD. With `forms`, every positive pivot d at p appends the form
// (h(p, j) / sqrt(d)) over p and the indices still left, so that x'hx = sum_f (f'x)^2 (indices
// are positions in h). Never fails. O(k^3) time.
bool factor_psd_dense(std::vector<double>& h, int k, double tol,
                      std::vector<std::vector<std::pair<int, double>>>* forms);

// Refuses a quadratic objective that is not convex for a minimisation (not concave for a
// maximisation) with VLM_ERROR_Q_NOT_PSD "Q matrix isn't Positive Semi-Definite: the
// quadratic objective of this minimisation is not convex in the terms over 'x', 'y'; ...",
// naming up to five variables of an offending block. Blocks too large to check pass (HiGHS
// then judges them). Cost as check_psd.
Status check_objective_curvature(const ModelData& d);

}  // namespace vlm::reform
