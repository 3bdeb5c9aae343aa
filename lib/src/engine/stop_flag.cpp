#include "engine/stop_flag.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "engine/engine.h"

namespace vlm::engine {

namespace {

std::mutex g_flags_mutex;
std::vector<std::pair<const Model*, std::atomic<bool>*>> g_flags;

}  // namespace

StopFlag::StopFlag(const Model* m) : model(m) {
  std::lock_guard<std::mutex> lock(g_flags_mutex);
  g_flags.push_back({m, &flag});
}

StopFlag::~StopFlag() {
  std::lock_guard<std::mutex> lock(g_flags_mutex);
  g_flags.erase(std::remove_if(g_flags.begin(), g_flags.end(), [this](const auto& p) { return p.second == &flag; }),
                g_flags.end());
}

void terminate(Model& m) {
  std::lock_guard<std::mutex> lock(g_flags_mutex);
  for (auto& [model, flag] : g_flags) {
    if (model == &m) flag->store(true);
  }
}

}  // namespace vlm::engine
