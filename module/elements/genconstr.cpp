// GenConstr: the handle of one general constraint (see handle.h). The repr shows the
// position, like SOS.
#include "elements/handle.h"
#include "core/py_error.h"
#include "core/registry.h"

PyTypeObject GenConstrType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.GenConstr"};

namespace {

PyObject* genconstr_repr(PyObject* self) {
  int index = as_handle(self)->index;
  if (index == kIndexPending) return PyUnicode_FromString("<velmor.GenConstr *Awaiting Model Update*>");
  if (index == kIndexRemoved) return PyUnicode_FromString("<velmor.GenConstr *Removed*>");
  if (index < kIndexRemoved) return PyUnicode_FromFormat("<velmor.GenConstr %d (Removed)>", handle_position(index));
  return PyUnicode_FromFormat("<velmor.GenConstr %d>", index);
}

const char genconstr_doc[] =
    "GenConstr(cmodel, genconstrno)\n\n"
    "A general constraint of a model (max, min, abs, and, or, norm, indicator, piecewise-linear\n"
    "or function constraint), created by the Model.addGenConstr... methods or addConstr.\n"
    "Library attributes read and write as Python attributes, e.g. gc.GenConstrName.";

}  // namespace

int register_genconstr(PyObject* m) {
  HandleClass cls{VLM_KIND_GENCONSTR, "_genconstrno", genconstr_doc, py::guarded<&genconstr_repr>, nullptr};
  return handle_register(m, &GenConstrType, cls);
}
