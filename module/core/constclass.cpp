// Read-only constant classes: the metaclass that refuses assignment to a class, the base class
// that refuses it on instances, and the layout of the help tables.
//
// Both types are made once by constclass_ready and live for the process: every constant class
// and the module hold them.
#include "core/constclass.h"

#include <algorithm>

#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"

namespace {

// VelmorError code for assigning a constant: a refusal by the module, not a library code.
constexpr int kReadOnlyCode = -1;

PyObject* g_constmeta = nullptr;
PyObject* g_constbase = nullptr;

// Raises VelmorError for `obj.name = value`, or `del obj.name` when value is nullptr.
int refuse_assignment(PyObject* name, PyObject* value) {
  py::Ref text = py::Ref::steal(
      PyUnicode_FromFormat("Cannot %s constant '%S': Velmor constants are read-only",
                           value != nullptr ? "set" : "delete", name));
  if (!text) return -1;
  const char* message = PyUnicode_AsUTF8(text.get());
  if (message == nullptr) return -1;
  raise_velmor_msg(kReadOnlyCode, message);
  return -1;
}

// ---- the metaclass: VLM.X = ... and StatusConstClass.X = ... -------------------------------

int constmeta_setattro(PyObject*, PyObject* name, PyObject* value) {
  return refuse_assignment(name, value);
}

const char constmeta_doc[] =
    "Metaclass of VLM and its constant groups: their class attributes cannot be set or deleted.";

PyType_Slot constmeta_slots[] = {
    {Py_tp_setattro, reinterpret_cast<void*>(py::guarded<&constmeta_setattro>)},
    {Py_tp_doc, const_cast<char*>(constmeta_doc)},
    {0, nullptr},
};

// basicsize 0: inherited from `type`, since the classes it makes are ordinary heap types.
PyType_Spec constmeta_spec = {"velmorpy._ConstMeta", 0, 0, Py_TPFLAGS_DEFAULT, constmeta_slots};

// ---- the base class: VLM.status.X = ... ------------------------------------------------------

int constbase_setattro(PyObject*, PyObject* name, PyObject* value) {
  return refuse_assignment(name, value);
}

// "<velmorpy.StatusConstClass>": the group objects are singletons, so the class says it all.
PyObject* constbase_repr(PyObject* self) {
  PyObject* type = reinterpret_cast<PyObject*>(Py_TYPE(self));
  py::Ref module = py::Ref::steal(PyObject_GetAttrString(type, "__module__"));
  if (!module) return nullptr;
  py::Ref qualname = py::Ref::steal(PyObject_GetAttrString(type, "__qualname__"));
  if (!qualname) return nullptr;
  return PyUnicode_FromFormat("<%S.%S>", module.get(), qualname.get());
}

const char constbase_doc[] = "Base of the Velmor constant classes: constants are read-only.";

PyType_Slot constbase_slots[] = {
    {Py_tp_setattro, reinterpret_cast<void*>(py::guarded<&constbase_setattro>)},
    {Py_tp_repr, reinterpret_cast<void*>(py::guarded<&constbase_repr>)},
    {Py_tp_doc, const_cast<char*>(constbase_doc)},
    {0, nullptr},
};

// Immutable so that the shared base cannot be patched either; the classes made from it are not.
PyType_Spec constbase_spec = {"velmorpy._ConstBase", 0, 0,
                              Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_IMMUTABLETYPE,
                              constbase_slots};

}  // namespace

int constclass_ready() {
  if (g_constmeta != nullptr) return 0;
  g_constmeta = PyType_FromSpecWithBases(&constmeta_spec,
                                         reinterpret_cast<PyObject*>(&PyType_Type));
  if (g_constmeta == nullptr) return -1;
  g_constbase = PyType_FromSpec(&constbase_spec);
  return g_constbase == nullptr ? -1 : 0;
}

int constclass_add(PyObject* dict, const char* name, PyObject* value) {
  py::Ref key = py::str(name);
  if (!key) return -1;
  PyObject* old = PyDict_GetItemWithError(dict, key.get());
  if (old == nullptr) {
    if (PyErr_Occurred()) return -1;
    return PyDict_SetItem(dict, key.get(), value);
  }
  int same = Py_TYPE(old) == Py_TYPE(value) ? PyObject_RichCompareBool(old, value, Py_EQ) : 0;
  if (same < 0) return -1;
  if (!same) {
    PyErr_Format(PyExc_SystemError, "constant '%s' defined twice with different values", name);
    return -1;
  }
  return 0;
}

int constclass_add_ints(PyObject* dict, std::span<const IntConst> consts, const char* prefix) {
  std::string name;
  for (const IntConst& c : consts) {
    py::Ref value = py::Ref::steal(PyLong_FromLong(c.value));
    if (!value) return -1;
    name.assign(prefix).append(c.name);
    if (constclass_add(dict, name.c_str(), value.get()) < 0) return -1;
  }
  return 0;
}

py::Ref constclass_new(const char* name, const std::string& doc, PyObject* dict) {
  py::Ref ns = py::Ref::steal(PyDict_Copy(dict));
  if (!ns) return {};
  py::Ref doc_str = py::str(doc);
  py::Ref module = py::str("velmorpy");
  // No per-instance __dict__: there is nothing to store on a group object.
  py::Ref slots = py::Ref::steal(PyTuple_New(0));
  if (!doc_str || !module || !slots) return {};
  if (PyDict_SetItemString(ns.get(), "__doc__", doc_str.get()) < 0 ||
      PyDict_SetItemString(ns.get(), "__module__", module.get()) < 0 ||
      PyDict_SetItemString(ns.get(), "__slots__", slots.get()) < 0) {
    return {};
  }
  py::Ref bases = py::Ref::steal(PyTuple_Pack(1, g_constbase));
  if (!bases) return {};
  return py::Ref::steal(PyObject_CallFunction(g_constmeta, "sOO", name, bases.get(), ns.get()));
}

py::Ref constclass_from_ints(const char* name, const std::string& doc,
                             std::span<const IntConst> consts) {
  py::Ref dict = py::Ref::steal(PyDict_New());
  if (!dict || constclass_add_ints(dict.get(), consts) < 0) return {};
  return constclass_new(name, doc, dict.get());
}

py::Ref constclass_instance(PyObject* cls) { return py::Ref::steal(PyObject_CallNoArgs(cls)); }

void HelpTable::heading(std::string text) { lines_.push_back({true, std::move(text), {}, {}}); }

void HelpTable::row(std::string name, std::string value, std::string text) {
  lines_.push_back({false, std::move(name), std::move(value), std::move(text)});
}

void HelpTable::rows(std::span<const IntConst> consts) {
  for (const IntConst& c : consts) {
    if (c.help != nullptr) row(c.name, std::to_string(c.value), c.help);
  }
}

std::string HelpTable::str() const {
  size_t name_width = 0, value_width = 0;
  for (const Line& l : lines_) {
    if (l.is_heading) continue;
    name_width = std::max(name_width, l.name.size());
    value_width = std::max(value_width, l.value.size());
  }
  std::string out;
  for (const Line& l : lines_) {
    if (l.is_heading) {
      out += l.name;
    } else {
      out += "    ";
      out += l.name;
      out.append(name_width - l.name.size() + 2 + value_width - l.value.size(), ' ');
      out += l.value;
      if (!l.text.empty()) {
        out += "  ";
        out += l.text;
      }
    }
    out += '\n';
  }
  return out;
}
