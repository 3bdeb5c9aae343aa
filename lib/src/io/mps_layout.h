// The evidence that decides between the free and the fixed reading of an MPS file (the rule
// itself is documented in mps_reader.h).
#pragma once

#include <string_view>

#include "model/model_data.h"

namespace vlm::io {

// True when some data line holds a blank between two non-blanks inside one of the fixed name
// fields (columns 5-12, 15-22, 40-47): the only sign that the file may need the fixed reading
// although the free one succeeded. O(text size).
bool fixed_name_field_has_blank(std::string_view text);

// True when some variable, linear, quadratic or general constraint name read holds a blank.
bool has_name_with_blank(const ModelData& d);

}  // namespace vlm::io
