// Solution (.sol), MIP start (.mst), hint (.hnt) and branching order (.ord) files: one
// variable per line,
//
//   # comment
//   x0 1.5          (.sol and .mst: name value)
//   x1 2 5          (.hnt: name value [priority])
//   x2 10           (.ord: name BranchPriority, an integer)
//
// Names are the variables' names; a name holding blanks is written between double quotes.
// Reading queues attribute writes (Start, VarHintVal/VarHintPri or BranchPriority) applied at
// the next update; a bad line keeps nothing of the file and names the file and the line.
#pragma once

#include <string>

#include "core/status.h"
#include "model/model.h"

namespace vlm::io {

enum class VarFileKind { kSolution, kStart, kHint, kOrder };

// The kind a suffix means ("sol", "mst", "hnt", "ord"), or false.
bool var_file_kind(const std::string& suffix, VarFileKind* kind);

// Writes the current solution (.sol), the start (.mst: the solution's values when there is
// one, else the Start values that are set), the hints (.hnt) or the non-zero branching
// priorities (.ord). A .sol without a solution
// fails with VLM_ERROR_DATA_NOT_AVAILABLE.
Status write_var_file(const std::string& filename, VarFileKind kind, Model& m);

// Reads a .sol or .mst file into the Start values, a .hnt file into the hints, or a .ord file
// into BranchPriority (variables it leaves out keep theirs).
Status read_var_file(const std::string& filename, VarFileKind kind, Model& m);

}  // namespace vlm::io
