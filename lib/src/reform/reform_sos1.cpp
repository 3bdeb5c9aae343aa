#include "reform/reform_sos1.h"

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

namespace {

class Sos1Reformulation final : public Reformulation {
 public:
  const char* name() const override { return "SOS1"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesRows; }
  Status apply(const ModelData& d, int index, Builder& b) const override {
    BigMContext c{describe_sos(d, index), "a member may be non-zero only when its binary is 1, and the bound "
                                          "is the coefficient of that binary"};
    return add_sos1(b, d.sos[index].ind, c);
  }
};

}  // namespace

const Reformulation& sos1_reformulation() {
  static const Sos1Reformulation unit;
  return unit;
}

}  // namespace vlm::reform
