#include "model/model_data.h"

namespace vlm {

const char* gen_type_name(GenType t) {
  static const char* const names[kNumGenTypes] = {
      "MAX", "MIN", "ABS",  "AND",  "OR",  "NORM", "INDICATOR", "PWL", "POLY",
      "EXP", "EXPA", "LOG", "LOGA", "POW", "SIN",  "COS",       "TAN", "LOGISTIC"};
  int i = static_cast<int>(t);
  return i >= 0 && i < kNumGenTypes ? names[i] : "UNKNOWN";
}

int ModelData::count(int kind) const {
  switch (kind) {
    case VLM_KIND_MODEL:
      return 1;
    case VLM_KIND_VAR:
      return num_vars();
    case VLM_KIND_CONSTR:
      return num_constrs();
    case VLM_KIND_SOS:
      return num_sos();
    case VLM_KIND_QCONSTR:
      return num_qconstrs();
    case VLM_KIND_GENCONSTR:
      return num_genconstrs();
    default:
      return 0;
  }
}

}  // namespace vlm
