#include "DiagCtrl/DiagCtrlLockTimeOut.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlLockTimeOut::~DiagCtrlLockTimeOut() = default;

std::string DiagCtrlLockTimeOut::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
