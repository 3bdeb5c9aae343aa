// Model: the methods over the element handle lists, removal and update (model_lists.cpp).
// The library-facing functions of the lists (model_setup, model_list, model_update, ...) are
// declared in model.h.
#pragma once

#include "core/py_ref.h"

// __setup(empty=False), __getupdatemode()
PyObject* model_setup_method(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_getupdatemode_method(PyObject* self, PyObject*);

// getVars(), getConstrs(), getSOSs(), getQConstrs(), getGenConstrs(): new lists of handles.
PyObject* model_getvars(PyObject* self, PyObject*);
PyObject* model_getconstrs(PyObject* self, PyObject*);
PyObject* model_getsoss(PyObject* self, PyObject*);
PyObject* model_getqconstrs(PyObject* self, PyObject*);
PyObject* model_getgenconstrs(PyObject* self, PyObject*);

// getVarByName(name), getConstrByName(name), _owns(object)
PyObject* model_getvarbyname(PyObject* self, PyObject* name);
PyObject* model_getconstrbyname(PyObject* self, PyObject* name);
PyObject* model_owns(PyObject* self, PyObject* obj);

// _removeone(item), remove(items), update()
PyObject* model_removeone(PyObject* self, PyObject* item);
PyObject* model_remove(PyObject* self, PyObject* items);
PyObject* model_update_method(PyObject* self, PyObject*);
