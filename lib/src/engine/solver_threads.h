// Long-lived solver threads for the drivers that run several solves at once (concurrent runs,
// parallel tuning trials).
//
// HiGHS keeps its task scheduler per calling thread and builds it on the first run there;
// threads that come and go rebuild it every time, and solves on short-lived threads have
// deadlocked in HiGHS before. The library therefore keeps its solver threads for the life of
// the process: a task goes to an idle one, and a new thread is started only when none is idle,
// so every task starts at once and a thread's scheduler is reused by later tasks.
#pragma once

#include <functional>

namespace vlm::engine {

// Starts `task` on an idle solver thread (a new one when none is idle) and returns at once.
// The task must not throw and must not outlive what it refers to: callers wait for it. Beyond
// kMaxSolverThreads the task waits for a thread to become idle. O(1) plus a thread start.
void run_on_solver_thread(std::function<void()> task);

// The most solver threads the library starts.
inline constexpr int kMaxSolverThreads = 128;

// The number of solver threads started so far (for tests). O(1).
int solver_thread_count();

// The number of hardware threads, at least one. O(1).
int hardware_threads();

// The thread count HiGHS takes for Threads 0: half the hardware threads, at least one. O(1).
int default_highs_threads();

}  // namespace vlm::engine
