// multidict: splits a dictionary of value lists into the shared keys and one tupledict per
// value position.
#include <vector>

#include "core/py_error.h"
#include "core/registry.h"
#include "containers/tupledict.h"

namespace {

// Appends tupledict(zip(keys, column)) to `result` for each column of zip(*values); columns
// stop at the shortest value sequence. -1 with the exception set (TypeError for values that
// are not sequences).
int append_columns(PyObject* result, PyObject* keys, PyObject* values) {
  Py_ssize_t n = PyList_GET_SIZE(values);
  if (PyObject_Length(keys) != n) {
    if (!PyErr_Occurred())
      PyErr_SetString(PyExc_RuntimeError, "multidict keys and values differ in length");
    return -1;
  }
  std::vector<py::Ref> columns;
  for (Py_ssize_t i = 0; i < n; ++i) {
    columns.push_back(py::Ref::steal(PyObject_GetIter(PyList_GET_ITEM(values, i))));
    if (!columns.back()) return -1;
  }
  py::Ref key_seq = py::Ref::steal(PySequence_Fast(keys, "multidict keys must be a sequence"));
  if (!key_seq) return -1;
  while (n > 0) {
    py::Ref column = tupledict_new_empty();
    if (!column) return -1;
    for (Py_ssize_t i = 0; i < n; ++i) {
      py::Ref item = py::Ref::steal(PyIter_Next(columns[static_cast<size_t>(i)].get()));
      if (!item) return PyErr_Occurred() ? -1 : 0;
      if (PyDict_SetItem(column.get(), PySequence_Fast_GET_ITEM(key_seq.get(), i), item.get()) < 0)
        return -1;
    }
    if (PyList_Append(result, column.get()) < 0) return -1;
  }
  return 0;
}

PyObject* multidict(PyObject*, PyObject* data) {
  py::Ref d =
      py::Ref::steal(PyObject_CallOneArg(reinterpret_cast<PyObject*>(&TupleDictType), data));
  if (!d) return nullptr;
  py::Ref keys = tupledict_keys(d.get());
  if (!keys) return nullptr;
  py::Ref result = py::Ref::steal(PyList_New(0));
  if (!result || PyList_Append(result.get(), keys.get()) < 0) return nullptr;
  py::Ref values = tupledict_values(d.get());
  if (!values) return nullptr;
  if (append_columns(result.get(), keys.get(), values.get()) < 0) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError)) return nullptr;
    // Values that are not sequences: a single-valued dictionary.
    PyErr_Clear();
    if (PyList_SetSlice(result.get(), 1, PY_SSIZE_T_MAX, nullptr) < 0) return nullptr;
    if (PyList_Append(result.get(), d.get()) < 0) return nullptr;
  }
  return result.release();
}

const char multidict_doc[] =
    "multidict(data)\n--\n\n\n  ROUTINE:\n"
    "    multidict(data)\n"
    "  PURPOSE:\n"
    "    Split a single dictionary into multiple dictionaries.\n"
    "  ARGUMENTS:\n"
    "    data: A dictionary that maps each key to a list of 'n' values.\n"
    "  RETURN VALUE:\n"
    "    A list of the shared keys, followed by individual tupledicts.\n"
    "  EXAMPLE:\n"
    "    (keys, dict1, dict2) = multidict( {\n"
    "             'key1': [1, 2],\n"
    "             'key2': [1, 3],\n"
    "             'key3': [1, 4] } )\n"
    "    # keys  is tuplelist(['key1', 'key2', 'key3'])\n"
    "    # dict1 is {'key1': 1, 'key2': 1, 'key3': 1}\n"
    "    # dict2 is {'key1': 2, 'key2': 3, 'key3': 4}\n";

PyMethodDef multidict_functions[] = {{"multidict", py::guarded<&multidict>, METH_O, multidict_doc},
                                     {nullptr, nullptr, 0, nullptr}};

}  // namespace

int register_multidict(PyObject* m) { return PyModule_AddFunctions(m, multidict_functions); }
