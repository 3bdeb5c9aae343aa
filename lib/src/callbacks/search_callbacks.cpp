#include "callbacks/search_callbacks.h"

#include <utility>

#include "velmor_codes.h"

namespace vlm::callbacks {

Point point_of(const algorithms::SearchProgress& p) {
  Point q;
  q.obj_best = p.obj_best;
  q.obj_bound = p.obj_bound;
  q.nodes = p.nodes;
  q.nodes_left = p.nodes_left;
  q.solutions = static_cast<int>(p.solutions);
  q.cuts = static_cast<int>(p.cuts);
  q.iterations = p.iterations;
  return q;
}

void SearchCallbacks::collect(algorithms::HookReply& r) {
  algorithms::HookReply got = s_.take_reply();
  for (auto& row : got.lazy) r.lazy.push_back(std::move(row));
  for (auto& row : got.cuts) r.cuts.push_back(std::move(row));
  if (!got.heuristic.empty()) r.heuristic = std::move(got.heuristic);
  // A terminate asked for during the call, or before it from another thread.
  if (s_.terminate_requested()) r.terminate = true;
  if (s_.take_proceed()) r.proceed = true;
}

void SearchCallbacks::at_solution(const algorithms::SearchProgress& p, const std::vector<double>& x, double obj,
                                  algorithms::HookReply& r) {
  Point q = point_of(p);
  q.x = x.empty() ? nullptr : x.data();
  q.obj = obj;
  s_.call(VLM_CB_MIPSOL, q, true, false);
  collect(r);
}

void SearchCallbacks::at_node(const algorithms::SearchProgress& p, int status, const std::vector<double>& x,
                              algorithms::HookReply& r) {
  Point q = point_of(p);
  q.node_status = status;
  q.x = status == VLM_OPTIMAL && !x.empty() ? x.data() : nullptr;
  s_.call(VLM_CB_MIPNODE, q, true, true);
  collect(r);
}

void SearchCallbacks::at_poll(algorithms::HookReply& r) {
  s_.call(VLM_CB_POLLING, Point{});
  collect(r);
}

void SearchCallbacks::at_progress(const algorithms::SearchProgress& p, algorithms::HookReply& r) {
  s_.call(VLM_CB_MIP, point_of(p));
  collect(r);
}

}  // namespace vlm::callbacks
