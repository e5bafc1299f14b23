#pragma once

#include <atomic>

#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

/// The controller's phase and the health of its two long-lived threads. The copy that a client gets
/// from DiagnosticController::getDiagControllerStatus is the client's.
///
/// Thread-safety: any thread may call any operation. The phase accessors may throw
/// DiagCtrlMutexException.
class TARVEXDIAGS_EXPORT DiagControllerStatus {
 public:
  enum diagCtrlPhase : unsigned int {
    UNINITIALISED = 0,
    ACTIVE = 1,      ///< requests are queued or running
    IDLE = 2,        ///< enumerated, nothing to do
    ENUMERATE = 3,   ///< packages are being enumerated
    INITIALIZE = 4,  ///< initialised, not yet enumerated
    ESTIMATION = 5,  ///< declared, never entered
  };

  DiagControllerStatus();
  DiagControllerStatus(const DiagControllerStatus&) = delete;
  DiagControllerStatus& operator=(const DiagControllerStatus&) = delete;
  virtual ~DiagControllerStatus();

  diagCtrlPhase getDiagCtrlPhase(long alTimeOutValue);
  void setDiagCtrlPhase(diagCtrlPhase aePhase, long alTimeOutValue);
  /// The same, also where the lock cannot be had: for a phase that must not stay behind.
  void restoreDiagCtrlPhase(diagCtrlPhase aePhase) noexcept;

  /// A thread is healthy when its time stamp is less than 10 seconds old.
  bool getExecMgrThrHealth() const noexcept;
  bool getMonThrHealth() const noexcept;
  void setExecMgrThrHealth(bool abHealth) noexcept;
  void setMonThrHealth(bool abHealth) noexcept;

 private:
  /// Read and written under the lock. Atomic, because a phase is put back without it if need be.
  std::atomic<diagCtrlPhase> meDiagCtrlStatus;
  std::atomic<bool> mbExecMgrThrHealth;
  std::atomic<bool> mbMonThrHealth;
  DiagCtrlLock mmtxDiagCtrlStatusLock;
  [[maybe_unused]] DiagControllerStatus* mpDiagCtrlStatus = nullptr;
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
