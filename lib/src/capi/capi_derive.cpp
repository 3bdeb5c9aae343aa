// Derived models: the linearized model and the model of one scenario.
#include <memory>
#include <string>

#include "algorithms/scenarios.h"
#include "capi/capi_guard.h"
#include "capi/capi_model.h"
#include "engine/engine.h"
#include "reform/linearized_model.h"
#include "velmor_c.h"

using vlm::Model;
using vlm::Status;
using vlm::capi::model_call;

VLM_API VLMmodel* VLMlinearizemodel(VLMmodel* model) {
  VLMmodel* out = nullptr;
  model_call(model, [&](Model& m) {
    vlm::reform::WorkingProblem p;
    VLM_RETURN_IF_ERROR(vlm::engine::build_problem(m, p));
    vlm::ModelData lin = vlm::reform::linearized_model(m.data(), p);
    // The user's variables and rows come first in the linearized model, so objectives and
    // scenarios keep their indices; auxiliary columns have no objective coefficient.
    lin.objn = m.data().objn;
    for (vlm::ObjectiveN& o : lin.objn) o.coef.resize(lin.num_vars(), 0.0);
    lin.scenarios = m.data().scenarios;
    out = vlm::capi::wrap_model(std::make_unique<Model>(m, std::move(lin)));
    return Status::Ok();
  });
  return out;
}

VLM_API VLMmodel* VLMsinglescenariomodel(VLMmodel* model) {
  VLMmodel* out = nullptr;
  model_call(model, [&](Model& m) {
    const int k = m.env().params().int_param("ScenarioNumber");
    const int n = static_cast<int>(m.data().scenarios.size());
    if (k >= n) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, "Scenario " + std::to_string(k) +
                                                      " does not exist (NumScenarios is " + std::to_string(n) + ")");
    }
    out = vlm::capi::wrap_model(std::make_unique<Model>(m, vlm::algorithms::scenario_model(m.data(), k)));
    return Status::Ok();
  });
  return out;
}
