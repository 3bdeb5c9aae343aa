// Positive semidefiniteness of a quadratic form given as terms v * x_i * x_j, on the form's
// support, by the library's one elimination (reform::factor_psd_dense).
#pragma once

#include <vector>

namespace vlm::algorithms {

// True when sum_k val[k] * x[row[k]] * x[col[k]] >= 0 for every x (the symmetric matrix with
// M_ii = v for a term v x_i^2 and M_ij = M_ji = v/2 for a term v x_i x_j, i != j, is positive
// semidefinite). Repeated pairs add up. Only the variables that occur are looked at (the
// support). Pivots within `tol` times the largest diagonal entry count as zero. Never fails.
// Cost: O(s^3) time and O(s^2) memory for a support of s variables (an LDL' factorisation).
bool is_psd(const std::vector<int>& row, const std::vector<int>& col, const std::vector<double>& val,
            double tol = 1e-9);

// Factors the same form as sum_k F_k(x)^2 when it is positive semidefinite (the test and
// tolerance of is_psd): each F_k is a sparse linear form (column, coefficient). Returns false,
// with `forms` unspecified, when it is not. Cost: as is_psd, plus O(s^2) per form.
bool psd_factor(const std::vector<int>& row, const std::vector<int>& col, const std::vector<double>& val,
                std::vector<std::vector<std::pair<int, double>>>& forms, double tol = 1e-9);

}  // namespace vlm::algorithms
