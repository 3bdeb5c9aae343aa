#include "reform/reform_norm.h"

#include <algorithm>
#include <cmath>

#include "reform/big_m.h"
#include "reform/reform_abs.h"
#include "reform/reform_max.h"

namespace vlm::reform {

namespace {

// The magnitude below which a continuous value counts as zero for the 0-norm.
constexpr double kZeroNormEps = 1e-5;

Status add_zero_norm(Builder& b, int r, const std::vector<int>& xs, const BigMContext& c) {
  // Every constant before anything is added, so that a failure adds nothing.
  const std::size_t k = xs.size();
  std::vector<double> lo(k, 0.0), up(k, 0.0);
  for (std::size_t i = 0; i < k; ++i) {
    if (b.ub(xs[i]) > 0.0) {
      VLM_ASSIGN_OR_RETURN(up[i], finite_upper(b, xs[i], c));
    }
    if (b.lb(xs[i]) < 0.0) {
      VLM_ASSIGN_OR_RETURN(lo[i], finite_lower(b, xs[i], c));
    }
  }
  std::vector<int> ind{r};
  std::vector<double> val{1.0};
  for (std::size_t i = 0; i < k; ++i) {
    const int j = xs[i];
    const double L = lo[i], U = up[i];
    if (L == 0.0 && U == 0.0) continue;
    const double eps = b.is_integer(j) ? 1.0 : kZeroNormEps;
    std::vector<int> split{j};
    std::vector<double> coef{1.0};
    std::vector<int> bins;
    if (U > 0.0) {  // positive part q in [eps w, U w]
      const int w = b.add_binary();
      const int q = b.add_continuous(0.0, U);
      b.add_le({q, w}, {1.0, -U}, 0.0);
      b.add_ge({q, w}, {1.0, -std::min(eps, U)}, 0.0);
      split.push_back(q);
      coef.push_back(-1.0);
      bins.push_back(w);
    }
    if (L < 0.0) {  // negative part n in [eps v, -L v]
      const int v = b.add_binary();
      const int n = b.add_continuous(0.0, -L);
      b.add_le({n, v}, {1.0, L}, 0.0);
      b.add_ge({n, v}, {1.0, -std::min(eps, -L)}, 0.0);
      split.push_back(n);
      coef.push_back(1.0);
      bins.push_back(v);
    }
    b.add_eq(split, coef, 0.0);  // x = q - n
    if (bins.size() == 2) b.add_le(bins, {1.0, 1.0}, 1.0);
    for (int w : bins) {
      ind.push_back(w);
      val.push_back(-1.0);
    }
  }
  b.add_eq(ind, val, 0.0);  // r = number of non-zero parts
  return Status::Ok();
}

Status add_two_norm(const ModelData& d, int index, Builder& b) {
  const GenConstrData& g = d.genconstrs[index];
  if (g.vars.empty()) {
    b.add_eq({g.res}, {1.0}, 0.0);
    return Status::Ok();
  }
  // A column of its own for the cone's right-hand side: it is >= 0 and in no other term, which
  // is what makes the row a cone whatever the bounds of r or its other uses.
  const int t = b.add_continuous(0.0, INFINITY);
  b.add_eq({g.res, t}, {1.0, -1.0}, 0.0);
  QConstrData q;
  for (int j : g.vars) {
    q.qrow.push_back(j);
    q.qcol.push_back(j);
    q.qval.push_back(1.0);
  }
  q.qrow.push_back(t);
  q.qcol.push_back(t);
  q.qval.push_back(-1.0);
  const NormForm form = two_norm_form(d, index);
  q.sense = form == NormForm::kEquality ? '=' : '<';
  if (form == NormForm::kConeThenSetY) b.set_to_norm(g.res, g.vars);
  q.rhs = 0.0;
  q.name = describe_genconstr(d, index);
  b.add_qrow(std::move(q));
  return Status::Ok();
}

class NormReformulation final : public Reformulation {
 public:
  const char* name() const override { return "NORM"; }
  unsigned creates() const override { return kCreatesBinaries | kCreatesContinuous | kCreatesRows; }

  Status apply(const ModelData& d, int index, Builder& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    const std::string who = describe_genconstr(d, index);
    if (g.a == 2.0) return add_two_norm(d, index, b);
    if (g.a == 0.0) {
      return add_zero_norm(b, g.res, g.vars,
                           BigMContext{who, "a binary says whether it is non-zero, with constants taken from "
                                            "its bounds"});
    }
    BigMContext c{who, "its absolute value needs a binary choosing the sign, with constants taken from its bounds"};
    for (int j : g.vars) {  // check every bound first, so that a failure adds nothing
      if (b.lb(j) < 0.0 && b.ub(j) > 0.0) {
        VLM_RETURN_IF_ERROR(finite_lower(b, j, c).status());
        VLM_RETURN_IF_ERROR(finite_upper(b, j, c).status());
      }
    }
    if (g.a != 1.0 && !std::isfinite(b.ub(g.res))) {
      // The big-M of the maximum comes from the largest absolute value: every bound counts.
      for (int j : g.vars) {
        VLM_RETURN_IF_ERROR(finite_lower(b, j, c).status());
        VLM_RETURN_IF_ERROR(finite_upper(b, j, c).status());
      }
    }
    std::vector<int> a;
    for (int j : g.vars) {
      auto [mn, mx] = abs_range(b.lb(j), b.ub(j));
      const int aj = b.add_continuous(mn, mx);
      VLM_RETURN_IF_ERROR(add_abs(b, aj, j, c));
      a.push_back(aj);
    }
    if (g.a == 1.0) {
      std::vector<int> ind{g.res};
      std::vector<double> val{1.0};
      for (int aj : a) {
        ind.push_back(aj);
        val.push_back(-1.0);
      }
      b.add_eq(ind, val, 0.0);
      return Status::Ok();
    }
    if (a.empty()) {
      b.add_eq({g.res}, {1.0}, 0.0);
      return Status::Ok();
    }
    return add_extremum(b, g.res, a, -VLM_INFINITY, 1,
                        BigMContext{who, "the norm is tied to the largest absolute value through a binary"});
  }

  bool propagate(const ModelData& d, int index, Bounds& b) const override {
    const GenConstrData& g = d.genconstrs[index];
    double hi = 0.0;
    for (int j : g.vars) {
      const double m = g.a == 0.0 ? ((b.lb[j] == 0.0 && b.ub[j] == 0.0) ? 0.0 : 1.0) : abs_range(b.lb[j], b.ub[j]).second;
      hi = g.a == 1.0 || g.a == 0.0 ? hi + m : std::max(hi, m);
    }
    bool changed = b.tighten_lower(g.res, 0.0);
    if (std::isfinite(hi) && g.a != 2.0) changed |= b.tighten_upper(g.res, hi);
    return changed;
  }
};

}  // namespace

NormForm two_norm_form(const ModelData& d, int index) {
  const NormForm no = NormForm::kEquality;
  const int y = d.genconstrs[index].res;
  if (d.vtype[y] != 'C' || d.lb[y] > 0.0 || d.sense * d.obj[y] < 0.0) return no;
  for (std::size_t k = 0; k < d.qval.size(); ++k) {
    if (d.qrow[k] == y || d.qcol[k] == y) return no;
  }
  for (const ObjectiveN& o : d.objn) {
    if (y < static_cast<int>(o.coef.size()) && o.coef[y] != 0.0) return no;
  }
  if (d.pwlobj.count(y) != 0) return no;
  for (int i = 0; i < d.num_constrs(); ++i) {
    const Row& r = d.rows[i];
    for (std::size_t k = 0; k < r.ind.size(); ++k) {
      if (r.ind[k] != y || r.val[k] == 0.0) continue;
      const bool smaller_is_fine = (d.csense[i] == '<' && r.val[k] > 0.0) || (d.csense[i] == '>' && r.val[k] < 0.0);
      if (!smaller_is_fine) return no;
    }
  }
  auto uses = [y](const std::vector<int>& v) { return std::find(v.begin(), v.end(), y) != v.end(); };
  for (const QConstrData& q : d.qconstrs) {
    if (uses(q.lind) || uses(q.qrow) || uses(q.qcol)) return no;
  }
  for (const SosData& s : d.sos) {
    if (uses(s.ind)) return no;
  }
  for (int k = 0; k < d.num_genconstrs(); ++k) {
    const GenConstrData& g = d.genconstrs[k];
    if (uses(g.vars) || g.arg == y || (k != index && g.res == y)) return no;
  }
  return d.obj[y] == 0.0 ? NormForm::kConeThenSetY : NormForm::kCone;
}

const Reformulation& norm_reformulation() {
  static const NormReformulation unit;
  return unit;
}

}  // namespace vlm::reform
