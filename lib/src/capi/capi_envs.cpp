// The environments of concurrent runs and multi-objective levels: VLMgetconcurrentenv,
// VLMgetmultiobjenv and their discards.
#include <memory>
#include <string>
#include <vector>

#include "capi/capi_guard.h"
#include "velmor_c.h"

using vlm::Env;
using vlm::Model;
using vlm::Status;
using vlm::capi::model_call;

namespace {

constexpr int kMaxMultiobjEnvs = 1024;

std::unique_ptr<Env> copy_of(Model& m) {
  auto e = std::make_unique<Env>(m.env());
  e->errors() = vlm::ErrorState();
  return e;
}

void retire(std::vector<std::unique_ptr<VLMenv>>& views, std::vector<std::unique_ptr<VLMenv>>& retired) {
  for (auto& v : views) {
    if (v) retired.push_back(std::move(v));
  }
  views.clear();
}

}  // namespace

extern "C" {

VLM_API VLMenv* VLMgetconcurrentenv(VLMmodel* model, int num) {
  VLMenv* out = nullptr;
  model_call(model, [&](Model& m) {
    if (num < 0 || num >= VLM_MAX_CONCURRENT) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, "Concurrent environment index " + std::to_string(num) +
                                                      " is out of range (0 to " +
                                                      std::to_string(VLM_MAX_CONCURRENT - 1) + ")");
    }
    auto& envs = m.concurrent_envs();
    while (static_cast<int>(envs.size()) <= num) {
      envs.push_back(copy_of(m));
      model->concurrent_views.push_back(std::make_unique<VLMenv>(envs.back().get()));
    }
    out = model->concurrent_views[num].get();
    return Status::Ok();
  });
  return out;
}

VLM_API int VLMdiscardconcurrentenvs(VLMmodel* model) {
  return model_call(model, [&](Model& m) {
    m.discard_envs(m.concurrent_envs());
    retire(model->concurrent_views, model->retired_views);
    return Status::Ok();
  });
}

VLM_API VLMenv* VLMgetmultiobjenv(VLMmodel* model, int num) {
  VLMenv* out = nullptr;
  model_call(model, [&](Model& m) {
    if (num < 0 || num >= kMaxMultiobjEnvs) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, "Multi-objective environment index " + std::to_string(num) +
                                                      " is out of range (0 to " +
                                                      std::to_string(kMaxMultiobjEnvs - 1) + ")");
    }
    auto& envs = m.multiobj_envs();
    if (static_cast<int>(envs.size()) <= num) {
      envs.resize(num + 1);
      model->multiobj_views.resize(num + 1);
    }
    if (envs[num] == nullptr) {
      envs[num] = copy_of(m);
      model->multiobj_views[num] = std::make_unique<VLMenv>(envs[num].get());
    }
    out = model->multiobj_views[num].get();
    return Status::Ok();
  });
  return out;
}

VLM_API int VLMdiscardmultiobjenvs(VLMmodel* model) {
  return model_call(model, [&](Model& m) {
    m.discard_envs(m.multiobj_envs());
    retire(model->multiobj_views, model->retired_views);
    return Status::Ok();
  });
}

}  // extern "C"
