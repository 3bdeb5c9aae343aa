// Irreducible inconsistent subsystems (IIS) of infeasible models, by a deletion filter.
//
// The members of an infeasible model are its linear, quadratic, SOS and general constraints
// and the finite bounds of its variables (integrality is never a member). A subsystem S is
// an IIS when S is infeasible and S minus any one member is feasible.
//
// Deletion filter: start from S = every member; for each candidate e in turn, solve S \ {e};
// if it is still infeasible, e goes for good (S := S \ {e}), otherwise e stays. A member that
// stays makes its S \ {e} feasible, and S only shrinks afterwards, so every member of the
// final S is necessary: S is an IIS. To save solves, candidates are tried in groups: a group
// whose removal leaves S infeasible goes at once (the group then doubles in size); a group
// whose removal makes S feasible is halved and tried again, down to single members. The
// argument above holds unchanged, since only single members are ever kept.
//
// Farkas shortcut: for systems of linear rows and bounds, one solve of the linear relaxation
// with a Farkas certificate y drops at once every candidate the certificate does not use (rows
// with y_i = 0, bounds not needed by z = A'y); a solve confirms the rest is still infeasible.
//
// Each test solves a copy of the model with the objective removed (a MIP stops at its first
// feasible solution) through the library's own solve path; the user's model is never changed.
#pragma once

#include "core/status.h"
#include "model/model.h"

namespace vlm::analysis {

// Computes an IIS of the updated model (updating it first) and stores it on the model
// (Model::iis()). Honours the IIS*Force attributes (1: always a member, never tested; 0: never
// a member, dropped before the first solve), IISMethod (0 and -1: Farkas shortcut and groups;
// 1: single members in order, no shortcut; 2: as 0 with every variable bound kept in the model
// and out of the IIS; 3: on the relaxation of a MIP, integrality dropped) and TimeLimit over
// all solves. Stopped early (time, or analysis::terminate), the subsystem found so far is
// stored: infeasible, not necessarily minimal (IISMinimal 0).
// Fails with VLM_ERROR_IIS_NOT_INFEASIBLE when the model (without the members forced out) is
// feasible, VLM_ERROR_DATA_NOT_AVAILABLE when the time runs out (or a stop comes) before
// infeasibility is shown, and with the engine's code for models it cannot solve.
// Cost: the shortcut takes two or three solves; then one solve per group tried, about
// 2 k log2(n) + n/8 for n candidates left and an IIS of k members.
Status compute_iis(Model& m);

// The model restricted to its IIS: the member constraints, the variables they mention or
// whose bounds are members, and of those bounds only the members (others are infinite); no
// objective. Requires m.iis(). Linear in the model size.
ModelData iis_submodel(const Model& m);

}  // namespace vlm::analysis
