#include "DiagCtrl/DiagCtrlEncoreRequest.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlEncoreRequest::~DiagCtrlEncoreRequest() = default;

std::string DiagCtrlEncoreRequest::dump() {
  return dumpWithKey(mpcParameterName);
}

}  // namespace TarvexDiags::DiagCtrl
