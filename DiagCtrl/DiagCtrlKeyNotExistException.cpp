#include "DiagCtrl/DiagCtrlKeyNotExistException.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlKeyNotExistException::~DiagCtrlKeyNotExistException() = default;

std::string DiagCtrlKeyNotExistException::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
