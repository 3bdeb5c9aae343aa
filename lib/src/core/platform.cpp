#include "core/platform.h"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

namespace vlm {

const char* platform_name() {
#if defined(_WIN32)
  return "win64";
#elif defined(__APPLE__) && defined(__aarch64__)
  return "armmac64";
#elif defined(__APPLE__)
  return "mac64";
#elif defined(__aarch64__)
  return "armlinux64";
#else
  return "linux64";
#endif
}

namespace {
bool detect_container() {
#if defined(__linux__)
  // Runtimes leave marker files; systemd-style launchers set $container; otherwise the cgroup
  // path of process 1 names the runtime.
  if (std::ifstream("/.dockerenv").good() || std::ifstream("/run/.containerenv").good()) return true;
  if (const char* c = std::getenv("container"); c != nullptr && *c != '\0') return true;
  std::ifstream cg("/proc/1/cgroup");
  std::string line;
  while (std::getline(cg, line)) {
    for (const char* tag : {"docker", "kubepods", "containerd", "lxc", "podman"}) {
      if (line.find(tag) != std::string::npos) return true;
    }
  }
#endif
  return false;
}
}  // namespace

bool running_in_container() {
  static const bool in_container = detect_container();
  return in_container;
}

double resident_memory_gb() {
#if defined(__linux__)
  std::FILE* f = std::fopen("/proc/self/statm", "r");
  if (f == nullptr) return 0.0;
  long pages = 0, resident = 0;
  int n = std::fscanf(f, "%ld %ld", &pages, &resident);
  std::fclose(f);
  return n == 2 ? static_cast<double>(resident) * 4096.0 / 1e9 : 0.0;
#else
  return 0.0;
#endif
}

double process_cpu_seconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

std::FILE* open_for_append(const std::string& path) {
  return std::fopen(path.c_str(), "a");
}

}  // namespace vlm
