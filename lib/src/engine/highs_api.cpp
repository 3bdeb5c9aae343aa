#include "engine/highs_api.h"

#include <string>

#include "interfaces/highs_c_api.h"

namespace vlm::engine {

namespace {

Status run_check() {
  try {
    const int major = static_cast<int>(Highs_versionMajor());
    const int minor = static_cast<int>(Highs_versionMinor());
    const int patch = static_cast<int>(Highs_versionPatch());
    if (major != HIGHS_VERSION_MAJOR || minor != HIGHS_VERSION_MINOR ||
        patch != HIGHS_VERSION_PATCH) {
      return Status(VLM_ERROR_INTERNAL,
                    "The HiGHS library loaded is version " + std::to_string(major) + "." +
                        std::to_string(minor) + "." + std::to_string(patch) +
                        ", but Velmor was built for " + std::to_string(HIGHS_VERSION_MAJOR) +
                        "." + std::to_string(HIGHS_VERSION_MINOR) + "." +
                        std::to_string(HIGHS_VERSION_PATCH));
    }
    // The argument is not dereferenced: the size is a property of the build.
    const int width = static_cast<int>(Highs_getSizeofHighsInt(nullptr));
    if (width != static_cast<int>(sizeof(HighsInt))) {
      return Status(VLM_ERROR_INTERNAL, "The HiGHS library loaded uses " +
                                            std::to_string(width * 8) +
                                            "-bit integers, but Velmor was built for " +
                                            std::to_string(sizeof(HighsInt) * 8) + "-bit ones");
    }
  } catch (...) {
    return Status(VLM_ERROR_INTERNAL, "The HiGHS library failed its version check");
  }
  return Status::Ok();
}

}  // namespace

Status check_highs() {
  static const Status result = run_check();
  return result;
}

}  // namespace vlm::engine
