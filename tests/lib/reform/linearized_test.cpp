// Reformulations shown as LP text: a small model goes in, the linearized working problem is
// written by the LP writer and compared with the formulation worked out by hand (the big-M
// constants from the bounds, the rows in the order the unit adds them; the writer lists each
// row's terms by column index).
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "io/lp_writer.h"
#include "reform/linearized_model.h"
#include "reform/pipeline.h"

namespace {

using vlm::GenConstrData;
using vlm::GenType;
using vlm::ModelData;

ModelData model(std::vector<std::string> names, std::vector<double> lb, std::vector<double> ub,
                std::vector<double> obj, std::vector<char> type) {
  ModelData d;
  d.lb = std::move(lb);
  d.ub = std::move(ub);
  d.obj = std::move(obj);
  d.vtype = std::move(type);
  for (auto& n : names) d.varname.push_back(n);
  return d;
}

std::string linearized(const ModelData& d) {
  vlm::reform::WorkingProblem p;
  vlm::Status s = vlm::reform::build_working_problem(d, p);
  EXPECT_TRUE(s.ok()) << s.message();
  std::ostringstream out;
  EXPECT_TRUE(vlm::io::write_lp(vlm::reform::linearized_model(d, p), out, false).ok());
  return out.str();
}

const double kInf = VLM_INFINITY;

// SOS1{x, y}, x in [0, 2], y in [-1, 3]: x <= 2 z0; y <= 3 z1, y >= -z1; z0 + z1 <= 1.
TEST(LinearizedTest, Sos1) {
  ModelData d = model({"x", "y"}, {0, -1}, {2, 3}, {1, 1}, {'C', 'C'});
  d.sos.push_back({1, {0, 1}, {1, 2}});
  EXPECT_EQ(linearized(d),
            "Minimize\n"
            " obj: x + y\n"
            "Subject To\n"
            " _rf0: x - 2 _aux0 <= 0\n"
            " _rf1: y - 3 _aux1 <= 0\n"
            " _rf2: y + _aux1 >= 0\n"
            " _rf3: _aux0 + _aux1 <= 1\n"
            "Bounds\n"
            " x <= 2\n"
            " -1 <= y <= 3\n"
            "Binaries\n"
            " _aux0\n"
            " _aux1\n"
            "End\n");
}

// x, y in [0, 5]; (b == 1) => x + y = 2: activity in [0, 10], so x + y - 2 <= 8 (1 - b) and
// x + y - 2 >= -2 (1 - b). (c == 0) => x >= 3: x - 3 >= -3 c.
TEST(LinearizedTest, Indicators) {
  ModelData d = model({"x", "y", "b", "c"}, {0, 0, 0, 0}, {5, 5, 1, 1}, {1, 0, 0, 0}, {'C', 'C', 'B', 'B'});
  GenConstrData g;
  g.type = GenType::kIndicator;
  g.name = "i1";
  g.res = 2;
  g.binval = 1;
  g.vars = {0, 1};
  g.vals = {1, 1};
  g.sense = '=';
  g.rhs = 2;
  d.genconstrs.push_back(g);
  g.name = "i2";
  g.res = 3;
  g.binval = 0;
  g.vars = {0};
  g.vals = {1};
  g.sense = '>';
  g.rhs = 3;
  d.genconstrs.push_back(g);
  EXPECT_EQ(linearized(d),
            "Minimize\n"
            " obj: x\n"
            "Subject To\n"
            " _rf0: x + y + 8 b <= 10\n"
            " _rf1: x + y - 2 b >= 0\n"
            " _rf2: x + 3 c >= 3\n"
            "Bounds\n"
            " x <= 5\n"
            " y <= 5\n"
            "Binaries\n"
            " b\n"
            " c\n"
            "End\n");
}

// r = max(x, y), x in [0, 4], y in [1, 3], r free: propagation gives r <= 4; both operands can
// be the maximum: r - x <= (4 - 0)(1 - z0), r - y <= (4 - 1)(1 - z1), z0 + z1 = 1.
TEST(LinearizedTest, Max) {
  ModelData d = model({"x", "y", "r"}, {0, 1, -kInf}, {4, 3, kInf}, {0, 0, 1}, {'C', 'C', 'C'});
  GenConstrData g;
  g.type = GenType::kMax;
  g.name = "m";
  g.res = 2;
  g.vars = {0, 1};
  g.a = -kInf;
  d.genconstrs.push_back(g);
  EXPECT_EQ(linearized(d),
            "Minimize\n"
            " obj: 0 x + 0 y + r\n"
            "Subject To\n"
            " _rf0: - x + r >= 0\n"
            " _rf1: - y + r >= 0\n"
            " _rf2: - x + r + 4 _aux0 <= 4\n"
            " _rf3: - y + r + 3 _aux1 <= 3\n"
            " _rf4: _aux0 + _aux1 = 1\n"
            "Bounds\n"
            " x <= 4\n"
            " 1 <= y <= 3\n"
            " r free\n"
            "Binaries\n"
            " _aux0\n"
            " _aux1\n"
            "End\n");
}

// y = f(x) through (0,0), (1,1), (1,3), (2,4), x in [0, 2]: lambda_0..3 (_aux0..3), the pair
// (1, 2) is the jump and gets no binary: z0 (_aux4) for the piece (0, 1), z2 (_aux5) for (2, 3).
TEST(LinearizedTest, PwlWithAJump) {
  ModelData d = model({"x", "y"}, {0, -kInf}, {2, kInf}, {0, 1}, {'C', 'C'});
  GenConstrData g;
  g.type = GenType::kPwl;
  g.name = "f";
  g.arg = 0;
  g.res = 1;
  g.vals = {0, 1, 1, 2};
  g.ypts = {0, 1, 3, 4};
  d.genconstrs.push_back(g);
  EXPECT_EQ(linearized(d),
            "Minimize\n"
            " obj: 0 x + y + 0 _aux0\n"
            "Subject To\n"
            " _rf0: - x + _aux1 + _aux2 + 2 _aux3 = 0\n"
            " _rf1: - y + _aux1 + 3 _aux2 + 4 _aux3 = 0\n"
            " _rf2: _aux0 + _aux1 + _aux2 + _aux3 = 1\n"
            " _rf3: _aux0 - _aux4 <= 0\n"
            " _rf4: _aux1 - _aux4 <= 0\n"
            " _rf5: _aux2 - _aux5 <= 0\n"
            " _rf6: _aux3 - _aux5 <= 0\n"
            " _rf7: _aux4 + _aux5 <= 1\n"
            "Bounds\n"
            " x <= 2\n"
            " y free\n"
            " _aux0 <= 1\n"
            " _aux1 <= 1\n"
            " _aux2 <= 1\n"
            " _aux3 <= 1\n"
            "Binaries\n"
            " _aux4\n"
            " _aux5\n"
            "End\n");
}

// A convex PWL objective on x through (0,4), (2,0), (4,2) replaces x's coefficient 5: the
// epigraph t (_aux0) lies above both pieces: t >= 4 - 2x and t >= x - 2.
TEST(LinearizedTest, ConvexPwlObjective) {
  ModelData d = model({"x"}, {0}, {kInf}, {5}, {'C'});
  d.pwlobj[0] = vlm::PwlObj{{0, 2, 4}, {4, 0, 2}};
  EXPECT_EQ(linearized(d),
            "Minimize\n"
            " obj: 0 x + _aux0\n"
            "Subject To\n"
            " _rf0: 2 x + _aux0 >= 4\n"
            " _rf1: - x + _aux0 >= -2\n"
            "Bounds\n"
            " _aux0 free\n"
            "End\n");
}

}  // namespace
