// The attribute table: every attribute of models, variables, constraints, SOS, quadratic and
// general constraints and batches, declared once in attr_defs.inc.
//
// Invariants: names are unique ignoring letter case; the table's order is the order of
// VLMgetattrname. Lookups are case-insensitive and exact. The getters and setters of the model
// dispatch through this table (name -> index -> AttrDef), never through per-name branches.
#pragma once

#include <string_view>
#include <vector>

#include "velmor_codes.h"

namespace vlm {

enum class AttrType : int { kChar = VLM_CHAR, kInt = VLM_INT, kDbl = VLM_DBL, kStr = VLM_STR };

enum class AttrKind : int {
  kModel = VLM_KIND_MODEL,
  kVar = VLM_KIND_VAR,
  kConstr = VLM_KIND_CONSTR,
  kSOS = VLM_KIND_SOS,
  kQConstr = VLM_KIND_QCONSTR,
  kGenConstr = VLM_KIND_GENCONSTR,
  kBatch = VLM_KIND_BATCH,
};

// When an attribute has a value. Reads outside that state fail with
// VLM_ERROR_DATA_NOT_AVAILABLE ("Unable to retrieve attribute 'X'").
enum class AttrAvail : int {
  kAlways,       // model data: always readable
  kAfterSolve,   // statistics of the last optimize call (Runtime, Status, IterCount, ...)
  kSolution,     // needs at least one solution (X, ObjVal, Slack, violations, ...)
  kMIP,          // MIP progress/result information (ObjBound, MIPGap, NodeCount, ...)
  kDual,         // needs a continuous model solved to optimality (Pi, RC, QCPi)
  kBasis,        // needs a basis (VBasis, CBasis, Kappa)
  kSensitivity,  // needs an LP basis: SA* ranges
  kInfUnbd,      // needs InfUnbdInfo and an infeasible/unbounded LP (UnbdRay, Farkas*)
  kPool,         // needs a solution pool entry selected by SolutionNumber (Xn, PoolObjVal)
  kIIS,          // needs computeIIS (IIS* flags, IISMinimal)
  kMultiObj,     // selected by ObjNumber
  kScenario,     // selected by ScenarioNumber
  kTune,         // needs a tuning run (TuneResultCount)
  kBatchInfo,    // batch request information
};

struct AttrDef {
  const char* name;
  AttrType type;
  AttrKind kind;
  bool settable;
  AttrAvail avail;
  const char* description;  // one sentence shown in help texts
};

// The whole table in declaration order.
const std::vector<AttrDef>& attr_table();

// Index of the attribute whose name equals `name` ignoring letter case, or -1. O(1) average.
int find_attr(std::string_view name);

}  // namespace vlm
