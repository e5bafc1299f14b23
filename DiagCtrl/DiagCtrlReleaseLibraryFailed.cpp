#include "DiagCtrl/DiagCtrlReleaseLibraryFailed.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlReleaseLibraryFailed::~DiagCtrlReleaseLibraryFailed() = default;

std::string DiagCtrlReleaseLibraryFailed::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
