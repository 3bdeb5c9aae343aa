// The parameters' mapping onto a HiGHS instance's options and thread pool.
#pragma once

#include "env/env.h"
#include "params/param_set.h"
#include "reform/pipeline.h"

namespace vlm::engine {

// The reformulation step's options from the parameters. O(1).
reform::ReformOptions reform_options(const ParamSet& ps);

// Sets HiGHS' options on `h` from `ps` for a problem with (`mip`) or without integer columns;
// options left at their defaults keep HiGHS' own. Never fails (HiGHS ignores what it cannot
// take). O(number of options).
void set_options(void* h, const ParamSet& ps, bool mip);

// Honours Threads within HiGHS' rule of one pool size per calling thread: a different size
// rebuilds the pool when no other solve is running; otherwise the solve keeps the pool it has
// and says so in the log. O(1) unless the pool is rebuilt.
void choose_threads(void* h, Env& env);

}  // namespace vlm::engine
