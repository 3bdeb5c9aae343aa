#include "attrs/attr_engine.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <unordered_map>

#include "core/text.h"
#include "engine/engine.h"
#include "engine/solution_quality.h"

namespace vlm {

namespace {

using Getter = Status (*)(Model&, int elem, AttrValue&, const AttrDef&);
using Setter = Status (*)(Model&, int elem, const AttrValue&);

struct Binding {
  const char* name;
  Getter get;
  Setter set;
};

bool has_x(const Solution* s) { return s->sol_count > 0; }

Status unavailable(const char* name) {
  return Status(VLM_ERROR_DATA_NOT_AVAILABLE, std::string("Unable to retrieve attribute '") + name + "'");
}

Status invalid(std::string msg) { return Status(VLM_ERROR_INVALID_ARGUMENT, std::move(msg)); }

Status check_finite(const char* attr, double v) {
  if (!std::isfinite(v) || std::fabs(v) >= VLM_INFINITY) {
    return invalid(std::string("Value for attribute '") + attr + "' must be a finite number");
  }
  return Status::Ok();
}

Status check_sense(const char* attr, char s) {
  if (s == '<' || s == '>' || s == '=') return Status::Ok();
  return invalid(std::string("Invalid value for attribute '") + attr + "': expected '<', '>' or '='");
}

// ---- statistics --------------------------------------------------------------------------

struct Range {
  double lo = 0.0, hi = 0.0;
  bool any = false;
  void add(double v) {
    v = std::fabs(v);
    if (v == 0.0 || v >= VLM_INFINITY) return;
    if (!any) {
      lo = hi = v;
      any = true;
    } else {
      lo = std::min(lo, v);
      hi = std::max(hi, v);
    }
  }
};

template <class F>
Range range_of(F&& fill) {
  Range r;
  fill(r);
  return r;
}

Range coeff_range(const ModelData& d) {
  return range_of([&](Range& r) {
    for (const Row& row : d.rows)
      for (double v : row.val) r.add(v);
  });
}
Range bound_range(const ModelData& d) {
  return range_of([&](Range& r) {
    for (double v : d.lb) r.add(v);
    for (double v : d.ub) r.add(v);
  });
}
Range obj_range(const ModelData& d) {
  return range_of([&](Range& r) {
    for (double v : d.obj) r.add(v);
  });
}
Range rhs_range(const ModelData& d) {
  return range_of([&](Range& r) {
    for (double v : d.rhs) r.add(v);
  });
}
Range qc_range(const ModelData& d) {
  return range_of([&](Range& r) {
    for (const auto& q : d.qconstrs)
      for (double v : q.qval) r.add(v);
  });
}
Range qcl_range(const ModelData& d) {
  return range_of([&](Range& r) {
    for (const auto& q : d.qconstrs)
      for (double v : q.lval) r.add(v);
  });
}
Range qcrhs_range(const ModelData& d) {
  return range_of([&](Range& r) {
    for (const auto& q : d.qconstrs) r.add(q.rhs);
  });
}
Range qobj_range(const ModelData& d) {
  return range_of([&](Range& r) {
    for (double v : d.qval) r.add(v);
  });
}

std::uint64_t fingerprint(const ModelData& d) {
  std::uint64_t h = 1469598103934665603ull;
  auto mix = [&](const void* p, std::size_t n) {
    const unsigned char* b = static_cast<const unsigned char*>(p);
    for (std::size_t k = 0; k < n; ++k) h = (h ^ b[k]) * 1099511628211ull;
  };
  auto mixv = [&](const auto& v) {
    if (!v.empty()) mix(v.data(), v.size() * sizeof(v[0]));
  };
  mixv(d.lb);
  mixv(d.ub);
  mixv(d.obj);
  mixv(d.vtype);
  mixv(d.csense);
  mixv(d.rhs);
  for (const Row& r : d.rows) {
    mixv(r.ind);
    mixv(r.val);
  }
  mixv(d.qrow);
  mixv(d.qcol);
  mixv(d.qval);
  mix(&d.sense, sizeof d.sense);
  mix(&d.objcon, sizeof d.objcon);
  return h;
}

double mem_estimate_gb(const ModelData& d) {
  double bytes = d.num_vars() * 57.0 + d.num_constrs() * 90.0;
  for (const Row& r : d.rows) bytes += r.ind.size() * 12.0;
  bytes += d.qval.size() * 16.0;
  return bytes / 1e9;
}

// ---- selection of the current objective and scenario -------------------------------------------

ObjectiveN* current_obj(Model& m) {
  int k = m.env().params().int_param("ObjNumber");
  auto& objn = const_cast<ModelData&>(m.data()).objn;
  return k < static_cast<int>(objn.size()) ? &objn[k] : nullptr;
}

const Scenario* current_scenario(Model& m) {
  int k = m.env().params().int_param("ScenarioNumber");
  const auto& sc = m.data().scenarios;
  return k < static_cast<int>(sc.size()) ? &sc[k] : nullptr;
}

Status no_objective(Model& m) {
  return Status(VLM_ERROR_INDEX_OUT_OF_RANGE,
                "Objective " + std::to_string(m.env().params().int_param("ObjNumber")) +
                    " does not exist (NumObj is " + std::to_string(m.data().objn.size()) + ")");
}

Status no_scenario(Model& m) {
  return Status(VLM_ERROR_INDEX_OUT_OF_RANGE,
                "Scenario " + std::to_string(m.env().params().int_param("ScenarioNumber")) +
                    " does not exist (NumScenarios is " + std::to_string(m.data().scenarios.size()) +
                    ")");
}

// Queues `fn(ModelData&)` for the objective selected now (the selection may change before
// the update).
template <class F>
Status queue_objn(Model& m, F fn) {
  int k = m.env().params().int_param("ObjNumber");
  m.queue_change([k, fn](ModelData& d) {
    if (k < static_cast<int>(d.objn.size())) fn(d.objn[k]);
  });
  return Status::Ok();
}

template <class F>
Status queue_scenario(Model& m, F fn) {
  int k = m.env().params().int_param("ScenarioNumber");
  m.queue_change([k, fn](ModelData& d) {
    if (k < static_cast<int>(d.scenarios.size())) fn(d.scenarios[k]);
  });
  return Status::Ok();
}

double scen_value(const std::map<int, double>& m, int elem) {
  auto it = m.find(elem);
  return it == m.end() ? VLM_UNDEFINED : it->second;
}

// Function-constraint options: the attribute column wins, then the constraint's options text,
// then -1 (follow the parameter).
double option_value(const GenConstrData& g, const char* key) {
  std::string low = to_lower(g.options), k = to_lower(key);
  std::size_t pos = 0;
  while ((pos = low.find(k + "=", pos)) != std::string::npos) {
    bool start = pos == 0 || low[pos - 1] == ' ' || low[pos - 1] == ',' || low[pos - 1] == '\t';
    if (start) {
      std::size_t b = pos + k.size() + 1, e = low.find_first_of(" ,\t", b);
      auto v = parse_double(low.substr(b, e == std::string::npos ? std::string::npos : e - b));
      if (v) return *v;
    }
    pos += k.size();
  }
  return -1.0;
}

Status func_option(Model& m, int elem, AttrValue& out, const char* key) {
  int attr = find_attr(key);
  const auto& extra = m.data().extra[VLM_KIND_GENCONSTR].num;
  auto it = extra.find(attr);
  if (it != extra.end() && it->second.v[elem] != -1.0) {
    out.num = it->second.v[elem];
  } else {
    out.num = option_value(m.data().genconstrs[elem], key);
  }
  return Status::Ok();
}

// Results of the objective selected by ObjNumber (in the scenario selected by ScenarioNumber
// when the last solve had scenarios) and of the scenario selected by ScenarioNumber in the
// last solve; unavailable when that solve had no multiple objectives or
// scenarios (or found no solution), out of range when nothing is selected.
Status objn_result(Model& m, AttrValue& o, const AttrDef& def) {
  if (current_obj(m) == nullptr) return no_objective(m);
  const Solution* sol = m.solution();
  const std::size_t k = static_cast<std::size_t>(m.env().params().int_param("ObjNumber"));
  if (sol == nullptr) return unavailable(def.name);
  // After a solve with scenarios the value is that of the scenario ScenarioNumber selects.
  const std::vector<double>* vals = &sol->objn_val;
  if (!sol->scenarios.empty()) {
    const std::size_t s = static_cast<std::size_t>(m.env().params().int_param("ScenarioNumber"));
    if (s >= sol->scenarios.size()) return no_scenario(m);
    vals = &sol->scenarios[s].objn_val;
  }
  if (k >= vals->size()) return unavailable(def.name);
  o.num = (*vals)[k];
  return Status::Ok();
}

StatusOr<const ScenarioResult*> scenario_result(Model& m, const AttrDef& def) {
  if (current_scenario(m) == nullptr) return no_scenario(m);
  const Solution* sol = m.solution();
  const std::size_t k = static_cast<std::size_t>(m.env().params().int_param("ScenarioNumber"));
  if (sol == nullptr || k >= sol->scenarios.size()) return unavailable(def.name);
  return &sol->scenarios[k];
}

#define G(expr) [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { (void)m; (void)e; expr; return Status::Ok(); }
// A result of the last solve, available when `cond` holds for its Solution `sol`.
#define S(cond, expr)                                                                \
  [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status {                                      \
    (void)e;                                                                         \
    const Solution* sol = m.solution();                                              \
    if (sol == nullptr || !(cond)) return unavailable(def.name);   \
    expr;                                                                            \
    return Status::Ok();                                                             \
  }
#define D m.data()
// A result of the last computeIIS, available while the model is unchanged since.
#define IIS(expr)                                                                    \
  [](Model& m, int e, AttrValue& o, const AttrDef& def) -> Status {                  \
    (void)e;                                                                         \
    const IISResult* iis = m.iis();                                                  \
    if (iis == nullptr) return unavailable(def.name);                                \
    expr;                                                                            \
    return Status::Ok();                                                             \
  }

// A sensitivity range of the last LP solve.
#define SA(member)                                                                       \
  [](Model& m, int e, AttrValue& o, const AttrDef& def) -> Status {                      \
    const Solution* sol = m.solution();                                                  \
    const Sensitivity* sa = sol ? engine::sensitivity(m.data(), *sol) : nullptr;         \
    if (sa == nullptr) return unavailable(def.name);                                     \
    o.num = sa->member[e];                                                               \
    return Status::Ok();                                                                 \
  }

// Model attribute getters and setters. A setter validates, then queues.
const Binding kBindings[] = {
    // ---- model: counts and flags
    {"NumVars", G(o.num = D.num_vars()), nullptr},
    {"NumConstrs", G(o.num = D.num_constrs()), nullptr},
    {"NumSOS", G(o.num = D.num_sos()), nullptr},
    {"NumQConstrs", G(o.num = D.num_qconstrs()), nullptr},
    {"NumGenConstrs", G(o.num = D.num_genconstrs()), nullptr},
    {"NumNZs", G(std::size_t n = 0; for (const Row& r : D.rows) n += r.ind.size(); o.num = static_cast<double>(n)), nullptr},
    {"DNumNZs", G(std::size_t n = 0; for (const Row& r : D.rows) n += r.ind.size(); o.num = static_cast<double>(n)), nullptr},
    {"NumQNZs", G(o.num = static_cast<double>(D.qval.size())), nullptr},
    {"NumQCNZs", G(std::size_t n = 0; for (const auto& q : D.qconstrs) n += q.qval.size(); o.num = static_cast<double>(n)), nullptr},
    {"NumIntVars", G(o.num = static_cast<double>(std::count_if(D.vtype.begin(), D.vtype.end(), [](char t) { return t == 'B' || t == 'I' || t == 'N'; }))), nullptr},
    {"NumBinVars", G(o.num = static_cast<double>(std::count(D.vtype.begin(), D.vtype.end(), 'B'))), nullptr},
    {"NumPWLObjVars", G(o.num = static_cast<double>(D.pwlobj.size())), nullptr},
    {"IsMIP", G(o.num = (D.num_sos() > 0 || D.num_genconstrs() > 0 || std::any_of(D.vtype.begin(), D.vtype.end(), [](char t) { return t != 'C'; })) ? 1 : 0), nullptr},
    {"IsQP", G(o.num = D.qval.empty() ? 0 : 1), nullptr},
    {"IsQCP", G(o.num = D.qconstrs.empty() ? 0 : 1), nullptr},
    {"IsMultiObj", G(o.num = D.objn.size() > 1 ? 1 : 0), nullptr},
    {"Fingerprint", G(o.num = static_cast<double>(static_cast<std::int32_t>(fingerprint(D) & 0x7fffffff))), nullptr},
    {"LicenseExpiration", G(o.num = 99999999), nullptr},
    {"MemUsed", G(o.num = mem_estimate_gb(D)), nullptr},
    {"MaxMemUsed", G(o.num = mem_estimate_gb(D)), nullptr},
    {"JobID", G(o.str = ""), nullptr},
    {"Server", G(o.str = ""), nullptr},
    {"Status", G(o.num = m.solution() ? m.solution()->status : VLM_LOADED), nullptr},
    {"SolCount", G(o.num = m.solution() ? m.solution()->sol_count : 0), nullptr},
    // ---- results of the last solve
    {"ObjVal", S(has_x(sol), o.num = sol->objval), nullptr},
    {"ObjBound", S(sol->is_mip && sol->status != VLM_LOADED, o.num = sol->objbound), nullptr},
    {"ObjBoundC", S(sol->is_mip && sol->status != VLM_LOADED, o.num = sol->objbound), nullptr},
    {"MIPGap", S(sol->is_mip && has_x(sol), o.num = sol->mipgap), nullptr},
    {"Runtime", S(true, o.num = sol->runtime), nullptr},
    {"Work", S(true, o.num = sol->work), nullptr},
    {"IterCount", S(true, o.num = sol->itercount), nullptr},
    {"BarIterCount", S(true, o.num = sol->baritercount), nullptr},
    {"NodeCount", S(sol->is_mip, o.num = sol->nodecount), nullptr},
    {"ConcurrentWinMethod", S(true, o.num = sol->concurrent_win_method), nullptr},
    {"X", S(has_x(sol), o.num = sol->x[e]), nullptr},
    {"Xn", [](Model& m, int e, AttrValue& o, const AttrDef& def) -> Status {
       const Solution* sol = m.solution();
       const int k = m.env().params().int_param("SolutionNumber");
       if (sol == nullptr || !has_x(sol)) return unavailable(def.name);
       if (sol->pool_x.empty() && k == 0) {
         o.num = sol->x[e];  // a continuous model's one solution
       } else if (k < static_cast<int>(sol->pool_x.size())) {
         o.num = sol->pool_x[k][e];
       } else {
         return unavailable(def.name);
       }
       return Status::Ok();
     }, nullptr},
    {"PoolObjBound", S(sol->is_mip && sol->status != VLM_LOADED, o.num = sol->pool_objbound.value_or(sol->objbound)), nullptr},
    {"PoolObjVal", [](Model& m, int, AttrValue& o, const AttrDef& def) -> Status {
       const Solution* sol = m.solution();
       const int k = m.env().params().int_param("SolutionNumber");
       if (sol == nullptr || !has_x(sol)) return unavailable(def.name);
       if (sol->pool_obj.empty() && k == 0) {
         o.num = sol->objval;
       } else if (k < static_cast<int>(sol->pool_obj.size())) {
         o.num = sol->pool_obj[k];
       } else {
         return unavailable(def.name);
       }
       return Status::Ok();
     }, nullptr},
    {"RC", S(sol->has_duals, o.num = sol->rc[e]), nullptr},
    {"Pi", S(sol->has_duals, o.num = sol->pi[e]), nullptr},
    {"Slack", S(has_x(sol), o.num = sol->slack[e]), nullptr},
    {"QCSlack", S(has_x(sol) && !sol->qc_slack.empty(), o.num = sol->qc_slack[e]), nullptr},
    {"QCPi", S(sol->has_duals && !sol->qc_pi.empty(), o.num = sol->qc_pi[e]), nullptr},
    {"VBasis", S(sol->has_basis, o.num = sol->vbasis[e]), nullptr},
    {"SAObjLow", SA(obj_lo), nullptr},
    {"SAObjUp", SA(obj_up), nullptr},
    {"SALBLow", SA(lb_lo), nullptr},
    {"SALBUp", SA(lb_up), nullptr},
    {"SAUBLow", SA(ub_lo), nullptr},
    {"SAUBUp", SA(ub_up), nullptr},
    {"SARHSLow", SA(rhs_lo), nullptr},
    {"SARHSUp", SA(rhs_up), nullptr},
    {"UnbdRay", S(!sol->unbd_ray.empty(), o.num = sol->unbd_ray[e]), nullptr},
    {"FarkasDual", S(!sol->farkas_dual.empty(), o.num = sol->farkas_dual[e]), nullptr},
    {"FarkasProof", S(!sol->farkas_dual.empty(), o.num = sol->farkas_proof), nullptr},
    {"TuneResultCount", [](Model& m, int, AttrValue& o, const AttrDef& def) -> Status {
       if (m.tune_results() == nullptr) return unavailable(def.name);
       o.num = static_cast<double>(m.tune_results()->size());
       return Status::Ok();
     }, nullptr},
    {"IISMinimal", IIS(o.num = iis->minimal ? 1 : 0), nullptr},
    {"IISLB", IIS(o.num = iis->lb[e]), nullptr},
    {"IISUB", IIS(o.num = iis->ub[e]), nullptr},
    {"IISConstr", IIS(o.num = iis->constr[e]), nullptr},
    {"IISQConstr", IIS(o.num = iis->qconstr[e]), nullptr},
    {"IISSOS", IIS(o.num = iis->sos[e]), nullptr},
    {"IISGenConstr", IIS(o.num = iis->genconstr[e]), nullptr},
    // ---- solution quality against the user's model
    {"BoundVio", S(has_x(sol), o.num = solution_quality(D, *sol).bound.max), nullptr},
    {"BoundVioIndex", S(has_x(sol), o.num = solution_quality(D, *sol).bound.index), nullptr},
    {"BoundVioSum", S(has_x(sol), o.num = solution_quality(D, *sol).bound.sum), nullptr},
    {"BoundSVio", S(has_x(sol), o.num = solution_quality(D, *sol).bound.max), nullptr},
    {"BoundSVioIndex", S(has_x(sol), o.num = solution_quality(D, *sol).bound.index), nullptr},
    {"BoundSVioSum", S(has_x(sol), o.num = solution_quality(D, *sol).bound.sum), nullptr},
    {"ConstrVio", S(has_x(sol), o.num = solution_quality(D, *sol).constr.max), nullptr},
    {"ConstrVioIndex", S(has_x(sol), o.num = solution_quality(D, *sol).constr.index), nullptr},
    {"ConstrVioSum", S(has_x(sol), o.num = solution_quality(D, *sol).constr.sum), nullptr},
    {"ConstrSVio", S(has_x(sol), o.num = solution_quality(D, *sol).constr.max), nullptr},
    {"ConstrSVioIndex", S(has_x(sol), o.num = solution_quality(D, *sol).constr.index), nullptr},
    {"ConstrSVioSum", S(has_x(sol), o.num = solution_quality(D, *sol).constr.sum), nullptr},
    {"ConstrResidual", S(has_x(sol), o.num = solution_quality(D, *sol).residual.max), nullptr},
    {"ConstrResidualIndex", S(has_x(sol), o.num = solution_quality(D, *sol).residual.index), nullptr},
    {"ConstrResidualSum", S(has_x(sol), o.num = solution_quality(D, *sol).residual.sum), nullptr},
    {"ConstrSResidual", S(has_x(sol), o.num = solution_quality(D, *sol).residual.max), nullptr},
    {"ConstrSResidualIndex", S(has_x(sol), o.num = solution_quality(D, *sol).residual.index), nullptr},
    {"ConstrSResidualSum", S(has_x(sol), o.num = solution_quality(D, *sol).residual.sum), nullptr},
    {"IntVio", S(has_x(sol), o.num = solution_quality(D, *sol).integrality.max), nullptr},
    {"IntVioIndex", S(has_x(sol), o.num = solution_quality(D, *sol).integrality.index), nullptr},
    {"IntVioSum", S(has_x(sol), o.num = solution_quality(D, *sol).integrality.sum), nullptr},
    {"DualVio", S(sol->has_duals, o.num = solution_quality(D, *sol).dual.max), nullptr},
    {"DualVioIndex", S(sol->has_duals, o.num = solution_quality(D, *sol).dual.index), nullptr},
    {"DualVioSum", S(sol->has_duals, o.num = solution_quality(D, *sol).dual.sum), nullptr},
    {"DualSVio", S(sol->has_duals, o.num = solution_quality(D, *sol).dual.max), nullptr},
    {"DualSVioIndex", S(sol->has_duals, o.num = solution_quality(D, *sol).dual.index), nullptr},
    {"DualSVioSum", S(sol->has_duals, o.num = solution_quality(D, *sol).dual.sum), nullptr},
    {"DualResidual", S(sol->has_duals, o.num = solution_quality(D, *sol).dual_residual.max), nullptr},
    {"DualResidualIndex", S(sol->has_duals, o.num = solution_quality(D, *sol).dual_residual.index), nullptr},
    {"DualResidualSum", S(sol->has_duals, o.num = solution_quality(D, *sol).dual_residual.sum), nullptr},
    {"DualSResidual", S(sol->has_duals, o.num = solution_quality(D, *sol).dual_residual.max), nullptr},
    {"DualSResidualIndex", S(sol->has_duals, o.num = solution_quality(D, *sol).dual_residual.index), nullptr},
    {"DualSResidualSum", S(sol->has_duals, o.num = solution_quality(D, *sol).dual_residual.sum), nullptr},
    {"ComplVio", S(sol->has_duals, o.num = solution_quality(D, *sol).compl_.max), nullptr},
    {"ComplVioIndex", S(sol->has_duals, o.num = solution_quality(D, *sol).compl_.index), nullptr},
    {"ComplVioSum", S(sol->has_duals, o.num = solution_quality(D, *sol).compl_.sum), nullptr},
    {"CBasis", S(sol->has_basis, o.num = sol->cbasis[e]), nullptr},
    {"NumStart", G(o.num = 1),
     [](Model&, int, const AttrValue& v) -> Status {
       if (v.num != 1) return Status(VLM_ERROR_NOT_SUPPORTED, "Velmor keeps one MIP start per model");
       return Status::Ok();
     }},
    // ---- model: coefficient statistics
    {"MinCoeff", G(o.num = coeff_range(D).lo), nullptr},
    {"MaxCoeff", G(o.num = coeff_range(D).hi), nullptr},
    {"MinBound", G(o.num = bound_range(D).lo), nullptr},
    {"MaxBound", G(o.num = bound_range(D).hi), nullptr},
    {"MinObjCoeff", G(o.num = obj_range(D).lo), nullptr},
    {"MaxObjCoeff", G(o.num = obj_range(D).hi), nullptr},
    {"MinRHS", G(o.num = rhs_range(D).lo), nullptr},
    {"MaxRHS", G(o.num = rhs_range(D).hi), nullptr},
    {"MinQCCoeff", G(o.num = qc_range(D).lo), nullptr},
    {"MaxQCCoeff", G(o.num = qc_range(D).hi), nullptr},
    {"MinQCLCoeff", G(o.num = qcl_range(D).lo), nullptr},
    {"MaxQCLCoeff", G(o.num = qcl_range(D).hi), nullptr},
    {"MinQCRHS", G(o.num = qcrhs_range(D).lo), nullptr},
    {"MaxQCRHS", G(o.num = qcrhs_range(D).hi), nullptr},
    {"MinQObjCoeff", G(o.num = qobj_range(D).lo), nullptr},
    {"MaxQObjCoeff", G(o.num = qobj_range(D).hi), nullptr},
    // ---- model: settable scalars
    {"ModelName", G(o.str = D.name),
     [](Model& m, int, const AttrValue& v) -> Status {
       std::string s = v.str;
       m.queue_change([s](ModelData& d) { d.name = s; });
       return Status::Ok();
     }},
    {"ModelSense", G(o.num = D.sense),
     [](Model& m, int, const AttrValue& v) -> Status {
       if (v.num != 1 && v.num != -1) return invalid("ModelSense must be 1 (minimize) or -1 (maximize)");
       int s = static_cast<int>(v.num);
       m.queue_change([s](ModelData& d) { d.sense = s; });
       return Status::Ok();
     }},
    {"ObjCon", G(o.num = D.objcon),
     [](Model& m, int, const AttrValue& v) -> Status {
       VLM_RETURN_IF_ERROR(check_finite("ObjCon", v.num));
       double c = v.num;
       m.queue_change([c](ModelData& d) { d.objcon = c; });
       return Status::Ok();
     }},
    {"NumObj", G(o.num = static_cast<double>(D.objn.size())),
     [](Model& m, int, const AttrValue& v) -> Status {
       if (v.num < 0 || v.num > 10000) return invalid("NumObj must lie in [0, 10000]");
       std::size_t n = static_cast<std::size_t>(v.num);
       m.queue_change([n](ModelData& d) {
         std::size_t old = d.objn.size();
         d.objn.resize(n);
         for (std::size_t k = old; k < n; ++k) d.objn[k].coef.assign(d.num_vars(), 0.0);
       });
       return Status::Ok();
     }},
    {"NumScenarios", G(o.num = static_cast<double>(D.scenarios.size())),
     [](Model& m, int, const AttrValue& v) -> Status {
       if (v.num < 0 || v.num > 100000) return invalid("NumScenarios must lie in [0, 100000]");
       std::size_t n = static_cast<std::size_t>(v.num);
       m.queue_change([n](ModelData& d) { d.scenarios.resize(n); });
       return Status::Ok();
     }},
    // ---- model: the objective selected by ObjNumber
    {"ObjNPriority", [](Model& m, int, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* ob = current_obj(m); if (!ob) return no_objective(m); o.num = ob->priority; return Status::Ok(); },
     [](Model& m, int, const AttrValue& v) -> Status { int p = static_cast<int>(v.num); return queue_objn(m, [p](ObjectiveN& ob) { ob.priority = p; }); }},
    {"ObjNWeight", [](Model& m, int, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* ob = current_obj(m); if (!ob) return no_objective(m); o.num = ob->weight; return Status::Ok(); },
     [](Model& m, int, const AttrValue& v) -> Status { VLM_RETURN_IF_ERROR(check_finite("ObjNWeight", v.num)); double w = v.num; return queue_objn(m, [w](ObjectiveN& ob) { ob.weight = w; }); }},
    {"ObjNRelTol", [](Model& m, int, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* ob = current_obj(m); if (!ob) return no_objective(m); o.num = ob->reltol; return Status::Ok(); },
     [](Model& m, int, const AttrValue& v) -> Status { if (!(v.num >= 0)) return invalid("ObjNRelTol must be non-negative"); double t = v.num; return queue_objn(m, [t](ObjectiveN& ob) { ob.reltol = t; }); }},
    {"ObjNAbsTol", [](Model& m, int, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* ob = current_obj(m); if (!ob) return no_objective(m); o.num = ob->abstol; return Status::Ok(); },
     [](Model& m, int, const AttrValue& v) -> Status { if (!(v.num >= 0)) return invalid("ObjNAbsTol must be non-negative"); double t = v.num; return queue_objn(m, [t](ObjectiveN& ob) { ob.abstol = t; }); }},
    {"ObjNCon", [](Model& m, int, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* ob = current_obj(m); if (!ob) return no_objective(m); o.num = ob->con; return Status::Ok(); },
     [](Model& m, int, const AttrValue& v) -> Status { VLM_RETURN_IF_ERROR(check_finite("ObjNCon", v.num)); double c = v.num; return queue_objn(m, [c](ObjectiveN& ob) { ob.con = c; }); }},
    {"ObjNName", [](Model& m, int, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* ob = current_obj(m); if (!ob) return no_objective(m); o.str = ob->name; return Status::Ok(); },
     [](Model& m, int, const AttrValue& v) -> Status { std::string s = v.str; return queue_objn(m, [s](ObjectiveN& ob) { ob.name = s; }); }},
    {"ObjNVal", [](Model& m, int, AttrValue& o, const AttrDef& def) -> Status { return objn_result(m, o, def); }, nullptr},
    {"ScenNObjVal", [](Model& m, int, AttrValue& o, const AttrDef& def) -> Status { VLM_ASSIGN_OR_RETURN(const ScenarioResult* r, scenario_result(m, def)); o.num = r->objval; return Status::Ok(); }, nullptr},
    {"ScenNObjBound", [](Model& m, int, AttrValue& o, const AttrDef& def) -> Status { VLM_ASSIGN_OR_RETURN(const ScenarioResult* r, scenario_result(m, def)); o.num = r->objbound; return Status::Ok(); }, nullptr},
    {"ScenNX", [](Model& m, int e, AttrValue& o, const AttrDef& def) -> Status { VLM_ASSIGN_OR_RETURN(const ScenarioResult* r, scenario_result(m, def)); if (r->x.empty()) return unavailable(def.name); o.num = r->x[e]; return Status::Ok(); }, nullptr},
    {"ScenNName", [](Model& m, int, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* s = current_scenario(m); if (!s) return no_scenario(m); o.str = s->name; return Status::Ok(); },
     [](Model& m, int, const AttrValue& v) -> Status { std::string n = v.str; return queue_scenario(m, [n](Scenario& s) { s.name = n; }); }},
    // ---- variables
    {"LB", G(o.num = D.lb[e]),
     [](Model& m, int e, const AttrValue& v) -> Status {
       if (std::isnan(v.num) || v.num >= VLM_INFINITY) return invalid("Lower bound must be a number below +infinity");
       double x = clamp_inf(v.num);
       m.queue_change([e, x](ModelData& d) { d.lb[e] = x; }, Model::Touch::kVar, e);
       return Status::Ok();
     }},
    {"UB", G(o.num = D.ub[e]),
     [](Model& m, int e, const AttrValue& v) -> Status {
       if (std::isnan(v.num) || v.num <= -VLM_INFINITY) return invalid("Upper bound must be a number above -infinity");
       double x = clamp_inf(v.num);
       m.queue_change([e, x](ModelData& d) { d.ub[e] = x; }, Model::Touch::kVar, e);
       return Status::Ok();
     }},
    {"Obj", G(o.num = D.obj[e]),
     [](Model& m, int e, const AttrValue& v) -> Status {
       VLM_RETURN_IF_ERROR(check_finite("Obj", v.num));
       double x = v.num;
       m.queue_change([e, x](ModelData& d) { d.obj[e] = x; }, Model::Touch::kVar, e);
       return Status::Ok();
     }},
    {"VType", G(o.ch = D.vtype[e]),
     [](Model& m, int e, const AttrValue& v) -> Status {
       char t = v.ch;
       if (t != 'C' && t != 'B' && t != 'I' && t != 'S' && t != 'N') {
         return invalid("Invalid value for attribute 'VType': expected 'C', 'B', 'I', 'S' or 'N'");
       }
       m.queue_change([e, t](ModelData& d) { d.vtype[e] = t; });
       return Status::Ok();
     }},
    {"VarName", G(o.str = D.varname[e]),
     [](Model& m, int e, const AttrValue& v) -> Status {
       std::string s = v.str;
       m.queue_change([e, s](ModelData& d) { d.varname.set(e, s); }, Model::Touch::kNothing, e);
       return Status::Ok();
     }},
    {"PWLObjCvx", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status {
       auto it = D.pwlobj.find(e);
       o.num = 0;
       if (it == D.pwlobj.end()) return Status::Ok();
       // Convex when the slopes never decrease, concave when they never increase.
       const auto& x = it->second.x;
       const auto& y = it->second.y;
       bool convex = true, concave = true;
       double prev = 0;
       bool have = false;
       for (std::size_t k = 1; k < x.size(); ++k) {
         if (x[k] == x[k - 1]) continue;
         double s = (y[k] - y[k - 1]) / (x[k] - x[k - 1]);
         if (have) {
           convex = convex && s >= prev;
           concave = concave && s <= prev;
         }
         prev = s;
         have = true;
       }
       o.num = convex ? 1 : concave ? -1 : 0;
       return Status::Ok();
     }, nullptr},
    {"ObjN", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* ob = current_obj(m); if (!ob) return no_objective(m); o.num = ob->coef[e]; return Status::Ok(); },
     [](Model& m, int e, const AttrValue& v) -> Status { VLM_RETURN_IF_ERROR(check_finite("ObjN", v.num)); double x = v.num; return queue_objn(m, [e, x](ObjectiveN& ob) { if (e < static_cast<int>(ob.coef.size())) ob.coef[e] = x; }); }},
    {"ScenNLB", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* s = current_scenario(m); if (!s) return no_scenario(m); o.num = scen_value(s->lb, e); return Status::Ok(); },
     [](Model& m, int e, const AttrValue& v) -> Status { double x = clamp_inf(v.num); return queue_scenario(m, [e, x](Scenario& s) { if (x == VLM_UNDEFINED) s.lb.erase(e); else s.lb[e] = x; }); }},
    {"ScenNUB", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* s = current_scenario(m); if (!s) return no_scenario(m); o.num = scen_value(s->ub, e); return Status::Ok(); },
     [](Model& m, int e, const AttrValue& v) -> Status { double x = v.num >= VLM_UNDEFINED ? VLM_UNDEFINED : clamp_inf(v.num); return queue_scenario(m, [e, x](Scenario& s) { if (x == VLM_UNDEFINED) s.ub.erase(e); else s.ub[e] = x; }); }},
    {"ScenNObj", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* s = current_scenario(m); if (!s) return no_scenario(m); o.num = scen_value(s->obj, e); return Status::Ok(); },
     [](Model& m, int e, const AttrValue& v) -> Status { double x = v.num; return queue_scenario(m, [e, x](Scenario& s) { if (x >= VLM_UNDEFINED) s.obj.erase(e); else s.obj[e] = x; }); }},
    // ---- linear constraints
    {"Sense", G(o.ch = D.csense[e]),
     [](Model& m, int e, const AttrValue& v) -> Status {
       VLM_RETURN_IF_ERROR(check_sense("Sense", v.ch));
       char s = v.ch;
       m.queue_change([e, s](ModelData& d) { d.csense[e] = s; });
       return Status::Ok();
     }},
    {"RHS", G(o.num = D.rhs[e]),
     [](Model& m, int e, const AttrValue& v) -> Status {
       if (std::isnan(v.num)) return invalid("Right-hand side is NaN");
       double x = clamp_inf(v.num);
       m.queue_change([e, x](ModelData& d) { d.rhs[e] = x; }, Model::Touch::kConstr, e);
       return Status::Ok();
     }},
    {"ConstrName", G(o.str = D.constrname[e]),
     [](Model& m, int e, const AttrValue& v) -> Status {
       std::string s = v.str;
       m.queue_change([e, s](ModelData& d) { d.constrname.set(e, s); }, Model::Touch::kNothing, e);
       return Status::Ok();
     }},
    {"ScenNRHS", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) -> Status { auto* s = current_scenario(m); if (!s) return no_scenario(m); o.num = scen_value(s->rhs, e); return Status::Ok(); },
     [](Model& m, int e, const AttrValue& v) -> Status { double x = v.num >= VLM_UNDEFINED ? VLM_UNDEFINED : clamp_inf(v.num); return queue_scenario(m, [e, x](Scenario& s) { if (x == VLM_UNDEFINED) s.rhs.erase(e); else s.rhs[e] = x; }); }},
    // ---- quadratic constraints
    {"QCSense", G(o.ch = D.qconstrs[e].sense),
     [](Model& m, int e, const AttrValue& v) -> Status {
       VLM_RETURN_IF_ERROR(check_sense("QCSense", v.ch));
       char s = v.ch;
       m.queue_change([e, s](ModelData& d) { d.qconstrs[e].sense = s; });
       return Status::Ok();
     }},
    {"QCRHS", G(o.num = D.qconstrs[e].rhs),
     [](Model& m, int e, const AttrValue& v) -> Status {
       if (std::isnan(v.num)) return invalid("Right-hand side is NaN");
       double x = clamp_inf(v.num);
       m.queue_change([e, x](ModelData& d) { d.qconstrs[e].rhs = x; });
       return Status::Ok();
     }},
    {"QCName", G(o.str = D.qconstrs[e].name),
     [](Model& m, int e, const AttrValue& v) -> Status {
       std::string s = v.str;
       m.queue_change([e, s](ModelData& d) { d.qconstrs[e].name = s; });
       return Status::Ok();
     }},
    // ---- general constraints
    {"GenConstrType", G(o.num = static_cast<int>(D.genconstrs[e].type)), nullptr},
    {"GenConstrName", G(o.str = D.genconstrs[e].name),
     [](Model& m, int e, const AttrValue& v) -> Status {
       std::string s = v.str;
       m.queue_change([e, s](ModelData& d) { d.genconstrs[e].name = s; });
       return Status::Ok();
     }},
    {"FuncPieces", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) { return func_option(m, e, o, "FuncPieces"); }, nullptr},
    {"FuncPieceError", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) { return func_option(m, e, o, "FuncPieceError"); }, nullptr},
    {"FuncPieceLength", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) { return func_option(m, e, o, "FuncPieceLength"); }, nullptr},
    {"FuncPieceRatio", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) { return func_option(m, e, o, "FuncPieceRatio"); }, nullptr},
    {"FuncNonlinear", [](Model& m, int e, AttrValue& o, [[maybe_unused]] const AttrDef& def) { return func_option(m, e, o, "FuncNonlinear"); }, nullptr},
};

#undef G
#undef S
#undef SA
#undef IIS
#undef D

// Default of an attribute kept in an extra column.
double extra_default(const AttrDef& a) {
  static const char* const undefined[] = {"Start", "PStart", "DStart", "VarHintVal"};
  for (const char* n : undefined) {
    if (iequals(a.name, n)) return VLM_UNDEFINED;
  }
  std::string_view name(a.name);
  if (name.size() > 5 && name.substr(0, 3) == "IIS" && name.substr(name.size() - 5) == "Force") return -1.0;
  if (name.substr(0, 4) == "Func") return -1.0;
  return 0.0;
}

struct Resolved {
  Getter get = nullptr;
  Setter set = nullptr;
};

const std::vector<Resolved>& bindings() {
  static const std::vector<Resolved> table = [] {
    std::vector<Resolved> t(attr_table().size());
    for (const Binding& b : kBindings) {
      int i = find_attr(b.name);
      if (i < 0) continue;  // checked by the table self-test
      t[i].get = b.get;
      t[i].set = b.set;
    }
    return t;
  }();
  return table;
}

// Whether an attribute lives in an extra column: a settable input with no binding.
bool is_extra(int attr) {
  const AttrDef& a = attr_table()[attr];
  return a.settable && bindings()[attr].set == nullptr && a.kind != AttrKind::kModel &&
         a.kind != AttrKind::kBatch;
}

}  // namespace

const char* kind_name(AttrKind kind) {
  switch (kind) {
    case AttrKind::kModel:
      return "the model";
    case AttrKind::kVar:
      return "variables";
    case AttrKind::kConstr:
      return "linear constraints";
    case AttrKind::kSOS:
      return "SOS constraints";
    case AttrKind::kQConstr:
      return "quadratic constraints";
    case AttrKind::kGenConstr:
      return "general constraints";
    case AttrKind::kBatch:
      return "batch requests";
  }
  return "";
}

StatusOr<int> resolve_attr(std::string_view name, int kind, AttrType type) {
  int i = find_attr(name);
  if (i < 0) {
    return Status(VLM_ERROR_UNKNOWN_ATTRIBUTE, "Unknown attribute '" + std::string(name) + "'");
  }
  const AttrDef& a = attr_table()[i];
  if (static_cast<int>(a.kind) != kind) {
    return invalid(std::string("Attribute '") + a.name + "' belongs to " + kind_name(a.kind) +
                   ", not to " + kind_name(static_cast<AttrKind>(kind)));
  }
  if (a.type != type) {
    static const char* const words[] = {"character", "integer", "double", "string"};
    return invalid(std::string("Attribute '") + a.name + "' is a " +
                   words[static_cast<int>(a.type)] + " attribute, not a " +
                   words[static_cast<int>(type)] + " one");
  }
  return i;
}

Status get_attr(Model& m, int attr, int elem, AttrValue& out) {
  const AttrDef& a = attr_table()[attr];
  if (a.kind != AttrKind::kModel) {
    int n = m.data().count(static_cast<int>(a.kind));
    if (elem < 0 || elem >= n) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE,
                    std::string("Index ") + std::to_string(elem) + " is out of range for " +
                        kind_name(a.kind) + " (the model has " + std::to_string(n) + ")");
    }
  }
  if (Getter g = bindings()[attr].get) return g(m, elem, out, a);
  if (is_extra(attr) && a.avail == AttrAvail::kAlways) {
    const ExtraColumns& x = m.data().extra[static_cast<int>(a.kind)];
    if (a.type == AttrType::kStr) {
      auto it = x.str.find(attr);
      out.str = it == x.str.end() ? std::string() : it->second.v[elem];
    } else {
      auto it = x.num.find(attr);
      out.num = it == x.num.end() ? extra_default(a) : it->second.v[elem];
    }
    return Status::Ok();
  }
  return unavailable(a.name);
}

Status set_attr(Model& m, int attr, int elem, const AttrValue& value) {
  const AttrDef& a = attr_table()[attr];
  if (!a.settable) {
    return invalid(std::string("Attribute '") + a.name + "' cannot be set");
  }
  if (a.kind != AttrKind::kModel) {
    int n = m.limit(static_cast<int>(a.kind));
    if (elem < 0 || elem >= n) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE,
                    std::string("Index ") + std::to_string(elem) + " is out of range for " +
                        kind_name(a.kind) + " (the model has " + std::to_string(n) + ")");
    }
  }
  if (Setter s = bindings()[attr].set) return s(m, elem, value);
  if (!is_extra(attr)) {
    return Status(VLM_ERROR_NOT_SUPPORTED, std::string("Attribute '") + a.name + "' cannot be set on this model");
  }
  if (a.type == AttrType::kDbl && std::isnan(value.num)) {
    return invalid(std::string("Value for attribute '") + a.name + "' is NaN");
  }
  const int kind = static_cast<int>(a.kind);
  // These attributes guide a solve (read from the model when it runs) or are only stored;
  // the engine's working problem of a model without reformulated constructs never reads
  // them, so they touch nothing it must pass again.
  constexpr Model::Touch guide = Model::Touch::kNothing;
  if (a.type == AttrType::kStr) {
    std::string s = value.str;
    m.queue_change(
        [kind, attr, elem, s](ModelData& d) {
          StrColumn& col = d.extra[kind].str[attr];
          col.v.resize(d.count(kind));
          col.v[elem] = s;
        },
        guide, elem);
  } else {
    double x = a.type == AttrType::kDbl ? clamp_inf(value.num) : value.num;
    if (a.type == AttrType::kDbl && value.num >= VLM_UNDEFINED) x = VLM_UNDEFINED;
    double def = extra_default(a);
    m.queue_change(
        [kind, attr, elem, x, def](ModelData& d) {
          auto [it, fresh] = d.extra[kind].num.try_emplace(attr);
          if (fresh) it->second.def = def;
          it->second.v.resize(d.count(kind), it->second.def);
          it->second.v[elem] = x;
        },
        guide, elem);
  }
  return Status::Ok();
}

void clear_guidance(Model& m) {
  static const char* const guides[] = {"Start", "PStart", "DStart", "VarHintVal", "VarHintPri", "VBasis", "CBasis"};
  m.queue_change(
      [](ModelData& d) {
        for (const char* g : guides) {
          int attr = find_attr(g);
          int kind = static_cast<int>(attr_table()[attr].kind);
          d.extra[kind].num.erase(attr);
        }
      },
      Model::Touch::kNothing, 0);
}

}  // namespace vlm
