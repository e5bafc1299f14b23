#pragma once

#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/TestRequestManager.h"

namespace TarvexDiags::TestSupport {

/// Leaves the phase to the test while it lives: the controller's own thread would make one idle
/// that a test made active without any request. Nothing can be run meanwhile, nor be shut down.
class PhaseHold {
 public:
  explicit PhaseHold(DiagCtrl::DiagnosticController& controller)
      : m_lock(controller.getTestRequestMgrPtr()->mmtxTestReqChangeLock) {
    m_lock.lock(-1);
  }
  ~PhaseHold() { m_lock.unlock(); }
  PhaseHold(const PhaseHold&) = delete;
  PhaseHold& operator=(const PhaseHold&) = delete;

 private:
  DiagCtrl::DiagCtrlLock& m_lock;
};

}  // namespace TarvexDiags::TestSupport
