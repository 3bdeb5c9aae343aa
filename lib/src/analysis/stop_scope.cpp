#include "analysis/stop_scope.h"

#include <mutex>
#include <unordered_map>

#include "engine/engine.h"

namespace vlm::analysis {

namespace {

std::mutex g_mutex;
std::unordered_map<const Model*, StopScope*> g_scopes;

}  // namespace

StopScope::StopScope(Model& user) : user_(user) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_scopes[&user_] = this;
}

StopScope::~StopScope() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_scopes.erase(&user_);
}

void StopScope::set_current(Model* helper) {
  std::lock_guard<std::mutex> lock(g_mutex);
  current_ = helper;
}

bool terminate(Model& user) {
  std::lock_guard<std::mutex> lock(g_mutex);
  auto it = g_scopes.find(&user);
  if (it == g_scopes.end()) return false;
  StopScope* s = it->second;
  s->stop_.store(true, std::memory_order_release);
  // A helper that has not reached its solve yet sees the flag before the next one.
  if (s->current_ != nullptr) engine::terminate(*s->current_);
  return true;
}

}  // namespace vlm::analysis
