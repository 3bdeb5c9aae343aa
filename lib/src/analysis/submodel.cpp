#include "analysis/submodel.h"

#include <algorithm>
#include <utility>

#include "model/data_edit.h"
#include "params/param_table.h"

namespace vlm::analysis {

namespace {

}  // namespace

StatusOr<std::unique_ptr<Model>> model_from_data(const Env& env, ModelData data) {
  auto m = std::make_unique<Model>(env, data.name);
  auto shared = std::make_shared<ModelData>(std::move(data));
  m->queue_change([shared](ModelData& d) { d = std::move(*shared); });
  VLM_RETURN_IF_ERROR(m->update());
  return m;
}

Status helper_settings(Env& env) {
  VLM_RETURN_IF_ERROR(env.set_param_int(find_param("OutputFlag"), 0));
  for (const char* stop : {"Cutoff", "BestObjStop", "BestBdStop"}) {
    VLM_RETURN_IF_ERROR(env.set_param_text(find_param(stop), "default"));
  }
  return Status::Ok();
}

StatusOr<std::unique_ptr<Model>> quiet_model_from_data(const Env& env, ModelData data) {
  Env quiet = env;
  VLM_RETURN_IF_ERROR(helper_settings(quiet));
  return model_from_data(quiet, std::move(data));
}

void clear_objective(ModelData& d) {
  std::fill(d.obj.begin(), d.obj.end(), 0.0);
  d.objcon = 0.0;
  d.qrow.clear();
  d.qcol.clear();
  d.qval.clear();
  d.pwlobj.clear();
  d.objn.clear();
}

void keep_constraints(ModelData& d, const std::vector<char>& constr, const std::vector<char>& qconstr,
                      const std::vector<char>& sos, const std::vector<char>& genconstr) {
  if (!constr.empty()) {
    compact(d.rows, constr);
    compact(d.csense, constr);
    compact(d.rhs, constr);
    d.constrname.compact(constr);
    compact_extra(d.extra[VLM_KIND_CONSTR], constr);
    // Scenario right-hand sides name rows by index; a reduced model has no scenarios.
    d.scenarios.clear();
  }
  if (!qconstr.empty()) {
    compact(d.qconstrs, qconstr);
    compact_extra(d.extra[VLM_KIND_QCONSTR], qconstr);
  }
  if (!sos.empty()) {
    compact(d.sos, sos);
    compact_extra(d.extra[VLM_KIND_SOS], sos);
  }
  if (!genconstr.empty()) {
    compact(d.genconstrs, genconstr);
    compact_extra(d.extra[VLM_KIND_GENCONSTR], genconstr);
  }
}

void keep_vars(ModelData& d, const std::vector<char>& keep) {
  std::vector<int> map(keep.size(), -1);
  int next = 0;
  for (std::size_t j = 0; j < keep.size(); ++j) {
    if (keep[j]) map[j] = next++;
  }
  compact(d.lb, keep);
  compact(d.ub, keep);
  compact(d.obj, keep);
  compact(d.vtype, keep);
  d.varname.compact(keep);
  compact_extra(d.extra[VLM_KIND_VAR], keep);
  for (Row& r : d.rows) remap_terms(r.ind, r.val, map);
  remap_quad_terms(d.qrow, d.qcol, d.qval, map);
  for (QConstrData& q : d.qconstrs) {
    remap_terms(q.lind, q.lval, map);
    remap_quad_terms(q.qrow, q.qcol, q.qval, map);
  }
  for (SosData& s : d.sos) remap_terms(s.ind, s.weight, map);
  for (GenConstrData& g : d.genconstrs) {
    if (g.res >= 0) g.res = map[g.res];
    if (g.arg >= 0) g.arg = map[g.arg];
    if (g.type == GenType::kIndicator) {
      remap_terms(g.vars, g.vals, map);
    } else {
      std::vector<double> none;
      remap_terms(g.vars, none, map);
    }
  }
  std::map<int, PwlObj> pwl;
  for (auto& [v, p] : d.pwlobj) {
    if (map[v] >= 0) pwl.emplace(map[v], std::move(p));
  }
  d.pwlobj = std::move(pwl);
  for (ObjectiveN& o : d.objn) compact(o.coef, keep);
  d.scenarios.clear();
}

bool is_mip(const ModelData& d) {
  if (d.num_sos() > 0 || d.num_genconstrs() > 0) return true;
  return std::any_of(d.vtype.begin(), d.vtype.end(), [](char t) { return t != 'C'; });
}

}  // namespace vlm::analysis
