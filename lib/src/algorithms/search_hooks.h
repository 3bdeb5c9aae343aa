// SearchHooks: what a search we control tells the callback layer, and what it takes back.
//
// The branch-and-cut driver (algorithms/callback_search.h) runs when a callback needs what
// HiGHS's own MIP cannot give: lazy constraints, user cuts, node relaxations. At each event it
// calls one of these hooks on the solving thread; the callback layer (lib/src/callbacks/) turns
// the event into a `where` call of the user's callback and hands back what the callback added.
// Columns are the user's variables (the working problem's first columns); values, objectives and
// bounds are in the model's own sense.
#pragma once

#include <vector>

namespace vlm::algorithms {

// Progress of the search at the moment of an event.
struct SearchProgress {
  double obj_best = 0.0;   // incumbent objective; +/-VLM_INFINITY (by sense) when none
  double obj_bound = 0.0;  // best bound
  double nodes = 0;        // nodes processed
  double nodes_left = 0;   // open nodes
  double solutions = 0;    // incumbents found
  double cuts = 0;         // cuts and lazy rows added
  double iterations = 0;   // simplex iterations
  double runtime = 0;      // seconds since the solve started
};

// A row added by the callback over the user's variables: sum val[k] x[ind[k]] (sense) rhs,
// sense '<', '>' or '='.
struct UserRow {
  std::vector<int> ind;
  std::vector<double> val;
  char sense = '<';
  double rhs = 0.0;
};

// What a hook call hands back to the search.
struct HookReply {
  std::vector<UserRow> lazy;  // rows that every reported solution must satisfy
  std::vector<UserRow> cuts;  // rows valid for every integer solution (user cuts)
  // A point to try as an incumbent (user columns; NaN where the callback left a value
  // unspecified): the search completes and checks it before accepting it.
  std::vector<double> heuristic;
  bool terminate = false;  // the callback asked the solve to stop (INTERRUPTED)
  bool proceed = false;    // the callback asked the search to end its current phase
};

class SearchHooks {
 public:
  virtual ~SearchHooks() = default;
  // A candidate incumbent `x` with objective `obj` (where = MIPSOL). The candidate is accepted
  // only if it satisfies every lazy row of the reply.
  virtual void at_solution(const SearchProgress& p, const std::vector<double>& x, double obj, HookReply& r) = 0;
  // A node whose relaxation was solved (where = MIPNODE); `status` is a VLM_ status: OPTIMAL
  // when `x` is the node's relaxation point (once per separation round), otherwise INFEASIBLE,
  // CUTOFF, UNBOUNDED or NUMERIC, once for the node, with `x` empty.
  virtual void at_node(const SearchProgress& p, int status, const std::vector<double>& x, HookReply& r) = 0;
  // Periodic progress (where = MIP), at least once per node.
  virtual void at_progress(const SearchProgress& p, HookReply& r) = 0;
  // A periodic call from inside long engine runs (where = POLLING): nothing to read, only
  // terminate and proceed count. Default: nothing.
  virtual void at_poll(HookReply& r) { (void)r; }
};

}  // namespace vlm::algorithms
