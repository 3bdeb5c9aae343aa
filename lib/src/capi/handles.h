// The structs behind the opaque C handles. Only capi/ sees them.
#pragma once

#include "env/env.h"

struct VLMenv {
  vlm::Env env;
};
