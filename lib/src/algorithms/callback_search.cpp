#include "algorithms/callback_search.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>

#include "algorithms/lazy_pool.h"
#include "algorithms/pseudo_costs.h"
#include "algorithms/search_solution.h"
#include "attrs/attr_table.h"
#include "core/platform.h"
#include "core/text.h"
#include "env/env.h"
#include "interfaces/highs_c_api.h"
#include "reform/convexity.h"

namespace vlm::algorithms {

namespace {

// Engine runs call the hooks' at_poll at most this often: often enough for a terminate to
// feel immediate, rarely enough that a callback in an interpreted language costs nothing.
constexpr double kPollSeconds = 0.05;

// The problem without the held-out rows.
reform::WorkingProblem without_rows(const reform::WorkingProblem& p, const std::vector<int>& held_out) {
  reform::WorkingProblem q = p;
  if (held_out.empty()) return q;
  q.rlo.clear();
  q.rup.clear();
  q.astart.assign(1, 0);
  q.aindex.clear();
  q.aval.clear();
  q.nrow = 0;
  std::size_t next = 0;
  for (int i = 0; i < p.nrow; ++i) {
    if (next < held_out.size() && held_out[next] == i) {
      ++next;
      continue;
    }
    std::vector<int> ind(p.aindex.begin() + p.astart[i], p.aindex.begin() + p.astart[i + 1]);
    std::vector<double> val(p.aval.begin() + p.astart[i], p.aval.begin() + p.astart[i + 1]);
    q.add_row(ind, val, p.rlo[i], p.rup[i]);
  }
  return q;
}

// ---- restart loop -----------------------------------------------------------------------------

class RestartLoop {
 public:
  RestartLoop(void* h, const reform::WorkingProblem& base, LazyCore& core, SearchHooks* hooks,
              const CallbackSettings& s)
      : h_(h), p_(base), core_(core), hooks_(hooks), s_(s) {}

  StatusOr<SearchResult> run();
  // Runs as a heuristic inside another search: progress comes from it, at_progress is left
  // to it and the loop logs nothing.
  void nest_in(std::function<SearchProgress()> outer) { outer_ = std::move(outer); }
  // Starts from what an earlier search found: its incumbents, bound and node count.
  void seed(const SearchResult& r, bool fixings) {
    seeded_fixings_ = fixings;
    if (r.has_solution) {
      r_.has_solution = true;
      r_.x = r.x;
      r_.objval = r.objval;
      r_.incumbents = r.incumbents;
      if (static_cast<int>(r_.incumbents.size()) >= s_.search.solution_limit) limit_hit_ = true;
    }
    if (std::isfinite(r.bound)) bound_ = p_.sense * r.bound;
    nodes_before_ = r.nodes;
  }

 private:
  static void callback(int type, const char* msg, const HighsCallbackDataOut* out, HighsCallbackDataIn* in,
                       void* user);
  void on_solution(const HighsCallbackDataOut* out);
  bool better(double a, double b) const { return p_.sense * a < p_.sense * b; }
  bool stop_requested() const {
    return core_.terminate || (s_.search.stop != nullptr && s_.search.stop->load(std::memory_order_relaxed));
  }
  SearchProgress progress(const HighsCallbackDataOut* out) const;
  void accept(const std::vector<double>& x, double obj);
  // Drops the incumbents that a lazy row cuts off (the best one left stays); true when the
  // incumbent itself was dropped.
  bool drop_invalid() {
    if (!r_.has_solution || !core_.violates_any(r_.x)) return false;
    log("The incumbent violates a lazy constraint added after it was found; it is dropped");
    auto& inc = r_.incumbents;
    inc.erase(std::remove_if(inc.begin(), inc.end(), [&](const auto& e) { return core_.violates_any(e.second); }),
              inc.end());
    r_.has_solution = !inc.empty();
    if (r_.has_solution) {
      r_.objval = inc.back().first;
      r_.x = inc.back().second;
    }
    return true;
  }
  void log(const std::string& line) const {
    if (s_.search.env && !outer_) s_.search.env->message(line);
  }

  void* h_;
  const reform::WorkingProblem& p_;
  LazyCore& core_;
  SearchHooks* hooks_;
  const CallbackSettings& s_;
  SearchResult r_;
  bool tainted_ = false;   // this run took a candidate that a lazy row cuts off
  // Whether a rejected candidate ends the run at once (HiGHS then restarts with the new rows)
  // or the run goes on collecting rows from every candidate it finds.
  // Measured on the TSP benchmark: interrupting made 100 cities take 47 runs and 75 s, going on
  // 9 runs and 21 s, so runs go on; the switch stays for callers that prefer early rows.
  bool interrupt_on_reject_ = false;
  bool limit_hit_ = false;  // the solution limit (or BestObjStop) was reached
  bool objective_stop_ = false;  // BestObjStop or BestBdStop was met
  // The objective stops in the minimised sense (+inf: off).
  double cutoff_ = INFINITY, obj_stop_ = -INFINITY, bd_stop_ = INFINITY;
  std::vector<double> pending_start_;  // an accepted heuristic point to hand to HiGHS
  double nodes_before_ = 0, bound_ = -INFINITY;  // bound: minimised sense
  double start_ = 0.0;
  double last_poll_ = 0.0;  // when the hooks were last polled from inside a run
  std::size_t cursor_ = 0;  // active rows already in HiGHS' model
  std::function<SearchProgress()> outer_;
  bool seeded_fixings_ = false;  // the problem's bounds exclude solutions no better than the seed
};

SearchProgress RestartLoop::progress(const HighsCallbackDataOut* out) const {
  if (outer_) return outer_();
  SearchProgress pr;
  const double none = p_.sense * VLM_INFINITY;
  pr.obj_best = r_.has_solution ? r_.objval : none;
  double b = bound_;
  if (out != nullptr && std::isfinite(out->mip_dual_bound)) b = std::max(b, p_.sense * out->mip_dual_bound);
  if (r_.has_solution) b = std::min(b, p_.sense * r_.objval);
  pr.obj_bound = std::isfinite(b) ? p_.sense * b : -none;
  pr.nodes = nodes_before_ + (out != nullptr ? static_cast<double>(out->mip_node_count) : 0.0);
  pr.solutions = static_cast<double>(r_.incumbents.size());
  pr.cuts = core_.size();
  pr.iterations = r_.lp_iterations + (out != nullptr ? static_cast<double>(out->mip_total_lp_iterations) : 0.0);
  pr.runtime = wall_seconds() - start_;
  return pr;
}

void RestartLoop::accept(const std::vector<double>& x, double obj) {
  if (r_.has_solution && !better(obj, r_.objval)) return;
  if (p_.sense * obj > cutoff_) return;  // of no interest to the caller
  r_.has_solution = true;
  r_.x = x;
  r_.objval = obj;
  r_.incumbents.emplace_back(obj, x);
  if (static_cast<int>(r_.incumbents.size()) >= s_.search.solution_limit) limit_hit_ = true;
  if (p_.sense * obj <= obj_stop_) limit_hit_ = objective_stop_ = true;
}

void RestartLoop::on_solution(const HighsCallbackDataOut* out) {
  if (out == nullptr || out->mip_solution == nullptr || out->mip_solution_size < p_.ncol) return;
  // After a terminate HiGHS may still report what it finds before it reaches the interrupt.
  if (stop_requested()) return;
  std::vector<double> x(out->mip_solution, out->mip_solution + p_.ncol);
  // HiGHS reports the start it was given again: it was checked when it was accepted.
  if (r_.has_solution && x == r_.x) return;
  for (int j = 0; j < p_.ncol; ++j) {
    if (p_.integrality[j] == 1) x[j] = std::round(x[j]);
  }
  if (core_.check_candidate(x, progress(out))) {
    accept(x, core_.objective(x));
  } else {
    tainted_ = true;
  }
  std::vector<double> hx;
  if (core_.has_heuristic() && core_.try_heuristic(hx, progress(out))) {
    accept(hx, core_.objective(hx));
    if (r_.x == hx) pending_start_ = hx;
  }
}

void RestartLoop::callback(int type, const char* msg, const HighsCallbackDataOut* out, HighsCallbackDataIn* in,
                           void* user) {
  auto* self = static_cast<RestartLoop*>(user);
  if (type == kHighsCallbackMipSolution) {
    self->on_solution(out);
    return;
  }
  if (type == kHighsCallbackLogging) {
    // HiGHS's own lines of each run, as they would read without a callback.
    if (msg != nullptr && self->s_.search.env != nullptr) {
      std::string line(msg);
      while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
      self->s_.search.env->message(line);
    }
    return;
  }
  if (type == kHighsCallbackCallbackMipUserSolution) {
    if (in != nullptr && !self->pending_start_.empty()) {
      Highs_setCallbackSolution(in, static_cast<HighsInt>(self->pending_start_.size()), self->pending_start_.data());
      self->pending_start_.clear();
    }
    return;
  }
  if (in == nullptr) return;
  // HiGHS's MIP reports no simplex interrupts from its own LPs: its MIP interrupts poll too.
  if ((type == kHighsCallbackSimplexInterrupt || type == kHighsCallbackMipInterrupt) && self->hooks_ != nullptr &&
      !self->outer_ && wall_seconds() - self->last_poll_ >= kPollSeconds) {
    self->last_poll_ = wall_seconds();
    HookReply reply;
    self->hooks_->at_poll(reply);
    self->core_.take_reply(reply, nullptr);
  }
  if (type == kHighsCallbackMipInterrupt && self->hooks_ != nullptr && !self->outer_) {
    HookReply reply;
    self->hooks_->at_progress(self->progress(out), reply);
    self->core_.take_reply(reply, nullptr);
    std::vector<double> hx;
    if (self->core_.has_heuristic() && self->core_.try_heuristic(hx, self->progress(out))) {
      self->accept(hx, self->core_.objective(hx));
      if (self->r_.x == hx) self->pending_start_ = hx;
    }
  }
  // A rejected candidate may already prune HiGHS' tree: stop the run at once. HiGHS keeps the
  // input between runs, so the flag is cleared when there is no reason to stop.
  if (type == kHighsCallbackMipInterrupt && out != nullptr && std::isfinite(out->mip_dual_bound) &&
      self->p_.sense * out->mip_dual_bound >= self->bd_stop_) {
    self->limit_hit_ = self->objective_stop_ = true;
  }
  const bool stop = self->stop_requested() || self->limit_hit_ ||
                    (type == kHighsCallbackMipInterrupt && self->tainted_ && self->interrupt_on_reject_);
  in->user_interrupt = stop ? 1 : 0;
}

StatusOr<SearchResult> RestartLoop::run() {
  start_ = wall_seconds();
  const SearchSettings& ss = s_.search;
  if (std::isfinite(ss.cutoff)) cutoff_ = p_.sense * ss.cutoff;
  if (std::isfinite(ss.best_obj_stop)) obj_stop_ = p_.sense * ss.best_obj_stop;
  if (std::isfinite(ss.best_bd_stop)) bd_stop_ = p_.sense * ss.best_bd_stop;
  std::vector<HighsInt> integrality(p_.integrality.begin(), p_.integrality.end());
  HighsInt rc = Highs_passModel(h_, p_.ncol, p_.nrow, static_cast<HighsInt>(p_.aval.size()), 0,
                                kHighsMatrixFormatRowwise, kHighsHessianFormatTriangular,
                                p_.sense == -1 ? kHighsObjSenseMaximize : kHighsObjSenseMinimize, p_.objcon,
                                p_.cost.data(), p_.lower.data(), p_.upper.data(), p_.rlo.data(), p_.rup.data(),
                                p_.astart.data(), p_.aindex.data(), p_.aval.data(), nullptr, nullptr, nullptr,
                                integrality.data());
  if (rc == kHighsStatusError) return Status(VLM_ERROR_INTERNAL, "HiGHS rejected the model without its lazy rows");
  // HiGHS's log of each run reaches ours (nested in another search, the loop stays quiet).
  const bool highs_log = s_.highs_log && s_.search.env != nullptr && !outer_;
  Highs_setBoolOptionValue(h_, "output_flag", highs_log ? 1 : 0);
  Highs_setBoolOptionValue(h_, "log_to_console", 0);
  Highs_setCallback(h_, callback, this);
  if (highs_log) Highs_startCallback(h_, kHighsCallbackLogging);
  Highs_startCallback(h_, kHighsCallbackMipSolution);
  Highs_startCallback(h_, kHighsCallbackMipInterrupt);
  Highs_startCallback(h_, kHighsCallbackSimplexInterrupt);
  Highs_startCallback(h_, kHighsCallbackCallbackMipUserSolution);
  int status = 0;
  for (;;) {
    tainted_ = false;
    if (hooks_ != nullptr && !outer_) {
      // Progress once per run: HiGHS may settle a run in presolve, before any node.
      HookReply reply;
      hooks_->at_progress(progress(nullptr), reply);
      core_.take_reply(reply, nullptr);
      std::vector<double> hx;
      if (core_.has_heuristic() && core_.try_heuristic(hx, progress(nullptr))) accept(hx, core_.objective(hx));
      if (!core_.error.ok()) return core_.error;
      if (stop_requested() || limit_hit_) {
        status = stop_requested() ? VLM_INTERRUPTED : objective_stop_ ? VLM_USER_OBJ_LIMIT : VLM_SOLUTION_LIMIT;
        break;
      }
    }
    if (limit_hit_) {
      status = VLM_SOLUTION_LIMIT;
      break;
    }
    // Rows known before the run (held-out rows that the start violates cannot be known yet).
    for (int i : core_.take_active(cursor_)) {
      const PoolRow& row = core_.row(i);
      Highs_addRow(h_, row.lo, row.up, static_cast<HighsInt>(row.ind.size()), row.ind.data(), row.val.data());
    }
    // The start of this run must satisfy them: an incumbent they cut off is dropped now.
    drop_invalid();
    if (r_.has_solution) Highs_setSolution(h_, r_.x.data(), nullptr, nullptr, nullptr);
    const double left = s_.search.time_limit - (wall_seconds() - start_);
    if (std::isfinite(left)) Highs_setDoubleOptionValue(h_, "time_limit", Highs_getRunTime(h_) + std::max(left, 0.0));
    if (std::isfinite(s_.search.node_limit)) {
      const double n = std::max(0.0, s_.search.node_limit - nodes_before_);
      Highs_setIntOptionValue(h_, "mip_max_nodes", static_cast<HighsInt>(std::min(n, 2e9)));
    }
    const int rows_before = core_.size();
    try {
      rc = Highs_run(h_);
    } catch (...) {
      return Status(VLM_ERROR_INTERNAL, "HiGHS failed while solving the model without its lazy rows");
    }
    if (!core_.error.ok()) return core_.error;
    ++core_.stats.runs;
    const HighsInt ms = Highs_getModelStatus(h_);
    int64_t nodes = 0;
    HighsInt iters = 0;
    double dual = -INFINITY;
    Highs_getInt64InfoValue(h_, "mip_node_count", &nodes);
    Highs_getIntInfoValue(h_, "simplex_iteration_count", &iters);
    Highs_getDoubleInfoValue(h_, "mip_dual_bound", &dual);
    nodes_before_ += static_cast<double>(std::max<int64_t>(nodes, 0));
    r_.lp_iterations += std::max<HighsInt>(iters, 0);
    // Every run solves a relaxation of the full problem, so its bound holds for it.
    if (ms != kHighsModelStatusInfeasible && std::isfinite(dual)) bound_ = std::max(bound_, p_.sense * dual);
    // HiGHS prunes with its incumbent, whose value only falls during a run: when the final
    // incumbent is accepted, every pruning was sound and the run's result stands, whatever
    // candidates were rejected on the way. Without an incumbent nothing was pruned by one.
    HighsInt primal = 0;
    Highs_getIntInfoValue(h_, "primal_solution_status", &primal);
    bool proven = primal != 2;
    if (primal == 2 && !stop_requested()) {
      std::vector<double> x(p_.ncol);
      Highs_getSolution(h_, x.data(), nullptr, nullptr, nullptr);
      for (int j = 0; j < p_.ncol; ++j) {
        if (p_.integrality[j] == 1) x[j] = std::round(x[j]);
      }
      if (r_.has_solution && x == r_.x) {
        proven = true;
      } else if (core_.check_candidate(x, progress(nullptr))) {
        // Accepted: the run stands even when a seeded incumbent is better than its point.
        accept(x, core_.objective(x));
        proven = true;
      }
    }
    if (!core_.error.ok()) return core_.error;
    // A lazy row added later may cut off the incumbent itself.
    if (drop_invalid()) proven = false;
    log("Run " + std::to_string(core_.stats.runs) + ": HiGHS status " + std::to_string(ms) + ", " +
        std::to_string(core_.size() - rows_before) + " lazy rows added, best " +
        (r_.has_solution ? log_number(r_.objval) : std::string("-")) + ", bound " + log_number(p_.sense * bound_) + ", " +
        log_number(wall_seconds() - start_) + "s");
    if (stop_requested()) {
      status = VLM_INTERRUPTED;
      break;
    }
    if (limit_hit_) {
      status = objective_stop_ ? VLM_USER_OBJ_LIMIT : VLM_SOLUTION_LIMIT;
      break;
    }
    if (ms == kHighsModelStatusTimeLimit || wall_seconds() - start_ >= s_.search.time_limit) {
      status = VLM_TIME_LIMIT;
      break;
    }
    if (std::isfinite(s_.search.node_limit) && nodes_before_ >= s_.search.node_limit) {
      status = VLM_NODE_LIMIT;
      break;
    }
    if (!proven) continue;
    switch (ms) {
      case kHighsModelStatusOptimal: status = r_.has_solution ? VLM_OPTIMAL : VLM_NUMERIC; break;
      // HiGHS calling its own start infeasible is a numerical failure.
      // Within bounds that only solutions better than the seed satisfy, infeasible proves it.
      case kHighsModelStatusInfeasible:
        status = !r_.has_solution ? VLM_INFEASIBLE : seeded_fixings_ ? VLM_OPTIMAL : VLM_SUBOPTIMAL;
        break;
      case kHighsModelStatusUnboundedOrInfeasible: status = VLM_INF_OR_UNBD; break;
      case kHighsModelStatusUnbounded: status = VLM_UNBOUNDED; break;
      case kHighsModelStatusInterrupt: status = VLM_INTERRUPTED; break;
      default: status = r_.has_solution ? VLM_SUBOPTIMAL : VLM_NUMERIC; break;
    }
    // Nothing at least as good as the cutoff: HiGHS' optimum, if any, was worse.
    if (!r_.has_solution && std::isfinite(cutoff_) &&
        (ms == kHighsModelStatusOptimal || ms == kHighsModelStatusInfeasible)) {
      status = VLM_CUTOFF;
    }
    break;
  }
  r_.status = status;
  r_.nodes = nodes_before_;
  r_.relaxations = core_.stats.runs;
  r_.cuts = core_.size();
  core_.stats.lazy_rows = core_.size();
  double b = bound_;
  if (r_.has_solution && (status == VLM_OPTIMAL || p_.sense * r_.objval < b)) b = p_.sense * r_.objval;
  if (status == VLM_INFEASIBLE) b = INFINITY;
  if (status == VLM_CUTOFF) b = cutoff_;
  r_.bound = p_.sense * b;
  if (!r_.has_solution) r_.x.clear();
  r_.highs_seconds = Highs_getRunTime(h_);
  log("Restart loop: " + std::to_string(core_.stats.runs) + " HiGHS runs, " + log_number(r_.nodes) + " nodes, " +
      std::to_string(core_.size()) + " lazy rows, " + std::to_string(core_.stats.rejected) +
      " rejected candidates in " + log_number(wall_seconds() - start_) + "s");
  return std::move(r_);
}

// ---- branch and cut ---------------------------------------------------------------------------

// Hands every relaxation point to the hooks and separates the lazy rows from it.
class LazySeparator : public Separator {
 public:
  LazySeparator(LazyCore& core, const reform::WorkingProblem& p, SearchHooks* hooks, bool node_events, double int_tol)
      : core_(core), p_(p), hooks_(hooks), node_events_(node_events), int_tol_(int_tol) {}
  void set_search(BranchAndBound* search) { search_ = search; }
  // Columns nonzero in some relaxation point so far (empty before the first).
  const std::vector<char>& support() const { return support_; }

  bool separate(const std::vector<double>& x, std::vector<Cut>& out) override {
    const SearchProgress pr = search_->progress();
    if (support_.empty()) support_.assign(x.size(), 0);
    for (std::size_t j = 0; j < x.size(); ++j) support_[j] = support_[j] || std::fabs(x[j]) > 1e-6;
    if (hooks_ != nullptr && node_events_) {
      HookReply reply;
      user_x_.assign(x.begin(), x.begin() + p_.user_cols);
      hooks_->at_node(pr, VLM_OPTIMAL, user_x_, reply);
      core_.take_reply(reply, nullptr);
      heuristic(pr);
    }
    bool violated = core_.separate_held(x) > 0;
    const bool integral = integrality_satisfied(p_, x, int_tol_);
    // An integral point that the held-out rows accept is a candidate for the hooks.
    if (integral && !violated) violated = !core_.check_candidate(x, pr);
    for (int i : core_.take_active(cursor_)) {
      const PoolRow& r = core_.row(i);
      // Rows the hooks added join the relaxation; a point they cut off is not accepted.
      violated = violated || violation(r, x) > 1e-9;
      Cut c;
      c.ind = r.ind;
      c.val = r.val;
      c.lo = r.lo;
      c.up = r.up;
      out.push_back(std::move(c));
    }
    recheck();
    if (core_.should_halt()) core_.halt = true;
    heuristic(pr);
    return !violated;
  }

  // A restarted search starts with every row known active.
  void initial_cuts(std::vector<Cut>& out) override {
    for (int i : core_.take_active(cursor_)) {
      const PoolRow& r = core_.row(i);
      out.push_back(Cut{r.ind, r.val, r.lo, r.up, -1, 1.0});
    }
  }

  // Incumbents that rows added since cut off are dropped from the search.
  void recheck() {
    if (!core_.rows_added_since_check()) return;
    search_->drop_incumbents([this](const std::vector<double>& x) { return core_.violates_any(x); });
  }

 private:
  void heuristic(const SearchProgress& pr) {
    std::vector<double> x;
    if (core_.has_heuristic() && core_.try_heuristic(x, pr)) search_->offer_incumbent(x, core_.objective(x));
  }

  LazyCore& core_;
  const reform::WorkingProblem& p_;
  SearchHooks* hooks_;
  bool node_events_;
  double int_tol_;
  BranchAndBound* search_ = nullptr;
  std::vector<double> user_x_;
  std::size_t cursor_ = 0;  // active rows already in the relaxation
  std::vector<char> support_;
};

// HiGHS's MIP as a primal heuristic, sound because every candidate it finds is checked like
// any other: the restart loop on the problem with the integer columns that no relaxation point
// has used fixed at their lower bound. Its rejected candidates also hand their lazy rows to the
// search. Returns true with `x` when it found an accepted point.
bool support_heuristic(const reform::WorkingProblem& base, const std::vector<char>& support, LazyCore& core,
                       SearchHooks* hooks, const CallbackSettings& cs, double budget,
                       std::function<SearchProgress()> progress, SearchResult& found) {
  reform::WorkingProblem sub = base;
  for (int j = 0; j < sub.ncol; ++j) {
    if (sub.integrality[j] != 1 || (j < static_cast<int>(support.size()) && support[j])) continue;
    if (std::isfinite(sub.lower[j])) {
      sub.upper[j] = sub.lower[j];
    } else if (std::isfinite(sub.upper[j])) {
      sub.lower[j] = sub.upper[j];
    }
  }
  void* h = Highs_create();
  if (h == nullptr) return false;
  Highs_setBoolOptionValue(h, "output_flag", 0);
  Highs_setDoubleOptionValue(h, "mip_rel_gap", cs.search.mip_gap);
  Highs_setDoubleOptionValue(h, "mip_abs_gap", cs.search.mip_gap_abs);
  CallbackSettings hs = cs;
  hs.search.time_limit = budget;
  hs.search.node_limit = INFINITY;
  hs.search.solution_limit = 2000000000;
  // The subproblem's bound says nothing about the whole problem's.
  hs.search.best_bd_stop = INFINITY;
  hs.search.stop = &core.halt;
  RestartLoop loop(h, sub, core, hooks, hs);
  loop.nest_in(std::move(progress));
  auto r = loop.run();
  Highs_destroy(h);
  if (!r.ok() || !r->has_solution) return false;
  found = std::move(*r);
  return true;
}

// Relays the HiGHS events of the branch and cut's relaxation solves: the hooks are polled
// (where = POLLING) and a long solve is interrupted when the search must stop.
struct RelaxationTap {
  SearchHooks* hooks = nullptr;
  LazyCore* core = nullptr;
  const std::atomic<bool>* outer = nullptr;
  double last_poll = 0.0;

  static void callback(int, const char*, const HighsCallbackDataOut*, HighsCallbackDataIn* in, void* user) {
    auto* self = static_cast<RelaxationTap*>(user);
    if (in == nullptr) return;
    if (self->hooks != nullptr && wall_seconds() - self->last_poll >= kPollSeconds) {
      self->last_poll = wall_seconds();
      HookReply reply;
      self->hooks->at_poll(reply);
      self->core->take_reply(reply, nullptr);
      if (self->core->should_halt()) self->core->halt = true;
    }
    const bool stop = self->core->halt.load() || (self->outer != nullptr && self->outer->load());
    in->user_interrupt = stop ? 1 : 0;
  }
};

// One branch and cut from a fresh tree with every active row in its root; `carried` (may be
// null) is an incumbent found before. `dropped`: an incumbent was dropped after it pruned.
using PhaseEnd = std::function<bool(const SearchProgress&)>;

StatusOr<SearchResult> branch_and_cut_once(void* h, const reform::WorkingProblem& base, LazyCore& core,
                                           SearchHooks* hooks, const CallbackSettings& cs,
                                           const SearchResult* carried, bool& dropped, const PhaseEnd& end_phase) {
  SearchSettings s = cs.search;
  // Its points are only judged by the callback at MIPSOL, which a point from outside the tree
  // must not reach before the tree's own: the search's heuristics stay off.
  s.heuristics = false;
  // Propagation through the degree rows of the 100-city TSP changed the LP path for the worse
  // (611 nodes instead of 366, docs/branch-and-bound.md): it stays off here until it pays.
  s.propagate = false;
  const std::atomic<bool>* outer = s.stop;
  s.stop = &core.halt;
  s.reduced_cost_fixing = true;
  s.keep_pending_cuts = true;
  if (!base.mip) s.max_rounds = 100000;
  BranchAndBound* sp = nullptr;
  LazySeparator* lazy_sep = nullptr;
  // Nodes processed before the next run of the MIP heuristic: short searches (the 50-city TSP
  // closes in about 30 nodes) do without it, long ones get it at 50, 200, 800, ... nodes.
  double next_heuristic = 50;
  const double start = wall_seconds();
  bool offered = carried == nullptr;
  s.before_node = [&]() {
    if (outer != nullptr && outer->load(std::memory_order_relaxed)) core.halt = true;
    if (!offered && sp != nullptr) {
      offered = true;
      sp->offer_incumbent(carried->x, carried->objval);
    }
    if (base.mip && base.qval.empty() && sp != nullptr && lazy_sep != nullptr && !core.halt && sp->progress().nodes >= next_heuristic &&
        !lazy_sep->support().empty()) {
      // Spend about a quarter of the time so far (at least half a second) each time the node
      // count has grown fourfold.
      next_heuristic *= 4;
      const double spent = wall_seconds() - start;
      const double budget = std::min(std::max(0.5, 0.25 * spent), (s.time_limit - spent) * 0.5);
      // The columns some relaxation point used, and as many again (three times) of those whose
      // reduced cost says they are the cheapest to bring in.
      std::vector<char> support = lazy_sep->support();
      const std::vector<double>& rc = sp->reduced_costs();
      if (rc.size() == support.size()) {
        std::vector<std::pair<double, int>> order;
        int used = 0;
        for (int j = 0; j < base.ncol; ++j) {
          if (support[j]) {
            ++used;
          } else if (base.integrality[j] == 1) {
            order.push_back({std::fabs(rc[j]), j});
          }
        }
        const std::size_t extra = std::min(order.size(), static_cast<std::size_t>(3 * used));
        std::partial_sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(extra), order.end());
        for (std::size_t k = 0; k < extra; ++k) support[order[k].second] = 1;
      }
      SearchResult found;
      if (budget > 0 && support_heuristic(base, support, core, hooks, cs, budget,
                                          [sp]() { return sp->progress(); }, found)) {
        sp->offer_incumbent(found.x, found.objval);
      }
      if (!core.error.ok()) core.halt = true;
    }
    if (end_phase && sp != nullptr && end_phase(sp->progress())) {
      core.proceed = true;
      core.halt = true;
    }
    if (hooks == nullptr || sp == nullptr) return;
    HookReply reply;
    const SearchProgress pr = sp->progress();
    hooks->at_progress(pr, reply);
    core.take_reply(reply, nullptr);
    if (lazy_sep != nullptr) lazy_sep->recheck();
    std::vector<double> x;
    if (core.has_heuristic() && core.try_heuristic(x, pr)) sp->offer_incumbent(x, core.objective(x));
    if (core.should_halt()) core.halt = true;
  };
  // Nodes whose relaxation gives no point still reach the hooks, with their status.
  s.node_status = [&](int status) {
    if (hooks == nullptr || !cs.node_events || sp == nullptr) return;
    HookReply reply;
    hooks->at_node(sp->progress(), status, {}, reply);
    core.take_reply(reply, nullptr);
    if (core.should_halt()) core.halt = true;
  };
  BranchAndBound search(h, base, s);
  sp = &search;
  search.add_branching_rule(integer_branching_rule(base, s.int_tol, &search, cs.var_branch, s.branch_priority));
  auto sep = std::make_unique<LazySeparator>(core, base, hooks, cs.node_events, s.int_tol);
  sep->set_search(&search);
  lazy_sep = sep.get();
  search.add_separator(std::move(sep));
  RelaxationTap tap{hooks, &core, outer, 0.0};
  Highs_setCallback(h, RelaxationTap::callback, &tap);
  Highs_startCallback(h, kHighsCallbackSimplexInterrupt);
  Highs_startCallback(h, kHighsCallbackIpmInterrupt);
  auto result = search.run();
  Highs_stopCallback(h, kHighsCallbackSimplexInterrupt);
  Highs_stopCallback(h, kHighsCallbackIpmInterrupt);
  dropped = search.dropped();
  if (!core.error.ok()) return core.error;
  return result;
}

// Branch and cut; when an incumbent that had pruned nodes is dropped and the tree can no longer
// prove its result, the search starts again with every row known and the best incumbent left.
StatusOr<SearchResult> branch_and_cut(void* h, const reform::WorkingProblem& base, LazyCore& core, SearchHooks* hooks,
                                      const CallbackSettings& cs, const SearchResult* seed,
                                      const PhaseEnd& end_phase = {}) {
  const double t0 = wall_seconds();
  SearchResult carried;
  if (seed != nullptr) carried = *seed;
  double nodes = 0;
  for (int attempt = 0;; ++attempt) {
    CallbackSettings run = cs;
    run.search.time_limit = cs.search.time_limit - (wall_seconds() - t0);
    run.search.node_limit = cs.search.node_limit - nodes;
    bool dropped = false;
    auto r = branch_and_cut_once(h, base, core, hooks, run, carried.has_solution ? &carried : nullptr, dropped,
                                 end_phase);
    if (!r.ok()) return r;
    r->nodes += nodes;
    const bool unproven = r->status == VLM_SUBOPTIMAL || r->status == VLM_NUMERIC;
    if (!dropped || !unproven || core.halt || attempt >= 3) return r;
    if (cs.search.env) {
      cs.search.env->message("An incumbent dropped for a later lazy constraint had pruned nodes: the search starts "
                             "again with " + std::to_string(core.size()) + " lazy rows");
    }
    nodes = r->nodes;
    carried = std::move(*r);
  }
}

// Branch and cut up to switch_nodes nodes, then the restart loop on `h` (the branch and cut's
// instance, reloaded) with every active row and the incumbent as its start.
StatusOr<SearchResult> hybrid(void* h, const reform::WorkingProblem& base, LazyCore& core, SearchHooks* hooks,
                              const CallbackSettings& cs, const SearchResult* seed) {
  CallbackSettings first = cs;
  if (cs.switch_rule == SwitchRule::kNodes) first.search.node_limit = std::min(cs.search.node_limit, cs.switch_nodes);
  const double t0 = wall_seconds();
  // The other rules watch the search's progress and end the phase as a proceed would.
  double window_start = 0, window_rows = core.size(), window_gap = INFINITY;
  auto gap_of = [](const SearchProgress& pr) {
    const double g = std::fabs(pr.obj_best - pr.obj_bound);
    return std::fabs(pr.obj_best) >= VLM_INFINITY ? INFINITY : g;
  };
  PhaseEnd end_phase;
  if (cs.switch_rule == SwitchRule::kSeconds) {
    end_phase = [&](const SearchProgress&) { return wall_seconds() - t0 >= cs.switch_seconds; };
  } else if (cs.switch_rule == SwitchRule::kStall || cs.switch_rule == SwitchRule::kGap) {
    end_phase = [&](const SearchProgress& pr) {
      if (pr.nodes - window_start < cs.switch_window) return false;
      const bool rows_stalled = core.size() == window_rows;
      const double gap = gap_of(pr);
      const bool gap_stalled = std::isfinite(window_gap) && window_gap - gap < cs.switch_gap * window_gap;
      window_start = pr.nodes;
      window_rows = core.size();
      window_gap = gap;
      return cs.switch_rule == SwitchRule::kStall ? rows_stalled : gap_stalled;
    };
  }
  char presolve[kHighsMaximumStringLength] = "choose";
  Highs_getStringOptionValue(h, "presolve", presolve);
  // A proceed from the hooks ends the branch and cut phase early.
  core.proceed = false;
  core.proceed_ends_phase = true;
  auto result = branch_and_cut(h, base, core, hooks, first, seed, end_phase);
  core.proceed_ends_phase = false;
  const bool outer_stop = cs.search.stop != nullptr && cs.search.stop->load();
  const bool proceeded = result.ok() && result->status == VLM_INTERRUPTED && core.proceed && !core.terminate &&
                         !outer_stop && core.error.ok();
  const bool budget_spent = result.ok() && result->status == VLM_NODE_LIMIT &&
                            first.search.node_limit < cs.search.node_limit;
  if (!result.ok() || !(proceeded || budget_spent)) {
    return result;
  }
  core.halt = false;
  core.proceed = false;
  if (cs.search.env) {
    cs.search.env->message("Branch and cut handed over to HiGHS's MIP after " + log_number(result->nodes) +
                           " nodes with " + std::to_string(core.size()) + " lazy rows" +
                           (proceeded ? " (the callback proceeded)" : ""));
  }
  // The branch and cut turned presolve off for its warm starts.
  Highs_setStringOptionValue(h, "presolve", presolve);
  CallbackSettings rest = cs;
  rest.search.time_limit = cs.search.time_limit - (wall_seconds() - t0);
  // Columns the root's reduced costs fix for every better solution are fixed for HiGHS.
  reform::WorkingProblem fixed = base;
  for (const BoundChange& b : result->root_fixings) {
    fixed.lower[b.col] = std::max(fixed.lower[b.col], b.lower);
    fixed.upper[b.col] = std::min(fixed.upper[b.col], b.upper);
  }
  const bool fixings = !result->root_fixings.empty();
  if (cs.search.env) cs.search.env->message(std::to_string(result->root_fixings.size()) + " columns fixed by reduced cost");
  RestartLoop loop(h, fixed, core, hooks, rest);
  loop.seed(*result, fixings);
  return loop.run();
}

}  // namespace

StatusOr<SearchResult> callback_search(void* h, const reform::WorkingProblem& p, const std::vector<int>& held_out,
                                       SearchHooks* hooks, const CallbackSettings& given, CallbackStats* stats) {
  CallbackSettings settings = given;
  HighsInt output = 0;
  Highs_getBoolOptionValue(h, "output_flag", &output);
  settings.highs_log = output != 0;
  for (int i : held_out) {
    if (i < 0 || i >= p.nrow) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, "Lazy row index " + std::to_string(i) + " is out of range");
    }
  }
  const reform::WorkingProblem base = without_rows(p, held_out);
  LazyCore core(p, hooks, settings);
  core.hold_out(held_out);
  CallbackMethod method = settings.method;
  // Without integers HiGHS runs no MIP (no candidates to check): the root of the branch and
  // cut is iterated instead. Node events exist only in our own search.
  if (method == CallbackMethod::kAuto) {
    // The hybrid was fastest on the TSP sizes measured (docs/branch-and-cut.md); node events
    // need our own tree throughout, semi-continuous columns HiGHS's MIP.
    const bool semi = std::any_of(p.integrality.begin(), p.integrality.end(), [](int t) { return t == 2 || t == 3; });
    method = !p.mip || settings.node_events ? CallbackMethod::kBranchAndCut
             : semi                         ? CallbackMethod::kRestart
                                            : CallbackMethod::kHybrid;
  }
  // HiGHS's MIP takes no quadratic objective: only our own tree solves MIQP relaxations.
  if ((method == CallbackMethod::kRestart || method == CallbackMethod::kHybrid) && (!p.mip || !p.qval.empty())) {
    method = CallbackMethod::kBranchAndCut;
  }
  core.stats.method = method;
  // The user's start is completed and checked like any candidate before the search starts.
  SearchResult seed;
  if (!settings.start.empty() && p.mip) {
    core.propose(settings.start);
    SearchProgress at;
    at.obj_best = p.sense * VLM_INFINITY;
    at.obj_bound = -p.sense * VLM_INFINITY;
    std::vector<double> x;
    if (core.try_heuristic(x, at)) {
      seed.has_solution = true;
      seed.x = x;
      seed.objval = core.objective(x);
      seed.incumbents.emplace_back(seed.objval, x);
      seed.bound = -p.sense * INFINITY;
      if (settings.search.env) settings.search.env->message("The MIP start gives a solution of objective " + log_number(seed.objval));
    } else if (settings.search.env) {
      settings.search.env->message("The MIP start cannot be completed to a solution that satisfies the lazy constraints");
    }
    if (!core.error.ok()) return core.error;
  }
  const SearchResult* start = seed.has_solution ? &seed : nullptr;
  StatusOr<SearchResult> result = Status(VLM_ERROR_INTERNAL, "no search ran");
  if (method == CallbackMethod::kRestart) {
    RestartLoop loop(h, base, core, hooks, settings);
    if (start != nullptr) loop.seed(*start, false);
    result = loop.run();
  } else if (method == CallbackMethod::kBranchAndCut) {
    result = branch_and_cut(h, base, core, hooks, settings, start);
  } else {
    result = hybrid(h, base, core, hooks, settings, start);
  }
  core.stats.lazy_rows = core.size() - static_cast<int>(held_out.size());
  for (int i = 0; i < static_cast<int>(held_out.size()); ++i) core.stats.lazy_rows += core.row(i).active ? 1 : 0;
  if (stats != nullptr) *stats = core.stats;
  return result;
}

bool lazy_search_serves(const ModelData& d, const reform::WorkingProblem& p) {
  if (d.num_qconstrs() > 0) return false;
  return p.qval.empty() || reform::check_psd(d.qrow, d.qcol, d.qval, d.sense == -1).psd;
}

std::vector<int> lazy_rows_of(const ModelData& d, const reform::WorkingProblem& p) {
  std::vector<int> out;
  const auto& cols = d.extra[VLM_KIND_CONSTR].num;
  auto it = cols.find(find_attr("Lazy"));
  if (it == cols.end()) return out;
  const int m = std::min({d.num_constrs(), p.user_rows, static_cast<int>(it->second.v.size())});
  for (int i = 0; i < m; ++i) {
    if (it->second.v[i] > 0) out.push_back(i);
  }
  return out;
}

Status solve_with_lazy_rows(void* h, Env& env, const ModelData& d, const reform::WorkingProblem& p,
                            const std::vector<int>& held_out, SearchHooks* hooks, bool node_events,
                            const std::atomic<bool>* stop, Solution& sol) {
  const ParamSet& ps = env.params();
  CallbackSettings cs;
  cs.search = search_settings(env, d, p.ncol, stop);
  cs.var_branch = ps.int_param("VarBranch");
  cs.feas_tol = ps.dbl_param("FeasibilityTol");
  cs.node_events = node_events;
  // Start values (a partial start leaves the others undefined) over the user's variables.
  const auto& vattrs = d.extra[VLM_KIND_VAR].num;
  auto st = vattrs.find(find_attr("Start"));
  if (st != vattrs.end()) {
    std::vector<double> start(p.user_cols, NAN);
    bool any = false;
    for (int j = 0; j < p.user_cols && j < static_cast<int>(st->second.v.size()); ++j) {
      const double v = st->second.v[j];
      if (v >= VLM_UNDEFINED || std::isnan(v)) continue;
      start[j] = v;
      any = true;
    }
    if (any) cs.start = std::move(start);
  }
  if (!held_out.empty()) {
    env.message("Solving with " + std::to_string(held_out.size()) + " lazy constraints held out of the relaxation");
  }
  CallbackStats stats;
  auto result = callback_search(h, p, held_out, hooks, cs, &stats);
  if (!result.ok()) return result.status();
  sol.is_mip = true;
  fill_from_search(*result, d, p, ps.int_param("PoolSolutions"), sol);
  return Status::Ok();
}

}  // namespace vlm::algorithms
