#include "core/platform.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>
#else
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

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

double wall_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::FILE* open_for_append(const std::string& path) {
  return std::fopen(path.c_str(), "a");
}

namespace {

std::atomic<long long> g_write_limit{-1};

// Consumes up to `want` bytes of the test write budget; returns how many may be written.
std::size_t allowed_bytes(std::size_t want) {
  long long limit = g_write_limit.load();
  while (limit >= 0) {
    long long take = std::min<long long>(limit, static_cast<long long>(want));
    if (g_write_limit.compare_exchange_weak(limit, limit - take)) return static_cast<std::size_t>(take);
  }
  return want;
}

#if !defined(_WIN32)
// The permission bits a newly created file gets: 0666 without the process's umask. Read from
// /proc where it exists, because umask() itself can only be read by changing it (a race with
// other threads).
mode_t new_file_mode() {
  mode_t mask = 022;
#if defined(__linux__)
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Umask:", 0) == 0) {
      mask = static_cast<mode_t>(std::strtol(line.c_str() + 6, nullptr, 8));
      break;
    }
  }
#endif
  return 0666 & ~mask;
}
#endif

}  // namespace

void set_write_limit_for_testing(long long bytes) { g_write_limit.store(bytes < 0 ? -1 : bytes); }

std::string write_target(const std::string& target) {
#if defined(_WIN32)
  return target;
#else
  struct stat st;
  if (::lstat(target.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return target;
  char* real = ::realpath(target.c_str(), nullptr);
  if (real == nullptr) return target;  // a dangling link: replace the link itself
  std::string out = real;
  std::free(real);
  return out;
#endif
}

int create_temp_beside(const std::string& target, std::string* temp_path) {
  const std::string final_path = write_target(target);
#if defined(_WIN32)
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string path = final_path + ".tmp" + std::to_string(GetCurrentProcessId()) + "_" +
                       std::to_string(GetTickCount64() + attempt);
    int fd = ::_open(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY,
                     _S_IREAD | _S_IWRITE);
    if (fd >= 0) {
      *temp_path = path;
      return fd;
    }
    if (errno != EEXIST) return -1;
  }
  return -1;
#else
  std::vector<char> buf(final_path.begin(), final_path.end());
  const char kSuffix[] = ".tmpXXXXXX";
  buf.insert(buf.end(), kSuffix, kSuffix + sizeof(kSuffix));  // with the terminating NUL
  int fd = ::mkstemp(buf.data());
  if (fd < 0) return -1;
  *temp_path = buf.data();
  struct stat st;
  mode_t mode = ::stat(final_path.c_str(), &st) == 0 ? (st.st_mode & 07777) : new_file_mode();
  if (::fchmod(fd, mode) != 0) {
    int err = errno;
    ::close(fd);
    ::unlink(buf.data());
    errno = err;
    return -1;
  }
  return fd;
#endif
}

bool write_all(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    std::size_t chunk = std::min<std::size_t>(size, std::size_t{1} << 24);
    std::size_t allowed = allowed_bytes(chunk);
    if (allowed == 0) {
      errno = ENOSPC;
      return false;
    }
#if defined(_WIN32)
    int n = ::_write(fd, data, static_cast<unsigned>(allowed));
#else
    ssize_t n = ::write(fd, data, allowed);
#endif
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) {
      errno = EIO;
      return false;
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

bool sync_and_close(int fd) {
#if defined(_WIN32)
  bool ok = ::_commit(fd) == 0;
  int err = ok ? 0 : errno;
  if (::_close(fd) != 0 && ok) {
#else
  bool ok = ::fsync(fd) == 0;
  int err = ok ? 0 : errno;
  if (::close(fd) != 0 && ok) {
#endif
    ok = false;
    err = errno;
  }
  if (!ok) errno = err;
  return ok;
}

bool replace_file(const std::string& from, const std::string& to) {
#if defined(_WIN32)
  if (MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    return true;
  }
  errno = EACCES;
  return false;
#else
  return std::rename(from.c_str(), to.c_str()) == 0;
#endif
}

void remove_file(const std::string& path) { std::remove(path.c_str()); }

void* open_shared_library(const std::string& name, std::string* error) {
#if defined(_WIN32)
  HMODULE h = LoadLibraryA(name.c_str());
  if (h == nullptr && error != nullptr) *error = "error " + std::to_string(GetLastError());
  return reinterpret_cast<void*>(h);
#else
  void* h = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (h == nullptr && error != nullptr) {
    const char* why = dlerror();
    *error = why != nullptr ? why : "unknown reason";
  }
  return h;
#endif
}

void* shared_library_symbol(void* library, const char* symbol) {
  if (library == nullptr) return nullptr;
#if defined(_WIN32)
  return reinterpret_cast<void*>(GetProcAddress(reinterpret_cast<HMODULE>(library), symbol));
#else
  return dlsym(library, symbol);
#endif
}

}  // namespace vlm
