// The helpers that the Model's aspect files share (model_util.h).
#include "model/model_util.h"

#include <string>

#include "core/py_error.h"

const KindInfo kKinds[] = {
    {nullptr, nullptr, nullptr, nullptr},
    {"NumVars", "VarName", "C", VLMdelvars},
    {"NumConstrs", "ConstrName", "R", VLMdelconstrs},
    {"NumSOS", nullptr, "SOS", VLMdelsos},
    {"NumQConstrs", "QCName", "QC", VLMdelqconstrs},
    {"NumGenConstrs", "GenConstrName", "GC", VLMdelgenconstrs},
};

bool get_int(PyObject* self, const char* attr, int* out) {
  int rc = VLMgetintattr(model_handle(self), attr, out);
  if (rc != 0) raise_velmor(rc, self);
  return rc == 0;
}

bool get_str(PyObject* self, const char* attr, std::string* out) {
  char* v = nullptr;
  int rc = VLMgetstrattr(model_handle(self), attr, &v);
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  *out = v ? v : "";
  return true;
}

bool model_message(PyObject* self, const std::string& text) {
  int rc = VLMmsg(VLMgetenv(model_handle(self)), text.c_str());
  if (rc != 0) raise_velmor(rc, self);
  return rc == 0;
}
