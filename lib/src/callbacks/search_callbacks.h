// SearchCallbacks: the SearchHooks of the branch-and-cut search, turned into calls of the user's
// callback (at_solution -> MIPSOL, at_node -> MIPNODE, at_progress -> MIP, at_poll -> POLLING),
// and what the callback handed back (VLMcblazy, VLMcbcut, VLMcbsolution, VLMterminate,
// VLMcbproceed) turned into the reply.
#pragma once

#include "algorithms/search_hooks.h"
#include "callbacks/session.h"

namespace vlm::callbacks {

class SearchCallbacks : public algorithms::SearchHooks {
 public:
  explicit SearchCallbacks(Session& s) : s_(s) {}
  // A candidate incumbent: lazy rows may be added (VLMcblazy), no cuts.
  void at_solution(const algorithms::SearchProgress& p, const std::vector<double>& x, double obj,
                   algorithms::HookReply& r) override;
  // A node: lazy rows and cuts may be added; the relaxation point is readable when `status` is
  // OPTIMAL and `x` is not empty.
  void at_node(const algorithms::SearchProgress& p, int status, const std::vector<double>& x,
               algorithms::HookReply& r) override;
  void at_progress(const algorithms::SearchProgress& p, algorithms::HookReply& r) override;
  void at_poll(algorithms::HookReply& r) override;

 private:
  // Moves what the call handed back into `r`.
  void collect(algorithms::HookReply& r);
  Session& s_;
};

// Progress as a callback Point.
Point point_of(const algorithms::SearchProgress& p);

}  // namespace vlm::callbacks
