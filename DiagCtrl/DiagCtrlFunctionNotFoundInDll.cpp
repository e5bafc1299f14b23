#include "DiagCtrl/DiagCtrlFunctionNotFoundInDll.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlFunctionNotFoundInDll::~DiagCtrlFunctionNotFoundInDll() = default;

std::string DiagCtrlFunctionNotFoundInDll::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
