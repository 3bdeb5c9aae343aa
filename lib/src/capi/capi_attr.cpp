// Attribute calls. The attribute names and descriptions come from the attribute table; reading
// and writing values on models lives beside the model store.
#include <string>

#include "attrs/attr_table.h"
#include "capi/capi_guard.h"
#include "velmor_c.h"

extern "C" {

VLM_API int VLMgetnumattributes(VLMmodel* model) {
  (void)model;  // every model has the same attribute set
  return static_cast<int>(vlm::attr_table().size());
}

VLM_API int VLMgetattrname(VLMmodel* model, int i, char** nameP) {
  (void)model;
  if (nameP == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  const auto& t = vlm::attr_table();
  if (i < 0 || i >= static_cast<int>(t.size())) return VLM_ERROR_INDEX_OUT_OF_RANGE;
  *nameP = const_cast<char*>(t[i].name);
  return VLM_OK;
}

VLM_API int VLMgetattrinfo(VLMmodel* model, const char* attrname, int* datatypeP,
                           int* attrtypeP, int* settableP) {
  (void)model;
  if (attrname == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  int i = -1;
  try {
    i = vlm::find_attr(attrname);
  } catch (...) {
    return VLM_ERROR_OUT_OF_MEMORY;
  }
  if (i < 0) return VLM_ERROR_UNKNOWN_ATTRIBUTE;
  const vlm::AttrDef& a = vlm::attr_table()[i];
  if (datatypeP) *datatypeP = static_cast<int>(a.type);
  if (attrtypeP) *attrtypeP = static_cast<int>(a.kind);
  if (settableP) *settableP = a.settable ? 1 : 0;
  return VLM_OK;
}

}  // extern "C"
