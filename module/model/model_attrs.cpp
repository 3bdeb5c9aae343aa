// Model: repr, dir, library attributes and parameters. Library attributes read and write as
// Python attributes, and through getAttr/setAttr also for lists and dicts of the model's
// elements; parameters are forwarded to the Env over the model's own environment.
#include "model/model_attrs.h"

#include <cstring>
#include <string>
#include <vector>

#include "attrs/attrutil.h"
#include "env/env.h"
#include "elements/handle.h"
#include "matrix/melem.h"
#include "model/model.h"
#include "model/model_util.h"
#include "core/py_convert.h"
#include "core/py_error.h"

namespace {

// The library indices of the handles in `items` (a PySequence_Fast sequence) for an attribute
// of kind `kind`; every handle must be of that kind, belong to this model and be in it.
bool collect_indices(PyObject* self, PyObject* attrname, int kind, PyObject* items, std::vector<int>* ind) {
  Py_ssize_t n = PySequence_Fast_GET_SIZE(items);
  PyObject** it = PySequence_Fast_ITEMS(items);
  ind->resize(static_cast<std::size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* o = it[i];
    int k = handle_kind(o);
    if (k == 0) {
      PyErr_Format(PyExc_TypeError, "expected model elements (Var, Constr, ...), got '%.200s'", Py_TYPE(o)->tp_name);
      return false;
    }
    if (k != kind) {
      PyErr_Format(PyExc_AttributeError, "'velmorpy.%s' object has no attribute '%U'", handle_type_name(k), attrname);
      return false;
    }
    HandleObject* h = as_handle(o);
    if (!model_has(self, o)) {
      std::string msg = std::string(handle_element_word(k)) + " not in model";
      raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, msg.c_str());
      return false;
    }
    if (h->index == kIndexPending || h->index == kIndexRemoved) {
      std::string msg = std::string(handle_type_name(k)) +
                        (h->index == kIndexPending ? " has not yet been added to the model" : " was removed from the model");
      raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, msg.c_str());
      return false;
    }
    (*ind)[static_cast<std::size_t>(i)] = handle_position(h->index);
  }
  return true;
}

bool element_kind(int kind) { return kind >= VLM_KIND_VAR && kind <= VLM_KIND_GENCONSTR; }

// The values of an attribute for a sequence of handles, as a list.
py::Ref get_for(PyObject* self, PyObject* attrname, PyObject* objs) {
  const char* s = nullptr;
  AttrInfo info;
  if (!attr_info(model_target(self), attrname, &s, &info)) return py::Ref();
  py::Ref items = py::Ref::steal(PySequence_Fast(objs, "getAttr() expects a list or dict of model elements"));
  if (!items) return py::Ref();
  std::vector<int> ind;
  if (!collect_indices(self, attrname, info.kind, items.get(), &ind)) return py::Ref();
  return attr_get_list(self, model_handle(self), s, info, ind.data(), static_cast<int>(ind.size()));
}

// True for values given as a list of values rather than one value for all elements.
bool is_value_list(PyObject* v) {
  if (PyList_Check(v) || PyTuple_Check(v)) return true;
  if (PyUnicode_Check(v) || PyBytes_Check(v) || PyDict_Check(v) || !PySequence_Check(v)) return false;
  // A zero-dimensional array is a sequence type without a length: one value.
  if (PyObject_Length(v) < 0) {
    PyErr_Clear();
    return false;
  }
  return true;
}

PyObject* forward_env(PyObject* self, const char* method, PyObject* const* args, Py_ssize_t nargs) {
  PyObject* env = as_model(self)->env;
  if (env == nullptr) return raise_velmor_msg(-1, "Invalid Environment");
  return env_call_method(env, method, args, nargs);
}

}  // namespace

// ---- repr, dir, attributes -------------------------------------------------------------------

PyObject* model_repr(PyObject* self) {
  ModelObject* m = as_model(self);
  if (m->handle == nullptr) return PyUnicode_FromString("<velmor.Model empty model>");
  int ismip = 0, numconstrs = 0, numvars = 0;
  std::string name;
  if (!get_int(self, "IsMIP", &ismip) || !get_str(self, "ModelName", &name) ||
      !get_int(self, "NumConstrs", &numconstrs) || !get_int(self, "NumVars", &numvars)) {
    return nullptr;
  }
  std::string text = std::string("<velmor.Model ") + (ismip ? "MIP" : "Continuous") + " instance " +
                     (name.empty() ? "Unnamed" : name) + ": " + std::to_string(numconstrs) + " constrs, " +
                     std::to_string(numvars) + " vars";
  if (m->env != nullptr) {
    py::Ref changes = py::Ref::steal(PyObject_CallMethod(m->env, "_getChangeList", nullptr));
    if (!changes) return nullptr;
    const char* c = PyUnicode_AsUTF8(changes.get());
    if (c == nullptr) return nullptr;
    if (std::strcmp(c, "No parameter changes") != 0) text += std::string(", ") + c;
  }
  text += ">";
  return py::str(text).release();
}

PyObject* model_dir(PyObject* self, PyObject*) {
  ModelObject* m = as_model(self);
  py::Ref names = py::Ref::steal(PyList_New(0));
  if (!names) return nullptr;
  if (m->dict != nullptr) {
    PyObject *key, *value;
    Py_ssize_t pos = 0;
    while (PyDict_Next(m->dict, &pos, &key, &value)) {
      if (PyList_Append(names.get(), key) < 0) return nullptr;
    }
  }
  if (m->handle != nullptr) {
    py::Ref attrs = attr_names(m->handle, VLM_KIND_MODEL);
    if (!attrs) return nullptr;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(attrs.get()); ++i) {
      if (PyList_Append(names.get(), PyList_GET_ITEM(attrs.get(), i)) < 0) return nullptr;
    }
  }
  return names.release();
}

// As for handles: names beginning with "_" are never library attributes.
PyObject* model_getattro(PyObject* self, PyObject* name) {
  PyObject* found = PyObject_GenericGetAttr(self, name);
  if (found != nullptr || !PyErr_ExceptionMatches(PyExc_AttributeError)) return found;
  if (PyUnicode_Check(name) && PyUnicode_GET_LENGTH(name) > 0 && PyUnicode_READ_CHAR(name, 0) == '_') {
    return nullptr;
  }
  PyErr_Clear();
  return attr_get(model_target(self), name).release();
}

int model_setattro(PyObject* self, PyObject* name, PyObject* value) {
  if (value == nullptr || !PyUnicode_Check(name) || PyUnicode_GET_LENGTH(name) == 0 ||
      PyUnicode_READ_CHAR(name, 0) == '_') {
    return PyObject_GenericSetAttr(self, name, value);
  }
  return attr_set(model_target(self), name, value);
}

PyObject* model_getattr_method(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"attrname", "objs", nullptr};
  PyObject* attrname = nullptr;
  PyObject* objs = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O|O:getAttr", const_cast<char**>(kwlist), &attrname, &objs)) {
    return nullptr;
  }
  AttrTarget t = model_target(self);
  if (objs == Py_None) {
    const char* s = nullptr;
    AttrInfo info;
    if (!attr_info(t, attrname, &s, &info)) return nullptr;
    if (info.kind == VLM_KIND_MODEL) return attr_get(t, attrname).release();
    if (!element_kind(info.kind)) {
      return PyErr_Format(PyExc_AttributeError, "'velmorpy.Model' object has no attribute '%U'", attrname);
    }
    int n = 0;
    if (!get_int(self, kKinds[info.kind].count_attr, &n)) return nullptr;
    return attr_get_array(self, model_handle(self), s, info, 0, n).release();
  }
  // An element array answers with an array of its own shape.
  if (melem_check(objs)) return PyObject_CallMethod(objs, "getAttr", "O", attrname);
  if (PyDict_Check(objs)) {
    py::Ref keys = py::Ref::steal(PyDict_Keys(objs));
    py::Ref values = keys ? py::Ref::steal(PyDict_Values(objs)) : py::Ref();
    if (!values) return nullptr;
    py::Ref got = get_for(self, attrname, values.get());
    if (!got) return nullptr;
    py::Ref result = py::Ref::steal(PyDict_New());
    if (!result) return nullptr;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(keys.get()); ++i) {
      if (PyDict_SetItem(result.get(), PyList_GET_ITEM(keys.get(), i), PyList_GET_ITEM(got.get(), i)) < 0) return nullptr;
    }
    return result.release();
  }
  return get_for(self, attrname, objs).release();
}

PyObject* model_setattr_method(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"attrname", "arg1", "arg2", nullptr};
  PyObject *attrname = nullptr, *arg1 = nullptr, *arg2 = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO|O:setAttr", const_cast<char**>(kwlist), &attrname, &arg1, &arg2)) {
    return nullptr;
  }
  AttrTarget t = model_target(self);
  if (arg2 == Py_None) {
    if (attr_set(t, attrname, arg1) < 0) return nullptr;
    return py::none();
  }
  if (melem_check(arg1)) return PyObject_CallMethod(arg1, "setAttr", "OO", attrname, arg2);
  const char* s = nullptr;
  AttrInfo info;
  if (!attr_info(t, attrname, &s, &info)) return nullptr;
  py::Ref handles;
  py::Ref values;  // a PySequence_Fast of the values, or empty for one value for all
  if (PyDict_Check(arg1)) {
    handles = py::Ref::steal(PyDict_Values(arg1));
    if (!handles) return nullptr;
    if (PyDict_Check(arg2)) {
      py::Ref keys = py::Ref::steal(PyDict_Keys(arg1));
      if (!keys) return nullptr;
      values = py::Ref::steal(PyList_New(PyList_GET_SIZE(keys.get())));
      if (!values) return nullptr;
      for (Py_ssize_t i = 0; i < PyList_GET_SIZE(keys.get()); ++i) {
        py::Ref v = py::Ref::steal(PyObject_GetItem(arg2, PyList_GET_ITEM(keys.get(), i)));
        if (!v) return nullptr;
        PyList_SET_ITEM(values.get(), i, v.release());
      }
    }
  } else {
    handles = py::Ref::steal(PySequence_Fast(arg1, "setAttr() expects a list or dict of model elements"));
    if (!handles) return nullptr;
  }
  if (!values && is_value_list(arg2)) {
    values = py::Ref::steal(PySequence_Fast(arg2, "setAttr() values must be a list"));
    if (!values) return nullptr;
  }
  if (values && PySequence_Fast_GET_SIZE(values.get()) != PySequence_Fast_GET_SIZE(handles.get())) {
    return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "setAttr() got lists of elements and values of different lengths");
  }
  std::vector<int> ind;
  if (!collect_indices(self, attrname, info.kind, handles.get(), &ind)) return nullptr;
  if (!info.settable) return PyErr_Format(PyExc_AttributeError, "Attribute '%U' cannot be set", attrname);
  if (attr_set_list(model_handle(self), s, info, ind, values.get(), arg2) < 0) return nullptr;
  return py::none();
}

PyObject* model_prefetchattr(PyObject* self, PyObject* name) {
  if (attr_prefetch(model_target(self), name) < 0) return nullptr;
  return py::none();
}

// ---- parameters: forwarded to the model's own environment ------------------------------------

PyObject* model_setparam(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"paramname", "newval", nullptr};
  PyObject *name = nullptr, *value = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO:setParam", const_cast<char**>(kwlist), &name, &value)) return nullptr;
  PyObject* a[] = {name, value};
  return forward_env(self, "setParam", a, 2);
}

PyObject* model_getparaminfo(PyObject* self, PyObject* name) { return forward_env(self, "_getParamInfo", &name, 1); }
PyObject* model_fixtuneparam(PyObject* self, PyObject* name) { return forward_env(self, "fixTuneParam", &name, 1); }
PyObject* model_resetparams(PyObject* self, PyObject*) { return forward_env(self, "resetParams", nullptr, 0); }
