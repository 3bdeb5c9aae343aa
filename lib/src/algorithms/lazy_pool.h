// LazyCore: what every driver of the callback search shares. The pool of lazy rows (held out
// of the model, or handed back by the hooks) and which of them the relaxation holds, the checks of
// candidate incumbents against the pool and the hooks, and the completion of heuristic points.
// Internal to algorithms/callback_search.cpp and its drivers.
#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "algorithms/callback_search.h"
#include "algorithms/search_hooks.h"
#include "core/status.h"
#include "reform/working_problem.h"

namespace vlm::algorithms {

// One lazy row over the working columns: lo <= sum val[k] x[ind[k]] <= up.
struct PoolRow {
  std::vector<int> ind;
  std::vector<double> val;
  double lo = -INFINITY, up = INFINITY;
  bool active = false;  // part of every relaxation from now on
};

inline double violation(const PoolRow& r, const std::vector<double>& x) {
  double a = 0.0;
  for (std::size_t k = 0; k < r.ind.size(); ++k) a += r.val[k] * x[r.ind[k]];
  return std::max(r.lo - a, a - r.up);
}

// What both drivers share: the lazy rows, the checks of candidates against them and the
// hooks, and the heuristic points the hooks hand back.
class LazyCore {
 public:
  LazyCore(const reform::WorkingProblem& p, SearchHooks* hooks, const CallbackSettings& s)
      : p_(p), hooks_(hooks), s_(s) {}

  // Active rows from position `cursor` of the activation order on; advances the cursor. Each
  // relaxation (the search's, a heuristic's) keeps its own cursor.
  std::vector<int> take_active(std::size_t& cursor) const {
    std::vector<int> out(active_.begin() + static_cast<std::ptrdiff_t>(std::min(cursor, active_.size())), active_.end());
    cursor = active_.size();
    return out;
  }
  const PoolRow& row(int i) const { return pool_[i]; }
  int size() const { return static_cast<int>(pool_.size()); }

  void add_row(PoolRow r) {
    pool_.push_back(std::move(r));
    activate(static_cast<int>(pool_.size()) - 1);
  }

  // Adds the rows of `p` listed in `rows` to the pool.
  void hold_out(const std::vector<int>& rows) {
    for (int i : rows) {
      PoolRow r;
      r.ind.assign(p_.aindex.begin() + p_.astart[i], p_.aindex.begin() + p_.astart[i + 1]);
      r.val.assign(p_.aval.begin() + p_.astart[i], p_.aval.begin() + p_.astart[i + 1]);
      r.lo = p_.rlo[i];
      r.up = p_.rup[i];
      pool_.push_back(std::move(r));
    }
  }

  // Counts the pool rows that `x` violates; the held-out ones among them become active.
  int separate_held(const std::vector<double>& x) {
    int n = 0;
    for (std::size_t i = 0; i < pool_.size(); ++i) {
      if (violation(pool_[i], x) <= s_.feas_tol) continue;
      ++n;
      activate(static_cast<int>(i));
    }
    return n;
  }

  // Whether `x` violates any pool row.
  bool violates_any(const std::vector<double>& x) const {
    return std::any_of(pool_.begin(), pool_.end(), [&](const PoolRow& r) { return violation(r, x) > s_.feas_tol; });
  }

  double objective(const std::vector<double>& x) const { return p_.objective_value(x); }

  // Whether rows joined the pool since the last call (the incumbent may need a re-check).
  bool rows_added_since_check() {
    const bool added = pool_.size() != checked_rows_;
    checked_rows_ = pool_.size();
    return added;
  }

  // Hands a point (user columns, NaN where unset) to the next try_heuristic.
  void propose(std::vector<double> x) { heuristic_ = std::move(x); }

  // A candidate incumbent `x` (all working columns, integral and feasible for the rows the
  // relaxation holds): checked against the lazy rows the relaxation lacks (a candidate that
  // violates a known one is rejected without asking the hooks again), then given to
  // at_solution. Returns
  // true when accepted; a rejection leaves the violated rows in the fresh list.
  bool check_candidate(const std::vector<double>& x, const SearchProgress& pr) {
    if (separate_held(x) > 0) {
      ++stats.rejected;
      return false;
    }
    if (hooks_ == nullptr) return true;
    HookReply reply;
    user_x_.assign(x.begin(), x.begin() + p_.user_cols);
    hooks_->at_solution(pr, user_x_, objective(x), reply);
    const bool cut_off = take_reply(reply, &x);
    if (cut_off) ++stats.rejected;
    return !cut_off;
  }

  // Takes what a hook handed back: rows join the pool (and the relaxation), terminate is
  // noted, a heuristic point is kept for try_heuristic. Returns whether a lazy row or a cut
  // of the reply is violated by `x` (when given).
  bool take_reply(HookReply& reply, const std::vector<double>* x) {
    if (reply.terminate) terminate = true;
    if (reply.proceed) proceed = true;
    bool violated = false;
    for (auto* rows : {&reply.lazy, &reply.cuts}) {
      for (UserRow& u : *rows) {
        PoolRow r;
        if (!convert(u, r)) continue;
        if (x != nullptr && violation(r, *x) > s_.feas_tol) violated = true;
        add_row(std::move(r));
      }
    }
    if (!reply.heuristic.empty()) heuristic_.swap(reply.heuristic);
    return violated;
  }

  // Completes the pending heuristic point, if any: fixes the columns it gives (integers
  // rounded), solves for the others over every row known, and checks the result as a
  // candidate. Returns true with `x` filled when the point is accepted.
  bool try_heuristic(std::vector<double>& x, const SearchProgress& pr);

  bool has_heuristic() const { return !heuristic_.empty(); }

  std::atomic<bool> halt{false};  // stops the branch and cut (terminate or the caller's flag)
  bool terminate = false;
  bool proceed = false;  // the hooks asked to end the current phase (the hybrid's branch and cut)
  bool proceed_ends_phase = false;  // a phase is running that a proceed ends
  // Whether the branch and cut should stop: a terminate, or a proceed that ends its phase.
  bool should_halt() const { return terminate || (proceed && proceed_ends_phase); }
  Status error = Status::Ok();
  CallbackStats stats;

 private:
  bool convert(const UserRow& u, PoolRow& r) {
    if (u.ind.size() != u.val.size() || (u.sense != '<' && u.sense != '>' && u.sense != '=') || !std::isfinite(u.rhs)) {
      fail("A lazy constraint or cut from a callback is malformed (index and value counts differ, its sense is not "
           "'<', '>' or '=', or its right-hand side is not finite)");
      return false;
    }
    for (std::size_t k = 0; k < u.ind.size(); ++k) {
      if (u.ind[k] < 0 || u.ind[k] >= p_.user_cols) {
        fail("A lazy constraint or cut from a callback names variable index " + std::to_string(u.ind[k]) +
             ", which is not a variable of the model (it has " + std::to_string(p_.user_cols) + ")");
        return false;
      }
      if (!std::isfinite(u.val[k])) {
        fail("A lazy constraint or cut from a callback has a coefficient that is not finite");
        return false;
      }
    }
    r.ind = u.ind;
    r.val = u.val;
    r.lo = u.sense == '<' ? -INFINITY : u.rhs;
    r.up = u.sense == '>' ? INFINITY : u.rhs;
    return true;
  }
  void activate(int i) {
    if (pool_[i].active) return;
    pool_[i].active = true;
    active_.push_back(i);
  }
  void fail(std::string msg) {
    if (error.ok()) error = Status(VLM_ERROR_INVALID_ARGUMENT, std::move(msg));
    terminate = true;
  }

  const reform::WorkingProblem& p_;
  SearchHooks* hooks_;
  const CallbackSettings& s_;
  std::vector<PoolRow> pool_;
  std::vector<int> active_;  // active rows in the order they became active
  std::size_t checked_rows_ = 0;
  std::vector<double> user_x_, heuristic_;
};

}  // namespace vlm::algorithms
