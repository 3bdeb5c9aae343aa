#include "algorithms/quadratic_cuts.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "algorithms/psd.h"

namespace vlm::algorithms {

namespace {

// Merges repeated pairs (i, j) and (j, i) and drops zero terms.
void merge_terms(QuadConstraint& c) {
  std::map<std::pair<int, int>, double> q;
  for (std::size_t k = 0; k < c.qv.size(); ++k) {
    q[{std::min(c.qr[k], c.qc[k]), std::max(c.qr[k], c.qc[k])}] += c.qv[k];
  }
  c.qr.clear();
  c.qc.clear();
  c.qv.clear();
  for (const auto& [ij, v] : q) {
    if (v == 0.0) continue;
    c.qr.push_back(ij.first);
    c.qc.push_back(ij.second);
    c.qv.push_back(v);
  }
  std::map<int, double> l;
  for (std::size_t k = 0; k < c.lv.size(); ++k) l[c.li[k]] += c.lv[k];
  c.li.clear();
  c.lv.clear();
  for (const auto& [j, v] : l) {
    if (v == 0.0) continue;
    c.li.push_back(j);
    c.lv.push_back(v);
  }
}

// Recognises the two cone forms (see the header); fills lrows, rform and scale.
bool detect_cone(QuadConstraint& c, const std::vector<double>& lower) {
  if (!c.li.empty() || c.rhs > 0.0) return false;
  std::vector<std::pair<int, double>> diag, off;
  for (std::size_t k = 0; k < c.qv.size(); ++k) {
    (c.qr[k] == c.qc[k] ? diag : off).push_back({static_cast<int>(k), c.qv[k]});
  }
  int negatives = 0, neg_at = -1;
  for (const auto& [k, v] : diag) {
    if (v < 0) {
      ++negatives;
      neg_at = k;
    }
  }
  if (negatives == 1 && c.qv.size() >= 2 && c.rhs == 0.0) {
    // x'Ax - c t^2 with A semidefinite and t in no other term: A = F'F gives ||F x|| <= sqrt(c) t.
    const int t = c.qr[neg_at];
    if (lower[t] < 0.0) return false;
    std::vector<int> r, cc;
    std::vector<double> v;
    for (std::size_t k = 0; k < c.qv.size(); ++k) {
      if (static_cast<int>(k) == neg_at) continue;
      if (c.qr[k] == t || c.qc[k] == t) return false;
      r.push_back(c.qr[k]);
      cc.push_back(c.qc[k]);
      v.push_back(c.qv[k]);
    }
    if (!psd_factor(r, cc, v, c.lrows) || c.lrows.empty()) {
      c.lrows.clear();
      return false;
    }
    c.rform = {{t, std::sqrt(-c.qv[neg_at])}};
    c.shape = QuadShape::kCone;
    c.scale = 2.0;
    return true;
  }
  if (off.size() == 1 && negatives == 0 && off[0].second < 0) {
    const int y = c.qr[off[0].first], z = c.qc[off[0].first];
    const double kk = -off[0].second;
    if (lower[y] < 0.0 || lower[z] < 0.0) return false;
    for (const auto& [k, v] : diag) {
      if (c.qr[k] == y || c.qr[k] == z) return false;
      c.lrows.push_back({{c.qr[k], 2.0 * std::sqrt(v)}});
    }
    c.lrows.push_back({{y, kk}, {z, -1.0}});
    // A constant c0 = -rhs >= 0 on the left (k y z >= c0, a hyperbolic constraint) is one more
    // row of L, the constant 2 sqrt(c0).
    if (c.rhs < 0.0) c.lrows.push_back({{kConstant, 2.0 * std::sqrt(-c.rhs)}});
    c.rform = {{y, kk}, {z, 1.0}};
    c.shape = QuadShape::kRotatedCone;
    c.scale = 0.5;
    return true;
  }
  return false;
}

double form(const std::vector<std::pair<int, double>>& f, const std::vector<double>& x) {
  double s = 0.0;
  for (const auto& [j, v] : f) s += j == kConstant ? v : v * x[j];
  return s;
}

}  // namespace

std::string qconstr_label(const QConstrData& q, int index) {
  return q.name.empty() ? "QC" + std::to_string(index) : q.name;
}

double QuadConstraint::violation(const std::vector<double>& x) const {
  double g = -rhs;
  for (std::size_t k = 0; k < qv.size(); ++k) g += qv[k] * x[qr[k]] * x[qc[k]];
  for (std::size_t k = 0; k < lv.size(); ++k) g += lv[k] * x[li[k]];
  return sense == '=' ? std::fabs(g) : g;
}

double QuadConstraint::scaled_violation(const std::vector<double>& x) const {
  std::map<int, double> grad;
  for (std::size_t k = 0; k < qv.size(); ++k) {
    grad[qr[k]] += qv[k] * x[qc[k]];
    grad[qc[k]] += qv[k] * x[qr[k]];
  }
  for (std::size_t k = 0; k < lv.size(); ++k) grad[li[k]] += lv[k];
  double norm = 0.0;
  for (const auto& [j, v] : grad) norm += v * v;
  const double g = violation(x);
  return norm > 0.0 ? g / std::sqrt(norm) : g;
}

double QuadConstraint::cone_violation(const std::vector<double>& x) const {
  double n = 0.0;
  for (const auto& row : lrows) {
    const double v = form(row, x);
    n += v * v;
  }
  return std::sqrt(n) - form(rform, x);
}

QuadConstraint classify_qconstr(const QConstrData& q, int index, const std::vector<double>& lower) {
  QuadConstraint c;
  c.index = index;
  const double sign = q.sense == '>' ? -1.0 : 1.0;
  c.qr = q.qrow;
  c.qc = q.qcol;
  c.li = q.lind;
  for (double v : q.qval) c.qv.push_back(sign * v);
  for (double v : q.lval) c.lv.push_back(sign * v);
  c.rhs = sign * q.rhs;
  merge_terms(c);
  if (c.qv.empty()) {
    c.shape = QuadShape::kLinear;
    c.sense = q.sense == '=' ? '=' : '<';
    return c;
  }
  if (q.sense == '=') return c;  // nonconvex
  if (detect_cone(c, lower)) return c;
  // The factor is kept for lift_convex.
  c.shape = psd_factor(c.qr, c.qc, c.qv, c.lrows) ? QuadShape::kConvex : QuadShape::kNonconvex;
  if (c.shape == QuadShape::kNonconvex) c.lrows.clear();
  return c;
}

Cut QuadraticSeparator::tangent(const QuadConstraint& c, const std::vector<double>& x0) const {
  std::map<int, double> grad;
  for (std::size_t k = 0; k < c.qv.size(); ++k) {
    const int i = c.qr[k], j = c.qc[k];
    grad[i] += c.qv[k] * x0[j];
    grad[j] += c.qv[k] * x0[i];
  }
  for (std::size_t k = 0; k < c.lv.size(); ++k) grad[c.li[k]] += c.lv[k];
  // g(x0) + grad'(x - x0) <= 0  <=>  grad'x <= grad'x0 - g(x0), divided by |grad| so that
  // the row's violation is the distance to the tangent plane.
  Cut cut;
  cut.owner = c.index;
  double rhs = -c.violation(x0), norm = 0.0;
  for (const auto& [j, v] : grad) {
    if (v == 0.0) continue;
    cut.ind.push_back(j);
    cut.val.push_back(v);
    rhs += v * x0[j];
    norm += v * v;
  }
  norm = std::sqrt(norm);
  if (norm > 0.0) {
    for (double& v : cut.val) v /= norm;
    rhs /= norm;
    cut.weight = 1.0 / norm;
  }
  cut.up = rhs;
  return cut;
}

Cut QuadraticSeparator::cone_cut(const QuadConstraint& c, const std::vector<double>& lx0) const {
  double n0 = 0.0;
  for (double v : lx0) n0 += v * v;
  n0 = std::sqrt(n0);
  Cut cut;
  cut.owner = c.index;
  if (!(n0 > 0.0)) return cut;
  // The row is the gradient cut of ||L x|| - R x itself, whose violation at x0 is the cone
  // violation; relative to g's tangent it is scaled by 1 / (s n0).
  std::map<int, double> coef;
  for (std::size_t k = 0; k < c.lrows.size(); ++k) {
    if (lx0[k] == 0.0) continue;
    for (const auto& [j, v] : c.lrows[k]) coef[j] += lx0[k] / n0 * v;
  }
  for (const auto& [j, v] : c.rform) coef[j] -= v;
  cut.weight = 1.0 / (c.scale * n0);
  cut.up = 0.0;
  for (const auto& [j, v] : coef) {
    if (v == 0.0) continue;
    if (j == kConstant) {
      cut.up -= v;
      continue;
    }
    cut.ind.push_back(j);
    cut.val.push_back(v);
  }
  return cut;
}

void lift_cone(QuadConstraint& c, reform::WorkingProblem& p) {
  if (c.shape != QuadShape::kCone || c.lrows.size() < 3) return;
  std::vector<int> ind;
  std::vector<double> val;
  for (const auto& lrow : c.lrows) {
    const int u = p.add_col(0.0, INFINITY, 0);
    ind.push_back(u);
    val.push_back(1.0);
    QuadConstraint piece;
    piece.index = c.index;
    piece.shape = QuadShape::kRotatedCone;
    piece.scale = 0.5;
    // L_k(x)^2 - u R(x) <= 0 (R is the single column t).
    const auto [t, r] = c.rform[0];
    std::vector<std::pair<int, double>> twice;
    for (const auto& [j, a] : lrow) {
      twice.push_back({j, 2 * a});
      for (const auto& [i, b] : lrow) {
        if (i > j) continue;
        piece.qr.push_back(i);
        piece.qc.push_back(j);
        piece.qv.push_back(i == j ? a * a : 2 * a * b);
      }
    }
    piece.qr.push_back(u);
    piece.qc.push_back(t);
    piece.qv.push_back(-r);
    piece.lrows = {twice, {{u, 1.0}, {t, -r}}};
    piece.rform = {{u, 1.0}, {t, r}};
    c.pieces.push_back(std::move(piece));
  }
  for (const auto& [t, r] : c.rform) {
    ind.push_back(t);
    val.push_back(-r);
  }
  p.add_row(ind, val, -INFINITY, 0.0);
}

void lift_convex(QuadConstraint& c, reform::WorkingProblem& p) {
  if (c.shape != QuadShape::kConvex || c.lrows.size() < 2) return;
  const auto& forms = c.lrows;
  std::vector<int> ind = c.li;
  std::vector<double> val = c.lv;
  for (const auto& f : forms) {
    const int u = p.add_col(0.0, INFINITY, 0);
    ind.push_back(u);
    val.push_back(1.0);
    QuadConstraint piece;
    piece.index = c.index;
    piece.shape = QuadShape::kConvex;
    for (const auto& [j, a] : f) {
      for (const auto& [i, b] : f) {
        if (i > j) continue;
        piece.qr.push_back(i);
        piece.qc.push_back(j);
        piece.qv.push_back(i == j ? a * a : 2 * a * b);
      }
    }
    piece.li = {u};
    piece.lv = {-1.0};
    c.pieces.push_back(std::move(piece));
  }
  p.add_row(ind, val, -INFINITY, c.rhs);
}

bool QuadraticSeparator::separate(const std::vector<double>& x, std::vector<Cut>& out) {
  bool feasible = true;
  for (const QuadConstraint& c : cons_) {
    if (c.shape == QuadShape::kLinear) continue;  // a row of the relaxation already
    const bool cone = c.shape == QuadShape::kCone || c.shape == QuadShape::kRotatedCone;
    if (c.violation(x) <= tol_ && (cone ? c.cone_violation(x) : c.scaled_violation(x)) <= cone_tol_) continue;
    feasible = false;
    const std::size_t before = out.size();
    // Every violated piece is cut; when none is (the lifted row's own tolerance), the whole
    // cone is.
    for (const QuadConstraint& piece : c.pieces) {
      Cut cut;
      if (piece.shape == QuadShape::kConvex) {
        if (piece.scaled_violation(x) <= cone_tol_ * 1e-3) continue;
        cut = tangent(piece, x);
      } else {
        if (piece.cone_violation(x) <= cone_tol_ * 1e-3) continue;
        std::vector<double> lx(piece.lrows.size());
        for (std::size_t k = 0; k < lx.size(); ++k) lx[k] = form(piece.lrows[k], x);
        cut = cone_cut(piece, lx);
      }
      if (!cut.ind.empty()) out.push_back(std::move(cut));
    }
    if (out.size() > before) continue;
    Cut cut;
    if (c.shape == QuadShape::kConvex) {
      cut = tangent(c, x);
    } else {
      std::vector<double> lx(c.lrows.size());
      for (std::size_t k = 0; k < lx.size(); ++k) lx[k] = form(c.lrows[k], x);
      cut = cone_cut(c, lx);
    }
    if (!cut.ind.empty()) out.push_back(std::move(cut));
  }
  return feasible;
}

bool QuadraticSeparator::acceptable(const std::vector<double>& x) {
  return std::all_of(cons_.begin(), cons_.end(), [&](const QuadConstraint& c) {
    return c.shape == QuadShape::kLinear || c.violation(x) <= user_tol_;
  });
}

void QuadraticSeparator::initial_cuts(std::vector<Cut>& out) {
  for (const QuadConstraint& c : cons_) {
    if (c.shape == QuadShape::kLinear) {
      Cut cut;
      cut.owner = c.index;
      cut.ind = c.li;
      cut.val = c.lv;
      cut.up = c.rhs;
      if (c.sense == '=') cut.lo = c.rhs;
      out.push_back(std::move(cut));
    } else if (c.shape == QuadShape::kConvex) {
      std::set<int> support(c.qr.begin(), c.qr.end());
      support.insert(c.qc.begin(), c.qc.end());
      std::vector<double> x0(lower_.size(), 0.0);
      for (int j : support) {
        if (j < static_cast<int>(lower_.size()) && std::isfinite(lower_[j]) && std::isfinite(upper_[j])) continue;
        for (double s : {1.0, -1.0}) {
          x0[j] = s;
          Cut cut = tangent(c, x0);
          if (!cut.ind.empty()) out.push_back(std::move(cut));
        }
        x0[j] = 0.0;
      }
    } else if (c.shape != QuadShape::kNonconvex) {
      for (const QuadConstraint& piece : c.pieces) {
        for (double sgn : {1.0, -1.0}) out.push_back(cone_cut(piece, {sgn, 0.0}));
      }
      std::vector<double> lx(c.lrows.size(), 0.0);
      for (std::size_t k = 0; k < lx.size(); ++k) {
        for (double s : {1.0, -1.0}) {
          lx[k] = s;
          out.push_back(cone_cut(c, lx));
        }
        lx[k] = 0.0;
      }
    }
  }
}

}  // namespace vlm::algorithms
