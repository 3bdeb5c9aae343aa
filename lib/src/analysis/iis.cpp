#include "analysis/iis.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "analysis/stop_scope.h"
#include "analysis/submodel.h"
#include "attrs/attr_table.h"
#include "callbacks/session.h"
#include "engine/engine.h"
#include "params/param_table.h"

namespace vlm::analysis {

namespace {

enum class Kind { kLB, kUB, kConstr, kQConstr, kSOS, kGen };

struct Member {
  Kind kind;
  int index;
};

enum class Outcome { kInfeasible, kFeasible, kUnknown };

// The force attribute of element i: -1 free, 0 out, 1 in (any positive value counts as in).
int force_of(const ModelData& d, int kind, const char* attr, int i) {
  const auto& cols = d.extra[kind].num;
  auto it = cols.find(find_attr(attr));
  if (it == cols.end() || i >= static_cast<int>(it->second.v.size())) return -1;
  const double v = it->second.v[i];
  return v < 0.0 ? -1 : v == 0.0 ? 0 : 1;
}

bool is_semi(char t) { return t == 'S' || t == 'N'; }

// The filter's state: the prepared model, which members are active, and the solve budget.
class Filter {
 public:
  Filter(Model& m, int method) : method_(method), stop_(m) {
    base_ = m.data();
    clear_objective(base_);
    base_.scenarios.clear();
    for (auto& x : base_.extra) x = ExtraColumns();
    const bool relax = method == 3;
    for (int j = 0; j < base_.num_vars(); ++j) {
      char& t = base_.vtype[j];
      // A binary's [0, 1] is implicit to the engine; written out, its bounds can be dropped.
      if (t == 'B') {
        t = 'I';
        base_.lb[j] = std::max(base_.lb[j], 0.0);
        base_.ub[j] = std::min(base_.ub[j], 1.0);
      }
      if (relax && t == 'I') t = 'C';
      if (relax && is_semi(t)) {
        t = 'C';
        base_.lb[j] = std::min(base_.lb[j], 0.0);
        base_.ub[j] = std::max(base_.ub[j], 0.0);
      }
    }
    lb_.assign(base_.num_vars(), 1);
    ub_.assign(base_.num_vars(), 1);
    constr_.assign(base_.num_constrs(), 1);
    qconstr_.assign(base_.num_qconstrs(), 1);
    sos_.assign(base_.num_sos(), 1);
    gen_.assign(base_.num_genconstrs(), 1);
    env_ = m.env();
    // Neither can fail: the values are within their ranges.
    (void)helper_settings(env_);
    (void)env_.set_param_int(find_param("SolutionLimit"), 1);
    const double limit = m.env().params().dbl_param("TimeLimit");
    start_ = std::chrono::steady_clock::now();
    budget_ = limit >= VLM_INFINITY ? -1.0 : limit;
  }

  // Sorts the members into forced in (never tested), forced out (dropped now) and the
  // candidates of the filter, bounds first: the filter keeps late candidates more often, and a
  // subsystem of constraints tells the user more than one of bounds.
  void classify(const ModelData& d) {
    auto sort_member = [&](Member e, int force) {
      if (force == 0) {
        set(e, false);
      } else if (force < 0) {
        candidates_.push_back(e);
      }
    };
    for (int j = 0; j < base_.num_vars(); ++j) {
      if (!bound_member(j, true)) continue;
      sort_member({Kind::kLB, j}, force_of(d, VLM_KIND_VAR, "IISLBForce", j));
    }
    for (int j = 0; j < base_.num_vars(); ++j) {
      if (!bound_member(j, false)) continue;
      sort_member({Kind::kUB, j}, force_of(d, VLM_KIND_VAR, "IISUBForce", j));
    }
    for (int i = 0; i < base_.num_constrs(); ++i) {
      sort_member({Kind::kConstr, i}, force_of(d, VLM_KIND_CONSTR, "IISConstrForce", i));
    }
    for (int i = 0; i < base_.num_qconstrs(); ++i) {
      sort_member({Kind::kQConstr, i}, force_of(d, VLM_KIND_QCONSTR, "IISQConstrForce", i));
    }
    for (int i = 0; i < base_.num_sos(); ++i) {
      sort_member({Kind::kSOS, i}, force_of(d, VLM_KIND_SOS, "IISSOSForce", i));
    }
    for (int i = 0; i < base_.num_genconstrs(); ++i) {
      sort_member({Kind::kGen, i}, force_of(d, VLM_KIND_GENCONSTR, "IISGenConstrForce", i));
    }
  }

  // A finite bound of a variable that is not semi-continuous (whose bounds are part of its
  // type); with IISMethod 2 no bound is a member.
  bool bound_member(int j, bool lower) const {
    if (method_ == 2 || is_semi(base_.vtype[j])) return false;
    return lower ? base_.lb[j] > -VLM_INFINITY : base_.ub[j] < VLM_INFINITY;
  }

  bool is_on(Member e) const {
    switch (e.kind) {
      case Kind::kLB: return lb_[e.index] != 0;
      case Kind::kUB: return ub_[e.index] != 0;
      case Kind::kConstr: return constr_[e.index] != 0;
      case Kind::kQConstr: return qconstr_[e.index] != 0;
      case Kind::kSOS: return sos_[e.index] != 0;
      case Kind::kGen: return gen_[e.index] != 0;
    }
    return false;
  }
  static int count_on(const std::vector<char>& v) { return static_cast<int>(std::count(v.begin(), v.end(), 1)); }

  void set(Member e, bool on) {
    const char v = on ? 1 : 0;
    switch (e.kind) {
      case Kind::kLB: lb_[e.index] = v; break;
      case Kind::kUB: ub_[e.index] = v; break;
      case Kind::kConstr: constr_[e.index] = v; break;
      case Kind::kQConstr: qconstr_[e.index] = v; break;
      case Kind::kSOS: sos_[e.index] = v; break;
      case Kind::kGen: gen_[e.index] = v; break;
    }
  }

  bool time_up() const { return (budget_ >= 0.0 && elapsed() >= budget_) || stop_.stopped(); }
  bool interrupted() const { return stop_.stopped(); }

  // The active subsystem as a model of its own.
  ModelData active() const {
    ModelData sub = base_;
    for (int j = 0; j < sub.num_vars(); ++j) {
      if (!lb_[j]) sub.lb[j] = -VLM_INFINITY;
      if (!ub_[j]) sub.ub[j] = VLM_INFINITY;
    }
    keep_constraints(sub, constr_, qconstr_, sos_, gen_);
    return sub;
  }

  // Solves `sub` within the time left; the solved model.
  StatusOr<std::unique_ptr<Model>> solve(ModelData sub, bool certificate) {
    VLM_ASSIGN_OR_RETURN(std::unique_ptr<Model> sm, model_from_data(env_, std::move(sub)));
    if (budget_ >= 0.0) {
      const double left = std::max(budget_ - elapsed(), 0.0);
      VLM_RETURN_IF_ERROR(sm->env().set_param_dbl(find_param("TimeLimit"), left));
    }
    if (certificate) VLM_RETURN_IF_ERROR(sm->env().set_param_int(find_param("InfUnbdInfo"), 1));
    stop_.set_current(sm.get());
    Status solved = engine::optimize(*sm);
    stop_.set_current(nullptr);
    VLM_RETURN_IF_ERROR(solved);
    ++solves_;
    return sm;
  }

  // Shrinks the candidates at once with a Farkas certificate y of the linear relaxation of the
  // active system: rows with y_i = 0 and bounds that z = A'y does not use (the lower bound of
  // x_j when z_j > 0, the upper when z_j < 0) play no part in that proof of infeasibility. The
  // reduced system is checked by a solve and kept only when it is infeasible. Only for systems
  // of linear rows and bounds; true when it reduced the candidates.
  StatusOr<bool> farkas_prefilter() {
    if (method_ == 1) return false;  // single members only, in their order
    if (base_.num_qconstrs() + base_.num_sos() + base_.num_genconstrs() > 0) return false;
    std::vector<int> rows;  // active row positions in the sub-model's order
    for (int i = 0; i < base_.num_constrs(); ++i) {
      if (constr_[i]) rows.push_back(i);
    }
    ModelData relaxed = active();
    for (int j = 0; j < relaxed.num_vars(); ++j) {
      char& t = relaxed.vtype[j];
      if (is_semi(t)) {
        relaxed.lb[j] = std::min(relaxed.lb[j], 0.0);
        relaxed.ub[j] = std::max(relaxed.ub[j], 0.0);
      }
      t = 'C';
    }
    VLM_ASSIGN_OR_RETURN(std::unique_ptr<Model> sm, solve(std::move(relaxed), true));
    const Solution* s = sm->solution();
    if (s == nullptr || s->status != VLM_INFEASIBLE || s->farkas_dual.size() != rows.size()) return false;
    const std::vector<double>& y = s->farkas_dual;
    double ymax = 0.0;
    for (double v : y) ymax = std::max(ymax, std::fabs(v));
    if (ymax == 0.0) return false;
    const double tiny = 1e-9 * ymax;
    std::vector<double> z(base_.num_vars(), 0.0);
    std::vector<char> use_row(base_.num_constrs(), 0);
    for (std::size_t k = 0; k < rows.size(); ++k) {
      if (std::fabs(y[k]) <= tiny) continue;
      use_row[rows[k]] = 1;
      const Row& r = base_.rows[rows[k]];
      for (std::size_t t = 0; t < r.ind.size(); ++t) z[r.ind[t]] += y[k] * r.val[t];
    }
    double zmax = 0.0;
    for (double v : z) zmax = std::max(zmax, std::fabs(v));
    const double ztiny = 1e-9 * std::max(zmax, 1.0);
    auto used = [&](const Member& e) {
      switch (e.kind) {
        case Kind::kLB: return z[e.index] > ztiny;
        case Kind::kUB: return z[e.index] < -ztiny;
        case Kind::kConstr: return use_row[e.index] != 0;
        default: return true;
      }
    };
    std::vector<Member> kept, dropped;
    for (const Member& e : candidates_) (used(e) ? kept : dropped).push_back(e);
    if (dropped.empty()) return false;
    for (const Member& e : dropped) set(e, false);
    VLM_ASSIGN_OR_RETURN(Outcome o, test());
    if (o != Outcome::kInfeasible) {
      for (const Member& e : dropped) set(e, true);
      return false;
    }
    candidates_ = std::move(kept);
    return true;
  }

  // Solves the active subsystem.
  StatusOr<Outcome> test() {
    VLM_ASSIGN_OR_RETURN(std::unique_ptr<Model> sm, solve(active(), false));
    const Solution* s = sm->solution();
    if (s == nullptr) return Outcome::kUnknown;
    // Without an objective nothing is unbounded, so "infeasible or unbounded" is infeasible.
    if (s->status == VLM_INFEASIBLE || s->status == VLM_INF_OR_UNBD) return Outcome::kInfeasible;
    if (s->sol_count > 0 || s->status == VLM_OPTIMAL || s->status == VLM_UNBOUNDED) {
      return Outcome::kFeasible;
    }
    return Outcome::kUnknown;
  }

  // Where the filter stands, for an IIS callback: constraints and bounds known to be in the
  // subsystem (min: active and no longer tested), still possibly in (max: active), and the
  // current candidate's size (guess: the active set).
  callbacks::Point progress(int i) const {
    callbacks::Point p;
    auto is_bound = [](Kind k) { return k == Kind::kLB || k == Kind::kUB; };
    int cmax = count_on(constr_) + count_on(qconstr_) + count_on(sos_) + count_on(gen_);
    int bmax = count_on(lb_) + count_on(ub_);
    int copen = 0, bopen = 0;
    for (std::size_t t = i; t < candidates_.size(); ++t) {
      if (!is_on(candidates_[t])) continue;
      (is_bound(candidates_[t].kind) ? bopen : copen) += 1;
    }
    p.iis[0] = cmax - copen;
    p.iis[1] = cmax;
    p.iis[2] = cmax;
    p.iis[3] = bmax - bopen;
    p.iis[4] = bmax;
    p.iis[5] = bmax;
    return p;
  }

  // The deletion filter over the candidates (see iis.h); `cb` (may be null) is called at
  // where IIS before each test.
  Status run(callbacks::Session* cb) {
    const int n = static_cast<int>(candidates_.size());
    const bool singles = method_ == 1;
    int group = singles ? 1 : std::max(1, n / 8);
    int i = 0;
    while (i < n) {
      if (cb != nullptr) cb->call(VLM_CB_IIS, progress(i));
      if (time_up()) {
        minimal_ = false;
        break;
      }
      const int k = std::min(group, n - i);
      for (int t = i; t < i + k; ++t) set(candidates_[t], false);
      VLM_ASSIGN_OR_RETURN(Outcome o, test());
      if (o == Outcome::kInfeasible) {
        i += k;
        if (!singles) group = std::min(2 * group, std::max(n, 1));
        continue;
      }
      for (int t = i; t < i + k; ++t) set(candidates_[t], true);
      if (k == 1) {
        if (o == Outcome::kUnknown) minimal_ = false;
        ++i;
      } else {
        group = std::max(1, k / 2);
      }
    }
    return Status::Ok();
  }

  std::unique_ptr<IISResult> result() const {
    auto r = std::make_unique<IISResult>();
    const int n = base_.num_vars();
    r->lb.assign(n, 0);
    r->ub.assign(n, 0);
    for (int j = 0; j < n; ++j) {
      r->lb[j] = lb_[j] && bound_member(j, true);
      r->ub[j] = ub_[j] && bound_member(j, false);
    }
    r->constr = constr_;
    r->qconstr = qconstr_;
    r->sos = sos_;
    r->genconstr = gen_;
    r->minimal = minimal_;
    r->solves = solves_;
    return r;
  }

  double elapsed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  int method_;
  StopScope stop_;
  ModelData base_;
  Env env_;
  std::vector<char> lb_, ub_, constr_, qconstr_, sos_, gen_;
  std::vector<Member> candidates_;
  std::chrono::steady_clock::time_point start_;
  double budget_ = -1.0;
  bool minimal_ = true;
  int solves_ = 0;
};

struct SolvingScope {
  Model& m;
  explicit SolvingScope(Model& model) : m(model) { m.set_solving(true); }
  ~SolvingScope() { m.set_solving(false); }
};

int count(const std::vector<char>& v) { return static_cast<int>(std::count(v.begin(), v.end(), 1)); }

}  // namespace

Status compute_iis(Model& m) {
  VLM_RETURN_IF_ERROR(m.update());
  m.set_iis(nullptr);
  int method = m.env().params().int_param("IISMethod");
  if (method == 3 && !is_mip(m.data())) method = -1;
  SolvingScope solving(m);
  callbacks::SessionScope session(m);
  Filter f(m, method);
  f.classify(m.data());
  VLM_ASSIGN_OR_RETURN(Outcome first, f.test());
  if (first == Outcome::kFeasible) {
    return Status(VLM_ERROR_IIS_NOT_INFEASIBLE, "Can't compute an IIS on a feasible model");
  }
  if (first == Outcome::kUnknown) {
    if (f.interrupted()) {
      return Status(VLM_ERROR_DATA_NOT_AVAILABLE,
                    "The IIS computation was interrupted before the model was shown to be "
                    "infeasible");
    }
    if (f.time_up()) {
      return Status(VLM_ERROR_DATA_NOT_AVAILABLE,
                    "The IIS computation reached the time limit before the model was shown to "
                    "be infeasible");
    }
    return Status(VLM_ERROR_NUMERIC,
                  "The IIS computation could not decide whether the model is feasible");
  }
  VLM_ASSIGN_OR_RETURN(bool reduced, f.farkas_prefilter());
  (void)reduced;
  VLM_RETURN_IF_ERROR(f.run(session.session()));
  std::unique_ptr<IISResult> r = f.result();
  m.env().message("IIS computed: " + std::to_string(count(r->constr)) + " constraints, " +
                  std::to_string(count(r->lb) + count(r->ub)) + " bounds, " +
                  std::to_string(count(r->qconstr) + count(r->sos) + count(r->genconstr)) +
                  " other constraints; " + (r->minimal ? "minimal" : "not minimal") + ", " +
                  std::to_string(r->solves) + " solves, " + std::to_string(f.elapsed()) + " seconds");
  m.set_iis(std::move(r));
  return Status::Ok();
}

ModelData iis_submodel(const Model& m) {
  const IISResult& r = *m.iis();
  ModelData d = m.data();
  clear_objective(d);
  for (auto& x : d.extra) x = ExtraColumns();
  keep_constraints(d, r.constr, r.qconstr, r.sos, r.genconstr);
  std::vector<char> used(d.num_vars(), 0);
  for (int j = 0; j < d.num_vars(); ++j) {
    // Bounds as the filter saw them: a binary's written out, a semi-continuous variable's
    // kept (they belong to its type).
    if (d.vtype[j] == 'B') {
      d.vtype[j] = 'I';
      d.lb[j] = std::max(d.lb[j], 0.0);
      d.ub[j] = std::min(d.ub[j], 1.0);
    }
    if (is_semi(d.vtype[j])) continue;
    if (!r.lb[j]) d.lb[j] = -VLM_INFINITY;
    if (!r.ub[j]) d.ub[j] = VLM_INFINITY;
    used[j] = r.lb[j] || r.ub[j];
  }
  for (const Row& row : d.rows) {
    for (int v : row.ind) used[v] = 1;
  }
  for (const QConstrData& q : d.qconstrs) {
    for (int v : q.lind) used[v] = 1;
    for (int v : q.qrow) used[v] = 1;
    for (int v : q.qcol) used[v] = 1;
  }
  for (const SosData& s : d.sos) {
    for (int v : s.ind) used[v] = 1;
  }
  for (const GenConstrData& g : d.genconstrs) {
    if (g.res >= 0) used[g.res] = 1;
    if (g.arg >= 0) used[g.arg] = 1;
    for (int v : g.vars) used[v] = 1;
  }
  keep_vars(d, used);
  return d;
}

}  // namespace vlm::analysis
