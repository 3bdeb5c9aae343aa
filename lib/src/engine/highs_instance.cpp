#include "engine/highs_instance.h"

#include <mutex>
#include <vector>

#include "interfaces/highs_c_api.h"

namespace vlm::engine {

namespace {

std::mutex g_lifetime_mutex;
int g_active_solves = 0;
std::vector<void*> g_deferred;
thread_local int t_pool_threads = 0;

void destroy_all(std::vector<void*>& instances) {
  // Highs_destroy tears down the calling thread's pool.
  if (!instances.empty()) t_pool_threads = 0;
  for (void* p : instances) {
    try {
      Highs_destroy(p);
    } catch (...) {
    }
  }
  instances.clear();
}

}  // namespace

void release_highs(void* h) {
  std::vector<void*> now;
  {
    std::lock_guard<std::mutex> lock(g_lifetime_mutex);
    g_deferred.push_back(h);
    if (g_active_solves > 0) return;  // the last solve to end destroys it
    now.swap(g_deferred);
  }
  destroy_all(now);
}

ActiveSolve::ActiveSolve() {
  std::lock_guard<std::mutex> lock(g_lifetime_mutex);
  ++g_active_solves;
}

ActiveSolve::~ActiveSolve() {
  std::vector<void*> now;
  {
    std::lock_guard<std::mutex> lock(g_lifetime_mutex);
    if (--g_active_solves == 0) now.swap(g_deferred);
  }
  destroy_all(now);
}

bool only_active_solve() {
  std::lock_guard<std::mutex> lock(g_lifetime_mutex);
  return g_active_solves == 1;
}

int& pool_threads() { return t_pool_threads; }

HighsPtr::HighsPtr() : h(Highs_create()) {}

HighsPtr::~HighsPtr() {
  if (h) release_highs(h);
}

std::shared_ptr<void> HighsPtr::share() {
  void* p = h;
  h = nullptr;
  return std::shared_ptr<void>(p, [](void* q) { release_highs(q); });
}

}  // namespace vlm::engine
