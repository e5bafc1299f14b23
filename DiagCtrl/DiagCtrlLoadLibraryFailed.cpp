#include "DiagCtrl/DiagCtrlLoadLibraryFailed.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlLoadLibraryFailed::~DiagCtrlLoadLibraryFailed() = default;

std::string DiagCtrlLoadLibraryFailed::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
