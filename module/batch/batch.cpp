// Batch: lookup of a batch request, its attributes, and the service's request operations.
// Every call that reaches the service runs without the interpreter lock: it may wait for up to
// a few times ServerTimeout, and the service may be Python code in this very process.
#include "batch/batch.h"

#include <cstring>
#include <string>

#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "core/services.h"
#include "core/velmor.h"
#include "env/env.h"
#include "velmor_c.h"

namespace {

constexpr const char* kBatchCapsule = "velmorpy.batch_handle";
constexpr int kTypeInt = 1;
constexpr int kTypeStr = 3;
constexpr int kReadOnly = 0x10;

PyTypeObject BatchType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.Batch"};

BatchObject* as_batch(PyObject* o) { return reinterpret_cast<BatchObject*>(o); }

// The instance dictionary (borrowed), created on first use.
PyObject* batch_dict(PyObject* self) {
  BatchObject* b = as_batch(self);
  if (b->dict == nullptr) b->dict = PyDict_New();
  return b->dict;
}

// The library handle in `_cbatch`, or nullptr when it is None (or absent).
VLMbatch* batch_handle(PyObject* self) {
  PyObject* d = as_batch(self)->dict;
  PyObject* c = d != nullptr ? PyDict_GetItemString(d, "_cbatch") : nullptr;
  if (c == nullptr || !PyCapsule_IsValid(c, kBatchCapsule)) return nullptr;
  return static_cast<VLMbatch*>(PyCapsule_GetPointer(c, kBatchCapsule));
}

int set_field(PyObject* self, const char* name, PyObject* value) {
  PyObject* d = batch_dict(self);
  if (d == nullptr) return -1;
  return PyDict_SetItemString(d, name, value);
}

// Runs a service call without the interpreter lock.
template <class Call>
int unlocked(Call&& call) {
  py::WithoutGil nogil;
  return call();
}

PyObject* batch_dispose(PyObject* self, PyObject*);

// ---- construction and lifecycle --------------------------------------------------------------

PyObject* batch_new(PyTypeObject* type, PyObject*, PyObject*) {
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return nullptr;
  as_batch(self)->dict = nullptr;
  as_batch(self)->weakreflist = nullptr;
  return self;
}

int batch_init(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"batchID", "env", nullptr};
  PyObject* id_obj = nullptr;
  PyObject* env = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O|O:Batch", const_cast<char**>(kwlist), &id_obj, &env)) {
    return -1;
  }
  // A second __init__ looks up afresh; the old handle must not leak.
  py::Ref old = py::Ref::steal(batch_dispose(self, nullptr));
  if (!old) return -1;
  if (set_field(self, "_cbatch", Py_None) < 0) return -1;
  if (env == Py_None) {
    env = velmor_default_env(true);
    if (env == nullptr) return -1;
  } else if (!env_check(env)) {
    PyErr_Format(PyExc_TypeError, "env must be an Env, not '%.200s'", Py_TYPE(env)->tp_name);
    return -1;
  }
  const char* id = py::utf8(id_obj);
  if (id == nullptr) return -1;
  VLMenv* cenv = env_handle(env);
  if (cenv == nullptr) {
    raise_velmor_msg(-1, "Invalid Environment");
    return -1;
  }
  VLMbatch* handle = nullptr;
  int rc = unlocked([&] { return VLMgetbatch(cenv, id, &handle); });
  if (rc != 0) {
    raise_velmor(rc, self);  // "Failed to create batch request": _cbatch is still None
    return -1;
  }
  py::Ref capsule = py::Ref::steal(PyCapsule_New(handle, kBatchCapsule, nullptr));
  if (!capsule) {
    VLMfreebatch(handle);
    return -1;
  }
  py::Ref benv = wrap_env_handle(VLMgetbatchenv(handle));
  if (!benv || set_field(self, "_cbatch", capsule.get()) < 0) {
    VLMfreebatch(handle);
    return -1;
  }
  if (set_field(self, "_cenv", benv.get()) < 0 || set_field(self, "_uenv", env) < 0) return -1;
  return 0;
}

const char batch_dispose_doc[] =
    "dispose($self)\n--\n\nFrees the client's handle of the request (the request itself stays on the\n"
    "service). Any later use of the object fails; disposing twice does nothing.";

PyObject* batch_dispose(PyObject* self, PyObject*) {
  if (set_field(self, "_cenv", Py_None) < 0 || set_field(self, "_uenv", Py_None) < 0) return nullptr;
  VLMbatch* handle = batch_handle(self);
  if (handle == nullptr) return py::none();
  int rc = VLMfreebatch(handle);
  if (set_field(self, "_cbatch", Py_None) < 0) return nullptr;
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

const char batch_close_doc[] = "close($self)\n--\n\nSame as dispose().";

PyObject* batch_enter(PyObject* self, PyObject*) { return py::new_ref(self); }

PyObject* batch_exit(PyObject* self, PyObject* const*, Py_ssize_t nargs) {
  if (nargs != 3) return py::raise(PyExc_TypeError, "__exit__(exc_type, exc_value, traceback)");
  py::Ref r = py::Ref::steal(batch_dispose(self, nullptr));
  if (!r) return nullptr;
  return py::none();
}

void batch_finalize(PyObject* self) {
  PyObject *type, *value, *tb;
  PyErr_Fetch(&type, &value, &tb);
  if (as_batch(self)->dict != nullptr) {
    py::Ref r = py::Ref::steal(batch_dispose(self, nullptr));
    if (!r) PyErr_WriteUnraisable(self);
  }
  PyErr_Restore(type, value, tb);
}

int batch_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(as_batch(self)->dict);
  Py_VISIT(Py_TYPE(self));
  return 0;
}

int batch_clear(PyObject* self) {
  Py_CLEAR(as_batch(self)->dict);
  return 0;
}

void batch_dealloc(PyObject* self) {
  if (PyObject_CallFinalizerFromDealloc(self) < 0) return;  // resurrected
  PyObject_GC_UnTrack(self);
  if (as_batch(self)->weakreflist != nullptr) PyObject_ClearWeakRefs(self);
  batch_clear(self);
  Py_TYPE(self)->tp_free(self);
}

// ---- attributes -------------------------------------------------------------------------------

// A batch attribute: read through the library by its flags' type.
PyObject* read_attr(PyObject* self, PyObject* name_obj) {
  VLMbatch* h = batch_handle(self);
  if (h == nullptr) return raise_velmor_msg(VLM_ERROR_NULL_ARGUMENT, "Batch has been disposed");
  const char* name = py::utf8(name_obj);
  if (name == nullptr) return nullptr;
  int flags = 0;
  int rc = VLMgetbatchattrflags(h, name, &flags);
  if (rc != 0) return raise_velmor(rc, self);
  if ((flags & 0xF) == kTypeInt) {
    int v = 0;
    rc = VLMgetbatchintattr(h, name, &v);
    if (rc != 0) return raise_velmor(rc, self);
    return PyLong_FromLong(v);
  }
  if ((flags & 0xF) == kTypeStr) {
    char* v = nullptr;
    rc = VLMgetbatchstrattr(h, name, &v);
    if (rc != 0) return raise_velmor(rc, self);
    return py::str(v).release();
  }
  return raise_velmor_msg(VLM_ERROR_INTERNAL, "Unexpected internal error");
}

// Ordinary lookup first (methods, the instance dictionary); batch attributes after that.
// Private names never reach the library: probes such as __length_hint__ stay AttributeErrors.
PyObject* batch_getattro(PyObject* self, PyObject* name) {
  PyObject* found = PyObject_GenericGetAttr(self, name);
  if (found != nullptr || !PyErr_ExceptionMatches(PyExc_AttributeError)) return found;
  if (PyUnicode_Check(name) && PyUnicode_GetLength(name) > 0 && PyUnicode_READ_CHAR(name, 0) == '_') {
    return nullptr;
  }
  PyErr_Clear();
  return read_attr(self, name);
}

int batch_setattro(PyObject* self, PyObject* name, PyObject* value) {
  if (!PyUnicode_Check(name)) {
    PyErr_SetString(PyExc_TypeError, "attribute name must be a string");
    return -1;
  }
  if (PyUnicode_GetLength(name) > 0 && PyUnicode_READ_CHAR(name, 0) == '_') {
    PyObject* d = batch_dict(self);
    if (d == nullptr) return -1;
    if (value != nullptr) return PyDict_SetItem(d, name, value);
    if (PyDict_DelItem(d, name) < 0) {
      if (PyErr_ExceptionMatches(PyExc_KeyError)) {
        PyErr_Clear();
        PyErr_SetObject(PyExc_AttributeError, name);
      }
      return -1;
    }
    return 0;
  }
  const char* text = py::utf8(name);
  if (text == nullptr) return -1;
  VLMbatch* h = batch_handle(self);
  int flags = 0;
  int rc = h != nullptr ? VLMgetbatchattrflags(h, text, &flags) : VLM_ERROR_NULL_ARGUMENT;
  if (rc != 0) {
    PyErr_SetString(PyExc_AttributeError, h != nullptr ? VLMgeterrormsg(VLMgetbatchenv(h)) : "Batch has been disposed");
    return -1;
  }
  if (flags & kReadOnly) {
    PyErr_Format(PyExc_AttributeError, "Attribute '%s' cannot be set", text);
    return -1;
  }
  raise_velmor_msg(VLM_ERROR_INTERNAL, "Unexpected internal error");
  return -1;
}

// ---- request operations ---------------------------------------------------------------------

template <int (*Call)(VLMbatch*)>
PyObject* batch_op(PyObject* self, PyObject*) {
  VLMbatch* h = batch_handle(self);
  int rc = unlocked([&] { return Call(h); });
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

const char batch_abort_doc[] =
    "abort($self)\n--\n\nAborts the request while it is queued or running; it becomes\n"
    "BATCH_ABORTED. Raises VelmorError when the request has already finished.";
const char batch_retry_doc[] =
    "retry($self)\n--\n\nSubmits a failed or aborted request again; it becomes BATCH_SUBMITTED.\n"
    "Raises VelmorError for a request in any other state.";
const char batch_discard_doc[] =
    "discard($self)\n--\n\nDeletes the request's stored model and results on the service. Later\n"
    "queries fail with ERROR_DATA_NOT_AVAILABLE.";
const char batch_update_doc[] =
    "update($self)\n--\n\nRefreshes the attribute values (BatchStatus, FinishTime, ...) from the\n"
    "service; between updates the attributes keep the values last fetched.";

const char batch_getjsonsolution_doc[] =
    "getJSONSolution($self)\n--\n\nReturns the solution of a completed request (BatchStatus\n"
    "BATCH_COMPLETED) as JSON text, the text Model.getJSONSolution() gives for the solved model.";

PyObject* batch_getjsonsolution(PyObject* self, PyObject*) {
  VLMbatch* h = batch_handle(self);
  char* text = nullptr;
  int rc = unlocked([&] { return VLMgetbatchjsonsolution(h, &text); });
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref result = py::str(text);
  VLMfree(text);
  return result.release();
}

const char batch_writejsonsolution_doc[] =
    "writeJSONSolution($self, filename)\n--\n\nWrites the solution of a completed request as JSON to\n"
    "filename (compressed when it ends in .gz). An existing file is replaced whole or left as it was.";

PyObject* batch_writejsonsolution(PyObject* self, PyObject* arg) {
  py::Ref path = py::Ref::steal(PyOS_FSPath(arg));
  if (!path) return nullptr;
  const char* filename = py::utf8(path.get());
  if (filename == nullptr) return nullptr;
  VLMbatch* h = batch_handle(self);
  int rc = unlocked([&] { return VLMwritebatchjsonsolution(h, filename); });
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

// ---- comparison, repr, dir ----------------------------------------------------------------------

PyObject* batch_richcompare(PyObject* self, PyObject* other, int op) {
  if ((op != Py_EQ && op != Py_NE) || !PyObject_TypeCheck(other, &BatchType)) Py_RETURN_NOTIMPLEMENTED;
  py::Ref id = py::Ref::steal(PyObject_GetAttrString(self, "BatchID"));
  if (!id) return nullptr;
  py::Ref other_id = py::Ref::steal(PyObject_GetAttrString(other, "BatchID"));
  if (!other_id) return nullptr;
  int equal = PyObject_RichCompareBool(id.get(), other_id.get(), Py_EQ);
  if (equal < 0) return nullptr;
  return py::boolean(op == Py_EQ ? equal == 1 : equal == 0);
}

PyObject* batch_repr(PyObject* self) {
  if (batch_handle(self) == nullptr) return PyUnicode_FromString("<velmorpy.Batch, invalid or closed state>");
  py::Ref id = py::Ref::steal(PyObject_GetAttrString(self, "BatchID"));
  if (!id) return nullptr;
  return PyUnicode_FromFormat("<velmorpy.Batch, ID %U>", id.get());
}

PyObject* batch_dir(PyObject* self, PyObject*) {
  py::Ref names = py::Ref::steal(PyList_New(0));
  if (!names) return nullptr;
  if (VLMbatch* h = batch_handle(self)) {
    int n = 0;
    int rc = VLMgetnumbatchattributes(h, &n);
    if (rc != 0) return raise_velmor(rc, self);
    for (int i = 0; i < n; ++i) {
      const char* name = nullptr;
      rc = VLMgetbatchattrname(h, i, &name);
      if (rc != 0) return raise_velmor(rc, self);
      py::Ref s = py::str(name);
      if (!s || PyList_Append(names.get(), s.get()) < 0) return nullptr;
    }
  }
  PyObject* d = batch_dict(self);
  if (d == nullptr) return nullptr;
  PyObject *key, *value;
  Py_ssize_t pos = 0;
  while (PyDict_Next(d, &pos, &key, &value)) {
    if (PyList_Append(names.get(), key) < 0) return nullptr;
  }
  return names.release();
}

const char batch_doc[] =
    "Batch(batchID, env=None)\n--\n\n"
    "The client's handle of a batch request submitted with Model.optimizeBatch().\n\n"
    "Looks the request up on the batch service of env (the default environment when None;\n"
    "the service is named by the CSManager parameter). Its attributes (BatchID, BatchStatus,\n"
    "BatchErrorCode, BatchErrorMessage, ModelName, SubmitTime, FinishTime) are read-only and\n"
    "keep the values of the last update(). An ID unknown to the service raises VelmorError\n"
    "\"Failed to create batch request\". Usable as a context manager, which disposes it.";

PyMethodDef batch_methods[] = {
    {"abort", py::guarded<&batch_op<VLMabortbatch>>, METH_NOARGS, batch_abort_doc},
    {"retry", py::guarded<&batch_op<VLMretrybatch>>, METH_NOARGS, batch_retry_doc},
    {"discard", py::guarded<&batch_op<VLMdiscardbatch>>, METH_NOARGS, batch_discard_doc},
    {"update", py::guarded<&batch_op<VLMupdatebatch>>, METH_NOARGS, batch_update_doc},
    {"getJSONSolution", py::guarded<&batch_getjsonsolution>, METH_NOARGS, batch_getjsonsolution_doc},
    {"writeJSONSolution", py::guarded<&batch_writejsonsolution>, METH_O, batch_writejsonsolution_doc},
    {"dispose", py::guarded<&batch_dispose>, METH_NOARGS, batch_dispose_doc},
    {"close", py::guarded<&batch_dispose>, METH_NOARGS, batch_close_doc},
    {"__enter__", py::guarded<&batch_enter>, METH_NOARGS, "__enter__($self)\n--\n\nReturns the batch."},
    {"__exit__", (PyCFunction)(void (*)(void))py::guarded<&batch_exit>, METH_FASTCALL,
     "Disposes the batch when the with-block ends; exceptions propagate."},
    {"__dir__", py::guarded<&batch_dir>, METH_NOARGS,
     "__dir__($self)\n--\n\nThe batch attribute names and the object's own fields."},
    {nullptr, nullptr, 0, nullptr}};

// The environment behind a Batch, for VelmorError's message.
VLMenv* batch_env_of(PyObject* obj, bool* found) {
  *found = PyObject_TypeCheck(obj, &BatchType);
  if (!*found) return nullptr;
  VLMbatch* h = batch_handle(obj);
  return h != nullptr ? VLMgetbatchenv(h) : nullptr;
}

}  // namespace

int register_batch(PyObject* m) {
  services().batch_env_of = batch_env_of;
  BatchType.tp_basicsize = sizeof(BatchObject);
  BatchType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  BatchType.tp_doc = batch_doc;
  BatchType.tp_new = batch_new;
  BatchType.tp_init = py::guarded<&batch_init>;
  BatchType.tp_dealloc = batch_dealloc;
  BatchType.tp_finalize = batch_finalize;
  BatchType.tp_traverse = batch_traverse;
  BatchType.tp_clear = batch_clear;
  BatchType.tp_repr = py::guarded<&batch_repr>;
  BatchType.tp_getattro = py::guarded<&batch_getattro>;
  BatchType.tp_setattro = py::guarded<&batch_setattro>;
  BatchType.tp_richcompare = py::guarded<&batch_richcompare>;
  BatchType.tp_methods = batch_methods;
  BatchType.tp_dictoffset = offsetof(BatchObject, dict);
  BatchType.tp_weaklistoffset = offsetof(BatchObject, weakreflist);
  if (PyType_Ready(&BatchType) < 0) return -1;
  Py_INCREF(&BatchType);
  return PyModule_AddObject(m, "Batch", reinterpret_cast<PyObject*>(&BatchType));
}
