// ParamOverride: runs a stretch of a solve under other parameter values than the model's.
//
// Drivers that solve one model several times under different settings (pool searches, the
// parts of a concurrent or multi-objective solve) swap the model's ParamSet for the length of
// one engine call, so that the engine, which reads the model's parameters, needs no knowledge of
// them. Only parameter values change: log sinks and the error state stay the model's.
#pragma once

#include <utility>

#include "model/model.h"
#include "params/param_set.h"

namespace vlm::algorithms {

class ParamOverride {
 public:
  // Gives `m` the values of `ps` until destruction, which restores the model's own. O(number of
  // parameters).
  ParamOverride(Model& m, const ParamSet& ps) : m_(m), saved_(m.env().params()) { m_.env().params() = ps; }
  ~ParamOverride() { m_.env().params() = std::move(saved_); }
  ParamOverride(const ParamOverride&) = delete;
  ParamOverride& operator=(const ParamOverride&) = delete;

 private:
  Model& m_;
  ParamSet saved_;
};

}  // namespace vlm::algorithms
