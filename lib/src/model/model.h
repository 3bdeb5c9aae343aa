// Model: one model of the library: its own copy of the environment, the updated state
// (ModelData) and the queue of changes waiting for update().
//
// Every building call validates its input at once (indices against the updated count, plus
// the queued additions when UpdateMode is 1) and queues the change; update() applies, in
// this order: additions (variables, then linear, quadratic, SOS and general constraints, then
// the column coefficients of added variables), modifications in the order they were made
// (attribute writes, coefficient changes, objective terms), and deletions last. So every
// index given in one batch refers to the numbering before that batch's deletions.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/error_state.h"
#include "core/status.h"
#include "engine/solution.h"
#include "env/env.h"
#include "model/model_data.h"

struct VLMmodel;

namespace vlm {

namespace callbacks {
class Session;
}

// The user's callback of a model: the C function, its user data and the handle it is called
// with; `search` asks for the branch-and-cut search on integer models; `session` is the
// callback session of the solve running now (callbacks/session.h), or null.
struct UserCallback {
  int (*fn)(VLMmodel*, void*, int, void*) = nullptr;
  void* usrdata = nullptr;
  VLMmodel* handle = nullptr;
  bool search = false;
  callbacks::Session* session = nullptr;
};

// Membership flags of an irreducible inconsistent subsystem: one entry per element of each
// kind (lower and upper bounds per variable), 1 for a member.
struct IISResult {
  std::vector<char> lb, ub, constr, qconstr, sos, genconstr;
  bool minimal = false;
  int solves = 0;  // feasibility solves the computation took
};

// One parameter set found by a tuning run: the model's settings at the start of the run with
// the result's changes applied; `changed` lists the indices of the parameters it changes.
struct TuneResult {
  ParamSet params;
  std::vector<int> changed;
};

class Model {
 public:
  Model(const Env& env, std::string name);
  // A copy of the updated state with a copy of the environment; nothing queued is copied.
  Model(const Model& other);
  Model& operator=(const Model&) = delete;
  // A derived model: `other`'s environment (copied) with `data` as its updated state, nothing
  // queued, no solution.
  Model(const Model& other, ModelData data);

  Env& env() { return env_; }
  ErrorState& errors() { return errors_; }
  const ModelData& data() const { return data_; }

  // --- building (queued) ---------------------------------------------------------------------
  Status add_vars(int n, int numnz, const int* beg, const int* ind, const double* val,
                  const double* obj, const double* lb, const double* ub, const char* vtype,
                  const char* const* names);
  Status add_constrs(int n, int numnz, const int* beg, const int* ind, const double* val,
                     const char* sense, const double* rhs, const char* const* names);
  Status add_range_constr(int numnz, const int* ind, const double* val, double lower,
                          double upper, const char* name);
  Status add_qconstr(QConstrData q);
  // A block of quadratic constraints, all or none: every one is checked before any is queued.
  // O(total terms).
  Status add_qconstrs(std::vector<QConstrData> qs);
  Status add_sos(int numsos, int nummembers, const int* types, const int* beg, const int* ind,
                 const double* weight);
  Status add_genconstr(GenConstrData g);
  // A block of general constraints, all or none: one refused record leaves the queue as it
  // was. Each record is checked as add_genconstr checks it. O(total operands).
  Status add_genconstrs(std::vector<GenConstrData> gs);
  Status add_qpterms(int n, const int* qrow, const int* qcol, const double* qval);
  Status del_q();
  Status chg_coeffs(int n, const int* cind, const int* vind, const double* val);
  // kind: VLM_KIND_VAR, _CONSTR, _QCONSTR, _SOS or _GENCONSTR.
  Status del_elements(int kind, int n, const int* ind);
  Status set_pwlobj(int var, int n, const double* x, const double* y);
  // Replaces the objective (sense 0 keeps the current sense).
  Status set_objective(int sense, double constant, int lnz, const int* lind, const double* lval,
                       int qnz, const int* qrow, const int* qcol, const double* qval);
  Status set_objectiven(int index, int priority, double weight, double abstol, double reltol,
                        const char* name, double constant, int lnz, const int* lind,
                        const double* lval);

  // True while a solve of this model runs (on any thread): other calls are refused then.
  bool solving() const { return solving_.load(std::memory_order_acquire); }
  void set_solving(bool on) { solving_.store(on, std::memory_order_release); }

  // Whether the next solve stops on SIGINT (set by VLMsetsignal, consumed by the solve).
  bool take_signal_request() {
    bool r = catch_signal_;
    catch_signal_ = false;
    return r;
  }
  void request_signal() { catch_signal_ = true; }

  // The installed callback (fn null when none).
  UserCallback& user_callback() { return callback_; }

  // Queues a change made through the attribute layer (already validated by it). The engine
  // must then assume that anything may have changed.
  void queue_change(std::function<void(ModelData&)> change);
  // What a queued change touches, when the engine can be told precisely: the bounds or
  // objective coefficient of one variable (kVar), the right-hand side of one linear
  // constraint (kConstr), or nothing the engine solves (kNothing: names).
  enum class Touch { kVar, kConstr, kNothing };
  // Queues `change`, which touches only `what` of element `index` (a valid index now). O(1).
  void queue_change(std::function<void(ModelData&)> change, Touch what, int index);
  // Marks the queue of changes and drops everything queued after a mark: a call that queues
  // several changes and then fails keeps none of them.
  std::size_t change_mark() const { return pending_.changes.size(); }
  void rollback_changes(std::size_t mark) { pending_.changes.resize(mark); }

  // Highest valid index + 1 of a kind for calls made now (see the class comment).
  int limit(int kind) const;
  bool has_pending() const;

  // Applies the queue. On failure (only out-of-memory can fail here) the model is unchanged.
  Status update();

  // Discards solution information; with clearall also the inputs that only guide solving.
  void reset(bool clearall);

  // The basis of the last continuous solve, kept across updates (extended for added elements,
  // dropped when elements are deleted) so that a re-solve after a small change starts from it.
  struct WarmBasis {
    std::vector<int> vbasis, cbasis;
  };
  const WarmBasis* warm_basis() const { return warm_ ? &*warm_ : nullptr; }
  void set_warm_basis(WarmBasis b) { warm_ = std::move(b); }

  // Identities of the variables (kind VLM_KIND_VAR) or linear constraints (VLM_KIND_CONSTR):
  // numbered in order of creation and never reused, so that the engine can tell which elements
  // of its last solve are still there, and where. Kept in step by update(); O(count) on first
  // use. Any other kind gives an empty list.
  const std::vector<std::uint64_t>& element_ids(int kind);

  // Counts the updates that changed the model: equal values mean equal data. O(1).
  std::uint64_t data_version() const { return data_version_; }

  // What the updates since data version `since` changed, as far as the engine cares: with
  // `other` false, only the bounds and objective coefficients of `vars` and the right-hand
  // sides of `constrs` (indices may repeat; nothing was added or deleted). With `other` true
  // the lists say nothing: anything may have changed.
  struct Touched {
    std::uint64_t since = 0;
    bool other = true;
    std::vector<int> vars, constrs;
  };
  const Touched& touched() const { return touched_; }
  // Starts a new record at the current data version (the engine calls it once it holds the
  // data of this version). O(1) amortised; keeps the lists' capacity.
  void restart_touched() {
    touched_.since = data_version_;
    touched_.other = false;
    touched_.vars.clear();
    touched_.constrs.clear();
  }

  // What the engine keeps between solves of this model (its HiGHS instance and the problem it
  // holds). Opaque here; never copied with the model; released with it.
  std::shared_ptr<void>& engine_state() { return engine_state_; }
  // True once after reset(): the next solve starts without the engine's own basis or incumbent.
  bool take_cold_start() {
    bool r = cold_start_;
    cold_start_ = false;
    return r;
  }

  // The result of the last optimize call, or nullptr (none yet, or discarded by an update).
  const Solution* solution() const { return solution_.get(); }
  void set_solution(std::unique_ptr<Solution> s) { solution_ = std::move(s); }
  // Hands the solution over (a driver that solved a copy passes it on); none is left. O(1).
  std::unique_ptr<Solution> take_solution() { return std::move(solution_); }

  // The irreducible inconsistent subsystem found by the last computeIIS, or nullptr (none yet,
  // or discarded by an update that changed the model).
  const IISResult* iis() const { return iis_.get(); }
  void set_iis(std::unique_ptr<IISResult> r) { iis_ = std::move(r); }

  // Settings of the runs of a concurrent solve (one run per environment) and of the levels of a
  // multi-objective solve (index = level, highest priority first), made on request as copies of
  // the model's environment and owned by the model; emptied when discarded. Not copied with
  // the model.
  std::vector<std::unique_ptr<Env>>& concurrent_envs() { return concurrent_envs_; }
  std::vector<std::unique_ptr<Env>>& multiobj_envs() { return multiobj_envs_; }
  // Empties one of the two lists. The environments stay alive, unused, until the model is
  // freed, so that a handle the user still holds never dangles.
  void discard_envs(std::vector<std::unique_ptr<Env>>& envs) {
    for (auto& e : envs) {
      if (e) retired_envs_.push_back(std::move(e));
    }
    envs.clear();
  }

  // The parameter sets of the last tuning run, best first, or nullptr before any run.
  const std::vector<TuneResult>* tune_results() const { return tune_results_ ? &*tune_results_ : nullptr; }
  void set_tune_results(std::vector<TuneResult> r) { tune_results_ = std::move(r); }

  // Index of the first element with this name, or -1. The index is built on first use and
  // kept up to date by update().
  int find_by_name(int kind, std::string_view name);

 private:
  // The queued additions, in ModelData form; vars/constrs/... are appended at update().
  struct Pending {
    ModelData add;
    struct ColEntry {
      int var, constr;
      double val;
    };
    std::vector<ColEntry> col_entries;
    // The slack of each queued range constraint: it becomes a variable after all variables of
    // the batch, in the order the ranges were added, and enters its row (an index into
    // add.rows) with coefficient -1.
    struct RangeSlack {
      int row;
      std::string name;
      double lb, ub;
    };
    std::vector<RangeSlack> slacks;
    std::vector<std::function<void(ModelData&)>> changes;
    // What `changes` touch (see Touched); `other` once one touches anything else.
    std::vector<int> touch_vars, touch_constrs;
    bool touch_other = false;
    std::vector<int> del[6];
    bool empty() const;
  };

  Status check_var(int v, const char* what) const;
  Status check_coef(double v, const char* what) const;
  // The checks of add_qconstr, without queuing.
  Status check_qconstr(const QConstrData& q) const;
  // "variable 'x'", or "variable 7" when it has no name (messages only; v must be valid).
  std::string var_label(int v) const;
  bool updatemode_immediate() const;
  void drop_name_index(int kind);
  // Gives every element without an identity a new one (all new if the counts went out of step).
  void sync_ids();

  Env env_;
  ErrorState errors_;
  ModelData data_;
  Pending pending_;
  std::unique_ptr<Solution> solution_;
  std::unique_ptr<IISResult> iis_;
  std::optional<WarmBasis> warm_;
  std::vector<std::unique_ptr<Env>> concurrent_envs_, multiobj_envs_, retired_envs_;
  std::optional<std::vector<TuneResult>> tune_results_;
  bool catch_signal_ = false;
  std::vector<std::uint64_t> ids_[2];  // variables, linear constraints
  std::uint64_t next_id_ = 0;
  std::uint64_t data_version_ = 0;
  Touched touched_;
  std::shared_ptr<void> engine_state_;
  bool cold_start_ = false;
  UserCallback callback_;
  std::atomic<bool> solving_{false};
  std::unordered_map<std::string, int> names_[6];
  bool names_built_[6] = {false, false, false, false, false, false};
};

// Clamps a bound to +-VLM_INFINITY.
double clamp_inf(double v);

}  // namespace vlm
