#include "reform/func_kinds.h"

#include <cmath>
#include <cstdio>
#include <numbers>

namespace vlm::reform {
namespace {

constexpr double kPi = std::numbers::pi;

Status invalid(std::string msg) { return Status(VLM_ERROR_INVALID_ARGUMENT, std::move(msg)); }

std::string num(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.6g", v);
  return buf;
}

std::vector<double> derivative(const std::vector<double>& p) {
  const std::size_t n = p.size();
  if (n <= 1) return {0.0};
  std::vector<double> d(n - 1);
  for (std::size_t i = 0; i + 1 < n; ++i) d[i] = p[i] * static_cast<double>(n - 1 - i);
  return d;
}

// Largest x in (a, b] with sign(p(x)) == sign(p(a)), where p(a) and p(b) differ in sign.
double bisect_root(const std::vector<double>& p, double a, double b) {
  const bool neg_a = poly_value(p, a) < 0.0;
  for (int it = 0; it < 200; ++it) {
    double m = 0.5 * (a + b);
    if (m <= a || m >= b) break;
    if ((poly_value(p, m) < 0.0) == neg_a)
      a = m;
    else
      b = m;
  }
  return 0.5 * (a + b);
}

// The points c + k*pi strictly inside (lo, hi), ascending, at most limit + 1 of them.
std::vector<double> shifted_multiples_of_pi(double c, double lo, double hi, int limit) {
  std::vector<double> out;
  double k = std::ceil((lo - c) / kPi);
  for (; out.size() <= static_cast<std::size_t>(limit); k += 1.0) {
    double x = c + k * kPi;
    if (x >= hi) break;
    if (x > lo) out.push_back(x);
  }
  return out;
}

bool is_integer(double a) { return std::floor(a) == a && std::fabs(a) < 9e15; }

// Logistic function without overflow for large |x|.
double logistic(double x) {
  if (x >= 0.0) return 1.0 / (1.0 + std::exp(-x));
  double e = std::exp(x);
  return e / (1.0 + e);
}

}  // namespace

double poly_value(const std::vector<double>& p, double x) {
  double v = 0.0;
  for (double c : p) v = v * x + c;
  return v;
}

std::vector<double> sign_change_roots(const std::vector<double>& p, double lo, double hi) {
  if (p.size() <= 1 || !(lo < hi)) return {};
  if (p.size() == 2) {
    if (p[0] == 0.0) return {};
    double r = -p[1] / p[0];
    return r > lo && r < hi ? std::vector<double>{r} : std::vector<double>{};
  }
  // Between consecutive extrema p is monotone, so each stretch holds at most one sign change.
  std::vector<double> pts{lo};
  for (double c : sign_change_roots(derivative(p), lo, hi)) pts.push_back(c);
  pts.push_back(hi);
  std::vector<double> roots;
  for (std::size_t i = 0; i + 1 < pts.size(); ++i) {
    double fa = poly_value(p, pts[i]), fb = poly_value(p, pts[i + 1]);
    if ((fa < 0.0 && fb > 0.0) || (fa > 0.0 && fb < 0.0)) {
      roots.push_back(bisect_root(p, pts[i], pts[i + 1]));
    }
    // A zero exactly at a stretch boundary sits on an extremum of p: no sign change there.
  }
  return roots;
}

StatusOr<UnivariateFunction> UnivariateFunction::of(const GenConstrData& g) {
  UnivariateFunction f;
  f.type_ = g.type;
  f.a_ = g.a;
  switch (g.type) {
    case GenType::kPoly: {
      if (g.vals.empty())
        return invalid("Polynomial of constraint '" + g.name + "' has no coefficients");
      std::size_t first = 0;
      while (first + 1 < g.vals.size() && g.vals[first] == 0.0) ++first;
      f.poly_.assign(g.vals.begin() + static_cast<std::ptrdiff_t>(first), g.vals.end());
      for (double c : f.poly_) {
        if (!std::isfinite(c) || std::fabs(c) >= VLM_INFINITY) {
          return invalid("Polynomial of constraint '" + g.name +
                         "' has a coefficient that is not finite");
        }
      }
      f.poly_d1_ = derivative(f.poly_);
      f.poly_d2_ = derivative(f.poly_d1_);
      break;
    }
    case GenType::kExpA:
    case GenType::kLogA:
      if (!(g.a > 0.0) || !std::isfinite(g.a) || (g.type == GenType::kLogA && g.a == 1.0)) {
        return invalid(
            "Base " + num(g.a) + " of constraint '" + g.name +
            (g.type == GenType::kLogA ? "' must be positive and not 1" : "' must be positive"));
      }
      f.ln_a_ = std::log(g.a);
      break;
    case GenType::kPow:
      if (!std::isfinite(g.a))
        return invalid("Exponent of constraint '" + g.name + "' is not finite");
      break;
    case GenType::kExp:
    case GenType::kLog:
    case GenType::kLogistic:
    case GenType::kSin:
    case GenType::kCos:
    case GenType::kTan:
      break;
    default:
      return invalid("General constraint '" + g.name + "' of type " + gen_type_name(g.type) +
                     " is not a function constraint");
  }
  return f;
}

double UnivariateFunction::value(double x) const {
  switch (type_) {
    case GenType::kPoly:
      return poly_value(poly_, x);
    case GenType::kExp:
      return std::exp(x);
    case GenType::kExpA:
      return std::exp(x * ln_a_);
    case GenType::kLog:
      return std::log(x);
    case GenType::kLogA:
      return std::log(x) / ln_a_;
    case GenType::kLogistic:
      return logistic(x);
    case GenType::kPow:
      return a_ == 0.0 ? 1.0 : std::pow(x, a_);
    case GenType::kSin:
      return std::sin(x);
    case GenType::kCos:
      return std::cos(x);
    case GenType::kTan:
      return std::tan(x);
    default:
      return std::nan("");
  }
}

double UnivariateFunction::d1(double x) const {
  switch (type_) {
    case GenType::kPoly:
      return poly_value(poly_d1_, x);
    case GenType::kExp:
      return std::exp(x);
    case GenType::kExpA:
      return ln_a_ * std::exp(x * ln_a_);
    case GenType::kLog:
      return 1.0 / x;
    case GenType::kLogA:
      return 1.0 / (x * ln_a_);
    case GenType::kLogistic:
      return logistic(x) * logistic(-x);
    case GenType::kPow:
      if (a_ == 0.0) return 0.0;
      if (a_ == 1.0) return 1.0;
      return a_ * std::pow(x, a_ - 1.0);
    case GenType::kSin:
      return std::cos(x);
    case GenType::kCos:
      return -std::sin(x);
    case GenType::kTan: {
      double c = std::cos(x);
      return 1.0 / (c * c);
    }
    default:
      return std::nan("");
  }
}

double UnivariateFunction::d2(double x) const {
  switch (type_) {
    case GenType::kPoly:
      return poly_value(poly_d2_, x);
    case GenType::kExp:
      return std::exp(x);
    case GenType::kExpA:
      return ln_a_ * ln_a_ * std::exp(x * ln_a_);
    case GenType::kLog:
      return -1.0 / (x * x);
    case GenType::kLogA:
      return -1.0 / (x * x * ln_a_);
    case GenType::kLogistic: {
      double s = logistic(x), t = logistic(-x);
      return s * t * (t - s);
    }
    case GenType::kPow:
      if (a_ == 0.0 || a_ == 1.0) return 0.0;
      if (a_ == 2.0) return 2.0;
      return a_ * (a_ - 1.0) * std::pow(x, a_ - 2.0);
    case GenType::kSin:
      return -std::sin(x);
    case GenType::kCos:
      return -std::cos(x);
    case GenType::kTan: {
      double c = std::cos(x);
      return 2.0 * std::tan(x) / (c * c);
    }
    default:
      return std::nan("");
  }
}

int UnivariateFunction::curvature(double lo, double hi) const {
  auto sign = [](double v) { return v > 0.0 ? 1 : (v < 0.0 ? -1 : 0); };
  const double m = 0.5 * (lo + hi);
  switch (type_) {
    case GenType::kExp:
      return 1;
    case GenType::kExpA:
      return ln_a_ == 0.0 ? 0 : 1;
    case GenType::kLog:
      return -1;
    case GenType::kLogA:
      return ln_a_ > 0.0 ? -1 : 1;
    case GenType::kLogistic:
      return m < 0.0 ? 1 : -1;
    case GenType::kPow: {
      // a(a-1) x^(a-2): for x < 0 (integer a only) x^(a-2) has the sign (-1)^a.
      int s = sign(a_ * (a_ - 1.0));
      bool even = is_integer(a_) && std::fmod(a_, 2.0) == 0.0;
      return m >= 0.0 || even ? s : -s;
    }
    default:
      return sign(d2(m));
  }
}

std::vector<double> UnivariateFunction::inflections(double lo, double hi, int limit) const {
  std::vector<double> out;
  switch (type_) {
    case GenType::kPoly:
      out = sign_change_roots(poly_d2_, lo, hi);
      break;
    case GenType::kLogistic:
      if (lo < 0.0 && 0.0 < hi) out.push_back(0.0);
      break;
    case GenType::kPow:
      // Odd integer powers from 3 on turn from concave to convex at 0.
      if (is_integer(a_) && a_ >= 3.0 && std::fmod(a_, 2.0) != 0.0 && lo < 0.0 && 0.0 < hi) {
        out.push_back(0.0);
      }
      break;
    case GenType::kSin:
    case GenType::kTan:
      out = shifted_multiples_of_pi(0.0, lo, hi, limit);
      break;
    case GenType::kCos:
      out = shifted_multiples_of_pi(kPi / 2, lo, hi, limit);
      break;
    default:  // exp, a^x, log, log_a: convex or concave throughout
      break;
  }
  if (out.size() > static_cast<std::size_t>(limit) + 1)
    out.resize(static_cast<std::size_t>(limit) + 1);
  return out;
}

std::vector<double> UnivariateFunction::extrema(double lo, double hi, int limit) const {
  std::vector<double> out;
  switch (type_) {
    case GenType::kPoly:
      out = sign_change_roots(poly_d1_, lo, hi);
      break;
    case GenType::kPow:
      if (is_integer(a_) && a_ >= 2.0 && std::fmod(a_, 2.0) == 0.0 && lo < 0.0 && 0.0 < hi) {
        out.push_back(0.0);
      }
      break;
    case GenType::kSin:
      out = shifted_multiples_of_pi(kPi / 2, lo, hi, limit);
      break;
    case GenType::kCos:
      out = shifted_multiples_of_pi(0.0, lo, hi, limit);
      break;
    default:  // monotone kinds (tan between its poles)
      break;
  }
  if (out.size() > static_cast<std::size_t>(limit) + 1)
    out.resize(static_cast<std::size_t>(limit) + 1);
  return out;
}

UnivariateFunction::DomainCheck UnivariateFunction::check_domain(double lo, double hi) const {
  DomainCheck c;
  switch (type_) {
    case GenType::kLog:
    case GenType::kLogA:
      if (lo <= 0.0) {
        c = {false, formula() + " is undefined for x <= 0", "a lower bound above 0"};
      }
      break;
    case GenType::kPow:
      if (!is_integer(a_)) {
        if (lo < 0.0) {
          c = {false, formula() + " with a fractional exponent is undefined for x < 0",
               a_ < 0.0 ? "a lower bound above 0" : "a lower bound of at least 0"};
        } else if (a_ < 0.0 && lo == 0.0) {
          c = {false, formula() + " is undefined at x = 0", "a lower bound above 0"};
        }
      } else if (a_ < 0.0 && lo <= 0.0 && hi >= 0.0) {
        c = {false, formula() + " is undefined at x = 0", "bounds on one side of 0"};
      }
      break;
    case GenType::kTan: {
      // Poles at pi/2 + k*pi; a bound exactly on a pole is as bad as crossing it. The advice
      // names the pole-free interval around the middle of the bounds (around 0 for free x).
      double first = kPi / 2 + std::ceil((lo - kPi / 2) / kPi) * kPi;
      if (first <= hi) {
        double mid = 0.5 * (lo + hi);
        double k = std::floor((mid + kPi / 2) / kPi);
        double left = k * kPi - kPi / 2, right = k * kPi + kPi / 2;
        double pole = right <= hi ? right : (left >= lo ? left : first);
        c = {false, "tan(x) has a pole at x = " + num(pole) + " inside the bounds",
             "bounds inside (" + num(left) + ", " + num(right) + ")"};
      }
      break;
    }
    default:
      break;
  }
  return c;
}

std::string UnivariateFunction::formula() const {
  switch (type_) {
    case GenType::kPoly: {
      std::string s;
      const std::size_t deg = poly_.size() - 1;
      for (std::size_t i = 0; i < poly_.size(); ++i) {
        double c = poly_[i];
        std::size_t pw = deg - i;
        if (c == 0.0 && deg != 0) continue;
        if (!s.empty())
          s += c < 0.0 ? " - " : " + ";
        else if (c < 0.0)
          s += "-";
        double m = std::fabs(c);
        if (m != 1.0 || pw == 0) s += num(m);
        if (pw >= 1) s += "x";
        if (pw >= 2) s += "^" + std::to_string(pw);
      }
      return s.empty() ? "0" : s;
    }
    case GenType::kExp:
      return "exp(x)";
    case GenType::kExpA:
      return num(a_) + "^x";
    case GenType::kLog:
      return "log(x)";
    case GenType::kLogA:
      return "log_" + num(a_) + "(x)";
    case GenType::kLogistic:
      return "1/(1 + exp(-x))";
    case GenType::kPow:
      return "x^" + num(a_);
    case GenType::kSin:
      return "sin(x)";
    case GenType::kCos:
      return "cos(x)";
    case GenType::kTan:
      return "tan(x)";
    default:
      return "?";
  }
}

}  // namespace vlm::reform
