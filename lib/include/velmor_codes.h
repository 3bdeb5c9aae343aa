/* velmor_codes.h: the numeric constants shared by the public C API and the library's internals.
 *
 * Plain C, no declarations other than macros, so that both velmor_c.h and the C++ core can
 * include it without pulling in each other. Every value here is part of the ABI: never renumber.
 */
#ifndef VELMOR_CODES_H
#define VELMOR_CODES_H

/* Version of the library and of the interface it implements. */
#define VLM_VERSION_MAJOR 10
#define VLM_VERSION_MINOR 0
#define VLM_VERSION_TECHNICAL 3

/* Numbers at or beyond VLM_INFINITY in magnitude are infinite. */
#define VLM_INFINITY 1e100
#define VLM_UNDEFINED 1e101
#define VLM_MAXINT 2000000000

#define VLM_MAX_NAMELEN 255
#define VLM_MAX_STRLEN 512
#define VLM_MAX_TAGLEN 10240
#define VLM_MAX_CONCURRENT 64

/* Error codes: 0 is success. */
#define VLM_OK 0
#define VLM_ERROR_OUT_OF_MEMORY 10001
#define VLM_ERROR_NULL_ARGUMENT 10002
#define VLM_ERROR_INVALID_ARGUMENT 10003
#define VLM_ERROR_UNKNOWN_ATTRIBUTE 10004
#define VLM_ERROR_DATA_NOT_AVAILABLE 10005
#define VLM_ERROR_INDEX_OUT_OF_RANGE 10006
#define VLM_ERROR_UNKNOWN_PARAMETER 10007
#define VLM_ERROR_VALUE_OUT_OF_RANGE 10008
#define VLM_ERROR_NO_LICENSE 10009
#define VLM_ERROR_SIZE_LIMIT_EXCEEDED 10010
#define VLM_ERROR_CALLBACK 10011
#define VLM_ERROR_FILE_READ 10012
#define VLM_ERROR_FILE_WRITE 10013
#define VLM_ERROR_NUMERIC 10014
#define VLM_ERROR_IIS_NOT_INFEASIBLE 10015
#define VLM_ERROR_NOT_FOR_MIP 10016
#define VLM_ERROR_OPTIMIZATION_IN_PROGRESS 10017
#define VLM_ERROR_DUPLICATES 10018
#define VLM_ERROR_NODEFILE 10019
#define VLM_ERROR_Q_NOT_PSD 10020
#define VLM_ERROR_QCP_EQUALITY_CONSTRAINT 10021
#define VLM_ERROR_NETWORK 10022
#define VLM_ERROR_JOB_REJECTED 10023
#define VLM_ERROR_NOT_SUPPORTED 10024
#define VLM_ERROR_EXCEED_2B_NONZEROS 10025
#define VLM_ERROR_INVALID_PIECEWISE_OBJ 10026
#define VLM_ERROR_UPDATEMODE_CHANGE 10027
#define VLM_ERROR_CLOUD 10028
#define VLM_ERROR_MODEL_MODIFICATION 10029
#define VLM_ERROR_CSWORKER 10030
#define VLM_ERROR_TUNE_MODEL_TYPES 10031
#define VLM_ERROR_SECURITY 10032
#define VLM_ERROR_NOT_IN_MODEL 20001
#define VLM_ERROR_FAILED_TO_CREATE_MODEL 20002
#define VLM_ERROR_INTERNAL 20003

/* Value types of parameters and attributes. */
#define VLM_CHAR 0
#define VLM_INT 1
#define VLM_DBL 2
#define VLM_STR 3

/* Element kinds an attribute belongs to (the attrtype of VLMgetattrinfo). */
#define VLM_KIND_MODEL 0
#define VLM_KIND_VAR 1
#define VLM_KIND_CONSTR 2
#define VLM_KIND_SOS 3
#define VLM_KIND_QCONSTR 4
#define VLM_KIND_GENCONSTR 5
#define VLM_KIND_BATCH 6

/* Parameter flags (VLMgetparamflags). */
#define VLM_PARAMFLAG_NO_EFFECT 1  /* accepted and stored, but this engine does not act on it */
#define VLM_PARAMFLAG_TUNE_FIXED 2 /* fixed for tuning with VLMfixtuneparam */
#define VLM_PARAMFLAG_HIDDEN 4     /* not listed by the walk over all parameters */

/* Optimisation status codes. */
#define VLM_LOADED 1
#define VLM_OPTIMAL 2
#define VLM_INFEASIBLE 3
#define VLM_INF_OR_UNBD 4
#define VLM_UNBOUNDED 5
#define VLM_CUTOFF 6
#define VLM_ITERATION_LIMIT 7
#define VLM_NODE_LIMIT 8
#define VLM_TIME_LIMIT 9
#define VLM_SOLUTION_LIMIT 10
#define VLM_INTERRUPTED 11
#define VLM_NUMERIC 12
#define VLM_SUBOPTIMAL 13
#define VLM_INPROGRESS 14
#define VLM_USER_OBJ_LIMIT 15
#define VLM_WORK_LIMIT 16
#define VLM_MEM_LIMIT 17

/* Callback codes. A callback is told where the solver is by a "where" code (0-9) and asks
 * for progress data with a "what" code; what codes are numbered in blocks of a thousand after
 * the where code they belong to (VLM_CB_MIP_* are 3xxx, VLM_CB_MIP is 3). */
#define VLM_CB_POLLING 0
#define VLM_CB_PRESOLVE 1
#define VLM_CB_SIMPLEX 2
#define VLM_CB_MIP 3
#define VLM_CB_MIPSOL 4
#define VLM_CB_MIPNODE 5
#define VLM_CB_MESSAGE 6
#define VLM_CB_BARRIER 7
#define VLM_CB_MULTIOBJ 8
#define VLM_CB_IIS 9

#define VLM_CB_PRE_COLDEL 1000
#define VLM_CB_PRE_ROWDEL 1001
#define VLM_CB_PRE_SENCHG 1002
#define VLM_CB_PRE_BNDCHG 1003
#define VLM_CB_PRE_COECHG 1004

#define VLM_CB_SPX_ITRCNT 2000
#define VLM_CB_SPX_OBJVAL 2001
#define VLM_CB_SPX_PRIMINF 2002
#define VLM_CB_SPX_DUALINF 2003
#define VLM_CB_SPX_ISPERT 2004

#define VLM_CB_MIP_OBJBST 3000
#define VLM_CB_MIP_OBJBND 3001
#define VLM_CB_MIP_NODCNT 3002
#define VLM_CB_MIP_SOLCNT 3003
#define VLM_CB_MIP_CUTCNT 3004
#define VLM_CB_MIP_NODLFT 3005
#define VLM_CB_MIP_ITRCNT 3006
#define VLM_CB_MIP_OPENSCENARIOS 3007
#define VLM_CB_MIP_PHASE 3008

#define VLM_CB_MIPSOL_SOL 4001
#define VLM_CB_MIPSOL_OBJ 4002
#define VLM_CB_MIPSOL_OBJBST 4003
#define VLM_CB_MIPSOL_OBJBND 4004
#define VLM_CB_MIPSOL_NODCNT 4005
#define VLM_CB_MIPSOL_SOLCNT 4006
#define VLM_CB_MIPSOL_OPENSCENARIOS 4007
#define VLM_CB_MIPSOL_PHASE 4008

#define VLM_CB_MIPNODE_STATUS 5001
#define VLM_CB_MIPNODE_REL 5002
#define VLM_CB_MIPNODE_OBJBST 5003
#define VLM_CB_MIPNODE_OBJBND 5004
#define VLM_CB_MIPNODE_NODCNT 5005
#define VLM_CB_MIPNODE_SOLCNT 5006
#define VLM_CB_MIPNODE_BRVAR 5007
#define VLM_CB_MIPNODE_OPENSCENARIOS 5008
#define VLM_CB_MIPNODE_PHASE 5009

#define VLM_CB_MSG_STRING 6001
#define VLM_CB_RUNTIME 6002
#define VLM_CB_WORK 6003

#define VLM_CB_BARRIER_ITRCNT 7001
#define VLM_CB_BARRIER_PRIMOBJ 7002
#define VLM_CB_BARRIER_DUALOBJ 7003
#define VLM_CB_BARRIER_PRIMINF 7004
#define VLM_CB_BARRIER_DUALINF 7005
#define VLM_CB_BARRIER_COMPL 7006

#define VLM_CB_MULTIOBJ_OBJCNT 8001
#define VLM_CB_MULTIOBJ_SOLCNT 8002
#define VLM_CB_MULTIOBJ_SOL 8003

#define VLM_CB_IIS_CONSTRMIN 9001
#define VLM_CB_IIS_CONSTRMAX 9002
#define VLM_CB_IIS_CONSTRGUESS 9003
#define VLM_CB_IIS_BOUNDMIN 9004
#define VLM_CB_IIS_BOUNDMAX 9005
#define VLM_CB_IIS_BOUNDGUESS 9006

#endif /* VELMOR_CODES_H */
