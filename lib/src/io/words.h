// Words of the line-oriented text files (.attr, .sol, .mst, .hnt): blank-separated, with
// double quotes around a word that holds blanks, quotes or '#', and \" and \\ escapes inside.
#pragma once

#include <string>
#include <vector>

namespace vlm::io {

// Splits `line` into words; false on an unterminated quoted word.
bool split_words(const std::string& line, std::vector<std::string>& words);

// `w` as a word that split_words reads back unchanged.
std::string quote_word(const std::string& w);

}  // namespace vlm::io
