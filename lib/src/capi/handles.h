// The structs behind the opaque C handles. Only capi/ sees them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "env/env.h"
#include "model/model.h"

// An environment handle: either an environment of its own (created by VLMemptyenv) or a view
// of a model's own environment (VLMgetenv), which the model owns.
struct VLMenv {
  std::unique_ptr<vlm::Env> owned;
  vlm::Env* env = nullptr;

  VLMenv() : owned(std::make_unique<vlm::Env>()), env(owned.get()) {}
  explicit VLMenv(vlm::Env* view) : env(view) {}
};

// A model handle. `env` views the model's own environment, so parameter calls on the handle
// VLMgetenv returns change the model's settings. `scratch` keeps strings returned by
// attribute reads alive until the next call.
struct VLMmodel {
  std::unique_ptr<vlm::Model> model;
  VLMenv env;
  std::vector<std::string> scratch;
  // Views of the model's concurrent and multi-objective environments, index-aligned with
  // Model::concurrent_envs() / multiobj_envs() (null where no environment was made).
  // Views of discarded environments stay until the model is freed (see Model::discard_envs).
  std::vector<std::unique_ptr<VLMenv>> concurrent_views, multiobj_views, retired_views;

  explicit VLMmodel(std::unique_ptr<vlm::Model> m) : model(std::move(m)), env(&model->env()) {}
};
