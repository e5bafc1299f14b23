#include "DiagCtrl/DiagCtrlKeyExistsException.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlKeyExistsException::~DiagCtrlKeyExistsException() = default;

std::string DiagCtrlKeyExistsException::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
