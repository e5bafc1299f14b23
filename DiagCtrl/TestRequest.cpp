#include "DiagCtrl/TestRequest.h"

#include <exception>
#include <utility>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "DiagCtrl/internal/foundation/GateScope.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/LockedMethod.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/ReplaceStatus.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr auto kMinorLock = DiagCtrlBaseException::LockNotAcquired;
constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;

}  // namespace

TestRequest::TestRequest(DiagnosticPackage& arDiagPackage, DiagDevice& arDiagDevice,
                         Diag::DiagnosticSettings* apDiagSettings)
    : TestRequest(arDiagPackage, arDiagDevice, DiagIntList(), apDiagSettings) {}

TestRequest::TestRequest(DiagnosticPackage& arDiagPackage, DiagDevice& arDiagDevice,
                         DiagIntList aTestIdList, Diag::DiagnosticSettings* apDiagSettings)
    : mrDiagPackageRef(arDiagPackage),
      mrDiagDeviceRef(arDiagDevice),
      mTestIdList(std::move(aTestIdList)),
      mpDiagSetting(apDiagSettings),
      mmtxTestReqLock(kTimeOut),
      mmtxTestReqStatusLock(kTimeOut),
      mmtxTestReqAbortLock(kTimeOut),
      mmtxIDiagLock(kTimeOut),
      mmtxRelLibraryLock(kTimeOut),
      mpDiagTracer(DiagTracer::getInstance()),
      mmtxDispatchGate(kTimeOut) {}

TestRequest::~TestRequest() {
  const TraceScope trace(mpDiagTracer, "TestRequest::~TestRequest");
  delete mpDiagSetting;
  mpDiagSetting = nullptr;
  if (mbLibraryReleased) {
    return;
  }
  try {
    destroyIDiagnostics(DiagnosticController::getInstance()->getDiagPackInterfacePtr(), kTimeOut);
  } catch (const std::exception&) {
    // Nobody is left who could act on it.
  } catch (const DiagCtrlBaseException&) {
  }
}

unsigned long TestRequest::getTestRequestId() {
  const LockedMethod hold(mpDiagTracer, "TestRequest::getTestRequestId", mmtxTestReqLock, 0,
                          kMinorLock, "TestRequest::getTestRequestId()");
  return mulTestRequestId.load();
}

void TestRequest::setTestRequestId(unsigned long aulTestRequestId) {
  const TraceScope trace(mpDiagTracer, "TestRequest::setTestRequestId");
  mulTestRequestId = aulTestRequestId;  // before the request is visible to anybody
}

bool TestRequest::getToBeDroppedFlag() {
  const LockedMethod hold(mpDiagTracer, "TestRequest::getToBeDroppedFlag", mmtxTestReqLock, 0,
                          kMinorLock, "TestRequest::getToBeDroppedFlag()");
  return mbToBeDropped.load();
}

void TestRequest::setToBeDroppedFlag(bool abToBeDropped) {
  const LockedMethod hold(mpDiagTracer, "TestRequest::setToBeDroppedFlag", mmtxTestReqLock, 0,
                          kMinorLock, "TestRequest::setToBeDroppedFlag()");
  mbToBeDropped = abToBeDropped;
}

TestRequest::TestRequestStatus TestRequest::getTestRequestStatus(long alTimeOutValue) {
  const LockedMethod hold(mpDiagTracer, "TestRequest::getTestRequestStatus", mmtxTestReqStatusLock,
                          lockTimeOut(alTimeOutValue), kMinorLock,
                          "TestRequest::getTestRequestStatus()");
  return meTestRequestStatus.load();
}

void TestRequest::setTestRequestStatus(TestRequestStatus aeStatus) {
  const TraceScope trace(mpDiagTracer, "TestRequest::setTestRequestStatus");
  const LockScope lock(mmtxTestReqStatusLock, 0, kMinorLock, "TestRequest::setTestRequestStatus()");
  setStatusIfOpen(aeStatus);
}

// The abort writes the status under another lock, so both writers compare and set.
void TestRequest::setStatusIfOpen(TestRequestStatus aeStatus) {
  replaceStatus(meTestRequestStatus, aeStatus, [this](TestRequestStatus aePresent) {
    const bool isFinal = aePresent == COMPLETED || aePresent == ABORTED;
    if (isFinal) {
      mpDiagTracer->traceValue(DiagCtrlConstants::DIAG_WARNING, __FILE__, __LINE__,
                               "Can't override, because status is ", aePresent);
    }
    return isFinal;
  });
}

bool TestRequest::getAbortStatus() {
  const LockedMethod hold(mpDiagTracer, "TestRequest::getAbortStatus", mmtxTestReqAbortLock, 0,
                          kMinorLock, "TestRequest::getAbortStatus()");
  return mbAbortStatus.load();
}

void TestRequest::setAbortStatus(bool abAbortStatus, long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "TestRequest::setAbortStatus");
  const LockScope lock(mmtxTestReqAbortLock, lockTimeOut(alTimeOutValue), kMinorLock,
                       "TestRequest::setAbortStatus()");
  mbAbortStatus = abAbortStatus;
  if (abAbortStatus) {
    replaceStatus(meTestRequestStatus, ABORTED,
                  [](TestRequestStatus aePresent) { return aePresent == COMPLETED; });
  }
}

Diag::IDiagnostics& TestRequest::getIDiagnostics() {
  const LockedMethod hold(mpDiagTracer, "TestRequest::getIDiagnostics", mmtxIDiagLock, 0,
                          kMinorLock, "TestRequest::getIDiagnostics()");
  return *mpIDiagnosticsPtr.load();
}

Diag::IDiagnostics* TestRequest::getIDiagnosticsPtr() {
  const LockedMethod hold(mpDiagTracer, "TestRequest::getIDiagnosticsPtr", mmtxIDiagLock, 0,
                          kMinorLock, "TestRequest::getIDiagnosticsPtr()");
  return mpIDiagnosticsPtr.load();
}

void TestRequest::setIDiagnostics(Diag::IDiagnostics* apIDiagnostics) {
  const LockedMethod hold(mpDiagTracer, "TestRequest::setIDiagnostics", mmtxIDiagLock, 0,
                          kMinorLock, "TestRequest::setIDiagnostics()");
  mpIDiagnosticsPtr = apIDiagnostics;
}

bool TestRequest::getHaltedStatus() noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::getHaltedStatus");
  return mbHaltedStatus;
}

void TestRequest::setHaltedStatus(bool abHaltedStatus) {
  const LockedMethod hold(mpDiagTracer, "TestRequest::setHaltedStatus", mmtxIDiagLock, -1,
                          kMinorLock, "TestRequest::setHaltedStatus()");
  mbHaltedStatus = abHaltedStatus;
}

bool TestRequest::getHaltLoopOnError() noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::getHaltLoopOnError");
  return mbHaltLoopOnError;
}

void TestRequest::setHaltLoopOnError(bool abHaltLoopOnError) {
  const LockedMethod hold(mpDiagTracer, "TestRequest::setHaltLoopOnError", mmtxIDiagLock, -1,
                          kMinorLock, "TestRequest::setHaltLoopOnError()");
  mbHaltLoopOnError = abHaltLoopOnError;
}

bool TestRequest::getMonitored() noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::getMonitored");
  return mbMonitored;
}

void TestRequest::setMonitored(bool abMonitored) {
  const LockedMethod hold(mpDiagTracer, "TestRequest::setMonitored", mmtxIDiagLock, -1, kMinorLock,
                          "TestRequest::setMonitored()");
  mbMonitored = abMonitored;
}

void TestRequest::setExecutedAll(bool abExecutedAll) {
  const LockedMethod hold(mpDiagTracer, "TestRequest::setExecutedAll", mmtxIDiagLock, -1,
                          kMinorLock, "TestRequest::setExecutedAll()");
  mbExecutedAll = abExecutedAll;
}

void TestRequest::setHandle(DLL_Handle aHandle) noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::setHandle");
  mDLLHandle = aHandle;
}

DLL_Handle TestRequest::getHandle() noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::getHandle");
  return mDLLHandle;
}

bool TestRequest::getExecutedOnce() noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::getExecutedOnce");
  return mbExecutedOnce;
}

void TestRequest::setExecutedOnce(bool abExecutedOnce) noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::setExecutedOnce");
  mbExecutedOnce = abExecutedOnce;
}

unsigned long TestRequest::getTestRequestStartTime() noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::getTestRequestStartTime");
  return mulTestRequestStartTime;
}

void TestRequest::setTestRequestStartTime(unsigned long aulStartTime) noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::setTestRequestStartTime");
  mulTestRequestStartTime = aulStartTime;
}

Diag::DiagnosticSettings* TestRequest::getDiagnosticSettings() noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::getDiagnosticSettings");
  return mpDiagSetting;
}

DiagnosticPackage& TestRequest::getDiagPackageRef() noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::getDiagPackageRef");
  return mrDiagPackageRef;
}

DiagDevice& TestRequest::getDiagDeviceRef() noexcept {
  const TraceScope trace(mpDiagTracer, "TestRequest::getDiagDeviceRef");
  return mrDiagDeviceRef;
}

DiagIntList TestRequest::getTestIdList() {
  const TraceScope trace(mpDiagTracer, "TestRequest::getTestIdList");
  return mTestIdList;
}

void TestRequest::releaseIDiagnostic(DiagnosticPackageInterface& apDiagPkgIntf,
                                     long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "TestRequest::releaseIDiagnostic");
  const LockScope lock(mmtxRelLibraryLock, lockTimeOut(alTimeOutValue), kMinorLock,
                       "TestRequest::releaseIDiagnostic()");
  if (mbLibraryReleased) {
    return;
  }
  if (miUsers > 0) {
    mpDyingIDiagnostics = mpIDiagnosticsPtr.exchange(nullptr);
    mpReleasedBy = &apDiagPkgIntf;
    mbLibraryReleased = true;
    return;
  }
  destroyIDiagnostics(&apDiagPkgIntf, -1);
  mbLibraryReleased = true;
}

bool TestRequest::ifIDiagnosticsDeleted() {
  const LockedMethod hold(mpDiagTracer, "TestRequest::ifIDiagnosticsDeleted", mmtxRelLibraryLock, 0,
                          kMinorLock, "TestRequest::ifIDiagnosticsDeleted()");
  return mbLibraryReleased.load();
}

// The object goes first: its code lies in the library. A request whose load failed has no library.
void TestRequest::destroyIDiagnostics(DiagnosticPackageInterface* apDiagPkgIntf,
                                      long alTimeOutValue) {
  delete mpIDiagnosticsPtr.exchange(nullptr);
  const DLL_Handle handle = mDLLHandle;
  if (handle != nullptr && apDiagPkgIntf != nullptr) {
    apDiagPkgIntf->releaseLibrary(handle, alTimeOutValue);
  }
}

Diag::IDiagnostics* TestRequest::pinIDiagnostics() {
  const GateScope hold(mmtxRelLibraryLock);
  Diag::IDiagnostics* object = mbLibraryReleased ? nullptr : mpIDiagnosticsPtr.load();
  miUsers += object != nullptr ? 1 : 0;
  return object;
}

void TestRequest::unpinIDiagnostics() {
  const GateScope hold(mmtxRelLibraryLock);
  if (--miUsers > 0 || mpReleasedBy == nullptr) {
    return;
  }
  delete std::exchange(mpDyingIDiagnostics, nullptr);
  try {
    destroyIDiagnostics(std::exchange(mpReleasedBy, nullptr), -1);
  } catch (DiagCtrlBaseException& failure) {
    mpDiagTracer->traceValue(DiagCtrlConstants::DIAG_ERROR, __FILE__, __LINE__,
                             ("TestRequest::unpinIDiagnostics" + failure.dump()).c_str());
  }
}

TestRequest::Claim TestRequest::lookBeforeStart() const {
  if (mbAbortStatus) {
    return Claim::aborted;
  }
  const bool over = meTestRequestStatus == COMPLETED || mbHaltedStatus || mbLibraryReleased;
  return over ? Claim::stale : Claim::granted;
}

TestRequest::Claim TestRequest::claimForDispatch() {
  const GateScope gate(mmtxDispatchGate);
  Claim claim = lookBeforeStart();
  if (claim == Claim::granted && mbInFlight) {
    claim = Claim::stale;
  }
  if (claim == Claim::granted) {
    mbMonitored = true;
    mbInFlight = true;
    mbEntered = false;
    ++mulClaims;
  }
  return claim;
}

unsigned long TestRequest::claimedPass() {
  const GateScope gate(mmtxDispatchGate);
  return mulClaims;
}

TestRequest::Claim TestRequest::enterPackage() {
  const GateScope gate(mmtxDispatchGate);
  const Claim claim = lookBeforeStart();
  if (claim == Claim::granted) {
    setTestRequestStatus(RUNNING);
    setToBeDroppedFlag(false);
    mbEntered = true;
  }
  return claim;
}

bool TestRequest::isWorkerInside() const {
  return mbInFlight && mbEntered && !mbToBeDropped;
}

void TestRequest::landFromFlight() {
  const GateScope gate(mmtxDispatchGate);
  mbInFlight = false;
}

void TestRequest::returnToWait() {
  const GateScope gate(mmtxDispatchGate);
  if (!mbInFlight) {
    setTestRequestStatus(WAIT);
    setMonitored(false);
  }
}

// Between two passes a report counts. While a pass is in flight, one that its thread cannot have
// brought about yet is left over from the pass before; a first pass has none before it.
bool TestRequest::lookAtPass() {
  const GateScope gate(mmtxDispatchGate);
  mulClaimsAtLook = mulClaims;
  const bool isLeftOver = mbInFlight && (!mbEntered || (mulClaims > 1 && !mbToBeDropped));
  return !isLeftOver;
}

TestRequest::Completion TestRequest::complete() {
  const GateScope gate(mmtxDispatchGate);
  if (mulClaims != mulClaimsAtLook) {
    return Completion::superseded;
  }
  if (getAbortStatus()) {
    return Completion::aborted;
  }
  setTestRequestStatus(COMPLETED);
  return Completion::completed;
}

TestRequest::SendBack TestRequest::beginSendBack() {
  const GateScope gate(mmtxDispatchGate);
  if (mulClaims != mulClaimsAtLook) {
    return SendBack::superseded;
  }
  return mbInFlight ? SendBack::reclaimWorker : SendBack::noWorker;
}

unsigned long TestRequest::reclaimedPass() {
  const GateScope gate(mmtxDispatchGate);
  return mulClaims - (mbInFlight ? 1 : 0);
}

bool TestRequest::isInFlight() {
  const GateScope gate(mmtxDispatchGate);
  return mbInFlight;
}

TestRequest::AbortedWhile TestRequest::beginAbort(long alTimeOutValue) {
  const GateScope gate(mmtxDispatchGate);
  // A thread can be inside whatever the status says: a package may report completion too early.
  const bool running = getTestRequestStatus(alTimeOutValue) == RUNNING || isWorkerInside();
  const bool monitored = getMonitored();
  setAbortStatus(true, alTimeOutValue);
  if (running) {
    return AbortedWhile::inPackage;
  }
  return monitored ? AbortedWhile::monitored : AbortedWhile::queued;
}

bool TestRequest::isStaleEntry() {
  const GateScope gate(mmtxDispatchGate);
  if (mbMonitored || mbInFlight) {
    return true;
  }
  return !mbAbortStatus && (meTestRequestStatus == COMPLETED || mbLibraryReleased);
}

bool TestRequest::isAbortedOrHalted() const {
  return mbAbortStatus || mbHaltedStatus;
}

bool TestRequest::willNotRunAgain() const {
  return isAbortedOrHalted() && mbToBeDropped;
}

}  // namespace TarvexDiags::DiagCtrl
