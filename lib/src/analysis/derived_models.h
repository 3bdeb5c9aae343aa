// Derived models: new models made from a model's updated state, on a copy of its
// environment, which the caller owns. The source model is never changed.
#pragma once

#include <memory>

#include "core/status.h"
#include "model/model.h"

namespace vlm::analysis {

// The continuous relaxation: integer and binary variables become continuous (a binary within
// [0, 1]), a semi-continuous or semi-integer variable continuous over [min(lb, 0), max(ub, 0)],
// SOS and general constraints are dropped. A continuous model gives an equal copy. Linear in
// the model size.
StatusOr<std::unique_ptr<Model>> relaxed_model(Model& m);

// The fixed model of a solved MIP: every integer, binary and semi-integer variable fixed at
// its value in the incumbent (rounded to the nearest integer), semi-continuous variables that
// are 0 there fixed at 0 and the others made continuous, SOS members that are 0 fixed at 0 and
// the SOS dropped. The result is continuous (an LP when nothing quadratic is left), so its
// solve gives duals. Fails with VLM_ERROR_INVALID_ARGUMENT for a continuous model, with
// VLM_ERROR_DATA_NOT_AVAILABLE when the model has no MIP solution, with
// VLM_ERROR_NOT_SUPPORTED for general constraints. Linear in the model size.
StatusOr<std::unique_ptr<Model>> fixed_model(Model& m);

// A copy with every objective removed (linear, quadratic, constant, piecewise-linear,
// multiple objectives); the sense stays. Linear in the model size.
StatusOr<std::unique_ptr<Model>> feasibility_model(Model& m);

}  // namespace vlm::analysis
