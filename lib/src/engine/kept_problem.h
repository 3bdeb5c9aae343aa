// KeptProblem: the HiGHS instance a model keeps between solves, with the working problem it
// holds, so that the next solve passes HiGHS only what changed.
//
// The engine compares the new working problem with the kept one (array compares, O(size) but
// far cheaper than a whole pass, which makes HiGHS copy, assess and re-index everything).
// Columns and rows are matched through the model's element identities (Model::element_ids),
// so deletions and additions anywhere are recognised; the reformulation's auxiliary columns
// and rows are matched by their position after the user's. What changed reaches HiGHS through
// its modification calls, which keep the basis for a warm start:
//   bounds, costs, row bounds, integrality, objective sense and constant: changed in place;
//   deleted columns and rows: deleted; new ones: appended (with their coefficients);
//   coefficient changes in kept rows and columns: one call per coefficient;
//   the Hessian: passed again whenever it differs.
// Falls back to a whole pass when the kept columns or rows would have to move (HiGHS appends
// only at the end, so kept elements behind a new one are deleted and added again, and when
// that is most of the problem a whole pass is cheaper), when there are many coefficient
// changes, when columns change while a Hessian is present, and when HiGHS refuses a call.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "reform/working_problem.h"

namespace vlm::engine {

// How problems reached the kept instance (debug statistics for tests and benchmarks).
struct PassCounts {
  long full = 0;         // the whole problem passed (first solve, or a fallback)
  long incremental = 0;  // only the differences passed
  long fallback = 0;     // whole passes although an instance was kept
  long unchanged = 0;    // of the incremental passes: nothing had changed (not even compared)
  long patched = 0;      // of the incremental passes: only touched bounds, costs and row bounds
                         // were patched (nothing built or compared)
  std::string last_fallback;  // why the last fallback happened
};

struct KeptProblem {
  std::shared_ptr<void> highs;  // null until the first pass
  reform::WorkingProblem p;     // what `highs` holds
  // Identities of p's user columns and rows (Model::element_ids at the time of the pass).
  std::vector<std::uint64_t> col_ids, row_ids;
  // The model's data version (Model::data_version) that p was built from.
  std::uint64_t version = 0;
  // The last MIP solution over p's columns; empty when there is none.
  std::vector<double> incumbent;
  PassCounts counts;
};

// What the caller knows about the problem it passes: nothing (compare it with the kept one),
// that it is k.p unchanged, or that it is k.p after patch_problem.
enum class Held { kNo, kUnchanged, kPatched };

// Changes k.p and its instance in place for a model whose updates since k.p was built only
// touched the bounds and objective coefficients of the variables `vars` and the right-hand
// sides of the linear constraints `constrs` (Model::touched): reads those elements from `d`,
// writes what differs into k.p and passes it with one BySet call per kind. Nothing is built
// or compared beyond the touched elements. Returns false, with k unchanged, when k.p is not
// the plain image of the model (reformulated constructs, auxiliary columns or rows, counts
// out of step) or a touched semi-continuous variable would need a binary of its own; the
// caller then builds and passes as usual. When HiGHS refuses a call the instance is dropped
// (k.highs null, counted as a fallback) and false is returned. Cost: O(touched) plus the HiGHS calls.
bool patch_problem(KeptProblem& k, const ModelData& d, const std::vector<int>& vars, const std::vector<int>& constrs);

// Makes `k.highs` (created when null) hold `p`, whose user columns and rows have the
// identities `col_ids`/`row_ids`: in place when the kept problem allows it, else by a whole
// pass. On return `start` holds k.incumbent moved onto p's columns (new columns at the value
// of their bounds closest to 0), or is empty. Returns false when HiGHS refuses the whole pass
// (the instance is dropped then); true otherwise. Does not store `p` in `k` (the caller moves
// it there after the solve). Cost: O(size of p) compares plus the HiGHS calls for what changed.
// With `held` other than kNo the caller knows that `p` is k.p and that the instance holds it:
// nothing is compared or passed.
bool pass_problem(KeptProblem& k, const reform::WorkingProblem& p, const std::vector<std::uint64_t>& col_ids,
                  const std::vector<std::uint64_t>& row_ids, std::vector<double>& start, Held held = Held::kNo);

// Whole pass of `p` to `h` (replacing what it holds). Returns HiGHS' status.
int pass_whole(void* h, const reform::WorkingProblem& p);

// Whether `x` (one value per column of `p`) satisfies p's bounds, integrality (semi-continuous
// and semi-integer codes included) and rows within `tol`. O(columns + nonzeros).
bool satisfies(const reform::WorkingProblem& p, const std::vector<double>& x, double tol);

}  // namespace vlm::engine
