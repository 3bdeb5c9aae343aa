// WorkingProblem: what the engine solves. It is built from the updated ModelData and holds
// the user's columns and rows first, in the user's order, followed by the auxiliary columns
// and rows that reformulations append. The user's model is never changed; results are mapped
// back by reading only the first user_cols columns and user_rows rows.
//
// Invariants: every per-column vector has ncol entries and every per-row vector nrow entries;
// astart has nrow + 1 entries (row i's terms are [astart[i], astart[i+1]) of aindex/aval);
// infinite bounds are IEEE infinities (the library's +-1e100 are converted on the way in);
// integrality uses the engine's codes (0 continuous, 1 integer, 2 semi-continuous,
// 3 semi-integer); the Hessian (qstart/qindex/qval) is the lower triangle column-wise, for
// the user's columns only, and empty when there is no quadratic objective.
#pragma once

#include <string>
#include <vector>

#include "core/status.h"
#include "model/model_data.h"

namespace vlm::reform {

// A construct with no finite big-M: the relaxation leaves it out and the search enforces it by
// branching (algorithms/construct_branching.h).
//   SOS1: at most one of `cols` non-zero; SOS2: the non-zeros of `cols` (weight order) are at
//   most two consecutive ones.
//   Indicator (bin == binval) => ind'x sense rhs: the row ind'x - s (sense) rhs is in the
//   problem with the slack column `slack` free in the row's loose direction; fixing s to 0
//   puts the row in force, so a node toggles it with a column bound.
struct HeldConstruct {
  enum class Kind { kSos1, kSos2, kIndicator };
  Kind kind = Kind::kSos1;
  std::vector<int> cols;
  std::vector<double> weights;  // SOS only, ascending, one per member
  int bin = -1, slack = -1;
  double binval = 1.0;
  std::vector<int> ind;
  std::vector<double> val;
  char sense = '<';
  double rhs = 0.0;
  std::string who;  // how messages name the user's element ("SOS constraint 0 (type 1)")
};

struct WorkingProblem {
  int user_cols = 0, user_rows = 0;
  int ncol = 0, nrow = 0;
  int sense = 1;  // 1 minimise, -1 maximise
  double objcon = 0.0;
  std::vector<double> cost, lower, upper;
  std::vector<int> integrality;
  std::vector<double> rlo, rup;
  std::vector<int> astart{0}, aindex;
  std::vector<double> aval;
  std::vector<int> qstart, qindex;
  std::vector<double> qval;
  bool mip = false;  // some column is integer: HiGHS runs its MIP solver
  // The user's model is a MIP (it has SOS or general constraints) even when its working problem
  // needed no integer column: results are reported as for a MIP (no duals, no basis).
  bool reported_as_mip = false;
  // The quadratic objective is not convex (not concave for a maximisation); only built with
  // NonConvex = 2, for the spatial branch and bound.
  bool nonconvex_objective = false;
  // How many SOS and general constraints (and PWL objective terms) were reformulated.
  int reformulated = 0;
  // Quadratic rows that units emitted (over working columns; `name` says which construct of
  // the user's they stand for, "NORM constraint 'n'"). Solved by the quadratic search together
  // with the user's quadratic constraints, which stay in the ModelData.
  std::vector<QConstrData> qrows;
  // Columns that a solution sets to the 2-norm of other columns after the solve: y of a
  // y = ||x|| whose cone was solved alone because nothing depends on how large y is.
  struct NormValue {
    int col = -1;
    std::vector<int> of;
  };
  std::vector<NormValue> set_to_norm;
  // Constructs the search must branch on (empty unless some construct lacks a finite bound).
  std::vector<HeldConstruct> held;

  // Appends a column; returns its index. O(1) amortised.
  int add_col(double lb, double ub, int integrality_code, double c = 0.0);
  // Appends the row lo <= sum val[k] x[ind[k]] <= up. O(terms) amortised.
  void add_row(const std::vector<int>& ind, const std::vector<double>& val, double lo, double up);
  int num_nonzeros() const { return static_cast<int>(aval.size()); }
  // The objective at `x` (ncol values) in the model's own sense: objcon + cost'x + 1/2 x'Qx,
  // Q being the lower-triangle Hessian (an off-diagonal entry stands for both halves).
  // O(columns + Hessian entries).
  double objective_value(const std::vector<double>& x) const;
};

// Converts a library value (+-VLM_INFINITY for infinite) to the working problem's form.
double to_working(double v);

// The working bounds and integrality code of a user column of type `vtype` with the model's
// bounds `lb`, `ub`. False (nothing written) for a semi-continuous or semi-integer column that
// needs a binary of its own (build_base adds it). O(1).
bool base_column(char vtype, double lb, double ub, double& lo, double& up, int& integrality);

// The working bounds of a linear constraint with sense `sense` ('<', '>', '=') and right-hand
// side `rhs`. O(1).
void base_row(char sense, double rhs, double& lo, double& up);

// Fills `p` with the user's model as it is (columns, rows, objective, Hessian), plus the
// binary and two rows per semi-continuous or semi-integer variable that the engine cannot take
// as it is (negative lower bound or upper bound above 1e5). Fails with
// VLM_ERROR_INVALID_ARGUMENT when such a variable has an infinite bound. O(size of the model).
Status build_base(const ModelData& d, WorkingProblem& p);

}  // namespace vlm::reform
