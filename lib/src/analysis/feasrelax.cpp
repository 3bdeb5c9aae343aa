#include "analysis/feasrelax.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "analysis/stop_scope.h"
#include "analysis/submodel.h"
#include "engine/engine.h"

namespace vlm::analysis {

namespace {

Status check_penalties(const double* pen, int n, const char* what) {
  if (pen == nullptr) return Status::Ok();
  for (int i = 0; i < n; ++i) {
    if (std::isnan(pen[i]) || pen[i] < 0.0) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, std::string("Penalty ") + std::to_string(pen[i]) + " in " +
                                                    what + "[" + std::to_string(i) +
                                                    "] is not a non-negative number");
    }
  }
  return Status::Ok();
}

bool relaxable(const double* pen, int i) { return pen != nullptr && pen[i] < VLM_INFINITY; }

// Appends the relaxation to a copy of the model's data.
class Builder {
 public:
  explicit Builder(ModelData d) : d_(std::move(d)) {}

  int add_var(std::string name, double lb, double ub, char type) {
    d_.lb.push_back(lb);
    d_.ub.push_back(ub);
    d_.obj.push_back(0.0);
    d_.vtype.push_back(type);
    d_.varname.push_back(std::move(name));
    return d_.num_vars() - 1;
  }
  void add_row(std::string name, std::vector<int> ind, std::vector<double> val, char sense, double rhs) {
    d_.rows.push_back(Row{std::move(ind), std::move(val)});
    d_.csense.push_back(sense);
    d_.rhs.push_back(rhs);
    d_.constrname.push_back(std::move(name));
  }
  // An artificial variable carrying a violation, with its penalty.
  int add_artificial(std::string name, double penalty) {
    int a = add_var(std::move(name), 0.0, VLM_INFINITY, 'C');
    art_.push_back(a);
    pen_.push_back(penalty);
    return a;
  }

  ModelData& data() { return d_; }
  const std::vector<int>& artificials() const { return art_; }
  const std::vector<double>& penalties() const { return pen_; }

  // Brings the per-element columns in step with the enlarged counts.
  ModelData finish() {
    for (int kind = VLM_KIND_VAR; kind <= VLM_KIND_GENCONSTR; ++kind) {
      const std::size_t n = static_cast<std::size_t>(d_.count(kind));
      for (auto& [attr, col] : d_.extra[kind].num) col.v.resize(n, col.def);
      for (auto& [attr, col] : d_.extra[kind].str) col.v.resize(n);
    }
    for (ObjectiveN& o : d_.objn) o.coef.resize(d_.num_vars(), 0.0);
    return std::move(d_);
  }

 private:
  ModelData d_;
  std::vector<int> art_;
  std::vector<double> pen_;
};

// The penalty as linear terms (types 0 and 2) or squares (type 1), over the artificials or
// their cardinality binaries.
struct Penalty {
  std::vector<int> ind;
  std::vector<double> val;
  bool quadratic = false;
};

}  // namespace

StatusOr<double> feas_relax(Model& m, int type, bool minrelax, const double* lbpen,
                            const double* ubpen, const double* rhspen) {
  VLM_RETURN_IF_ERROR(m.update());
  if (type < 0 || type > 2) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, "Invalid relaxation type " + std::to_string(type) +
                                                  ": expected 0 (linear), 1 (quadratic) or 2 (cardinality)");
  }
  const ModelData& d = m.data();
  const int n = d.num_vars(), rows = d.num_constrs(), qrows = d.num_qconstrs();
  VLM_RETURN_IF_ERROR(check_penalties(lbpen, n, "lbpen"));
  VLM_RETURN_IF_ERROR(check_penalties(ubpen, n, "ubpen"));
  VLM_RETURN_IF_ERROR(check_penalties(rhspen, rows + qrows, "rhspen"));

  Builder b(d);
  ModelData& nd = b.data();
  for (int j = 0; j < n; ++j) {
    char& t = nd.vtype[j];
    if (t == 'S' || t == 'N') continue;
    const bool rl = relaxable(lbpen, j) && nd.lb[j] > -VLM_INFINITY;
    const bool ru = relaxable(ubpen, j) && nd.ub[j] < VLM_INFINITY;
    if ((rl || ru) && t == 'B') {
      // The engine holds a binary to [0, 1] whatever its bounds say: make them explicit.
      t = 'I';
      nd.lb[j] = std::max(nd.lb[j], 0.0);
      nd.ub[j] = std::min(nd.ub[j], 1.0);
    }
    const std::string name = nd.varname[j];
    if (rl) {
      int a = b.add_artificial("ArtL_" + name, lbpen[j]);
      b.add_row("ArtLB_" + name, {j, a}, {1.0, 1.0}, '>', nd.lb[j]);
      nd.lb[j] = -VLM_INFINITY;
    }
    if (ru) {
      int a = b.add_artificial("ArtU_" + name, ubpen[j]);
      b.add_row("ArtUB_" + name, {j, a}, {1.0, -1.0}, '<', nd.ub[j]);
      nd.ub[j] = VLM_INFINITY;
    }
  }
  for (int i = 0; i < rows; ++i) {
    if (!relaxable(rhspen, i)) continue;
    const std::string name = nd.constrname[i];
    const char s = nd.csense[i];
    if (s == '<' || s == '=') {
      int a = b.add_artificial("ArtP_" + name, rhspen[i]);
      nd.rows[i].ind.push_back(a);
      nd.rows[i].val.push_back(-1.0);
    }
    if (s == '>' || s == '=') {
      int a = b.add_artificial("ArtN_" + name, rhspen[i]);
      nd.rows[i].ind.push_back(a);
      nd.rows[i].val.push_back(1.0);
    }
  }
  for (int k = 0; k < qrows; ++k) {
    if (!relaxable(rhspen, rows + k)) continue;
    const std::string name = nd.qconstrs[k].name.empty() ? "QC" + std::to_string(k) : nd.qconstrs[k].name;
    const char s = nd.qconstrs[k].sense;
    if (s == '<' || s == '=') {
      int a = b.add_artificial("ArtP_" + name, rhspen[rows + k]);
      nd.qconstrs[k].lind.push_back(a);
      nd.qconstrs[k].lval.push_back(-1.0);
    }
    if (s == '>' || s == '=') {
      int a = b.add_artificial("ArtN_" + name, rhspen[rows + k]);
      nd.qconstrs[k].lind.push_back(a);
      nd.qconstrs[k].lval.push_back(1.0);
    }
  }

  Penalty pen;
  pen.quadratic = type == 1;
  const std::vector<int> arts = b.artificials();
  const std::vector<double> pens = b.penalties();
  const double big_m = m.env().params().dbl_param("FeasRelaxBigM");
  for (std::size_t k = 0; k < arts.size(); ++k) {
    if (type == 2) {
      const std::string an = nd.varname[arts[k]];
      int z = b.add_var("Card_" + an, 0.0, 1.0, 'B');
      b.add_row("Card_" + an, {arts[k], z}, {1.0, -big_m}, '<', 0.0);
      pen.ind.push_back(z);
    } else {
      pen.ind.push_back(arts[k]);
    }
    pen.val.push_back(pens[k]);
  }

  // The model with the penalty as its only objective (minimised).
  auto penalty_objective = [&](ModelData& x) {
    clear_objective(x);
    x.sense = 1;
    for (std::size_t k = 0; k < pen.ind.size(); ++k) {
      if (pen.quadratic) {
        x.qrow.push_back(pen.ind[k]);
        x.qcol.push_back(pen.ind[k]);
        x.qval.push_back(pen.val[k]);
      } else {
        x.obj[pen.ind[k]] = pen.val[k];
      }
    }
  };

  double result = 0.0;
  ModelData out = b.finish();
  if (!minrelax) {
    penalty_objective(out);
  } else {
    ModelData phase1 = out;
    penalty_objective(phase1);
    VLM_ASSIGN_OR_RETURN(std::unique_ptr<Model> p1, quiet_model_from_data(m.env(), std::move(phase1)));
    StopScope stop(m);
    stop.set_current(p1.get());
    Status solved = engine::optimize(*p1);
    stop.set_current(nullptr);
    VLM_RETURN_IF_ERROR(solved);
    const Solution* s = p1->solution();
    if (s == nullptr || s->status != VLM_OPTIMAL) {
      return Status(VLM_ERROR_DATA_NOT_AVAILABLE,
                    "The feasibility relaxation found no minimal violation (status " +
                        std::to_string(s ? s->status : VLM_LOADED) +
                        "): the relaxed model is itself infeasible or a limit stopped the solve");
    }
    result = s->objval;
    // A little room, so that the second solve is not made infeasible by round-off.
    const double rhs = result + 1e-9 * std::max(1.0, std::fabs(result));
    if (pen.quadratic) {
      QConstrData q;
      q.qrow = pen.ind;
      q.qcol = pen.ind;
      q.qval = pen.val;
      q.sense = '<';
      q.rhs = rhs;
      q.name = "FeasRelaxObj";
      out.qconstrs.push_back(std::move(q));
    } else {
      out.rows.push_back(Row{pen.ind, pen.val});
      out.csense.push_back('<');
      out.rhs.push_back(rhs);
      out.constrname.push_back("FeasRelaxObj");
    }
    for (int kind : {VLM_KIND_CONSTR, VLM_KIND_QCONSTR}) {
      const std::size_t cnt = static_cast<std::size_t>(out.count(kind));
      for (auto& [attr, col] : out.extra[kind].num) col.v.resize(cnt, col.def);
      for (auto& [attr, col] : out.extra[kind].str) col.v.resize(cnt);
    }
  }
  auto shared = std::make_shared<ModelData>(std::move(out));
  m.queue_change([shared](ModelData& x) { x = std::move(*shared); });
  VLM_RETURN_IF_ERROR(m.update());
  return result;
}

}  // namespace vlm::analysis
