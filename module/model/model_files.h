// Model: reset, copy, reading and writing files, and messages to the model's log
// (model_files.cpp).
#pragma once

#include "core/py_ref.h"

// reset(clearall=0), copy(), write(filename), read(filename), message(msg)
PyObject* model_reset(PyObject* self, PyObject* args, PyObject* kwds);
PyObject* model_copy(PyObject* self, PyObject*);
PyObject* model_write(PyObject* self, PyObject* filename);
PyObject* model_read(PyObject* self, PyObject* filename);
PyObject* model_message_method(PyObject* self, PyObject* msg);
