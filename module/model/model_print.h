// Model: the printers, which write the model in a readable form, its statistics, the quality
// of its solution and tables of attributes (model_print.cpp).
#pragma once

#include "core/py_ref.h"

// _splitlongmessage(longstring, sep=' ', length=80), display(obj=None), printStats(),
// _getConstrName(index), printQuality(), printAttr(attrname, filter='*')
PyObject* model_splitlongmessage(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_display(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_printstats(PyObject* self, PyObject*);
PyObject* model_getconstrname(PyObject* self, PyObject* arg);
PyObject* model_printquality(PyObject* self, PyObject*);
PyObject* model_printattr(PyObject* self, PyObject* args, PyObject* kwds);
