#include "DiagCtrl/DiagCtrlLockNotAcquired.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlLockNotAcquired::~DiagCtrlLockNotAcquired() = default;

std::string DiagCtrlLockNotAcquired::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
