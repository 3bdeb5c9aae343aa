#include "callbacks/highs_points.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/platform.h"
#include "velmor_codes.h"

namespace vlm::callbacks {

namespace {

// HiGHS's infinities as the library's.
double lib_value(double v) {
  if (v >= VLM_INFINITY) return VLM_INFINITY;
  if (v <= -VLM_INFINITY) return -VLM_INFINITY;
  return v;
}

// MIP progress as HiGHS reports it, for a MIP, MIPSOL or MIPNODE call.
Point mip_point(const HighsTap& st, const HighsCallbackDataOut* out) {
  Point p;
  p.obj_best = lib_value(out->mip_primal_bound);
  p.obj_bound = lib_value(out->mip_dual_bound);
  p.nodes = static_cast<double>(out->mip_node_count);
  p.iterations = static_cast<double>(out->mip_total_lp_iterations);
  p.solutions = st.solutions;
  p.cuts = st.cuts;
  return p;
}

}  // namespace

bool highs_event(HighsTap& st, int type, const HighsCallbackDataOut* out, HighsCallbackDataIn* in) {
  if (out == nullptr) return false;
  switch (type) {
    case kHighsCallbackSimplexInterrupt: {
      Point p;
      p.itcount = out->simplex_iteration_count;
      p.objval = p.priminf = p.dualinf = std::nan("");
      if (st.mip) {
        st.user->call(VLM_CB_POLLING, p);
      } else {
        st.user->call(VLM_CB_SIMPLEX, p);
      }
      break;
    }
    case kHighsCallbackIpmInterrupt: {
      Point p;
      // HiGHS 1.15.1 leaves the count at -1 in its IPM interrupts (they come from inner loops).
      p.itcount = out->ipm_iteration_count >= 0 ? out->ipm_iteration_count : std::nan("");
      p.objval = p.dualobj = p.priminf = p.dualinf = p.compl_ = std::nan("");
      st.user->call(VLM_CB_BARRIER, p);
      break;
    }
    case kHighsCallbackMipInterrupt:
      // HiGHS's MIP reports no simplex interrupts from its LPs: POLLING comes from here, at
      // most every 0.05 s (the first at once), before the MIP call.
      if (wall_seconds() - st.last_poll >= 0.05) {
        st.last_poll = wall_seconds();
        st.user->call(VLM_CB_POLLING, Point{});
      }
      st.user->call(VLM_CB_MIP, mip_point(st, out));
      break;
    case kHighsCallbackMipSolution: {
      if (out->mip_solution == nullptr || out->mip_solution_size < st.user_cols) break;
      Point p = mip_point(st, out);
      // The solution being reported is already counted in `found`.
      p.solutions = std::max(0, p.solutions - 1);
      p.x = out->mip_solution;
      p.obj = out->objective_function_value;
      st.user->call(VLM_CB_MIPSOL, p);
      break;
    }
    case kHighsCallbackMipGetCutPool:
      st.cuts = out->cutpool_num_cut;
      return true;
    case kHighsCallbackCallbackMipUserSolution: {
      std::vector<double> x = st.user->take_heuristic();
      if (x.empty() || in == nullptr) break;
      std::vector<HighsInt> idx;
      std::vector<double> val;
      for (int j = 0; j < st.user_cols && j < static_cast<int>(x.size()); ++j) {
        if (std::isnan(x[j])) continue;
        idx.push_back(j);
        val.push_back(x[j]);
      }
      if (idx.empty()) break;
      Highs_setCallbackSparseSolution(in, static_cast<HighsInt>(idx.size()), idx.data(), val.data());
      // Values left open (and the columns a reformulation added) are completed by HiGHS.
      if (static_cast<int>(idx.size()) < out->mip_solution_size || out->mip_solution_size == 0) {
        Highs_repairCallbackSolution(in);
      }
      // The C wrapper copies this flag back from the C struct, not from the helper's work.
      in->user_has_solution = 1;
      return true;
    }
    default:
      break;
  }
  if (type == kHighsCallbackCallbackMipUserSolution) return true;
  // VLMcbstoponemultiobj, or VLMcbproceed during a level: this solve (one objective level)
  // ends; the driver goes on.
  if (in != nullptr && (st.user->stop_objective() >= 0 || (st.user->in_level() && st.user->proceed_pending()))) {
    in->user_interrupt = 1;
    return true;
  }
  return false;
}


}  // namespace vlm::callbacks
