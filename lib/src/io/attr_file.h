// Attribute files (.attr): the element inputs a model file does not hold (starts, hints,
// branching priorities, partitions, lazy levels, tags, IIS forces, ...), one value per line:
//
//   # comment
//   Start x0 1.5
//   VTag "my var" "a tag with blanks"
//
// The first word names the attribute, the second the element (by its name in the model), the
// rest is the value. Words holding blanks or quotes are written between double quotes, with
// \" and \\ escapes.
#pragma once

#include <string>

#include "core/status.h"
#include "model/model.h"

namespace vlm::io {

// Queues every value of `filename` on the model (applied at the next update). On an error,
// nothing from the file is kept; the message names the file and the line.
Status read_attr_file(const std::string& filename, Model& m);

// Writes the values that differ from their defaults, for every element input attribute.
Status write_attr_file(const std::string& filename, Model& m);

}  // namespace vlm::io
