#include "DiagCtrl/DiagCtrlInitialisationFailed.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlInitialisationFailed::~DiagCtrlInitialisationFailed() = default;

std::string DiagCtrlInitialisationFailed::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
