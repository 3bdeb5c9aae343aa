#include "analysis/derived_models.h"

#include <algorithm>
#include <cmath>

#include "analysis/submodel.h"

namespace vlm::analysis {

namespace {
// A value of the incumbent this close to 0 counts as 0 (the engine's feasibility tolerance).
constexpr double kZero = 1e-6;
}  // namespace

StatusOr<std::unique_ptr<Model>> relaxed_model(Model& m) {
  ModelData d = m.data();
  for (int j = 0; j < d.num_vars(); ++j) {
    switch (d.vtype[j]) {
      case 'B':
        d.lb[j] = std::max(d.lb[j], 0.0);
        d.ub[j] = std::min(d.ub[j], 1.0);
        break;
      case 'S':
      case 'N':
        // x = 0 or lb <= x <= ub relaxes to the hull of both.
        d.lb[j] = std::min(d.lb[j], 0.0);
        d.ub[j] = std::max(d.ub[j], 0.0);
        break;
      default:
        break;
    }
    d.vtype[j] = 'C';
  }
  d.sos.clear();
  d.genconstrs.clear();
  d.extra[VLM_KIND_SOS] = ExtraColumns();
  d.extra[VLM_KIND_GENCONSTR] = ExtraColumns();
  return model_from_data(m.env(), std::move(d));
}

StatusOr<std::unique_ptr<Model>> fixed_model(Model& m) {
  ModelData d = m.data();
  if (!is_mip(d)) {
    return Status(VLM_ERROR_INVALID_ARGUMENT,
                  "The model is continuous: a fixed model needs integer variables, SOS or "
                  "semi-continuous variables");
  }
  if (d.num_genconstrs() > 0) {
    return Status(VLM_ERROR_NOT_SUPPORTED,
                  "A fixed model of a model with general constraints is not supported");
  }
  const Solution* s = m.solution();
  if (s == nullptr || !s->is_mip || s->sol_count == 0 ||
      static_cast<int>(s->x.size()) != d.num_vars()) {
    return Status(VLM_ERROR_DATA_NOT_AVAILABLE,
                  "The model has no MIP solution to fix: solve it first");
  }
  const std::vector<double>& x = s->x;
  auto fix = [&](int j, double v) {
    d.lb[j] = v;
    d.ub[j] = v;
  };
  for (int j = 0; j < d.num_vars(); ++j) {
    switch (d.vtype[j]) {
      case 'B':
      case 'I':
      case 'N':
        fix(j, std::round(x[j]));
        break;
      case 'S':
        if (std::fabs(x[j]) <= kZero) fix(j, 0.0);
        break;
      default:
        break;
    }
    d.vtype[j] = 'C';
  }
  // An SOS holds as long as its zero members stay zero.
  for (const SosData& sos : d.sos) {
    for (int j : sos.ind) {
      if (std::fabs(x[j]) <= kZero) fix(j, 0.0);
    }
  }
  d.sos.clear();
  d.extra[VLM_KIND_SOS] = ExtraColumns();
  return model_from_data(m.env(), std::move(d));
}

StatusOr<std::unique_ptr<Model>> feasibility_model(Model& m) {
  ModelData d = m.data();
  clear_objective(d);
  return model_from_data(m.env(), std::move(d));
}

}  // namespace vlm::analysis
