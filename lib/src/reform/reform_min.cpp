#include "reform/reform_min.h"

#include "reform/reform_max.h"

namespace vlm::reform {

namespace {

class MinReformulation final : public Reformulation {
 public:
  const char* name() const override { return "MIN"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesRows; }
  Status apply(const ModelData& d, int index, Builder& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    BigMContext c{describe_genconstr(d, index),
                  "the result is tied to the smallest operand through a binary, with a big-M constant "
                  "taken from the operands' bounds"};
    return add_extremum(b, g.res, g.vars, g.a, -1, c);
  }
  bool propagate(const ModelData& d, int index, Bounds& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    return propagate_extremum(b, g.res, g.vars, g.a, -1);
  }
};

}  // namespace

const Reformulation& min_reformulation() {
  static const MinReformulation unit;
  return unit;
}

}  // namespace vlm::reform
