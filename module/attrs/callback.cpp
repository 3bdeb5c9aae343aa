// CallbackClass: the callback codes (VLM.callback), also copied onto VLM itself. "Where" codes
// tell a callback what the solver is doing; "what" codes name the progress data it may ask for
// there. The numbers come from velmor_codes.h, which the library's callback interface shares.
#include <vector>

#include "core/constclass.h"
#include "velmor_codes.h"

namespace {

const IntConst kWhere[] = {
    {"POLLING", VLM_CB_POLLING, "Polling, so that the user may interrupt; no progress data"},
    {"PRESOLVE", VLM_CB_PRESOLVE, "Presolve is running"},
    {"SIMPLEX", VLM_CB_SIMPLEX, "The simplex method is running"},
    {"MIP", VLM_CB_MIP, "The branch-and-bound search is running"},
    {"MIPSOL", VLM_CB_MIPSOL, "A new incumbent solution was found"},
    {"MIPNODE", VLM_CB_MIPNODE, "A branch-and-bound node is being explored"},
    {"MESSAGE", VLM_CB_MESSAGE, "A log line is about to be printed"},
    {"BARRIER", VLM_CB_BARRIER, "The barrier method is running"},
    {"MULTIOBJ", VLM_CB_MULTIOBJ, "A step of multi-objective optimization finished"},
    {"IIS", VLM_CB_IIS, "An IIS is being computed"},
};

const IntConst kPresolve[] = {
    {"PRE_COLDEL", VLM_CB_PRE_COLDEL, "Columns removed so far"},
    {"PRE_ROWDEL", VLM_CB_PRE_ROWDEL, "Rows removed so far"},
    {"PRE_SENCHG", VLM_CB_PRE_SENCHG, "Constraint senses changed so far"},
    {"PRE_BNDCHG", VLM_CB_PRE_BNDCHG, "Bounds changed so far"},
    {"PRE_COECHG", VLM_CB_PRE_COECHG, "Coefficients changed so far"},
};

const IntConst kSimplex[] = {
    {"SPX_ITRCNT", VLM_CB_SPX_ITRCNT, "Simplex iterations so far"},
    {"SPX_OBJVAL", VLM_CB_SPX_OBJVAL, "Objective value of the current basis"},
    {"SPX_PRIMINF", VLM_CB_SPX_PRIMINF, "Primal infeasibility of the current basis"},
    {"SPX_DUALINF", VLM_CB_SPX_DUALINF, "Dual infeasibility of the current basis"},
    {"SPX_ISPERT", VLM_CB_SPX_ISPERT, "1 if the problem is currently perturbed"},
};

const IntConst kMip[] = {
    {"MIP_OBJBST", VLM_CB_MIP_OBJBST, "Objective value of the incumbent"},
    {"MIP_OBJBND", VLM_CB_MIP_OBJBND, "Best proven objective bound"},
    {"MIP_NODCNT", VLM_CB_MIP_NODCNT, "Nodes explored so far"},
    {"MIP_SOLCNT", VLM_CB_MIP_SOLCNT, "Solutions found so far"},
    {"MIP_CUTCNT", VLM_CB_MIP_CUTCNT, "Cutting planes applied so far"},
    {"MIP_NODLFT", VLM_CB_MIP_NODLFT, "Nodes not yet explored"},
    {"MIP_ITRCNT", VLM_CB_MIP_ITRCNT, "Simplex iterations so far"},
    {"MIP_OPENSCENARIOS", VLM_CB_MIP_OPENSCENARIOS, "Scenarios not yet solved"},
    {"MIP_PHASE", VLM_CB_MIP_PHASE, "Search phase (a VLM.PHASE_MIP_* value)"},
};

const IntConst kMipSol[] = {
    {"MIPSOL_SOL", VLM_CB_MIPSOL_SOL, "Variable values of the new solution"},
    {"MIPSOL_OBJ", VLM_CB_MIPSOL_OBJ, "Objective value of the new solution"},
    {"MIPSOL_OBJBST", VLM_CB_MIPSOL_OBJBST, "Objective value of the incumbent"},
    {"MIPSOL_OBJBND", VLM_CB_MIPSOL_OBJBND, "Best proven objective bound"},
    {"MIPSOL_NODCNT", VLM_CB_MIPSOL_NODCNT, "Nodes explored so far"},
    {"MIPSOL_SOLCNT", VLM_CB_MIPSOL_SOLCNT, "Solutions found so far"},
    {"MIPSOL_OPENSCENARIOS", VLM_CB_MIPSOL_OPENSCENARIOS, "Scenarios not yet solved"},
    {"MIPSOL_PHASE", VLM_CB_MIPSOL_PHASE, "Search phase (a VLM.PHASE_MIP_* value)"},
};

const IntConst kMipNode[] = {
    {"MIPNODE_STATUS", VLM_CB_MIPNODE_STATUS, "Status of the node relaxation (e.g., VLM.OPTIMAL)"},
    {"MIPNODE_REL", VLM_CB_MIPNODE_REL, "Variable values of the node relaxation"},
    {"MIPNODE_OBJBST", VLM_CB_MIPNODE_OBJBST, "Objective value of the incumbent"},
    {"MIPNODE_OBJBND", VLM_CB_MIPNODE_OBJBND, "Best proven objective bound"},
    {"MIPNODE_NODCNT", VLM_CB_MIPNODE_NODCNT, "Nodes explored so far"},
    {"MIPNODE_SOLCNT", VLM_CB_MIPNODE_SOLCNT, "Solutions found so far"},
    {"MIPNODE_BRVAR", VLM_CB_MIPNODE_BRVAR, "Variable the node will branch on"},
    {"MIPNODE_OPENSCENARIOS", VLM_CB_MIPNODE_OPENSCENARIOS, "Scenarios not yet solved"},
    {"MIPNODE_PHASE", VLM_CB_MIPNODE_PHASE, "Search phase (a VLM.PHASE_MIP_* value)"},
};

const IntConst kMessage[] = {
    {"MSG_STRING", VLM_CB_MSG_STRING, "The log line about to be printed"},
    {"RUNTIME", VLM_CB_RUNTIME, "Seconds since optimization started"},
    {"WORK", VLM_CB_WORK, "Work units spent since optimization started"},
};

const IntConst kBarrier[] = {
    {"BARRIER_ITRCNT", VLM_CB_BARRIER_ITRCNT, "Barrier iterations so far"},
    {"BARRIER_PRIMOBJ", VLM_CB_BARRIER_PRIMOBJ, "Primal objective value of the current iterate"},
    {"BARRIER_DUALOBJ", VLM_CB_BARRIER_DUALOBJ, "Dual objective value of the current iterate"},
    {"BARRIER_PRIMINF", VLM_CB_BARRIER_PRIMINF, "Primal infeasibility of the current iterate"},
    {"BARRIER_DUALINF", VLM_CB_BARRIER_DUALINF, "Dual infeasibility of the current iterate"},
    {"BARRIER_COMPL", VLM_CB_BARRIER_COMPL, "Complementarity violation of the current iterate"},
};

const IntConst kMultiObj[] = {
    {"MULTIOBJ_OBJCNT", VLM_CB_MULTIOBJ_OBJCNT, "Objectives optimized so far"},
    {"MULTIOBJ_SOLCNT", VLM_CB_MULTIOBJ_SOLCNT, "Solutions found so far"},
    {"MULTIOBJ_SOL", VLM_CB_MULTIOBJ_SOL, "Variable values of the latest solution"},
};

const IntConst kIis[] = {
    {"IIS_CONSTRMIN", VLM_CB_IIS_CONSTRMIN,
     "Fewest constraints the IIS can have, as proven so far"},
    {"IIS_CONSTRMAX", VLM_CB_IIS_CONSTRMAX, "Most constraints the IIS can have, as proven so far"},
    {"IIS_CONSTRGUESS", VLM_CB_IIS_CONSTRGUESS, "Estimated number of constraints in the IIS"},
    {"IIS_BOUNDMIN", VLM_CB_IIS_BOUNDMIN, "Fewest bounds the IIS can have, as proven so far"},
    {"IIS_BOUNDMAX", VLM_CB_IIS_BOUNDMAX, "Most bounds the IIS can have, as proven so far"},
    {"IIS_BOUNDGUESS", VLM_CB_IIS_BOUNDGUESS, "Estimated number of bounds in the IIS"},
};

struct Section {
  const char* heading;
  std::span<const IntConst> codes;
};

const Section kSections[] = {
    {"Where codes (where the solver is when it calls the callback):", kWhere},
    {"What codes for where == PRESOLVE:", kPresolve},
    {"What codes for where == SIMPLEX:", kSimplex},
    {"What codes for where == MIP:", kMip},
    {"What codes for where == MIPSOL:", kMipSol},
    {"What codes for where == MIPNODE:", kMipNode},
    {"What codes for where == MESSAGE, and the run's progress:", kMessage},
    {"What codes for where == BARRIER:", kBarrier},
    {"What codes for where == MULTIOBJ:", kMultiObj},
    {"What codes for where == IIS:", kIis},
};

}  // namespace

std::span<const IntConst> callback_codes() {
  static const std::vector<IntConst> all = [] {
    std::vector<IntConst> v;
    for (const Section& s : kSections) v.insert(v.end(), s.codes.begin(), s.codes.end());
    return v;
  }();
  return all;
}

py::Ref callback_class() {
  HelpTable table;
  table.heading("Velmor callback codes (e.g., where == VLM.MIPSOL):");
  for (const Section& s : kSections) {
    table.heading("");
    table.heading(s.heading);
    table.rows(s.codes);
  }
  return constclass_from_ints("CallbackClass", table.str(), callback_codes());
}
