#include "reform/reform_sos1.h"

#include <algorithm>
#include <numeric>
#include <string>

namespace vlm::reform {

std::string describe_sos(const ModelData& d, int index) {
  return "SOS constraint " + std::to_string(index) + " (type " + std::to_string(d.sos[index].type) + ")";
}

Status add_sos1(Builder& b, const std::vector<int>& members, const BigMContext& c) {
  struct Member {
    int j;
    double l, u;  // the constants: bounds through big_m, 0 on a side the member cannot leave 0 to
  };
  std::vector<Member> active;
  bool all_binary = true;
  for (int j : members) {
    if (b.lb(j) == 0.0 && b.ub(j) == 0.0) continue;
    // Every constant before anything is added, so that a failure adds nothing.
    Member m{j, 0.0, 0.0};
    if (b.ub(j) > 0.0) {
      VLM_ASSIGN_OR_RETURN(m.u, finite_upper(b, j, c));
    }
    if (b.lb(j) < 0.0) {
      VLM_ASSIGN_OR_RETURN(m.l, finite_lower(b, j, c));
    }
    all_binary = all_binary && b.is_integer(j) && b.lb(j) >= 0.0 && b.ub(j) <= 1.0;
    active.push_back(m);
  }
  if (active.size() <= 1) return Status::Ok();
  if (all_binary) {
    std::vector<int> ind;
    for (const Member& m : active) ind.push_back(m.j);
    b.add_le(ind, std::vector<double>(ind.size(), 1.0), 1.0);
    return Status::Ok();
  }
  std::vector<int> z;
  z.reserve(active.size());
  for (const Member& m : active) {
    const int zj = b.add_binary();
    z.push_back(zj);
    if (m.u > 0.0) b.add_le({m.j, zj}, {1.0, -m.u}, 0.0);  // x <= u z
    if (m.l < 0.0) b.add_ge({m.j, zj}, {1.0, -m.l}, 0.0);  // x >= l z
  }
  b.add_le(z, std::vector<double>(z.size(), 1.0), 1.0);
  return Status::Ok();
}

Status hold_sos(const ModelData& d, int index, Builder& b) {
  const SosData& s = d.sos[index];
  std::vector<int> order(s.ind.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](int a, int c) { return s.weight[a] < s.weight[c]; });
  HeldConstruct h;
  h.kind = s.type == 1 ? HeldConstruct::Kind::kSos1 : HeldConstruct::Kind::kSos2;
  for (int k : order) {
    h.cols.push_back(s.ind[k]);
    h.weights.push_back(s.weight[k]);
  }
  h.who = describe_sos(d, index);
  b.hold(std::move(h));
  return Status::Ok();
}

namespace {

class Sos1Reformulation final : public Reformulation {
 public:
  const char* name() const override { return "SOS1"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesRows; }
  Status apply(const ModelData& d, int index, Builder& b) const override {
    BigMContext c{describe_sos(d, index), "a member may be non-zero only when its binary is 1, and the bound "
                                          "is the coefficient of that binary"};
    Status st = add_sos1(b, d.sos[index].ind, c);
    // No finite big-M (add_sos1 added nothing then): the search branches on the set instead.
    if (st.code() == VLM_ERROR_NOT_SUPPORTED) return hold_sos(d, index, b);
    return st;
  }
};

}  // namespace

const Reformulation& sos1_reformulation() {
  static const Sos1Reformulation unit;
  return unit;
}

}  // namespace vlm::reform
