#include "tests/support/BigLock.h"

#include "tests/support/PrivateMember.h"

namespace TarvexDiags::TestSupport {

struct BigLockTag {
  using Member = DiagCtrl::DiagCtrlLock DiagCtrl::DiagnosticController::*;
};
template struct PrivateMember<BigLockTag, &DiagCtrl::DiagnosticController::mmtxApiPhaseLock>;

DiagCtrl::DiagCtrlLock& bigLockOf(DiagCtrl::DiagnosticController& controller) {
  return privateMember<BigLockTag>(controller);
}

}  // namespace TarvexDiags::TestSupport
