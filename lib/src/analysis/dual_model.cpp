#include "analysis/dual_model.h"

#include <string>
#include <vector>

#include "analysis/submodel.h"

namespace vlm::analysis {

StatusOr<std::unique_ptr<Model>> dual_model(Model& m) {
  const ModelData& d = m.data();
  if (is_mip(d)) {
    return Status(VLM_ERROR_NOT_FOR_MIP,
                  "Can't dualize a model with integer variables, SOS, semi-continuous variables "
                  "or general constraints");
  }
  if (!d.qval.empty() || d.num_qconstrs() > 0) {
    return Status(VLM_ERROR_NOT_SUPPORTED,
                  "Can't dualize a model with a quadratic objective or quadratic constraints");
  }
  if (!d.pwlobj.empty() || d.objn.size() > 1) {
    return Status(VLM_ERROR_NOT_SUPPORTED,
                  "Can't dualize a model with piecewise-linear or multiple objectives");
  }
  const int s = d.sense;
  const int n = d.num_vars(), rows = d.num_constrs();
  ModelData dd;
  dd.name = d.name.empty() ? std::string() : d.name + "_dual";
  dd.sense = -s;
  dd.objcon = d.objcon;
  auto add_var = [&](std::string name, double obj, double lb, double ub) {
    dd.lb.push_back(lb);
    dd.ub.push_back(ub);
    dd.obj.push_back(obj);
    dd.vtype.push_back('C');
    dd.varname.push_back(std::move(name));
    return dd.num_vars() - 1;
  };
  // y: one per primal row.
  for (int i = 0; i < rows; ++i) {
    const char sense = d.csense[i];
    double lb = -VLM_INFINITY, ub = VLM_INFINITY;
    const bool nonneg = (sense == '>' && s == 1) || (sense == '<' && s == -1);
    if (sense != '=') (nonneg ? lb : ub) = 0.0;
    add_var(d.constrname[i], d.rhs[i], lb, ub);
  }
  // Columns of the primal become the rows of the dual.
  std::vector<Row> cols(n);
  for (int i = 0; i < rows; ++i) {
    const Row& r = d.rows[i];
    for (std::size_t k = 0; k < r.ind.size(); ++k) {
      cols[r.ind[k]].ind.push_back(i);
      cols[r.ind[k]].val.push_back(r.val[k]);
    }
  }
  for (int j = 0; j < n; ++j) {
    const double l = d.lb[j], u = d.ub[j];
    const std::string& name = d.varname[j];
    Row row = std::move(cols[j]);
    char sense = '=';
    if (l == 0.0 && u >= VLM_INFINITY) {
      sense = s == 1 ? '<' : '>';
    } else if (l <= -VLM_INFINITY && u == 0.0) {
      sense = s == 1 ? '>' : '<';
    } else {
      if (l > -VLM_INFINITY) {
        row.ind.push_back(add_var("lb_" + name, s * l, 0.0, VLM_INFINITY));
        row.val.push_back(s);
      }
      if (u < VLM_INFINITY) {
        row.ind.push_back(add_var("ub_" + name, -s * u, 0.0, VLM_INFINITY));
        row.val.push_back(-s);
      }
    }
    dd.rows.push_back(std::move(row));
    dd.csense.push_back(sense);
    dd.rhs.push_back(d.obj[j]);
    dd.constrname.push_back(name);
  }
  return model_from_data(m.env(), std::move(dd));
}

}  // namespace vlm::analysis
