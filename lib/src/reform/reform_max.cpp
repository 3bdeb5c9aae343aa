#include "reform/reform_max.h"

#include <algorithm>
#include <cmath>

namespace vlm::reform {

namespace {

bool has_constant(double c) { return std::isfinite(c) && std::fabs(c) < VLM_INFINITY; }

}  // namespace

Status add_extremum(Builder& b, int r, const std::vector<int>& ops, double c, int sign, const BigMContext& ctx) {
  const double s = sign;
  const bool constant = has_constant(c);
  if (ops.empty() && !constant) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, ctx.who + " has neither operands nor a constant");
  }
  // In the signed space (s x) the construct is always a maximum.
  auto lower = [&](int j) { return s > 0 ? b.lb(j) : -b.ub(j); };
  auto upper = [&](int j) { return s > 0 ? b.ub(j) : -b.lb(j); };
  double best_lower = constant ? s * c : -INFINITY;
  for (int j : ops) best_lower = std::max(best_lower, lower(j));
  std::vector<int> cand;
  for (int j : ops) {
    if (upper(j) >= best_lower) cand.push_back(j);
  }
  const bool c_cand = constant && (cand.empty() || s * c >= best_lower);
  const int ncand = static_cast<int>(cand.size()) + (c_cand ? 1 : 0);
  // The constants first, so that a failure adds nothing. U is the largest value of s r: the
  // result's own bound, or (through propagation) the operands'; name an operand when it is
  // the one without a bound.
  double U = 0.0;
  std::vector<double> low(cand.size());
  if (ncand > 1) {
    auto signed_bound = [&](int j, bool up) -> StatusOr<double> {
      // The bound of s x_j: for s = -1 the upper bound of -x_j is minus the lower bound of x_j.
      const bool own_upper = (s > 0) == up;
      StatusOr<double> v = own_upper ? finite_upper(b, j, ctx) : finite_lower(b, j, ctx);
      if (!v.ok()) return v.status();
      return s * *v;
    };
    if (!std::isfinite(upper(r))) {
      for (int j : cand) VLM_RETURN_IF_ERROR(signed_bound(j, true).status());
    }
    VLM_ASSIGN_OR_RETURN(U, signed_bound(r, true));
    for (std::size_t k = 0; k < cand.size(); ++k) {
      VLM_ASSIGN_OR_RETURN(low[k], signed_bound(cand[k], false));
    }
  }
  // r >= every operand (r <= for a minimum).
  for (int j : ops) b.add_ge({r, j}, {s, -s}, 0.0);
  if (constant) b.add_ge({r}, {s}, s * c);
  if (ncand == 1) {  // the only possible maximum: r equals it
    if (c_cand) {
      b.add_le({r}, {s}, s * c);
    } else {
      b.add_le({r, cand[0]}, {s, -s}, 0.0);
    }
    return Status::Ok();
  }
  std::vector<int> z;
  for (std::size_t k = 0; k < cand.size(); ++k) {
    const double m = U - low[k];
    const int zj = b.add_binary();
    z.push_back(zj);
    b.add_le({r, cand[k], zj}, {s, -s, m}, m);  // s r - s x_j <= m (1 - z_j)
  }
  if (c_cand) {
    const double m = U - s * c;
    const int zc = b.add_binary();
    z.push_back(zc);
    b.add_le({r, zc}, {s, m}, U);  // s r - s c <= m (1 - z_c)
  }
  b.add_eq(z, std::vector<double>(z.size(), 1.0), 1.0);
  return Status::Ok();
}

bool propagate_extremum(Bounds& b, int r, const std::vector<int>& ops, double c, int sign) {
  const bool constant = has_constant(c);
  bool changed = false;
  if (sign > 0) {
    double lo = constant ? c : -INFINITY, hi = constant ? c : -INFINITY;
    for (int j : ops) {
      lo = std::max(lo, b.lb[j]);
      hi = std::max(hi, b.ub[j]);
    }
    if (std::isfinite(lo)) changed |= b.tighten_lower(r, lo);
    if (std::isfinite(hi)) changed |= b.tighten_upper(r, hi);
    if (std::isfinite(b.ub[r])) {
      for (int j : ops) changed |= b.tighten_upper(j, b.ub[r]);
    }
  } else {
    double lo = constant ? c : INFINITY, hi = constant ? c : INFINITY;
    for (int j : ops) {
      lo = std::min(lo, b.lb[j]);
      hi = std::min(hi, b.ub[j]);
    }
    if (std::isfinite(lo)) changed |= b.tighten_lower(r, lo);
    if (std::isfinite(hi)) changed |= b.tighten_upper(r, hi);
    if (std::isfinite(b.lb[r])) {
      for (int j : ops) changed |= b.tighten_lower(j, b.lb[r]);
    }
  }
  return changed;
}

namespace {

class MaxReformulation final : public Reformulation {
 public:
  const char* name() const override { return "MAX"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesRows; }
  Status apply(const ModelData& d, int index, Builder& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    BigMContext c{describe_genconstr(d, index),
                  "the result is tied to the largest operand through a binary, with a big-M constant "
                  "taken from the operands' bounds"};
    return add_extremum(b, g.res, g.vars, g.a, 1, c);
  }
  bool propagate(const ModelData& d, int index, Bounds& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    return propagate_extremum(b, g.res, g.vars, g.a, 1);
  }
};

}  // namespace

const Reformulation& max_reformulation() {
  static const MaxReformulation unit;
  return unit;
}

}  // namespace vlm::reform
