// StatusConstClass: the optimisation status codes (VLM.status), also copied onto VLM itself.
#include "core/constclass.h"
#include "velmor_codes.h"

namespace {

const IntConst kStatusCodes[] = {
    {"LOADED", VLM_LOADED, "Model loaded, but no solution information available"},
    {"OPTIMAL", VLM_OPTIMAL, "Solve to optimality (subject to tolerances)"},
    {"INFEASIBLE", VLM_INFEASIBLE, "Model is infeasible"},
    {"INF_OR_UNBD", VLM_INF_OR_UNBD, "Model is either infeasible or unbounded"},
    {"UNBOUNDED", VLM_UNBOUNDED, "Model is unbounded"},
    {"CUTOFF", VLM_CUTOFF, "Objective is worse than specified cutoff value"},
    {"ITERATION_LIMIT", VLM_ITERATION_LIMIT, "Optimization terminated due to iteration limit"},
    {"NODE_LIMIT", VLM_NODE_LIMIT, "Optimization terminated due to node limit"},
    {"TIME_LIMIT", VLM_TIME_LIMIT, "Optimization terminated due to time limit"},
    {"SOLUTION_LIMIT", VLM_SOLUTION_LIMIT, "Optimization terminated due to solution limit"},
    {"INTERRUPTED", VLM_INTERRUPTED, "User interrupted optimization"},
    {"NUMERIC", VLM_NUMERIC, "Optimization terminated due to numerical issues"},
    {"SUBOPTIMAL", VLM_SUBOPTIMAL, "Optimization terminated with a sub-optimal solution"},
    {"INPROGRESS", VLM_INPROGRESS, "Optimization currently in progress"},
    {"USER_OBJ_LIMIT", VLM_USER_OBJ_LIMIT, "Achieved user objective limit"},
    {"WORK_LIMIT", VLM_WORK_LIMIT, "Optimization terminated due to work limit"},
    {"MEM_LIMIT", VLM_MEM_LIMIT, "Optimization terminated due to soft memory limit"},
};

}  // namespace

std::span<const IntConst> statusconst_codes() { return kStatusCodes; }

py::Ref statusconst_class() {
  HelpTable table;
  table.heading("Velmor optimization status codes (e.g., model.status == VLM.OPTIMAL):");
  table.rows(kStatusCodes);
  return constclass_from_ints("StatusConstClass", table.str(), kStatusCodes);
}
