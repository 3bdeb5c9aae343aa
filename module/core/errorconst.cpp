// ErrorConstClass: the library's error codes (VLM.error.NUMERIC), also on VLM with the ERROR_
// prefix (VLM.ERROR_NUMERIC), compared with VelmorError.errno.
#include "core/constclass.h"
#include "velmor_codes.h"

namespace {

// In help order. JOB_REJECTED and NOT_SUPPORTED are listed twice on purpose, the second
// NOT_SUPPORTED in its short wording; constclass_add sets each constant once. UPDATEMODE_CHANGE
// and SECURITY exist as constants but are not listed.
const IntConst kErrorCodes[] = {
    {"OUT_OF_MEMORY", VLM_ERROR_OUT_OF_MEMORY, "Exhausted available memory"},
    {"NULL_ARGUMENT", VLM_ERROR_NULL_ARGUMENT, "NULL argument value"},
    {"INVALID_ARGUMENT", VLM_ERROR_INVALID_ARGUMENT, "Invalid argument value"},
    {"UNKNOWN_ATTRIBUTE", VLM_ERROR_UNKNOWN_ATTRIBUTE, "Unknown attribute name"},
    {"DATA_NOT_AVAILABLE", VLM_ERROR_DATA_NOT_AVAILABLE, "Requested data not available"},
    {"INDEX_OUT_OF_RANGE", VLM_ERROR_INDEX_OUT_OF_RANGE, "Constr/var index out of range"},
    {"UNKNOWN_PARAMETER", VLM_ERROR_UNKNOWN_PARAMETER, "Unknown parameter name"},
    {"VALUE_OUT_OF_RANGE", VLM_ERROR_VALUE_OUT_OF_RANGE, "Parameter value outside of valid range"},
    {"NO_LICENSE", VLM_ERROR_NO_LICENSE, "No Velmor license found"},
    {"SIZE_LIMIT_EXCEEDED", VLM_ERROR_SIZE_LIMIT_EXCEEDED, "Exceeded licensed model size limit"},
    {"CALLBACK", VLM_ERROR_CALLBACK, "Error in callback"},
    {"FILE_READ", VLM_ERROR_FILE_READ, "Error reading file"},
    {"FILE_WRITE", VLM_ERROR_FILE_WRITE, "Error writing file"},
    {"NUMERIC", VLM_ERROR_NUMERIC, "Numeric error encountered"},
    {"IIS_NOT_INFEASIBLE", VLM_ERROR_IIS_NOT_INFEASIBLE,
     "Can't compute an IIS on a feasible model"},
    {"NOT_FOR_MIP", VLM_ERROR_NOT_FOR_MIP, "Method not valid for MIP models"},
    {"OPTIMIZATION_IN_PROGRESS", VLM_ERROR_OPTIMIZATION_IN_PROGRESS,
     "Must stop optimization to query results"},
    {"DUPLICATES", VLM_ERROR_DUPLICATES, "Duplicate entries in list"},
    {"NODEFILE", VLM_ERROR_NODEFILE, "Problem reading or writing node file"},
    {"Q_NOT_PSD", VLM_ERROR_Q_NOT_PSD, "Q matrix isn't Positive Semi-Definite"},
    {"QCP_EQUALITY_CONSTRAINT", VLM_ERROR_QCP_EQUALITY_CONSTRAINT,
     "Quadratic constraints must be inequalities"},
    {"NETWORK", VLM_ERROR_NETWORK, "Network error"},
    {"JOB_REJECTED", VLM_ERROR_JOB_REJECTED, "Job rejected by the remote solve server"},
    {"NOT_SUPPORTED", VLM_ERROR_NOT_SUPPORTED, "Requested operation is not supported"},
    {"JOB_REJECTED", VLM_ERROR_JOB_REJECTED, "Job rejected by the remote solve server"},
    {"NOT_SUPPORTED", VLM_ERROR_NOT_SUPPORTED, "Operation is not supported"},
    {"EXCEED_2B_NONZEROS", VLM_ERROR_EXCEED_2B_NONZEROS, "Result too large for query routine"},
    {"INVALID_PIECEWISE_OBJ", VLM_ERROR_INVALID_PIECEWISE_OBJ,
     "Problem with specified piecewise-linear objective"},
    {"UPDATEMODE_CHANGE", VLM_ERROR_UPDATEMODE_CHANGE, nullptr},
    {"CLOUD", VLM_ERROR_CLOUD, "Error reported by the cloud service"},
    {"MODEL_MODIFICATION", VLM_ERROR_MODEL_MODIFICATION,
     "An error occurred during model modification or update"},
    {"CSWORKER", VLM_ERROR_CSWORKER, "An error occurred with the client-server application"},
    {"TUNE_MODEL_TYPES", VLM_ERROR_TUNE_MODEL_TYPES,
     "Tried multi-model tuning on models of different types"},
    {"SECURITY", VLM_ERROR_SECURITY, nullptr},
    {"NOT_IN_MODEL", VLM_ERROR_NOT_IN_MODEL, "Variable/constraint not in model"},
    {"FAILED_TO_CREATE_MODEL", VLM_ERROR_FAILED_TO_CREATE_MODEL,
     "Failed to create the requested model"},
    {"INTERNAL", VLM_ERROR_INTERNAL, "Internal Velmor error"},
};

}  // namespace

std::span<const IntConst> errorconst_codes() { return kErrorCodes; }

py::Ref errorconst_class() {
  HelpTable table;
  table.heading("Velmor error codes (e.g., exception.errno == VLM.ERROR_OUT_OF_MEMORY):");
  table.rows(kErrorCodes);
  return constclass_from_ints("ErrorConstClass", table.str(), kErrorCodes);
}
