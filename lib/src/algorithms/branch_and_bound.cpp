#include "algorithms/branch_and_bound.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>

#include "core/platform.h"
#include "env/env.h"
#include "interfaces/highs_c_api.h"

namespace vlm::algorithms {

namespace {

std::string num(double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.10g", v);
  return buf;
}

}  // namespace

bool MostFractionalRule::branch(const std::vector<double>& x, const std::vector<double>& lower,
                                const std::vector<double>& upper, Branching& out) {
  int best = -1;
  double best_frac = tol_;
  for (int j : integers_) {
    const double f = x[j] - std::floor(x[j]);
    const double dist = std::min(f, 1.0 - f);
    if (dist > best_frac) {
      best_frac = dist;
      best = j;
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

BranchAndBound::BranchAndBound(void* h, const reform::WorkingProblem& p, SearchSettings settings)
    : h_(h), p_(p), s_(settings) {}

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
      p_.sense == -1 ? kHighsObjSenseMaximize : kHighsObjSenseMinimize, p_.objcon, p_.cost.data(), p_.lower.data(),
      p_.upper.data(), p_.rlo.data(), p_.rup.data(), p_.astart.data(), p_.aindex.data(), p_.aval.data(),
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
  for (int j : changed_) set[j] = {p_.lower[j], p_.upper[j]};
  for (const BoundChange& b : node.changes) set[b.col] = {b.lower, b.upper};
  if (set.empty()) return;
  std::vector<HighsInt> idx;
  std::vector<double> lo, up;
  changed_.clear();
  for (const auto& [j, bounds] : set) {
    idx.push_back(j);
    lo.push_back(bounds.first);
    up.push_back(bounds.second);
    if (bounds.first != p_.lower[j] || bounds.second != p_.upper[j]) changed_.push_back(j);
  }
  Highs_changeColsBoundsBySet(h_, static_cast<HighsInt>(idx.size()), idx.data(), lo.data(), up.data());
}

int BranchAndBound::solve_relaxation() {
  // HiGHS compares its limit with the run time summed over all runs of the instance.
  const double left = s_.time_limit - elapsed();
  if (std::isfinite(left)) {
    Highs_setDoubleOptionValue(h_, "time_limit", Highs_getRunTime(h_) + std::max(left, 0.0));
  }
  HighsInt rc;
  try {
    rc = Highs_run(h_);
    // HiGHS' QP solver can fail to restart from the previous node's state: try a cold start,
    // then once more with presolve.
    const HighsInt first = Highs_getModelStatus(h_);
    if (first == kHighsModelStatusSolveError || first == kHighsModelStatusUnknown) {
      Highs_clearSolver(h_);
      rc = Highs_run(h_);
      if (Highs_getModelStatus(h_) == kHighsModelStatusSolveError) {
        Highs_setStringOptionValue(h_, "presolve", "on");
        rc = Highs_run(h_);
        Highs_setStringOptionValue(h_, "presolve", "off");
      }
    }
  } catch (...) {
    return -1;
  }
  r_.relaxations += 1;
  HighsInt it = 0;
  if (Highs_getIntInfoValue(h_, "simplex_iteration_count", &it) == kHighsStatusOk && it > 0) r_.lp_iterations += it;
  if (Highs_getIntInfoValue(h_, "qp_iteration_count", &it) == kHighsStatusOk && it > 0) r_.lp_iterations += it;
  const HighsInt ms = Highs_getModelStatus(h_);
  if (rc == kHighsStatusError && ms == kHighsModelStatusNotset) return -1;
  if (ms == kHighsModelStatusOptimal) {
    const HighsInt nr = Highs_getNumRow(h_);
    x_.resize(p_.ncol);
    col_dual_.resize(p_.ncol);
    row_value_.resize(nr);
    row_dual_.resize(nr);
    Highs_getSolution(h_, x_.data(), col_dual_.data(), row_value_.data(), row_dual_.data());
  }
  return static_cast<int>(ms);
}

void BranchAndBound::fix_by_reduced_cost(Node& node, double obj) {
  // A column moved by t off its bound raises the relaxation value by at least t times its
  // reduced cost (minimised sense); past `room` the child could not beat the incumbent.
  const double room = incumbent_ - gap_target(incumbent_) - obj;
  if (!(room >= 0)) return;
  pruned_at_ = std::min(pruned_at_, incumbent_);
  std::vector<double> lo = p_.lower, up = p_.upper;
  for (const BoundChange& b : node.changes) {
    lo[b.col] = b.lower;
    up[b.col] = b.upper;
  }
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
  apply(node);
  const bool has_integers = p_.mip;
  const int limit = !has_integers ? s_.max_rounds : node.depth == 0 ? s_.root_rounds : s_.node_rounds;
  std::vector<Cut> cuts;
  int stalled = 0;
  last_x_.clear();
  node_status_ = 0;
  for (int round = 0;; ++round) {
    const int ms = solve_relaxation();
    if (ms < 0) {
      node_status_ = VLM_NUMERIC;
      return Outcome::kError;
    }
    if (ms == kHighsModelStatusInfeasible) {
      node_status_ = VLM_INFEASIBLE;
      return Outcome::kInfeasible;
    }
    if (ms == kHighsModelStatusTimeLimit || ms == kHighsModelStatusInterrupt) return Outcome::kStopped;
    if (ms == kHighsModelStatusUnbounded || ms == kHighsModelStatusUnboundedOrInfeasible) {
      // A ray of the relaxation may violate a constraint that only cuts express: cut a far
      // point along it and try again.
      std::vector<double> ray(p_.ncol, 0.0);
      HighsInt has = 0;
      if (Highs_getPrimalRay(h_, &has, ray.data()) != kHighsStatusOk || !has || ++unbounded_rays_ > 200) {
        node_status_ = VLM_UNBOUNDED;
        return Outcome::kUnbounded;
      }
      double norm = 0.0;
      for (double v : ray) norm = std::max(norm, std::fabs(v));
      if (norm == 0.0) return Outcome::kUnbounded;
      for (double& v : ray) v *= 1e6 / norm;
      cuts.clear();
      for (auto& sep : seps_) sep->separate(ray, cuts);
      if (!add_cuts(cuts)) return Outcome::kUnbounded;
      continue;
    }
    if (ms != kHighsModelStatusOptimal) {
      log("Relaxation status " + num(ms));
      node_status_ = VLM_NUMERIC;
      return Outcome::kError;
    }
    const double obj = p_.sense * Highs_getObjectiveValue(h_);
    node.bound = std::max(node.bound, obj);
    if (node.bound >= incumbent_ - gap_target(incumbent_)) {
      pruned_at_ = std::min(pruned_at_, incumbent_);
      node_status_ = VLM_CUTOFF;
      return Outcome::kPruned;
    }

    bool feasible = true;
    cuts.clear();
    for (auto& sep : seps_) feasible = sep->separate(x_, cuts) && feasible;
    bool integral = true;
    for (int j = 0; j < p_.ncol && integral; ++j) {
      if (p_.integrality[j] != 0 && std::fabs(x_[j] - std::round(x_[j])) > s_.int_tol) integral = false;
    }
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
      if (feasible) log("Separation ended at node " + num(r_.nodes) + "; its point is kept as it is feasible");
    }
    if (integral && feasible) {
      incumbent_ = obj;
      r_.has_solution = true;
      r_.x = x_;
      r_.incumbents.emplace_back(p_.sense * obj, x_);
      if (node.depth == 0) {
        r_.row_dual = row_dual_;
        r_.col_dual = col_dual_;
      }
      log("Incumbent " + num(p_.sense * obj) + " at node " + num(r_.nodes) + " after " + num(elapsed()) + "s");
      return Outcome::kIncumbent;
    }
    if (s_.reduced_cost_fixing && std::isfinite(incumbent_) && p_.qval.empty()) fix_by_reduced_cost(node, obj);
    Branching br;
    std::vector<double> lo = p_.lower, up = p_.upper;
    for (const BoundChange& b : node.changes) {
      lo[b.col] = b.lower;
      up[b.col] = b.upper;
    }
    for (auto& rule : rules_) {
      if (rule->branch(x_, lo, up, br)) break;
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
      children.push_back(std::move(child));
    }
    dive_child = br.first;
    return Outcome::kBranched;
  }
}

SearchProgress BranchAndBound::progress() const {
  SearchProgress pr;
  pr.obj_best = p_.sense * incumbent_;
  pr.obj_bound = p_.sense * std::min({open_bound_, incumbent_, ceiling_});
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
  const double v = p_.sense * obj;
  if (v >= incumbent_) return;
  incumbent_ = v;
  r_.has_solution = true;
  r_.x = x;
  r_.incumbents.emplace_back(obj, x);
  log("Incumbent " + num(obj) + " offered at node " + num(r_.nodes) + " after " + num(elapsed()) + "s");
}

StatusOr<SearchResult> BranchAndBound::run() {
  start_ = wall_seconds();
  VLM_RETURN_IF_ERROR(load());
  auto worse = [](const Node& a, const Node& b) { return a.bound > b.bound; };
  std::vector<Node> heap;
  std::optional<Node> next = Node{-INFINITY, 0, {}};
  int status = 0;
  bool unbounded = false;
  while (true) {
    if (!next && heap.empty()) break;
    if (limit_reached(status)) break;
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
      pruned_at_ = std::min(pruned_at_, incumbent_);
      continue;
    }
    std::vector<Node> children;
    int dive = 0;
    const Outcome out = process(node, children, dive);
    r_.nodes += 1;
    if (node_status_ != 0 && s_.node_status) s_.node_status(node_status_);
    if (out == Outcome::kError) {
      // The node is dropped: the search goes on, but cannot claim optimality any more.
      log("HiGHS failed to solve the relaxation of node " + num(r_.nodes - 1) + "; the node is dropped");
      trouble_ = true;
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

  // The bound is the best of the nodes left (none left: the incumbent itself).
  double bound = std::min(incumbent_, ceiling_);
  if (next) bound = std::min(bound, next->bound);
  for (const Node& n : heap) bound = std::min(bound, n.bound);
  // Pruning done with a dropped incumbent proves nothing below its value.
  if (status == 0 && std::isfinite(ceiling_) && (!r_.has_solution || incumbent_ - bound > gap_target(incumbent_))) {
    trouble_ = true;
  }
  if (unbounded) {
    r_.status = p_.mip ? VLM_INF_OR_UNBD : VLM_UNBOUNDED;
    r_.has_solution = false;
  } else if (status != 0) {
    r_.status = status;
  } else if (trouble_) {
    r_.status = r_.has_solution ? VLM_SUBOPTIMAL : VLM_NUMERIC;
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
      fix_by_reduced_cost(root, p_.sense * Highs_getObjectiveValue(h_));
      r_.root_fixings = std::move(root.changes);
    }
  }
  log("Branch and bound: " + num(r_.nodes) + " nodes, " + num(r_.relaxations) + " relaxations, " + num(r_.lp_iterations) +
      " iterations, " + num(r_.cuts) + " cuts in " + num(elapsed()) + "s (HiGHS " + num(r_.highs_seconds) + "s)");
  return std::move(r_);
}

}  // namespace vlm::algorithms
