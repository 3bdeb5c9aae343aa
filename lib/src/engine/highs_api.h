// The one place that knows which HiGHS build the library was compiled against.
//
// libvelmor compiles HiGHS' C API structs and enum values into itself, so the HiGHS library
// loaded at run time must be exactly the version and integer width of the headers.
#pragma once

#include "core/status.h"

namespace vlm::engine {

// Checks, once per process, that the loaded HiGHS is 1.15.1 with the same HighsInt width as
// our build. Fails with VLM_ERROR_INTERNAL naming what differs.
Status check_highs();

}  // namespace vlm::engine
