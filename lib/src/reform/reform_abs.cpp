#include "reform/reform_abs.h"

#include <algorithm>
#include <cmath>

namespace vlm::reform {

std::pair<double, double> abs_range(double lo, double hi) {
  const double mn = lo >= 0 ? lo : hi <= 0 ? -hi : 0.0;
  return {mn, std::max(std::fabs(lo), std::fabs(hi))};
}

Status add_abs(Builder& b, int r, int x, const BigMContext& c) {
  if (b.lb(x) >= 0.0) {
    b.add_eq({r, x}, {1.0, -1.0}, 0.0);
    return Status::Ok();
  }
  if (b.ub(x) <= 0.0) {
    b.add_eq({r, x}, {1.0, 1.0}, 0.0);
    return Status::Ok();
  }
  VLM_ASSIGN_OR_RETURN(const double L, finite_lower(b, x, c));
  VLM_ASSIGN_OR_RETURN(const double U, finite_upper(b, x, c));
  const int z = b.add_binary();
  const int p = b.add_continuous(0.0, U);
  const int n = b.add_continuous(0.0, -L);
  b.add_eq({x, p, n}, {1.0, -1.0, 1.0}, 0.0);  // x = p - n
  b.add_eq({r, p, n}, {1.0, -1.0, -1.0}, 0.0);  // r = p + n
  b.add_le({p, z}, {1.0, -U}, 0.0);             // p <= U z
  b.add_le({n, z}, {1.0, -L}, -L);              // n <= -L (1 - z)
  return Status::Ok();
}

namespace {

class AbsReformulation final : public Reformulation {
 public:
  const char* name() const override { return "ABS"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesContinuous | kCreatesRows; }
  Status apply(const ModelData& d, int index, Builder& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    BigMContext c{describe_genconstr(d, index),
                  "the argument may take both signs, and a binary chooses the sign with constants "
                  "taken from its bounds"};
    return add_abs(b, g.res, g.arg, c);
  }
  bool propagate(const ModelData& d, int index, Bounds& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    auto [mn, mx] = abs_range(b.lb[g.arg], b.ub[g.arg]);
    bool changed = b.tighten_lower(g.res, mn);
    if (std::isfinite(mx)) changed |= b.tighten_upper(g.res, mx);
    if (std::isfinite(b.ub[g.res])) {
      changed |= b.tighten_lower(g.arg, -b.ub[g.res]);
      changed |= b.tighten_upper(g.arg, b.ub[g.res]);
    }
    return changed;
  }
};

}  // namespace

const Reformulation& abs_reformulation() {
  static const AbsReformulation unit;
  return unit;
}

}  // namespace vlm::reform
