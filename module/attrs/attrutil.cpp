// The attribute engine (see attrutil.h for the error rules).
//
// Conversions: doubles at or beyond VLM_INFINITY in magnitude read as +-inf, and +-inf written
// are passed as +-VLM_INFINITY. VLM_UNDEFINED (a marker, not a magnitude: "no start value")
// reads back as itself so that `x.Start == VLM.UNDEFINED` holds; other finite values are
// passed through unchanged.
#include "attrs/attrutil.h"

#include <cmath>
#include <cstring>
#include <string>

#include "attrs/element_index.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"

namespace {

PyObject* no_attribute(const AttrTarget& t, PyObject* name) {
  return PyErr_Format(PyExc_AttributeError, "'velmorpy.%s' object has no attribute '%U'",
                      t.type_name, name);
}

// An attribute the object has but cannot give now (no solution, ...). Its `name` is set so that
// the interpreter does not treat it as a misspelt name and suggest a similar one.
PyObject* library_attribute_error(VLMmodel* model, int rc, PyObject* name = nullptr) {
  py::raise(PyExc_AttributeError, model_error_text(model, rc));
  if (name == nullptr) return nullptr;
  PyObject *type, *value, *tb;
  PyErr_Fetch(&type, &value, &tb);
  PyErr_NormalizeException(&type, &value, &tb);
  if (value != nullptr && PyObject_SetAttrString(value, "name", name) < 0) PyErr_Clear();
  PyErr_Restore(type, value, tb);
  return nullptr;
}

PyObject* takes_value(PyObject* name, const char* what) {
  return PyErr_Format(PyExc_AttributeError, "Attribute '%U' takes %s value", name, what);
}

py::Ref dbl_to_py(double v) {
  if (v == VLM_UNDEFINED) return py::Ref::steal(PyFloat_FromDouble(v));
  return py::from_dbl(v);
}

double py_to_dbl(double v) {
  if (std::isinf(v)) return v > 0 ? VLM_INFINITY : -VLM_INFINITY;
  return v;
}

py::Ref char_to_py(char c) {
  return py::Ref::steal(PyUnicode_FromOrdinal(static_cast<unsigned char>(c)));
}

py::Ref str_to_py(const char* s) {
  if (s == nullptr) s = "";
  return py::Ref::steal(PyUnicode_DecodeUTF8(s, static_cast<Py_ssize_t>(std::strlen(s)), "replace"));
}

PyObject* not_yet_added(const AttrTarget& t) {
  std::string msg = std::string(t.type_name) + " has not yet been added to the model";
  return raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, msg.c_str());
}

// Element state checks shared by get and set: -1 pending, -2 removed.
bool check_element_state(const AttrTarget& t) {
  if (t.index == kIndexPending) {
    not_yet_added(t);
    return false;
  }
  if (t.index == kIndexRemoved) {
    std::string msg = std::string(t.type_name) + " was removed from the model";
    raise_velmor_msg(VLM_ERROR_NOT_IN_MODEL, msg.c_str());
    return false;
  }
  return true;
}

// Name lookup plus, for elements, the state and kind checks.
bool resolve(const AttrTarget& t, PyObject* name, const char** cname, AttrInfo* info) {
  if (!attr_info(t, name, cname, info)) return false;
  if (t.kind == VLM_KIND_MODEL) return true;
  if (!check_element_state(t)) return false;
  if (info->kind != t.kind) {
    no_attribute(t, name);
    return false;
  }
  return true;
}

// ---- value checks for writes -----------------------------------------------------------------

// An integer attribute takes ints (and objects with __index__) and integral floats.
bool int_value(PyObject* v, int* out) {
  if (PyUnicode_Check(v) || PyBytes_Check(v)) return false;
  long long x = 0;
  if (PyIndex_Check(v)) {
    py::Ref idx = py::Ref::steal(PyNumber_Index(v));
    if (!idx) {
      PyErr_Clear();
      return false;
    }
    int overflow = 0;
    x = PyLong_AsLongLongAndOverflow(idx.get(), &overflow);
    if (overflow != 0 || (x == -1 && PyErr_Occurred())) {
      PyErr_Clear();
      return false;
    }
  } else if (PyFloat_Check(v)) {
    double d = PyFloat_AS_DOUBLE(v);
    if (!(std::floor(d) == d) || d < -2147483648.0 || d > 2147483647.0) return false;
    x = static_cast<long long>(d);
  } else {
    return false;
  }
  if (x < INT32_MIN || x > INT32_MAX) return false;
  *out = static_cast<int>(x);
  return true;
}

// A double attribute takes any real number (int, float, numpy scalars, ...), not text.
bool dbl_value(PyObject* v, double* out) {
  if (PyUnicode_Check(v) || PyBytes_Check(v)) return false;
  double d = PyFloat_AsDouble(v);
  if (d == -1.0 && PyErr_Occurred()) {
    PyErr_Clear();
    return false;
  }
  *out = py_to_dbl(d);
  return true;
}

bool char_value(PyObject* v, char* out) {
  if (!PyUnicode_Check(v) || PyUnicode_GET_LENGTH(v) != 1) return false;
  Py_UCS4 c = PyUnicode_READ_CHAR(v, 0);
  if (c > 127) return false;
  *out = static_cast<char>(c);
  return true;
}

// Character values in list writes follow ord(): a str or bytes of length one.
bool ord_value(PyObject* v, char* out) {
  long c = 0;
  if (PyUnicode_Check(v)) {
    Py_ssize_t n = PyUnicode_GET_LENGTH(v);
    if (n != 1) {
      PyErr_Format(PyExc_TypeError, "ord() expected a character, but string of length %zd found", n);
      return false;
    }
    c = static_cast<long>(PyUnicode_READ_CHAR(v, 0));
  } else if (PyBytes_Check(v)) {
    Py_ssize_t n = PyBytes_GET_SIZE(v);
    if (n != 1) {
      PyErr_Format(PyExc_TypeError, "ord() expected a character, but string of length %zd found", n);
      return false;
    }
    c = static_cast<unsigned char>(PyBytes_AS_STRING(v)[0]);
  } else {
    PyErr_Format(PyExc_TypeError, "ord() expected string of length 1, but %.200s found", Py_TYPE(v)->tp_name);
    return false;
  }
  if (c > 255) {
    PyErr_SetString(PyExc_OverflowError, "value too large to convert to char");
    return false;
  }
  *out = static_cast<char>(c);
  return true;
}

}  // namespace

bool attr_info(const AttrTarget& t, PyObject* name, const char** cname, AttrInfo* info) {
  const char* s = py::utf8(name);
  if (s == nullptr) return false;
  int rc = VLMgetattrinfo(t.model, s, &info->datatype, &info->kind, &info->settable);
  if (rc != 0) {
    no_attribute(t, name);
    return false;
  }
  *cname = s;
  return true;
}

py::Ref attr_get(const AttrTarget& t, PyObject* name) {
  const char* s = nullptr;
  AttrInfo info;
  if (!resolve(t, name, &s, &info)) return py::Ref();
  int rc = 0;
  if (t.kind == VLM_KIND_MODEL) {
    switch (info.datatype) {
      case VLM_INT: {
        int v = 0;
        if ((rc = VLMgetintattr(t.model, s, &v)) == 0) return py::Ref::steal(PyLong_FromLong(v));
        break;
      }
      case VLM_DBL: {
        double v = 0;
        if ((rc = VLMgetdblattr(t.model, s, &v)) == 0) return dbl_to_py(v);
        break;
      }
      case VLM_STR: {
        char* v = nullptr;
        if ((rc = VLMgetstrattr(t.model, s, &v)) == 0) return str_to_py(v);
        break;
      }
      default:
        return py::Ref::steal(no_attribute(t, name));
    }
    return py::Ref::steal(library_attribute_error(t.model, rc, name));
  }
  int element = handle_position(t.index);
  switch (info.datatype) {
    case VLM_CHAR: {
      char v = 0;
      if ((rc = VLMgetcharattrelement(t.model, s, element, &v)) == 0) return char_to_py(v);
      break;
    }
    case VLM_INT: {
      int v = 0;
      if ((rc = VLMgetintattrelement(t.model, s, element, &v)) == 0) return py::Ref::steal(PyLong_FromLong(v));
      break;
    }
    case VLM_DBL: {
      double v = 0;
      if ((rc = VLMgetdblattrelement(t.model, s, element, &v)) == 0) return dbl_to_py(v);
      break;
    }
    default: {
      char* v = nullptr;
      if ((rc = VLMgetstrattrelement(t.model, s, element, &v)) == 0) return str_to_py(v);
      break;
    }
  }
  // In immediate update mode a new element already carries its future position, which the
  // library does not know until the update: it is pending, not out of range.
  if (rc == VLM_ERROR_INDEX_OUT_OF_RANGE && t.index >= 0) return py::Ref::steal(not_yet_added(t));
  return py::Ref::steal(library_attribute_error(t.model, rc, name));
}

int attr_set(const AttrTarget& t, PyObject* name, PyObject* value) {
  const char* s = nullptr;
  AttrInfo info;
  if (!resolve(t, name, &s, &info)) return -1;
  if (!info.settable) {
    PyErr_Format(PyExc_AttributeError, "Attribute '%U' cannot be set", name);
    return -1;
  }
  int rc = 0;
  bool model = t.kind == VLM_KIND_MODEL;
  int element = model ? 0 : handle_position(t.index);
  switch (info.datatype) {
    case VLM_CHAR: {
      char c = 0;
      if (!char_value(value, &c) || model) {
        takes_value(name, "character");
        return -1;
      }
      rc = VLMsetcharattrelement(t.model, s, element, c);
      break;
    }
    case VLM_INT: {
      int v = 0;
      if (!int_value(value, &v)) {
        takes_value(name, "integer");
        return -1;
      }
      rc = model ? VLMsetintattr(t.model, s, v) : VLMsetintattrelement(t.model, s, element, v);
      break;
    }
    case VLM_DBL: {
      double v = 0;
      if (!dbl_value(value, &v)) {
        takes_value(name, "double");
        return -1;
      }
      rc = model ? VLMsetdblattr(t.model, s, v) : VLMsetdblattrelement(t.model, s, element, v);
      break;
    }
    default: {
      if (!PyUnicode_Check(value)) {
        takes_value(name, "string");
        return -1;
      }
      const char* v = py::utf8(value);
      if (v == nullptr) return -1;
      rc = model ? VLMsetstrattr(t.model, s, v) : VLMsetstrattrelement(t.model, s, element, v);
      break;
    }
  }
  if (rc != 0) {
    library_attribute_error(t.model, rc, name);
    return -1;
  }
  return 0;
}

int attr_prefetch(const AttrTarget& t, PyObject* name) {
  const char* s = nullptr;
  AttrInfo info;
  if (!attr_info(t, name, &s, &info)) return -1;
  if (t.kind != VLM_KIND_MODEL && info.kind != t.kind) {
    no_attribute(t, name);
    return -1;
  }
  if (int rc = VLMprefetchattr(t.model, s); rc != 0) {
    library_attribute_error(t.model, rc, name);
    return -1;
  }
  return 0;
}

py::Ref attr_names(VLMmodel* model, int kind) {
  py::Ref result = py::Ref::steal(PyList_New(0));
  if (!result) return result;
  int n = VLMgetnumattributes(model);
  for (int i = 0; i < n; ++i) {
    char* name = nullptr;
    int attrkind = -1;
    if (VLMgetattrname(model, i, &name) != 0) continue;
    if (VLMgetattrinfo(model, name, nullptr, &attrkind, nullptr) != 0 || attrkind != kind) continue;
    py::Ref s = py::str(name);
    if (!s || PyList_Append(result.get(), s.get()) < 0) return py::Ref();
  }
  return result;
}

namespace {

// Builds the result list of a typed read: `get(values)` fills the buffer in one library call.
template <class T, class Get, class Conv>
py::Ref typed_read(PyObject* owner, int n, Get get, Conv conv) {
  std::vector<T> values(static_cast<std::size_t>(n));
  int rc = get(values.data());
  if (rc != 0) return py::Ref::steal(raise_velmor(rc, owner));
  py::Ref result = py::Ref::steal(PyList_New(n));
  if (!result) return result;
  for (int i = 0; i < n; ++i) {
    py::Ref v = conv(values[static_cast<std::size_t>(i)]);
    if (!v) return v;
    PyList_SET_ITEM(result.get(), i, v.release());
  }
  return result;
}

py::Ref int_to_py(int v) { return py::Ref::steal(PyLong_FromLong(v)); }

}  // namespace

py::Ref attr_get_list(PyObject* owner, VLMmodel* model, const char* name, const AttrInfo& info,
                      const int* ind, int n) {
  switch (info.datatype) {
    case VLM_CHAR:
      return typed_read<char>(owner, n, [&](char* v) { return VLMgetcharattrlist(model, name, n, ind, v); }, char_to_py);
    case VLM_INT:
      return typed_read<int>(owner, n, [&](int* v) { return VLMgetintattrlist(model, name, n, ind, v); }, int_to_py);
    case VLM_DBL:
      return typed_read<double>(owner, n, [&](double* v) { return VLMgetdblattrlist(model, name, n, ind, v); }, dbl_to_py);
    default:
      return typed_read<char*>(owner, n, [&](char** v) { return VLMgetstrattrlist(model, name, n, ind, v); }, str_to_py);
  }
}

py::Ref attr_get_array(PyObject* owner, VLMmodel* model, const char* name, const AttrInfo& info,
                       int first, int len) {
  switch (info.datatype) {
    case VLM_CHAR:
      return typed_read<char>(owner, len, [&](char* v) { return VLMgetcharattrarray(model, name, first, len, v); }, char_to_py);
    case VLM_INT:
      return typed_read<int>(owner, len, [&](int* v) { return VLMgetintattrarray(model, name, first, len, v); }, int_to_py);
    case VLM_DBL:
      return typed_read<double>(owner, len, [&](double* v) { return VLMgetdblattrarray(model, name, first, len, v); }, dbl_to_py);
    default:
      return typed_read<char*>(owner, len, [&](char** v) { return VLMgetstrattrarray(model, name, first, len, v); }, str_to_py);
  }
}

int attr_set_list(VLMmodel* model, const char* name, const AttrInfo& info,
                  const std::vector<int>& ind, PyObject* values, PyObject* scalar) {
  const int n = static_cast<int>(ind.size());
  py::Ref pyname = py::str(name);
  if (!pyname) return -1;
  auto item = [&](int i) { return values ? PySequence_Fast_GET_ITEM(values, i) : scalar; };
  int rc = 0;
  switch (info.datatype) {
    case VLM_CHAR: {
      std::vector<char> v(static_cast<std::size_t>(n));
      for (int i = 0; i < n; ++i) {
        if (!ord_value(item(i), &v[static_cast<std::size_t>(i)])) return -1;
      }
      rc = VLMsetcharattrlist(model, name, n, ind.data(), v.data());
      break;
    }
    case VLM_INT: {
      std::vector<int> v(static_cast<std::size_t>(n));
      for (int i = 0; i < n; ++i) {
        if (!int_value(item(i), &v[static_cast<std::size_t>(i)])) {
          takes_value(pyname.get(), "integer");
          return -1;
        }
      }
      rc = VLMsetintattrlist(model, name, n, ind.data(), v.data());
      break;
    }
    case VLM_DBL: {
      std::vector<double> v(static_cast<std::size_t>(n));
      for (int i = 0; i < n; ++i) {
        if (!dbl_value(item(i), &v[static_cast<std::size_t>(i)])) {
          takes_value(pyname.get(), "double");
          return -1;
        }
      }
      rc = VLMsetdblattrlist(model, name, n, ind.data(), v.data());
      break;
    }
    default: {
      std::vector<const char*> v(static_cast<std::size_t>(n));
      for (int i = 0; i < n; ++i) {
        PyObject* o = item(i);
        if (!PyUnicode_Check(o)) {
          takes_value(pyname.get(), "string");
          return -1;
        }
        // The UTF-8 buffers live as long as the str objects, which the caller holds.
        v[static_cast<std::size_t>(i)] = py::utf8(o);
        if (v[static_cast<std::size_t>(i)] == nullptr) return -1;
      }
      rc = VLMsetstrattrlist(model, name, n, ind.data(), v.data());
      break;
    }
  }
  if (rc != 0) {
    library_attribute_error(model, rc);
    return -1;
  }
  return 0;
}
