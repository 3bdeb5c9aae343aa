// The registry: one table from construct kind to the unit that reformulates it. Adding a
// construct means one new file pair and one line here.
#include "reform/reform_abs.h"
#include "reform/reform_and.h"
#include "reform/reform_indicator.h"
#include "reform/reform_max.h"
#include "reform/reform_min.h"
#include "reform/reform_norm.h"
#include "reform/reform_or.h"
#include "reform/reform_pwl.h"
#include "reform/reform_pwl_obj.h"
#include "reform/reform_sos1.h"
#include "reform/reform_sos2.h"
#include "reform/reformulation.h"

namespace vlm::reform {

const Reformulation* find_reformulation(ConstructKind kind) {
  switch (static_cast<int>(kind)) {
    case static_cast<int>(ConstructKind::kSos1): return &sos1_reformulation();
    case static_cast<int>(ConstructKind::kSos2): return &sos2_reformulation();
    case static_cast<int>(ConstructKind::kPwlObj): return &pwl_obj_reformulation();
    case static_cast<int>(GenType::kMax): return &max_reformulation();
    case static_cast<int>(GenType::kMin): return &min_reformulation();
    case static_cast<int>(GenType::kAbs): return &abs_reformulation();
    case static_cast<int>(GenType::kAnd): return &and_reformulation();
    case static_cast<int>(GenType::kOr): return &or_reformulation();
    case static_cast<int>(GenType::kNorm): return &norm_reformulation();
    case static_cast<int>(GenType::kIndicator): return &indicator_reformulation();
    case static_cast<int>(GenType::kPwl): return &pwl_reformulation();
    // Function constraints (POLY, EXP, EXPA, LOG, LOGA, POW, SIN, COS, TAN, LOGISTIC) have no
    // unit yet: the pipeline refuses them as not supported.
    // TODO(#14): register one unit for all of them here: it computes the breakpoints with
    // func_breakpoints(g, b.lb(x), b.ub(x), options) over the propagated bounds of x, the
    // options from Builder::options() overridden by the constraint's own FuncPieces... attributes
    // and option text, and hands the points to add_pwl (reform_pwl.h); it also tightens y's
    // bounds like the PWL unit does.
    default: return nullptr;
  }
}

}  // namespace vlm::reform
