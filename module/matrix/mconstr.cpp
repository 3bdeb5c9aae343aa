// MConstr: arrays of linear constraints (see mconstr.h).
#include "matrix/mconstr.h"

#include "core/py_error.h"

PyTypeObject MConstrType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.MConstr"};

namespace {

PyObject* mconstr_repr(PyObject* self) { return melem_repr(self, "MConstr"); }

PyMappingMethods mconstr_mapping = {};

const char mconstr_doc[] =
    "An n-dimensional array of linear constraints of one Model, shaped like the matrix\n"
    "expression or the rows they were made from (Model.addMConstr, or Model.addConstr with\n"
    "an MLinExpr). Indexing, reshape and transpose give new MConstr objects over the same\n"
    "constraints; attribute reads (c.Pi, c.getAttr('Slack')) give ndarrays of its shape.";

}  // namespace

py::Ref mconstr_new(PyObject* arr, PyObject* model) { return melem_new(&MConstrType, VLM_KIND_CONSTR, arr, model); }

int register_mconstr(PyObject* m) {
  mconstr_mapping.mp_subscript = py::guarded<&melem_subscript>;
  mconstr_mapping.mp_length = py::guarded<&melem_length>;
  MConstrType.tp_doc = mconstr_doc;
  MConstrType.tp_repr = py::guarded<&mconstr_repr>;
  MConstrType.tp_as_mapping = &mconstr_mapping;
  if (melem_ready(&MConstrType, "_constrarr", nullptr) < 0) return -1;
  Py_INCREF(&MConstrType);
  return PyModule_AddObject(m, "MConstr", reinterpret_cast<PyObject*>(&MConstrType));
}
