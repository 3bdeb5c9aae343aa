// The solution of a model as JSON text (VLMgetjsonsolution and .json files):
//
//   {"SolutionInfo": {"Status": 2, "SolCount": 1, "Runtime": 0.01, "ObjVal": 11,
//                     "ObjBound": 11, "MIPGap": 0, "IterCount": 2, "NodeCount": 0},
//    "Vars": [{"VarName": "x", "X": 3, "RC": 1}, ...],
//    "Constrs": [{"ConstrName": "c1", "Slack": 0, "Pi": 2}, ...]}
//
// Fields without a value (no solution, no duals) are left out.
#pragma once

#include <string>

#include "model/model.h"

namespace vlm::io {

std::string json_solution(Model& m);

}  // namespace vlm::io
