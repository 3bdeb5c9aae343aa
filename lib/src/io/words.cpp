#include "io/words.h"

namespace vlm::io {

bool split_words(const std::string& line, std::vector<std::string>& words) {
  words.clear();
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
    if (i >= line.size()) break;
    std::string w;
    if (line[i] == '"') {
      ++i;
      bool closed = false;
      while (i < line.size()) {
        char c = line[i++];
        if (c == '\\' && i < line.size()) {
          w.push_back(line[i++]);
        } else if (c == '"') {
          closed = true;
          break;
        } else {
          w.push_back(c);
        }
      }
      if (!closed) return false;
    } else {
      while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') w.push_back(line[i++]);
    }
    words.push_back(std::move(w));
  }
  return true;
}

std::string quote_word(const std::string& w) {
  if (!w.empty() && w.find_first_of(" \t\"\\#") == std::string::npos) return w;
  std::string out = "\"";
  for (char c : w) {
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  return out + "\"";
}

}  // namespace vlm::io
