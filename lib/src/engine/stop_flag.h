// The terminate flag of a solve: VLMterminate on a model raises the flags registered for it.
//
// Every solve of a model registers one for its length; drivers that solve copies of the model
// on other threads register one for the model itself and pass a raised flag on to the copies.
#pragma once

#include <atomic>

#include "model/model.h"

namespace vlm::engine {

// Registers `flag` for `model` for its lifetime; terminate(model) sets it. The model is only
// compared, never touched. O(registered flags) to construct and destroy.
struct StopFlag {
  const Model* model;
  std::atomic<bool> flag{false};
  explicit StopFlag(const Model* m);
  ~StopFlag();
  StopFlag(const StopFlag&) = delete;
  StopFlag& operator=(const StopFlag&) = delete;
};

}  // namespace vlm::engine
