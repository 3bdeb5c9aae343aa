#include "algorithms/solve.h"

#include "algorithms/callback_search.h"
#include "algorithms/multiobj.h"
#include "algorithms/scenarios.h"
#include "callbacks/search_callbacks.h"
#include "callbacks/session.h"
#include "engine/engine.h"

namespace vlm::algorithms {

Status optimize(Model& m) {
  VLM_RETURN_IF_ERROR(m.update());
  const ModelData& d = m.data();
  // The user's callback is called throughout the solve, whichever driver runs it.
  callbacks::SessionScope session(m);
  if (session.session() != nullptr && d.objn.empty() && d.scenarios.empty() && session.session()->wants_search()) {
    callbacks::SearchCallbacks hooks(*session.session());
    return solve_with_search(m, &hooks);
  }
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
