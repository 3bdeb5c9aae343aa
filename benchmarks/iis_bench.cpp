// Measures the IIS filter: solves and time for infeasible LPs and MIPs of growing size whose
// small IIS is hidden among n irrelevant rows and 2n bounds.
// Prints one line per model and IISMethod, as the library logs it. Not run by CTest.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "velmor_c.h"

namespace {

std::string last_line;

void capture(const char* msg, void*) {
  if (std::strstr(msg, "IIS computed") != nullptr) last_line = msg;
}

// x_0..x_{n-1} in [0, 10] with rows x_i + x_{i+1} <= 15 for i < n-1, and a last row:
// continuous x with x_0 + x_1 >= 25 (infeasible by the bounds: a Farkas certificate exists),
// or integer x with 2 x_0 + 2 x_1 = 3 (infeasible only by integrality: no certificate).
void run(VLMenv* env, int n, bool mip, int method) {
  VLMmodel* m = nullptr;
  VLMnewmodel(env, &m, "bench", 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  for (int j = 0; j < n; ++j) VLMaddvar(m, 0, nullptr, nullptr, 1.0, 0.0, 10.0, mip ? 'I' : 'C', nullptr);
  for (int i = 0; i + 1 < n; ++i) {
    int ind[2] = {i, i + 1};
    double val[2] = {1.0, 1.0};
    VLMaddconstr(m, 2, ind, val, '<', 15.0, nullptr);
  }
  int ind[2] = {0, 1};
  double val[2] = {mip ? 2.0 : 1.0, mip ? 2.0 : 1.0};
  VLMaddconstr(m, 2, ind, val, mip ? '=' : '>', mip ? 3.0 : 25.0, nullptr);
  VLMsetintparam(VLMgetenv(m), "IISMethod", method);
  VLMsetlogcallbackfunc(m, capture, nullptr);
  last_line.clear();
  int rc = VLMcomputeIIS(m);
  std::printf("%s n=%d IISMethod=%d rc=%d: %s\n", mip ? "MIP" : "LP", n, method, rc, last_line.c_str());
  VLMfreemodel(m);
}

}  // namespace

int main() {
  VLMenv* env = nullptr;
  VLMemptyenv(&env);
  VLMstartenv(env);
  for (bool mip : {false, true}) {
    for (int n : {10, 100, 1000, 10000}) {
      for (int method : {0, 1}) {
        if (method == 1 && n > 1000) continue;  // one solve per member: too slow to be useful
        run(env, n, mip, method);
      }
    }
  }
  VLMfreeenv(env);
  return 0;
}
