#include "reform/reform_func.h"

#include <cmath>

#include "reform/big_m.h"
#include "reform/func_breakpoints.h"
#include "reform/reform_pwl.h"

namespace vlm::reform {

namespace {

const ParamSet& params_of(const Builder& b) {
  static const ParamSet defaults;
  return b.options().params != nullptr ? *b.options().params : defaults;
}

class FuncReformulation final : public Reformulation {
 public:
  const char* name() const override { return "FUNCTION"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesContinuous | kCreatesRows; }

  Status apply(const ModelData& d, int index, Builder& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    const std::string who = describe_genconstr(d, index);
    const ParamSet& ps = params_of(b);
    double lo = b.lb(g.arg), hi = b.ub(g.arg);
    // With FuncMaxVal finite an open bound is clipped by the breakpoints; with it infinite the
    // approximation has no end, which is the same missing-bound case as a big-M's.
    if (!(func_options(d, index, ps).max_val < VLM_INFINITY)) {
      const BigMContext c{who, "the piecewise-linear approximation of the function spans the range of x, and "
                               "FuncMaxVal is infinite, so no range is assumed"};
      VLM_ASSIGN_OR_RETURN(lo, finite_lower(b, g.arg, c));
      VLM_ASSIGN_OR_RETURN(hi, finite_upper(b, g.arg, c));
    }
    VLM_ASSIGN_OR_RETURN(PwlPoints pts, func_breakpoints(d, index, lo, hi, ps));
    if (pts.x.front() == pts.x.back()) {
      // x is fixed: the points are one point twice, which defines no piece.
      b.add_eq({g.res}, {1.0}, pts.y.front());
      b.tighten(g.res, pts.y.front(), pts.y.front());
      return Status::Ok();
    }
    // The points span the (clipped) bounds; narrowing x to them keeps add_pwl from extending
    // the end pieces towards a clipped-away infinite bound.
    b.tighten(g.arg, pts.x.front(), pts.x.back());
    const auto [mn, mx] = pwl_range(pts.x, pts.y, pts.x.front(), pts.x.back());
    VLM_RETURN_IF_ERROR(add_pwl(b, g.arg, g.res, std::move(pts.x), std::move(pts.y), BigMContext{who, ""}));
    b.tighten(g.res, mn, mx);
    return Status::Ok();
  }
};

}  // namespace

const Reformulation& func_reformulation() {
  static const FuncReformulation unit;
  return unit;
}

}  // namespace vlm::reform
