// Helpers shared by the C API files that create model handles.
#pragma once

#include <memory>

#include "capi/handles.h"

namespace vlm::capi {

// Takes ownership of a model and returns its new handle.
VLMmodel* wrap_model(std::unique_ptr<Model> m);

}  // namespace vlm::capi
