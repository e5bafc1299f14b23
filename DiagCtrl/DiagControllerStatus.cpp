#include "DiagCtrl/DiagControllerStatus.h"

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

DiagControllerStatus::DiagControllerStatus()
    : meDiagCtrlStatus(UNINITIALISED),
      mbExecMgrThrHealth(false),
      mbMonThrHealth(false),
      mmtxDiagCtrlStatusLock(DiagCtrlConstants::mSconlDefaultLockTimeOut),
      mpDiagTracer(DiagTracer::getInstance()) {}

DiagControllerStatus::~DiagControllerStatus() = default;

DiagControllerStatus::diagCtrlPhase DiagControllerStatus::getDiagCtrlPhase(long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "DiagControllerStatus::getDiagCtrlPhase");
  const LockScope lock(mmtxDiagCtrlStatusLock, lockTimeOut(alTimeOutValue),
                       DiagCtrlBaseException::MutexException,
                       "DiagControllerStatus::getDiagCtrlPhase()");
  return meDiagCtrlStatus;
}

void DiagControllerStatus::setDiagCtrlPhase(diagCtrlPhase aePhase, long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "DiagControllerStatus::setDiagCtrlPhase");
  const LockScope lock(mmtxDiagCtrlStatusLock, lockTimeOut(alTimeOutValue),
                       DiagCtrlBaseException::MutexException,
                       "DiagControllerStatus::setDiagCtrlPhase()");
  meDiagCtrlStatus = aePhase;
}

void DiagControllerStatus::restoreDiagCtrlPhase(diagCtrlPhase aePhase) noexcept {
  try {
    setDiagCtrlPhase(aePhase, -1);
  } catch (const DiagCtrlMutexException&) {
    meDiagCtrlStatus = aePhase;
  }
}

bool DiagControllerStatus::getExecMgrThrHealth() const noexcept {
  const TraceScope trace(mpDiagTracer, "DiagControllerStatus::getExecMgrThrHealth");
  return mbExecMgrThrHealth;
}

bool DiagControllerStatus::getMonThrHealth() const noexcept {
  const TraceScope trace(mpDiagTracer, "DiagControllerStatus::getMonThrHealth");
  return mbMonThrHealth;
}

void DiagControllerStatus::setExecMgrThrHealth(bool abHealth) noexcept {
  const TraceScope trace(mpDiagTracer, "DiagControllerStatus::setExecMgrThrHealth");
  mbExecMgrThrHealth = abHealth;
}

void DiagControllerStatus::setMonThrHealth(bool abHealth) noexcept {
  const TraceScope trace(mpDiagTracer, "DiagControllerStatus::setMonThrHealth");
  mbMonThrHealth = abHealth;
}

}  // namespace TarvexDiags::DiagCtrl
