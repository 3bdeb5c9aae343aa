/* velmor_cl: solves a model file from the command line. Written against the public C API only.
 *
 * Parameters are set before the model is read, with the library's own validation and messages;
 * the model is read by the library's readers (so every format and compression they take), and
 * ResultFile is written by VLMwrite (so every format it takes). The exit status tells a script
 * what happened; the table is printed by --help. */
#include <stdio.h>
#include <string.h>

#include "velmor_c.h"

/* Exit statuses, documented in the --help text below. */
enum {
  EXIT_OPTIMAL = 0,
  EXIT_USAGE = 1,
  EXIT_READ = 2,
  EXIT_NO_OPTIMUM = 3,
  EXIT_LIMIT = 4,
  EXIT_FAILED = 5
};

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

/* The exit status for a finished solve's Status attribute. */
static int exit_for_status(int status) {
  switch (status) {
    case 2: /* OPTIMAL */
      return EXIT_OPTIMAL;
    case 3: /* INFEASIBLE */
    case 4: /* INF_OR_UNBD */
    case 5: /* UNBOUNDED */
    case 6: /* CUTOFF */
      return EXIT_NO_OPTIMUM;
    case 12: /* NUMERIC */
      return EXIT_FAILED;
    default: /* a limit, an interruption or a suboptimal end */
      return EXIT_LIMIT;
  }
}

static void usage(FILE *out) {
  fprintf(out,
          "Usage: velmor_cl [--help] [--version] [Param=value ...] modelfile\n"
          "\n"
          "Solves the model in modelfile and prints the solver log, the final status and the\n"
          "objective value. Model files: .mps, .rew, .lp, .rlp, each optionally compressed as\n"
          ".gz (by its suffix).\n"
          "\n"
          "Param=value sets a parameter before the model is read (names as in the parameter\n"
          "reference, case-insensitive). ResultFile=name writes the result after the solve, in\n"
          "the format its suffix names: a solution (.sol, .json), a start (.mst), a basis\n"
          "(.bas), attributes (.attr, .hnt, .ord) or the model itself (.mps, .lp, ...), any of\n"
          "them optionally .gz.\n"
          "\n"
          "Options:\n"
          "  -h, --help     print this text and exit\n"
          "  --version      print the version and exit\n"
          "\n"
          "Exit status:\n"
          "  0  solved to optimality (and ResultFile, if given, written)\n"
          "  1  command-line error: unknown option, bad parameter or value, no model file\n"
          "  2  the model file could not be read\n"
          "  3  no optimum exists: infeasible, unbounded, or cut off\n"
          "  4  stopped early: a limit was reached, interrupted, or a suboptimal end\n"
          "  5  the solve or writing ResultFile failed\n"
          "\n"
          "Example: velmor_cl TimeLimit=60 ResultFile=out.sol model.mps.gz\n");
}

static int fail(VLMenv *env, int rc, int code) {
  fprintf(stderr, "Error %d: %s\n", rc, VLMgeterrormsg(env));
  VLMfreeenv(env);
  return code;
}

int main(int argc, char **argv) {
  VLMenv *env = NULL;
  VLMmodel *model = NULL;
  const char *file = NULL;
  char result[VLM_MAX_STRLEN];
  int rc, i, status = 0, solcount = 0, major = 0, minor = 0, technical = 0, code;
  double objval = 0.0;

  VLMversion(&major, &minor, &technical);
  for (i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
      usage(stdout);
      return EXIT_OPTIMAL;
    }
    if (strcmp(argv[i], "--version") == 0) {
      printf("velmor_cl %d.%d.%d (%s)\n", major, minor, technical, VLMplatform());
      return EXIT_OPTIMAL;
    }
  }
  rc = VLMemptyenv(&env);
  if (rc != 0) {
    fprintf(stderr, "Error %d: unable to create an environment\n", rc);
    return EXIT_FAILED;
  }
  for (i = 1; i < argc; ++i) {
    char *eq = strchr(argv[i], '=');
    if (argv[i][0] == '-') {
      fprintf(stderr, "Error: unknown option '%s'\n", argv[i]);
      usage(stderr);
      VLMfreeenv(env);
      return EXIT_USAGE;
    }
    if (eq == NULL) {
      if (file != NULL) {
        fprintf(stderr, "Error: more than one model file given ('%s' and '%s')\n", file, argv[i]);
        VLMfreeenv(env);
        return EXIT_USAGE;
      }
      file = argv[i];
      continue;
    }
    *eq = '\0';
    rc = VLMsetparam(env, argv[i], eq + 1);
    *eq = '=';
    if (rc != 0) return fail(env, rc, EXIT_USAGE);
  }
  if (file == NULL) {
    fprintf(stderr, "Error: no model file given\n");
    usage(stderr);
    VLMfreeenv(env);
    return EXIT_USAGE;
  }
  rc = VLMstartenv(env);
  if (rc != 0) return fail(env, rc, EXIT_FAILED);
  printf("Velmor command line solver %d.%d.%d (%s)\n\n", major, minor, technical, VLMplatform());
  fflush(stdout);
  rc = VLMreadmodel(env, file, &model);
  if (rc != 0) return fail(env, rc, EXIT_READ);

  code = EXIT_FAILED;
  /* The library writes ResultFile at the end of VLMoptimize; the solver writes it itself, after
     printing the status, so that a failed write still shows how the solve ended. */
  result[0] = '\0';
  rc = VLMgetstrparam(VLMgetenv(model), "ResultFile", result);
  if (rc == 0 && result[0] != '\0') rc = VLMsetstrparam(VLMgetenv(model), "ResultFile", "");
  if (rc == 0) rc = VLMsetsignal(model);
  if (rc == 0) rc = VLMoptimize(model);
  if (rc == 0) rc = VLMgetintattr(model, "Status", &status);
  if (rc == 0) rc = VLMgetintattr(model, "SolCount", &solcount);
  if (rc == 0) {
    code = exit_for_status(status);
    printf("\nStatus: %s\n", status_name(status));
    if (solcount > 0 && VLMgetdblattr(model, "ObjVal", &objval) == 0) printf("Objective value: %.12g\n", objval);
    if (result[0] != '\0') {
      rc = VLMwrite(model, result);
      if (rc == 0) printf("Wrote result file '%s'\n", result);
    }
  }
  if (rc != 0) {
    fprintf(stderr, "Error %d: %s\n", rc, VLMgetmerrormsg(model));
    code = EXIT_FAILED;
  }
  VLMfreemodel(model);
  VLMfreeenv(env);
  return code;
}
