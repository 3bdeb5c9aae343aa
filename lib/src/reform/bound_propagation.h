// Bound propagation: valid bounds on every working column, tightened through the linear rows
// and the constructs before any big-M constant is computed, so that big-Ms are as small as the
// model allows. The tightened bounds are used for constants only: the engine still receives
// the user's own bounds.
#pragma once

#include <vector>

#include "model/model_data.h"
#include "reform/working_problem.h"

namespace vlm::reform {

// Bounds per working column (IEEE infinities for none). A semi-continuous column's range
// includes 0.
struct Bounds {
  std::vector<double> lb, ub;
  std::vector<char> integer;

  // Raise lb[j] / lower ub[j] to v when that tightens it by more than a tolerance (integer
  // columns are rounded inward first). Returns whether the bound changed. O(1).
  bool tighten_lower(int j, double v);
  bool tighten_upper(int j, double v);
  void append(double l, double u, bool is_integer);
};

// The columns' own bounds in `p`.
Bounds initial_bounds(const WorkingProblem& p);

// Tightens `b` through the rows of `p` (activity bounds of each row against each of its
// terms) and through every construct's own rule (the result of a MAX lies within its
// operands' range, ...), in at most 8 passes or until nothing changes.
// Cost: O(passes * (nonzeros + construct sizes)).
// `o` carries the solve's settings for rules that depend on them.
struct ReformOptions;
void propagate_bounds(const ModelData& d, const WorkingProblem& p, Bounds& b, const ReformOptions& o);

}  // namespace vlm::reform
