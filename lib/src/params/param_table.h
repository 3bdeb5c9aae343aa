// The parameter table: every parameter the library knows, declared once in param_defs.inc.
//
// Invariants: names are unique ignoring letter case; every default lies within [min, max];
// the table's order is the order of VLMgetparamname. Lookups are case-insensitive and exact
// (wildcards are the caller's business). Help texts are generated from the table.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "velmor_codes.h"

namespace vlm {

enum class ParamType : int { kInt = VLM_INT, kDbl = VLM_DBL, kStr = VLM_STR };

// Broad topic of a parameter; used to order and group help output and parameter files.
enum class ParamGroup : int {
  kTermination,
  kTolerances,
  kSimplex,
  kBarrier,
  kScaling,
  kPresolve,
  kMIP,
  kMIPCuts,
  kHeuristics,
  kFuncApprox,
  kNonConvex,
  kTuning,
  kMultiObj,
  kScenario,
  kPool,
  kIIS,
  kFeasRelax,
  kConcurrent,
  kDistributed,
  kBatch,
  kLicense,
  kOutput,
  kOther,
};

// Flags of a parameter definition (a subset of the VLM_PARAMFLAG_* values).
inline constexpr int kParamNoEffect = VLM_PARAMFLAG_NO_EFFECT;
inline constexpr int kParamHidden = VLM_PARAMFLAG_HIDDEN;

struct ParamDef {
  const char* name;
  ParamType type;
  ParamGroup group;
  double def;      // default for int and double parameters
  double min;      // bounds for int and double parameters
  double max;
  const char* sdef;  // default for string parameters, nullptr otherwise
  int flags;
  const char* purpose;  // the PURPOSE paragraph of the help text
};

// The whole table in declaration order.
const std::vector<ParamDef>& param_table();

// Index of the parameter whose name equals `name` ignoring letter case, or -1. O(1) average.
int find_param(std::string_view name);

// The help text of parameter `index` ("PARAMETER NAME: ...", "TYPE: ...", "PURPOSE: ...",
// "VALUES: ..."), built once and kept for the life of the process.
const std::string& param_help(int index);

// Formats a double the way help texts and parameter files show it: shortest round-trip form,
// exponent without '+' or leading zeros ("1e100", "-1e100", "1e-06" becomes "1e-6").
std::string format_double(double v);

}  // namespace vlm
