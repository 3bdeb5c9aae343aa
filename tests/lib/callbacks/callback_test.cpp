// The callback C API: registration, what the where-calls report during HiGHS's own search,
// the errors for a what asked in the wrong place, terminate and heuristic solutions from a
// callback, and the hooks the branch-and-cut search calls.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "callbacks/search_callbacks.h"
#include "callbacks/session.h"
#include "capi/handles.h"
#include "engine/engine.h"
#include "model_fixture.h"

namespace {

// What one test's callback saw.
struct Record {
  std::vector<int> wheres;
  std::vector<std::vector<double>> sols;
  std::vector<double> sol_objs;
  std::vector<double> mip_bounds;
  std::vector<std::string> messages;
  std::vector<std::string> errors;  // messages of failing VLMcb* calls
  std::vector<int> codes;
  int terminate_at_sol = 0;  // terminate at the n-th MIPSOL (0: never)
  const std::vector<double>* heuristic = nullptr;  // offered at the first MIP call
  double heuristic_obj = NAN;
};

int recorder(VLMmodel* model, void* cbdata, int where, void* usrdata) {
  auto* r = static_cast<Record*>(usrdata);
  r->wheres.push_back(where);
  if (where == VLM_CB_MIPSOL) {
    int n = 0;
    VLMgetcbwhatinfo(model, VLM_CB_MIPSOL_SOL, nullptr, &n);
    std::vector<double> x(n);
    double obj = NAN;
    EXPECT_EQ(VLMcbget(cbdata, where, VLM_CB_MIPSOL_SOL, x.data()), VLM_OK);
    EXPECT_EQ(VLMcbget(cbdata, where, VLM_CB_MIPSOL_OBJ, &obj), VLM_OK);
    r->sols.push_back(x);
    r->sol_objs.push_back(obj);
    // A lazy row outside the branch-and-cut search, and a what of another where.
    int ind = 0;
    double val = 1.0;
    r->codes.push_back(VLMcblazy(cbdata, 1, &ind, &val, '<', 0.0));
    r->errors.push_back(VLMgetmerrormsg(model));
    r->codes.push_back(VLMcbget(cbdata, where, VLM_CB_MIP_NODCNT, &obj));
    r->errors.push_back(VLMgetmerrormsg(model));
    if (r->terminate_at_sol == static_cast<int>(r->sols.size())) VLMterminate(model);
  } else if (where == VLM_CB_MIP) {
    double bnd = NAN;
    EXPECT_EQ(VLMcbget(cbdata, where, VLM_CB_MIP_OBJBND, &bnd), VLM_OK);
    r->mip_bounds.push_back(bnd);
    r->codes.push_back(VLMcbget(cbdata, VLM_CB_MIPSOL, VLM_CB_MIPSOL_SOL, &bnd));
    r->errors.push_back(VLMgetmerrormsg(model));
    if (r->heuristic != nullptr) {
      EXPECT_EQ(VLMcbsolution(cbdata, r->heuristic->data(), &r->heuristic_obj), VLM_OK);
      r->heuristic = nullptr;
    }
  } else if (where == VLM_CB_MESSAGE) {
    char* msg = nullptr;
    EXPECT_EQ(VLMcbget(cbdata, where, VLM_CB_MSG_STRING, &msg), VLM_OK);
    r->messages.emplace_back(msg);
  }
  return 0;
}

void log_lines(const char* msg, void* usrdata) { static_cast<std::vector<std::string>*>(usrdata)->emplace_back(msg); }

class CallbackTest : public ModelFixture {
 protected:
  // A multi-dimensional 0-1 knapsack of n items and 4 resources from a fixed generator,
  // hard enough that HiGHS branches: maximise sum p_j x_j.
  void knapsack(int n) {
    unsigned s = 12345;
    auto rnd = [&] { return (s = s * 1103515245u + 12345u) >> 16 & 0x7fff; };
    for (int j = 0; j < n; ++j) {
      ASSERT_EQ(VLMaddvar(m_, 0, nullptr, nullptr, 10.0 + rnd() % 90, 0.0, 1.0, 'B', nullptr), VLM_OK);
    }
    for (int i = 0; i < 4; ++i) {
      std::vector<int> ind(n);
      std::vector<double> w(n);
      double total = 0.0;
      for (int j = 0; j < n; ++j) {
        ind[j] = j;
        w[j] = 5.0 + rnd() % 60;
        total += w[j];
      }
      row(ind, w, '<', std::floor(total / 2));
    }
    ASSERT_EQ(VLMsetintattr(m_, "ModelSense", -1), VLM_OK);
    ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  }
  // Whether x (0-1 values) satisfies every row of the model.
  bool feasible(const std::vector<double>& x) {
    int m = intattr("NumConstrs");
    for (int i = 0; i < m; ++i) {
      int nz = 0, beg = 0;
      VLMgetconstrs(m_, &nz, &beg, nullptr, nullptr, i, 1);
      std::vector<int> ind(nz);
      std::vector<double> val(nz);
      VLMgetconstrs(m_, &nz, &beg, ind.data(), val.data(), i, 1);
      double act = 0.0, rhs = 0.0;
      for (int k = 0; k < nz; ++k) act += val[k] * x[ind[k]];
      VLMgetdblattrelement(m_, "RHS", i, &rhs);
      if (act > rhs + 1e-6) return false;
    }
    for (double v : x) {
      if (std::fabs(v - std::round(v)) > 1e-6) return false;
    }
    return true;
  }
  double objective(const std::vector<double>& x) {
    double o = 0.0;
    for (std::size_t j = 0; j < x.size(); ++j) o += dblelem("Obj", static_cast<int>(j)) * x[j];
    return o;
  }
  Record rec_;
};

TEST_F(CallbackTest, RegistrationIsKeptAndRemoved) {
  VLMcallback cb = nullptr;
  ASSERT_EQ(VLMsetcallbackfunc(m_, recorder, &rec_), VLM_OK);
  ASSERT_EQ(VLMgetcallbackfunc(m_, &cb), VLM_OK);
  EXPECT_EQ(cb, &recorder);
  ASSERT_EQ(VLMsetcallbackfunc(m_, nullptr, nullptr), VLM_OK);
  ASSERT_EQ(VLMgetcallbackfunc(m_, &cb), VLM_OK);
  EXPECT_EQ(cb, nullptr);
  EXPECT_EQ(VLMsetcallbackfunc(nullptr, recorder, nullptr), VLM_ERROR_NULL_ARGUMENT);
  EXPECT_EQ(VLMgetcallbackfunc(m_, nullptr), VLM_ERROR_NULL_ARGUMENT);
  // Type and size of what codes; an unknown one is refused.
  ASSERT_EQ(VLMaddvars(m_, 3, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  int type = 0, size = 0;
  ASSERT_EQ(VLMgetcbwhatinfo(m_, VLM_CB_MIPSOL_SOL, &type, &size), VLM_OK);
  EXPECT_EQ(type, 2);
  EXPECT_EQ(size, 3);
  ASSERT_EQ(VLMgetcbwhatinfo(m_, VLM_CB_MIP_SOLCNT, &type, &size), VLM_OK);
  EXPECT_EQ(type, 1);
  EXPECT_EQ(size, 1);
  ASSERT_EQ(VLMgetcbwhatinfo(m_, VLM_CB_MSG_STRING, &type, nullptr), VLM_OK);
  EXPECT_EQ(type, 3);
  EXPECT_EQ(VLMgetcbwhatinfo(m_, 4242, &type, &size), VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "Unknown callback what code 4242");
  // cbdata that is no callback data.
  int junk[8] = {0};
  double v = 0.0;
  EXPECT_EQ(VLMcbget(junk, VLM_CB_MIP, VLM_CB_MIP_OBJBST, &v), VLM_ERROR_CALLBACK);
  EXPECT_EQ(VLMcbget(nullptr, VLM_CB_MIP, VLM_CB_MIP_OBJBST, &v), VLM_ERROR_NULL_ARGUMENT);
}

// Every MIPSOL solution is feasible with the objective MIPSOL_OBJ; every MIP_OBJBND is a valid
// bound (at least the optimum of this maximisation); wrong-place calls fail with clear texts.
TEST_F(CallbackTest, MipSearchReportsConsistentProgress) {
  knapsack(40);
  ASSERT_EQ(VLMsetcallbackfunc(m_, recorder, &rec_), VLM_OK);
  solve();
  ASSERT_FALSE(rec_.sols.empty());
  for (std::size_t k = 0; k < rec_.sols.size(); ++k) {
    EXPECT_TRUE(feasible(rec_.sols[k]));
    EXPECT_NEAR(objective(rec_.sols[k]), rec_.sol_objs[k], 1e-6);
  }
  ASSERT_FALSE(rec_.mip_bounds.empty());
  const double best = objval(), bound = dbl("ObjBound");
  for (double b : rec_.mip_bounds) {
    EXPECT_GE(b, best - 1e-6);
    EXPECT_GE(b, bound - 1e-6);
  }
  // The last solution reported is the one the model holds (or as good).
  double top = -1e100;
  for (double o : rec_.sol_objs) top = std::max(top, o);
  EXPECT_NEAR(top, best, 1e-6);
  ASSERT_GE(rec_.codes.size(), 3u);
  bool saw_lazy = false, saw_what = false, saw_where = false;
  for (std::size_t k = 0; k < rec_.codes.size(); ++k) {
    EXPECT_EQ(rec_.codes[k], VLM_ERROR_CALLBACK);
    if (rec_.errors[k].rfind("VLMcblazy needs the branch-and-cut search", 0) == 0) saw_lazy = true;
    if (rec_.errors[k] == "Callback what code 3002 belongs to where MIP and cannot be asked at where MIPSOL") saw_what = true;
    if (rec_.errors[k] == "Callback where code 4 given, but the callback was called at where 3 (MIP)") saw_where = true;
  }
  EXPECT_TRUE(saw_lazy);
  EXPECT_TRUE(saw_what);
  EXPECT_TRUE(saw_where);
  // The registration outlives the solve; the data pointer does not.
  VLMcallback cb = nullptr;
  VLMgetcallbackfunc(m_, &cb);
  EXPECT_EQ(cb, &recorder);
}

TEST_F(CallbackTest, TerminateFromCallbackKeepsIncumbent) {
  knapsack(60);
  rec_.terminate_at_sol = 1;
  ASSERT_EQ(VLMsetcallbackfunc(m_, recorder, &rec_), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  if (status() == VLM_OPTIMAL) GTEST_SKIP() << "HiGHS finished before the next interrupt poll";
  EXPECT_EQ(status(), VLM_INTERRUPTED);
  ASSERT_GE(intattr("SolCount"), 1);
  std::vector<double> x(60);
  for (int j = 0; j < 60; ++j) x[j] = this->x(j);
  EXPECT_TRUE(feasible(x));
  EXPECT_NEAR(objective(x), objval(), 1e-6);
}

// Each log line reaches the MESSAGE callback once, with the text the log callback gets.
TEST_F(CallbackTest, MessagesEqualTheLog) {
  knapsack(20);
  std::vector<std::string> log;
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "OutputFlag", 1), VLM_OK);
  ASSERT_EQ(VLMsetlogcallbackfunc(m_, log_lines, &log), VLM_OK);
  ASSERT_EQ(VLMsetcallbackfunc(m_, recorder, &rec_), VLM_OK);
  solve();
  ASSERT_GT(log.size(), 5u);
  EXPECT_EQ(rec_.messages, log);
}

// A heuristic solution (the all-zero packing, objective 0, and then the packing of item 0
// alone) is taken by HiGHS: the callback learns its objective, and the search reports it.
TEST_F(CallbackTest, HeuristicSolutionIsOffered) {
  knapsack(30);
  std::vector<double> h(30, 0.0);
  h[0] = 1.0;
  rec_.heuristic = &h;
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "Presolve", 0), VLM_OK);
  ASSERT_EQ(VLMsetcallbackfunc(m_, recorder, &rec_), VLM_OK);
  solve();
  EXPECT_NEAR(rec_.heuristic_obj, dblelem("Obj", 0), 1e-9);
  bool seen = false;
  for (double o : rec_.sol_objs) seen = seen || std::fabs(o - dblelem("Obj", 0)) < 1e-9;
  EXPECT_TRUE(seen) << "the offered solution was never reported as a MIP solution";
}

// ---- the hooks of the branch-and-cut search, driven directly ---------------------------------

struct HookScript {
  bool lazy = false, cut = false, heuristic = false, terminate = false;
  int where = -1;
  std::vector<double> rel;
  int rc_lazy = -1, rc_cut = -1, rc_rel = -1;
};

int scripted(VLMmodel* model, void* cbdata, int where, void* usrdata) {
  auto* s = static_cast<HookScript*>(usrdata);
  s->where = where;
  int ind[2] = {0, 1};
  double val[2] = {1.0, 1.0};
  if (s->lazy) s->rc_lazy = VLMcblazy(cbdata, 2, ind, val, '<', 1.0);
  if (s->cut) s->rc_cut = VLMcbcut(cbdata, 2, ind, val, '>', 0.5);
  if (where == VLM_CB_MIPNODE) {
    s->rel.assign(2, NAN);
    s->rc_rel = VLMcbget(cbdata, where, VLM_CB_MIPNODE_REL, s->rel.data());
  }
  if (s->heuristic) {
    double x[2] = {1.0, VLM_UNDEFINED};
    double obj = 0.0;
    VLMcbsolution(cbdata, x, &obj);
  }
  if (s->terminate) VLMterminate(model);
  return 0;
}

TEST_F(CallbackTest, SearchHooksCollectWhatTheCallbackAdds) {
  ASSERT_EQ(VLMaddvars(m_, 2, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  HookScript script;
  ASSERT_EQ(VLMsetcallbackfunc(m_, scripted, &script), VLM_OK);
  vlm::Model& model = *m_->model;
  vlm::callbacks::SessionScope scope(model);
  ASSERT_NE(scope.session(), nullptr);
  vlm::callbacks::SearchCallbacks hooks(*scope.session());
  vlm::algorithms::SearchProgress p;

  // MIPSOL: a lazy row is taken; a cut is refused there.
  script.lazy = script.cut = true;
  vlm::algorithms::HookReply r;
  hooks.at_solution(p, {0.0, 1.0}, 3.0, r);
  EXPECT_EQ(script.where, VLM_CB_MIPSOL);
  EXPECT_EQ(script.rc_lazy, VLM_OK);
  EXPECT_EQ(script.rc_cut, VLM_ERROR_CALLBACK);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "VLMcbcut is only allowed at where MIPNODE, not at MIPSOL");
  ASSERT_EQ(r.lazy.size(), 1u);
  EXPECT_EQ(r.lazy[0].ind, (std::vector<int>{0, 1}));
  EXPECT_EQ(r.lazy[0].sense, '<');
  EXPECT_EQ(r.lazy[0].rhs, 1.0);
  EXPECT_TRUE(r.cuts.empty());
  EXPECT_FALSE(r.terminate);

  // MIPNODE: both kinds, and the relaxation point is readable.
  vlm::algorithms::HookReply r2;
  hooks.at_node(p, VLM_OPTIMAL, {0.25, 0.75}, r2);
  EXPECT_EQ(script.rc_rel, VLM_OK);
  EXPECT_EQ(script.rel, (std::vector<double>{0.25, 0.75}));
  EXPECT_EQ(r2.lazy.size(), 1u);
  ASSERT_EQ(r2.cuts.size(), 1u);
  EXPECT_EQ(r2.cuts[0].sense, '>');
  // A node without a relaxation point: MIPNODE_REL fails with its text.
  vlm::algorithms::HookReply r3;
  script.lazy = script.cut = false;
  hooks.at_node(p, VLM_INFEASIBLE, {}, r3);
  EXPECT_EQ(script.rc_rel, VLM_ERROR_CALLBACK);
  EXPECT_STREQ(VLMgetmerrormsg(m_), "Node relaxation not available");

  // MIP: a partial heuristic solution (NaN where undefined) and a terminate.
  script.heuristic = script.terminate = true;
  vlm::algorithms::HookReply r4;
  hooks.at_progress(p, r4);
  EXPECT_EQ(script.where, VLM_CB_MIP);
  ASSERT_EQ(r4.heuristic.size(), 2u);
  EXPECT_EQ(r4.heuristic[0], 1.0);
  EXPECT_TRUE(std::isnan(r4.heuristic[1]));
  EXPECT_TRUE(r4.terminate);
}

// An inner HiGHS run of a driver, muted: no MIP or MIPSOL calls, yet the log still reaches
// MESSAGE; the session is back afterwards.
TEST_F(CallbackTest, MutedInnerRunsMakeNoWhereCalls) {
  knapsack(20);
  ASSERT_EQ(VLMsetintparam(VLMgetenv(m_), "OutputFlag", 1), VLM_OK);
  std::vector<std::string> log;
  ASSERT_EQ(VLMsetlogcallbackfunc(m_, log_lines, &log), VLM_OK);
  ASSERT_EQ(VLMsetcallbackfunc(m_, recorder, &rec_), VLM_OK);
  vlm::Model& model = *m_->model;
  vlm::callbacks::SessionScope scope(model);
  {
    vlm::callbacks::MuteScope mute(model);
    ASSERT_EQ(vlm::callbacks::active(model), nullptr);
    ASSERT_TRUE(vlm::engine::optimize(model).ok());
  }
  EXPECT_EQ(vlm::callbacks::active(model), scope.session());
  for (int w : rec_.wheres) EXPECT_EQ(w, VLM_CB_MESSAGE);
  EXPECT_FALSE(rec_.messages.empty());
  EXPECT_EQ(rec_.messages, log);
}

// Bad rows from a callback are refused with the culprit named, and nothing is added.
TEST_F(CallbackTest, SearchHooksRefuseBadRows) {
  ASSERT_EQ(VLMaddvars(m_, 2, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), VLM_OK);
  ASSERT_EQ(VLMupdatemodel(m_), VLM_OK);
  struct Bad {
    int rc[3];
    std::string msg[3];
  } bad{};
  auto fn = [](VLMmodel* model, void* cbdata, int, void* usr) {
    auto* b = static_cast<Bad*>(usr);
    int ind[1] = {5};
    double val[1] = {1.0};
    b->rc[0] = VLMcblazy(cbdata, 1, ind, val, '<', 1.0);
    b->msg[0] = VLMgetmerrormsg(model);
    ind[0] = 0;
    b->rc[1] = VLMcblazy(cbdata, 1, ind, val, 'x', 1.0);
    b->msg[1] = VLMgetmerrormsg(model);
    val[0] = NAN;
    b->rc[2] = VLMcblazy(cbdata, 1, ind, val, '<', 1.0);
    b->msg[2] = VLMgetmerrormsg(model);
    return 0;
  };
  ASSERT_EQ(VLMsetcallbackfunc(m_, fn, &bad), VLM_OK);
  vlm::callbacks::SessionScope scope(*m_->model);
  vlm::callbacks::SearchCallbacks hooks(*scope.session());
  vlm::algorithms::HookReply r;
  hooks.at_solution({}, {0.0, 0.0}, 0.0, r);
  EXPECT_EQ(bad.rc[0], VLM_ERROR_INDEX_OUT_OF_RANGE);
  EXPECT_EQ(bad.msg[0], "VLMcblazy: variable index 5 out of range [0, 2)");
  EXPECT_EQ(bad.rc[1], VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(bad.msg[1], "Invalid sense 'x' in VLMcblazy");
  EXPECT_EQ(bad.rc[2], VLM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(bad.msg[2], "VLMcblazy: coefficient of variable 0 is not finite");
  EXPECT_TRUE(r.lazy.empty());
}

}  // namespace

namespace {

// ---- multi-objective and IIS drivers ---------------------------------------------------------

struct LevelLog {
  std::vector<int> objcnt;
  std::vector<std::vector<double>> sols;
  bool stop_first_level = false;
  int stop_rc = -1;
  std::vector<std::vector<int>> iis;
};

int level_logger(VLMmodel* model, void* cbdata, int where, void* usrdata) {
  auto* L = static_cast<LevelLog*>(usrdata);
  if (where == VLM_CB_MULTIOBJ) {
    int cnt = 0, n = 0;
    EXPECT_EQ(VLMcbget(cbdata, where, VLM_CB_MULTIOBJ_OBJCNT, &cnt), VLM_OK);
    VLMgetcbwhatinfo(model, VLM_CB_MULTIOBJ_SOL, nullptr, &n);
    std::vector<double> x(n);
    EXPECT_EQ(VLMcbget(cbdata, where, VLM_CB_MULTIOBJ_SOL, x.data()), VLM_OK);
    L->objcnt.push_back(cnt);
    L->sols.push_back(x);
  } else if (where == VLM_CB_MIP && L->stop_first_level && L->objcnt.empty() && L->stop_rc != VLM_OK) {
    int sols = 0;
    VLMcbget(cbdata, where, VLM_CB_MIP_SOLCNT, &sols);
    if (sols > 0) L->stop_rc = VLMcbstoponemultiobj(model, cbdata, 0);
  } else if (where == VLM_CB_IIS) {
    std::vector<int> v(6);
    for (int k = 0; k < 6; ++k) EXPECT_EQ(VLMcbget(cbdata, where, VLM_CB_IIS_CONSTRMIN + k, &v[k]), VLM_OK);
    L->iis.push_back(v);
  }
  return 0;
}

// min -x (priority 2), then -y (priority 1), over x + y <= 10, 0 <= x, y <= 10: the first level
// gives x = 10; the second keeps x at 10 and can only have y = 0.
TEST_F(CallbackTest, MultiObjectiveLevelsAreReported) {
  ASSERT_EQ(VLMaddvars(m_, 2, 0, nullptr, nullptr, nullptr, nullptr, nullptr, std::vector<double>{10, 10}.data(),
                       nullptr, nullptr), VLM_OK);
  row({0, 1}, {1, 1}, '<', 10);
  int i0 = 0, i1 = 1;
  double minus = -1.0;
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1.0, 1e-6, 0.0, "first", 0.0, 1, &i0, &minus), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1.0, 1e-6, 0.0, "second", 0.0, 1, &i1, &minus), VLM_OK);
  LevelLog L;
  ASSERT_EQ(VLMsetcallbackfunc(m_, level_logger, &L), VLM_OK);
  solve();
  EXPECT_EQ(L.objcnt, (std::vector<int>{1, 2}));
  ASSERT_EQ(L.sols.size(), 2u);
  EXPECT_NEAR(L.sols[0][0], 10.0, 1e-6);
  EXPECT_NEAR(L.sols[1][0], 10.0, 1e-6);
  EXPECT_NEAR(L.sols[1][1], 0.0, 1e-6);
}

// A stop of the first level from its MIP callback ends that level early; the second level
// still runs (and is the one whose status the model reports).
TEST_F(CallbackTest, StopOneMultiObjMovesToTheNextLevel) {
  knapsack(60);
  std::vector<int> ind(60);
  std::vector<double> one(60, 1.0);
  std::vector<double> profit(60);
  for (int j = 0; j < 60; ++j) {
    ind[j] = j;
    profit[j] = dblelem("Obj", j);
  }
  ASSERT_EQ(VLMsetobjectiven(m_, 0, 2, 1.0, 0.0, 0.0, "profit", 0.0, 60, ind.data(), profit.data()), VLM_OK);
  ASSERT_EQ(VLMsetobjectiven(m_, 1, 1, 1.0, 0.0, 0.0, "items", 0.0, 60, ind.data(), one.data()), VLM_OK);
  LevelLog L;
  L.stop_first_level = true;
  ASSERT_EQ(VLMsetcallbackfunc(m_, level_logger, &L), VLM_OK);
  ASSERT_EQ(VLMoptimize(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_EQ(L.stop_rc, VLM_OK);
  EXPECT_EQ(L.objcnt, (std::vector<int>{1, 2}));
  EXPECT_EQ(status(), VLM_OPTIMAL);
  // The second level kept the first level's profit (its row holds it at the value reached).
  ASSERT_EQ(L.sols.size(), 2u);
  EXPECT_TRUE(feasible(L.sols[1]));
  EXPECT_GE(objective(L.sols[1]), objective(L.sols[0]) - 1e-6);
}

// x + y >= 5 with x <= 1, y <= 1 is infeasible; the IIS is the row and both upper bounds. The
// filter's counts never contradict themselves and end at what was found.
TEST_F(CallbackTest, IisProgressIsReported) {
  ASSERT_EQ(VLMaddvars(m_, 3, 0, nullptr, nullptr, nullptr, nullptr, nullptr, std::vector<double>{1, 1, 1}.data(),
                       nullptr, nullptr), VLM_OK);
  row({0, 1}, {1, 1}, '>', 5);
  row({1, 2}, {1, 1}, '<', 4);
  row({0, 2}, {1, -1}, '<', 3);
  LevelLog L;
  ASSERT_EQ(VLMsetcallbackfunc(m_, level_logger, &L), VLM_OK);
  ASSERT_EQ(VLMcomputeIIS(m_), VLM_OK) << VLMgetmerrormsg(m_);
  ASSERT_FALSE(L.iis.empty());
  for (const auto& v : L.iis) {
    EXPECT_LE(v[0], v[1]);
    EXPECT_LE(v[3], v[4]);
  }
  EXPECT_GE(L.iis.back()[1], 1);
  EXPECT_GE(L.iis.front()[1], L.iis.back()[1]);
  EXPECT_EQ(intattr("IISMinimal"), 1);
}

}  // namespace
