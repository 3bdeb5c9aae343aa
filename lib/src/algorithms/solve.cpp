#include "algorithms/solve.h"

#include "algorithms/multiobj.h"
#include "algorithms/scenarios.h"
#include "engine/engine.h"

namespace vlm::algorithms {

Status optimize(Model& m) {
  VLM_RETURN_IF_ERROR(m.update());
  const ModelData& d = m.data();
  if (d.objn.empty() && d.scenarios.empty()) return engine::optimize(m);
  if (!d.objn.empty() && !d.scenarios.empty()) {
    return Status(VLM_ERROR_NOT_SUPPORTED,
                  "The model has multiple objectives and multiple scenarios together, which this version of Velmor "
                  "cannot solve yet");
  }
  engine::SolvingScope solving(m);
  return d.objn.empty() ? optimize_scenarios(m) : optimize_multiobj(m);
}

}  // namespace vlm::algorithms
