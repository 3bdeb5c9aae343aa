// The optimize entry: dispatches a model to the algorithm its contents need.
#pragma once

#include "core/status.h"
#include "model/model.h"

namespace vlm::algorithms {

// Updates and solves the model, storing its Solution: a model with objectives in its ObjN list
// through optimize_multiobj, one with scenarios through optimize_scenarios, any other through
// the engine directly. Fails with VLM_ERROR_NOT_SUPPORTED for multiple objectives together
// with scenarios, else as those do. Cost: theirs.
Status optimize(Model& m);

}  // namespace vlm::algorithms
