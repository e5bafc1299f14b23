#include "DiagCtrl/DiagnosticController.h"

#include <cstdlib>
#include <optional>
#include <string>
#include <thread>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
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

EventManager* DiagnosticController::getEventMgrPtr() const {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::getEventMgrPtr");
  return mpEventManager;
}

DiagnosticPackageInterface* DiagnosticController::getDiagPackInterfacePtr() const {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::getDiagPackInterfacePtr");
  return mpDiagPackInterface;
}

TestRequestManager* DiagnosticController::getTestRequestMgrPtr() const {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::getTestRequestMgrPtr");
  return mpTestRequestManager;
}

std::optional<DiagnosticController::errorCode> DiagnosticController::refusal(ClientCall aeCall,
                                                                             TraceScope& arTrace) {
  const GateRow& row = gateRow(aeCall);
  diagCtrlPhase phase = DiagControllerStatus::UNINITIALISED;
  try {
    phase = getDiagCtrlPhase(row.readTimeOut);
  } catch (const DiagCtrlMutexException&) {
    if (row.trace != GateRow::afterEvent) {
      arTrace.close();
    }
    if (row.raisesLockFailure) {
      pushError(DiagCtrlEvent::UNABLE_TO_GET_LOCK);
    }
    if (row.trace == GateRow::afterEvent) {
      arTrace.error("UNABLE_TO_GET_LOCK: ");
    }
    return UNABLE_TO_GET_LOCK;
  }
  if (isAllowed(row, phase)) {
    return std::nullopt;
  }
  return refuse(row, phase, arTrace);
}

// A call that is turned away meets the controller as it will be in a moment.
std::optional<DiagnosticController::errorCode> DiagnosticController::refusalInside(
    const ClientCallScope& arInside, ClientCall aeCall, TraceScope& arTrace) {
  if (arInside.isTurnedAway()) {
    return refuse(gateRow(aeCall), DiagControllerStatus::UNINITIALISED, arTrace);
  }
  return refusal(aeCall, arTrace);
}

DiagnosticController::errorCode DiagnosticController::refuse(const GateRow& arRow,
                                                             diagCtrlPhase aePhase,
                                                             TraceScope& arTrace) {
  const auto traceRefusal = [&] {
    arTrace.errorValueOf([&] { return std::string(arTrace.method()) + arRow.text; }, aePhase);
  };
  if (arRow.trace == GateRow::before) {
    traceRefusal();
  }
  if (arRow.trace != GateRow::afterEvent) {
    arTrace.close();
  }
  if (arRow.wrongPhaseEvent != GateRow::noEvent) {
    pushError(arRow.wrongPhaseEvent);
  }
  if (arRow.trace == GateRow::afterEvent) {
    traceRefusal();
  }
  return INCORRECT_PHASE;
}

DiagnosticController::errorCode DiagnosticController::fail(TraceScope& arTrace,
                                                           DiagCtrlEvent::eventCode aeEvent,
                                                           errorCode aeResult) {
  arTrace.close();
  pushError(aeEvent);
  return aeResult;
}

void DiagnosticController::pushError(DiagCtrlEvent::eventCode aeEvent) {
  ClientCallScope::leaveCurrent();
  mpDiagUtil->pushDiagCtrlEvent(aeEvent, Diag::DiagnosticEvent::ERROR_EVENT, 0);
}

// A call that waited for the big lock behind a shut-down finds the machinery gone.
void DiagnosticController::requireManagers() const {
  if (mpTestRequestManager == nullptr) {
    throw kIncorrectPhase;
  }
}

bool DiagnosticController::isResetting() const {
  return mbResetRequest && mResettingThread.load() == std::this_thread::get_id();
}

}  // namespace TarvexDiags::DiagCtrl
