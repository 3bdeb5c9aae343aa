#include "algorithms/quadratic_search.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "algorithms/branch_and_bound.h"
#include "algorithms/construct_branching.h"
#include "algorithms/pseudo_costs.h"
#include "algorithms/search_solution.h"
#include "reform/convexity.h"
#include "algorithms/quadratic_cuts.h"
#include "algorithms/spatial_search.h"
#include "core/platform.h"
#include "env/env.h"
#include "reform/binary_products.h"

namespace vlm::algorithms {

namespace {

// Refuses what the search cannot solve; fills `cons` with the classified constraints. With
// NonConvex = 2 nonconvex parts are kept and `spatial` is set.
Status check_model(const ModelData& d, const reform::WorkingProblem& p, int nonconvex,
                   std::vector<QuadConstraint>& cons, bool& spatial, bool& spatial_objective) {
  const std::string how = "; set NonConvex to 2 to solve nonconvex models";
  // A working problem kept from a solve with NonConvex=2 still carries its verdict.
  spatial_objective = p.nonconvex_objective && nonconvex == 2;
  if (!d.qval.empty() && !spatial_objective) {
    if (!reform::check_psd(d.qrow, d.qcol, d.qval, d.sense == -1).psd) {
      if (nonconvex == 2) {
        spatial_objective = true;
      } else {
        return Status(VLM_ERROR_Q_NOT_PSD,
                      std::string("Objective Q matrix isn't ") +
                          (d.sense == 1 ? "positive semi-definite (a minimisation needs a convex objective)"
                                        : "negative semi-definite (a maximisation needs a concave objective)") +
                          how);
      }
    }
  }
  for (int i = 0; i < d.num_qconstrs(); ++i) {
    QuadConstraint c = classify_qconstr(d.qconstrs[i], i, p.lower);
    if (c.shape == QuadShape::kNonconvex && nonconvex != 2) {
      const std::string name = qconstr_label(d.qconstrs[i], i);
      if (d.qconstrs[i].sense == '=') {
        return Status(VLM_ERROR_QCP_EQUALITY_CONSTRAINT,
                      "Quadratic constraint '" + name + "' is an equality, which is not convex" + how);
      }
      return Status(VLM_ERROR_Q_NOT_PSD, "Quadratic constraint '" + name +
                                             "' is not convex: its Q matrix isn't positive semi-definite (a "
                                             "second-order cone needs its right-hand side variables bounded below "
                                             "by 0)" + how);
    }
    if (c.shape == QuadShape::kNonconvex) spatial = true;
    cons.push_back(std::move(c));
  }
  // Rows the reformulation emitted for general constraints (2-norms) come after the user's.
  for (std::size_t k = 0; k < p.qrows.size(); ++k) {
    QuadConstraint c = classify_qconstr(p.qrows[k], d.num_qconstrs() + static_cast<int>(k), p.lower);
    if (c.shape == QuadShape::kNonconvex && nonconvex != 2) {
      return Status(VLM_ERROR_QCP_EQUALITY_CONSTRAINT,
                    p.qrows[k].name + " ties its result to the 2-norm from both sides (y = ||x||), which is not "
                                      "convex here: the objective or other constraints may favour a larger y" + how);
    }
    if (c.shape == QuadShape::kNonconvex) spatial = true;
    cons.push_back(std::move(c));
  }
  spatial = spatial || spatial_objective;
  return Status::Ok();
}

// Replaces every product of the nonconvex objective and constraints by a column of `rel`: the
// objective becomes linear, and each nonconvex constraint a linear row (an equality stays one
// row with both sides).
void lift_products(const ModelData& d, const std::vector<QuadConstraint>& cons, bool objective,
                   reform::WorkingProblem& p, SpatialRelaxation& rel) {
  if (objective) {
    for (std::size_t k = 0; k < d.qval.size(); ++k) {
      const int w = rel.lift(d.qrow[k], d.qcol[k], "the objective", p);
      p.cost[w] += d.qval[k];
    }
    p.qval.clear();
    p.qindex.clear();
    p.qstart.clear();
  }
  for (const QuadConstraint& c : cons) {
    if (c.shape != QuadShape::kNonconvex) continue;
    // Rows emitted for general constraints are numbered after the user's quadratic constraints.
    const QConstrData& q =
        c.index < d.num_qconstrs() ? d.qconstrs[c.index] : p.qrows[c.index - d.num_qconstrs()];
    std::vector<int> ind = c.li;
    std::vector<double> val = c.lv;
    const std::string where = "quadratic constraint '" + qconstr_label(q, c.index) + "'";
    for (std::size_t k = 0; k < c.qv.size(); ++k) {
      ind.push_back(rel.lift(c.qr[k], c.qc[k], where, p));
      val.push_back(c.qv[k]);
    }
    const bool eq = q.sense == '=';
    p.add_row(ind, val, eq ? c.rhs : -INFINITY, c.rhs);
  }
}

}  // namespace

bool needs_quadratic_search(const ModelData& d, const reform::WorkingProblem& p) {
  return d.num_qconstrs() > 0 || !p.qrows.empty() || (p.mip && !p.qval.empty()) || p.nonconvex_objective;
}

Status solve_quadratic(void* h, Env& env, const ModelData& user, const reform::WorkingProblem& base,
                       const std::atomic<bool>* stop, Solution& sol) {
  const ParamSet& ps = env.params();
  // Products with a binary factor become four rows each first: exact, and often all that
  // stands between a model and convexity.
  bool binary_products = false;
  if (ps.int_param("PreQLinearize") != 0) {
    for (std::size_t k = 0; k < user.qval.size() && !binary_products; ++k) {
      binary_products = reform::is_binary_product(base, user.qrow[k], user.qcol[k]);
    }
    for (const QConstrData& q : user.qconstrs) {
      for (std::size_t k = 0; k < q.qval.size() && !binary_products; ++k) {
        binary_products = reform::is_binary_product(base, q.qrow[k], q.qcol[k]);
      }
    }
  }
  ModelData linear_data;
  reform::WorkingProblem linear_problem;
  if (binary_products) {
    linear_data = user;
    linear_problem = base;
    const int n = reform::linearize_binary_products(linear_data, linear_problem);
    env.message("Linearised " + std::to_string(n) + " products with a binary factor");
  }
  const ModelData& d = binary_products ? linear_data : user;
  const reform::WorkingProblem& given = binary_products ? linear_problem : base;
  std::vector<QuadConstraint> cons;
  bool spatial = false, spatial_objective = false;
  VLM_RETURN_IF_ERROR(check_model(d, given, ps.int_param("NonConvex"), cons, spatial, spatial_objective));
  // Cones and convex constraints are disaggregated unless their multipliers are wanted: the
  // lifted form's cut duals do not add up to the constraint's multiplier.
  const bool duals = ps.int_param("QCPDual") == 1;
  reform::WorkingProblem lifted;
  const bool lift = spatial || (!duals && std::any_of(cons.begin(), cons.end(), [](const QuadConstraint& c) {
                      return (c.shape == QuadShape::kCone && c.lrows.size() >= 3) || c.shape == QuadShape::kConvex;
                    }));
  SpatialRelaxation rel;
  if (lift) {
    lifted = given;
    if (!duals || spatial) {
      for (QuadConstraint& c : cons) {
        lift_cone(c, lifted);
        lift_convex(c, lifted);
      }
    }
    if (spatial) {
      lift_products(d, cons, spatial_objective, lifted, rel);
      VLM_RETURN_IF_ERROR(rel.prepare(d, lifted));
    }
  }
  const reform::WorkingProblem& p = lift ? lifted : given;
  // The outer approximation takes the convex constraints; the products stand for the rest.
  std::vector<QuadConstraint> convex;
  for (QuadConstraint& c : cons) {
    if (c.shape != QuadShape::kNonconvex) convex.push_back(std::move(c));
  }

  SearchSettings s = search_settings(env, d, p.ncol, stop);
  // Without integers the root is iterated until the point is feasible.
  if (!p.mip) s.max_rounds = 100000;
  // Cut until the violation is a tenth of the tolerance: the objective of the outer
  // approximation then also lies within about that much of the true optimum.
  const double tol = ps.dbl_param("FeasibilityTol") * 0.1;
  // Cones are also held to their own scale, ||L x|| - R x, where the objective feels them.
  const double cone_tol = std::max(1e-9, ps.dbl_param("BarQCPConvTol") * 1e-3);
  s.relaxation_feas_tol = std::max(1e-10, std::min(tol, cone_tol) * 0.1);

  if (spatial) {
    // Products are refined by branching, not by rounds of cuts at one node.
    s.max_rounds = 20;
    s.root_rounds = 20;
    s.node_rounds = 5;
    s.node_bounds = [&rel, &p, h](std::vector<double>& lo, std::vector<double>& up) {
      if (!rel.propagate(p, lo, up, 5)) return false;
      rel.update_rows(h, lo, up);
      return true;
    };
  }

  const int nq = d.num_qconstrs();
  BranchAndBound search(h, p, s);
  search.add_branching_rule(
      integer_branching_rule(p, s.int_tol, &search, ps.int_param("VarBranch"), s.branch_priority));
  // SOS and indicators without finite big-Ms are branched on here too.
  add_construct_branching(search, p, ps.dbl_param("FeasibilityTol"), s.int_tol);
  std::unique_ptr<FixingHeuristic> heuristic;
  if (spatial) {
    auto check = std::make_shared<SpatialChecker>(p, rel, convex, ps.dbl_param("FeasibilityTol"), s.int_tol);
    OfferFn offer = [&search](const std::vector<double>& x, double obj) { search.offer_incumbent(x, obj); };
    heuristic = std::make_unique<FixingHeuristic>(p, rel, check, offer);
    const double start = wall_seconds(), limit = s.time_limit;
    search.add_branching_rule(std::make_unique<SpatialBranchingRule>(
        p, rel, heuristic.get(), [start, limit] { return limit - (wall_seconds() - start); }));
    search.add_separator(std::make_unique<SpatialSeparator>(check, rel, offer));
  }
  if (!convex.empty()) {
    auto sep = std::make_unique<QuadraticSeparator>(std::move(convex), tol, cone_tol,
                                                    ps.dbl_param("FeasibilityTol"));
    sep->set_bounds(p.lower, p.upper);
    search.add_separator(std::move(sep));
  }
  if (spatial) {
    env.message("Solving by spatial branch and bound: " + std::to_string(rel.terms().size()) +
                " products relaxed, " + std::to_string(p.ncol) + " columns, " + std::to_string(p.nrow) + " rows");
  } else {
    env.message("Solving by branch and bound with outer approximation: " + std::to_string(p.ncol) + " columns, " +
                std::to_string(p.nrow) + " rows, " + std::to_string(nq) + " quadratic constraints");
  }
  auto result = search.run();
  if (!result.ok()) return result.status();
  SearchResult& r = *result;
  // A 2-norm solved as its cone alone, whose result nothing else depends on, takes its value.
  for (const reform::WorkingProblem::NormValue& v : p.set_to_norm) {
    auto set = [&v](std::vector<double>& x) {
      if (x.empty()) return;
      double sum = 0.0;
      for (int j : v.of) sum += x[j] * x[j];
      x[v.col] = std::sqrt(sum);
    };
    set(r.x);
    for (auto& inc : r.incumbents) set(inc.second);
  }

  const int n = d.num_vars(), m = d.num_constrs();
  // A spatial search reports as a MIP does: bound, gap, nodes and pool rather than duals.
  sol.is_mip = p.mip || p.reported_as_mip || spatial;
  fill_from_search(r, d, p, ps.int_param("PoolSolutions"), sol);
  if (!r.has_solution) return Status::Ok();
  sol.qc_slack.resize(nq);
  for (int i = 0; i < nq; ++i) {
    const QConstrData& q = d.qconstrs[i];
    double lhs = 0.0;
    for (std::size_t k = 0; k < q.qval.size(); ++k) lhs += q.qval[k] * r.x[q.qrow[k]] * r.x[q.qcol[k]];
    for (std::size_t k = 0; k < q.lval.size(); ++k) lhs += q.lval[k] * r.x[q.lind[k]];
    sol.qc_slack[i] = q.rhs - lhs;
  }
  if (!sol.is_mip && !spatial && sol.status == VLM_OPTIMAL && duals && !r.row_dual.empty()) {
    // Duals of the final outer approximation: a constraint's multiplier is the sum of its cut
    // rows' duals, each weighted back to the scale of g's tangent (which the cuts near the
    // optimum equal).
    sol.has_duals = true;
    sol.pi.assign(r.row_dual.begin(), r.row_dual.begin() + m);
    sol.rc.assign(r.col_dual.begin(), r.col_dual.begin() + n);
    sol.qc_pi.assign(nq, 0.0);
    for (std::size_t k = 0; k < r.cut_owner.size(); ++k) {
      const std::size_t row = static_cast<std::size_t>(p.nrow) + k;
      if (r.cut_owner[k] >= 0 && r.cut_owner[k] < nq && row < r.row_dual.size()) {
        // A '>' constraint was cut in its negated form.
        const double sign = d.qconstrs[r.cut_owner[k]].sense == '>' ? -1.0 : 1.0;
        sol.qc_pi[r.cut_owner[k]] += sign * r.row_dual[row] * r.cut_weight[k];
      }
    }
  }
  return Status::Ok();
}

}  // namespace vlm::algorithms
