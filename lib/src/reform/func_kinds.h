// UnivariateFunction: the y = f(x) of one function constraint (POLY, EXP, EXPA, LOG, LOGA,
// LOGISTIC, POW, SIN, COS, TAN) with what a breakpoint search needs: f, f', f'', the points
// where f'' changes sign (so the domain splits into convex and concave stretches), the points
// where f' changes sign (so the range of f is known from finitely many values), and the
// function's own domain rules (log needs x > 0, tan has poles, ...).
//
// Invariants: a polynomial is kept without leading zero coefficients (the zero polynomial is
// one coefficient 0); `a` is the base of EXPA/LOGA and the exponent of POW, unused otherwise.
#pragma once

#include <string>
#include <vector>

#include "core/status.h"
#include "model/model_data.h"

namespace vlm::reform {

class UnivariateFunction {
 public:
  // The function of a function constraint. Fails with INVALID_ARGUMENT when `g` is not one of
  // the ten function kinds, or its data cannot define a function (empty polynomial, base of
  // EXPA/LOGA not positive or LOGA base 1, exponent not finite).
  static StatusOr<UnivariateFunction> of(const GenConstrData& g);

  GenType type() const { return type_; }
  // f(x), f'(x) and f''(x) in double precision; outside the domain (see check_domain) the
  // result is NaN or infinite, never a failure. O(1), a polynomial O(degree).
  double value(double x) const;
  double d1(double x) const;
  double d2(double x) const;

  // Sign of f'' (+1 convex, -1 concave, 0 linear) on [lo, hi], a stretch without inflection
  // points inside. Decided from the formula where f'' can underflow (exp far left, logistic in
  // its tails), else from f'' at the middle.
  int curvature(double lo, double hi) const;
  // Points strictly inside (lo, hi) where f'' changes sign, ascending. At most `limit` + 1
  // are returned (a caller that needs at most `limit` learns that there are more).
  // Cost: O(count) for the trigonometric kinds, O(degree^2 * 60) for a polynomial.
  std::vector<double> inflections(double lo, double hi, int limit) const;
  // Points strictly inside (lo, hi) where f' changes sign (local extrema), ascending; the same
  // `limit` rule.
  std::vector<double> extrema(double lo, double hi, int limit) const;

  // Whether the function is defined (and finite) on all of [lo, hi], lo <= hi both finite.
  // When it is not, `problem` says why and `fix` what the bounds of x must be instead.
  struct DomainCheck {
    bool ok = true;
    std::string problem;  // "log(x) is undefined for x <= 0"
    std::string fix;      // "a lower bound above 0"
  };
  DomainCheck check_domain(double lo, double hi) const;

  // The formula for messages and logs: "exp(x)", "2^x", "x^0.5", "2x^3 + 1.5x^2 + 1".
  std::string formula() const;

 private:
  GenType type_ = GenType::kExp;
  double a_ = 0.0;
  double ln_a_ = 0.0;            // ln a for EXPA and LOGA
  std::vector<double> poly_;     // highest degree first
  std::vector<double> poly_d1_;  // p'
  std::vector<double> poly_d2_;  // p''
};

// Real roots of the polynomial `p` (highest degree first) strictly inside (lo, hi) at which p
// changes sign, ascending, each to within a few ulps. Roots of even multiplicity are not
// reported. Cost O(degree^2 * 60) evaluations.
std::vector<double> sign_change_roots(const std::vector<double>& p, double lo, double hi);

// Value of `p` (highest degree first) at x, by Horner's rule.
double poly_value(const std::vector<double>& p, double x);

}  // namespace vlm::reform
