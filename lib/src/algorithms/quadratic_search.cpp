#include "algorithms/quadratic_search.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "algorithms/branch_and_bound.h"
#include "algorithms/pseudo_costs.h"
#include "algorithms/search_solution.h"
#include "reform/convexity.h"
#include "algorithms/quadratic_cuts.h"
#include "env/env.h"

namespace vlm::algorithms {

namespace {

double from_lib(double v) { return v >= VLM_INFINITY ? INFINITY : v <= -VLM_INFINITY ? -INFINITY : v; }

// Refuses what the search cannot solve; fills `cons` with the classified constraints.
Status check_model(const ModelData& d, const reform::WorkingProblem& p, int nonconvex,
                   std::vector<QuadConstraint>& cons) {
  const std::string how =
      nonconvex == 2 ? "; this version of Velmor cannot solve nonconvex quadratic models yet, even with NonConvex=2"
                     : "; set NonConvex to 2 to solve nonconvex models";
  const int refusal = nonconvex == 2 ? VLM_ERROR_NOT_SUPPORTED : VLM_ERROR_Q_NOT_PSD;
  if (!d.qval.empty()) {
    if (!reform::check_psd(d.qrow, d.qcol, d.qval, d.sense == -1).psd) {
      return Status(refusal, std::string("Objective Q matrix isn't ") +
                                 (d.sense == 1 ? "positive semi-definite (a minimisation needs a convex objective)"
                                               : "negative semi-definite (a maximisation needs a concave objective)") +
                                 how);
    }
  }
  for (int i = 0; i < d.num_qconstrs(); ++i) {
    QuadConstraint c = classify_qconstr(d.qconstrs[i], i, p.lower);
    if (c.shape == QuadShape::kNonconvex) {
      const std::string name = qconstr_label(d.qconstrs[i], i);
      if (d.qconstrs[i].sense == '=') {
        return Status(nonconvex == 2 ? VLM_ERROR_NOT_SUPPORTED : VLM_ERROR_QCP_EQUALITY_CONSTRAINT,
                      "Quadratic constraint '" + name + "' is an equality, which is not convex" + how);
      }
      return Status(refusal, "Quadratic constraint '" + name + "' is not convex: its Q matrix isn't positive " +
                                 "semi-definite (a second-order cone needs its right-hand side variables bounded "
                                 "below by 0)" + how);
    }
    cons.push_back(std::move(c));
  }
  return Status::Ok();
}

}  // namespace

bool needs_quadratic_search(const ModelData& d, const reform::WorkingProblem& p) {
  return d.num_qconstrs() > 0 || (p.mip && !p.qval.empty());
}

Status solve_quadratic(void* h, Env& env, const ModelData& d, const reform::WorkingProblem& given,
                       const std::atomic<bool>* stop, Solution& sol) {
  const ParamSet& ps = env.params();
  std::vector<QuadConstraint> cons;
  VLM_RETURN_IF_ERROR(check_model(d, given, ps.int_param("NonConvex"), cons));
  // Cones and convex constraints are disaggregated unless their multipliers are wanted: the
  // lifted form's cut duals do not add up to the constraint's multiplier.
  const bool duals = ps.int_param("QCPDual") == 1;
  reform::WorkingProblem lifted;
  const bool lift = !duals && std::any_of(cons.begin(), cons.end(), [](const QuadConstraint& c) {
    return (c.shape == QuadShape::kCone && c.lrows.size() >= 3) || c.shape == QuadShape::kConvex;
  });
  if (lift) {
    lifted = given;
    for (QuadConstraint& c : cons) {
      lift_cone(c, lifted);
      lift_convex(c, lifted);
    }
  }
  const reform::WorkingProblem& p = lift ? lifted : given;

  SearchSettings s;
  s.time_limit = from_lib(ps.dbl_param("TimeLimit"));
  s.node_limit = from_lib(ps.dbl_param("NodeLimit"));
  s.solution_limit = ps.int_param("SolutionLimit");
  s.mip_gap = ps.dbl_param("MIPGap");
  s.mip_gap_abs = ps.dbl_param("MIPGapAbs");
  s.int_tol = ps.dbl_param("IntFeasTol");
  // Without integers the root is iterated until the point is feasible.
  if (!p.mip) s.max_rounds = 100000;
  s.stop = stop;
  s.env = &env;
  s.cutoff = from_lib(ps.dbl_param("Cutoff"));
  s.best_obj_stop = from_lib(ps.dbl_param("BestObjStop"));
  s.best_bd_stop = from_lib(ps.dbl_param("BestBdStop"));
  s.heuristics = ps.dbl_param("Heuristics") > 0;
  // Cut until the violation is a tenth of the tolerance: the objective of the outer
  // approximation then also lies within about that much of the true optimum.
  const double tol = ps.dbl_param("FeasibilityTol") * 0.1;
  // Cones are also held to their own scale, ||L x|| - R x, where the objective feels them.
  const double cone_tol = std::max(1e-9, ps.dbl_param("BarQCPConvTol") * 1e-3);
  s.relaxation_feas_tol = std::max(1e-10, std::min(tol, cone_tol) * 0.1);

  const int nq = d.num_qconstrs();
  BranchAndBound search(h, p, s);
  search.add_branching_rule(integer_branching_rule(p, s.int_tol, &search, ps.int_param("VarBranch")));
  if (!cons.empty()) {
    auto sep = std::make_unique<QuadraticSeparator>(std::move(cons), tol, cone_tol,
                                                    ps.dbl_param("FeasibilityTol"));
    sep->set_bounds(p.lower, p.upper);
    search.add_separator(std::move(sep));
  }
  env.message("Solving by branch and bound with outer approximation: " + std::to_string(p.ncol) + " columns, " +
              std::to_string(p.nrow) + " rows, " + std::to_string(nq) + " quadratic constraints");
  auto result = search.run();
  if (!result.ok()) return result.status();
  SearchResult& r = *result;

  const int n = d.num_vars(), m = d.num_constrs();
  sol.is_mip = p.mip || p.reported_as_mip;
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
  if (!sol.is_mip && sol.status == VLM_OPTIMAL && duals && !r.row_dual.empty()) {
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
