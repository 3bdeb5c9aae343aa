// The banner before a solve, the summary after it, and the text of each status.
#pragma once

#include "engine/solution.h"
#include "env/env.h"
#include "model/model_data.h"
#include "reform/working_problem.h"

namespace vlm::engine {

// The summary line for a status ("Optimal solution found", ...). O(1).
const char* status_text(int status);

// Logs the version line and the model's size (and what the reformulation added). O(1).
void log_banner(Env& env, const ModelData& d, const reform::WorkingProblem& p);

// Logs the nodes or iterations, the time, the status and the objective of `s`. O(1).
void log_summary(Env& env, const Solution& s);

}  // namespace vlm::engine
