// Model: repr, dir, library attributes as Python attributes and through getAttr/setAttr, and
// the parameter methods, which act on the model's own environment (model_attrs.cpp).
#pragma once

#include "core/py_ref.h"

// Type slots: tp_repr, tp_getattro, tp_setattro.
PyObject* model_repr(PyObject* self);
PyObject* model_getattro(PyObject* self, PyObject* name);
int model_setattro(PyObject* self, PyObject* name, PyObject* value);

// __dir__(), getAttr(attrname, objs=None), setAttr(attrname, arg1, arg2=None),
// prefetchAttr(attrname)
PyObject* model_dir(PyObject* self, PyObject*);
PyObject* model_getattr_method(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_setattr_method(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_prefetchattr(PyObject* self, PyObject* name);

// setParam(paramname, newval), getParamInfo(paramname), fixTuneParam(paramname), resetParams()
PyObject* model_setparam(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_getparaminfo(PyObject* self, PyObject* name);
PyObject* model_fixtuneparam(PyObject* self, PyObject* name);
PyObject* model_resetparams(PyObject* self, PyObject*);
