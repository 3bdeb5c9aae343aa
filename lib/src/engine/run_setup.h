// What every HiGHS run of the library shares, for the engine's entry points other than
// optimize (engine/resolver.h). Defined in highs_engine.cpp beside optimize's own use.
#pragma once

#include "env/env.h"

namespace vlm::engine {

// Sets HiGHS' options on `h` from the environment's parameters for a problem with (`mip`) or
// without integer columns, including the thread count; HiGHS logs nothing to the console.
// Never fails (HiGHS ignores what it cannot take). O(number of options).
void apply_options(void* h, Env& env, bool mip);

// The library's status (VLM_OPTIMAL, ...) for the run that just ended on `h`. O(1).
int run_status(void* h, const ParamSet& ps, bool mip);

}  // namespace vlm::engine
