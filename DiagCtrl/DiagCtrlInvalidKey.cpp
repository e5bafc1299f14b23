#include "DiagCtrl/DiagCtrlInvalidKey.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlInvalidKey::~DiagCtrlInvalidKey() = default;

std::string DiagCtrlInvalidKey::dump() {
  return dumpWithKey(mpcKeyName);
}

}  // namespace TarvexDiags::DiagCtrl
