// The HiGHS adapter: compiles the updated model into a HiGHS problem through the C API, maps
// parameters to options, runs it, and maps statuses and values back.
//
// optimize keeps one HiGHS instance per model and passes it only the changes of the next
// working problem (engine/kept_problem.h); the parts of a sequence (objective levels,
// scenarios) get an instance each. Every instance is released through release_highs()
// (engine/highs_instance.h), which defers Highs_destroy while any solve is running.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <string>
#include <optional>
#include <type_traits>
#include <vector>

#include "algorithms/callback_search.h"
#include "algorithms/construct_branching.h"
#include "algorithms/quadratic_search.h"
#include "attrs/attr_table.h"
#include "callbacks/highs_points.h"
#include "callbacks/search_callbacks.h"
#include "callbacks/session.h"
#include "core/platform.h"
#include "core/text.h"
#include "params/param_table.h"
#include "engine/engine.h"
#include "engine/engine_log.h"
#include "engine/highs_instance.h"
#include "engine/highs_limits.h"
#include "engine/highs_options.h"
#include "engine/kept_problem.h"
#include "engine/run_setup.h"
#include "engine/sigint.h"
#include "engine/stop_flag.h"
#include "reform/pipeline.h"
#include "interfaces/highs_c_api.h"

namespace vlm::engine {

namespace {

// ---- callbacks --------------------------------------------------------------------------------

// Why the library (not HiGHS) stopped a solve.
enum class StopReason { kNone, kUser, kBound, kWork, kSoftMemory, kHardMemory };

struct CallbackState {
  Env* env = nullptr;
  std::atomic<bool>* stop = nullptr;
  int user_cols = 0;  // the user's variables come first among the engine's columns
  std::vector<std::pair<double, std::vector<double>>> found;  // every MIP solution reported
  // Limits HiGHS has no option for, checked in the interrupt callbacks.
  int sense = 1;
  double best_bd_stop = VLM_INFINITY;  // in the model's sense; infinite: off
  double work_limit = VLM_INFINITY;    // processor seconds
  double soft_mem_gb = VLM_INFINITY, hard_mem_gb = VLM_INFINITY;
  double cpu_start = 0.0;
  unsigned calls = 0;
  StopReason reason = StopReason::kNone;
  // The user's callback (tap.user null without one): where-calls from HiGHS's own search.
  callbacks::HighsTap tap;
};

// True when a limit of ours says stop; records why.
bool should_stop(CallbackState& st, const HighsCallbackDataOut* out, int type) {
  if (st.stop && st.stop->load(std::memory_order_relaxed)) {
    st.reason = StopReason::kUser;
    return true;
  }
  if (type == kHighsCallbackMipInterrupt && out != nullptr && st.best_bd_stop < VLM_INFINITY) {
    const double bound = out->mip_dual_bound;
    if (std::isfinite(bound) && (st.sense == 1 ? bound >= st.best_bd_stop : bound <= st.best_bd_stop)) {
      st.reason = StopReason::kBound;
      return true;
    }
  }
  // Reading the clock and the memory costs a system call: every 64th call is often enough.
  if ((++st.calls & 63u) != 0) return false;
  if (st.work_limit < VLM_INFINITY && process_cpu_seconds() - st.cpu_start >= st.work_limit) {
    st.reason = StopReason::kWork;
    return true;
  }
  if (st.soft_mem_gb < VLM_INFINITY || st.hard_mem_gb < VLM_INFINITY) {
    const double gb = resident_memory_gb();
    if (gb >= st.hard_mem_gb) {
      st.reason = StopReason::kHardMemory;
      return true;
    }
    if (gb >= st.soft_mem_gb) {
      st.reason = StopReason::kSoftMemory;
      return true;
    }
  }
  return false;
}

void highs_callback(int type, const char* message, const HighsCallbackDataOut* data_out,
                    HighsCallbackDataIn* data_in, void* user) {
  auto* st = static_cast<CallbackState*>(user);
  if (type == kHighsCallbackLogging) {
    // HiGHS passes no input struct with log lines: data_in must not be touched here.
    if (message && st->env) {
      std::string line(message);
      while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
      st->env->message(line);
    }
    return;
  }
  if (type == kHighsCallbackMipSolution) {
    if (data_out != nullptr && data_out->mip_solution != nullptr && data_out->mip_solution_size >= st->user_cols) {
      st->found.emplace_back(data_out->objective_function_value,
                             std::vector<double>(data_out->mip_solution, data_out->mip_solution + st->user_cols));
    }
    if (st->tap.user != nullptr) {
      st->tap.solutions = static_cast<int>(st->found.size());
      callbacks::highs_event(st->tap, type, data_out, data_in);
    }
    return;
  }
  if (st->tap.user != nullptr) {
    st->tap.solutions = static_cast<int>(st->found.size());
    // True when the user's callback ended this solve (VLMcbstoponemultiobj).
    if (callbacks::highs_event(st->tap, type, data_out, data_in)) return;
  }
  // HiGHS keeps the input struct from run to run of a kept instance: clear a stop of before.
  if (data_in) data_in->user_interrupt = should_stop(*st, data_out, type) ? 1 : 0;
}

// ---- problem construction ---------------------------------------------------------------------

// The working problem comes from the reformulation step (reform/pipeline.h); the engine only
// passes it to HiGHS and reads the user's columns and rows back.
using Problem = reform::WorkingProblem;
static_assert(std::is_same_v<HighsInt, int>, "the working problem's index arrays are passed to HiGHS as they are");

// ---- MIP start --------------------------------------------------------------------------------

// Hands the defined Start values to HiGHS as a partial solution, which it completes. False
// when no Start value is defined.
bool pass_start(void* h, const ModelData& d) {
  int attr = find_attr("Start");
  auto it = d.extra[VLM_KIND_VAR].num.find(attr);
  if (it == d.extra[VLM_KIND_VAR].num.end()) return false;
  std::vector<HighsInt> idx;
  std::vector<double> val;
  for (int j = 0; j < d.num_vars(); ++j) {
    double v = it->second.v[j];
    if (v >= VLM_UNDEFINED || std::isnan(v)) continue;
    idx.push_back(j);
    val.push_back(v);
  }
  if (idx.empty()) return false;
  Highs_setSparseSolution(h, static_cast<HighsInt>(idx.size()), idx.data(), val.data());
  return true;
}

// ---- infeasibility and unboundedness certificates ------------------------------------------

void certificates(void* h, const ModelData& d, const Problem& p, Solution& sol) {
  HighsInt has = 0;
  if (sol.status == VLM_UNBOUNDED) {
    std::vector<double> ray(p.ncol);
    if (Highs_getPrimalRay(h, &has, ray.data()) == kHighsStatusOk && has) {
      sol.unbd_ray.assign(ray.begin(), ray.begin() + d.num_vars());
    }
    return;
  }
  if (sol.status != VLM_INFEASIBLE) return;
  std::vector<double> y(p.nrow);
  if (Highs_getDualRay(h, &has, y.data()) != kHighsStatusOk || !has) return;
  // For any x within its bounds, z'x with z = A'y lies at least at L; the rows allow y'Ax at
  // most U. The certificate proves infeasibility by L - U > 0 (we orient y so that it does).
  auto proof = [&](double sign) {
    std::vector<double> z(p.ncol, 0.0);
    double upper = 0.0;
    for (int i = 0; i < p.nrow; ++i) {
      double yi = sign * y[i];
      for (HighsInt k = p.astart[i]; k < p.astart[i + 1]; ++k) z[p.aindex[k]] += yi * p.aval[k];
      upper += yi > 0 ? yi * p.rup[i] : yi < 0 ? yi * p.rlo[i] : 0.0;
    }
    double lower = 0.0;
    for (int j = 0; j < p.ncol; ++j) {
      lower += z[j] > 0 ? z[j] * p.lower[j] : z[j] < 0 ? z[j] * p.upper[j] : 0.0;
    }
    return lower - upper;
  };
  double plus = proof(1.0), minus = proof(-1.0);
  const double sign = (std::isnan(plus) || plus < minus) ? -1.0 : 1.0;
  sol.farkas_proof = std::max(plus, minus);
  if (!std::isfinite(sol.farkas_proof)) sol.farkas_proof = VLM_INFINITY;
  sol.farkas_dual.resize(d.num_constrs());
  for (int i = 0; i < d.num_constrs(); ++i) sol.farkas_dual[i] = sign * y[i];
}

// ---- solution pool ----------------------------------------------------------------------------

// The distinct solutions the MIP reported, best first, the incumbent leading, at most `limit`.
void fill_pool(Solution& sol, std::vector<std::pair<double, std::vector<double>>>& found, int sense, int limit) {
  std::stable_sort(found.begin(), found.end(), [sense](const auto& a, const auto& b) {
    return sense == -1 ? a.first > b.first : a.first < b.first;
  });
  sol.pool_x.assign(1, sol.x);
  sol.pool_obj.assign(1, sol.objval);
  for (auto& [obj, x] : found) {
    if (static_cast<int>(sol.pool_x.size()) >= limit) break;
    bool seen = std::any_of(sol.pool_x.begin(), sol.pool_x.end(), [&](const std::vector<double>& y) {
      for (std::size_t k = 0; k < x.size(); ++k) {
        if (std::fabs(x[k] - y[k]) > 1e-6) return false;
      }
      return true;
    });
    if (!seen) {
      sol.pool_x.push_back(std::move(x));
      sol.pool_obj.push_back(obj);
    }
  }
  sol.sol_count = static_cast<int>(sol.pool_x.size());
}

// ---- LP warm starts ---------------------------------------------------------------------------

HighsInt to_highs_basis(int vlm) {
  switch (vlm) {
    case 0: return kHighsBasisStatusBasic;
    case -2: return kHighsBasisStatusUpper;
    case -3: return kHighsBasisStatusZero;
    default: return kHighsBasisStatusLower;
  }
}

// A basis set through VBasis/CBasis wins; else the basis kept from the previous solve (by
// HiGHS itself when `hot`: the kept instance took the changes in place; else passed from the
// model's copy); else primal/dual start values (PStart/DStart). Columns and rows the library
// added for its own modelling start nonbasic at lower / basic.
void pass_warm_start(void* h, Model& m, const Problem& p, bool hot) {
  const ModelData& d = m.data();
  if (m.env().params().int_param("LPWarmStart") == 0) return;
  const auto& vx = d.extra[VLM_KIND_VAR].num;
  const auto& cx = d.extra[VLM_KIND_CONSTR].num;
  auto vb = vx.find(find_attr("VBasis"));
  auto cb = cx.find(find_attr("CBasis"));
  std::vector<int> vbasis, cbasis;
  if (vb != vx.end() && cb != cx.end()) {
    vbasis.assign(vb->second.v.begin(), vb->second.v.end());
    cbasis.assign(cb->second.v.begin(), cb->second.v.end());
  } else if (hot) {
    return;
  } else if (const Model::WarmBasis* w = m.warm_basis()) {
    vbasis = w->vbasis;
    cbasis = w->cbasis;
  }
  if (static_cast<int>(vbasis.size()) == d.num_vars() && static_cast<int>(cbasis.size()) == d.num_constrs()) {
    std::vector<HighsInt> col(p.ncol, kHighsBasisStatusLower), row(p.nrow, kHighsBasisStatusBasic);
    // "Nonbasic" means at the bound that exists: a status naming a missing bound is moved to
    // the other one.
    auto fix = [](HighsInt st, double lo, double up) {
      if (st == kHighsBasisStatusLower && lo == -INFINITY && up != INFINITY) return kHighsBasisStatusUpper;
      if (st == kHighsBasisStatusUpper && up == INFINITY && lo != -INFINITY) return kHighsBasisStatusLower;
      return st;
    };
    for (int j = 0; j < d.num_vars(); ++j) col[j] = fix(to_highs_basis(vbasis[j]), p.lower[j], p.upper[j]);
    for (int i = 0; i < d.num_constrs(); ++i) row[i] = fix(to_highs_basis(cbasis[i]), p.rlo[i], p.rup[i]);
    // Auxiliary columns of the reformulation start nonbasic; a free one (the epigraph of a PWL
    // objective) has no bound to sit at, so it is nonbasic at zero.
    for (int j = d.num_vars(); j < p.ncol; ++j) {
      col[j] = (p.lower[j] == -INFINITY && p.upper[j] == INFINITY) ? kHighsBasisStatusZero
                                                                     : fix(col[j], p.lower[j], p.upper[j]);
    }
    // HiGHS refuses an invalid basis and then starts cold, which is the right fallback.
    Highs_setBasis(h, col.data(), row.data());
    return;
  }
  auto ps = vx.find(find_attr("PStart"));
  if (ps == vx.end()) return;
  std::vector<double> x(p.ncol, 0.0);
  for (int j = 0; j < d.num_vars(); ++j) {
    double v = ps->second.v[j];
    x[j] = v >= VLM_UNDEFINED ? std::max(p.lower[j], std::min(0.0, p.upper[j])) : v;
  }
  auto ds = cx.find(find_attr("DStart"));
  std::vector<double> y;
  if (ds != cx.end()) {
    y.assign(p.nrow, 0.0);
    for (int i = 0; i < d.num_constrs(); ++i) y[i] = ds->second.v[i] >= VLM_UNDEFINED ? 0.0 : ds->second.v[i];
  }
  Highs_setSolution(h, x.data(), nullptr, nullptr, y.empty() ? nullptr : y.data());
}

// ---- statuses ---------------------------------------------------------------------------------

int map_status(HighsInt ms, bool mip, bool node_limit_set, double nodes, double node_limit,
               bool has_primal) {
  switch (ms) {
    case kHighsModelStatusOptimal:
      return VLM_OPTIMAL;
    case kHighsModelStatusInfeasible:
      return VLM_INFEASIBLE;
    case kHighsModelStatusUnboundedOrInfeasible:
      return VLM_INF_OR_UNBD;
    case kHighsModelStatusUnbounded:
      return VLM_UNBOUNDED;
    case kHighsModelStatusObjectiveBound:
      return VLM_CUTOFF;
    case kHighsModelStatusObjectiveTarget:
      return VLM_USER_OBJ_LIMIT;
    case kHighsModelStatusTimeLimit:
      return VLM_TIME_LIMIT;
    case kHighsModelStatusIterationLimit:
      return VLM_ITERATION_LIMIT;
    case kHighsModelStatusSolutionLimit:
      // One HiGHS code covers node and solution limits: the node count tells them apart.
      return (mip && node_limit_set && nodes >= node_limit) ? VLM_NODE_LIMIT : VLM_SOLUTION_LIMIT;
    case kHighsModelStatusInterrupt:
    case 19:
      return VLM_INTERRUPTED;
    case 18:
      return VLM_MEM_LIMIT;
    case kHighsModelStatusUnknown:
      return has_primal ? VLM_SUBOPTIMAL : VLM_NUMERIC;
    default:
      return VLM_NUMERIC;
  }
}

}  // namespace

namespace {
// solve_problem, and optimize with the model's kept instance (`kept`; null: a fresh one).
// With `held` other than kNo, p is kept->p and the instance already holds it.
StatusOr<std::unique_ptr<Solution>> solve(Model& m, const Problem& p, const PhaseOptions& phase, KeptProblem* kept,
                                          Held held = Held::kNo);
}  // namespace

Status optimize(Model& m) {
  VLM_RETURN_IF_ERROR(m.update());
  SolvingScope solving(m);
  std::shared_ptr<void>& state = m.engine_state();
  if (!state) state = std::make_shared<KeptProblem>();
  auto* kept = static_cast<KeptProblem*>(state.get());
  // Nothing changed since the kept problem was built: it is the working problem again (unless
  // function constraints make it depend on parameters too).
  Held held = Held::kNo;
  if (kept->highs && kept->p.ncol > 0 && m.data().genconstrs.empty()) {
    const Model::Touched& t = m.touched();
    if (kept->version == m.data_version()) {
      held = Held::kUnchanged;
    } else if (!t.other && t.since == kept->version && patch_problem(*kept, m.data(), t.vars, t.constrs)) {
      // Only bounds, costs and right-hand sides changed: the kept problem was patched in place.
      held = Held::kPatched;
      kept->version = m.data_version();
      m.restart_touched();
    }
  }
  const bool unchanged = held != Held::kNo;
  Problem built;
  if (!unchanged) VLM_RETURN_IF_ERROR(build_problem(m, built));
  const Problem& p = unchanged ? kept->p : built;
  auto solved = solve(m, p, PhaseOptions{}, kept, held);
  if (!solved.ok()) {
    // What the instance holds is no longer known.
    *kept = KeptProblem{{}, {}, {}, {}, 0, {}, kept->counts};
    return solved.status();
  }
  std::unique_ptr<Solution> sol = std::move(solved.value());
  // The kept instance now holds p (unless the solve did not use it).
  if (kept->highs && !unchanged) {
    kept->p = std::move(built);
    kept->version = m.data_version();
    m.restart_touched();
    auto keep_ids = [](std::vector<std::uint64_t>& to, const std::vector<std::uint64_t>& from) {
      // Equal counts and last identities mean equal lists (see kept_problem.cpp): no copy.
      if (to.size() != from.size() || (!to.empty() && to.back() != from.back())) to = from;
    };
    keep_ids(kept->col_ids, m.element_ids(VLM_KIND_VAR));
    keep_ids(kept->row_ids, m.element_ids(VLM_KIND_CONSTR));
  }
  m.set_solution(std::move(sol));
  return Status::Ok();
}

void apply_options(void* h, Env& env, bool mip) {
  set_options(h, env.params(), mip);
  choose_threads(h, env);
}

int run_status(void* h, const ParamSet& ps, bool mip) {
  int64_t nodes = 0;
  HighsInt primal_status = 0;
  Highs_getInt64InfoValue(h, "mip_node_count", &nodes);
  Highs_getIntInfoValue(h, "primal_solution_status", &primal_status);
  const double node_limit = ps.dbl_param("NodeLimit");
  return map_status(Highs_getModelStatus(h), mip, node_limit < 2e9, static_cast<double>(nodes), node_limit,
                    primal_status == 2);
}

const PassCounts* pass_counts(Model& m) {
  return m.engine_state() ? &static_cast<KeptProblem*>(m.engine_state().get())->counts : nullptr;
}

Status build_problem(Model& m, reform::WorkingProblem& p) { return build_problem(m, m.data(), p); }

Status build_problem(Model& m, const ModelData& d, reform::WorkingProblem& p) {
  return reform::build_working_problem(d, p, reform_options(m.env().params()));
}

StatusOr<std::unique_ptr<Solution>> solve_problem(Model& m, const reform::WorkingProblem& p, const PhaseOptions& phase) {
  return solve(m, p, phase, nullptr);
}

namespace {

// Everything HiGHS is told before a run: options from the parameters, the overrides of a part
// of a sequence, and the callbacks. The one place to set up a run.
void prepare_run(void* h, Model& m, const Problem& p, const PhaseOptions& phase, CallbackState& cb) {
  const ParamSet& ps = m.env().params();
  // A kept instance still has the previous solve's options: start from HiGHS' defaults.
  Highs_resetOptions(h);
  // Options (the log routing first, so that nothing reaches stdout directly).
  set_options(h, ps, p.mip);
  // A part of a sequence gets what remains of the sequence's time.
  if (phase.time_limit < ps.dbl_param("TimeLimit")) {
    Highs_setDoubleOptionValue(h, "time_limit", std::max(0.0, phase.time_limit));
  }
  if (phase.presolve >= 0) Highs_setStringOptionValue(h, "presolve", phase.presolve == 0 ? "off" : "on");
  if (!p.mip && (phase.simplex == 0 || phase.simplex == 1)) {
    Highs_setStringOptionValue(h, "solver", "simplex");
    Highs_setIntOptionValue(h, "simplex_strategy", phase.simplex == 0 ? 4 : 1);
  }
  Highs_setCallback(h, highs_callback, &cb);
  Highs_startCallback(h, kHighsCallbackLogging);
  Highs_startCallback(h, kHighsCallbackSimplexInterrupt);
  Highs_startCallback(h, kHighsCallbackIpmInterrupt);
  Highs_startCallback(h, kHighsCallbackMipInterrupt);
  if (p.mip) Highs_startCallback(h, kHighsCallbackMipSolution);
  if (p.mip && cb.tap.user != nullptr) {
    Highs_startCallback(h, kHighsCallbackCallbackMipUserSolution);
    Highs_startCallback(h, kHighsCallbackMipGetCutPool);
  }
}

// Detaches the callbacks from an instance that outlives the solve (their state was on the
// stack), so that a later query on it (ranging) cannot reach them.
void end_run(void* h) {
  for (int type : {kHighsCallbackLogging, kHighsCallbackSimplexInterrupt, kHighsCallbackIpmInterrupt,
                   kHighsCallbackMipInterrupt, kHighsCallbackMipSolution,
                   kHighsCallbackCallbackMipUserSolution, kHighsCallbackMipGetCutPool}) {
    Highs_stopCallback(h, type);
  }
}

}  // namespace

namespace {

StatusOr<std::unique_ptr<Solution>> solve(Model& m, const Problem& p, const PhaseOptions& phase, KeptProblem* kept,
                                          Held held) {
  const bool unchanged = held != Held::kNo;
  const ModelData& d = m.data();
  const ParamSet& ps = m.env().params();
  auto sol = std::make_unique<Solution>();
  sol->is_mip = p.mip || p.reported_as_mip;
  const auto t0 = std::chrono::steady_clock::now();
  const bool cold = kept != nullptr && m.take_cold_start();

  // An empty model needs no engine: every row reads 0.
  if (p.ncol == 0) {
    if (kept) *kept = KeptProblem{{}, {}, {}, {}, 0, {}, kept->counts};
    bool feasible = true;
    for (int i = 0; i < p.nrow; ++i) feasible = feasible && p.rlo[i] <= 0.0 && 0.0 <= p.rup[i];
    sol->status = feasible ? VLM_OPTIMAL : VLM_INFEASIBLE;
    if (feasible) {
      sol->sol_count = 1;
      sol->objval = p.objcon;
      sol->objbound = p.objcon;
      sol->slack.assign(d.num_constrs(), 0.0);
      for (int i = 0; i < d.num_constrs(); ++i) sol->slack[i] = d.rhs[i];
      sol->pi.assign(d.num_constrs(), 0.0);
      sol->has_duals = !p.mip;
    }
    return sol;
  }

  StopFlag stop(&m);
  SigintScope sigint(m.take_signal_request(), &stop.flag);
  ActiveSolve active;
  // The quadratic search passes its own problems: it gets an instance of its own, and the
  // kept one (which would not match it afterwards) is dropped. (Never with `unchanged`: p would
  // go with it; a search leaves no instance, so the next solve is never unchanged.)
  // Constraints marked Lazy are held out and added when a candidate violates them. With
  // quadratic constraints or a nonconvex objective they stay ordinary rows (same solutions).
  const bool lazy_path = algorithms::lazy_search_serves(d, p);
  const std::vector<int> lazy = lazy_path ? algorithms::lazy_rows_of(d, p) : std::vector<int>{};
  // A callback that needs lazy constraints, user cuts or node relaxations runs the same search
  // with its hooks (a convex MIQP too: its relaxations are QPs).
  callbacks::Session* session = callbacks::active(m);
  const bool hooked = session != nullptr && p.mip && lazy_path && session->wants_search();
  const bool quadratic = algorithms::needs_quadratic_search(d, p) && lazy.empty() && !hooked;
  // SOS and indicators without finite big-Ms are branched on by a search of our own.
  const bool search = quadratic || !lazy.empty() || hooked || !p.held.empty();
  if (kept && search && !unchanged) {
    *kept = KeptProblem{{}, {}, {}, {}, 0, {}, kept->counts};
  }
  if (search) kept = nullptr;
  // A previous solution that shares the kept instance gives it up: the instance is about to
  // change, and nothing may query it meanwhile.
  if (kept && kept->highs && m.solution() && m.solution()->engine == kept->highs) m.set_solution(nullptr);
  HighsPtr fresh;
  if (!kept && fresh.h == nullptr) return Status(VLM_ERROR_OUT_OF_MEMORY, "Unable to create a HiGHS instance");
  void* h = fresh.h;
  CallbackState cb;
  cb.env = &m.env();
  cb.stop = &stop.flag;
  cb.user_cols = d.num_vars();
  cb.sense = d.sense;
  // An infinite BestBdStop, in either direction, is off (the default +inf would otherwise stop
  // every maximisation at once).
  cb.best_bd_stop = ps.dbl_param("BestBdStop");
  if (std::fabs(cb.best_bd_stop) >= VLM_INFINITY) cb.best_bd_stop = VLM_INFINITY;
  cb.work_limit = ps.dbl_param("WorkLimit");
  cb.soft_mem_gb = ps.dbl_param("SoftMemLimit");
  cb.hard_mem_gb = ps.dbl_param("MemLimit");
  cb.cpu_start = process_cpu_seconds();
  // The search's own HiGHS runs make no where-calls: its hooks speak for it.
  cb.tap.user = search && !quadratic ? nullptr : session;
  cb.tap.mip = p.mip;
  cb.tap.user_cols = d.num_vars();
  HighsInt rc = 0;
  bool hot = false;              // the kept instance took the changes in place
  std::vector<double> kept_start;  // the kept incumbent, moved onto p's columns
  try {
    if (kept) {
      if (!kept->highs) {
        HighsPtr created;
        if (created.h == nullptr) return Status(VLM_ERROR_OUT_OF_MEMORY, "Unable to create a HiGHS instance");
        kept->highs = created.share();
      }
      h = kept->highs.get();
    }
    // Options first, so that passing the problem logs nothing to the console.
    prepare_run(h, m, p, phase, cb);
    if (kept) {
      const long incremental = kept->counts.incremental;
      if (!pass_problem(*kept, p, m.element_ids(VLM_KIND_VAR), m.element_ids(VLM_KIND_CONSTR), kept_start,
                        held)) {
        return explain_rejected_model(d);
      }
      hot = kept->counts.incremental > incremental;
      // A reset, or LPWarmStart 0, asks for a solve from nothing of the engine's own.
      if (hot && (cold || (!p.mip && ps.int_param("LPWarmStart") == 0))) {
        Highs_clearSolver(h);
        kept_start.clear();
      }
    }
    if (!phase.title.empty()) m.env().message(phase.title);
    log_banner(m.env(), d, p);
    // The one place where a driver takes over from a single HiGHS run.
    if (search) {
      choose_threads(h, m.env());
      if (quadratic) {
        VLM_RETURN_IF_ERROR(algorithms::solve_quadratic(h, m.env(), d, p, &stop.flag, *sol));
      } else if (!p.held.empty()) {
        VLM_RETURN_IF_ERROR(algorithms::solve_with_held_constructs(h, m.env(), d, p, !lazy.empty() || hooked,
                                                                   &stop.flag, *sol));
      } else {
        std::optional<callbacks::SearchCallbacks> hooks;
        if (session != nullptr) hooks.emplace(*session);
        // Cuts and node relaxations need every node: the module asks for them when the callback
        // names them, and PreCrush 1 is how a program says it adds cuts.
        const bool node_events =
            hooked && (m.user_callback().search || ps.int_param("PreCrush") == 1);
        VLM_RETURN_IF_ERROR(algorithms::solve_with_lazy_rows(h, m.env(), d, p, lazy, hooks ? &*hooks : nullptr,
                                                             node_events, &stop.flag, *sol));
      }
      sol->runtime = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
      sol->work = process_cpu_seconds() - cb.cpu_start;
      log_summary(m.env(), *sol);
      return sol;
    }
    if (!kept) {
      rc = pass_whole(h, p);
      if (rc == kHighsStatusError) return explain_rejected_model(d);
    }
    double cutoff = ps.dbl_param("Cutoff");
    if (p.mip && d.sense == 1 && cutoff < VLM_INFINITY && cutoff > -VLM_INFINITY) {
      // HiGHS prunes with it as an upper bound of a minimisation; maximisations are cut off
      // after the solve below.
      Highs_setDoubleOptionValue(h, "objective_bound", cutoff);
    }
    double target = ps.dbl_param("BestObjStop");
    if (p.mip && target > -VLM_INFINITY && target < VLM_INFINITY) {
      Highs_setDoubleOptionValue(h, "objective_target", target);
    }
    choose_threads(h, m.env());
    if (!phase.part) {
      if (p.mip) {
        // The user's start wins; else the previous incumbent when it still fits the problem.
        if (!pass_start(h, d) && !kept_start.empty() && satisfies(p, kept_start, 1e-9)) {
          Highs_setSolution(h, kept_start.data(), nullptr, nullptr, nullptr);
        }
      } else {
        pass_warm_start(h, m, p, hot && !cold);
      }
    } else if (p.mip && phase.start_x != nullptr && static_cast<int>(phase.start_x->size()) == p.ncol) {
      Highs_setSolution(h, phase.start_x->data(), nullptr, nullptr, nullptr);
    } else if (!p.mip && phase.start_basis != nullptr && static_cast<int>(phase.start_basis->cols.size()) == p.ncol &&
               static_cast<int>(phase.start_basis->rows.size()) <= p.nrow) {
      // Rows added since that basis start basic (their slack enters), which keeps the count of
      // basic variables right; HiGHS refuses an invalid basis and starts cold.
      std::vector<HighsInt> rows(phase.start_basis->rows.begin(), phase.start_basis->rows.end());
      rows.resize(p.nrow, kHighsBasisStatusBasic);
      Highs_setBasis(h, phase.start_basis->cols.data(), rows.data());
    }
    rc = Highs_run(h);
  } catch (const std::exception& e) {
    if (kept) *kept = KeptProblem{{}, {}, {}, {}, 0, {}, kept->counts};
    return Status(VLM_ERROR_INTERNAL, std::string("HiGHS failed: ") + e.what());
  } catch (...) {
    if (kept) *kept = KeptProblem{{}, {}, {}, {}, 0, {}, kept->counts};
    return Status(VLM_ERROR_INTERNAL, "HiGHS failed with an unknown error");
  }

  // Presolve may stop at "infeasible or unbounded"; without dual reductions, or when the user
  // asks for rays, solve again without presolve to tell the two apart.
  if (!p.mip && Highs_getModelStatus(h) == kHighsModelStatusUnboundedOrInfeasible &&
      (ps.int_param("DualReductions") == 0 || ps.int_param("InfUnbdInfo") == 1)) {
    try {
      Highs_setStringOptionValue(h, "presolve", "off");
      rc = Highs_run(h);
    } catch (...) {
      return Status(VLM_ERROR_INTERNAL, "HiGHS failed while re-solving without presolve");
    }
  }
  end_run(h);
  const HighsInt ms = Highs_getModelStatus(h);
  HighsInt primal_status = 0, dual_status = 0, basis_valid = 0;
  Highs_getIntInfoValue(h, "primal_solution_status", &primal_status);
  Highs_getIntInfoValue(h, "dual_solution_status", &dual_status);
  Highs_getIntInfoValue(h, "basis_validity", &basis_valid);
  int64_t nodes = 0;
  HighsInt simplex_iters = 0, ipm_iters = 0;
  Highs_getInt64InfoValue(h, "mip_node_count", &nodes);
  Highs_getIntInfoValue(h, "simplex_iteration_count", &simplex_iters);
  Highs_getIntInfoValue(h, "ipm_iteration_count", &ipm_iters);
  const bool has_primal = primal_status == 2;
  const double node_limit = ps.dbl_param("NodeLimit");
  sol->status = map_status(ms, p.mip, node_limit < 2e9, static_cast<double>(nodes), node_limit, has_primal);
  sol->work = process_cpu_seconds() - cb.cpu_start;
  if (sol->status == VLM_INTERRUPTED) {
    switch (cb.reason) {
      case StopReason::kBound: sol->status = VLM_USER_OBJ_LIMIT; break;
      case StopReason::kWork: sol->status = VLM_WORK_LIMIT; break;
      case StopReason::kSoftMemory: sol->status = VLM_MEM_LIMIT; break;
      case StopReason::kHardMemory:
        return Status(VLM_ERROR_OUT_OF_MEMORY, "The optimization exceeded MemLimit (" +
                                                   format_double(ps.dbl_param("MemLimit")) + " GB)");
      default: break;
    }
  }
  if (rc == kHighsStatusError && sol->status == VLM_NUMERIC && !has_primal) {
    m.env().message("HiGHS reported an error while solving");
  }
  sol->runtime = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  sol->nodecount = static_cast<double>(nodes);
  // HiGHS reports -1 for a method that did not run. After a MIP, simplex_iteration_count holds
  // the LP iterations of the whole search (the "LP iterations" of its report).
  sol->itercount = std::max<HighsInt>(simplex_iters, 0);
  sol->baritercount = std::max<HighsInt>(ipm_iters, 0);

  const int n = d.num_vars(), mrows = d.num_constrs();
  bool kept_basis = false;
  std::vector<int> warm_rows;  // row statuses with the bound they sit at, for the next solve
  if (has_primal) {
    // Values go straight into the solution's arrays; the working problem's own columns and
    // rows beyond the user's are cut off afterwards, which copies nothing.
    sol->x.resize(p.ncol);
    sol->rc.resize(p.ncol);
    sol->slack.resize(p.nrow);
    sol->pi.resize(p.nrow);
    Highs_getSolution(h, sol->x.data(), sol->rc.data(), sol->slack.data(), sol->pi.data());
    if (phase.final_x != nullptr) *phase.final_x = sol->x;
    if (kept && p.mip) kept->incumbent = sol->x;
    sol->x.resize(n);
    sol->rc.resize(n);
    sol->slack.resize(mrows);
    sol->pi.resize(mrows);
    for (int i = 0; i < mrows; ++i) sol->slack[i] = d.rhs[i] - sol->slack[i];
    sol->sol_count = 1;
    Highs_getDoubleInfoValue(h, "objective_function_value", &sol->objval);
    if (p.mip) {
      Highs_getDoubleInfoValue(h, "mip_dual_bound", &sol->objbound);
      Highs_getDoubleInfoValue(h, "mip_gap", &sol->mipgap);
      if (!std::isfinite(sol->mipgap)) sol->mipgap = VLM_INFINITY;
    } else {
      sol->objbound = sol->objval;
    }
    // Duals keep HiGHS' sign convention, which is the usual one: for a minimisation a
    // binding '<' row has a non-positive dual.
    sol->has_duals = !sol->is_mip && dual_status == 2;
    if (!sol->has_duals) {
      sol->rc.clear();
      sol->pi.clear();
    }
    if (!sol->is_mip && basis_valid && sol->status == VLM_OPTIMAL && !phase.part) {
      sol->engine = kept ? kept->highs : fresh.share();
    }
    if (!sol->is_mip && basis_valid) {
      std::vector<HighsInt> cb(p.ncol), rb(p.nrow);
      Highs_getBasis(h, cb.data(), rb.data());
      if (phase.final_basis != nullptr) {
        phase.final_basis->cols.assign(cb.begin(), cb.end());
        phase.final_basis->rows.assign(rb.begin(), rb.end());
      }
      auto conv = [](HighsInt s) {
        switch (s) {
          case kHighsBasisStatusBasic:
            return 0;
          case kHighsBasisStatusUpper:
            return -2;
          case kHighsBasisStatusZero:
            return -3;
          default:
            return -1;
        }
      };
      sol->has_basis = true;
      kept_basis = true;
      sol->vbasis.resize(n);
      sol->cbasis.resize(mrows);
      for (int j = 0; j < n; ++j) sol->vbasis[j] = conv(cb[j]);
      warm_rows.resize(mrows);
      for (int i = 0; i < mrows; ++i) {
        warm_rows[i] = conv(rb[i]);
        sol->cbasis[i] = warm_rows[i] == 0 ? 0 : -1;
      }
    }
    // A cutoff is ours to apply where HiGHS does not: it ignores it on continuous models once
    // presolve runs, and we do not pass it for maximisations.
    const double cutoff = ps.dbl_param("Cutoff");
    if (sol->status == VLM_OPTIMAL && cutoff < VLM_INFINITY && cutoff > -VLM_INFINITY) {
      bool worse = d.sense == -1 ? sol->objval < cutoff : sol->objval > cutoff;
      if (worse) {
        sol->status = VLM_CUTOFF;
        sol->sol_count = 0;
        sol->x.clear();
        sol->slack.clear();
        sol->rc.clear();
        sol->pi.clear();
        sol->has_duals = false;
        sol->has_basis = false;
      }
    }
  } else if (p.mip && sol->status == VLM_INFEASIBLE && ps.dbl_param("Cutoff") < VLM_INFINITY &&
             ps.dbl_param("Cutoff") > -VLM_INFINITY) {
    // HiGHS uses the cutoff as its first bound: "nothing better than the cutoff".
    sol->status = VLM_CUTOFF;
  }
  if (kept_basis && !phase.part) m.set_warm_basis({sol->vbasis, warm_rows});
  if (sol->is_mip && sol->sol_count > 0) fill_pool(*sol, cb.found, d.sense, ps.int_param("PoolSolutions"));
  if (!p.mip && ps.int_param("InfUnbdInfo") == 1) certificates(h, d, p, *sol);
  log_summary(m.env(), *sol);
  return sol;
}

}  // namespace

}  // namespace vlm::engine
