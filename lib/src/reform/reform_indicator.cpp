#include "reform/reform_indicator.h"

#include <cmath>

#include "reform/big_m.h"

namespace vlm::reform {

namespace {

class IndicatorReformulation final : public Reformulation {
 public:
  const char* name() const override { return "INDICATOR"; }
  unsigned creates() const override { return kCreatesRows | kCreatesContinuous; }

  // No finite big-M: the row goes in with a slack s, a'x - s (sense) rhs, s free in the
  // direction that loosens it; the search fixes s to 0 where b == v (column bounds travel with
  // the nodes, so the row is toggled without rebuilding the relaxation).
  static Status hold(const ModelData& d, int index, Builder& b) {
    const GenConstrData& g = d.genconstrs[index];
    const double slo = g.sense == '<' ? 0.0 : -INFINITY;
    const double sup = g.sense == '>' ? 0.0 : INFINITY;
    HeldConstruct h;
    h.kind = HeldConstruct::Kind::kIndicator;
    h.bin = g.res;
    h.binval = g.binval;
    h.slack = b.add_continuous(slo, sup);
    h.ind = g.vars;
    h.val = g.vals;
    h.sense = g.sense;
    h.rhs = g.rhs;
    h.who = describe_genconstr(d, index);
    std::vector<int> ind(g.vars);
    std::vector<double> val(g.vals);
    ind.push_back(h.slack);
    val.push_back(-1.0);
    double lo = 0.0, up = 0.0;
    base_row(g.sense, g.rhs, lo, up);
    b.add_row(ind, val, lo, up);
    b.hold(std::move(h));
    return Status::Ok();
  }

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
      StatusOr<double> u = max_activity(b, g.vars, g.vals, c);
      if (!u.ok()) return hold(d, index, b);
      upper_m = *u - g.rhs;
    }
    if (ge) {
      StatusOr<double> l = min_activity(b, g.vars, g.vals, c);
      if (!l.ok()) return hold(d, index, b);
      lower_m = g.rhs - *l;
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
