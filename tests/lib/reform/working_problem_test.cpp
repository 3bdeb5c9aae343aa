// The working problem the engine receives: an ordinary model passes as it is; each unit adds
// only the kinds of columns and rows it declares, after the user's, leaves the user's columns
// as they are, and building twice gives the same problem.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

#include "reform/pipeline.h"
#include "reform/reformulation.h"

namespace {

using vlm::GenConstrData;
using vlm::GenType;
using vlm::ModelData;
using vlm::reform::ConstructKind;
using vlm::reform::WorkingProblem;

// x0 in [-2, 3], x1 in [0, 4], x2 binary, x3 in [0, 5]; the row x0 + x1 + x3 <= 6.
ModelData base_model() {
  ModelData d;
  d.lb = {-2, 0, 0, 0};
  d.ub = {3, 4, 1, 5};
  d.obj = {1, 2, 3, 4};
  d.vtype = {'C', 'C', 'B', 'C'};
  d.varname.push_unnamed(4);
  d.rows.push_back({{0, 1, 3}, {1, 1, 1}});
  d.csense = {'<'};
  d.rhs = {6};
  d.constrname.push_unnamed(1);
  return d;
}

GenConstrData gen(GenType t, int res, std::vector<int> vars, double a = 0.0) {
  GenConstrData g;
  g.type = t;
  g.name = "g";
  g.res = res;
  g.vars = std::move(vars);
  g.a = a;
  return g;
}

TEST(WorkingProblemTest, ModelWithoutConstructsPassesAsItIs) {
  ModelData d = base_model();
  WorkingProblem p;
  ASSERT_TRUE(vlm::reform::build_working_problem(d, p).ok());
  EXPECT_EQ(p.ncol, 4);
  EXPECT_EQ(p.nrow, 1);
  EXPECT_EQ(p.reformulated, 0);
  EXPECT_EQ(p.lower, (std::vector<double>{-2, 0, 0, 0}));
  EXPECT_EQ(p.cost, d.obj);
  EXPECT_EQ(p.astart, (std::vector<int>{0, 3}));
  EXPECT_EQ(p.aindex, (std::vector<int>{0, 1, 3}));
  EXPECT_TRUE(std::isinf(p.rlo[0]) && p.rlo[0] < 0);
  EXPECT_EQ(p.rup[0], 6.0);
  EXPECT_TRUE(p.mip);
}

struct Case {
  const char* name;
  ConstructKind kind;
  std::function<void(ModelData&)> add;
};

// Every unit on the base model: the user's part of the problem is unchanged (but for the
// coefficient a PWL objective replaces), what was appended is within the unit's declaration,
// and a second build is identical.
TEST(WorkingProblemTest, UnitsAppendOnlyWhatTheyDeclare) {
  const Case cases[] = {
      {"SOS1", ConstructKind::kSos1, [](ModelData& d) { d.sos.push_back({1, {0, 1, 3}, {1, 2, 3}}); }},
      {"SOS2", ConstructKind::kSos2, [](ModelData& d) { d.sos.push_back({2, {0, 1, 3}, {3, 2, 1}}); }},
      {"MAX", vlm::reform::kind_of(GenType::kMax),
       [](ModelData& d) { d.genconstrs.push_back(gen(GenType::kMax, 3, {0, 1}, -VLM_INFINITY)); }},
      {"MIN", vlm::reform::kind_of(GenType::kMin),
       [](ModelData& d) { d.genconstrs.push_back(gen(GenType::kMin, 3, {0, 1}, 1.0)); }},
      {"ABS", vlm::reform::kind_of(GenType::kAbs),
       [](ModelData& d) {
         GenConstrData g = gen(GenType::kAbs, 3, {});
         g.arg = 0;
         d.genconstrs.push_back(g);
       }},
      {"AND", vlm::reform::kind_of(GenType::kAnd),
       [](ModelData& d) { d.genconstrs.push_back(gen(GenType::kAnd, 2, {2})); }},
      {"OR", vlm::reform::kind_of(GenType::kOr),
       [](ModelData& d) { d.genconstrs.push_back(gen(GenType::kOr, 2, {2})); }},
      {"NORM0", vlm::reform::kind_of(GenType::kNorm),
       [](ModelData& d) { d.genconstrs.push_back(gen(GenType::kNorm, 3, {0, 1}, 0.0)); }},
      {"NORMINF", vlm::reform::kind_of(GenType::kNorm),
       [](ModelData& d) { d.genconstrs.push_back(gen(GenType::kNorm, 3, {0, 1}, VLM_INFINITY)); }},
      {"INDICATOR", vlm::reform::kind_of(GenType::kIndicator),
       [](ModelData& d) {
         GenConstrData g = gen(GenType::kIndicator, 2, {0, 1});
         g.vals = {1, 1};
         g.sense = '=';
         g.rhs = 1;
         d.genconstrs.push_back(g);
       }},
      {"PWL", vlm::reform::kind_of(GenType::kPwl),
       [](ModelData& d) {
         GenConstrData g = gen(GenType::kPwl, 3, {});
         g.arg = 0;
         g.vals = {-1, 0, 0, 1};
         g.ypts = {0, 1, 2, 3};
         d.genconstrs.push_back(g);
       }},
      {"PWLOBJ", ConstructKind::kPwlObj,
       [](ModelData& d) { d.pwlobj[1] = vlm::PwlObj{{0, 1, 2}, {0, 2, 1}}; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ModelData d = base_model();
    c.add(d);
    WorkingProblem p, again;
    ASSERT_TRUE(vlm::reform::build_working_problem(d, p).ok());
    ASSERT_TRUE(vlm::reform::build_working_problem(d, again).ok());
    EXPECT_EQ(p.reformulated, 1);
    for (int j = 0; j < 4; ++j) {
      EXPECT_EQ(p.lower[j], base_model().lb[j]);
      EXPECT_EQ(p.upper[j], base_model().ub[j]);
      if (c.kind != ConstructKind::kPwlObj || j != 1) {
        EXPECT_EQ(p.cost[j], d.obj[j]);
      }
    }
    EXPECT_EQ(std::vector<int>(p.aindex.begin(), p.aindex.begin() + 3), (std::vector<int>{0, 1, 3}));
    unsigned created = 0;
    for (int j = 4; j < p.ncol; ++j) {
      created |= p.integrality[j] == 1 ? vlm::reform::kCreatesBinaries : vlm::reform::kCreatesContinuous;
    }
    if (p.nrow > 1) created |= vlm::reform::kCreatesRows;
    EXPECT_NE(created, 0u);
    const vlm::reform::Reformulation* unit = vlm::reform::find_reformulation(c.kind);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(created & ~unit->creates(), 0u) << "created " << created << ", declared " << unit->creates();
    EXPECT_EQ(p.ncol, again.ncol);
    EXPECT_EQ(p.aindex, again.aindex);
    EXPECT_EQ(p.aval, again.aval);
    EXPECT_EQ(p.rlo, again.rlo);
    EXPECT_EQ(p.rup, again.rup);
  }
}

// A function constraint becomes a piecewise-linear one: y = ln(x1) over x1 in [1, 4] with
// FuncPieces=3 gives the points 1, 2, 3, 4 and add_pwl's columns and rows after the user's,
// which stay as they are.
TEST(WorkingProblemTest, FunctionConstraintsBecomePiecewiseLinear) {
  ModelData d = base_model();
  d.lb[1] = 1;
  GenConstrData g = gen(GenType::kLog, 3, {});
  g.arg = 1;
  g.options = "FuncPieces=3";
  d.genconstrs.push_back(g);
  WorkingProblem p;
  ASSERT_TRUE(vlm::reform::build_working_problem(d, p).ok());
  // Four lambdas; rows x = sum, y = sum, sum lambda = 1, then the SOS2's.
  ASSERT_GE(p.ncol, 4 + 4);
  for (int j = 0; j < 4; ++j) {
    EXPECT_EQ(p.lower[j], d.lb[j]);
    EXPECT_EQ(p.upper[j], d.ub[j]);
  }
  // The row y = sum lambda_k ln(x_k) carries ln 1 .. ln 4 (ln 1 = 0 is dropped).
  bool found = false;
  for (int r = 1; r < p.nrow && !found; ++r) {
    std::vector<double> vals(p.aval.begin() + p.astart[r], p.aval.begin() + (r + 1 < p.nrow ? p.astart[r + 1] : p.aval.size()));
    found = std::find_if(vals.begin(), vals.end(), [](double v) { return std::fabs(v - std::log(3.0)) < 1e-12; }) != vals.end();
  }
  EXPECT_TRUE(found);
}

}  // namespace
