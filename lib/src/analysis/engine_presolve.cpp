#include "analysis/engine_presolve.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <unordered_map>
#include <vector>

#include "analysis/submodel.h"
#include "engine/highs_instance.h"
#include "engine/highs_options.h"
#include "interfaces/highs_c_api.h"

namespace vlm::analysis {

namespace {

Status refuse(const std::string& why) { return Status(VLM_ERROR_NOT_SUPPORTED, "Engine presolve: " + why); }

// HiGHS reports infinite bounds as inf; ours are VLM_INFINITY.
double ours(double v) { return v >= 1e20 ? VLM_INFINITY : v <= -1e20 ? -VLM_INFINITY : v; }

}  // namespace

bool plain_linear(const ModelData& d) {
  if (!d.qval.empty() || d.num_qconstrs() > 0 || d.num_sos() > 0 || d.num_genconstrs() > 0 ||
      !d.pwlobj.empty() || d.objn.size() > 1) {
    return false;
  }
  return std::none_of(d.vtype.begin(), d.vtype.end(), [](char t) { return t == 'S' || t == 'N'; });
}

StatusOr<ModelData> engine_presolved(const ModelData& src, Env& env) {
  if (!plain_linear(src)) return refuse("the model is not a plain LP or MIP");
  ModelData d = src;
  const int n = d.num_vars(), m = d.num_constrs();
  std::unordered_map<std::string, int> var_at, row_at;
  for (int j = 0; j < n; ++j) {
    if (!var_at.emplace(d.varname[j], j).second) return refuse("duplicate variable name " + d.varname[j]);
  }
  for (int i = 0; i < m; ++i) {
    if (!row_at.emplace(d.constrname[i], i).second) return refuse("duplicate constraint name " + d.constrname[i]);
  }
  std::vector<HighsInt> start(m + 1, 0), index, integrality(n, 0);
  std::vector<double> value, rlo(m), rup(m);
  for (int i = 0; i < m; ++i) {
    for (std::size_t k = 0; k < d.rows[i].ind.size(); ++k) {
      index.push_back(d.rows[i].ind[k]);
      value.push_back(d.rows[i].val[k]);
    }
    start[i + 1] = static_cast<HighsInt>(index.size());
    const char s = d.csense[i];
    rlo[i] = s == '<' ? -INFINITY : d.rhs[i];
    rup[i] = s == '>' ? INFINITY : d.rhs[i];
  }
  for (int j = 0; j < n; ++j) {
    if (d.vtype[j] == 'B') {
      d.lb[j] = std::max(d.lb[j], 0.0);
      d.ub[j] = std::min(d.ub[j], 1.0);
    }
    integrality[j] = d.vtype[j] == 'C' ? 0 : 1;
  }
  // The instance lives through the read-back; ActiveSolve defers its destroy past other solves.
  engine::ActiveSolve active;
  engine::HighsPtr hp;
  void* h = hp.h;
  if (h == nullptr) return refuse("no HiGHS instance");
  Highs_setBoolOptionValue(h, "output_flag", 0);
  engine::choose_threads(h, env);
  if (Highs_passMip(h, n, m, static_cast<HighsInt>(value.size()), kHighsMatrixFormatRowwise, d.sense, d.objcon,
                    d.obj.data(), d.lb.data(), d.ub.data(), rlo.data(), rup.data(), start.data(), index.data(),
                    value.data(), integrality.data()) != kHighsStatusOk) {
    return refuse("HiGHS refused the model");
  }
  for (int j = 0; j < n; ++j) {
    if (Highs_passColName(h, j, d.varname[j].c_str()) != kHighsStatusOk) return refuse("HiGHS refused a name");
  }
  for (int i = 0; i < m; ++i) {
    if (Highs_passRowName(h, i, d.constrname[i].c_str()) != kHighsStatusOk) return refuse("HiGHS refused a name");
  }
  if (Highs_presolve(h) != kHighsStatusOk) return refuse("HiGHS presolve failed");
  const HighsInt ms = Highs_getModelStatus(h);
  if (ms != kHighsModelStatusNotset && ms != kHighsModelStatusModelEmpty && ms != kHighsModelStatusOptimal) {
    // Infeasible or unbounded: the library's presolve keeps that visible to a solve.
    return refuse("HiGHS presolve decided the model");
  }
  HighsInt pn = Highs_getPresolvedNumCol(h), pm = Highs_getPresolvedNumRow(h), pnz = Highs_getPresolvedNumNz(h);
  std::vector<double> cost(pn), lo(pn), up(pn), plo(pm), pup(pm), pval(pnz);
  std::vector<HighsInt> pstart(pm + 1, 0), pind(pnz), pint(pn, 0);
  HighsInt sense = 1;
  double offset = 0.0;
  if (Highs_getPresolvedLp(h, kHighsMatrixFormatRowwise, &pn, &pm, &pnz, &sense, &offset, cost.data(), lo.data(),
                           up.data(), plo.data(), pup.data(), pstart.data(), pind.data(), pval.data(),
                           pint.data()) != kHighsStatusOk) {
    return refuse("HiGHS gave no presolved problem");
  }
  // HiGHS fills only the num_row starts; the last row ends at the nonzero count.
  pstart[pm] = pnz;
  // HiGHS may hand a maximisation back as the minimisation of the negated objective.
  const double flip = sense == d.sense ? 1.0 : -1.0;
  char buf[kHighsMaximumStringLength];
  std::vector<int> col_of(pn);
  std::vector<char> var_kept(n, 0), row_kept(m, 0);
  for (HighsInt c = 0; c < pn; ++c) {
    auto it = Highs_getPresolvedColName(h, c, buf) == kHighsStatusOk ? var_at.find(buf) : var_at.end();
    if (it == var_at.end()) return refuse("a presolved column has no name of ours");
    const int j = col_of[c] = it->second;
    var_kept[j] = 1;
    d.obj[j] = flip * cost[c];
    // An integer HiGHS found implied may carry reductions that rely on it: it stays integer.
    if (pint[c] != 0 && d.vtype[j] == 'C') d.vtype[j] = 'I';
    d.lb[j] = ours(lo[c]);
    d.ub[j] = ours(up[c]);
  }
  for (HighsInt r = 0; r < pm; ++r) {
    auto it = Highs_getPresolvedRowName(h, r, buf) == kHighsStatusOk ? row_at.find(buf) : row_at.end();
    if (it == row_at.end()) return refuse("a presolved row has no name of ours");
    const int i = it->second;
    const double a = ours(plo[r]), b = ours(pup[r]);
    if (a > -VLM_INFINITY && b < VLM_INFINITY && a != b) return refuse("a presolved row is ranged");
    row_kept[i] = 1;
    d.csense[i] = a == b ? '=' : a > -VLM_INFINITY ? '>' : '<';
    d.rhs[i] = a > -VLM_INFINITY ? a : b;
    Row& row = d.rows[i];
    row.ind.clear();
    row.val.clear();
    for (HighsInt k = pstart[r]; k < pstart[r + 1]; ++k) {
      row.ind.push_back(col_of[pind[k]]);
      row.val.push_back(pval[k]);
    }
  }
  d.objcon = flip * offset + 0.0;  // + 0.0: no -0 constant
  d.extra[VLM_KIND_VAR] = ExtraColumns();
  d.extra[VLM_KIND_CONSTR] = ExtraColumns();
  keep_constraints(d, row_kept, {}, {}, {});
  keep_vars(d, var_kept);
  return d;
}

}  // namespace vlm::analysis
