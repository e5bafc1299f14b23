#include "DiagCtrl/DiagCtrlInvalidTestRequestType.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlInvalidTestRequestType::~DiagCtrlInvalidTestRequestType() = default;

std::string DiagCtrlInvalidTestRequestType::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
