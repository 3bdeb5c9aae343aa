#include "reform/reform_indicator.h"

#include <cmath>

#include "reform/big_m.h"

namespace vlm::reform {

namespace {

class IndicatorReformulation final : public Reformulation {
 public:
  const char* name() const override { return "INDICATOR"; }
  unsigned creates() const override { return kCreatesRows; }

  Status apply(const ModelData& d, int index, Builder& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    const int bin = g.res;
    VLM_RETURN_IF_ERROR(require_binary(d, bin, describe_genconstr(d, index), "indicator variable"));
    const bool le = g.sense == '<' || g.sense == '=';
    const bool ge = g.sense == '>' || g.sense == '=';
    const double on = g.binval;
    if (b.lb(bin) == on && b.ub(bin) == on) {  // always active
      b.add_row(g.vars, g.vals, ge ? g.rhs : -INFINITY, le ? g.rhs : INFINITY);
      return Status::Ok();
    }
    if (b.lb(bin) == 1.0 - on && b.ub(bin) == 1.0 - on) return Status::Ok();  // never active

    BigMContext c{describe_genconstr(d, index),
                  "the triggered row is switched off by a big-M constant taken from the bounds of its variables"};
    double upper_m = 0.0, lower_m = 0.0;
    if (le) {
      VLM_ASSIGN_OR_RETURN(const double u, max_activity(b, g.vars, g.vals, c));
      upper_m = u - g.rhs;
    }
    if (ge) {
      VLM_ASSIGN_OR_RETURN(const double l, min_activity(b, g.vars, g.vals, c));
      lower_m = g.rhs - l;
    }
    std::vector<int> ind(g.vars);
    ind.push_back(bin);
    std::vector<double> val(g.vals);
    val.push_back(0.0);
    // off = 1 - b (v = 1) or b (v = 0): a'x - M off <= rhs becomes
    //   v = 1:  a'x + M b <= rhs + M;   v = 0:  a'x - M b <= rhs.
    if (le && upper_m > 0.0) {
      val.back() = on == 1.0 ? upper_m : -upper_m;
      b.add_le(ind, val, on == 1.0 ? g.rhs + upper_m : g.rhs);
    }
    if (ge && lower_m > 0.0) {
      val.back() = on == 1.0 ? -lower_m : lower_m;
      b.add_ge(ind, val, on == 1.0 ? g.rhs - lower_m : g.rhs);
    }
    return Status::Ok();
  }
};

}  // namespace

const Reformulation& indicator_reformulation() {
  static const IndicatorReformulation unit;
  return unit;
}

}  // namespace vlm::reform
