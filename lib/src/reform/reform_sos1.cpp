#include "reform/reform_sos1.h"

#include <string>

namespace vlm::reform {

std::string describe_sos(const ModelData& d, int index) {
  return "SOS constraint " + std::to_string(index) + " (type " + std::to_string(d.sos[index].type) + ")";
}

Status add_sos1(Builder& b, const std::vector<int>& members, const BigMContext& c) {
  std::vector<int> active;
  bool all_binary = true;
  for (int j : members) {
    if (b.lb(j) == 0.0 && b.ub(j) == 0.0) continue;
    // Check every bound before adding anything, so that a failure adds nothing.
    if (b.ub(j) > 0.0) VLM_RETURN_IF_ERROR(finite_upper(b, j, c).status());
    if (b.lb(j) < 0.0) VLM_RETURN_IF_ERROR(finite_lower(b, j, c).status());
    all_binary = all_binary && b.is_integer(j) && b.lb(j) >= 0.0 && b.ub(j) <= 1.0;
    active.push_back(j);
  }
  if (active.size() <= 1) return Status::Ok();
  if (all_binary) {
    b.add_le(active, std::vector<double>(active.size(), 1.0), 1.0);
    return Status::Ok();
  }
  std::vector<int> z;
  z.reserve(active.size());
  for (int j : active) {
    const int zj = b.add_binary();
    z.push_back(zj);
    if (b.ub(j) > 0.0) b.add_le({j, zj}, {1.0, -b.ub(j)}, 0.0);  // x <= u z
    if (b.lb(j) < 0.0) b.add_ge({j, zj}, {1.0, -b.lb(j)}, 0.0);  // x >= l z
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
