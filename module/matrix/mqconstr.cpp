// MQConstr: arrays of quadratic constraints (see mqconstr.h).
#include "matrix/mqconstr.h"

#include "core/py_error.h"

PyTypeObject MQConstrType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.MQConstr"};

namespace {

PyObject* mqconstr_repr(PyObject* self) { return melem_repr(self, "MQConstr"); }

PyMappingMethods mqconstr_mapping = {};

const char mqconstr_doc[] =
    "An n-dimensional array of quadratic constraints of one Model, shaped like the matrix\n"
    "expression they were made from (Model.addConstr with an MQuadExpr, Model.addMQConstr).\n"
    "Indexing, reshape and transpose give new MQConstr objects over the same constraints;\n"
    "attribute reads (q.QCSlack, q.getAttr('QCRHS')) give ndarrays of its shape.";

}  // namespace

py::Ref mqconstr_new(PyObject* arr, PyObject* model) {
  return melem_new(&MQConstrType, VLM_KIND_QCONSTR, arr, model);
}

int register_mqconstr(PyObject* m) {
  mqconstr_mapping.mp_subscript = py::guarded<&melem_subscript>;
  mqconstr_mapping.mp_length = py::guarded<&melem_length>;
  MQConstrType.tp_doc = mqconstr_doc;
  MQConstrType.tp_repr = py::guarded<&mqconstr_repr>;
  MQConstrType.tp_as_mapping = &mqconstr_mapping;
  if (melem_ready(&MQConstrType, "_qconstrarr", nullptr) < 0) return -1;
  Py_INCREF(&MQConstrType);
  return PyModule_AddObject(m, "MQConstr", reinterpret_cast<PyObject*>(&MQConstrType));
}
