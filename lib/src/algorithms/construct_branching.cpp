#include "algorithms/construct_branching.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "algorithms/search_solution.h"
#include "env/env.h"

namespace vlm::algorithms {

using reform::HeldConstruct;

namespace {

double row_violation(const HeldConstruct& c, const std::vector<double>& x) {
  double act = 0.0;
  for (std::size_t k = 0; k < c.ind.size(); ++k) act += c.val[k] * x[c.ind[k]];
  if (c.sense == '<') return std::max(0.0, act - c.rhs);
  if (c.sense == '>') return std::max(0.0, c.rhs - act);
  return std::fabs(act - c.rhs);
}

// Positions (weight order) of the members whose magnitude exceeds tol.
std::vector<int> nonzero_positions(const HeldConstruct& c, const std::vector<double>& x, double tol) {
  std::vector<int> nz;
  for (int i = 0; i < static_cast<int>(c.cols.size()); ++i) {
    if (std::fabs(x[c.cols[i]]) > tol) nz.push_back(i);
  }
  return nz;
}

// The split position: the last member whose weight is at most the weighted mean of the
// non-zeros' weights, kept within [lo, hi].
int split_position(const HeldConstruct& c, const std::vector<double>& x, const std::vector<int>& nz, int lo, int hi) {
  double mass = 0.0, moment = 0.0;
  for (int i : nz) {
    const double a = std::fabs(x[c.cols[i]]);
    mass += a;
    moment += a * c.weights[i];
  }
  const double mean = moment / mass;
  int r = lo;
  for (int i = lo; i <= hi; ++i) {
    if (c.weights[i] <= mean) r = i;
  }
  return r;
}

// Members in positions [from, to] fixed to 0 (those the node has not fixed already). A member
// whose node bounds exclude 0 gets an empty range, which makes the child infeasible.
std::vector<BoundChange> zero_out(const HeldConstruct& c, int from, int to, const std::vector<double>& lower,
                                  const std::vector<double>& upper) {
  std::vector<BoundChange> out;
  for (int i = from; i <= to; ++i) {
    const int j = c.cols[i];
    if (lower[j] == 0.0 && upper[j] == 0.0) continue;
    out.push_back({j, std::max(lower[j], 0.0), std::min(upper[j], 0.0)});
  }
  return out;
}

double mass_of(const HeldConstruct& c, const std::vector<double>& x, int from, int to) {
  double m = 0.0;
  for (int i = from; i <= to; ++i) m += std::fabs(x[c.cols[i]]);
  return m;
}

bool branch_sos(const HeldConstruct& c, const std::vector<double>& x, const std::vector<double>& lower,
                const std::vector<double>& upper, double tol, Branching& out) {
  const std::vector<int> nz = nonzero_positions(c, x, tol);
  const int n = static_cast<int>(c.cols.size());
  if (nz.size() < 2) return false;
  const int a = nz.front(), last = nz.back();
  out.children.clear();
  if (c.kind == HeldConstruct::Kind::kSos1) {
    // Left child keeps 0..r (fixes the rest), right child keeps r+1..n-1.
    const int r = split_position(c, x, nz, a, last - 1);
    out.children.push_back(zero_out(c, r + 1, n - 1, lower, upper));
    out.children.push_back(zero_out(c, 0, r, lower, upper));
    out.first = mass_of(c, x, 0, r) >= mass_of(c, x, r + 1, n - 1) ? 0 : 1;
    return true;
  }
  if (last - a < 2) return false;
  // Left child keeps 0..r, right child keeps r..n-1: r is in both windows.
  const int r = split_position(c, x, nz, a + 1, last - 1);
  out.children.push_back(zero_out(c, r + 1, n - 1, lower, upper));
  out.children.push_back(zero_out(c, 0, r - 1, lower, upper));
  out.first = mass_of(c, x, 0, r) >= mass_of(c, x, r, n - 1) ? 0 : 1;
  return true;
}

bool branch_indicator(const HeldConstruct& c, const std::vector<double>& x, const std::vector<double>& lower,
                      const std::vector<double>& upper, Branching& out) {
  const double on = c.binval, off = 1.0 - c.binval;
  const bool fixed_on = lower[c.bin] == on && upper[c.bin] == on;
  // The row is in force already: nothing left to branch on (a numerical violation).
  if (fixed_on && lower[c.slack] == 0.0 && upper[c.slack] == 0.0) return false;
  out.children.clear();
  out.children.push_back({{c.bin, on, on}, {c.slack, 0.0, 0.0}});
  if (!fixed_on) out.children.push_back({{c.bin, off, off}});
  out.first = (!fixed_on && std::fabs(x[c.bin] - off) < std::fabs(x[c.bin] - on)) ? 1 : 0;
  return true;
}

}  // namespace

double construct_violation(const HeldConstruct& c, const std::vector<double>& x, double tol, double int_tol) {
  if (c.kind == HeldConstruct::Kind::kIndicator) {
    if (std::fabs(x[c.bin] - (1.0 - c.binval)) <= int_tol) return 0.0;
    const double v = row_violation(c, x);
    return v > tol ? v : 0.0;
  }
  const std::vector<int> nz = nonzero_positions(c, x, tol);
  if (nz.size() < 2) return 0.0;
  double total = 0.0, keep = 0.0;
  for (int i : nz) total += std::fabs(x[c.cols[i]]);
  if (c.kind == HeldConstruct::Kind::kSos1) {
    for (int i : nz) keep = std::max(keep, std::fabs(x[c.cols[i]]));
  } else {
    if (nz.back() - nz.front() < 2) return 0.0;
    for (std::size_t i = 0; i + 1 < c.cols.size(); ++i) {
      keep = std::max(keep, std::fabs(x[c.cols[i]]) + std::fabs(x[c.cols[i + 1]]));
    }
  }
  return std::max(total - keep, tol * 2);  // violated, however little mass lies outside
}

bool ConstructChecker::separate(const std::vector<double>& x, std::vector<Cut>& out) {
  (void)out;
  return acceptable(x);
}

bool ConstructChecker::acceptable(const std::vector<double>& x) {
  return std::all_of(held_.begin(), held_.end(),
                     [&](const HeldConstruct& c) { return construct_violation(c, x, tol_, int_tol_) == 0.0; });
}

bool ConstructBranchingRule::branch(const std::vector<double>& x, const std::vector<double>& lower,
                                    const std::vector<double>& upper, Branching& out) {
  // Most violated first; a construct that cannot be branched on gives way to the next.
  std::vector<std::pair<double, std::size_t>> violated;
  for (std::size_t k = 0; k < held_.size(); ++k) {
    const double v = construct_violation(held_[k], x, tol_, int_tol_);
    if (v > 0.0) violated.emplace_back(v, k);
  }
  std::stable_sort(violated.begin(), violated.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  for (const auto& [v, k] : violated) {
    (void)v;
    const HeldConstruct& c = held_[k];
    const bool done = c.kind == HeldConstruct::Kind::kIndicator ? branch_indicator(c, x, lower, upper, out)
                                                                  : branch_sos(c, x, lower, upper, tol_, out);
    if (done) return true;
  }
  return false;
}

void add_construct_branching(BranchAndBound& search, const reform::WorkingProblem& p, double tol, double int_tol) {
  if (p.held.empty()) return;
  search.add_separator(std::make_unique<ConstructChecker>(p.held, tol, int_tol));
  search.add_branching_rule(std::make_unique<ConstructBranchingRule>(p.held, tol, int_tol));
}

Status solve_with_held_constructs(void* h, Env& env, const ModelData& d, const reform::WorkingProblem& p,
                                  bool lazy_or_hooked, const std::atomic<bool>* stop, Solution& sol) {
  if (lazy_or_hooked) {
    return Status(VLM_ERROR_NOT_SUPPORTED,
                  p.held.front().who +
                      " has a member without finite bounds, so the solve branches on it in a search of its own; "
                      "lazy constraints and callbacks that add rows cannot be combined with it yet");
  }
  const ParamSet& ps = env.params();
  SearchSettings s = search_settings(env, d, p.ncol, stop);
  const double tol = ps.dbl_param("FeasibilityTol");
  std::vector<int> integers;
  for (int j = 0; j < p.ncol; ++j) {
    if (p.integrality[j] == 1) integers.push_back(j);
  }
  BranchAndBound search(h, p, s);
  // Constructs first: an indicator's branch on b also puts its row in force, which an integer
  // branch on b alone would leave for one more node.
  add_construct_branching(search, p, tol, s.int_tol);
  search.add_branching_rule(std::make_unique<MostFractionalRule>(std::move(integers), s.int_tol, s.branch_priority));
  env.message("Solving by branch and bound on " + std::to_string(p.held.size()) +
              " SOS and indicator constraints without finite big-M: " + std::to_string(p.ncol) + " columns, " +
              std::to_string(p.nrow) + " rows");
  auto result = search.run();
  if (!result.ok()) return result.status();
  // An unbounded relaxation says nothing of the held constructs, which may bound the problem.
  if (result->status == VLM_UNBOUNDED) result->status = VLM_INF_OR_UNBD;
  sol.is_mip = true;
  fill_from_search(*result, d, p, ps.int_param("PoolSolutions"), sol);
  return Status::Ok();
}

}  // namespace vlm::algorithms
