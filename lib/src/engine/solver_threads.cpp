#include "engine/solver_threads.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace vlm::engine {

namespace {

struct Pool {
  std::mutex mutex;
  std::condition_variable wake;
  std::deque<std::function<void()>> tasks;
  int threads = 0;
  int idle = 0;
};

// Never destroyed: the threads are detached and may still wait on it while the process exits.
Pool& pool() {
  static Pool* p = new Pool;
  return *p;
}

void work() {
  Pool& p = pool();
  std::unique_lock<std::mutex> lock(p.mutex);
  for (;;) {
    ++p.idle;
    p.wake.wait(lock, [&p] { return !p.tasks.empty(); });
    --p.idle;
    std::function<void()> task = std::move(p.tasks.front());
    p.tasks.pop_front();
    lock.unlock();
    task();
    lock.lock();
  }
}

}  // namespace

void run_on_solver_thread(std::function<void()> task) {
  Pool& p = pool();
  bool start = false;
  {
    std::lock_guard<std::mutex> lock(p.mutex);
    p.tasks.push_back(std::move(task));
    // Tasks already queued claim idle threads first.
    if (p.idle < static_cast<int>(p.tasks.size()) && p.threads < kMaxSolverThreads) {
      ++p.threads;
      start = true;
    }
  }
  if (start) std::thread(work).detach();
  p.wake.notify_one();
}

int solver_thread_count() {
  std::lock_guard<std::mutex> lock(pool().mutex);
  return pool().threads;
}

int hardware_threads() { return std::max(1, static_cast<int>(std::thread::hardware_concurrency())); }

int default_highs_threads() { return (hardware_threads() + 1) / 2; }

}  // namespace vlm::engine
