/* Compiled as C99: proves that velmor_c.h is usable from C, and exercises the environment and
 * parameter calls through the shared library as a C client would. Exit status 0 on success. */
#include <stdio.h>
#include <string.h>

#include "velmor_c.h"

static int failures = 0;

#define CHECK(cond)                                               \
  do {                                                            \
    if (!(cond)) {                                                \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      failures++;                                                 \
    }                                                             \
  } while (0)

int main(void) {
  VLMenv *env = NULL;
  double tl = 0.0;
  int major = 0, method = 0;
  char value[VLM_MAX_STRLEN];

  VLMversion(&major, NULL, NULL);
  CHECK(major == VLM_VERSION_MAJOR);
  CHECK(VLMemptyenv(&env) == VLM_OK && env != NULL);
  CHECK(VLMsetintparam(env, "OutputFlag", 0) == VLM_OK);
  CHECK(VLMstartenv(env) == VLM_OK);
  CHECK(VLMsetdblparam(env, "timelimit", 12.5) == VLM_OK);
  CHECK(VLMgetdblparam(env, "TimeLimit", &tl) == VLM_OK && tl == 12.5);
  CHECK(VLMsetintparam(env, "Method", 9) == VLM_ERROR_VALUE_OUT_OF_RANGE);
  CHECK(strcmp(VLMgeterrormsg(env), "Value 9 for parameter 'Method' is outside [-1, 5]") == 0);
  CHECK(VLMgetintparam(env, "Method", &method) == VLM_OK && method == -1);
  CHECK(VLMgetstrparam(env, "LogFile", value) == VLM_OK && value[0] == '\0');
  CHECK(VLMsetintparam(NULL, "Method", 1) == VLM_ERROR_NULL_ARGUMENT);
  VLMfreeenv(env);
  return failures == 0 ? 0 : 1;
}
