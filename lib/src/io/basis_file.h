// Basis files (.bas), the classic MPS basis format:
//
//   NAME model
//    XU col row      col basic, row nonbasic at its upper bound
//    XL col row      col basic, row nonbasic at its lower bound
//    UL col          col nonbasic at its upper bound
//    LL col          col nonbasic at its lower bound (the default, also when not listed)
//   ENDATA
//
// Rows not named are basic. Reading queues VBasis/CBasis writes, used as a warm start by the
// next continuous solve; a bad record keeps nothing and names the file and the line.
#pragma once

#include <string>

#include "core/status.h"
#include "model/model.h"

namespace vlm::io {

// Writes the basis of the last solve; VLM_ERROR_DATA_NOT_AVAILABLE without one.
Status write_basis_file(const std::string& filename, Model& m);

Status read_basis_file(const std::string& filename, Model& m);

}  // namespace vlm::io
