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

/* Receives one log line (with its trailing newline). `usrdata` is what was registered. */
typedef void (*VLMlogcallback)(const char *msg, void *usrdata);

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
 * Attribute names (the attribute engine on models comes with models)
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
