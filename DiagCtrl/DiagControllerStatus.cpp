#include "DiagCtrl/DiagControllerStatus.h"

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/LockScope.h"
#include "DiagCtrl/internal/TraceScope.h"

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

}  // namespace TarvexDiags::DiagCtrl
