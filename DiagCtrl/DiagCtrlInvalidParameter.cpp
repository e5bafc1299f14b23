#include "DiagCtrl/DiagCtrlInvalidParameter.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlInvalidParameter::~DiagCtrlInvalidParameter() = default;

std::string DiagCtrlInvalidParameter::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
