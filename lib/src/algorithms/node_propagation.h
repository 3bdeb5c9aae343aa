// Activity-based bound propagation on a node's column bounds, before its relaxation is solved.
//
// For a row rlo <= sum a_k x_k <= rup and the node's bounds, the least and greatest activity
// (minact, maxact) bound every term: a_j x_j <= rup - (minact - min(a_j x_j)) and
// a_j x_j >= rlo - (maxact - max(a_j x_j)). The implied bounds of integer columns are rounded
// inwards, those of semi-continuous columns jump to 0 or to their semi lower bound. A row whose
// activity range misses [rlo, rup], or a column whose bounds cross, proves the node infeasible
// without an LP solve. Rows are revisited while some column in them moved, up to a pass limit.
#pragma once

#include <vector>

#include "reform/working_problem.h"

namespace vlm::algorithms {

class NodePropagator {
 public:
  // `p` must outlive the propagator; `semi_lower[j]` is the lower bound of the nonzero part of a
  // semi-continuous or semi-integer column j (0 for other columns). Builds the column-wise
  // index of p's rows: O(nonzeros).
  NodePropagator(const reform::WorkingProblem& p, std::vector<double> semi_lower);

  // Tightens `lower`/`upper` (the node's bounds, all columns) in place. Only bounds of integer
  // and semi-continuous columns are tightened for the caller (continuous ones move only within
  // the propagation, their relaxation values stay HiGHS' business). Returns false when the
  // node is proven infeasible. `changed` receives the columns whose bounds moved.
  // Cost: O(nonzeros) per pass, at most `passes` passes.
  bool propagate(std::vector<double>& lower, std::vector<double>& upper, std::vector<int>& changed,
                 int passes = 5) const;

 private:
  const reform::WorkingProblem& p_;
  std::vector<double> semi_lower_;
  std::vector<int> cstart_, crow_;  // rows of each column
};

}  // namespace vlm::algorithms
