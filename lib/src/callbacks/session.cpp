#include "callbacks/session.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/platform.h"
#include "velmor_codes.h"

namespace vlm::callbacks {

namespace {

const char* where_name(int where) {
  static const char* const names[] = {"POLLING", "PRESOLVE", "SIMPLEX", "MIP",      "MIPSOL",
                                      "MIPNODE", "MESSAGE",  "BARRIER", "MULTIOBJ", "IIS"};
  return where >= 0 && where <= 9 ? names[where] : "unknown";
}

// The sessions alive now: callback data is checked against them, so that a stale or foreign
// pointer is refused rather than read.
std::mutex g_live_mutex;
std::vector<const Session*> g_live;

bool is_integer_model(const ModelData& d) {
  for (char t : d.vtype) {
    if (t == 'B' || t == 'I' || t == 'N') return true;
  }
  return false;
}

Status not_available(int what, const char* why) {
  return Status(VLM_ERROR_DATA_NOT_AVAILABLE,
                "Callback what code " + std::to_string(what) + " is not available: " + why);
}

}  // namespace

bool what_info(int what, int nvars, int* type, int* size) {
  int t = 0, n = 1;
  switch (what) {
    case VLM_CB_PRE_COLDEL: case VLM_CB_PRE_ROWDEL: case VLM_CB_PRE_SENCHG: case VLM_CB_PRE_BNDCHG:
    case VLM_CB_PRE_COECHG: case VLM_CB_SPX_ISPERT: case VLM_CB_MIP_SOLCNT: case VLM_CB_MIP_CUTCNT:
    case VLM_CB_MIP_OPENSCENARIOS: case VLM_CB_MIP_PHASE: case VLM_CB_MIPSOL_SOLCNT:
    case VLM_CB_MIPSOL_OPENSCENARIOS: case VLM_CB_MIPSOL_PHASE: case VLM_CB_MIPNODE_STATUS:
    case VLM_CB_MIPNODE_SOLCNT: case VLM_CB_MIPNODE_BRVAR: case VLM_CB_MIPNODE_OPENSCENARIOS:
    case VLM_CB_MIPNODE_PHASE: case VLM_CB_BARRIER_ITRCNT: case VLM_CB_MULTIOBJ_OBJCNT:
    case VLM_CB_MULTIOBJ_SOLCNT: case VLM_CB_IIS_CONSTRMIN: case VLM_CB_IIS_CONSTRMAX:
    case VLM_CB_IIS_CONSTRGUESS: case VLM_CB_IIS_BOUNDMIN: case VLM_CB_IIS_BOUNDMAX:
    case VLM_CB_IIS_BOUNDGUESS:
      t = 1;
      break;
    case VLM_CB_SPX_ITRCNT: case VLM_CB_SPX_OBJVAL: case VLM_CB_SPX_PRIMINF: case VLM_CB_SPX_DUALINF:
    case VLM_CB_MIP_OBJBST: case VLM_CB_MIP_OBJBND: case VLM_CB_MIP_NODCNT: case VLM_CB_MIP_NODLFT:
    case VLM_CB_MIP_ITRCNT: case VLM_CB_MIPSOL_OBJ: case VLM_CB_MIPSOL_OBJBST: case VLM_CB_MIPSOL_OBJBND:
    case VLM_CB_MIPSOL_NODCNT: case VLM_CB_MIPNODE_OBJBST: case VLM_CB_MIPNODE_OBJBND:
    case VLM_CB_MIPNODE_NODCNT: case VLM_CB_RUNTIME: case VLM_CB_WORK: case VLM_CB_BARRIER_PRIMOBJ:
    case VLM_CB_BARRIER_DUALOBJ: case VLM_CB_BARRIER_PRIMINF: case VLM_CB_BARRIER_DUALINF:
    case VLM_CB_BARRIER_COMPL:
      t = 2;
      break;
    case VLM_CB_MIPSOL_SOL: case VLM_CB_MIPNODE_REL: case VLM_CB_MULTIOBJ_SOL:
      t = 2;
      n = nvars;
      break;
    case VLM_CB_MSG_STRING:
      t = 3;
      break;
    default:
      return false;
  }
  if (type) *type = t;
  if (size) *size = n;
  return true;
}

Session::Session(Model& m) : m_(m), thread_(std::this_thread::get_id()) {
  t0_ = wall_seconds();
  cpu0_ = process_cpu_seconds();
  m_.env().set_tap(this);
  std::lock_guard<std::mutex> lock(g_live_mutex);
  g_live.push_back(this);
}

Session::~Session() {
  m_.env().set_tap(nullptr);
  std::lock_guard<std::mutex> lock(g_live_mutex);
  g_live.erase(std::remove(g_live.begin(), g_live.end(), this), g_live.end());
}

bool Session::wants_search() const {
  const ModelData& d = m_.data();
  if (!is_integer_model(d)) return false;
  const ParamSet& ps = m_.env().params();
  return m_.user_callback().search || ps.int_param("LazyConstraints") == 1 || ps.int_param("PreCrush") == 1;
}

double Session::runtime() const { return wall_seconds() - t0_; }

void Session::call(int where, const Point& point, bool lazy_ok, bool cut_ok) {
  if (in_call_ || std::this_thread::get_id() != thread_) return;
  UserCallback& cb = m_.user_callback();
  if (cb.fn == nullptr) return;
  if (where != VLM_CB_MESSAGE) flush_messages();
  in_call_ = true;
  where_ = where;
  point_ = point;
  lazy_ok_ = lazy_ok;
  cut_ok_ = cut_ok;
  try {
    cb.fn(cb.handle, this, where, cb.usrdata);
  } catch (...) {
    // A C callback cannot throw; a C++ one that does is not allowed to unwind the solver.
  }
  in_call_ = false;
  where_ = -1;
  point_ = Point{};
}

algorithms::HookReply Session::take_reply() { return std::exchange(reply_, algorithms::HookReply{}); }

std::vector<double> Session::take_heuristic() { return std::exchange(reply_.heuristic, {}); }

void Session::on_message(std::string_view text) {
  std::string line(text);
  if (line.empty() || line.back() != '\n') line.push_back('\n');
  if (std::this_thread::get_id() != thread_ || in_call_) {
    std::lock_guard<std::mutex> lock(deferred_mutex_);
    deferred_.push_back(std::move(line));
    return;
  }
  flush_messages();
  Point p;
  p.msg = line.c_str();
  call(VLM_CB_MESSAGE, p);
}

void Session::flush_messages() {
  if (in_call_ || std::this_thread::get_id() != thread_) return;
  std::vector<std::string> lines;
  {
    std::lock_guard<std::mutex> lock(deferred_mutex_);
    if (deferred_.empty()) return;
    lines.swap(deferred_);
  }
  for (const std::string& line : lines) {
    Point p;
    p.msg = line.c_str();
    call(VLM_CB_MESSAGE, p);
  }
}

Session* Session::from(void* cbdata) {
  std::lock_guard<std::mutex> lock(g_live_mutex);
  for (const Session* s : g_live) {
    if (s == cbdata) return static_cast<Session*>(cbdata);
  }
  return nullptr;
}

Status Session::get(int where, int what, void* result) {
  if (!in_call_) return Status(VLM_ERROR_CALLBACK, "Callback data used outside the callback call it was given to");
  if (result == nullptr) return Status(VLM_ERROR_NULL_ARGUMENT, "Argument 'result' is NULL");
  const int n = m_.data().num_vars();
  int type = 0, size = 0;
  if (!what_info(what, n, &type, &size)) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, "Unknown callback what code " + std::to_string(what));
  }
  if (where != where_) {
    return Status(VLM_ERROR_CALLBACK, "Callback where code " + std::to_string(where) + " given, but the callback was called at where " +
                                          std::to_string(where_) + " (" + where_name(where_) + ")");
  }
  const bool general = what == VLM_CB_RUNTIME || what == VLM_CB_WORK;
  if (!general && what / 1000 != where) {
    return Status(VLM_ERROR_CALLBACK, "Callback what code " + std::to_string(what) + " belongs to where " +
                                          where_name(what / 1000) + " and cannot be asked at where " + where_name(where));
  }
  const Point& p = point_;
  auto dbl = [&](double v) {
    *static_cast<double*>(result) = v;
    return Status::Ok();
  };
  auto num = [&](double v, const char* why) {
    return std::isnan(v) ? not_available(what, why) : dbl(v);
  };
  auto integer = [&](int v) {
    *static_cast<int*>(result) = v;
    return Status::Ok();
  };
  auto vec = [&](const char* why) {
    if (p.x == nullptr) return Status(VLM_ERROR_CALLBACK, why);
    auto* out = static_cast<double*>(result);
    for (int j = 0; j < n; ++j) out[j] = p.x[j];
    return Status::Ok();
  };
  switch (what) {
    case VLM_CB_RUNTIME: return dbl(runtime());
    case VLM_CB_WORK: return dbl(process_cpu_seconds() - cpu0_);
    case VLM_CB_MSG_STRING:
      *static_cast<const char**>(result) = p.msg != nullptr ? p.msg : "";
      return Status::Ok();
    case VLM_CB_PRE_COLDEL: case VLM_CB_PRE_ROWDEL: case VLM_CB_PRE_SENCHG: case VLM_CB_PRE_BNDCHG:
    case VLM_CB_PRE_COECHG:
      return not_available(what, "HiGHS presolves inside its solve and reports no reductions while it runs");
    case VLM_CB_SPX_ITRCNT: return dbl(p.itcount);
    case VLM_CB_SPX_OBJVAL: return num(p.objval, "the engine does not report the objective during simplex iterations");
    case VLM_CB_SPX_PRIMINF: return num(p.priminf, "the engine does not report infeasibilities during simplex iterations");
    case VLM_CB_SPX_DUALINF: return num(p.dualinf, "the engine does not report infeasibilities during simplex iterations");
    case VLM_CB_SPX_ISPERT: return integer(0);
    case VLM_CB_MIP_OBJBST: case VLM_CB_MIPSOL_OBJBST: case VLM_CB_MIPNODE_OBJBST: return dbl(p.obj_best);
    case VLM_CB_MIP_OBJBND: case VLM_CB_MIPSOL_OBJBND: case VLM_CB_MIPNODE_OBJBND: return dbl(p.obj_bound);
    case VLM_CB_MIP_NODCNT: case VLM_CB_MIPSOL_NODCNT: case VLM_CB_MIPNODE_NODCNT: return dbl(p.nodes);
    case VLM_CB_MIP_SOLCNT: case VLM_CB_MIPSOL_SOLCNT: case VLM_CB_MIPNODE_SOLCNT: return integer(p.solutions);
    case VLM_CB_MIP_CUTCNT: return integer(p.cuts);
    case VLM_CB_MIP_NODLFT: return num(p.nodes_left < 0 ? std::nan("") : p.nodes_left,
                                       "HiGHS's own search does not report its open nodes");
    case VLM_CB_MIP_ITRCNT: return dbl(p.iterations);
    case VLM_CB_MIP_OPENSCENARIOS: case VLM_CB_MIPSOL_OPENSCENARIOS: case VLM_CB_MIPNODE_OPENSCENARIOS:
      return integer(0);
    // The search has no separate no-relaxation or improvement phase: always the standard one.
    case VLM_CB_MIP_PHASE: case VLM_CB_MIPSOL_PHASE: case VLM_CB_MIPNODE_PHASE: return integer(1);
    case VLM_CB_MIPSOL_SOL: return vec("Failed to retrieve solution in callback");
    case VLM_CB_MIPSOL_OBJ: return dbl(p.obj);
    case VLM_CB_MIPNODE_STATUS: return integer(p.node_status);
    case VLM_CB_MIPNODE_REL: return vec("Node relaxation not available");
    case VLM_CB_MIPNODE_BRVAR: return integer(-1);
    case VLM_CB_BARRIER_ITRCNT:
      if (std::isnan(p.itcount)) return not_available(what, "the engine does not report its barrier iteration count");
      return integer(static_cast<int>(p.itcount));
    case VLM_CB_BARRIER_PRIMOBJ: return num(p.objval, "the engine does not report objectives during barrier iterations");
    case VLM_CB_BARRIER_DUALOBJ: return num(p.dualobj, "the engine does not report objectives during barrier iterations");
    case VLM_CB_BARRIER_PRIMINF: return num(p.priminf, "the engine does not report infeasibilities during barrier iterations");
    case VLM_CB_BARRIER_DUALINF: return num(p.dualinf, "the engine does not report infeasibilities during barrier iterations");
    case VLM_CB_BARRIER_COMPL: return num(p.compl_, "the engine does not report complementarity during barrier iterations");
    case VLM_CB_MULTIOBJ_OBJCNT: return integer(p.objcnt);
    case VLM_CB_MULTIOBJ_SOLCNT: return integer(p.solutions);
    case VLM_CB_MULTIOBJ_SOL: return vec("Failed to retrieve solution in callback");
    case VLM_CB_IIS_CONSTRMIN: case VLM_CB_IIS_CONSTRMAX: case VLM_CB_IIS_CONSTRGUESS:
    case VLM_CB_IIS_BOUNDMIN: case VLM_CB_IIS_BOUNDMAX: case VLM_CB_IIS_BOUNDGUESS:
      return integer(p.iis[what - VLM_CB_IIS_CONSTRMIN]);
    default: break;
  }
  return Status(VLM_ERROR_INVALID_ARGUMENT, "Unknown callback what code " + std::to_string(what));
}

Status Session::set_solution(const double* x, double* objP) {
  if (!in_call_) return Status(VLM_ERROR_CALLBACK, "Callback data used outside the callback call it was given to");
  if (where_ != VLM_CB_MIP && where_ != VLM_CB_MIPSOL && where_ != VLM_CB_MIPNODE) {
    return Status(VLM_ERROR_CALLBACK, std::string("A solution can only be given at where MIP, MIPSOL or MIPNODE, not at ") +
                                          where_name(where_));
  }
  if (x == nullptr) return Status(VLM_ERROR_NULL_ARGUMENT, "Argument 'solution' is NULL");
  const ModelData& d = m_.data();
  const int n = d.num_vars();
  std::vector<double> v(x, x + n);
  bool complete = true;
  for (double& e : v) {
    if (std::isnan(e) || e >= VLM_UNDEFINED) {
      e = std::numeric_limits<double>::quiet_NaN();
      complete = false;
    }
  }
  if (objP != nullptr) {
    double obj = VLM_INFINITY;
    if (complete) {
      obj = d.objcon;
      for (int j = 0; j < n; ++j) obj += d.obj[j] * v[j];
      for (std::size_t k = 0; k < d.qval.size(); ++k) obj += d.qval[k] * v[d.qrow[k]] * v[d.qcol[k]];
    }
    *objP = obj;
  }
  reply_.heuristic = std::move(v);
  return Status::Ok();
}

Status Session::add_row(bool lazy, int len, const int* ind, const double* val, char sense, double rhs) {
  const char* call = lazy ? "VLMcblazy" : "VLMcbcut";
  if (!in_call_) return Status(VLM_ERROR_CALLBACK, "Callback data used outside the callback call it was given to");
  const bool allowed_where = lazy ? (where_ == VLM_CB_MIPSOL || where_ == VLM_CB_MIPNODE) : where_ == VLM_CB_MIPNODE;
  if (!allowed_where) {
    return Status(VLM_ERROR_CALLBACK, std::string(call) + " is only allowed at where " +
                                          (lazy ? "MIPSOL or MIPNODE" : "MIPNODE") + ", not at " + where_name(where_));
  }
  if (!(lazy ? lazy_ok_ : cut_ok_)) {
    return Status(VLM_ERROR_CALLBACK, std::string(call) +
                                          " needs the branch-and-cut search: set the LazyConstraints parameter (or "
                                          "PreCrush for cuts) to 1 before optimizing");
  }
  if (len < 0) return Status(VLM_ERROR_INVALID_ARGUMENT, "Number of terms is negative");
  if (len > 0 && (ind == nullptr || val == nullptr)) {
    return Status(VLM_ERROR_NULL_ARGUMENT, std::string("Argument '") + (ind == nullptr ? "ind" : "val") + "' is NULL");
  }
  if (sense != '<' && sense != '>' && sense != '=') {
    return Status(VLM_ERROR_INVALID_ARGUMENT, std::string("Invalid sense '") + sense + "' in " + call);
  }
  if (!std::isfinite(rhs)) return Status(VLM_ERROR_INVALID_ARGUMENT, std::string("Right-hand side of ") + call + " is not finite");
  const int n = m_.data().num_vars();
  algorithms::UserRow row;
  row.sense = sense;
  row.rhs = rhs;
  for (int k = 0; k < len; ++k) {
    if (ind[k] < 0 || ind[k] >= n) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, std::string(call) + ": variable index " + std::to_string(ind[k]) +
                                                     " out of range [0, " + std::to_string(n) + ")");
    }
    if (!std::isfinite(val[k])) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, std::string(call) + ": coefficient of variable " + std::to_string(ind[k]) +
                                                    " is not finite");
    }
    row.ind.push_back(ind[k]);
    row.val.push_back(val[k]);
  }
  (lazy ? reply_.lazy : reply_.cuts).push_back(std::move(row));
  return Status::Ok();
}

Status Session::stop_one_multiobj(int objnum) {
  if (!in_call_) return Status(VLM_ERROR_CALLBACK, "Callback data used outside the callback call it was given to");
  if (objnum < 0) return Status(VLM_ERROR_INVALID_ARGUMENT, "Objective number " + std::to_string(objnum) + " is negative");
  stop_obj_ = objnum;
  return Status::Ok();
}

SessionScope::SessionScope(Model& m) : m_(m) {
  UserCallback& cb = m.user_callback();
  if (cb.fn == nullptr) return;
  if (cb.session != nullptr) {
    outer_ = cb.session;
    return;
  }
  own_ = std::make_unique<Session>(m);
  cb.session = own_.get();
}

SessionScope::~SessionScope() {
  if (!own_) return;
  own_->flush_messages();
  m_.user_callback().session = nullptr;
}

}  // namespace vlm::callbacks
