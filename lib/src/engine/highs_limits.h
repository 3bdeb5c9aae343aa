// Why HiGHS refuses a model that our own checks accept: values that are finite for us but
// beyond what HiGHS takes. HiGHS refuses a constraint matrix or Hessian holding a value of
// magnitude above its large_matrix_value option (1e15 by default) and says only that the model
// is invalid; this names the element instead.
#pragma once

#include "core/status.h"
#include "model/model_data.h"

namespace vlm::engine {

// HiGHS' default large_matrix_value.
inline constexpr double kHighsLargeMatrixValue = 1e15;

// The refusal to report when HiGHS rejected the model `d`: VLM_ERROR_INVALID_ARGUMENT
// "Coefficient 1e+16 of variable 'y' in constraint 'c1' is larger than 1e+15, the largest
// matrix value HiGHS accepts" for the first such value (rows first, then the quadratic
// objective, whose diagonal HiGHS holds doubled), or "HiGHS rejected the model" when no value
// explains it. O(nonzeros).
Status explain_rejected_model(const ModelData& d);

}  // namespace vlm::engine
