// The single place where bounds become big-M constants. Every unit that needs a constant
// derived from a bound asks here; when the bound is infinite (even after propagation) it gets
// a failed Status that names the variable and says why the bound is needed, never an
// arbitrary large number.
//
// The code is VLM_ERROR_NOT_SUPPORTED: the model is valid, but this version cannot solve the
// construct without a finite bound (it has no search of its own that would branch on it).
#pragma once

#include <string>
#include <vector>

#include "core/status.h"
#include "reform/reformulation.h"

namespace vlm::reform {

// Who needs the bound and what for, for the message: "<who> needs a finite upper bound on
// variable 'x' (<why>)".
struct BigMContext {
  std::string who;
  std::string why;
};

// The column's finite lower / upper bound, or the failure naming it. O(1).
StatusOr<double> finite_lower(const Builder& b, int col, const BigMContext& c);
StatusOr<double> finite_upper(const Builder& b, int col, const BigMContext& c);

// The largest / smallest value of sum val[k] * x[ind[k]] over the columns' bounds; fails
// naming the first column whose bound makes it infinite. O(terms).
StatusOr<double> max_activity(const Builder& b, const std::vector<int>& ind, const std::vector<double>& val,
                              const BigMContext& c);
StatusOr<double> min_activity(const Builder& b, const std::vector<int>& ind, const std::vector<double>& val,
                              const BigMContext& c);

}  // namespace vlm::reform
