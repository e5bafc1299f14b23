#include "DiagCtrl/DiagCtrlInvalidValueInConfigFile.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlInvalidValueInConfigFile::~DiagCtrlInvalidValueInConfigFile() = default;

std::string DiagCtrlInvalidValueInConfigFile::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
