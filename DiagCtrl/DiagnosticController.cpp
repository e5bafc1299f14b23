#include "DiagCtrl/DiagnosticController.h"

#include <cstdlib>
#include <thread>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/ClientCallCount.h"
#include "DiagCtrl/internal/ground/Singleton.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr auto kMinorLock = DiagCtrlBaseException::MutexException;

}  // namespace

System::Mutex DiagnosticController::mSInstanceMutex;
DiagnosticController* DiagnosticController::mSpInstance = nullptr;

DiagnosticController* DiagnosticController::getInstance() {
  const System::LockHold hold(mSInstanceMutex);
  return instanceOf(mSpInstance, [] { return new DiagnosticController; });
}

DiagnosticController::DiagnosticController()
    : mpDiagCtrlStatus(nullptr),
      mpcCtrlConfigFilePath(nullptr),
      mpGlobalSettings(nullptr),
      mpResourceLockManager(nullptr),
      mpEventManager(nullptr),
      mpTestRequestManager(nullptr),
      mpMoniThread(nullptr),
      mpExecMgrThread(nullptr),
      mpDiagPackInterface(nullptr),
      mlRequestId(0),
      mpDiagCtrlConfig(nullptr),
      mbPackageRead(false),
      mpDiagTracer(DiagTracer::getInstance()),
      mpcPackDirPath(nullptr),
      mpcLogDirPath(nullptr),
      mpcMsgFilePath(nullptr),
      mpDiagUtil(DiagUtil::getInstance()),
      mpValidator(DiagValidator::getInstance()),
      musMachineId(0),
      mProgressEnumeration(0),
      mbShutDownRequest(false),
      mbMsgFilePathFound(true),
      mbAbortAllFlag(false),
      mbResetRequest(false),
      mmtxTestRequestLock(kTimeOut),
      mmtxApiPhaseLock(kTimeOut),
      mmtxEvtCBObjListLock(kTimeOut),
      mmtxResCBObjListLock(kTimeOut),
      mmtxCtrlEvtCBObjListLock(kTimeOut),
      mmtxPackageVectorLock(kTimeOut),
      mmtxGlobalSettingsLock(kTimeOut),
      mmtxDiagProgressLock(kTimeOut),
      mmtxDeviceStatusLock(kTimeOut),
      mmtxShutDownLock(kTimeOut),
      mmtxProgressLock(kTimeOut),
      mmtxDisPackageListLock(kTimeOut),
      mmtxResetLock(kTimeOut),
      mpClientCalls(std::make_unique<ClientCallCount>()),
      mResettingThread(std::thread::id()) {
  mpDiagCtrlStatus = new DiagControllerStatus;
}

DiagnosticController::~DiagnosticController() {
  if (mpEventManager == nullptr) {
    // Events that were raised while nothing was initialised have made one; it traces, so it must
    // not outlive the tracer.
    delete EventManager::getInstance();
  }
  delete mpValidator;
  delete mpDiagUtil;
  delete mpDiagCtrlStatus;
  delete[] mpcMsgFilePath;
  std::free(mpcCtrlConfigFilePath);
  {
    const System::LockHold hold(mSInstanceMutex);
    mSpInstance = nullptr;
  }
  delete mpDiagTracer;
}

DiagnosticController::diagCtrlPhase DiagnosticController::getDiagCtrlPhase(long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::getDiagCtrlPhase");
  try {
    return mpDiagCtrlStatus->getDiagCtrlPhase(alTimeOutValue);
  } catch (const DiagCtrlMutexException&) {
    raise<DiagCtrlMutexException>(kMinorLock, "DiagnosticController::getDiagCtrlPhase()");
  }
}

void DiagnosticController::setDiagCtrlPhase(diagCtrlPhase aePhase, long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::setDiagCtrlPhase");
  try {
    mpDiagCtrlStatus->setDiagCtrlPhase(aePhase, alTimeOutValue);
  } catch (const DiagCtrlMutexException&) {
    raise<DiagCtrlMutexException>(kMinorLock, "DiagnosticController::setDiagCtrlPhase()");
  }
}

bool DiagnosticController::getShutDownFlag() {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::getShutDownFlag");
  const LockScope lock(mmtxShutDownLock, 0, kMinorLock, "DiagnosticController::getShutDownFlag()");
  return mbShutDownRequest;
}

EventManager* DiagnosticController::getEventMgrPtr() const noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::getEventMgrPtr");
  kClientsAtRest.mayRead();
  return mpEventManager;
}

DiagnosticPackageInterface* DiagnosticController::getDiagPackInterfacePtr() const noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::getDiagPackInterfacePtr");
  kClientsAtRest.mayRead();
  return mpDiagPackInterface;
}

TestRequestManager* DiagnosticController::getTestRequestMgrPtr() const noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::getTestRequestMgrPtr");
  kClientsAtRest.mayRead();
  return mpTestRequestManager;
}

}  // namespace TarvexDiags::DiagCtrl
