#include "reform/pipeline.h"

#include <algorithm>
#include <string>

#include "reform/binary_products.h"
#include "reform/bound_propagation.h"
#include "reform/convexity.h"
#include "reform/reformulation.h"

namespace vlm::reform {

namespace {

Status unsupported(const std::string& what) {
  return Status(VLM_ERROR_NOT_SUPPORTED,
                "The model has " + what + ", which this version of Velmor cannot solve yet");
}

// What no unit handles, checked before anything is built.
Status check_supported(const ModelData& d) {
  for (const GenConstrData& g : d.genconstrs) {
    if (find_reformulation(kind_of(g.type)) == nullptr) {
      return unsupported(std::string("general constraints of type ") + gen_type_name(g.type));
    }
  }
  return Status::Ok();
}

Status apply(const Reformulation* unit, const ModelData& d, int index, Builder& b) {
  if (unit == nullptr) return Status(VLM_ERROR_INTERNAL, "No reformulation is registered for a construct");
  return unit->apply(d, index, b);
}

}  // namespace

Status build_working_problem(const ModelData& d, WorkingProblem& p, const ReformOptions& opt) {
  VLM_RETURN_IF_ERROR(check_supported(d));
  VLM_RETURN_IF_ERROR(build_base(d, p));
  // An objective that is convex once its binary products are linearised (PreQLinearize) is
  // convex for the search; a nonconvex one is kept for the spatial search when NonConvex is 2.
  Status curvature = check_objective_curvature(d);
  if (!curvature.ok() && !(opt.params && opt.params->int_param("PreQLinearize") == 0) &&
      convex_without_binary_products(d, p)) {
    curvature = Status::Ok();
  }
  if (!curvature.ok() && !(opt.params && opt.params->int_param("NonConvex") == 2)) return curvature;
  p.nonconvex_objective = !curvature.ok();
  if (d.num_sos() == 0 && d.num_genconstrs() == 0 && d.pwlobj.empty()) return Status::Ok();

  Bounds bounds = initial_bounds(p);
  propagate_bounds(d, p, bounds, opt);
  Builder b(d, p, bounds, opt);
  for (int s = 0; s < d.num_sos(); ++s) {
    const auto kind = d.sos[s].type == 1 ? ConstructKind::kSos1 : ConstructKind::kSos2;
    VLM_RETURN_IF_ERROR(apply(find_reformulation(kind), d, s, b));
  }
  for (int g = 0; g < d.num_genconstrs(); ++g) {
    VLM_RETURN_IF_ERROR(apply(find_reformulation(kind_of(d.genconstrs[g].type)), d, g, b));
  }
  for (const auto& [var, unused] : d.pwlobj) {
    (void)unused;
    VLM_RETURN_IF_ERROR(apply(find_reformulation(ConstructKind::kPwlObj), d, var, b));
  }
  p.reformulated = d.num_sos() + d.num_genconstrs() + static_cast<int>(d.pwlobj.size());
  p.reported_as_mip = d.num_sos() > 0 || d.num_genconstrs() > 0;
  // The Hessian spans every column, the auxiliary ones included (with no terms).
  if (!p.qval.empty()) p.qstart.resize(p.ncol, static_cast<int>(p.qval.size()));
  return Status::Ok();
}

}  // namespace vlm::reform
