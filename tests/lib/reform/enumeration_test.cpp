// Every construct against enumeration: small random models over integer variables, solved
// through the reformulation and by trying every point; the optima must agree and the returned
// point must satisfy the construct. A wrong sign or big-M in a unit shows up here.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <string>

#include "reform/reform_fixture.h"

namespace {

enum Kind { kMax, kMin, kAbs, kNorm0, kNorm1, kNormInf, kSos1, kSos2, kIndicator, kPwl, kKinds };

// PWL points: x = -3, -1, 0, 0 (a jump), 2; the y values are drawn per trial.
const double kPx[5] = {-3, -1, 0, 0, 2};

// x0..x2 integer in [lo_i, hi_i], r integer in [-30, 30], z binary.
struct Instance {
  Kind kind;
  int lo[3], hi[3];
  double obj[5];  // x0, x1, x2, r, z
  int sense;
  double weight[3];
  int binval;
  char isense;
  double rhs;
  double constant;
  double py[5];
};

// Whether y is a value of the PWL function at t: on a non-vertical piece through t, or on
// the first / last piece continued beyond the points.
bool on_pwl(const double py[5], int t, int y) {
  auto line = [&](int k, double at) { return py[k] + (py[k + 1] - py[k]) * (at - kPx[k]) / (kPx[k + 1] - kPx[k]); };
  for (int k = 0; k < 4; ++k) {
    if (kPx[k + 1] == kPx[k]) continue;
    const bool inside = kPx[k] <= t && t <= kPx[k + 1];
    const bool before = k == 0 && t < kPx[0];
    const bool after = k == 3 && t > kPx[4];
    if ((inside || before || after) && std::fabs(line(k, t) - y) < 1e-9) return true;
  }
  return false;
}

double sgn_pick(unsigned& seed, int span) {
  seed = seed * 1103515245u + 12345u;
  return static_cast<int>((seed >> 16) % (2 * span + 1)) - span;
}

// Whether (x, r, z) satisfies the construct.
bool holds(const Instance& in, const int x[3], int r, int z) {
  auto nz = [&](int k) { return x[k] != 0; };
  switch (in.kind) {
    case kMax: return r == std::max({x[0], x[1], x[2], static_cast<int>(in.constant)});
    case kMin: return r == std::min({x[0], x[1], x[2], static_cast<int>(in.constant)});
    case kAbs: return r == std::abs(x[0]);
    case kNorm0: return r == nz(0) + nz(1) + nz(2);
    case kNorm1: return r == std::abs(x[0]) + std::abs(x[1]) + std::abs(x[2]);
    case kNormInf: return r == std::max({std::abs(x[0]), std::abs(x[1]), std::abs(x[2])});
    case kSos1: return nz(0) + nz(1) + nz(2) <= 1;
    case kSos2: {
      int order[3] = {0, 1, 2};
      std::sort(order, order + 3, [&](int a, int b) { return in.weight[a] < in.weight[b]; });
      // At most two non-zeros, and not the first and last in weight order together.
      return nz(0) + nz(1) + nz(2) <= 2 && !(nz(order[0]) && nz(order[2]));
    }
    case kIndicator: {
      if (z != in.binval) return true;
      const double a = x[0] + 2.0 * x[1];
      return in.isense == '<' ? a <= in.rhs : in.isense == '>' ? a >= in.rhs : a == in.rhs;
    }
    case kPwl: return on_pwl(in.py, x[0], r);
    default: return false;
  }
}

double brute_force(const Instance& in) {
  double best = in.sense == 1 ? INFINITY : -INFINITY;
  int x[3];
  for (x[0] = in.lo[0]; x[0] <= in.hi[0]; ++x[0]) {
    for (x[1] = in.lo[1]; x[1] <= in.hi[1]; ++x[1]) {
      for (x[2] = in.lo[2]; x[2] <= in.hi[2]; ++x[2]) {
        for (int r = -30; r <= 30; ++r) {
          for (int z = 0; z <= 1; ++z) {
            if (!holds(in, x, r, z)) continue;
            const double v = in.obj[0] * x[0] + in.obj[1] * x[1] + in.obj[2] * x[2] + in.obj[3] * r + in.obj[4] * z;
            best = in.sense == 1 ? std::min(best, v) : std::max(best, v);
          }
        }
      }
    }
  }
  return best;
}

TEST_F(ReformTest, EveryConstructAgreesWithEnumeration) {
  unsigned seed = 7;
  for (int trial = 0; trial < 100; ++trial) {
    Instance in;
    in.kind = static_cast<Kind>(trial % kKinds);
    for (int k = 0; k < 3; ++k) {
      in.lo[k] = static_cast<int>(-std::fabs(sgn_pick(seed, 3)));
      in.hi[k] = static_cast<int>(std::fabs(sgn_pick(seed, 3)));
      in.weight[k] = sgn_pick(seed, 20) + 0.1 * k;  // distinct
    }
    for (double& c : in.obj) c = sgn_pick(seed, 3);
    in.sense = sgn_pick(seed, 1) >= 0 ? 1 : -1;
    in.binval = sgn_pick(seed, 1) >= 0 ? 1 : 0;
    in.isense = "<>="[trial % 3];
    in.rhs = sgn_pick(seed, 4);
    in.constant = sgn_pick(seed, 2);
    for (double& y : in.py) y = sgn_pick(seed, 6);
    SCOPED_TRACE("trial " + std::to_string(trial) + ", kind " + std::to_string(in.kind));

    VLMmodel* m = nullptr;
    ASSERT_EQ(VLMnewmodel(env_, &m, "enum", 0, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
    double lb[5] = {double(in.lo[0]), double(in.lo[1]), double(in.lo[2]), -30, 0};
    double ub[5] = {double(in.hi[0]), double(in.hi[1]), double(in.hi[2]), 30, 1};
    char type[5] = {'I', 'I', 'I', 'I', 'B'};
    ASSERT_EQ(VLMaddvars(m, 5, 0, nullptr, nullptr, nullptr, in.obj, lb, ub, type, nullptr), VLM_OK);
    ASSERT_EQ(VLMsetintattr(m, "ModelSense", in.sense), VLM_OK);
    int xs[3] = {0, 1, 2};
    switch (in.kind) {
      case kMax: ASSERT_EQ(VLMaddgenconstrMax(m, nullptr, 3, 3, xs, in.constant), VLM_OK); break;
      case kMin: ASSERT_EQ(VLMaddgenconstrMin(m, nullptr, 3, 3, xs, in.constant), VLM_OK); break;
      case kAbs: ASSERT_EQ(VLMaddgenconstrAbs(m, nullptr, 3, 0), VLM_OK); break;
      case kNorm0: ASSERT_EQ(VLMaddgenconstrNorm(m, nullptr, 3, 3, xs, 0.0), VLM_OK); break;
      case kNorm1: ASSERT_EQ(VLMaddgenconstrNorm(m, nullptr, 3, 3, xs, 1.0), VLM_OK); break;
      case kNormInf: ASSERT_EQ(VLMaddgenconstrNorm(m, nullptr, 3, 3, xs, 1e100), VLM_OK); break;
      case kSos1:
      case kSos2: {
        int t = in.kind == kSos1 ? 1 : 2, beg = 0;
        ASSERT_EQ(VLMaddsos(m, 1, 3, &t, &beg, xs, in.weight), VLM_OK);
        break;
      }
      case kPwl: ASSERT_EQ(VLMaddgenconstrPWL(m, nullptr, 0, 3, 5, kPx, in.py), VLM_OK); break;
      case kIndicator: {
        double coef[2] = {1, 2};
        ASSERT_EQ(VLMaddgenconstrIndicator(m, nullptr, 4, in.binval, 2, xs, coef, in.isense, in.rhs), VLM_OK);
        break;
      }
      default: break;
    }
    const double expected = brute_force(in);
    ASSERT_EQ(VLMoptimize(m), VLM_OK) << VLMgetmerrormsg(m);
    int status = 0;
    ASSERT_EQ(VLMgetintattr(m, "Status", &status), VLM_OK);
    if (std::isinf(expected)) {
      EXPECT_EQ(status, VLM_INFEASIBLE);
    } else {
      ASSERT_EQ(status, VLM_OPTIMAL);
      double obj = NAN, v[5];
      ASSERT_EQ(VLMgetdblattr(m, "ObjVal", &obj), VLM_OK);
      EXPECT_NEAR(obj, expected, 1e-6);
      ASSERT_EQ(VLMgetdblattrarray(m, "X", 0, 5, v), VLM_OK);
      int x[3] = {int(std::lround(v[0])), int(std::lround(v[1])), int(std::lround(v[2]))};
      EXPECT_TRUE(holds(in, x, int(std::lround(v[3])), int(std::lround(v[4]))))
          << v[0] << " " << v[1] << " " << v[2] << " r=" << v[3] << " z=" << v[4];
    }
    VLMfreemodel(m);
  }
}

}  // namespace
