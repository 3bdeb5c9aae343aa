// The lexical pieces of MPS lines, and the evidence that decides between the free and the
// fixed reading of an MPS file (the rule itself is documented in mps_reader.h).
#pragma once

#include <string_view>
#include <vector>

#include "model/model_data.h"

namespace vlm::io {

namespace mps {

// A blank of the format (space, tab, line breaks).
bool is_blank(char c);

// Blank-separated words with their end positions (to take "the rest of the line").
struct Words {
  std::vector<std::string_view> w;
  std::vector<std::size_t> end;
};

// The words of `s`. O(length).
Words split(std::string_view s);

// Columns [b, e) of `line` (0-based), cut at its end.
std::string_view cols(std::string_view line, std::size_t b, std::size_t e);

// A number field of fixed MPS: the word starting within [b, e) (0-based), which may run on
// past e; `end` receives the column after it (b when there is none).
std::string_view fixed_number(std::string_view line, std::size_t b, std::size_t e, std::size_t& end);

}  // namespace mps

// True when some data line holds a blank between two non-blanks inside one of the fixed name
// fields (columns 5-12, 15-22, 40-47): the only sign that the file may need the fixed reading
// although the free one succeeded. O(text size).
bool fixed_name_field_has_blank(std::string_view text);

// True when some variable, linear, quadratic or general constraint name read holds a blank.
bool has_name_with_blank(const ModelData& d);

}  // namespace vlm::io
