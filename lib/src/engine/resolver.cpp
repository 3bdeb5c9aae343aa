#include "engine/resolver.h"

#include <string>
#include <vector>

#include "engine/kept_problem.h"
#include "engine/run_setup.h"
#include "interfaces/highs_c_api.h"

namespace vlm::engine {

namespace {

void stop_callback(int type, const char*, const HighsCallbackDataOut*, HighsCallbackDataIn* data_in, void* user) {
  if (type == kHighsCallbackLogging || data_in == nullptr) return;
  // HiGHS keeps the input struct from call to call: a stop already taken back must be cleared.
  data_in->user_interrupt = static_cast<const std::atomic<bool>*>(user)->load(std::memory_order_relaxed) ? 1 : 0;
}

}  // namespace

StatusOr<std::unique_ptr<Resolver>> Resolver::open(Env& env, const reform::WorkingProblem& p,
                                                   const std::atomic<bool>* stop) {
  std::unique_ptr<Resolver> r(new Resolver(env, stop));
  void* h = r->highs_.h;
  if (h == nullptr) return Status(VLM_ERROR_OUT_OF_MEMORY, "Unable to create a HiGHS instance");
  try {
    apply_options(h, env, p.mip);
    // Drivers write their own log; this instance stays quiet.
    Highs_setBoolOptionValue(h, "output_flag", 0);
    if (pass_whole(h, p) == kHighsStatusError) return Status(VLM_ERROR_INVALID_ARGUMENT, "HiGHS rejected the problem");
    if (stop != nullptr) {
      Highs_setCallback(h, stop_callback, const_cast<std::atomic<bool>*>(stop));
      for (int type : {kHighsCallbackSimplexInterrupt, kHighsCallbackIpmInterrupt, kHighsCallbackMipInterrupt}) {
        Highs_startCallback(h, type);
      }
    }
  } catch (...) {
    return Status(VLM_ERROR_INTERNAL, "HiGHS failed while taking the problem");
  }
  r->mip_ = p.mip;
  r->ncol_ = p.ncol;
  r->nrow_ = p.nrow;
  return r;
}

Status Resolver::check_columns(const std::vector<int>& cols, std::size_t len) const {
  if (cols.size() != len) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, "Lists of " + std::to_string(cols.size()) + " columns and " +
                                                  std::to_string(len) + " values differ in length");
  }
  for (int c : cols) {
    if (c < 0 || c >= ncol_) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE,
                    "Column " + std::to_string(c) + " is out of range (0.." + std::to_string(ncol_ - 1) + ")");
    }
  }
  return Status::Ok();
}

Status Resolver::set_bounds(const std::vector<int>& cols, const std::vector<double>& lo, const std::vector<double>& up) {
  if (lo.size() != up.size()) return Status(VLM_ERROR_INVALID_ARGUMENT, "Lower and upper bound lists differ in length");
  VLM_RETURN_IF_ERROR(check_columns(cols, lo.size()));
  if (cols.empty()) return Status::Ok();
  try {
    if (Highs_changeColsBoundsBySet(highs_.h, static_cast<HighsInt>(cols.size()), cols.data(), lo.data(), up.data()) ==
        kHighsStatusError) {
      return Status(VLM_ERROR_INTERNAL, "HiGHS refused a bound change");
    }
  } catch (...) {
    return Status(VLM_ERROR_INTERNAL, "HiGHS failed while changing bounds");
  }
  return Status::Ok();
}

Status Resolver::add_row(const std::vector<int>& ind, const std::vector<double>& val, double lo, double up) {
  VLM_RETURN_IF_ERROR(check_columns(ind, val.size()));
  const HighsInt start = 0;
  try {
    if (Highs_addRows(highs_.h, 1, &lo, &up, static_cast<HighsInt>(ind.size()), &start, ind.data(), val.data()) ==
        kHighsStatusError) {
      return Status(VLM_ERROR_INTERNAL, "HiGHS refused a new row");
    }
  } catch (...) {
    return Status(VLM_ERROR_INTERNAL, "HiGHS failed while adding a row");
  }
  ++nrow_;
  return Status::Ok();
}

Status Resolver::truncate_rows(int first) {
  if (first < 0 || first > nrow_) {
    return Status(VLM_ERROR_INDEX_OUT_OF_RANGE,
                  "Row " + std::to_string(first) + " is out of range (0.." + std::to_string(nrow_) + ")");
  }
  if (first == nrow_) return Status::Ok();
  try {
    if (Highs_deleteRowsByRange(highs_.h, first, nrow_ - 1) == kHighsStatusError) {
      return Status(VLM_ERROR_INTERNAL, "HiGHS refused deleting rows");
    }
  } catch (...) {
    return Status(VLM_ERROR_INTERNAL, "HiGHS failed while deleting rows");
  }
  nrow_ = first;
  return Status::Ok();
}

StatusOr<int> Resolver::run() {
  ActiveSolve active;
  void* h = highs_.h;
  int status = VLM_NUMERIC;
  try {
    Highs_run(h);
    status = run_status(h, env_.params(), mip_);
    HighsInt primal = 0, iters = 0;
    Highs_getIntInfoValue(h, "primal_solution_status", &primal);
    Highs_getIntInfoValue(h, "simplex_iteration_count", &iters);
    iterations_ = iters > 0 ? iters : 0;
    x_.clear();
    objval_ = 0.0;
    if (primal == 2) {
      x_.resize(ncol_);
      std::vector<double> col_dual(ncol_), row_value(nrow_), row_dual(nrow_);
      Highs_getSolution(h, x_.data(), col_dual.data(), row_value.data(), row_dual.data());
      Highs_getDoubleInfoValue(h, "objective_function_value", &objval_);
    }
  } catch (...) {
    return Status(VLM_ERROR_INTERNAL, "HiGHS failed while solving");
  }
  return status;
}

}  // namespace vlm::engine
