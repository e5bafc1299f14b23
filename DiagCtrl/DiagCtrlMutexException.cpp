#include "DiagCtrl/DiagCtrlMutexException.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlMutexException::~DiagCtrlMutexException() = default;

std::string DiagCtrlMutexException::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
