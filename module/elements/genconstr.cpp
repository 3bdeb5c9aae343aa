// GenConstr: the handle of one general constraint (see handle.h). The repr shows the
// position, like SOS.
#include "elements/handle.h"
#include "core/py_error.h"
#include "core/registry.h"

PyTypeObject GenConstrType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.GenConstr"};

namespace {

PyObject* genconstr_repr(PyObject* self) {
  return handle_position_repr(self, "GenConstr", "NumGenConstrs");
}

const char genconstr_doc[] =
    "GenConstr(cmodel, genconstrno)\n--\n\n"
    "A general constraint of a model (max, min, abs, and, or, norm, indicator, piecewise-linear\n"
    "or function constraint), created by the Model.addGenConstr... methods or addConstr.\n"
    "Library attributes read and write as Python attributes, e.g. gc.GenConstrName.";

}  // namespace

int register_genconstr(PyObject* m) {
  HandleClass cls{VLM_KIND_GENCONSTR, "_genconstrno", genconstr_doc, py::guarded<&genconstr_repr>, nullptr};
  return handle_register(m, &GenConstrType, cls);
}
