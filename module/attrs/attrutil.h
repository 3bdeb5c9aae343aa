// The attribute engine: turns `model.ObjVal`, `x.X = 3` and `model.getAttr("LB", vars)` into
// the typed library calls. The library owns the attribute names; every access first asks
// VLMgetattrinfo for the value type, the element kind and whether the attribute may be set.
//
// Error rules (deliberately not uniform): an unknown name or a wrong element kind raises
// AttributeError "'velmorpy.<Type>' object has no attribute '<name>'"; a library failure in a
// single get or set, a list set or a prefetch raises AttributeError with the library's
// message; a library failure in a list get raises VelmorError(code, model). An element that
// is pending or removed raises VelmorError(VLM_ERROR_NOT_IN_MODEL, "<Type> has not yet been
// added to the model" / "<Type> was removed from the model").
#pragma once

#include <vector>

#include "core/py_ref.h"
#include "velmor_c.h"

// What one attribute access works on.
struct AttrTarget {
  PyObject* obj;          // the accessed object, for messages (borrowed)
  VLMmodel* model;        // the library model; nullptr once the model is disposed
  const char* type_name;  // "Model", "Var", "Constr", ...
  int kind;               // VLM_KIND_MODEL for the model itself, else the element kind
  int index;              // the element's encoded index (element_index.h); unused for models
};

// The description VLMgetattrinfo gives.
struct AttrInfo {
  int datatype = 0;  // VLM_CHAR, VLM_INT, VLM_DBL or VLM_STR
  int kind = 0;      // VLM_KIND_*
  int settable = 0;
};

// Looks the attribute up; false with AttributeError ("object has no attribute") when the
// library does not know the name. `*cname` receives the UTF-8 name (lives as long as `name`).
bool attr_info(const AttrTarget& t, PyObject* name, const char** cname, AttrInfo* info);

// obj.<name>: one value (int, float, str, or a one-character str for character attributes).
py::Ref attr_get(const AttrTarget& t, PyObject* name);

// obj.<name> = value. 0, or -1 with an exception set.
int attr_set(const AttrTarget& t, PyObject* name, PyObject* value);

// obj.prefetchAttr(name). 0, or -1 with AttributeError set.
int attr_prefetch(const AttrTarget& t, PyObject* name);

// The names of the attributes of one element kind (VLM_KIND_MODEL for model attributes), in
// the library's order, as a new list of str. `model` may be nullptr.
py::Ref attr_names(VLMmodel* model, int kind);

// Values of one attribute for the elements `ind` (len n), in one library call, as a new list.
// A library failure raises VelmorError(code, owner). `owner` is the Model.
py::Ref attr_get_list(PyObject* owner, VLMmodel* model, const char* name, const AttrInfo& info,
                      const int* ind, int n);

// Values of one attribute for elements first .. first+len-1, in one library call.
py::Ref attr_get_array(PyObject* owner, VLMmodel* model, const char* name, const AttrInfo& info,
                       int first, int len);

// Sets one attribute for the elements `ind`: `values` is a PySequence_Fast sequence of n values,
// or, when `values` is nullptr, `scalar` is used for every element. A value of the
// wrong type raises AttributeError ("takes ... value"), or TypeError with the ord() texts for
// character attributes; a library failure raises AttributeError with the library's message.
int attr_set_list(VLMmodel* model, const char* name, const AttrInfo& info,
                  const std::vector<int>& ind, PyObject* values, PyObject* scalar);

