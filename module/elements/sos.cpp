// SOS: the handle of one SOS constraint (see handle.h). SOS constraints have no name, so the
// repr shows the position.
#include "elements/handle.h"
#include "core/py_error.h"
#include "core/registry.h"

PyTypeObject SOSType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.SOS"};

namespace {

PyObject* sos_repr(PyObject* self) { return handle_position_repr(self, "SOS", "NumSOS"); }

const char sos_doc[] =
    "SOS(cmodel, sosno)\n--\n\n"
    "An SOS constraint of a model, created by Model.addSOS. Model.getSOS(sos) returns its\n"
    "type, members and weights.";

}  // namespace

int register_sos(PyObject* m) {
  HandleClass cls{VLM_KIND_SOS, "_sosno", sos_doc, py::guarded<&sos_repr>, nullptr};
  return handle_register(m, &SOSType, cls);
}
