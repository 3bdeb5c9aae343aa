// Solution (.sol), MIP start (.mst) and hint (.hnt) files: one variable per line,
//
//   # comment
//   x0 1.5          (.sol and .mst: name value)
//   x1 2 5          (.hnt: name value [priority])
//
// Names are the variables' names; a name holding blanks is written between double quotes.
// Reading queues attribute writes (Start, or VarHintVal/VarHintPri) applied at the next
// update; a bad line keeps nothing of the file and names the file and the line.
#pragma once

#include <string>

#include "core/status.h"
#include "model/model.h"

namespace vlm::io {

enum class VarFileKind { kSolution, kStart, kHint };

// The kind a suffix means ("sol", "mst", "hnt"), or false.
bool var_file_kind(const std::string& suffix, VarFileKind* kind);

// Writes the current solution (.sol), the start (.mst: the solution's values when there is
// one, else the Start values that are set) or the hints (.hnt). A .sol without a solution
// fails with VLM_ERROR_DATA_NOT_AVAILABLE.
Status write_var_file(const std::string& filename, VarFileKind kind, Model& m);

// Reads a .sol or .mst file into the Start values, or a .hnt file into the hints.
Status read_var_file(const std::string& filename, VarFileKind kind, Model& m);

}  // namespace vlm::io
