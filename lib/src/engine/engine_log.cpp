// The log lines every solve writes around HiGHS' own.
#include "engine/engine_log.h"

#include <cstdio>

#include "core/platform.h"
#include "interfaces/highs_c_api.h"

namespace vlm::engine {

const char* status_text(int status) {
  switch (status) {
    case VLM_OPTIMAL: return "Optimal solution found";
    case VLM_INFEASIBLE: return "Infeasible model";
    case VLM_INF_OR_UNBD: return "Infeasible or unbounded model";
    case VLM_UNBOUNDED: return "Unbounded model";
    case VLM_CUTOFF: return "Objective cutoff exceeded";
    case VLM_ITERATION_LIMIT: return "Iteration limit reached";
    case VLM_NODE_LIMIT: return "Node limit reached";
    case VLM_TIME_LIMIT: return "Time limit reached";
    case VLM_SOLUTION_LIMIT: return "Solution limit reached";
    case VLM_INTERRUPTED: return "Solve interrupted";
    case VLM_SUBOPTIMAL: return "Sub-optimal termination";
    case VLM_USER_OBJ_LIMIT: return "Objective target reached";
    case VLM_MEM_LIMIT: return "Memory limit reached";
    default: return "Numerical trouble encountered";
  }
}

void log_banner(Env& env, const ModelData& d, const reform::WorkingProblem& p) {
  char line[256];
  std::snprintf(line, sizeof line, "Velmor Optimizer version %d.%d.%d (%s), engine HiGHS %d.%d.%d",
                VLM_VERSION_MAJOR, VLM_VERSION_MINOR, VLM_VERSION_TECHNICAL, platform_name(),
                HIGHS_VERSION_MAJOR, HIGHS_VERSION_MINOR, HIGHS_VERSION_PATCH);
  env.message(line);
  std::snprintf(line, sizeof line, "Optimize a model with %d rows, %d columns and %zu nonzeros%s",
                d.num_constrs(), d.num_vars(), p.aval.size(), p.mip ? " (MIP)" : "");
  env.message(line);
  if (p.reformulated > 0) {
    std::snprintf(line, sizeof line, "Reformulated %d SOS, general constraints and PWL objective terms into %d columns and %d rows",
                  p.reformulated, p.ncol - d.num_vars(), p.nrow - d.num_constrs());
    env.message(line);
  }
  env.message("");
}

void log_summary(Env& env, const Solution& s) {
  char line[256];
  env.message("");
  if (s.is_mip) {
    std::snprintf(line, sizeof line, "Explored %.0f nodes (%.0f LP iterations) in %.2f seconds", s.nodecount,
                  s.itercount, s.runtime);
  } else {
    std::snprintf(line, sizeof line, "Solved in %.0f simplex and %.0f barrier iterations in %.2f seconds",
                  s.itercount, s.baritercount, s.runtime);
  }
  env.message(line);
  env.message(status_text(s.status));
  if (s.sol_count > 0) {
    if (s.is_mip) {
      std::snprintf(line, sizeof line, "Best objective %.12e, best bound %.12e, gap %.4f%%", s.objval, s.objbound,
                    100.0 * (s.mipgap >= VLM_INFINITY ? 0.0 : s.mipgap));
    } else {
      std::snprintf(line, sizeof line, "Objective value %.12e", s.objval);
    }
    env.message(line);
  }
}

}  // namespace vlm::engine
