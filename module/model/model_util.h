// What the Model's aspect files (model*.cpp) share: the table of element kinds, the handle
// list of a kind, the attribute target of a Model, readers of single model attributes and the
// writer of the model's log. The readers raise VelmorError when the library refuses.
#pragma once

#include <string>

#include "attrs/attrutil.h"
#include "model/model.h"
#include "velmor_c.h"

// Per element kind: the count attribute, the name attribute, the default name prefix and the
// deletion call. Indexed by VLM_KIND_*.
struct KindInfo {
  const char* count_attr;
  const char* name_attr;  // nullptr: SOS constraints have no name
  const char* prefix;
  int (*del)(VLMmodel*, int, const int*);
};
extern const KindInfo kKinds[];

// The handle list of one kind (nullptr before setup).
inline PyObject*& list_of(ModelObject* m, int kind) { return m->lists[kind - VLM_KIND_VAR]; }

// The Model as the target of attribute reads and writes.
inline AttrTarget model_target(PyObject* self) {
  return AttrTarget{self, model_handle(self), "Model", VLM_KIND_MODEL, 0};
}

// Reads an int or string model attribute: false with VelmorError set on failure.
bool get_int(PyObject* self, const char* attr, int* out);
bool get_str(PyObject* self, const char* attr, std::string* out);

// Writes one line to the model's log.
bool model_message(PyObject* self, const std::string& text);
