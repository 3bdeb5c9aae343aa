// Linear relaxation of nonconvex quadratic terms for the spatial branch and bound.
//
// Every product x_i x_j of a nonconvex objective or constraint is replaced by a column w that
// stands for it (one column per pair, shared by all its occurrences), so the objective and the
// constraints become linear in (x, w). What ties w to x_i x_j are envelope rows over the box
// of the node, [a, b] for x_i and [c, d] for x_j:
//   product (i != j), the four McCormick rows
//     w >= c x_i + a x_j - a c,   w >= d x_i + b x_j - b d,
//     w <= d x_i + a x_j - a d,   w <= c x_i + b x_j - b c;
//   square (i == j): the secant above and the tangents at both ends below
//     w <= (a + b) x_i - a b,   w >= 2 a x_i - a^2,   w >= 2 b x_i - b^2
//   (tangents at other points are globally valid and added as cuts by the separator).
// The rows are exact when a factor sits at a bound of its box, so a product with a binary
// factor is represented exactly once the binary is integral.
//
// Their coefficients depend on the box: they are written for the root box into the working
// problem and rewritten in the relaxation at every node (update_rows). The node's box is first
// tightened by propagation through the linear rows and the products (propagate).
#pragma once

#include <array>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "core/status.h"
#include "model/model_data.h"
#include "reform/working_problem.h"

namespace vlm::algorithms {

struct ProductTerm {
  int i = -1, j = -1;  // factors, i <= j; i == j for a square
  int w = -1;          // the column standing for x_i x_j
  int row = -1;        // first envelope row (four for a product, three for a square)
  std::string where;   // "the objective" or "quadratic constraint 'name'", for messages
};

class SpatialRelaxation {
 public:
  // Returns the column standing for x_i x_j in `p`, appending it on first use. `where` names
  // the first place the product occurs. O(log terms).
  int lift(int i, int j, const std::string& where, reform::WorkingProblem& p);

  // After every lift: tightens the bounds of `p` by propagation, gives every w the range of
  // its product and appends the envelope rows for the root box. Fails with
  // VLM_ERROR_INVALID_ARGUMENT naming the first factor that still has an infinite bound. When
  // propagation finds the model infeasible the bounds are left as they were (the search's
  // root then reports it). `d` gives the variables' names. O(passes * nonzeros).
  Status prepare(const ModelData& d, reform::WorkingProblem& p);

  // Tightens [lo, up] through the rows of the working problem that are not envelope rows and
  // through every product (the range of w from its factors and back). Integer columns are
  // rounded inward. Returns false when some column's range becomes empty. At most `passes`
  // sweeps. Cost: O(passes * (nonzeros + terms)).
  bool propagate(const reform::WorkingProblem& p, std::vector<double>& lo, std::vector<double>& up,
                 int passes) const;

  // Rewrites the envelope rows in the HiGHS instance `h` (which holds the working problem's
  // rows first) for the box [lo, up]; only rows whose box changed are touched. O(terms).
  void update_rows(void* h, const std::vector<double>& lo, const std::vector<double>& up);

  // The products lifted so far, in the order of their columns. O(1).
  const std::vector<ProductTerm>& terms() const { return terms_; }
  // Rows [0, first_envelope_row) are the problem's own (including the lifted constraints);
  // -1 before prepare. O(1).
  int first_envelope_row() const { return env_row_; }

 private:
  // The rows of term t for the box: coefficients of (w, x_i, x_j) and the bounds of each row.
  struct Row {
    double cw, ci, cj, lo, up;
  };
  static void envelope(const ProductTerm& t, double a, double b, double c, double d, std::vector<Row>& out);

  std::vector<ProductTerm> terms_;
  std::map<std::pair<int, int>, int> index_;  // (i, j) -> position in terms_
  int env_row_ = -1;
  // Box each term's rows were last written for (a, b, c, d).
  std::vector<std::array<double, 4>> written_;
};

// The range of x_i x_j over [a, b] x [c, d] (of x_i^2 over [a, b] for a square); 0 times an
// infinite bound counts as 0. O(1).
std::pair<double, double> product_range(bool square, double a, double b, double c, double d);

}  // namespace vlm::algorithms
