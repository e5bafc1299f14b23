#include "DiagCtrl/DiagCtrlUnsupportedOperation.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlUnsupportedOperation::~DiagCtrlUnsupportedOperation() = default;

std::string DiagCtrlUnsupportedOperation::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
