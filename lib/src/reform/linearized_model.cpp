#include "reform/linearized_model.h"

#include <cmath>
#include <string>

namespace vlm::reform {

namespace {

double to_library(double v) {
  if (v == INFINITY) return VLM_INFINITY;
  if (v == -INFINITY) return -VLM_INFINITY;
  return v;
}

char column_type(const WorkingProblem& p, int j, char user_type) {
  const int t = p.integrality[j];
  if (t == 2) return 'S';
  if (t == 3) return 'N';
  if (t == 0) return 'C';
  if (user_type == 'B' || user_type == 'I') return user_type;
  return p.lower[j] >= 0.0 && p.upper[j] <= 1.0 ? 'B' : 'I';
}

void add_row(ModelData& d, const WorkingProblem& p, int i, char sense, double rhs, const std::string& name) {
  Row r;
  for (int k = p.astart[i]; k < p.astart[i + 1]; ++k) {
    r.ind.push_back(p.aindex[k]);
    r.val.push_back(p.aval[k]);
  }
  d.rows.push_back(std::move(r));
  d.csense.push_back(sense);
  d.rhs.push_back(rhs);
  d.constrname.push_back(name);
}

}  // namespace

ModelData linearized_model(const ModelData& user, const WorkingProblem& p) {
  ModelData d;
  d.name = user.name;
  d.sense = user.sense;
  d.objcon = user.objcon;
  for (int j = 0; j < p.ncol; ++j) {
    const bool own = j < p.user_cols;
    d.lb.push_back(to_library(p.lower[j]));
    d.ub.push_back(to_library(p.upper[j]));
    d.obj.push_back(p.cost[j]);
    d.vtype.push_back(column_type(p, j, own ? user.vtype[j] : 'C'));
    d.varname.push_back(own ? user.varname.given(j) : "_aux" + std::to_string(j - p.user_cols));
  }
  for (int i = 0; i < p.user_rows; ++i) {
    d.rows.push_back(user.rows[i]);
    d.csense.push_back(user.csense[i]);
    d.rhs.push_back(user.rhs[i]);
    d.constrname.push_back(user.constrname.given(i));
  }
  int aux = 0;
  for (int i = p.user_rows; i < p.nrow; ++i) {
    const double lo = p.rlo[i], up = p.rup[i];
    if (lo == up) {
      add_row(d, p, i, '=', lo, "_rf" + std::to_string(aux++));
      continue;
    }
    if (std::isfinite(lo)) add_row(d, p, i, '>', lo, "_rf" + std::to_string(aux++));
    if (std::isfinite(up)) add_row(d, p, i, '<', up, "_rf" + std::to_string(aux++));
  }
  // Constructs without finite big-Ms stay constructs: the SOS as it was, the indicator as
  // (b == v) => s = 0 on the slack of its row.
  for (std::size_t k = 0; k < p.held.size(); ++k) {
    const HeldConstruct& h = p.held[k];
    if (h.kind != HeldConstruct::Kind::kIndicator) {
      d.sos.push_back({h.kind == HeldConstruct::Kind::kSos1 ? 1 : 2, h.cols, h.weights});
      continue;
    }
    GenConstrData g;
    g.type = GenType::kIndicator;
    g.name = "_held" + std::to_string(k);
    g.res = h.bin;
    g.binval = static_cast<int>(h.binval);
    g.vars = {h.slack};
    g.vals = {1.0};
    g.sense = '=';
    g.rhs = 0.0;
    d.genconstrs.push_back(std::move(g));
  }
  // Quadratic rows emitted for 2-norms join the user's quadratic constraints.
  d.qconstrs = user.qconstrs;
  for (std::size_t k = 0; k < p.qrows.size(); ++k) {
    d.qconstrs.push_back(p.qrows[k]);
    d.qconstrs.back().name = "_qrf" + std::to_string(k);
  }
  d.qrow = user.qrow;
  d.qcol = user.qcol;
  d.qval = user.qval;
  return d;
}

}  // namespace vlm::reform
