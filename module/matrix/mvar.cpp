// MVar: arrays of variables (see mvar.h). The array machinery is shared with the matrix
// constraints (melem.h); this file adds the constructors and the arithmetic, which goes
// through MLinExpr.
#include "matrix/mvar.h"

#include <vector>

#include "core/py_error.h"
#include "elements/handle.h"
#include "elements/var.h"
#include "expr/linexpr.h"
#include "matrix/mexpr.h"
#include "matrix/np_call.h"

PyTypeObject MVarType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.MVar"};

namespace {

PyObject* not_implemented() { return py::new_ref(Py_NotImplemented); }

// The Model of the first element (None for an empty array or a Model that is gone).
PyObject* model_of(PyObject* arr) {
  np::View objs;
  if (!objs.open(arr, "O")) return nullptr;
  if (objs.size() == 0 || !var_check(objs.data<PyObject*>()[0])) return Py_None;
  PyObject* model = handle_model(objs.data<PyObject*>()[0]);
  return model ? model : Py_None;
}

py::Ref expr_of(PyObject* self) { return mexpr_from_mvar(self); }

PyObject* mvar_new_slot(PyTypeObject*, PyObject* args, PyObject* kwds) {
  PyObject* arr = nullptr;
  static const char* kwlist[] = {"arr", nullptr};
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O:MVar", const_cast<char**>(kwlist), &arr)) return nullptr;
  if (np::isndarray(arr)) {
    // fromlist copies the array and checks that it holds Vars only.
    return mvar_fromlist(arr).release();
  }
  const bool single = var_check(arr);
  if (PyErr_WarnEx(PyExc_DeprecationWarning,
                   single ? "The MVar constructor is deprecated, use MVar.fromvar instead"
                          : "The MVar constructor is deprecated, use MVar.fromlist instead",
                   1) < 0) {
    return nullptr;
  }
  if (!single) return mvar_fromlist(arr).release();
  py::Ref list = py::Ref::steal(PyList_New(1));
  if (!list) return nullptr;
  PyList_SET_ITEM(list.get(), 0, py::new_ref(arr));
  py::Ref one = mvar_fromlist(list.get());
  if (!one) return nullptr;
  py::Ref scalar_shape = py::Ref::steal(PyTuple_New(0));
  return PyObject_CallMethod(one.get(), "reshape", "O", scalar_shape.get());
}

PyObject* mvar_repr(PyObject* self) { return melem_repr(self, "MVar"); }

// ---- arithmetic ------------------------------------------------------------------------------
// Sums, products and comparisons are those of the matrix expressions (mexpr.h), which take MVar
// operands; only the power is the MVar's own.

PyObject* mvar_pow(PyObject* a, PyObject* b, PyObject*) {
  if (!mvar_check(a)) return not_implemented();
  py::Ref exponent = np::isndarray(b) ? np::meth(b, "item") : py::Ref::borrow(b);
  if (!exponent) return nullptr;
  double v = 0;
  int k = expr_classify(exponent.get(), &v);
  if (k == kOperandError) return nullptr;
  if (k == kOperandNumber && v == 2.0) return mexpr_product(a, a).release();
  return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "MVar can only be raised to a power of two");
}

PyObject* mvar_pos(PyObject* a) { return expr_of(a).release(); }

// ---- methods ---------------------------------------------------------------------------------

PyObject* mvar_fromlist_method(PyObject*, PyObject* list) { return mvar_fromlist(list).release(); }

PyObject* mvar_fromvar(PyObject*, PyObject* var) {
  if (!var_check(var)) {
    return PyErr_Format(PyExc_ValueError, "MVar.fromlist expects a list of Vars, '%S' is not valid input", var);
  }
  py::Ref scalar_shape = py::Ref::steal(PyTuple_New(0));
  py::Ref arr = np::fn("empty", {scalar_shape.get()}, {{"dtype", np::text("O").get()}});
  if (!arr || PyObject_SetItem(arr.get(), scalar_shape.get(), var) < 0) return nullptr;
  PyObject* model = handle_model(var);
  return mvar_new(arr.get(), model ? model : Py_None).release();
}

PyObject* mvar_sum(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"axis", nullptr};
  PyObject* axis = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|O:sum", const_cast<char**>(kwlist), &axis)) return nullptr;
  py::Ref e = expr_of(self);
  return e ? mexpr_sum(e.get(), axis).release() : nullptr;
}

PyObject* mvar_toexpr(PyObject* self, PyObject*) { return expr_of(self).release(); }

// coldata[column of each variable], shaped like the MVar: how per-column vectors (a callback's
// solution, say) are read for an MVar.
PyObject* mvar_indexed_data(PyObject* self, PyObject* coldata) {
  std::vector<int> pos;
  if (!melem_positions(self, &pos)) return nullptr;
  py::Ref data = np::fn("asarray", {coldata});
  py::Ref idx = np::array_from(pos.data(), static_cast<Py_ssize_t>(pos.size()), "int32");
  py::Ref picked = data && idx ? py::Ref::steal(PyObject_GetItem(data.get(), idx.get())) : py::Ref();
  return np::meth(picked.get(), "reshape", {np::shape_of(as_melem(self)->arr).get()}).release();
}

PyMethodDef mvar_methods[] = {
    {"fromlist", py::guarded<&mvar_fromlist_method>, METH_O | METH_STATIC,
     "fromlist(varlist)\n--\n\nAn MVar from a (nested) list of Var objects; the nesting gives the shape."},
    {"fromvar", py::guarded<&mvar_fromvar>, METH_O | METH_STATIC, "fromvar(var)\n--\n\nA 0-d MVar holding one Var."},
    {"sum", (PyCFunction)(void (*)(void))py::guarded<&mvar_sum>, METH_VARARGS | METH_KEYWORDS,
     "sum($self, axis=None)\n--\n\nThe sum of the variables as an MLinExpr: over all of them, or over the axis\n"
     "or tuple of axes given."},
    {"_toexpr", py::guarded<&mvar_toexpr>, METH_NOARGS, "_toexpr($self)\n--\n\nThe MVar as an MLinExpr."},
    {"_indexed_data", py::guarded<&mvar_indexed_data>, METH_O,
     "_indexed_data($self, coldata)\n--\n\nThe entries of a per-column vector at the MVar's variables, as an ndarray of its shape."},
    {nullptr, nullptr, 0, nullptr}};

PyNumberMethods mvar_number = {};
PyMappingMethods mvar_mapping = {};

const char mvar_doc[] =
    "An n-dimensional array of variables of one Model, shaped like a NumPy ndarray.\n\n"
    "Made by Model.addMVar, MVar.fromlist or MVar.fromvar. Indexing, reshape, transpose and\n"
    "diagonal give new MVar objects over the same variables; attribute reads (x.X,\n"
    "x.getAttr('LB')) give ndarrays of the MVar's shape; arithmetic (A @ x, 2 * x + 1,\n"
    "x.sum()) gives MLinExpr objects, and comparisons constraints for Model.addConstr.";

}  // namespace

py::Ref mvar_new(PyObject* arr, PyObject* model) { return melem_new(&MVarType, VLM_KIND_VAR, arr, model); }

py::Ref mvar_fromlist(PyObject* list) {
  py::Ref arr = np::fn("array", {list}, {{"dtype", np::text("O").get()}});
  np::View objs;
  if (!arr || !objs.open(arr.get(), "O")) return py::Ref();
  for (Py_ssize_t i = 0; i < objs.size(); ++i) {
    PyObject* o = objs.data<PyObject*>()[i];
    if (!var_check(o)) {
      PyErr_Format(PyExc_ValueError, "MVar.fromlist expects a list of Vars, '%S' is not valid input", o);
      return py::Ref();
    }
  }
  PyObject* model = model_of(arr.get());
  if (model == nullptr) return py::Ref();
  return mvar_new(arr.get(), model);
}

int register_mvar(PyObject* m) {
  mvar_number.nb_add = py::guarded<&mexpr_add>;
  mvar_number.nb_subtract = py::guarded<&mexpr_sub>;
  mvar_number.nb_multiply = py::guarded<&mexpr_mul>;
  mvar_number.nb_true_divide = py::guarded<&mexpr_div>;
  mvar_number.nb_matrix_multiply = py::guarded<&mexpr_matmul>;
  mvar_number.nb_power = py::guarded<&mvar_pow>;
  mvar_number.nb_negative = py::guarded<&mexpr_neg>;
  mvar_number.nb_positive = py::guarded<&mvar_pos>;
  mvar_mapping.mp_subscript = py::guarded<&melem_subscript>;
  mvar_mapping.mp_length = py::guarded<&melem_length>;
  MVarType.tp_doc = mvar_doc;
  MVarType.tp_new = py::guarded<&mvar_new_slot>;
  MVarType.tp_repr = py::guarded<&mvar_repr>;
  MVarType.tp_as_number = &mvar_number;
  MVarType.tp_as_mapping = &mvar_mapping;
  MVarType.tp_richcompare = py::guarded<&mexpr_richcompare>;
  if (melem_ready(&MVarType, "_vararr", mvar_methods) < 0) return -1;
  Py_INCREF(&MVarType);
  return PyModule_AddObject(m, "MVar", reinterpret_cast<PyObject*>(&MVarType));
}
