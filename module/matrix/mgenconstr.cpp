// MGenConstr: arrays of general constraints (see mgenconstr.h).
#include "matrix/mgenconstr.h"

#include "core/py_error.h"

PyTypeObject MGenConstrType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.MGenConstr"};

namespace {

PyObject* mgenconstr_repr(PyObject* self) { return melem_repr(self, "MGenConstr"); }

PyMappingMethods mgenconstr_mapping = {};

const char mgenconstr_doc[] =
    "An n-dimensional array of general constraints of one Model, one per element of the\n"
    "matrix arguments they were made from (addGenConstrMax(r, [x, y]) with MVar r, x, y, or\n"
    "(b == 1) >> (x <= 2) with an MVar b). Indexing, reshape and transpose give new\n"
    "MGenConstr objects over the same constraints; attribute reads (c.GenConstrName,\n"
    "c.getAttr('GenConstrType')) give ndarrays of its shape.";

}  // namespace

py::Ref mgenconstr_new(PyObject* arr, PyObject* model) {
  return melem_new(&MGenConstrType, VLM_KIND_GENCONSTR, arr, model);
}

int register_mgenconstr(PyObject* m) {
  mgenconstr_mapping.mp_subscript = py::guarded<&melem_subscript>;
  mgenconstr_mapping.mp_length = py::guarded<&melem_length>;
  MGenConstrType.tp_doc = mgenconstr_doc;
  MGenConstrType.tp_repr = py::guarded<&mgenconstr_repr>;
  MGenConstrType.tp_as_mapping = &mgenconstr_mapping;
  if (melem_ready(&MGenConstrType, "_genconstrarr", nullptr) < 0) return -1;
  Py_INCREF(&MGenConstrType);
  return PyModule_AddObject(m, "MGenConstr", reinterpret_cast<PyObject*>(&MGenConstrType));
}
