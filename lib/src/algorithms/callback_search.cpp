// Placeholder until the branch-and-cut search is merged: refuses cleanly.
#include "algorithms/callback_search.h"

namespace vlm::algorithms {

Status solve_with_search(Model&, SearchHooks*) {
  return Status(VLM_ERROR_NOT_SUPPORTED, "branch-and-cut search not merged yet");
}

}  // namespace vlm::algorithms
