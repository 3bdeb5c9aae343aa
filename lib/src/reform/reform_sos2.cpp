#include "reform/reform_sos2.h"

#include <algorithm>
#include <numeric>

#include "reform/reform_sos1.h"

namespace vlm::reform {

Status add_sos2(Builder& b, const std::vector<int>& ordered, const std::vector<char>* allowed,
                const BigMContext& c) {
  const int n = static_cast<int>(ordered.size());
  auto pair_ok = [&](int s) { return allowed == nullptr || (*allowed)[s] != 0; };
  bool all_allowed = true;
  for (int s = 0; s + 1 < n; ++s) all_allowed = all_allowed && pair_ok(s);
  if (n <= 2 && all_allowed) return Status::Ok();
  // Every constant before anything is added, so that a failure adds nothing.
  std::vector<double> l(n, 0.0), u(n, 0.0);
  for (int i = 0; i < n; ++i) {
    const int j = ordered[i];
    if (b.ub(j) > 0.0) {
      VLM_ASSIGN_OR_RETURN(u[i], finite_upper(b, j, c));
    }
    if (b.lb(j) < 0.0) {
      VLM_ASSIGN_OR_RETURN(l[i], finite_lower(b, j, c));
    }
  }
  std::vector<int> z(std::max(n - 1, 0), -1);
  std::vector<int> zs;
  for (int s = 0; s + 1 < n; ++s) {
    if (!pair_ok(s)) continue;
    z[s] = b.add_binary();
    zs.push_back(z[s]);
  }
  for (int i = 0; i < n; ++i) {
    const int j = ordered[i];
    if (l[i] == 0.0 && u[i] == 0.0) continue;
    std::vector<int> ind{j};
    for (int s : {i - 1, i}) {
      if (s >= 0 && s + 1 < n && z[s] >= 0) ind.push_back(z[s]);
    }
    if (u[i] > 0.0) {
      std::vector<double> val(ind.size(), -u[i]);
      val[0] = 1.0;
      b.add_le(ind, val, 0.0);
    }
    if (l[i] < 0.0) {
      std::vector<double> val(ind.size(), -l[i]);
      val[0] = 1.0;
      b.add_ge(ind, val, 0.0);
    }
  }
  if (zs.size() > 1) b.add_le(zs, std::vector<double>(zs.size(), 1.0), 1.0);
  return Status::Ok();
}

namespace {

class Sos2Reformulation final : public Reformulation {
 public:
  const char* name() const override { return "SOS2"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesRows; }
  Status apply(const ModelData& d, int index, Builder& b) const override {
    const SosData& s = d.sos[index];
    std::vector<int> order(s.ind.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](int a, int c) { return s.weight[a] < s.weight[c]; });
    std::vector<int> ordered;
    ordered.reserve(order.size());
    for (int k : order) ordered.push_back(s.ind[k]);
    BigMContext c{describe_sos(d, index), "a member may be non-zero only when a binary of one of its two "
                                          "neighbour pairs is 1, and the bound is that binary's coefficient"};
    Status st = add_sos2(b, ordered, nullptr, c);
    // No finite big-M (add_sos2 added nothing then): the search branches on the set instead.
    if (st.code() == VLM_ERROR_NOT_SUPPORTED) return hold_sos(d, index, b);
    return st;
  }
};

}  // namespace

const Reformulation& sos2_reformulation() {
  static const Sos2Reformulation unit;
  return unit;
}

}  // namespace vlm::reform
