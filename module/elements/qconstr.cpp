// QConstr: the handle of one quadratic constraint (see handle.h). Its repr words ("Not Yet
// Added", "Deleted") differ from the other handles' on purpose: users' logs rely on them.
#include "elements/handle.h"
#include "core/py_error.h"
#include "core/registry.h"

PyTypeObject QConstrType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.QConstr"};

namespace {

PyObject* qconstr_repr(PyObject* self) {
  int index = as_handle(self)->index;
  if (index == kIndexPending) return PyUnicode_FromString("<velmor.QConstr Not Yet Added>");
  if (index == kIndexRemoved) return PyUnicode_FromString("<velmor.QConstr Deleted>");
  if (index >= 0) {
    int n = 0;
    if (handle_model_count(self, "NumQConstrs", &n) < 0) return nullptr;
    if (index >= n) return PyUnicode_FromString("<velmor.QConstr Not Yet Added>");
  }
  py::Ref name = handle_name_attr(self, "QCName");
  if (!name) return nullptr;
  if (index < kIndexRemoved) return PyUnicode_FromFormat("<velmor.QConstr %U (Deleted)>", name.get());
  return PyUnicode_FromFormat("<velmor.QConstr %U>", name.get());
}

const char qconstr_doc[] =
    "QConstr(cmodel, qconstrno)\n--\n\n"
    "A quadratic constraint of a model, created by Model.addQConstr or addConstr with a\n"
    "quadratic expression. Library attributes read and write as Python attributes:\n\n"
    "    qc.QCRHS = 2.0; print(qc.QCName, qc.QCSlack)";

}  // namespace

int register_qconstr(PyObject* m) {
  HandleClass cls{VLM_KIND_QCONSTR, "_qconstrno", qconstr_doc, py::guarded<&qconstr_repr>, nullptr};
  return handle_register(m, &QConstrType, cls);
}
