// Batch: the Python handle of one request on the batch service.
#pragma once

#include "core/py_ref.h"

struct BatchObject {
  PyObject_HEAD
  // _cbatch, _cenv and _uenv live in the instance dictionary, like any other private field:
  // the handle is looked up there on each call.
  PyObject* dict;
  PyObject* weakreflist;
};
