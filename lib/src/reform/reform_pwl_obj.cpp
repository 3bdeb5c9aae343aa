#include "reform/reform_pwl_obj.h"

#include <cmath>

#include "reform/reform_pwl.h"

namespace vlm::reform {

namespace {

class PwlObjReformulation final : public Reformulation {
 public:
  const char* name() const override { return "PWL objective"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesContinuous | kCreatesRows; }

  Status apply(const ModelData& d, int var, Builder& b) const override {
    const PwlObj& f = d.pwlobj.at(var);
    const std::size_t n = f.x.size();
    // Slopes of the non-vertical pieces in order; a vertical one (a jump) breaks convexity.
    bool jump = false;
    std::vector<std::size_t> pieces;
    for (std::size_t k = 0; k + 1 < n; ++k) {
      if (f.x[k + 1] > f.x[k]) {
        pieces.push_back(k);
      } else if (f.y[k + 1] != f.y[k]) {
        jump = true;
      }
    }
    auto slope = [&](std::size_t k) { return (f.y[k + 1] - f.y[k]) / (f.x[k + 1] - f.x[k]); };
    // In a minimisation the convex case is the easy one; in a maximisation the concave one.
    const double sense = d.sense == -1 ? -1.0 : 1.0;
    bool easy = !jump && !pieces.empty();
    for (std::size_t i = 1; easy && i < pieces.size(); ++i) {
      easy = sense * slope(pieces[i]) >= sense * slope(pieces[i - 1]);
    }
    b.set_cost(var, 0.0);
    const int t = b.add_continuous(-INFINITY, INFINITY, 1.0);
    if (easy) {
      for (std::size_t k : pieces) {
        const double s = slope(k);
        // t - s x >= y_k - s x_k (minimisation); <= for a maximisation.
        if (sense > 0) {
          b.add_ge({t, var}, {1.0, -s}, f.y[k] - s * f.x[k]);
        } else {
          b.add_le({t, var}, {1.0, -s}, f.y[k] - s * f.x[k]);
        }
      }
      return Status::Ok();
    }
    BigMContext c{"The piecewise-linear objective of variable '" + d.varname[var] + "' (not convex)", ""};
    return add_pwl(b, var, t, f.x, f.y, c);
  }
};

}  // namespace

const Reformulation& pwl_obj_reformulation() {
  static const PwlObjReformulation unit;
  return unit;
}

}  // namespace vlm::reform
