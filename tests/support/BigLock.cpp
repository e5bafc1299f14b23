#include "tests/support/BigLock.h"

#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(BigLockTag, DiagCtrl::DiagnosticController::mmtxApiPhaseLock);

namespace TarvexDiags::TestSupport {

DiagCtrl::DiagCtrlLock& bigLockOf(DiagCtrl::DiagnosticController& controller) {
  return privateMember<BigLockTag>(controller);
}

}  // namespace TarvexDiags::TestSupport
