// Lets VLMterminate reach an analysis running on a model: the analysis solves helper models of
// its own, which the engine's stop flags do not link to the user's model.
//
// While a StopScope lives, terminate(user) sets the scope's flag and stops the helper solve
// currently running (if any); the analysis checks stopped() between its solves.
#pragma once

#include <atomic>

#include "model/model.h"

namespace vlm::analysis {

class StopScope {
 public:
  explicit StopScope(Model& user);
  ~StopScope();
  StopScope(const StopScope&) = delete;
  StopScope& operator=(const StopScope&) = delete;

  bool stopped() const { return stop_.load(std::memory_order_acquire); }
  // The helper model being solved now, or nullptr between solves.
  void set_current(Model* helper);

 private:
  friend bool terminate(Model& user);
  Model& user_;
  std::atomic<bool> stop_{false};
  Model* current_ = nullptr;  // guarded by the registry's mutex
};

// Stops the analysis running on `user`, if any (true then). Safe from any thread.
bool terminate(Model& user);

}  // namespace vlm::analysis
