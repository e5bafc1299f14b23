#pragma once

#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagnosticController.h"

namespace TarvexDiags::TestSupport {

/// The lock under which the operations that change the machine take turns.
DiagCtrl::DiagCtrlLock& bigLockOf(DiagCtrl::DiagnosticController& controller);

}  // namespace TarvexDiags::TestSupport
