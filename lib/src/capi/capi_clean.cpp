// VLMclean2 and VLMclean3: term-list cleaning for callers that build arrays themselves.
#include <algorithm>
#include <numeric>
#include <vector>

#include "velmor_c.h"

namespace {

// Sorts the term positions by `less`, merges runs that `same` joins by summing values, and
// drops zero values; writes the result back through `put`. Returns the new length.
template <class Less, class Same, class Put>
int clean(int n, const double* val, Less less, Same same, Put put) {
  std::vector<int> order(static_cast<std::size_t>(n));
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), less);
  std::vector<std::pair<int, double>> merged;  // (first position of the run, summed value)
  for (int k : order) {
    if (!merged.empty() && same(merged.back().first, k)) {
      merged.back().second += val[k];
    } else {
      merged.push_back({k, val[k]});
    }
  }
  int out = 0;
  std::vector<std::pair<int, double>> kept;
  for (const auto& m : merged) {
    if (m.second != 0.0) kept.push_back(m);
  }
  for (const auto& [pos, v] : kept) put(out++, pos, v);
  return out;
}

}  // namespace

extern "C" {

VLM_API int VLMclean2(int* lenP, int* ind, double* val) {
  if (lenP == nullptr || (*lenP > 0 && (ind == nullptr || val == nullptr))) return VLM_ERROR_NULL_ARGUMENT;
  try {
    const int n = std::max(*lenP, 0);
    std::vector<int> oi(ind, ind + n);
    std::vector<double> ov(val, val + n);
    *lenP = clean(
        n, ov.data(), [&](int a, int b) { return oi[a] < oi[b]; }, [&](int a, int b) { return oi[a] == oi[b]; },
        [&](int out, int pos, double v) {
          ind[out] = oi[pos];
          val[out] = v;
        });
    return VLM_OK;
  } catch (...) {
    return VLM_ERROR_OUT_OF_MEMORY;
  }
}

VLM_API int VLMclean3(int* lenP, int* ind0, int* ind1, double* val) {
  if (lenP == nullptr || (*lenP > 0 && (ind0 == nullptr || ind1 == nullptr || val == nullptr))) {
    return VLM_ERROR_NULL_ARGUMENT;
  }
  try {
    const int n = std::max(*lenP, 0);
    std::vector<int> a(n), b(n);
    for (int k = 0; k < n; ++k) {
      a[k] = std::min(ind0[k], ind1[k]);
      b[k] = std::max(ind0[k], ind1[k]);
    }
    std::vector<double> ov(val, val + n);
    *lenP = clean(
        n, ov.data(), [&](int x, int y) { return a[x] != a[y] ? a[x] < a[y] : b[x] < b[y]; },
        [&](int x, int y) { return a[x] == a[y] && b[x] == b[y]; },
        [&](int out, int pos, double v) {
          ind0[out] = a[pos];
          ind1[out] = b[pos];
          val[out] = v;
        });
    return VLM_OK;
  } catch (...) {
    return VLM_ERROR_OUT_OF_MEMORY;
  }
}

}  // extern "C"
