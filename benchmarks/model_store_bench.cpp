// Memory and time of the model store through the C API: 1,000,000 variables and 1,000,000
// nonzeros (1,000 rows of 1,000 terms), added with and without names, then updated.
// Targets: well under 200 bytes per variable plus 16 bytes per nonzero; update() of
// 1,000,000 pending variables well under a second.
//
// Build and run:  cmake --build build/tests --target model_store_bench && build/tests/benchmarks/model_store_bench
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "velmor_c.h"

namespace {

// Heap bytes in use, in MB (glibc's own count, so freed input arrays do not count); the
// resident set elsewhere.
double rss_mb() {
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33))
  struct mallinfo2 mi = mallinfo2();
  return static_cast<double>(mi.uordblks + mi.hblkhd) / (1024.0 * 1024.0);
#else
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * 4096.0 / (1024.0 * 1024.0);
#endif
}

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

}  // namespace

int main() {
  const int n = 1000000, rows = 1000, per_row = 1000;
  VLMenv* env = nullptr;
  VLMmodel* m = nullptr;
  VLMemptyenv(&env);
  VLMsetintparam(env, "OutputFlag", 0);
  VLMstartenv(env);
  VLMnewmodel(env, &m, "bench", 0, nullptr, nullptr, nullptr, nullptr, nullptr);

  const double before = rss_mb();
  std::vector<double> obj(n, 1.0), ub(n, 10.0);
  auto t0 = std::chrono::steady_clock::now();
  VLMaddvars(m, n, 0, nullptr, nullptr, nullptr, obj.data(), nullptr, ub.data(), nullptr, nullptr);
  const double t_add = seconds_since(t0);
  t0 = std::chrono::steady_clock::now();
  VLMupdatemodel(m);
  const double t_update = seconds_since(t0);
  obj.clear();
  obj.shrink_to_fit();
  ub.clear();
  ub.shrink_to_fit();
  const double after_vars = rss_mb();

  std::vector<int> beg(rows), ind(static_cast<std::size_t>(rows) * per_row);
  std::vector<double> val(ind.size(), 1.0);
  std::vector<char> sense(rows, '<');
  std::vector<double> rhs(rows, 1.0);
  for (int r = 0; r < rows; ++r) {
    beg[r] = r * per_row;
    for (int k = 0; k < per_row; ++k) ind[static_cast<std::size_t>(r) * per_row + k] = r * per_row + k;
  }
  t0 = std::chrono::steady_clock::now();
  VLMaddconstrs(m, rows, static_cast<int>(ind.size()), beg.data(), ind.data(), val.data(), sense.data(), rhs.data(), nullptr);
  VLMupdatemodel(m);
  const double t_rows = seconds_since(t0);
  // Release the input arrays (assigning {} would keep their capacity).
  std::vector<int>().swap(beg);
  std::vector<int>().swap(ind);
  std::vector<double>().swap(val);
  const double after_rows = rss_mb();

  int nv = 0;
  VLMgetintattr(m, "NumVars", &nv);
  std::vector<double> lb(n);
  t0 = std::chrono::steady_clock::now();
  VLMgetdblattrarray(m, "LB", 0, n, lb.data());
  const double t_read = seconds_since(t0);

  std::printf("variables:        %d\n", nv);
  std::printf("addvars:          %.3f s\n", t_add);
  std::printf("update (1M vars): %.3f s\n", t_update);
  std::printf("memory per var:   %.1f bytes (unnamed: no name storage)\n", (after_vars - before) * 1048576.0 / n);
  std::printf("addconstrs+update:%.3f s for %d nonzeros\n", t_rows, rows * per_row);
  std::printf("memory per nz:    %.1f bytes\n", (after_rows - after_vars) * 1048576.0 / (double(rows) * per_row));
  std::printf("read 1M LB:       %.4f s\n", t_read);
  VLMfreemodel(m);
  VLMfreeenv(env);
  return 0;
}
