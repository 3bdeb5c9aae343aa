#include "algorithms/branch_and_bound.h"

#include "algorithms/node_propagation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>

#include "core/platform.h"
#include "core/text.h"
#include "env/env.h"
#include "interfaces/highs_c_api.h"

namespace vlm::algorithms {

bool MostFractionalRule::branch(const std::vector<double>& x, const std::vector<double>& lower,
                                const std::vector<double>& upper, Branching& out) {
  int best = -1;
  double best_frac = tol_;
  int best_pri = 0;
  for (int j : integers_) {
    const double f = x[j] - std::floor(x[j]);
    const double dist = std::min(f, 1.0 - f);
    if (dist <= tol_) continue;
    const int pri = j < static_cast<int>(priority_.size()) ? priority_[j] : 0;
    if (best < 0 || pri > best_pri || (pri == best_pri && dist > best_frac)) {
      best_frac = dist;
      best = j;
      best_pri = pri;
    }
  }
  if (best < 0) return false;
  const double v = x[best];
  out.children.clear();
  out.children.push_back({{best, lower[best], std::floor(v)}});
  out.children.push_back({{best, std::ceil(v), upper[best]}});
  out.first = (v - std::floor(v) < 0.5) ? 0 : 1;
  return true;
}

bool integrality_satisfied(const reform::WorkingProblem& p, const std::vector<double>& x, double tol) {
  for (int j = 0; j < p.ncol; ++j) {
    const int t = p.integrality[j];
    if (t == 0) continue;
    if ((t == 1 || t == 3) && std::fabs(x[j] - std::round(x[j])) > tol) return false;
    if ((t == 2 || t == 3) && x[j] > tol && x[j] < p.lower[j] - tol) return false;
  }
  return true;
}

BranchAndBound::BranchAndBound(void* h, const reform::WorkingProblem& p, SearchSettings settings)
    : h_(h), p_(p), s_(settings), root_lo_(p.lower), root_up_(p.upper), semi_lower_(p.ncol, 0.0) {
  for (int j = 0; j < p.ncol; ++j) {
    if (p.integrality[j] != 2 && p.integrality[j] != 3) continue;
    // The relaxation of x = 0 or lb <= x <= ub is 0 <= x <= ub (lb >= 0 in the working problem).
    semi_lower_[j] = p.lower[j];
    root_lo_[j] = std::min(0.0, p.lower[j]);
    has_semi_ = true;
  }
  if (std::isfinite(s_.cutoff)) cutoff_ = p.sense * s_.cutoff;
  if (s_.propagate && p.nrow > 0) propagator_ = std::make_unique<NodePropagator>(p, semi_lower_);
}

BranchAndBound::~BranchAndBound() = default;

void BranchAndBound::node_bounds(const Node& node, std::vector<double>& lo, std::vector<double>& up) const {
  lo = root_lo_;
  up = root_up_;
  for (const BoundChange& b : node.changes) {
    lo[b.col] = b.lower;
    up[b.col] = b.upper;
  }
}

bool BranchAndBound::branch_semi(const std::vector<double>& lo, const std::vector<double>& up, Branching& out) const {
  // The column whose value is farthest, relative to its lower bound, from both 0 and lb.
  int best = -1;
  double best_score = 0.0;
  for (int j = 0; j < p_.ncol; ++j) {
    const double s = semi_lower_[j];
    if (s <= 0.0 || lo[j] > 0.0) continue;
    const double v = x_[j];
    if (v <= s_.int_tol || v >= s - s_.int_tol) continue;
    const double score = std::min(v, s - v) / s;
    if (score > best_score) {
      best_score = score;
      best = j;
    }
  }
  if (best < 0) return false;
  out.children.clear();
  out.children.push_back({{best, 0.0, 0.0}});
  if (up[best] >= semi_lower_[best]) out.children.push_back({{best, semi_lower_[best], up[best]}});
  out.first = (x_[best] < 0.5 * semi_lower_[best] || out.children.size() == 1) ? 0 : 1;
  return true;
}

void BranchAndBound::tell_rule(const Node& node, double gain) {
  if (node.rule < 0 || node.rule >= static_cast<int>(rules_.size()) || node.split <= 0) return;
  if (node.split_at + node.split > static_cast<int>(node.changes.size())) return;
  const std::vector<BoundChange> child(node.changes.begin() + node.split_at,
                                       node.changes.begin() + node.split_at + node.split);
  rules_[node.rule]->observe(child, node.parent_x, gain);
}

void BranchAndBound::take_incumbent(const std::vector<double>& x, double obj, const std::string& how) {
  if (obj >= incumbent_ || obj > cutoff_) return;
  incumbent_ = obj;
  r_.has_solution = true;
  r_.x = x;
  r_.incumbents.emplace_back(p_.sense * obj, x);
  if (std::isfinite(s_.best_obj_stop) && obj <= p_.sense * s_.best_obj_stop) stop_by_objective_ = true;
  log("Incumbent " + log_number(p_.sense * obj) + " " + how + " at node " + log_number(r_.nodes) + " after " +
      log_number(elapsed()) + "s");
}

bool BranchAndBound::stop_value_reached(int& status, double open_bound) const {
  if (stop_by_objective_) {
    status = VLM_USER_OBJ_LIMIT;
    return true;
  }
  if (std::isfinite(s_.best_bd_stop) && std::isfinite(open_bound) && open_bound >= p_.sense * s_.best_bd_stop) {
    status = VLM_USER_OBJ_LIMIT;
    return true;
  }
  return false;
}

double BranchAndBound::elapsed() const { return wall_seconds() - start_; }

double BranchAndBound::gap_target(double incumbent) const {
  if (!std::isfinite(incumbent)) return 0.0;
  return std::max(s_.mip_gap_abs, s_.mip_gap * std::fabs(incumbent));
}

void BranchAndBound::log(const std::string& line) const {
  if (s_.env) s_.env->message(line);
}

bool BranchAndBound::limit_reached(int& status) const {
  if (s_.stop && s_.stop->load(std::memory_order_relaxed)) {
    status = VLM_INTERRUPTED;
    return true;
  }
  if (elapsed() >= s_.time_limit) {
    status = VLM_TIME_LIMIT;
    return true;
  }
  if (r_.nodes >= s_.node_limit) {
    status = VLM_NODE_LIMIT;
    return true;
  }
  if (static_cast<int>(r_.incumbents.size()) >= s_.solution_limit) {
    status = VLM_SOLUTION_LIMIT;
    return true;
  }
  return false;
}

Status BranchAndBound::load() {
  std::vector<int> qstart;
  if (!p_.qval.empty()) {
    qstart = p_.qstart;
    qstart.resize(p_.ncol, static_cast<int>(p_.qval.size()));
  }
  HighsInt rc = Highs_passModel(
      h_, p_.ncol, p_.nrow, static_cast<HighsInt>(p_.aval.size()), static_cast<HighsInt>(p_.qval.size()),
      kHighsMatrixFormatRowwise, kHighsHessianFormatTriangular,
      p_.sense == -1 ? kHighsObjSenseMaximize : kHighsObjSenseMinimize, p_.objcon, p_.cost.data(), root_lo_.data(),
      root_up_.data(), p_.rlo.data(), p_.rup.data(), p_.astart.data(), p_.aindex.data(), p_.aval.data(),
      p_.qval.empty() ? nullptr : qstart.data(), p_.qval.empty() ? nullptr : p_.qindex.data(),
      p_.qval.empty() ? nullptr : p_.qval.data(), nullptr);
  if (rc == kHighsStatusError) return Status(VLM_ERROR_INTERNAL, "HiGHS rejected the relaxation of the model");
  // Re-solves after bound changes and new rows start from the kept basis; presolve would
  // discard it. HiGHS' own log of every relaxation would drown ours.
  Highs_setStringOptionValue(h_, "presolve", "off");
  Highs_setBoolOptionValue(h_, "output_flag", 0);
  if (s_.relaxation_feas_tol > 0) {
    double cur = 1e-7;
    Highs_getDoubleOptionValue(h_, "primal_feasibility_tolerance", &cur);
    Highs_setDoubleOptionValue(h_, "primal_feasibility_tolerance", std::min(cur, s_.relaxation_feas_tol));
  }
  std::vector<Cut> cuts;
  for (auto& sep : seps_) sep->initial_cuts(cuts);
  add_cuts(cuts);
  return Status::Ok();
}

bool BranchAndBound::add_cuts(std::vector<Cut>& cuts) {
  bool any = false;
  for (const Cut& c : cuts) {
    if (c.ind.empty()) continue;
    if (Highs_addRow(h_, c.lo, c.up, static_cast<HighsInt>(c.ind.size()), c.ind.data(), c.val.data()) ==
        kHighsStatusError) {
      continue;
    }
    r_.cut_owner.push_back(c.owner);
    r_.cut_weight.push_back(c.weight);
    r_.cuts += 1;
    any = true;
  }
  cuts.clear();
  return any;
}

void BranchAndBound::apply(const Node& node) {
  std::map<int, std::pair<double, double>> set;
  for (int j : changed_) set[j] = {root_lo_[j], root_up_[j]};
  for (const BoundChange& b : node.changes) set[b.col] = {b.lower, b.upper};
  if (set.empty()) return;
  std::vector<HighsInt> idx;
  std::vector<double> lo, up;
  changed_.clear();
  for (const auto& [j, bounds] : set) {
    idx.push_back(j);
    lo.push_back(bounds.first);
    up.push_back(bounds.second);
    if (bounds.first != root_lo_[j] || bounds.second != root_up_[j]) changed_.push_back(j);
  }
  Highs_changeColsBoundsBySet(h_, static_cast<HighsInt>(idx.size()), idx.data(), lo.data(), up.data());
}

int BranchAndBound::solve_relaxation() {
  // HiGHS compares its limit with the run time summed over all runs of the instance.
  const double left = s_.time_limit - elapsed();
  if (std::isfinite(left)) {
    Highs_setDoubleOptionValue(h_, "time_limit", Highs_getRunTime(h_) + std::max(left, 0.0));
  }
  HighsInt ms = kHighsModelStatusNotset;
  fresh_x_.clear();
  try {
    const HighsInt rc = Highs_run(h_);
    ms = Highs_getModelStatus(h_);
    if (ms == kHighsModelStatusSolveError || ms == kHighsModelStatusUnknown ||
        (rc == kHighsStatusError && ms == kHighsModelStatusNotset)) {
      ms = retry_relaxation();
    }
  } catch (...) {
    return -1;
  }
  r_.relaxations += 1;
  HighsInt it = 0;
  if (Highs_getIntInfoValue(h_, "simplex_iteration_count", &it) == kHighsStatusOk && it > 0) r_.lp_iterations += it;
  if (Highs_getIntInfoValue(h_, "qp_iteration_count", &it) == kHighsStatusOk && it > 0) r_.lp_iterations += it;
  if (ms < 0 || ms == kHighsModelStatusNotset) return -1;
  if (ms == kHighsModelStatusOptimal && !fresh_x_.empty()) {
    // Solved by a fresh instance: its point stands in; no duals are kept from it.
    x_.swap(fresh_x_);
    fresh_x_.clear();
    col_dual_.assign(p_.ncol, 0.0);
    row_value_.clear();
    row_dual_.clear();
  } else if (ms == kHighsModelStatusOptimal) {
    relax_obj_ = Highs_getObjectiveValue(h_);
    const HighsInt nr = Highs_getNumRow(h_);
    x_.resize(p_.ncol);
    col_dual_.resize(p_.ncol);
    row_value_.resize(nr);
    row_dual_.resize(nr);
    Highs_getSolution(h_, x_.data(), col_dual_.data(), row_value_.data(), row_dual_.data());
  }
  return static_cast<int>(ms);
}

int BranchAndBound::retry_relaxation() {
  auto failed = [](HighsInt ms) {
    return ms == kHighsModelStatusSolveError || ms == kHighsModelStatusUnknown || ms == kHighsModelStatusNotset;
  };
  // HiGHS' QP solver can fail to restart from the previous node's state: a cold start first.
  Highs_clearSolver(h_);
  Highs_run(h_);
  HighsInt ms = Highs_getModelStatus(h_);
  if (!failed(ms)) return static_cast<int>(ms);
  Highs_setStringOptionValue(h_, "presolve", "on");
  Highs_run(h_);
  Highs_setStringOptionValue(h_, "presolve", "off");
  ms = Highs_getModelStatus(h_);
  if (!failed(ms)) return static_cast<int>(ms);
  if (p_.qval.empty()) {
    // Another method for an LP: the interior point method with its crossover.
    char solver[kHighsMaximumStringLength] = "choose";
    Highs_getStringOptionValue(h_, "solver", solver);
    Highs_setStringOptionValue(h_, "solver", "ipm");
    Highs_clearSolver(h_);
    Highs_run(h_);
    Highs_setStringOptionValue(h_, "solver", solver);
    ms = Highs_getModelStatus(h_);
    if (!failed(ms)) return static_cast<int>(ms);
  }
  log("Relaxation of node " + log_number(r_.nodes) + " failed in place; solving it in a fresh instance");
  return solve_fresh();
}

int BranchAndBound::solve_fresh() {
  // The instance's own model (bounds of the node, every cut) copied into a new instance:
  // whatever state the old one was left in, this one starts from nothing.
  const HighsInt nc = Highs_getNumCol(h_), nr = Highs_getNumRow(h_), nz = Highs_getNumNz(h_),
                 qnz = Highs_getHessianNumNz(h_);
  HighsInt ncol = 0, nrow = 0, annz = 0, hnnz = 0, sense = 1;
  double offset = 0.0;
  std::vector<double> cost(nc), lo(nc), up(nc), rlo(nr), rup(nr), aval(nz), qval(qnz);
  std::vector<HighsInt> astart(nc + 1), aindex(nz), qstart(nc + 1), qindex(qnz), integrality(nc);
  if (Highs_getModel(h_, kHighsMatrixFormatColwise, kHighsHessianFormatTriangular, &ncol, &nrow, &annz, &hnnz, &sense,
                     &offset, cost.data(), lo.data(), up.data(), rlo.data(), rup.data(), astart.data(), aindex.data(),
                     aval.data(), qstart.data(), qindex.data(), qval.data(), integrality.data()) != kHighsStatusOk) {
    return -1;
  }
  void* h = Highs_create();
  if (h == nullptr) return -1;
  Highs_setBoolOptionValue(h, "output_flag", 0);
  double tol = 1e-7;
  Highs_getDoubleOptionValue(h_, "primal_feasibility_tolerance", &tol);
  Highs_setDoubleOptionValue(h, "primal_feasibility_tolerance", tol);
  const double left = s_.time_limit - elapsed();
  if (std::isfinite(left)) Highs_setDoubleOptionValue(h, "time_limit", std::max(left, 0.0));
  HighsInt ms = -1;
  if (Highs_passModel(h, ncol, nrow, annz, hnnz, kHighsMatrixFormatColwise, kHighsHessianFormatTriangular, sense,
                      offset, cost.data(), lo.data(), up.data(), rlo.data(), rup.data(), astart.data(), aindex.data(),
                      aval.data(), hnnz > 0 ? qstart.data() : nullptr, hnnz > 0 ? qindex.data() : nullptr,
                      hnnz > 0 ? qval.data() : nullptr, nullptr) != kHighsStatusError) {
    Highs_run(h);
    ms = Highs_getModelStatus(h);
    if (ms == kHighsModelStatusOptimal) {
      fresh_x_.assign(nc, 0.0);
      Highs_getSolution(h, fresh_x_.data(), nullptr, nullptr, nullptr);
      fresh_x_.resize(p_.ncol);
      relax_obj_ = Highs_getObjectiveValue(h);
    } else if (ms == kHighsModelStatusSolveError || ms == kHighsModelStatusUnknown ||
               ms == kHighsModelStatusNotset) {
      ms = -1;
    }
  }
  Highs_destroy(h);
  return static_cast<int>(ms);
}

void BranchAndBound::fix_by_reduced_cost(Node& node, double obj) {
  // A column moved by t off its bound raises the relaxation value by at least t times its
  // reduced cost (minimised sense); past `room` the child could not beat the incumbent.
  const double room = incumbent_ - gap_target(incumbent_) - obj;
  if (!(room >= 0)) return;
  pruned_at_ = std::min(pruned_at_, incumbent_);
  std::vector<double> lo, up;
  node_bounds(node, lo, up);
  for (int j = 0; j < p_.ncol; ++j) {
    if (p_.integrality[j] != 1 || lo[j] >= up[j]) continue;
    const double d = p_.sense * col_dual_[j];
    if (d > 1e-9 && x_[j] <= lo[j] + 1e-9) {
      const double reach = lo[j] + std::floor(room / d + 1e-9);
      if (reach < up[j]) {
        node.changes.push_back({j, lo[j], reach});
        r_.fixed += 1;
      }
    } else if (d < -1e-9 && x_[j] >= up[j] - 1e-9) {
      const double reach = up[j] - std::floor(room / -d + 1e-9);
      if (reach > lo[j]) {
        node.changes.push_back({j, reach, up[j]});
        r_.fixed += 1;
      }
    }
  }
}

BranchAndBound::Outcome BranchAndBound::process(Node& node, std::vector<Node>& children, int& dive_child) {
  node_status_ = 0;
  std::vector<double> lo, up;
  if (propagator_) {
    node_bounds(node, lo, up);
    std::vector<int> moved;
    if (!propagator_->propagate(lo, up, moved)) {
      r_.propagated += 1;
      tell_rule(node, INFINITY);
      node_status_ = VLM_INFEASIBLE;
      return Outcome::kInfeasible;
    }
    // The tightened bounds hold in the whole subtree: the children inherit them.
    for (int j : moved) node.changes.push_back({j, lo[j], up[j]});
    r_.tightened += static_cast<double>(moved.size());
  }
  if (s_.node_bounds) {
    if (!propagator_) node_bounds(node, lo, up);
    const std::vector<double> lo0 = lo, up0 = up;
    if (!s_.node_bounds(lo, up)) {
      node_status_ = VLM_INFEASIBLE;
      return Outcome::kInfeasible;
    }
    for (int j = 0; j < p_.ncol; ++j) {
      if (lo[j] != lo0[j] || up[j] != up0[j]) node.changes.push_back({j, lo[j], up[j]});
    }
  }
  apply(node);
  current_ = &node;
  const bool has_integers = p_.mip || has_semi_;
  const int limit = !has_integers ? s_.max_rounds : node.depth == 0 ? s_.root_rounds : s_.node_rounds;
  std::vector<Cut> cuts;
  int stalled = 0;
  last_x_.clear();
  for (int round = 0;; ++round) {
    const int ms = solve_relaxation();
    if (ms < 0) {
      node_status_ = VLM_NUMERIC;
      return Outcome::kError;
    }
    if (ms == kHighsModelStatusInfeasible) {
      node_status_ = VLM_INFEASIBLE;
      if (round == 0) tell_rule(node, INFINITY);
      return Outcome::kInfeasible;
    }
    if (ms == kHighsModelStatusTimeLimit || ms == kHighsModelStatusInterrupt) return Outcome::kStopped;
    if (ms == kHighsModelStatusUnbounded || ms == kHighsModelStatusUnboundedOrInfeasible) {
      // A ray of the relaxation may violate a constraint that only cuts express: cut a far
      // point along it and try again.
      std::vector<double> ray(p_.ncol, 0.0);
      HighsInt has = 0;
      double norm = 0.0;
      if (Highs_getPrimalRay(h_, &has, ray.data()) == kHighsStatusOk && has) {
        for (double v : ray) norm = std::max(norm, std::fabs(v));
      }
      if (norm == 0.0) {
        node_status_ = VLM_UNBOUNDED;
        return Outcome::kUnbounded;
      }
      for (double& v : ray) v *= 1e6 / norm;
      cuts.clear();
      for (auto& sep : seps_) sep->separate(ray, cuts);
      if (!add_cuts(cuts)) {
        if (branch_along_ray(ray, node, children, dive_child)) return Outcome::kBranched;
        node_status_ = VLM_UNBOUNDED;
        return Outcome::kUnbounded;
      }
      if (++unbounded_rays_ > 200) {
        node_status_ = VLM_UNBOUNDED;
        return Outcome::kUnbounded;
      }
      continue;
    }
    if (ms != kHighsModelStatusOptimal) {
      log("Relaxation status " + log_number(ms));
      node_status_ = VLM_NUMERIC;
      return Outcome::kError;
    }
    const double obj = p_.sense * relax_obj_;
    if (round == 0) tell_rule(node, std::max(0.0, obj - node.parent_obj));
    node.bound = std::max(node.bound, obj);
    node_value_ = obj;
    if (node.bound >= incumbent_ - gap_target(incumbent_)) {
      gap_pruned_ = std::min(gap_pruned_, node.bound);
      pruned_at_ = std::min(pruned_at_, incumbent_);
      node_status_ = VLM_CUTOFF;
      return Outcome::kPruned;
    }
    if (node.bound > cutoff_) {
      node_status_ = VLM_CUTOFF;
      return Outcome::kPruned;
    }

    bool feasible = true;
    cuts.clear();
    for (auto& sep : seps_) feasible = sep->separate(x_, cuts) && feasible;
    const bool integral = integrality_satisfied(p_, x_, s_.int_tol);
    // A point that the cuts no longer move is where the separators' progress ends.
    double moved = last_x_.empty() ? INFINITY : 0.0;
    for (std::size_t j = 0; j < last_x_.size(); ++j) moved = std::max(moved, std::fabs(x_[j] - last_x_[j]));
    stalled = moved <= 1e-12 ? stalled + 1 : 0;
    last_x_ = x_;
    if (!feasible && !cuts.empty() && stalled < s_.stall_rounds &&
        (round < limit || (integral && round < s_.max_rounds))) {
      add_cuts(cuts);
      if (s_.stop && s_.stop->load(std::memory_order_relaxed)) return Outcome::kStopped;
      if (elapsed() >= s_.time_limit) return Outcome::kStopped;
      continue;
    }
    // Separation ends here; cuts still pending join the relaxation for the nodes to come.
    if (s_.keep_pending_cuts && !cuts.empty()) add_cuts(cuts);
    if (integral && !feasible) {
      // Separation has ended without the separators' own acceptance (stalled, no cut, or out
      // of rounds): the point may still be within the user's tolerances.
      feasible = std::all_of(seps_.begin(), seps_.end(), [this](auto& sep) { return sep->acceptable(x_); });
      if (feasible) log("Separation ended at node " + log_number(r_.nodes) + "; its point is kept as it is feasible");
    }
    if (integral && feasible) {
      take_incumbent(x_, obj, "found");
      if (node.depth == 0) {
        r_.row_dual = row_dual_;
        r_.col_dual = col_dual_;
      }
      return Outcome::kIncumbent;
    }
    if (s_.heuristics && integral == false) {
      run_heuristics(node);
      if (node.bound >= incumbent_ - gap_target(incumbent_)) return Outcome::kPruned;
    }
    if (s_.reduced_cost_fixing && std::isfinite(incumbent_) && p_.qval.empty()) fix_by_reduced_cost(node, obj);
    Branching br;
    node_bounds(node, lo, up);
    int rule = -1;
    if (!has_semi_ || !branch_semi(lo, up, br)) {
      for (int k = 0; k < static_cast<int>(rules_.size()); ++k) {
        if (rules_[k]->branch(x_, lo, up, br)) {
          rule = k;
          break;
        }
      }
    }
    if (br.children.empty()) {
      // Integral, but the separators can neither accept the point nor cut it any further.
      trouble_ = true;
      return Outcome::kPruned;
    }
    children.clear();
    for (auto& ch : br.children) {
      Node child{node.bound, node.depth + 1, node.changes};
      child.changes.insert(child.changes.end(), ch.begin(), ch.end());
      child.rule = rule;
      child.split_at = static_cast<int>(node.changes.size());
      child.split = static_cast<int>(ch.size());
      child.parent_obj = obj;
      child.parent_x = ch.empty() ? 0.0 : x_[ch[0].col];
      children.push_back(std::move(child));
    }
    dive_child = br.first;
    return Outcome::kBranched;
  }
}

bool BranchAndBound::branch_along_ray(const std::vector<double>& ray, const Node& node, std::vector<Node>& children,
                                      int& dive_child) {
  HighsInt sol_status = 0;
  if (Highs_getIntInfoValue(h_, "primal_solution_status", &sol_status) != kHighsStatusOk ||
      sol_status != kHighsSolutionStatusFeasible) {
    return false;
  }
  const HighsInt nr = Highs_getNumRow(h_);
  std::vector<double> x(p_.ncol), cd(p_.ncol), rv(nr), rd(nr);
  Highs_getSolution(h_, x.data(), cd.data(), rv.data(), rd.data());
  for (int j = 0; j < p_.ncol; ++j) x[j] += ray[j];
  std::vector<double> lo, up;
  node_bounds(node, lo, up);
  Branching br;
  for (auto& rule : rules_) {
    if (!rule->branch_unbounded(x, lo, up, br)) continue;
    children.clear();
    for (auto& ch : br.children) {
      Node child{node.bound, node.depth + 1, node.changes};
      child.changes.insert(child.changes.end(), ch.begin(), ch.end());
      children.push_back(std::move(child));
    }
    dive_child = br.first;
    return true;
  }
  return false;
}

SearchProgress BranchAndBound::progress() const {
  SearchProgress pr;
  pr.obj_best = p_.sense * incumbent_;
  pr.obj_bound = p_.sense * std::min({open_bound_, incumbent_, dropped_bound_, ceiling_});
  pr.nodes = r_.nodes;
  pr.nodes_left = open_nodes_;
  pr.solutions = static_cast<double>(r_.incumbents.size());
  pr.cuts = r_.cuts;
  pr.iterations = r_.lp_iterations;
  pr.runtime = elapsed();
  return pr;
}

void BranchAndBound::drop_incumbents(const std::function<bool(const std::vector<double>&)>& invalid) {
  if (!r_.has_solution || !invalid(r_.x)) return;
  auto& inc = r_.incumbents;
  inc.erase(std::remove_if(inc.begin(), inc.end(), [&](const auto& e) { return invalid(e.second); }), inc.end());
  // The list improves from first to last: its last valid entry is the best one left.
  if (inc.empty()) {
    incumbent_ = INFINITY;
    r_.has_solution = false;
    r_.x.clear();
  } else {
    incumbent_ = p_.sense * inc.back().first;
    r_.x = inc.back().second;
  }
  // Pruning with a better value than the incumbent now left may have lost solutions.
  if (pruned_at_ < incumbent_) ceiling_ = std::min(ceiling_, pruned_at_);
  log("The incumbent violates a row added after it was found; it is dropped");
}

void BranchAndBound::offer_incumbent(const std::vector<double>& x, double obj) {
  take_incumbent(x, p_.sense * obj, "offered");
}

StatusOr<SearchResult> BranchAndBound::run() {
  start_ = wall_seconds();
  VLM_RETURN_IF_ERROR(load());
  auto worse = [](const Node& a, const Node& b) { return a.bound > b.bound; };
  std::vector<Node> heap;
  std::optional<Node> next = Node{-INFINITY, 0, {}};
  int status = 0;
  bool unbounded = false;
  // Best bound of what is left: open nodes, dropped ones and the incumbent (minimised sense).
  auto open_bound = [&]() {
    double b = std::min(incumbent_, dropped_bound_);
    if (next) b = std::min(b, next->bound);
    if (!heap.empty()) b = std::min(b, heap.front().bound);
    return b;
  };
  while (true) {
    if (!next && heap.empty()) break;
    if (limit_reached(status)) break;
    if (stop_value_reached(status, open_bound())) break;
    if (s_.before_node) {
      open_nodes_ = static_cast<double>(heap.size()) + (next ? 1 : 0);
      open_bound_ = next ? next->bound : INFINITY;
      if (!heap.empty()) open_bound_ = std::min(open_bound_, heap.front().bound);  // the heap's best
      s_.before_node();
      if (limit_reached(status)) break;
    }
    Node node;
    if (next) {
      node = std::move(*next);
      next.reset();
    } else {
      std::pop_heap(heap.begin(), heap.end(), worse);
      node = std::move(heap.back());
      heap.pop_back();
    }
    if (node.bound >= incumbent_ - gap_target(incumbent_)) {
      gap_pruned_ = std::min(gap_pruned_, node.bound);
      pruned_at_ = std::min(pruned_at_, incumbent_);
      continue;
    }
    if (node.bound > cutoff_) continue;
    std::vector<Node> children;
    int dive = 0;
    const Outcome out = process(node, children, dive);
    r_.nodes += 1;
    if (node_status_ != 0 && s_.node_status) s_.node_status(node_status_);
    if (out == Outcome::kError) {
      // The node is dropped: the search goes on. Its bound stays in the result's: what it
      // held is not searched, not excluded, so optimality holds only if that bound is within
      // the gap at the end (checked below).
      log("HiGHS failed to solve the relaxation of node " + log_number(r_.nodes - 1) + "; the node is dropped");
      r_.dropped += 1;
      dropped_bound_ = std::min(dropped_bound_, node.bound);
      continue;
    }
    if (out == Outcome::kStopped) {
      heap.push_back(std::move(node));
      std::push_heap(heap.begin(), heap.end(), worse);
      limit_reached(status);
      if (status == 0) status = VLM_TIME_LIMIT;  // HiGHS stopped on the time left
      break;
    }
    if (out == Outcome::kUnbounded) {
      unbounded = true;
      break;
    }
    if (out == Outcome::kBranched) {
      for (int i = 0; i < static_cast<int>(children.size()); ++i) {
        if (i == dive) {
          next = std::move(children[i]);
        } else {
          heap.push_back(std::move(children[i]));
          std::push_heap(heap.begin(), heap.end(), worse);
        }
      }
    }
  }

  // The bound is the best of the nodes left, of those pruned within the gap, of those dropped
  // after failed solves and of dropped incumbents that pruned (none: the incumbent itself).
  double bound = std::min({incumbent_, gap_pruned_, dropped_bound_, ceiling_});
  if (next) bound = std::min(bound, next->bound);
  for (const Node& n : heap) bound = std::min(bound, n.bound);
  if (stop_by_objective_ && status == 0 && (next || !heap.empty())) status = VLM_USER_OBJ_LIMIT;
  // Pruning done with a dropped incumbent proves nothing below its value, and a dropped node
  // nothing below its bound: either stands as proof only when the final bound is within the gap.
  const bool gap_open = !r_.has_solution || incumbent_ - bound > gap_target(incumbent_);
  if (status == 0 && (std::isfinite(ceiling_) || r_.dropped > 0) && gap_open) trouble_ = true;
  if (unbounded) {
    r_.status = p_.mip ? VLM_INF_OR_UNBD : VLM_UNBOUNDED;
    r_.has_solution = false;
  } else if (status != 0) {
    r_.status = status;
  } else if (trouble_) {
    r_.status = r_.has_solution ? VLM_SUBOPTIMAL : VLM_NUMERIC;
  } else if (!r_.has_solution && std::isfinite(cutoff_)) {
    // Nothing at least as good as the cutoff exists, which is all the search proves.
    r_.status = VLM_CUTOFF;
    bound = cutoff_;
  } else {
    r_.status = r_.has_solution ? VLM_OPTIMAL : VLM_INFEASIBLE;
  }
  if (!r_.has_solution) r_.x.clear();
  r_.objval = p_.sense * incumbent_;
  r_.bound = p_.sense * bound;
  if (r_.has_solution && (r_.status == VLM_OPTIMAL) && p_.sense * (r_.bound - r_.objval) > 0) r_.bound = r_.objval;
  r_.highs_seconds = Highs_getRunTime(h_);
  if (s_.reduced_cost_fixing && r_.has_solution && p_.qval.empty() && r_.status != VLM_OPTIMAL &&
      r_.status != VLM_INTERRUPTED) {
    // The root's relaxation with every row found so far: its reduced costs bound every
    // solution, and the rows added on the way make them much stronger than the first root's.
    Node root{-INFINITY, 0, {}};
    apply(root);
    if (solve_relaxation() == kHighsModelStatusOptimal) {
      fix_by_reduced_cost(root, p_.sense * relax_obj_);
      r_.root_fixings = std::move(root.changes);
    }
  }
  log("Branch and bound: " + log_number(r_.nodes) + " nodes, " + log_number(r_.relaxations) + " relaxations, " +
      log_number(r_.lp_iterations) + " iterations, " + log_number(r_.cuts) + " cuts, " + log_number(r_.propagated) +
      " nodes pruned by propagation, " + log_number(r_.heuristic_solutions) + " heuristic incumbents in " +
      log_number(elapsed()) + "s (HiGHS " + log_number(r_.highs_seconds) + "s)");
  return std::move(r_);
}

}  // namespace vlm::algorithms
