#include "DiagCtrl/DiagCtrlObjectNotFound.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlObjectNotFound::~DiagCtrlObjectNotFound() = default;

std::string DiagCtrlObjectNotFound::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
