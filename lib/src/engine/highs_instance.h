// Lifetime of HiGHS instances shared by the engine and the algorithm drivers.
//
// In HiGHS 1.15.1 Highs_destroy resets the calling thread's task scheduler, which is unsafe
// while any other solve runs. Every instance is therefore released through release_highs(),
// which defers the destroy until no solve is active (ActiveSolve counts them).
#pragma once

#include <memory>

namespace vlm::engine {

// Queues `h` for destruction; destroys it (and every instance queued before) at once when no
// solve is active, otherwise the last solve to end does. Never fails. O(queued instances).
void release_highs(void* h);

// Counts a running solve for as long as it lives; the last one to end destroys the instances
// released meanwhile. Construct one around every sequence of Highs_run calls.
struct ActiveSolve {
  ActiveSolve();
  ~ActiveSolve();
  ActiveSolve(const ActiveSolve&) = delete;
  ActiveSolve& operator=(const ActiveSolve&) = delete;
};

// True when the calling solve is the only one running (one ActiveSolve alive).
bool only_active_solve();

// The size of the HiGHS thread pool of the calling thread (0: none yet, or HiGHS' default).
// HiGHS keeps one pool per calling thread and refuses a run that asks for another size; a
// destroy on this thread resets it to 0.
int& pool_threads();

// Owns one instance created by Highs_create (h is null if creation failed) and releases it
// the deferred way.
struct HighsPtr {
  void* h = nullptr;
  HighsPtr();
  ~HighsPtr();
  // Hands the instance to a shared owner that releases it the same deferred way.
  std::shared_ptr<void> share();
  HighsPtr(const HighsPtr&) = delete;
  HighsPtr& operator=(const HighsPtr&) = delete;
};

}  // namespace vlm::engine
