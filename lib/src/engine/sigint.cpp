#include "engine/sigint.h"

#include <csignal>
#include <mutex>

namespace vlm::engine {

namespace {

// One slot per concurrent solve that wants SIGINT; the handler walks them lock-free.
constexpr int kSlots = 64;
std::atomic<std::atomic<bool>*> g_slots[kSlots];

// Installation and restoration happen outside the handler, under this lock.
std::mutex g_install_mutex;
int g_registered = 0;
void (*g_previous)(int) = SIG_DFL;

extern "C" void on_sigint(int) {
  for (auto& slot : g_slots) {
    std::atomic<bool>* f = slot.load();
    if (f != nullptr) f->store(true);
  }
}

}  // namespace

SigintScope::SigintScope(bool wanted, std::atomic<bool>* flag) {
  if (!wanted || flag == nullptr) return;
  std::lock_guard<std::mutex> lock(g_install_mutex);
  for (int i = 0; i < kSlots; ++i) {
    std::atomic<bool>* empty = nullptr;
    if (g_slots[i].compare_exchange_strong(empty, flag)) {
      slot_ = i;
      break;
    }
  }
  if (slot_ < 0) return;
  if (g_registered++ == 0) {
    g_previous = std::signal(SIGINT, on_sigint);
    if (g_previous == SIG_ERR) g_previous = SIG_DFL;
  }
}

SigintScope::~SigintScope() {
  if (slot_ < 0) return;
  std::lock_guard<std::mutex> lock(g_install_mutex);
  g_slots[slot_].store(nullptr);
  if (--g_registered == 0) std::signal(SIGINT, g_previous);
}

}  // namespace vlm::engine
