// The registry: one table from construct kind to the unit that reformulates it. Adding a
// construct means one new file pair and one line here.
#include "reform/reform_abs.h"
#include "reform/reform_and.h"
#include "reform/reform_func.h"
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
    case static_cast<int>(GenType::kPoly):
    case static_cast<int>(GenType::kExp):
    case static_cast<int>(GenType::kExpA):
    case static_cast<int>(GenType::kLog):
    case static_cast<int>(GenType::kLogA):
    case static_cast<int>(GenType::kPow):
    case static_cast<int>(GenType::kSin):
    case static_cast<int>(GenType::kCos):
    case static_cast<int>(GenType::kTan):
    case static_cast<int>(GenType::kLogistic): return &func_reformulation();
    default: return nullptr;
  }
}

}  // namespace vlm::reform
