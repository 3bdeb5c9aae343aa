/* velmor_c.h: the public C interface of libvelmor.
 *
 * Every function returns an int error code (0 on success, a VLM_ERROR_* value otherwise) unless
 * its comment says otherwise. A failing call on an environment records a plain-English message
 * on that environment, read with VLMgeterrormsg; a failing call on a model records it on the
 * model (VLMgetmerrormsg). A returned `const char *` stays valid until the next failing call on
 * the same object, or until the object is freed. A NULL environment or model handle gives
 * VLM_ERROR_NULL_ARGUMENT and records nothing. No function lets a C++ exception escape.
 *
 * Strings passed in are UTF-8 and NUL-terminated; the library copies what it keeps.
 */
#ifndef VELMOR_C_H
#define VELMOR_C_H

#include <stddef.h>

#include "velmor_codes.h"

#if defined(_WIN32)
#if defined(VELMOR_BUILDING_LIBRARY)
#define VLM_API __declspec(dllexport)
#else
#define VLM_API __declspec(dllimport)
#endif
#else
#define VLM_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct VLMenv VLMenv;     /* an environment: parameters, log sinks, last error */
typedef struct VLMmodel VLMmodel; /* a model (its own copy of an environment inside) */
typedef struct VLMbatch VLMbatch; /* a batch request on a batch service (see VLMgetbatch) */

/* Receives one log line (with its trailing newline). `usrdata` is what was registered. */
typedef void (*VLMlogcallback)(const char *msg, void *usrdata);

/* Receives every log line while OutputFlag is 1; `toconsole` is the LogToConsole parameter of
 * the environment writing it (1: the line is meant for the console as well). */
typedef void (*VLMlogroutecallback)(const char *msg, int toconsole, void *usrdata);

/* ---------------------------------------------------------------------------------------
 * Library information
 * ------------------------------------------------------------------------------------- */

/* Writes the library version to the three outputs (each may be NULL). Cannot fail. */
VLM_API void VLMversion(int *majorP, int *minorP, int *technicalP);

/* A static text naming the platform the library was built for, e.g. "linux64". */
VLM_API const char *VLMplatform(void);

/* 1 when the process runs inside a container (Docker, Podman, Kubernetes, ...), else 0. */
VLM_API int VLMisContainer(void);

/* ---------------------------------------------------------------------------------------
 * Environments
 * ------------------------------------------------------------------------------------- */

/* Creates an environment that is not started yet: parameters may be set, then VLMstartenv.
 * `envP` (not NULL) receives the new handle, or NULL on failure. `apitype` is 0 for C and the
 * Python module. `major`, `minor`, `technical` are the interface version the caller was built
 * against; a different major version fails with VLM_ERROR_INVALID_ARGUMENT. `reserved1` and
 * `reserved2` must be NULL. The caller frees the handle with VLMfreeenv, also after a failed
 * VLMstartenv. On failure no environment exists to hold the message: the code tells what
 * failed (VLM_ERROR_OUT_OF_MEMORY, VLM_ERROR_INVALID_ARGUMENT, VLM_ERROR_NULL_ARGUMENT). */
VLM_API int VLMemptyenvadvinternal(VLMenv **envP, int apitype, int major, int minor,
                                   int technical, void *reserved1, void *reserved2);

/* Same as VLMemptyenvadvinternal with the caller's own version. */
VLM_API int VLMemptyenv(VLMenv **envP);

/* Creates and starts an environment whose LogFile is `logfilename` (NULL or "" for none). */
VLM_API int VLMloadenv(VLMenv **envP, const char *logfilename);

/* Starts an empty environment: checks that the HiGHS engine is loadable and ABI-compatible,
 * writes the banner to the log. Starting a started environment does nothing. */
VLM_API int VLMstartenv(VLMenv *env);

/* 1 once VLMstartenv has succeeded, else 0 (also for NULL). */
VLM_API int VLMisenvstarted(VLMenv *env);

/* Frees an environment and everything it owns. NULL is ignored. */
VLM_API void VLMfreeenv(VLMenv *env);

/* The last error message recorded on the environment ("" if none; never NULL). */
VLM_API const char *VLMgeterrormsg(VLMenv *env);

/* Writes `message` to the environment's log sinks: the console (or, when a log callback is
 * installed, the callback in its place) if LogToConsole is 1, and LogFile if set; nothing when
 * OutputFlag is 0. A missing final newline is added. */
VLM_API int VLMmsg(VLMenv *env, const char *message);

/* Installs (or, with `cb` NULL, removes) the environment's log callback. While installed it
 * receives the lines that would otherwise go to the console. */
VLM_API int VLMsetlogcallbackfuncenv(VLMenv *env, VLMlogcallback cb, void *usrdata);

/* Installs (or, with `cb` NULL, removes) the environment's log route: while installed it
 * receives every line written with OutputFlag 1, console or not, and the library writes nothing
 * to the console itself (the host prints the lines whose `toconsole` is 1). The log file is
 * written as before. Models built in the environment inherit the route. A host that forwards
 * the log to its own logging framework uses this rather than the log callback, which sees only
 * console lines. */
VLM_API int VLMsetlogroutefuncenv(VLMenv *env, VLMlogroutecallback cb, void *usrdata);

/* Statistics of the traffic with a remote solve service. Each output may be NULL. The library
 * has no remote service yet, so all values are 0. */
VLM_API int VLMgetcommstats(VLMenv *env, double *recvtimeP, double *recvbytesP,
                            double *recvmsgsP, double *sendtimeP, double *sendbytesP,
                            double *sendmsgsP);

/* Remaining lifespan, in seconds, of the licence-service token. Velmor needs no licence:
 * fails with VLM_ERROR_DATA_NOT_AVAILABLE and says so. */
VLM_API int VLMgettokenlifespan(VLMenv *env, int *lifespanP);

/* ---------------------------------------------------------------------------------------
 * Parameters
 *
 * Names are matched exactly, ignoring letter case. An unknown name fails with
 * VLM_ERROR_UNKNOWN_PARAMETER, a value outside [min, max] with VLM_ERROR_VALUE_OUT_OF_RANGE;
 * the old value is kept. A double at or beyond VLM_INFINITY in magnitude is infinite and stored
 * as +-VLM_INFINITY.
 * ------------------------------------------------------------------------------------- */

/* Number of listed parameters (the walk of VLMgetparamname). Every environment has the same
 * parameter set, so `env` may be NULL. */
VLM_API int VLMgetnumparams(VLMenv *env);

/* Name of the parameter at position `i` in [0, VLMgetnumparams): `*nameP` receives a static
 * string. Fails with VLM_ERROR_INDEX_OUT_OF_RANGE outside that range. `env` may be NULL (then
 * nothing is recorded). */
VLM_API int VLMgetparamname(VLMenv *env, int i, char **nameP);

/* VLM_INT, VLM_DBL or VLM_STR for a known name; -1 for an unknown name or a NULL env (nothing is
 * recorded: this is a query, not a failure). */
VLM_API int VLMgetparamtype(VLMenv *env, const char *paramname);

/* The VLM_PARAMFLAG_* bits of a parameter in `*flagsP`. */
VLM_API int VLMgetparamflags(VLMenv *env, const char *paramname, int *flagsP);

/* Current value, minimum, maximum and default of an int parameter (each output may be NULL). */
VLM_API int VLMgetintparaminfo(VLMenv *env, const char *paramname, int *valueP, int *minP,
                               int *maxP, int *defP);

/* Same for a double parameter. */
VLM_API int VLMgetdblparaminfo(VLMenv *env, const char *paramname, double *valueP,
                               double *minP, double *maxP, double *defP);

/* Current value and default of a string parameter, copied into caller buffers of at least
 * VLM_MAX_STRLEN bytes (each may be NULL); a longer value is cut there: see VLMgetlongstrparam. */
VLM_API int VLMgetstrparaminfo(VLMenv *env, const char *paramname, char *valueP, char *defP);

/* Copies the whole value of a string parameter into `value` (capacity `size` bytes, NUL
 * included; `value` may be NULL with `size` 0) and writes the length it needs, NUL included,
 * to `*requiredP` (may be NULL). A too-small buffer receives a cut, NUL-terminated value. */
VLM_API int VLMgetlongstrparam(VLMenv *env, const char *paramname, char *value, int size,
                               int *requiredP);

VLM_API int VLMgetintparam(VLMenv *env, const char *paramname, int *valueP);
VLM_API int VLMgetdblparam(VLMenv *env, const char *paramname, double *valueP);
/* `value` must hold VLM_MAX_STRLEN bytes. */
VLM_API int VLMgetstrparam(VLMenv *env, const char *paramname, char *value);

VLM_API int VLMsetintparam(VLMenv *env, const char *paramname, int value);
VLM_API int VLMsetdblparam(VLMenv *env, const char *paramname, double value);
/* Setting LogFile opens the file for appending; a file that cannot be opened fails with
 * VLM_ERROR_FILE_WRITE and keeps the old setting. */
VLM_API int VLMsetstrparam(VLMenv *env, const char *paramname, const char *value);

/* Sets any parameter from text: "5", "1e-6", "inf", a string value, or "default". */
VLM_API int VLMsetparam(VLMenv *env, const char *paramname, const char *value);

/* Sets every parameter back to its default (LogFile included, which closes the log file). */
VLM_API int VLMresetparams(VLMenv *env);

/* Reads a parameter file: one "Name value" pair per line; blank lines and lines whose first
 * non-blank character is '#' are ignored; names follow the case-insensitive rule. Fails with
 * VLM_ERROR_FILE_READ (file name, line number and the problem) if the file cannot be read or
 * a line is malformed or names an unknown parameter, or with the setter's code; the settings
 * are then as they were before the call. */
VLM_API int VLMreadparams(VLMenv *env, const char *filename);

/* Writes every parameter whose value differs from its default as "Name value" lines, in table
 * order. Fails with VLM_ERROR_FILE_WRITE. */
VLM_API int VLMwriteparams(VLMenv *env, const char *filename);

/* Marks a parameter as fixed for tuning: the tuner will not change it. */
VLM_API int VLMfixtuneparam(VLMenv *env, const char *paramname);

/* The full help text of a parameter ("PARAMETER NAME: ..."); `*helpP` receives a static string. */
VLM_API int VLMgetparamhelp(VLMenv *env, const char *paramname, const char **helpP);

/* ---------------------------------------------------------------------------------------
 * Models: lifecycle and update
 *
 * A model holds its own copy of the environment it was created in (VLMgetenv). Additions,
 * deletions, attribute writes and coefficient changes are queued and take effect at
 * VLMupdatemodel (which the solving and writing calls run first); reads show the model as of
 * the last update. With the UpdateMode parameter at 1 (the default), a new element may be
 * referred to by its future index (the count after the update, in order of addition) before
 * the update. Indices are 0-based.
 * ------------------------------------------------------------------------------------- */

/* Creates a model named `Pname` (NULL for "") with `numvars` initial variables; the arrays
 * obj, lb, ub, vtype and varnames may each be NULL for defaults (0, 0, infinity, 'C', default
 * names). `*modelP` receives the model or NULL. Failure is recorded on `env`. */
VLM_API int VLMnewmodel(VLMenv *env, VLMmodel **modelP, const char *Pname, int numvars,
                        const double *obj, const double *lb, const double *ub,
                        const char *vtype, const char *const *varnames);

/* A copy of the model as of its last update, with its own copy of the environment. NULL on
 * failure (message on `model`). */
VLM_API VLMmodel *VLMcopymodel(VLMmodel *model);
/* The model as of its last update with every SOS, general constraint and piecewise-linear
 * objective term replaced by the linear rows and integer columns the solver uses for it
 * (auxiliary columns _aux0.., rows _rf0..), as an ordinary model with its own copy of the
 * environment. NULL on failure (message on `model`: what optimize would report). */
VLM_API VLMmodel *VLMlinearizemodel(VLMmodel *model);
/* The model as of its last update with the changes of the scenario selected by the
 * ScenarioNumber parameter applied, and no scenarios. NULL on failure (message on `model`:
 * the scenario does not exist). */
VLM_API VLMmodel *VLMsinglescenariomodel(VLMmodel *model);

/* Frees a model. NULL is ignored; returns 0. */
VLM_API int VLMfreemodel(VLMmodel *model);

/* The model's own environment (owned by the model; never free it). NULL for NULL. */
VLM_API VLMenv *VLMgetenv(VLMmodel *model);

/* The last error message recorded on the model ("" if none; never NULL). */
VLM_API const char *VLMgetmerrormsg(VLMmodel *model);

/* Applies every queued change. Fails, leaving the model as it was, when a queued change is
 * invalid (for example an index that does not exist after the update). */
VLM_API int VLMupdatemodel(VLMmodel *model);

/* Discards solution information; with `clearall` 1 also starts, hints and other inputs that
 * only guide the solver. */
VLM_API int VLMreset(VLMmodel *model, int clearall);

/* Installs (or, with NULL, removes) the log callback of the model's own environment. */
VLM_API int VLMsetlogcallbackfunc(VLMmodel *model, VLMlogcallback cb, void *usrdata);

/* ---------------------------------------------------------------------------------------
 * Building: variables, linear, range, quadratic and SOS constraints
 *
 * Coefficients must be finite; bounds use +-VLM_INFINITY (or beyond) for infinite. Variable
 * types: 'C', 'B', 'I', 'S' (semi-continuous), 'N' (semi-integer). Senses: '<', '>', '='.
 * Names may be NULL (default names "C0", "R0", "QC0", "GC0" by final index).
 * ------------------------------------------------------------------------------------- */

/* One variable with `numnz` coefficients in existing constraints (vind, vval; may be NULL when
 * numnz is 0). */
VLM_API int VLMaddvar(VLMmodel *model, int numnz, const int *vind, const double *vval,
                      double obj, double lb, double ub, char vtype, const char *varname);

/* `numvars` variables; column j's coefficients are vind/vval[vbeg[j] .. vbeg[j+1]) (the last
 * up to numnz). Arrays other than vbeg/vind/vval may be NULL for defaults. */
VLM_API int VLMaddvars(VLMmodel *model, int numvars, int numnz, const int *vbeg,
                       const int *vind, const double *vval, const double *obj,
                       const double *lb, const double *ub, const char *vtype,
                       const char *const *varnames);

/* One linear constraint sum(cval[k] x[cind[k]]) sense rhs. */
VLM_API int VLMaddconstr(VLMmodel *model, int numnz, const int *cind, const double *cval,
                         char sense, double rhs, const char *constrname);

/* `numconstrs` linear constraints in compressed-row form (cbeg, cind, cval). */
VLM_API int VLMaddconstrs(VLMmodel *model, int numconstrs, int numnz, const int *cbeg,
                          const int *cind, const double *cval, const char *sense,
                          const double *rhs, const char *const *constrnames);

/* lower <= sum(cval[k] x[cind[k]]) <= upper, stored as the equality
 * sum(...) - s = lower with a new slack variable s in [0, upper - lower] named "Rg" + the
 * constraint's name. After the update the slack is a variable numbered after all variables
 * added in the same batch (slacks in the order of their ranges); it cannot be referred to by
 * index before the update. */
VLM_API int VLMaddrangeconstr(VLMmodel *model, int numnz, const int *cind, const double *cval,
                              double lower, double upper, const char *constrname);

/* lin + sum(qval[k] x[qrow[k]] x[qcol[k]]) sense rhs. */
VLM_API int VLMaddqconstr(VLMmodel *model, int numlnz, const int *lind, const double *lval,
                          int numqnz, const int *qrow, const int *qcol, const double *qval,
                          char sense, double rhs, const char *QCname);

/* `numqconstrs` quadratic constraints in one call, all or none: constraint i is
 * sum(lval[k] x[lind[k]]) + sum(qval[k] x[qrow[k]] x[qcol[k]]) sense[i] rhs[i], its linear
 * terms being k in lbeg[i] .. lbeg[i+1] (the last up to numlnz) and its quadratic terms k in
 * qbeg[i] .. qbeg[i+1] (the last up to numqnz). Term arrays may be NULL when their count is 0;
 * QCnames may be NULL, as may any of its entries (default names "QC<index>"). A refused
 * constraint (bad sense, index, NaN, starts outside the terms) adds none of them. */
VLM_API int VLMaddqconstrs(VLMmodel *model, int numqconstrs, int numlnz, const int *lbeg,
                           const int *lind, const double *lval, int numqnz, const int *qbeg,
                           const int *qrow, const int *qcol, const double *qval,
                           const char *sense, const double *rhs, const char *const *QCnames);

/* `numsos` SOS constraints of types (1 or 2); members of set i are ind/weight[beg[i] ..). */
VLM_API int VLMaddsos(VLMmodel *model, int numsos, int nummembers, const int *types,
                      const int *beg, const int *ind, const double *weight);

/* Adds terms to the quadratic objective (sum qval[k] x[qrow[k]] x[qcol[k]]). */
VLM_API int VLMaddqpterms(VLMmodel *model, int numqnz, const int *qrow, const int *qcol,
                          const double *qval);

/* Removes every quadratic objective term. */
VLM_API int VLMdelq(VLMmodel *model);

/* Sets coefficient (cind[k], vind[k]) to val[k]; 0 removes it. */
VLM_API int VLMchgcoeffs(VLMmodel *model, int cnt, const int *cind, const int *vind,
                         const double *val);

/* Deletion of elements by index (duplicates and already-queued deletions are harmless).
 * Deleting a variable removes it from every constraint, SOS, general constraint and
 * objective that mentions it; a general constraint whose result variable is deleted goes too. */
VLM_API int VLMdelvars(VLMmodel *model, int numdel, const int *ind);
VLM_API int VLMdelconstrs(VLMmodel *model, int numdel, const int *ind);
VLM_API int VLMdelqconstrs(VLMmodel *model, int numdel, const int *ind);
VLM_API int VLMdelsos(VLMmodel *model, int numdel, const int *ind);
VLM_API int VLMdelgenconstrs(VLMmodel *model, int numdel, const int *ind);

/* Cleans a list of linear terms in place: sums the values of duplicate indices, drops zero
 * values, and leaves the terms sorted by index; *lenP receives the new length. Cannot fail
 * but for NULL arguments (a negative length counts as 0). */
VLM_API int VLMclean2(int *lenP, int *ind, double *val);

/* The same for quadratic terms (ind0[k], ind1[k], val[k]): pairs are taken unordered (i, j and
 * j, i are one pair, written with ind0 <= ind1). */
VLM_API int VLMclean3(int *lenP, int *ind0, int *ind1, double *val);

/* ---------------------------------------------------------------------------------------
 * Reading the model back (as of the last update)
 *
 * Two-call pattern: pass NULL arrays to learn the count in *numnzP, then arrays that large.
 * ------------------------------------------------------------------------------------- */

/* The coefficient of variable `var` in constraint `constr` (0 when absent). */
VLM_API int VLMgetcoeff(VLMmodel *model, int constr, int var, double *valP);

/* Rows start .. start+len-1 in compressed-row form; cbeg has `len` entries. */
VLM_API int VLMgetconstrs(VLMmodel *model, int *numnzP, int *cbeg, int *cind, double *cval,
                          int start, int len);
VLM_API int VLMXgetconstrs(VLMmodel *model, size_t *numnzP, size_t *cbeg, int *cind,
                           double *cval, int start, int len);

/* Columns start .. start+len-1 in compressed-column form. */
VLM_API int VLMgetvars(VLMmodel *model, int *numnzP, int *vbeg, int *vind, double *vval,
                       int start, int len);
VLM_API int VLMXgetvars(VLMmodel *model, size_t *numnzP, size_t *vbeg, int *vind,
                        double *vval, int start, int len);

/* The quadratic objective terms, each pair once with qrow <= qcol. */
VLM_API int VLMgetq(VLMmodel *model, int *numqnzP, int *qrow, int *qcol, double *qval);

/* One quadratic constraint: its linear part and its quadratic terms. */
VLM_API int VLMgetqconstr(VLMmodel *model, int qconstr, int *numlnzP, int *lind, double *lval,
                          int *numqnzP, int *qrow, int *qcol, double *qval);

/* SOS start .. start+len-1: types, member lists (beg has `len` entries). */
VLM_API int VLMgetsos(VLMmodel *model, int *nummembersP, int *sostype, int *beg, int *ind,
                      double *weight, int start, int len);

/* Index of the element with this name in *indexP, or -1 when none has it. */
VLM_API int VLMgetvarbyname(VLMmodel *model, const char *name, int *indexP);
VLM_API int VLMgetconstrbyname(VLMmodel *model, const char *name, int *indexP);
VLM_API int VLMgetqconstrbyname(VLMmodel *model, const char *name, int *indexP);
VLM_API int VLMgetgenconstrbyname(VLMmodel *model, const char *name, int *indexP);

/* ---------------------------------------------------------------------------------------
 * General constraints
 *
 * Types are the GENCONSTR codes: MAX 0, MIN 1, ABS 2, AND 3, OR 4, NORM 5, INDICATOR 6, PWL 7,
 * POLY 8, EXP 9, EXPA 10, LOG 11, LOGA 12, POW 13, SIN 14, COS 15, TAN 16, LOGISTIC 17.
 * `options` of the function constraints is NULL or a text of "Name=value" words among
 * FuncPieces, FuncPieceError, FuncPieceLength, FuncPieceRatio and FuncNonlinear.
 * Readers follow the two-call pattern: NULL arrays report the lengths.
 * ------------------------------------------------------------------------------------- */

/* resvar = max(vars..., constant) / min(...). */
VLM_API int VLMaddgenconstrMax(VLMmodel *model, const char *name, int resvar, int nvars,
                               const int *vars, double constant);
VLM_API int VLMaddgenconstrMin(VLMmodel *model, const char *name, int resvar, int nvars,
                               const int *vars, double constant);
/* resvar = |argvar|. */
VLM_API int VLMaddgenconstrAbs(VLMmodel *model, const char *name, int resvar, int argvar);
/* Binary resvar = AND / OR of binary vars. */
VLM_API int VLMaddgenconstrAnd(VLMmodel *model, const char *name, int resvar, int nvars,
                               const int *vars);
VLM_API int VLMaddgenconstrOr(VLMmodel *model, const char *name, int resvar, int nvars,
                              const int *vars);
/* resvar = ||vars||_which with which 0, 1, 2 or VLM_INFINITY. */
VLM_API int VLMaddgenconstrNorm(VLMmodel *model, const char *name, int resvar, int nvars,
                                const int *vars, double which);
/* binvar = binval (0 or 1) implies sum(val x[ind]) sense rhs. */
VLM_API int VLMaddgenconstrIndicator(VLMmodel *model, const char *name, int binvar,
                                     int binval, int nvars, const int *ind, const double *val,
                                     char sense, double rhs);
/* yvar = piecewise-linear function through (xpts[i], ypts[i]), xpts non-decreasing. */
VLM_API int VLMaddgenconstrPWL(VLMmodel *model, const char *name, int xvar, int yvar,
                               int npts, const double *xpts, const double *ypts);
/* yvar = p[0] x^(plen-1) + ... + p[plen-1]. */
VLM_API int VLMaddgenconstrPoly(VLMmodel *model, const char *name, int xvar, int yvar,
                                int plen, const double *p, const char *options);
VLM_API int VLMaddgenconstrExp(VLMmodel *model, const char *name, int xvar, int yvar,
                               const char *options);
/* yvar = a^x, a > 0. */
VLM_API int VLMaddgenconstrExpA(VLMmodel *model, const char *name, int xvar, int yvar,
                                double a, const char *options);
VLM_API int VLMaddgenconstrLog(VLMmodel *model, const char *name, int xvar, int yvar,
                               const char *options);
/* yvar = log_a(x), a > 0, a != 1. */
VLM_API int VLMaddgenconstrLogA(VLMmodel *model, const char *name, int xvar, int yvar,
                                double a, const char *options);
/* yvar = 1 / (1 + exp(-x)). */
VLM_API int VLMaddgenconstrLogistic(VLMmodel *model, const char *name, int xvar, int yvar,
                                    const char *options);
/* yvar = x^a. */
VLM_API int VLMaddgenconstrPow(VLMmodel *model, const char *name, int xvar, int yvar,
                               double a, const char *options);
VLM_API int VLMaddgenconstrSin(VLMmodel *model, const char *name, int xvar, int yvar,
                               const char *options);
VLM_API int VLMaddgenconstrCos(VLMmodel *model, const char *name, int xvar, int yvar,
                               const char *options);
VLM_API int VLMaddgenconstrTan(VLMmodel *model, const char *name, int xvar, int yvar,
                               const char *options);

/* Blocks of general constraints, one library call each, all or none: a refused constraint
 * leaves the model as it was. `names` is NULL or `count` texts (a NULL text gets the default
 * name). Cost: O(count + total operands). */
/* Operand-list types (MAX, MIN, AND, OR, NORM): constraint k is resvar[k] = f(vars[beg[k]] ..
 * vars[beg[k+1]-1]) with beg holding count + 1 offsets; a[k] is the constant of MAX/MIN and the
 * norm of NORM (a NULL `a`: no constant, resp. the 2-norm). */
VLM_API int VLMaddgenconstrlists(VLMmodel *model, int type, int count, const char *const *names,
                                 const int *resvar, const int *beg, const int *vars,
                                 const double *a);
/* Function types (ABS, PWL, POLY and EXP .. LOGISTIC): constraint k is yvar[k] = f(xvar[k]),
 * for ABS yvar the result and xvar the argument; a[k] is the base or exponent of EXPA, LOGA,
 * POW (NULL: none, refused for those three). The PWL points (npts, xpts, ypts) and the POLY
 * coefficients (npts, xpts) are shared by the whole block. */
VLM_API int VLMaddgenconstrfuncs(VLMmodel *model, int type, int count, const char *const *names,
                                 const int *xvar, const int *yvar, const double *a, int npts,
                                 const double *xpts, const double *ypts, const char *options);
/* Indicators: binvar[k] = binval[k] implies the sum of val[j] x[ind[j]] over j in beg[k] ..
 * beg[k+1]-1, sense[k] rhs[k]. */
VLM_API int VLMaddgenconstrIndicators(VLMmodel *model, int count, const char *const *names,
                                      const int *binvar, const int *binval, const int *beg,
                                      const int *ind, const double *val, const char *sense,
                                      const double *rhs);

/* The variables general constraint `id` is defined by, whatever its type: the result (or,
 * for an indicator, the binary; for function and PWL constraints, y) in *resvarP and the
 * argument (ABS, and x of function and PWL constraints; -1 otherwise) in *argvarP. Deleting
 * either variable deletes the constraint. */
VLM_API int VLMgetgenconstrvars(VLMmodel *model, int id, int *resvarP, int *argvarP);

/* Readers of general constraint `id`; each output may be NULL. */
VLM_API int VLMgetgenconstrMax(VLMmodel *model, int id, int *resvarP, int *nvarsP, int *vars,
                               double *constantP);
VLM_API int VLMgetgenconstrMin(VLMmodel *model, int id, int *resvarP, int *nvarsP, int *vars,
                               double *constantP);
VLM_API int VLMgetgenconstrAbs(VLMmodel *model, int id, int *resvarP, int *argvarP);
VLM_API int VLMgetgenconstrAnd(VLMmodel *model, int id, int *resvarP, int *nvarsP, int *vars);
VLM_API int VLMgetgenconstrOr(VLMmodel *model, int id, int *resvarP, int *nvarsP, int *vars);
VLM_API int VLMgetgenconstrNorm(VLMmodel *model, int id, int *resvarP, int *nvarsP, int *vars,
                                double *whichP);
VLM_API int VLMgetgenconstrIndicator(VLMmodel *model, int id, int *binvarP, int *binvalP,
                                     int *nvarsP, int *ind, double *val, char *senseP,
                                     double *rhsP);
VLM_API int VLMgetgenconstrPWL(VLMmodel *model, int id, int *xvarP, int *yvarP, int *nptsP,
                               double *xpts, double *ypts);
VLM_API int VLMgetgenconstrPoly(VLMmodel *model, int id, int *xvarP, int *yvarP, int *plenP,
                                double *p);
VLM_API int VLMgetgenconstrExp(VLMmodel *model, int id, int *xvarP, int *yvarP);
VLM_API int VLMgetgenconstrExpA(VLMmodel *model, int id, int *xvarP, int *yvarP, double *aP);
VLM_API int VLMgetgenconstrLog(VLMmodel *model, int id, int *xvarP, int *yvarP);
VLM_API int VLMgetgenconstrLogA(VLMmodel *model, int id, int *xvarP, int *yvarP, double *aP);
VLM_API int VLMgetgenconstrLogistic(VLMmodel *model, int id, int *xvarP, int *yvarP);
VLM_API int VLMgetgenconstrPow(VLMmodel *model, int id, int *xvarP, int *yvarP, double *aP);
VLM_API int VLMgetgenconstrSin(VLMmodel *model, int id, int *xvarP, int *yvarP);
VLM_API int VLMgetgenconstrCos(VLMmodel *model, int id, int *xvarP, int *yvarP);
VLM_API int VLMgetgenconstrTan(VLMmodel *model, int id, int *xvarP, int *yvarP);

/* ---------------------------------------------------------------------------------------
 * Objectives beyond the variables' Obj attribute
 * ------------------------------------------------------------------------------------- */

/* Piecewise-linear objective of variable `var` through (x[i], y[i]), x non-decreasing;
 * npoints 0 removes it (the variable's Obj is used again). */
VLM_API int VLMsetpwlobj(VLMmodel *model, int var, int npoints, const double *x,
                         const double *y);
/* The PWL objective of `var`: *npointsP points (0 when it has none). */
VLM_API int VLMgetpwlobj(VLMmodel *model, int var, int *npointsP, double *x, double *y);

/* Replaces the whole objective: sense (1 minimise, -1 maximise, 0 keeps the current one),
 * constant, the linear coefficients of the listed variables (all others become 0) and the
 * quadratic terms (sum qval[k] x[qrow[k]] x[qcol[k]]). */
VLM_API int VLMsetobjective(VLMmodel *model, int sense, double constant, int lnz,
                            const int *lind, const double *lval, int qnz, const int *qrow,
                            const int *qcol, const double *qval);

/* Objective number `index` (0 .. NumObj-1, NumObj grows as needed) of a multi-objective
 * model: priority, weight, tolerances, constant, name and sparse linear coefficients. */
VLM_API int VLMsetobjectiven(VLMmodel *model, int index, int priority, double weight,
                             double abstol, double reltol, const char *name, double constant,
                             int lnz, const int *lind, const double *lval);

/* ---------------------------------------------------------------------------------------
 * Attributes
 *
 * Names follow the case-insensitive rule. Unknown name: VLM_ERROR_UNKNOWN_ATTRIBUTE; wrong
 * value type or element kind for the call: VLM_ERROR_INVALID_ARGUMENT; index out of range:
 * VLM_ERROR_INDEX_OUT_OF_RANGE; a value that has no meaning yet (a solution attribute before
 * a solve): VLM_ERROR_DATA_NOT_AVAILABLE ("Unable to retrieve attribute 'X'"); a read-only
 * attribute: VLM_ERROR_INVALID_ARGUMENT. Writes are queued until the update. String values
 * returned stay valid until the next call on the model.
 * ------------------------------------------------------------------------------------- */

VLM_API int VLMgetintattr(VLMmodel *model, const char *attrname, int *valueP);
VLM_API int VLMsetintattr(VLMmodel *model, const char *attrname, int newvalue);
VLM_API int VLMgetdblattr(VLMmodel *model, const char *attrname, double *valueP);
VLM_API int VLMsetdblattr(VLMmodel *model, const char *attrname, double newvalue);
VLM_API int VLMgetstrattr(VLMmodel *model, const char *attrname, char **valueP);
VLM_API int VLMsetstrattr(VLMmodel *model, const char *attrname, const char *newvalue);

VLM_API int VLMgetintattrelement(VLMmodel *model, const char *attrname, int element,
                                 int *valueP);
VLM_API int VLMsetintattrelement(VLMmodel *model, const char *attrname, int element,
                                 int newvalue);
VLM_API int VLMgetdblattrelement(VLMmodel *model, const char *attrname, int element,
                                 double *valueP);
VLM_API int VLMsetdblattrelement(VLMmodel *model, const char *attrname, int element,
                                 double newvalue);
VLM_API int VLMgetcharattrelement(VLMmodel *model, const char *attrname, int element,
                                  char *valueP);
VLM_API int VLMsetcharattrelement(VLMmodel *model, const char *attrname, int element,
                                  char newvalue);
VLM_API int VLMgetstrattrelement(VLMmodel *model, const char *attrname, int element,
                                 char **valueP);
VLM_API int VLMsetstrattrelement(VLMmodel *model, const char *attrname, int element,
                                 const char *newvalue);

/* Elements first .. first+len-1. */
VLM_API int VLMgetintattrarray(VLMmodel *model, const char *attrname, int first, int len,
                               int *values);
VLM_API int VLMsetintattrarray(VLMmodel *model, const char *attrname, int first, int len,
                               const int *newvalues);
VLM_API int VLMgetdblattrarray(VLMmodel *model, const char *attrname, int first, int len,
                               double *values);
VLM_API int VLMsetdblattrarray(VLMmodel *model, const char *attrname, int first, int len,
                               const double *newvalues);
VLM_API int VLMgetcharattrarray(VLMmodel *model, const char *attrname, int first, int len,
                                char *values);
VLM_API int VLMsetcharattrarray(VLMmodel *model, const char *attrname, int first, int len,
                                const char *newvalues);
VLM_API int VLMgetstrattrarray(VLMmodel *model, const char *attrname, int first, int len,
                               char **values);
VLM_API int VLMsetstrattrarray(VLMmodel *model, const char *attrname, int first, int len,
                               const char *const *newvalues);

/* Elements ind[0 .. len-1]. */
VLM_API int VLMgetintattrlist(VLMmodel *model, const char *attrname, int len, const int *ind,
                              int *values);
VLM_API int VLMsetintattrlist(VLMmodel *model, const char *attrname, int len, const int *ind,
                              const int *newvalues);
VLM_API int VLMgetdblattrlist(VLMmodel *model, const char *attrname, int len, const int *ind,
                              double *values);
VLM_API int VLMsetdblattrlist(VLMmodel *model, const char *attrname, int len, const int *ind,
                              const double *newvalues);
VLM_API int VLMgetcharattrlist(VLMmodel *model, const char *attrname, int len, const int *ind,
                               char *values);
VLM_API int VLMsetcharattrlist(VLMmodel *model, const char *attrname, int len, const int *ind,
                               const char *newvalues);
VLM_API int VLMgetstrattrlist(VLMmodel *model, const char *attrname, int len, const int *ind,
                              char **values);
VLM_API int VLMsetstrattrlist(VLMmodel *model, const char *attrname, int len, const int *ind,
                              const char *const *newvalues);

/* Prepares a run of element reads of one attribute (checks the name; values are served from
 * the model's columns, so no further work is needed). */
VLM_API int VLMprefetchattr(VLMmodel *model, const char *attrname);

/* ---------------------------------------------------------------------------------------
 * Solving
 * ------------------------------------------------------------------------------------- */

/* Updates the model and solves it; the outcome is the Status attribute, and the solution
 * attributes (X, ObjVal, Pi, ...) become available when a solution was found. Fails with
 * VLM_ERROR_NOT_SUPPORTED for elements the engine cannot solve yet, naming them. */
VLM_API int VLMoptimize(VLMmodel *model);

/* The environment of the num-th run of a concurrent solve of `model` (0 <= num < 64), made on
 * first request as a copy of the model's environment, together with those of all lower runs.
 * Once a model has concurrent environments, VLMoptimize races one run per environment, each under
 * its environment's parameters, and keeps the one that finishes first. The model owns the
 * environment (never free it). NULL on failure, with the model's error message set. */
VLM_API VLMenv *VLMgetconcurrentenv(VLMmodel *model, int num);
/* Drops the model's concurrent environments: later solves are ordinary ones again. Handles
 * returned by VLMgetconcurrentenv stay usable until the model is freed but no longer affect
 * any solve. */
VLM_API int VLMdiscardconcurrentenvs(VLMmodel *model);
/* The environment of the num-th priority level (0 the highest priority) of a multi-objective
 * solve (0 <= num < 1024), made on first request as a copy of the model's environment; that
 * level is solved under its parameters, levels without one under the model's. The model owns
 * it. NULL on failure, with the model's error message set. */
VLM_API VLMenv *VLMgetmultiobjenv(VLMmodel *model, int num);
/* Drops the model's multi-objective environments; their handles stay usable until the model
 * is freed but no longer affect any solve. */
VLM_API int VLMdiscardmultiobjenvs(VLMmodel *model);

/* Makes the next VLMoptimize of `model` stop cleanly (status INTERRUPTED) on SIGINT; the
 * previous handler is restored when that solve ends. */
VLM_API int VLMsetsignal(VLMmodel *model);

/* VLMtunemodel tunes the parameters of the model: solves copies of it under changed settings
 * (TuneTrials seeds each, within TuneTimeLimit) and keeps the settings that beat the current
 * ones, best first (TuneResults of them; the attribute TuneResultCount). With nothing better
 * found, one result without changes. Parameters marked with VLMfixtuneparam are never changed.
 * The model itself is not solved.
 * VLMgettuneresult loads tuning result i (0 the best) into the model's parameters: the
 * settings the model had when tuning started, with the result's changes. It fails with
 * VLM_ERROR_DATA_NOT_AVAILABLE before a tuning run and VLM_ERROR_INDEX_OUT_OF_RANGE for i
 * outside [0, TuneResultCount). */
VLM_API int VLMtunemodel(VLMmodel *model);
VLM_API int VLMgettuneresult(VLMmodel *model, int i);

/* Updates the model and submits it as a batch request to the batch service named by the
 * CSManager parameter (authenticated with CSAPIAccessID / CSAPISecret); writes the request's
 * id (shorter than VLM_MAX_STRLEN bytes) to `batchid`. The model travels as gzipped MPS with
 * the non-default parameters of its environment (the connection parameters left out). Fails
 * with VLM_ERROR_INVALID_ARGUMENT when CSManager is empty, VLM_ERROR_NETWORK when the service
 * cannot be reached or libcurl is missing, and with the service's code when it refuses. */
VLM_API int VLMoptimizebatch(VLMmodel *model, char *batchid);

/* Asks a running VLMoptimize of `model` to stop soon (status INTERRUPTED), or a running
 * VLMcomputeIIS to stop with the subsystem found so far (IISMinimal 0). Safe from any
 * thread; does nothing when no solve is running. */
VLM_API void VLMterminate(VLMmodel *model);

/* ---------------------------------------------------------------------------------------
 * Batch requests. A VLMbatch is the client's view of one request on the batch service: its
 * attributes are read from a local copy that VLMupdatebatch refreshes. Every call that talks
 * to the service blocks for at most a few times ServerTimeout seconds. Failures are recorded
 * on the batch's environment (VLMgetbatchenv, VLMgeterrormsg); service refusals keep the
 * service's code: VLM_ERROR_INVALID_ARGUMENT (unknown id, wrong state),
 * VLM_ERROR_DATA_NOT_AVAILABLE (discarded), VLM_ERROR_SECURITY (credentials), VLM_ERROR_CLOUD
 * (service failure); VLM_ERROR_NETWORK when it cannot be reached.
 * ------------------------------------------------------------------------------------- */

/* Looks request `batchid` up on the service of `env` and returns a new handle in *batchP
 * (NULL on failure, the message then on `env`). The handle keeps its own copy of env's
 * settings; free it with VLMfreebatch. */
VLM_API int VLMgetbatch(VLMenv *env, const char *batchid, VLMbatch **batchP);

/* The batch's own environment (owned by the batch: do not free it); NULL for NULL. */
VLM_API VLMenv *VLMgetbatchenv(VLMbatch *batch);

/* Frees the handle (the request stays on the service). NULL is ignored; returns 0. */
VLM_API int VLMfreebatch(VLMbatch *batch);

/* Type and flags of batch attribute `attrname` (case-insensitive): the low four bits are
 * VLM_INT (1) or VLM_STR (3), bit 0x10 marks a read-only attribute (all batch attributes are).
 * Unknown names: VLM_ERROR_UNKNOWN_ATTRIBUTE. */
VLM_API int VLMgetbatchattrflags(VLMbatch *batch, const char *attrname, int *flagsP);

/* Reads an attribute of the local copy: BatchStatus, BatchErrorCode (int); BatchID,
 * BatchErrorMessage, ModelName, SubmitTime, FinishTime (string, valid until the next call on
 * the batch). After VLMdiscardbatch only BatchID is readable (VLM_ERROR_DATA_NOT_AVAILABLE). */
VLM_API int VLMgetbatchintattr(VLMbatch *batch, const char *attrname, int *valueP);
VLM_API int VLMgetbatchstrattr(VLMbatch *batch, const char *attrname, char **valueP);

/* The number of batch attributes and the name of attribute `i` (0-based). */
VLM_API int VLMgetnumbatchattributes(VLMbatch *batch, int *numP);
VLM_API int VLMgetbatchattrname(VLMbatch *batch, int i, const char **nameP);

/* Refreshes the local copy of the attributes from the service. */
VLM_API int VLMupdatebatch(VLMbatch *batch);

/* Aborts a queued or running request (BATCH_ABORTED); retries a failed or aborted one
 * (BATCH_SUBMITTED); both refresh the local copy. Wrong state: VLM_ERROR_INVALID_ARGUMENT. */
VLM_API int VLMabortbatch(VLMbatch *batch);
VLM_API int VLMretrybatch(VLMbatch *batch);

/* Deletes the request's stored input and output on the service; later queries fail with
 * VLM_ERROR_DATA_NOT_AVAILABLE. */
VLM_API int VLMdiscardbatch(VLMbatch *batch);

/* The JSON solution of a completed request, as VLMgetjsonsolution gives it for the solved
 * model; `*textP` is freed with VLMfree. */
VLM_API int VLMgetbatchjsonsolution(VLMbatch *batch, char **textP);

/* Writes the JSON solution to `filename` (gzip when it ends in .gz); an existing file is
 * replaced in one step or left as it was. */
VLM_API int VLMwritebatchjsonsolution(VLMbatch *batch, const char *filename);

/* ---------------------------------------------------------------------------------------
 * Callbacks
 *
 * A callback is a C function the library calls on the solving thread during VLMoptimize and
 * VLMcomputeIIS, never from two threads at once. `where` tells what the solver is doing
 * (VLM_CB_POLLING ... VLM_CB_IIS); `cbdata` is valid only during that call and is what the
 * VLMcb* calls below take. The callback's return value is ignored; VLMterminate(model) from
 * inside it stops the solve (status INTERRUPTED, incumbent kept).
 * ------------------------------------------------------------------------------------- */

typedef int (*VLMcallback)(VLMmodel *model, void *cbdata, int where, void *usrdata);

/* Installs `cb` (NULL removes it) with `usrdata` handed back on every call. Refused while
 * the model is being solved (VLM_ERROR_OPTIMIZATION_IN_PROGRESS). A callback on a model with
 * integer variables and LazyConstraints=1 or PreCrush=1, or one installed with
 * VLMsetcallbackfuncsearch, makes the solve run the branch-and-cut search that supports
 * VLMcblazy, VLMcbcut and VLM_CB_MIPNODE. */
VLM_API int VLMsetcallbackfunc(VLMmodel *model, VLMcallback cb, void *usrdata);
/* As VLMsetcallbackfunc; `search` 1 asks for the branch-and-cut search on integer models
 * whatever the parameters say (a caller that knows its callback uses MIPNODE or cuts). */
VLM_API int VLMsetcallbackfuncsearch(VLMmodel *model, VLMcallback cb, void *usrdata, int search);
/* The installed callback (NULL for none) in `*cbP`. */
VLM_API int VLMgetcallbackfunc(VLMmodel *model, VLMcallback *cbP);

/* Type of what-code `what`: 1 int, 2 double, 3 string, in `*typeP`; `*sizeP` 1 for a scalar,
 * the number of variables for a vector item (MIPSOL_SOL, MIPNODE_REL, MULTIOBJ_SOL). Either
 * output may be NULL. An unknown code: VLM_ERROR_INVALID_ARGUMENT. Usable inside a callback. */
VLM_API int VLMgetcbwhatinfo(VLMmodel *model, int what, int *typeP, int *sizeP);

/* Reads `what` into `result` (int*, double*, char** or a double array by the item's type).
 * `where` must be the current where-code and `what` an item of it, else VLM_ERROR_CALLBACK
 * with a message naming both. O(1), or O(variables) for vectors. */
VLM_API int VLMcbget(void *cbdata, int where, int what, void *result);

/* Offers a solution (VLM_UNDEFINED where a value is not given) as an incumbent: the search
 * completes a partial one and checks it. `*objP` (may be NULL) receives its objective when
 * every value is given, else VLM_INFINITY. Allowed at MIP, MIPSOL and MIPNODE. */
VLM_API int VLMcbsolution(void *cbdata, const double *solution, double *objP);

/* Adds a lazy constraint sum val[k] x[ind[k]] sense rhs (sense '<', '>' or '='): every
 * solution reported satisfies it. Allowed at MIPSOL and MIPNODE of the branch-and-cut search
 * (see VLMsetcallbackfunc), else VLM_ERROR_CALLBACK. */
VLM_API int VLMcblazy(void *cbdata, int lazylen, const int *lazyind, const double *lazyval,
                      char lazysense, double lazyrhs);
/* Adds a user cut (valid for every integer solution) at MIPNODE of the branch-and-cut search. */
VLM_API int VLMcbcut(void *cbdata, int cutlen, const int *cutind, const double *cutval,
                     char cutsense, double cutrhs);
/* Asks the solver to move on from its current phase; accepted everywhere, and a no-op where
 * the phase cannot be cut short (every phase with this engine). */
VLM_API int VLMcbproceed(void *cbdata);
/* Ends the current objective level of a multi-objective solve `objnum` (its solution so far is
 * kept) and moves on to the next one. */
VLM_API int VLMcbstoponemultiobj(VLMmodel *model, void *cbdata, int objnum);

/* ---------------------------------------------------------------------------------------
 * Analysis
 * ------------------------------------------------------------------------------------- */

/* Updates the model and computes an irreducible inconsistent subsystem (IIS) of the
 * infeasible model: a set of constraints and variable bounds that is infeasible and becomes
 * feasible when any one of them is removed. Members are flagged by the attributes IISConstr,
 * IISLB, IISUB, IISQConstr, IISSOS and IISGenConstr; IISMinimal is 0 when the TimeLimit
 * stopped the computation before the set was shown minimal. The IIS*Force attributes put
 * elements into (1) or leave them out of (0) the subsystem; IISMethod chooses the method.
 * Runs many solves of copies of the model; the model itself is not changed. A feasible model:
 * VLM_ERROR_IIS_NOT_INFEASIBLE. Write the subsystem as an LP file with VLMwrite("x.ilp"). */
VLM_API int VLMcomputeIIS(VLMmodel *model);

/* Feasibility relaxation, in place: updates the model and adds, for every bound and
 * constraint that may be violated, an artificial variable that takes the violation
 * (ArtL_x / ArtU_x for the bounds of x, with rows ArtLB_x / ArtUB_x; ArtP_c / ArtN_c for
 * constraint c, in its row), and a penalty objective: relaxobjtype 0 sums penalty times
 * violation, 1 penalty times violation squared, 2 penalty per violated element (binaries
 * Card_<artificial> with rows a - FeasRelaxBigM * z <= 0). minrelax 0 makes the penalty the
 * objective. minrelax 1 solves for the least penalty, keeps the original objective and adds
 * the constraint FeasRelaxObj: penalty <= that least penalty, returned in *feasobjP (0 when
 * minrelax is 0). Penalty arrays (each may be NULL: nothing of that kind relaxed): lbpen and
 * ubpen one per variable, rhspen one per linear constraint then one per quadratic constraint;
 * VLM_INFINITY (or more) keeps an element as it is; negative or NaN penalties:
 * VLM_ERROR_INVALID_ARGUMENT. feasobjP may be NULL. On failure the model is unchanged. */
VLM_API int VLMfeasrelax(VLMmodel *model, int relaxobjtype, int minrelax, const double *lbpen,
                         const double *ubpen, const double *rhspen, double *feasobjP);

/* Derived models. Each builds a new model from `model` as of its last update (nothing queued
 * is seen), on a copy of its environment, and stores it in `*resultP` (set to NULL first);
 * the caller frees it with VLMfreemodel. `model` is never changed. */

/* Continuous relaxation: integrality and semi-continuity dropped (binaries within [0, 1],
 * semi-continuous x within [min(lb, 0), max(ub, 0)]), SOS and general constraints removed. */
VLM_API int VLMrelaxmodel(VLMmodel *model, VLMmodel **relaxedP);

/* The fixed model of a solved MIP: integer variables fixed at the incumbent, semi-continuous
 * and SOS members at 0 where the incumbent has them at 0; a continuous model whose solve gives
 * duals. A continuous model: VLM_ERROR_INVALID_ARGUMENT; no MIP solution:
 * VLM_ERROR_DATA_NOT_AVAILABLE; general constraints: VLM_ERROR_NOT_SUPPORTED. */
VLM_API int VLMfixmodel(VLMmodel *model, VLMmodel **fixedP);

/* A copy with every objective removed. */
VLM_API int VLMfeasibility(VLMmodel *model, VLMmodel **feasP);

/* The dual of an LP: a variable per constraint (named as the constraint), a constraint per
 * variable (named as the variable), multipliers lb_x / ub_x for finite bounds other than the
 * usual x >= 0 and x <= 0; opposite sense, equal optimum. Integer elements:
 * VLM_ERROR_NOT_FOR_MIP; quadratic, piecewise-linear or multiple objectives, quadratic
 * constraints: VLM_ERROR_NOT_SUPPORTED. */
VLM_API int VLMdualmodel(VLMmodel *model, VLMmodel **dualP);

/* A presolved model with the same optimal value: rows without variables or with one variable
 * (which becomes a bound) removed, fixed variables substituted (also into quadratic terms and
 * every objective), variables in no row fixed; SOS, general constraints, piecewise-linear and
 * multiple objectives carried over. Names and order of what remains are kept. With Presolve 2
 * a plain LP or MIP is reduced by the engine's stronger presolve. Any model kind. */
VLM_API int VLMpresolvemodel(VLMmodel *model, VLMmodel **presolvedP);

/* ---------------------------------------------------------------------------------------
 * Files
 * ------------------------------------------------------------------------------------- */

/* Reads a model file (.mps, .lp, optionally .gz; "free" and fixed MPS alike) into a new model
 * on `env`. Errors name the file, the line and what was expected; no model is made. */
VLM_API int VLMreadmodel(VLMenv *env, const char *filename, VLMmodel **modelP);

/* Reads data into an existing model by the file's suffix: attribute files (.attr), parameter
 * files (.prm) and, with the solving engine, starts, hints, bases and solutions. */
VLM_API int VLMread(VLMmodel *model, const char *filename);

/* Writes the model (after an update) as .lp or .mps (.gz compressed when the name ends so),
 * its attribute file (.attr) or its parameters (.prm), chosen by the suffix. */
VLM_API int VLMwrite(VLMmodel *model, const char *filename);

/* The model's solution as JSON text (status, objective, values, slacks and duals); `*bufferP`
 * receives a string the caller frees with VLMfree. */
VLM_API int VLMgetjsonsolution(VLMmodel *model, char **bufferP);

/* Frees memory the library allocated for the caller (VLMgetjsonsolution). NULL is ignored. */
VLM_API void VLMfree(void *ptr);

/* 1 when the name's suffix is a model file format (.mps, .lp, .rew, .rlp, with .gz), else 0. */
VLM_API int VLMismodelfile(const char *filename);
/* 1 when the suffix is an attribute-style file (.attr, .sol, .mst, .hnt, .bas, .ord, .json). */
VLM_API int VLMisattrfile(const char *filename);

/* ---------------------------------------------------------------------------------------
 * Attribute names
 *
 * `model` may be NULL in these three calls: the library's global attribute list is used.
 * ------------------------------------------------------------------------------------- */

/* Number of attributes, or -1. */
VLM_API int VLMgetnumattributes(VLMmodel *model);

/* Name of attribute `i` in [0, VLMgetnumattributes): a static string in `*nameP`. */
VLM_API int VLMgetattrname(VLMmodel *model, int i, char **nameP);

/* Describes an attribute: value type (VLM_CHAR/INT/DBL/STR), element kind (VLM_KIND_*) and
 * whether it may be set (1/0). Each output may be NULL. Unknown name:
 * VLM_ERROR_UNKNOWN_ATTRIBUTE. */
VLM_API int VLMgetattrinfo(VLMmodel *model, const char *attrname, int *datatypeP,
                           int *attrtypeP, int *settableP);

#ifdef __cplusplus
}
#endif

#endif /* VELMOR_C_H */
