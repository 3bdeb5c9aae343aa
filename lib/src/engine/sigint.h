// SIGINT during solves: Ctrl-C stops every solve that asked for it (VLMsetsignal), however many
// run at once on different threads.
//
// Each such solve holds a SigintScope for its duration. The first scope installs the handler and
// remembers the previous one; the last to end restores it, so the order in which concurrent
// solves finish does not matter. The handler itself only stores into the registered flags: it
// takes no lock and allocates nothing.
#pragma once

#include <atomic>

namespace vlm::engine {

class SigintScope {
 public:
  // Registers `flag` (set to true on SIGINT) when `wanted`; a no-op otherwise. When more solves
  // are active than the table holds, the extra ones are not stopped by SIGINT (their terminate
  // flag still works).
  SigintScope(bool wanted, std::atomic<bool>* flag);
  ~SigintScope();
  SigintScope(const SigintScope&) = delete;
  SigintScope& operator=(const SigintScope&) = delete;

  // Whether this scope's flag is registered.
  bool active() const { return slot_ >= 0; }

 private:
  int slot_ = -1;
};

}  // namespace vlm::engine
