// Resolver: the engine's internal re-solve entry for the library's drivers (branch and bound,
// IIS filters, multiple objectives, scenarios).
//
// It holds one HiGHS instance with a working problem and lets a driver change column bounds,
// append rows, drop rows from the end and re-solve, without the model's update cycle (no
// ModelData, no reformulation, no Solution). HiGHS keeps its basis across these changes, so a
// continuous re-solve starts from the previous basis (dual simplex after bound changes and
// added rows). Options come from the environment's parameters as for optimize; the only
// callback is the stop flag. One driver owns a Resolver; it is not thread-safe. Every run
// counts as an active solve, and the instance is released the deferred way.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "core/status.h"
#include "engine/highs_instance.h"
#include "env/env.h"
#include "reform/working_problem.h"

namespace vlm::engine {

class Resolver {
 public:
  // Passes `p` to a new instance. `stop` (may be null) ends a run early when set. Fails with
  // VLM_ERROR_OUT_OF_MEMORY when no instance can be created and VLM_ERROR_INVALID_ARGUMENT
  // when HiGHS refuses the problem. O(size of p).
  static StatusOr<std::unique_ptr<Resolver>> open(Env& env, const reform::WorkingProblem& p,
                                                  const std::atomic<bool>* stop = nullptr);

  int num_cols() const { return ncol_; }
  int num_rows() const { return nrow_; }

  // Sets lo[k] <= x[cols[k]] <= up[k]. Fails with VLM_ERROR_INDEX_OUT_OF_RANGE naming the first
  // column out of range, or VLM_ERROR_INVALID_ARGUMENT for lists of different lengths; nothing
  // changes then. O(len).
  Status set_bounds(const std::vector<int>& cols, const std::vector<double>& lo, const std::vector<double>& up);
  // Appends the row lo <= sum val[k] x[ind[k]] <= up. Fails as set_bounds does for a bad
  // column or lengths. O(terms).
  Status add_row(const std::vector<int>& ind, const std::vector<double>& val, double lo, double up);
  // Deletes the rows from `first` to the end. Fails with VLM_ERROR_INDEX_OUT_OF_RANGE when
  // `first` is not in [0, num_rows()]. O(rows deleted) plus HiGHS' re-indexing.
  Status truncate_rows(int first);

  // Runs HiGHS from where the previous run left off and returns the library's status
  // (VLM_OPTIMAL, VLM_INFEASIBLE, ...). Fails with VLM_ERROR_INTERNAL when HiGHS throws.
  // Cost: one HiGHS run.
  StatusOr<int> run();
  // After a run: the objective value (sense and constant included), the column values (empty
  // without a primal solution) and the simplex iterations of that run.
  double objval() const { return objval_; }
  const std::vector<double>& x() const { return x_; }
  double iterations() const { return iterations_; }

 private:
  Resolver(Env& env, const std::atomic<bool>* stop) : env_(env), stop_(stop) {}
  Status check_columns(const std::vector<int>& cols, std::size_t len) const;

  Env& env_;
  const std::atomic<bool>* stop_;
  HighsPtr highs_;
  bool mip_ = false;
  int ncol_ = 0, nrow_ = 0;
  double objval_ = 0.0, iterations_ = 0.0;
  std::vector<double> x_;
};

}  // namespace vlm::engine
