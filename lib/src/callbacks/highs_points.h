// Where-calls from HiGHS's own search: HiGHS's callback events (simplex and IPM iterations, MIP
// interrupts and solutions, the root cut pool, user-solution queries) turned into calls of the
// user's callback, and the user's heuristic solutions handed to HiGHS.
#pragma once

#include "callbacks/session.h"
#include "interfaces/highs_c_api.h"

namespace vlm::callbacks {

// What the engine keeps for the user's callback during one HiGHS run.
struct HighsTap {
  Session* user = nullptr;  // null: no callback, nothing to do
  bool mip = false;         // a MIP run: simplex iterations are POLLING, not SIMPLEX
  int user_cols = 0;        // the user's variables are the first columns
  int solutions = 0;        // MIP solutions found so far (MIPSOL counts the one it reports)
  int cuts = 0;             // the root cut pool's size, once HiGHS reports it
  double last_poll = 0.0;   // when POLLING was last called from a MIP interrupt
};

// Handles one HiGHS event for the user's callback. True when the engine should do nothing more
// with the event: a query only the callback layer answers (cut pool, user solution), or a solve
// the callback ended (VLMcbstoponemultiobj: user_interrupt is set). Cost: the user's function.
bool highs_event(HighsTap& tap, int type, const HighsCallbackDataOut* out, HighsCallbackDataIn* in);

}  // namespace vlm::callbacks
