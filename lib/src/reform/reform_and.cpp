#include "reform/reform_and.h"

namespace vlm::reform {

namespace {

class AndReformulation final : public Reformulation {
 public:
  const char* name() const override { return "AND"; }
  unsigned creates() const override { return kCreatesRows; }
  Status apply(const ModelData& d, int index, Builder& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    const std::string who = describe_genconstr(d, index);
    VLM_RETURN_IF_ERROR(require_binary(d, g.res, who, "result variable"));
    for (int j : g.vars) VLM_RETURN_IF_ERROR(require_binary(d, j, who, "operand"));
    const int k = static_cast<int>(g.vars.size());
    for (int j : g.vars) b.add_le({g.res, j}, {1.0, -1.0}, 0.0);
    std::vector<int> ind{g.res};
    std::vector<double> val{1.0};
    for (int j : g.vars) {
      ind.push_back(j);
      val.push_back(-1.0);
    }
    b.add_ge(ind, val, 1.0 - k);  // r - sum x >= 1 - k
    return Status::Ok();
  }
};

}  // namespace

const Reformulation& and_reformulation() {
  static const AndReformulation unit;
  return unit;
}

}  // namespace vlm::reform
