// Writing a file of a model by its suffix: shared by VLMwrite and by the ResultFile parameter,
// which VLMoptimize and VLMcomputeIIS honour.
#pragma once

#include <string>

#include "core/status.h"
#include "model/model.h"

namespace vlm::capi {

// Writes `name` from `m`; the suffix (before an optional .gz) chooses what: .lp/.mps/... the
// model (updated first), .ilp the last IIS, .prm the parameters, .attr/.bas/.json/.sol/.mst/.hnt/
// .ord the attribute files. Fails with VLM_ERROR_INVALID_ARGUMENT for an unknown suffix,
// VLM_ERROR_DATA_NOT_AVAILABLE when what is asked for does not exist (no IIS, no solution),
// VLM_ERROR_FILE_WRITE when the file cannot be written (the old file is kept). Cost: the writer's.
Status write_by_suffix(Model& m, const std::string& name);

// Writes ResultFile, when the model environment's parameter is set, after a successful
// optimisation or IIS computation, and logs it. Nothing to write (no solution, basis or IIS) is
// logged and not an error; any other failure is the call's failure (the results stay).
Status write_result_file(Model& m);

}  // namespace vlm::capi
