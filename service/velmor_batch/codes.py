"""Status values and error codes shared with the library's batch client.

The codes are the library's own (lib/include/velmor_codes.h): the client raises whatever "code"
an error body carries, so a number here that drifts from the header changes what users see.
"""

# Batch status values, as the library's BATCH_* constants.
CREATED = 1
SUBMITTED = 2
ABORTED = 3
FAILED = 4
COMPLETED = 5

ERROR_INVALID_ARGUMENT = 10003
ERROR_DATA_NOT_AVAILABLE = 10005
ERROR_FILE_READ = 10012
ERROR_CLOUD = 10028
ERROR_SECURITY = 10032
