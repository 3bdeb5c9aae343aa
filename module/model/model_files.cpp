// Model: reset, copy, reading and writing files (the library picks the format by the suffix),
// and messages to the model's log.
#include "model/model_files.h"

#include <cstring>
#include <string>

#include "model/model.h"
#include "model/model_util.h"
#include "core/py_convert.h"
#include "core/py_error.h"

namespace {

// Expands '*' and '?' with glob; the first match, or VelmorError when nothing matches.
py::Ref expand_filename(PyObject* filename) {
  const char* name = py::utf8(filename);
  if (name == nullptr) return py::Ref();
  if (std::strpbrk(name, "*?") == nullptr) return py::Ref::borrow(filename);
  py::Ref glob = py::Ref::steal(PyImport_ImportModule("glob"));
  if (!glob) return py::Ref();
  py::Ref matches = py::Ref::steal(PyObject_CallMethod(glob.get(), "glob", "O", filename));
  if (!matches) return py::Ref();
  if (PyList_GET_SIZE(matches.get()) == 0) {
    std::string msg = std::string("No file matching '") + name + "' found";
    return py::Ref::steal(raise_velmor_msg(VLM_ERROR_FILE_READ, msg.c_str()));
  }
  return py::Ref::borrow(PyList_GET_ITEM(matches.get(), 0));
}

bool ends_with(const std::string& s, const char* suffix) {
  std::size_t n = std::strlen(suffix);
  return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

}  // namespace

PyObject* model_reset(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"clearall", nullptr};
  int clearall = 0;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|p:reset", const_cast<char**>(kwlist), &clearall)) return nullptr;
  int rc = VLMreset(model_handle(self), clearall);
  if (rc != 0) return raise_velmor(rc, self);
  std::string msg = "Discarded solution information";
  if (clearall) msg += " including additional information";
  if (!model_message(self, msg)) return nullptr;
  return py::none();
}

PyObject* model_copy(PyObject* self, PyObject*) {
  VLMmodel* copy = VLMcopymodel(model_handle(self));
  if (copy == nullptr) return raise_velmor(VLM_ERROR_FAILED_TO_CREATE_MODEL, self);
  return model_adopt(copy, as_model(self)->uenv).release();
}

PyObject* model_write(PyObject* self, PyObject* filename) {
  const char* f = py::utf8(filename);
  if (f == nullptr) return nullptr;
  // Model and attribute files show the model with its pending changes applied.
  if ((VLMismodelfile(f) || VLMisattrfile(f)) && model_update(self) < 0) return nullptr;
  int rc = VLMwrite(model_handle(self), f);
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

PyObject* model_read(PyObject* self, PyObject* filename) {
  py::Ref chosen = expand_filename(filename);
  if (!chosen) return nullptr;
  const char* f = PyUnicode_AsUTF8(chosen.get());
  if (f == nullptr) return nullptr;
  int rc = VLMread(model_handle(self), f);
  if (rc != 0) return raise_velmor(rc, self);
  std::string name(f);
  const char* what = ends_with(name, ".mst")   ? "Read MIP start from file "
                     : ends_with(name, ".prm") ? "Read parameters from file "
                     : ends_with(name, ".ord") ? "Read branching order from file "
                     : ends_with(name, ".bas") ? "Read basis from file "
                                               : nullptr;
  if (what != nullptr && !model_message(self, what + name)) return nullptr;
  return py::none();
}

PyObject* model_message_method(PyObject* self, PyObject* msg) {
  const char* s = py::utf8(msg);
  if (s == nullptr) return nullptr;
  if (!model_message(self, s)) return nullptr;
  return py::none();
}
