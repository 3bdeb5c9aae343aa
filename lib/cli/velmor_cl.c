/* velmor_cl: solves a model file from the command line.
 *
 *   velmor_cl [Param=value ...] model.mps[.gz]
 *
 * Parameters are set before the model is read (ResultFile names the file the solution is
 * written to afterwards, by its suffix: .sol, .mst, .lp, .mps, ...). The solver log goes to the
 * console; the exit status is 0 when the solve ran, 1 on any error. Written against the public
 * C API only. */
#include <stdio.h>
#include <string.h>

#include "velmor_c.h"

static const char *status_name(int status) {
  static const char *names[] = {"",
                                "LOADED",
                                "OPTIMAL",
                                "INFEASIBLE",
                                "INF_OR_UNBD",
                                "UNBOUNDED",
                                "CUTOFF",
                                "ITERATION_LIMIT",
                                "NODE_LIMIT",
                                "TIME_LIMIT",
                                "SOLUTION_LIMIT",
                                "INTERRUPTED",
                                "NUMERIC",
                                "SUBOPTIMAL",
                                "INPROGRESS",
                                "USER_OBJ_LIMIT",
                                "WORK_LIMIT",
                                "MEM_LIMIT"};
  return status >= 1 && status <= 17 ? names[status] : "UNKNOWN";
}

static void usage(void) {
  fprintf(stderr,
          "Usage: velmor_cl [Param=value ...] modelfile\n"
          "Solves the model in modelfile (.mps, .lp, optionally .gz) and prints the log.\n"
          "Example: velmor_cl TimeLimit=60 ResultFile=out.sol model.mps.gz\n");
}

int main(int argc, char **argv) {
  VLMenv *env = NULL;
  VLMmodel *model = NULL;
  const char *file = NULL;
  char result[VLM_MAX_STRLEN];
  int rc, i, status = 0, solcount = 0, major, minor, technical;
  double objval = 0.0;

  if (argc < 2 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0) {
    usage();
    return argc < 2 ? 1 : 0;
  }
  rc = VLMemptyenv(&env);
  if (rc != 0) {
    fprintf(stderr, "Error %d: unable to create an environment\n", rc);
    return 1;
  }
  for (i = 1; i < argc; ++i) {
    char *eq = strchr(argv[i], '=');
    if (eq == NULL) {
      if (file != NULL) {
        fprintf(stderr, "Error: more than one model file given ('%s' and '%s')\n", file, argv[i]);
        usage();
        VLMfreeenv(env);
        return 1;
      }
      file = argv[i];
      continue;
    }
    *eq = '\0';
    rc = VLMsetparam(env, argv[i], eq + 1);
    if (rc != 0) {
      fprintf(stderr, "Error %d: %s\n", rc, VLMgeterrormsg(env));
      VLMfreeenv(env);
      return 1;
    }
  }
  if (file == NULL) {
    usage();
    VLMfreeenv(env);
    return 1;
  }
  rc = VLMstartenv(env);
  if (rc == 0) {
    VLMversion(&major, &minor, &technical);
    printf("Velmor command line solver %d.%d.%d (%s)\n\n", major, minor, technical, VLMplatform());
    rc = VLMreadmodel(env, file, &model);
  }
  if (rc != 0) {
    fprintf(stderr, "Error %d: %s\n", rc, VLMgeterrormsg(env));
    VLMfreeenv(env);
    return 1;
  }
  rc = VLMsetsignal(model);
  if (rc == 0) rc = VLMoptimize(model);
  if (rc == 0) rc = VLMgetintattr(model, "Status", &status);
  if (rc == 0) rc = VLMgetintattr(model, "SolCount", &solcount);
  if (rc == 0) {
    printf("\nStatus: %s\n", status_name(status));
    if (solcount > 0 && VLMgetdblattr(model, "ObjVal", &objval) == 0) printf("Objective value: %.12g\n", objval);
    if (VLMgetstrparam(VLMgetenv(model), "ResultFile", result) == 0 && result[0] != '\0') {
      rc = VLMwrite(model, result);
      if (rc == 0) printf("Wrote result file '%s'\n", result);
    }
  }
  if (rc != 0) fprintf(stderr, "Error %d: %s\n", rc, VLMgetmerrormsg(model));
  VLMfreemodel(model);
  VLMfreeenv(env);
  return rc == 0 ? 0 : 1;
}
