// Values refused where they enter, with a message that names the element and prints numbers in
// short form: infinite and NaN coefficients, right-hand sides no row can meet, huge quadratic
// coefficients and exponents, parameters far out of range, NUL bytes and infinite coefficients
// in model files. Each refusal leaves the model as it was.
//
// Not tested here: the range checks of parameters within their tables (env_param_test.cpp).
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "io/file_format.h"
#include "io/lp_reader.h"
#include "io/mps_reader.h"
#include "model_fixture.h"
#include "io/read_text.h"
#include "velmor_c.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::nan("");

class EntryCheckTest : public ModelFixture {
 protected:
  void SetUp() override {
    ModelFixture::SetUp();
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 10, 'C', "x"), VLM_OK);
    ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 1, 0, 10, 'C', "y"), VLM_OK);
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  }
  std::string msg() const { return VLMgetmerrormsg(m_); }
  int count(const char* attr) {
    EXPECT_EQ(VLMupdatemodel(m_), VLM_OK);
    int n = -1;
    EXPECT_EQ(VLMgetintattr(m_, attr, &n), VLM_OK);
    return n;
  }
};

TEST_F(EntryCheckTest, CoefficientsMustBeFinite) {
  int ind[] = {0, 1};
  for (double bad : {1e300, 1e100, -kInf, kNaN}) {
    double val[] = {1, bad};
    EXPECT_EQ(VLMaddconstr(m_, 2, ind, val, '<', 4, "c"), VLM_ERROR_INVALID_ARGUMENT);
  }
  EXPECT_EQ(msg(), "Coefficient NaN of variable 'y' in new constraint 'c' is not a finite number");
  double val[] = {1, 1e300};
  ASSERT_EQ(VLMaddconstr(m_, 2, ind, val, '<', 4, nullptr), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Coefficient 1e+300 of variable 'y' in new constraint 0 is not a finite number");
  ASSERT_EQ(VLMaddrangeconstr(m_, 2, ind, val, 0, 1, "r"), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Coefficient 1e+300 of variable 'y' in range constraint 'r' is not a finite number");
  EXPECT_EQ(count("NumConstrs"), 0);
  double ok[] = {1, 1};
  ASSERT_EQ(VLMaddconstr(m_, 2, ind, ok, '<', 4, "c0"), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  ASSERT_EQ(VLMaddvar(m_, 1, ind, val + 1, 1, 0, 1, 'C', "z"), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Coefficient 1e+300 of new variable 'z' in constraint 0 is not a finite number");
  EXPECT_EQ(count("NumConstrs"), 1);
  EXPECT_EQ(count("NumVars"), 2);
}

// x + y <= inf restricts nothing and is kept; x + y = inf, x + y >= inf and x + y <= -inf can
// never hold and are refused, as is a NaN right-hand side.
TEST_F(EntryCheckTest, RightHandSidesNoRowCanMeetAreRefused) {
  int ind[] = {0, 1};
  double val[] = {1, 1};
  ASSERT_EQ(VLMaddconstr(m_, 2, ind, val, '<', kInf, "loose"), VLM_OK);
  ASSERT_EQ(VLMaddconstr(m_, 2, ind, val, '>', -1e100, "loose2"), VLM_OK);
  struct Case {
    char sense;
    double rhs;
    const char* message;
  };
  const Case cases[] = {
      {'=', kInf, "Right-hand side inf of new constraint 'c' is infinite, which its '=' row can never meet"},
      {'=', -1e300, "Right-hand side -1e+300 of new constraint 'c' is infinite, which its '=' row can never meet"},
      {'>', 1e100, "Right-hand side 1e+100 of new constraint 'c' is infinite, which its '>' row can never meet"},
      {'<', -kInf, "Right-hand side -inf of new constraint 'c' is infinite, which its '<' row can never meet"},
      {'<', kNaN, "Right-hand side NaN of new constraint 'c' is not a number"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(VLMaddconstr(m_, 2, ind, val, c.sense, c.rhs, "c"), VLM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(msg(), c.message);
  }
  EXPECT_EQ(VLMaddqconstr(m_, 0, nullptr, nullptr, 1, ind, ind, val, '=', kInf, "q"), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Right-hand side inf of quadratic constraint 'q' is infinite, which its '=' row can never meet");
  EXPECT_EQ(VLMaddrangeconstr(m_, 2, ind, val, kInf, kInf, "r"), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Range [1e+100, 1e+100] of range constraint 'r' can never be met");
  EXPECT_EQ(count("NumConstrs"), 2);
  EXPECT_EQ(count("NumQConstrs"), 0);
}

TEST_F(EntryCheckTest, QuadraticTermsAndExponentsMustBeFinite) {
  int qi[] = {0}, qj[] = {1};
  double qv[] = {1e100};
  EXPECT_EQ(VLMaddqpterms(m_, 1, qi, qj, qv), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Quadratic coefficient 1e+100 of variable 'x' * variable 'y' in the objective is not a finite number");
  EXPECT_EQ(VLMaddgenconstrPow(m_, "p", 0, 1, 1e100, ""), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Exponent 1e+100 of general constraint 'p' is not a finite number");
  EXPECT_EQ(VLMaddgenconstrPow(m_, nullptr, 0, 1, kNaN, ""), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Exponent NaN of general constraint 0 is not a finite number");
  EXPECT_EQ(count("NumGenConstrs"), 0);
  int nz = -1;
  ASSERT_EQ(VLMgetintattr(m_, "NumQNZs", &nz), VLM_OK);
  EXPECT_EQ(nz, 0);
}

// A parameter set to 1e300 is reported with the value given, not its stored infinity.
TEST_F(EntryCheckTest, ParameterMessagesShowTheValueGiven) {
  EXPECT_EQ(VLMsetdblparam(env_, "FeasibilityTol", 1e300), VLM_ERROR_VALUE_OUT_OF_RANGE);
  const std::string m = VLMgeterrormsg(env_);
  EXPECT_EQ(m.rfind("Value 1e+300 for parameter 'FeasibilityTol' is outside [", 0), 0u) << m;
  EXPECT_EQ(VLMsetdblparam(env_, "Seed", -1e300), VLM_ERROR_VALUE_OUT_OF_RANGE);
  EXPECT_EQ(std::string(VLMgeterrormsg(env_)).rfind("Value -1e+300 for parameter 'Seed' is outside [", 0), 0u)
      << VLMgeterrormsg(env_);
  // No message of these holds a long run of digits.
  for (const std::string& text : {m, std::string(VLMgeterrormsg(env_))}) {
    EXPECT_EQ(text.find("0000000000"), std::string::npos) << text;
  }
}

// Values finite for the model but above what HiGHS takes (1e15) are named when the solve is
// refused: a matrix coefficient, and a squared term HiGHS holds doubled (6e14 becomes 1.2e15).
TEST_F(EntryCheckTest, ValuesBeyondHighsLimitsAreNamedAtSolve) {
  int ind[] = {0, 1};
  double val[] = {1, 1e16};
  ASSERT_EQ(VLMaddconstr(m_, 2, ind, val, '<', 4, "c1"), VLM_OK);
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Coefficient 1e+16 of variable 'y' in constraint 'c1' is larger than 1e+15, the largest "
                   "matrix value HiGHS accepts");
  ASSERT_EQ(VLMchgcoeffs(m_, 1, ind, ind + 1, val), VLM_OK);  // y's coefficient back to 1
  int qi[] = {0};
  double qv[] = {6e14};
  ASSERT_EQ(VLMaddqpterms(m_, 1, qi, qi, qv), VLM_OK);
  EXPECT_EQ(VLMoptimize(m_), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(msg(), "Quadratic coefficient 6e+14 of 'x' * 'x' in the objective (held doubled by HiGHS) is larger "
                   "than 1e+15, the largest matrix value HiGHS accepts");
}

std::unique_ptr<vlm::Model> read_lp(const std::string& text, vlm::Status* s) {
  return read_model_text(vlm::io::read_lp, text, "m.lp", s);
}
std::unique_ptr<vlm::Model> read_mps(const std::string& text, vlm::Status* s) {
  return read_model_text(vlm::io::read_mps, text, "m.mps", s);
}

TEST(EntryCheckFileTest, NulBytesAndInfiniteCoefficientsInFilesAreRefused) {
  expect_read_errors(read_lp, {{std::string("Minimize\n obj: x\nSubject To\n c: x + y") + '\0' + "z >= 1\nEnd\n",
                                "File 'm.lp', line 4: the file holds a NUL character (byte 0), which no name "
                                "or number may contain"}});
  const std::string head = "NAME m\nROWS\n N obj\n L c\nCOLUMNS\n    x  obj  1  c  1\n    y  c  1\n";
  expect_read_errors(
      read_mps,
      {{head + "QUADOBJ\n    x  y  1e100\nENDATA\n",
        "File 'm.mps', line 9: quadratic coefficient 1e+100 of 'x' * 'y' is infinite (1e30 or more)"},
       {head + "QMATRIX\n    x  x  -1e30\nENDATA\n",
        "File 'm.mps', line 9: quadratic coefficient -1e+30 of 'x' * 'x' is infinite (1e30 or more)"},
       {"NAME m\nROWS\n N obj\n L c\nCOLUMNS\n    x  obj  1  c  1e31\nENDATA\n",
        "File 'm.mps', line 6: coefficient 1e+31 of 'x' in row 'c' is infinite (1e30 or more)"},
       {std::string("NAME m\nROWS\n N obj\n L c") + '\0' + "\nENDATA\n",
        "File 'm.mps', line 4: the file holds a NUL character (byte 0), which no name or number may contain"}});
}

}  // namespace
