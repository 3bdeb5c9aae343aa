// Maps the library's parameters onto HiGHS options.
#include "engine/highs_options.h"

#include <algorithm>
#include <string>
#include <utility>

#include "engine/highs_instance.h"
#include "interfaces/highs_c_api.h"
#include "params/param_table.h"

namespace vlm::engine {

// The parameters the reformulation step reads.
reform::ReformOptions reform_options(const ParamSet& ps) {
  reform::ReformOptions o;
  o.func_pieces = ps.int_param("FuncPieces");
  o.func_piece_length = ps.dbl_param("FuncPieceLength");
  o.func_piece_error = ps.dbl_param("FuncPieceError");
  o.func_piece_ratio = ps.dbl_param("FuncPieceRatio");
  o.func_max_val = ps.dbl_param("FuncMaxVal");
  o.params = &ps;
  return o;
}

void set_options(void* h, const ParamSet& ps, bool mip) {
  // HiGHS logs only through our callback; with OutputFlag 0 it need not format lines at all.
  Highs_setBoolOptionValue(h, "output_flag", ps.int_param("OutputFlag") != 0);
  Highs_setBoolOptionValue(h, "log_to_console", 0);
  double tl = ps.dbl_param("TimeLimit");
  if (tl < VLM_INFINITY) Highs_setDoubleOptionValue(h, "time_limit", tl);
  Highs_setDoubleOptionValue(h, "mip_rel_gap", ps.dbl_param("MIPGap"));
  // Tolerances left at their defaults keep HiGHS' own tuned values (the help texts give them);
  // a value the user sets is passed as it is.
  const std::pair<const char*, const char*> tolerances[] = {
      {"MIPGapAbs", "mip_abs_gap"},
      {"FeasibilityTol", "primal_feasibility_tolerance"},
      {"OptimalityTol", "dual_feasibility_tolerance"},
      {"IntFeasTol", "mip_feasibility_tolerance"}};
  for (const auto& [param, option] : tolerances) {
    if (!ps.is_default(find_param(param))) Highs_setDoubleOptionValue(h, option, ps.dbl_param(param));
  }
  Highs_setIntOptionValue(h, "random_seed", ps.int_param("Seed"));
  int presolve = ps.int_param("Presolve");
  Highs_setStringOptionValue(h, "presolve", presolve == 0 ? "off" : presolve < 0 ? "choose" : "on");
  int method = ps.int_param("Method");
  if (!mip) {
    if (method == 0) {
      Highs_setStringOptionValue(h, "solver", "simplex");
      Highs_setIntOptionValue(h, "simplex_strategy", 4);
    } else if (method == 1) {
      Highs_setStringOptionValue(h, "solver", "simplex");
      Highs_setIntOptionValue(h, "simplex_strategy", 1);
    } else if (method == 2) {
      Highs_setStringOptionValue(h, "solver", "ipm");
    }
  }
  double iters = ps.dbl_param("IterationLimit");
  if (iters < 2e9) Highs_setIntOptionValue(h, "simplex_iteration_limit", static_cast<HighsInt>(iters));
  int bariters = ps.int_param("BarIterLimit");
  Highs_setIntOptionValue(h, "ipm_iteration_limit", bariters);
  double nodes = ps.dbl_param("NodeLimit");
  if (nodes < 2e9) Highs_setIntOptionValue(h, "mip_max_nodes", static_cast<HighsInt>(nodes));
  int sols = ps.int_param("SolutionLimit");
  if (sols < VLM_MAXINT) Highs_setIntOptionValue(h, "mip_max_improving_sols", sols);
  Highs_setDoubleOptionValue(h, "mip_heuristic_effort", ps.dbl_param("Heuristics"));
  Highs_setDoubleOptionValue(h, "mip_min_logging_interval", ps.int_param("DisplayInterval"));

  // Strategy switches with a HiGHS counterpart (their help texts say how the values map). At
  // their defaults HiGHS keeps its own tuned settings.
  auto changed = [&ps](const char* name) { return !ps.is_default(find_param(name)); };
  if (changed("PerturbValue")) {
    Highs_setDoubleOptionValue(h, "dual_simplex_cost_perturbation_multiplier", ps.dbl_param("PerturbValue") / 0.0002);
  }
  static const int pricing[] = {-1, 0, 2, 1, 2};  // SimplexPricing -1..3 -> edge weights
  if (changed("SimplexPricing")) {
    Highs_setIntOptionValue(h, "simplex_dual_edge_weight_strategy", pricing[ps.int_param("SimplexPricing") + 1]);
  }
  static const int scaling[] = {1, 0, 2, 3, 4};  // ScaleFlag -1..3 -> scale strategy
  if (changed("ScaleFlag")) Highs_setIntOptionValue(h, "simplex_scale_strategy", scaling[ps.int_param("ScaleFlag") + 1]);
  if (changed("MarkowitzTol")) Highs_setDoubleOptionValue(h, "factor_pivot_threshold", ps.dbl_param("MarkowitzTol"));
  const int aggfill = ps.int_param("AggFill");
  if (aggfill >= 0) Highs_setIntOptionValue(h, "presolve_substitution_maxfillin", aggfill);
  if (changed("PreDual")) {
    const int predual = ps.int_param("PreDual");
    Highs_setIntOptionValue(h, "simplex_dualize_strategy", predual == 2 ? -1 : predual);
  }
  if (ps.int_param("Crossover") == 0) Highs_setStringOptionValue(h, "run_crossover", "off");
  if (mip) {
    const int node_method = ps.int_param("NodeMethod");
    Highs_setStringOptionValue(h, "mip_lp_solver", node_method < 0 ? "choose" : node_method == 2 ? "ipm" : "simplex");
    if (ps.int_param("Symmetry") == 0) Highs_setBoolOptionValue(h, "mip_detect_symmetry", 0);
    if (ps.int_param("Cuts") == 0) Highs_setBoolOptionValue(h, "mip_allow_cut_separation_at_nodes", 0);
    // MIPFocus trades heuristic effort against bound work.
    switch (ps.int_param("MIPFocus")) {
      case 1: Highs_setDoubleOptionValue(h, "mip_heuristic_effort", std::max(0.3, ps.dbl_param("Heuristics"))); break;
      case 2:
      case 3: Highs_setDoubleOptionValue(h, "mip_heuristic_effort", std::min(0.01, ps.dbl_param("Heuristics"))); break;
      default: break;
    }
    const std::pair<const char*, const char*> switches[] = {
        {"HeuFeasJump", "mip_heuristic_run_feasibility_jump"}, {"HeuRENS", "mip_heuristic_run_rens"},
        {"HeuRootRedCost", "mip_heuristic_run_root_reduced_cost"}, {"HeuShifting", "mip_heuristic_run_shifting"},
        {"HeuZIRound", "mip_heuristic_run_zi_round"}, {"RINS", "mip_heuristic_run_rins"}};
    for (const auto& [param, option] : switches) {
      const int v = ps.int_param(param);
      if (v >= 0) Highs_setBoolOptionValue(h, option, v > 0);
    }
  }
}

// Honours Threads within HiGHS' rule of one pool size per calling thread: a different size
// rebuilds the pool when no other solve is running; otherwise the solve keeps the pool it has
// and says so in the log.
void choose_threads(void* h, Env& env) {
  int want = env.params().int_param("Threads");
  if (want > 0 && pool_threads() != 0 && want != pool_threads()) {
    if (only_active_solve()) {
      Highs_resetGlobalScheduler(1);
    } else {
      env.message("Threads=" + std::to_string(want) + " cannot take effect while other solves run on " +
                  std::to_string(pool_threads()) + " threads; keeping " + std::to_string(pool_threads()));
      want = pool_threads();
    }
  }
  if (want == 0) want = pool_threads();
  if (want > 0) {
    Highs_setIntOptionValue(h, "threads", want);
    pool_threads() = want;
  }
}

}  // namespace vlm::engine
