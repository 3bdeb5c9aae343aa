// Session: one solve's link between the solver and the user's callback.
//
// A session exists while a model with an installed callback is being solved (SessionScope).
// Its address is the `cbdata` the user's function receives: each call sets the where-code and
// the data that where can answer (a Point), runs the user's function, and collects what the
// function handed back through the VLMcb* calls (lazy rows, cuts, a heuristic solution).
//
// The user's function is never run twice at once, and only on the thread that started the
// solve: log lines that HiGHS writes from a worker thread are kept and delivered (as MESSAGE
// calls) at the next call on the solving thread, or when the session ends.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "algorithms/search_hooks.h"
#include "core/status.h"
#include "model/model.h"

namespace vlm::callbacks {

// What the solver knows at the moment of a call; the where-code decides which fields count.
struct Point {
  // MIP progress (MIP, MIPSOL, MIPNODE), in the model's sense.
  double obj_best = 0.0, obj_bound = 0.0, nodes = 0.0, nodes_left = -1.0, iterations = 0.0;
  int solutions = 0, cuts = 0;
  // Simplex and barrier (NaN: the engine does not report it).
  double itcount = 0.0, objval = 0.0, priminf = 0.0, dualinf = 0.0, dualobj = 0.0, compl_ = 0.0;
  // A vector over the model's variables (MIPSOL_SOL, MIPNODE_REL, MULTIOBJ_SOL) and its
  // objective; x is null when there is none.
  const double* x = nullptr;
  double obj = 0.0;
  int node_status = 0;  // MIPNODE_STATUS (a VLM_ status)
  // MESSAGE.
  const char* msg = nullptr;
  // MULTIOBJ.
  int objcnt = 0;
  // IIS: constraints and bounds known to be in (min) or out of (max) the subsystem, and the
  // current candidate's size (guess).
  int iis[6] = {0, 0, 0, 0, 0, 0};
};

class Session : public Env::MessageTap {
 public:
  // A session for a solve of `m`, whose callback (m.user_callback().fn) is set.
  explicit Session(Model& m);
  ~Session() override;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Model& model() { return m_; }
  // Whether the solve should run the branch-and-cut search (integer model, and the callback
  // asked for it, or LazyConstraints or PreCrush is 1).
  bool wants_search() const;

  // Runs the user's function at `where` with `point`; `lazy_ok` and `cut_ok` tell whether
  // VLMcblazy and VLMcbcut are allowed in this call. Does nothing when called off the solving
  // thread or from inside a call. What the function hands back waits in reply().
  void call(int where, const Point& point, bool lazy_ok = false, bool cut_ok = false);
  // What the calls since the last take_reply handed back; empties it.
  algorithms::HookReply take_reply();
  // The heuristic solution handed back since the last take (empty for none); empties it.
  std::vector<double> take_heuristic();
  // Whether VLMterminate was called during a call since the session started.
  bool terminate_requested() const { return terminated_; }
  void note_terminate() { terminated_ = true; }
  // The objective level that VLMcbstoponemultiobj asked to end, or -1; reset by the caller.
  int& stop_objective() { return stop_obj_; }
  // VLMcbproceed: the driver running ends its current phase (a level of the multi-objective
  // solve, the first phase of the hybrid search); with no phase to end it has no effect.
  void request_proceed() { proceed_ = true; }
  // Whether a proceed was asked for since the last take; clears it.
  bool take_proceed() { return std::exchange(proceed_, false); }
  // Whether a proceed waits to be taken (HiGHS's events read it without taking it).
  bool proceed_pending() const { return proceed_; }
  // A multi-objective level is being solved by one HiGHS run: a proceed interrupts it.
  bool& in_level() { return in_level_; }
  // Seconds since the session started.
  double runtime() const;

  // Log lines (Env::MessageTap): a MESSAGE call each, deferred when off the solving thread.
  void on_message(std::string_view text) override;
  // Delivers log lines kept from other threads. Called on the solving thread.
  void flush_messages();

  // ---- the VLMcb* calls (cbdata is a Session*) -----------------------------------------
  // Each validates `cbdata` and the where-code; failures are recorded on the model.
  // The session `cbdata` is, or null when it is none of the live ones. O(live sessions).
  static Session* from(void* cbdata);
  Status get(int where, int what, void* result);
  Status set_solution(const double* x, double* objP);
  Status add_row(bool lazy, int len, const int* ind, const double* val, char sense, double rhs);
  Status stop_one_multiobj(int objnum);
  int where() const { return where_; }
  bool in_call() const { return in_call_; }

 private:
  Model& m_;
  std::thread::id thread_;
  bool in_call_ = false;
  int where_ = -1;
  Point point_;
  bool lazy_ok_ = false, cut_ok_ = false;
  std::string msg_;
  algorithms::HookReply reply_;
  std::atomic<bool> terminated_{false};
  int stop_obj_ = -1;
  bool proceed_ = false, in_level_ = false;
  double t0_ = 0.0, cpu0_ = 0.0;
  std::mutex deferred_mutex_;
  std::vector<std::string> deferred_;
};

// Opens a session for the length of a solve when the model has a callback installed and no
// session is open yet (nested solves share the outer one); restores the model afterwards.
class SessionScope {
 public:
  explicit SessionScope(Model& m);
  ~SessionScope();
  SessionScope(const SessionScope&) = delete;
  SessionScope& operator=(const SessionScope&) = delete;
  Session* session() { return own_ ? own_.get() : outer_; }

 private:
  Model& m_;
  std::unique_ptr<Session> own_;
  Session* outer_ = nullptr;
};

// Hides the session of `m` from the engine for its lifetime: a driver's inner HiGHS runs on the
// model (heuristics of the branch-and-cut search, say) then make no where-calls of their own.
// Log lines still reach MESSAGE.
class MuteScope {
 public:
  explicit MuteScope(Model& m) : m_(m), saved_(m.user_callback().session) { m.user_callback().session = nullptr; }
  ~MuteScope() { m_.user_callback().session = saved_; }
  MuteScope(const MuteScope&) = delete;
  MuteScope& operator=(const MuteScope&) = delete;

 private:
  Model& m_;
  Session* saved_;
};

// The session of the solve of `m` running now, or null.
inline Session* active(Model& m) { return m.user_callback().session; }

// Type (1 int, 2 double, 3 string) and size (1, or `nvars` for a vector) of what-code `what`;
// false for an unknown code.
bool what_info(int what, int nvars, int* type, int* size);

}  // namespace vlm::callbacks
