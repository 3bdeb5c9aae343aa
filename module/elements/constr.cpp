// Constr: the handle of one linear constraint (see handle.h).
#include "elements/handle.h"
#include "core/py_error.h"
#include "core/registry.h"

PyTypeObject ConstrType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.Constr"};

namespace {

// An index at or beyond NumConstrs shows as removed: such a handle no longer matches a row.
PyObject* constr_repr(PyObject* self) {
  int index = as_handle(self)->index;
  if (index == kIndexPending) return PyUnicode_FromString("<velmor.Constr *Awaiting Model Update*>");
  if (index == kIndexRemoved) return PyUnicode_FromString("<velmor.Constr *Removed*>");
  if (index >= 0) {
    int n = 0;
    if (handle_model_count(self, "NumConstrs", &n) < 0) return nullptr;
    if (index >= n) return PyUnicode_FromString("<velmor.Constr *Removed*>");
  }
  py::Ref name = handle_name_attr(self, "ConstrName");
  if (!name) return nullptr;
  if (index < kIndexRemoved) return PyUnicode_FromFormat("<velmor.Constr %U (Removed)>", name.get());
  return PyUnicode_FromFormat("<velmor.Constr %U>", name.get());
}

PyObject* constr_numrows(PyObject* self, PyObject*) {
  int n = 0;
  if (handle_model_count(self, "NumConstrs", &n) < 0) return nullptr;
  return PyLong_FromLong(n);
}

PyMethodDef constr_methods[] = {
    {"__numrows__", py::guarded<&constr_numrows>, METH_NOARGS,
     "__numrows__($self)\n--\n\nThe model's current number of linear constraints (NumConstrs)."},
    {nullptr, nullptr, 0, nullptr}};

const char constr_doc[] =
    "Constr(cmodel, rowno)\n--\n\n"
    "A linear constraint of a model, created by Model.addConstr, addLConstr, addRange or\n"
    "addConstrs. Library attributes read and write as Python attributes:\n\n"
    "    c.RHS = 10.0; print(c.ConstrName, c.Pi)\n\n"
    "Names that begin with '_' are stored on the object and never reach the library.";

}  // namespace

int register_constr(PyObject* m) {
  HandleClass cls{VLM_KIND_CONSTR, "_rowno", constr_doc, py::guarded<&constr_repr>, constr_methods};
  return handle_register(m, &ConstrType, cls);
}
