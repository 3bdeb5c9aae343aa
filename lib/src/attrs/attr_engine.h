// The attribute engine: reads and queued writes of every attribute, dispatched through one
// binding per attribute table entry.
//
// An attribute is either bound to model data (LB reads ModelData::lb, NumVars counts, ...),
// kept in an extra column of its element kind (Start, BranchPriority, VTag, ... created on
// first write), or a result of solving, which reads fail with VLM_ERROR_DATA_NOT_AVAILABLE
// until a solve provides it. Writes are validated at once and applied at the next update.
#pragma once

#include <string>
#include <string_view>

#include "attrs/attr_table.h"
#include "core/status.h"
#include "model/model.h"

namespace vlm {

// One attribute value; `num` carries int and double values, `ch` chars, `str` strings.
struct AttrValue {
  double num = 0.0;
  char ch = 0;
  std::string str;
};

// Looks up an attribute and checks that it belongs to `kind` and has value type `type` (the
// typed C API families call this). Fails with UNKNOWN_ATTRIBUTE / INVALID_ARGUMENT.
StatusOr<int> resolve_attr(std::string_view name, int kind, AttrType type);

// Reads attribute `attr` of element `elem` (ignored for model attributes).
Status get_attr(Model& m, int attr, int elem, AttrValue& out);

// Validates and queues a write of attribute `attr` of element `elem`.
Status set_attr(Model& m, int attr, int elem, const AttrValue& value);

// Element kind of an attribute's index checks ("Variable", "Constraint", ...).
const char* kind_name(AttrKind kind);

// Clears the extra columns of the inputs that only guide solving (starts, hints, bases).
void clear_guidance(Model& m);

}  // namespace vlm
