#include "io/prm_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "core/text.h"
#include "io/file_format.h"

namespace vlm::io {

Status read_params(const std::string& filename, ParamSet& params) {
  std::ifstream in(filename);
  if (!in) {
    return Status(VLM_ERROR_FILE_READ, "Unable to open parameter file '" + filename +
                                           "' for reading: " + std::strerror(errno));
  }
  std::string raw;
  int lineno = 0;
  while (std::getline(in, raw)) {
    ++lineno;
    std::string_view line = trim(raw);
    if (line.empty() || line.front() == '#') continue;
    std::size_t cut = line.find_first_of(" \t=");
    if (cut == std::string_view::npos) {
      return Status(VLM_ERROR_FILE_READ, "Parameter file '" + filename + "', line " +
                                             std::to_string(lineno) + ": expected 'Name value', found '" +
                                             std::string(line) + "'");
    }
    std::string_view name = line.substr(0, cut);
    std::string_view value = trim(line.substr(cut + 1));
    if (!value.empty() && value.front() == '=') value = trim(value.substr(1));
    // Values that would lose blanks are written between double quotes.
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
      value = value.substr(1, value.size() - 2);
    }
    StatusOr<int> index = params.lookup(name);
    Status s = index.ok() ? params.set_from_text(*index, value) : index.status();
    if (!s.ok()) {
      return Status(s.code() == VLM_ERROR_UNKNOWN_PARAMETER ? VLM_ERROR_FILE_READ : s.code(),
                    "Parameter file '" + filename + "', line " + std::to_string(lineno) + ": " +
                        s.message());
    }
  }
  if (in.bad()) {
    return Status(VLM_ERROR_FILE_READ, "Error while reading parameter file '" + filename + "'");
  }
  return Status::Ok();
}

std::string params_text(const ParamSet& params, bool (*skip)(int index)) {
  std::ostringstream out;
  out << "# Parameter settings written by Velmor " << VLM_VERSION_MAJOR << "."
      << VLM_VERSION_MINOR << "." << VLM_VERSION_TECHNICAL << "\n";
  const auto& table = param_table();
  for (int i = 0; i < static_cast<int>(table.size()); ++i) {
    if (params.is_default(i) || (skip != nullptr && skip(i))) continue;
    std::string text = params.value_text(i);
    if (text.empty() || trim(text).size() != text.size()) text = "\"" + text + "\"";
    out << table[i].name << "  " << text << "\n";
  }
  return out.str();
}

Status write_params(const std::string& filename, const ParamSet& params) {
  return write_whole_file(filename, params_text(params), "parameter file");
}

}  // namespace vlm::io
