#include "DiagCtrl/DiagCtrlFileOpenException.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlFileOpenException::~DiagCtrlFileOpenException() = default;

std::string DiagCtrlFileOpenException::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
