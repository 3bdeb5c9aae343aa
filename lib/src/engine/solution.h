// Solution: what the last optimize call of a model found, mapped back onto the user's
// elements. Discarded by any update that changes the model.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "velmor_codes.h"

namespace vlm {

// One measure of solution quality: the largest value, where it occurs, and the sum.
struct QualityMeasure {
  double max = 0.0;
  double sum = 0.0;
  int index = -1;
  void add(double v, int i) {
    if (v > max) {
      max = v;
      index = i;
    }
    sum += v;
  }
};

// The violations and residuals of a solution against the user's model (computed on first
// read). Velmor does not scale models, so the scaled measures equal these.
struct Quality {
  QualityMeasure bound, constr, residual, integrality, dual, dual_residual, compl_;
};

// Sensitivity ranges of an LP solution (computed on first read from the engine's basis).
struct Sensitivity {
  std::vector<double> obj_lo, obj_up;  // objective coefficient ranges per variable
  std::vector<double> lb_lo, lb_up;    // lower bound ranges
  std::vector<double> ub_lo, ub_up;    // upper bound ranges
  std::vector<double> rhs_lo, rhs_up;  // right-hand side ranges per linear constraint
};

// What one scenario of a multi-scenario solve found.
struct ScenarioResult {
  int status = VLM_LOADED;
  std::vector<double> x;  // empty when the scenario's solve found no solution
  double objval = 0.0, objbound = 0.0;
  std::vector<double> objn_val;  // every objective's value, in a multi-objective model
};

struct Solution {
  int status = VLM_LOADED;
  int sol_count = 0;       // 0 or 1 until the pool comes
  bool is_mip = false;
  bool has_duals = false;  // Pi and RC (continuous models solved to optimality)
  bool has_basis = false;
  double objval = 0.0;
  double objbound = 0.0;
  double mipgap = 0.0;
  double runtime = 0.0;
  double work = 0.0;  // processor seconds of the solve (the unit of WorkLimit)
  double itercount = 0.0;
  double baritercount = 0.0;
  double nodecount = 0.0;
  // The algorithm that won a concurrent continuous solve (0 primal, 1 dual simplex, 2
  // barrier); -1 for any other solve.
  int concurrent_win_method = -1;
  std::vector<double> x, rc, pi, slack;
  // Per quadratic constraint: rhs minus left-hand side at x, and the dual (with has_duals).
  std::vector<double> qc_slack, qc_pi;
  std::vector<int> vbasis, cbasis;
  // With InfUnbdInfo: a ray of an unbounded LP, or a Farkas certificate of an infeasible one
  // (multipliers of the rows and the amount by which the combined row is violated).
  // Solutions found by a MIP solve, best first (pool_x[0] is x); at most PoolSolutions.
  std::vector<std::vector<double>> pool_x;
  std::vector<double> pool_obj;
  // A bound on the objective of every solution not in the pool, set by a pool search; without
  // one ObjBound serves.
  std::optional<double> pool_objbound;
  std::vector<double> unbd_ray, farkas_dual;
  double farkas_proof = 0.0;
  // A multi-objective solve: the value of each objective (index = ObjNumber), constant
  // included; empty otherwise.
  std::vector<double> objn_val;
  // A multi-scenario solve: one result per scenario (index = ScenarioNumber); empty otherwise.
  std::vector<ScenarioResult> scenarios;
  mutable std::optional<Quality> quality;
  mutable std::optional<Sensitivity> sensitivity;
  // The engine's solved instance, kept for queries after the solve (ranging); released with
  // the solution.
  std::shared_ptr<void> engine;
};

}  // namespace vlm
