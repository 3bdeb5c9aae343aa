// The interface every reformulation unit implements, and the Builder through which units add
// auxiliary columns and rows to the working problem.
//
// A unit turns one construct of the user's model (an SOS, a general constraint, a
// piecewise-linear objective term) into linear rows and integer columns that HiGHS solves.
// Units run at solve time on the working problem only; the user's model never sees what they
// add. Units compose: the PWL unit emits its SOS2 through the SOS2 unit's builder function,
// never by writing its own.
#pragma once

#include <string>
#include <vector>

#include "core/status.h"
#include "model/model_data.h"
#include "params/param_set.h"
#include "reform/bound_propagation.h"
#include "reform/working_problem.h"

namespace vlm::reform {

// The constructs units reformulate: the general constraint types by their own value, then
// the SOS types and the piecewise-linear objective.
enum class ConstructKind : int { kSos1 = 32, kSos2 = 33, kPwlObj = 34 };
inline ConstructKind kind_of(GenType t) { return static_cast<ConstructKind>(static_cast<int>(t)); }

// What a unit may append (declared, so tests can check a unit against its declaration).
enum Creates : unsigned {
  kCreatesBinaries = 1u,
  kCreatesContinuous = 2u,
  kCreatesRows = 4u,
};

// Settings of a solve that units read (the piecewise-linear approximation of function
// constraints; each value is the parameter of the same name, the defaults are theirs).
struct ReformOptions {
  double func_pieces = 0;
  double func_piece_length = 1e-2;
  double func_piece_error = 1e-3;
  double func_piece_ratio = -1;
  double func_max_val = 1e6;
  // The whole parameter set of the solve, for units that read more than the fields above
  // (function constraints take per-constraint overrides through func_options). Null means
  // every parameter at its default.
  const ParamSet* params = nullptr;
};

// Appends auxiliary columns and rows to the working problem and keeps the bounds in step.
// Records what kinds it created since construction (for the declaration check).
class Builder {
 public:
  Builder(const ModelData& d, WorkingProblem& p, Bounds& b, const ReformOptions& o = ReformOptions{})
      : d_(d), p_(p), b_(b), o_(o) {}

  const ModelData& data() const { return d_; }
  const ReformOptions& options() const { return o_; }
  // Bounds of any working column after propagation (IEEE infinities for none). O(1).
  double lb(int col) const { return b_.lb[col]; }
  double ub(int col) const { return b_.ub[col]; }
  bool is_integer(int col) const { return b_.integer[col] != 0; }
  // The user's name of a column, or "an auxiliary column" for one added here.
  std::string col_name(int col) const;

  // New columns; each returns its index. O(1) amortised.
  int add_binary();
  int add_continuous(double lb, double ub, double cost = 0.0);
  // New row lo <= sum val[k] x[ind[k]] <= up (zero coefficients dropped). O(terms).
  void add_row(const std::vector<int>& ind, const std::vector<double>& val, double lo, double up);
  void add_le(const std::vector<int>& ind, const std::vector<double>& val, double rhs);
  void add_ge(const std::vector<int>& ind, const std::vector<double>& val, double rhs);
  void add_eq(const std::vector<int>& ind, const std::vector<double>& val, double rhs);
  // Narrows the propagated bounds of a column (never widens them) for the constants of the
  // units that run later; the working problem's own bounds stay as they are. O(1).
  void tighten(int col, double lo, double hi) {
    b_.tighten_lower(col, lo);
    b_.tighten_upper(col, hi);
  }
  // New quadratic row sum qval x[qrow] x[qcol] + sum lval x[lind] (sense) rhs, solved by the
  // quadratic search; `q.name` names the user's construct for messages. O(terms).
  void add_qrow(QConstrData q) {
    created_ |= kCreatesRows;
    p_.qrows.push_back(std::move(q));
  }
  // Has every solution set column `col` to ||x[of]||_2 after the solve. O(size).
  void set_to_norm(int col, std::vector<int> of) { p_.set_to_norm.push_back({col, std::move(of)}); }
  // Leaves a construct without finite big-Ms to the search, which branches on it. O(size).
  void hold(HeldConstruct c) { p_.held.push_back(std::move(c)); }
  // Replaces the objective coefficient of a column in the working problem. O(1).
  void set_cost(int col, double c) { p_.cost[col] = c; }

  unsigned created() const { return created_; }

 private:
  const ModelData& d_;
  WorkingProblem& p_;
  Bounds& b_;
  const ReformOptions o_;
  unsigned created_ = 0;
};

class Reformulation {
 public:
  virtual ~Reformulation() = default;
  // The construct's name in messages ("SOS1", "INDICATOR", ...).
  virtual const char* name() const = 0;
  // The Creates bits of what apply() may add.
  virtual unsigned creates() const = 0;
  // Reformulates element `index` of its kind (general constraint index, SOS index, or the
  // variable whose PWL objective it is). Fails with a clear message naming the culprit (a
  // missing bound, an unsupported variant); the working problem is then discarded.
  virtual Status apply(const ModelData& d, int index, Builder& b) const = 0;
  // Tightens bounds through the construct (the result of a MAX lies within its operands'
  // range, ...). Returns whether anything changed. Default: nothing to tighten.
  virtual bool propagate(const ModelData& d, int index, Bounds& b) const {
    (void)d, (void)index, (void)b;
    return false;
  }
  // The same with the solve's settings, for units whose rule depends on them (function
  // constraints). Default: the form above.
  virtual bool propagate(const ModelData& d, int index, Bounds& b, const ReformOptions& o) const {
    (void)o;
    return propagate(d, index, b);
  }
};

// The unit for a construct kind, or nullptr when the kind has none (registry.cpp says why).
const Reformulation* find_reformulation(ConstructKind kind);

// Fails with VLM_ERROR_INVALID_ARGUMENT when variable `var` (the `role` of construct `who`)
// is no longer binary: its type or bounds may have changed since the constraint was added.
Status require_binary(const ModelData& d, int var, const std::string& who, const char* role);

// A number as messages show it ("%g").
std::string format_value(double v);

// "MAX constraint 'GC0'", "SOS constraint 2", ...: how messages name an element.
std::string describe_genconstr(const ModelData& d, int index);

}  // namespace vlm::reform
