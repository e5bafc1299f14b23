#include "DiagCtrl/MonitorThread.h"

#include <unistd.h>

#include <ctime>
#include <memory>
#include <optional>
#include <string>

#include "DeviceEnum/IDevice.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagControllerStatus.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagCtrlReleaseLibraryFailed.h"
#include "DiagCtrl/DiagCtrlUnsupportedOperation.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/ExecutionManagerThread.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "DiagCtrl/internal/controller/DiagnosticsPin.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr auto kMinorLock = DiagCtrlBaseException::LockNotAcquired;
constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr int kIdleCheckAttempts = 20;
constexpr useconds_t kIdleCheckPauseMicroseconds = 5000;
// A request that waits for its pass thread would otherwise double its entries at every poll.
constexpr int kMostLocalEntries = 2;

unsigned int eventId(TestRequest& arTestRequest) {
  return static_cast<unsigned int>(arTestRequest.id());
}

}  // namespace

MonitorThread::MonitorThread(EventManager& arEventManager, TestRequestManager& arTestRequestManager,
                             ExecutionManagerThread& arExecutionManagerThread,
                             DiagnosticController& arDiagnosticController,
                             DiagnosticPackageInterface& arDiagnosticPackageInterface)
    : mrEventManager(arEventManager),
      mrTestRequestManager(arTestRequestManager),
      mrExecutionManagerThread(arExecutionManagerThread),
      mrDiagCtrl(arDiagnosticController),
      mrDiagPkgIntf(arDiagnosticPackageInterface),
      mrWaitCondVar(arTestRequestManager.getCondVarTRWaitQueue()),
      mrExecCondVar(arTestRequestManager.getCondVarTRExecQueue()),
      mpDiagUtil(DiagUtil::getInstance()) {}

MonitorThread::~MonitorThread() = default;

void MonitorThread::stop() {
  const TraceScope trace(mpDiagTracer, "MonitorThread::stop");
  try {
    DiagThread::stop();
    mrExecCondVar.signal();
  } catch (const DiagCtrlMutexException&) {
    raise<DiagCtrlMutexException>(kMinorLock, "MonitorThread::stop()");
  }
}

void MonitorThread::run(void* /*apRunArgument*/) {
  const TraceScope trace(mpDiagTracer, "MonitorThread::run");
  const QuietScope quiet;
  mulSignalsSeen = mrExecCondVar.ticket();
  while (getState()) {
    try {
      runOnce();
    } catch (DiagCtrlBaseException& failure) {
      traceFailure("MonitorThread::run", failure);
    }
  }
  endRun();
}

void MonitorThread::runOnce() {
  auto execQueueStatus = DiagCtrlConditionVar::receivedSignal;
  updateTimeStamp();
  if (mrTestRequestManager.getTestReqExecQueueSize() == 0) {
    reportNothingPending();
    execQueueStatus = waitForWork();
    if (!getState()) {
      return;
    }
  }
  // Before all polls, so that a signal that comes during them ends the next wait at once.
  mulSignalsSeen = mrExecCondVar.ticket();
  if (mrDiagCtrl.getDiagCtrlPhase(kTimeOut) != DiagControllerStatus::ACTIVE) {
    return;
  }
  switch (execQueueStatus) {
    case DiagCtrlConditionVar::timedOut:
      handleTimedOut();
      if (mResultPendingTRQueue.empty()) {
        becomeIdleIfNothingIsLeft();
      }
      break;
    case DiagCtrlConditionVar::receivedSignal:
      handleReceivedSignal();
      break;
    case DiagCtrlConditionVar::waitAbandoned:
      break;
    default:
      mpDiagTracer->traceValue(DiagCtrlConstants::DIAG_ERROR, __FILE__, __LINE__,
                               "run()::default - do nothing");
  }
}

void MonitorThread::reportNothingPending() {
  if (!mResultPendingTRQueue.empty() || mrTestRequestManager.getTestReqExecQueueSize() != 0) {
    return;
  }
  try {
    mrExecutionManagerThread.setTRBatchCompletedFlag(true);
  } catch (DiagCtrlMutexException& failure) {
    traceFailure("MonitorThread::run", failure);
  } catch (DiagCtrlUnsupportedOperation& failure) {
    traceFailure("MonitorThread::run", failure);
  }
}

DiagCtrlConditionVar::WaitRetStatus MonitorThread::waitForWork() {
  try {
    return mrExecCondVar.timedWaitSince(DiagCtrlConstants::mlSMonitorThrTimeWait, mulSignalsSeen);
  } catch (DiagCtrlMutexException& failure) {
    traceFailure("MonitorThread::run", failure);
    return DiagCtrlConditionVar::waitAbandoned;
  }
}

// Frees a dispatcher that waits for a verdict.
void MonitorThread::endRun() {
  try {
    mrExecutionManagerThread.setTRBatchCompletedFlag(true);
    mrTestRequestManager.setTestExecCompleted(true);
    mrTestRequestManager.getCondVarExecMgrThread().signal();
  } catch (DiagCtrlMutexException& failure) {
    traceFailure("MonitorThread::run", failure);
  } catch (DiagCtrlUnsupportedOperation& failure) {
    traceFailure("MonitorThread::run", failure);
  }
}

// Never blocks: in serial mode the dispatcher holds the lock until this very thread has judged the
// pass.
void MonitorThread::becomeIdleIfNothingIsLeft() {
  DiagCtrlLock& lock = mrTestRequestManager.mmtxTestReqChangeLock;
  for (int attempt = 0; attempt < kIdleCheckAttempts && getState(); ++attempt) {
    if (lock.tryLock()) {
      const LockScope changeLock(lock, std::adopt_lock);
      mrTestRequestManager.ifNothingIsQueued([this] {
        if (getState()) {
          mrDiagCtrl.setDiagCtrlPhase(DiagControllerStatus::IDLE, kTimeOut);
        }
      });
      return;
    }
    usleep(kIdleCheckPauseMicroseconds);
  }
}

void MonitorThread::handleTimedOut() {
  const TraceScope trace(mpDiagTracer, "MonitorThread::handleTimedOut");
  processLocalTRQueue();
}

void MonitorThread::handleReceivedSignal() {
  const TraceScope trace(mpDiagTracer, "MonitorThread::handleReceivedSignal");
  processExecQueue();
  processLocalTRQueue();
}

void MonitorThread::processExecQueue() {
  const TraceScope trace(mpDiagTracer, "MonitorThread::processExecQueue");
  const int iExecQueueSize = mrTestRequestManager.getTestReqExecQueueSize();
  for (int i = 0; i < iExecQueueSize; ++i) {
    if (RequestReference entry =
            mrTestRequestManager.popTestRequestQueue(TestRequestManager::EXECUTION)) {
      pollEntry(entry);
    }
  }
}

// What the polls append waits for the next pass.
void MonitorThread::processLocalTRQueue() {
  const TraceScope trace(mpDiagTracer, "MonitorThread::processLocalTRQueue");
  const std::size_t iPendingResultQueueSize = mResultPendingTRQueue.size();
  for (std::size_t i = 0; i < iPendingResultQueueSize; ++i) {
    RequestReference entry = takeLocalEntry();
    pollEntry(entry);
  }
}

void MonitorThread::pollEntry(RequestReference& arEntry) {
  try {
    if (!arEntry->ifIDiagnosticsDeleted()) {
      getEventsResults(arEntry.get());
      return;
    }
    // The entry falls out, but nobody may go on waiting for its verdict.
    if (arEntry->isInFlight()) {
      mrExecutionManagerThread.removeExecThreadObject(arEntry->id());
    }
    conclude(*arEntry);
  } catch (DiagCtrlMutexException& failure) {
    traceFailure("MonitorThread::processExecQueue", failure);
  } catch (DiagCtrlBaseException& failure) {
    // The request is still pending.
    traceFailure("MonitorThread::processExecQueue", failure);
    keepPolling(*arEntry);
  }
}

void MonitorThread::getEventsResults(TestRequest* apTestRequest) {
  const TraceScope trace(mpDiagTracer, "MonitorThread::getEventsResults");
  // Read before the events, so that all of them are drained before the verdict.
  const bool isForced = apTestRequest->willNotRunAgain();
  const unsigned long ulTestRequestId = apTestRequest->id();
  collectEvents(*apTestRequest);
  const Diag::DiagnosticStatus rDiagnosticStatus = readStatus(*apTestRequest);
  // Behind the read of the status: in front of it, a pass could begin in between.
  const bool isOfThisPass = apTestRequest->lookAtPass();
  const bool isOver = isForced || (isOfThisPass && rDiagnosticStatus.getStatus() ==
                                                       Diag::DiagnosticStatus::COMPLETED);
  mrEventManager.logProgress(apTestRequest->package().getPackageName(), ulTestRequestId,
                             rDiagnosticStatus.getProgress());
  Diag::DiagnosticSettings* pDiagSett = apTestRequest->getDiagnosticSettings();
  if (pDiagSett->getStressMode() != 0) {
    pDiagSett->setPassCount(static_cast<int>(rDiagnosticStatus.getPassCount()));
  } else if (!isOver) {
    keepPolling(*apTestRequest);
    return;
  }
  collectResults(*apTestRequest);
  if (isOver && requeueTestRequest(apTestRequest)) {
    finish(*apTestRequest);
  } else {
    keepPolling(*apTestRequest);
  }
}

// Whatever of the family a package throws at a poll costs it that step alone: the request stays
// pending, and nobody who waits for its verdict waits for ever.
// The messages may have code of their package, so the pin lasts until they were copied.
void MonitorThread::collectEvents(TestRequest& arTestRequest) {
  std::optional<DiagnosticsPin> diagnostics;
  std::unique_ptr<EventVector> pEventVector;
  try {
    if (diagnostics.emplace(arTestRequest)) {
      pEventVector.reset((*diagnostics)->getDiagnosticEvents());
    }
  } catch (DiagCtrlBaseException& failure) {
    traceFailure("MonitorThread::getEventsResults", failure);
  }
  if (pEventVector != nullptr) {
    mrEventManager.pushEventInAllEventQueue(*pEventVector);
  }
}

Diag::DiagnosticStatus MonitorThread::readStatus(TestRequest& arTestRequest) {
  try {
    if (const DiagnosticsPin diagnostics(arTestRequest); diagnostics) {
      return diagnostics->getDiagnosticStatus();
    }
  } catch (DiagCtrlBaseException& failure) {
    traceFailure("MonitorThread::getEventsResults", failure);
  }
  return {};
}

void MonitorThread::collectResults(TestRequest& arTestRequest) {
  try {
    if (!arTestRequest.ifIDiagnosticsDeleted()) {
      getResults(&arTestRequest);
    }
  } catch (DiagCtrlBaseException& failure) {
    traceFailure("MonitorThread::getEventsResults", failure);
  }
}

void MonitorThread::getResults(TestRequest* apTestRequest) {
  const TraceScope trace(mpDiagTracer, "MonitorThread::getResults");
  std::optional<DiagnosticsPin> diagnostics;
  std::unique_ptr<ResultVector> pResultVector;
  try {
    if (diagnostics.emplace(*apTestRequest)) {
      pResultVector.reset((*diagnostics)->getDiagnosticResults());
    }
  } catch (const DiagCtrlMutexException&) {
    return;
  }
  if (pResultVector != nullptr) {
    mrEventManager.pushResultInAllResultQueue(*pResultVector);
  }
}

void MonitorThread::finish(TestRequest& arTestRequest) {
  try {
    arTestRequest.releaseIDiagnostic(mrDiagPkgIntf, kTimeOut);
  } catch (DiagCtrlMutexException& failure) {
    traceFailure("MonitorThread::getEventsResults", failure);
  } catch (DiagCtrlReleaseLibraryFailed& failure) {
    traceFailure("MonitorThread::getEventsResults", failure);
  }
}

bool MonitorThread::requeueTestRequest(TestRequest* apTestRequest) {
  const TraceScope trace(mpDiagTracer, "MonitorThread::requeueTestRequest");
  const queueStatus eQueueStatus = judge(*apTestRequest);
  trace.infoValue("requeueTestRequest()::eQueueStatus", eQueueStatus);
  switch (eQueueStatus) {
    case WAIT:
      return sendBack(*apTestRequest);
    case LOCAL:
      keepPolling(*apTestRequest);
      return false;
    case DROP:
      return drop(*apTestRequest);
    case EXEC:
      break;
  }
  return false;
}

MonitorThread::queueStatus MonitorThread::judge(TestRequest& arTestRequest) {
  const bool bStressMode = arTestRequest.getDiagnosticSettings()->getStressMode() != 0;
  const bool bToBeDropped = arTestRequest.getToBeDroppedFlag();
  const bool bAbort = arTestRequest.getAbortStatus();
  const bool bHalted = arTestRequest.getHaltedStatus();
  if (bHalted || bAbort) {
    return bToBeDropped ? DROP : LOCAL;
  }
  return !bStressMode && mayRunAgain(arTestRequest) ? WAIT : DROP;
}

// The clock runs from the queueing on, so it covers the time spent waiting.
bool MonitorThread::mayRunAgain(TestRequest& arTestRequest) {
  Diag::DiagnosticSettings& settings = arTestRequest.settings();
  const unsigned long elapsed =
      static_cast<unsigned long>(time(nullptr)) - arTestRequest.getTestRequestStartTime();
  return settings.getPassCount() < settings.getRequestedPassCount() &&
         elapsed < settings.getRunTime();
}

bool MonitorThread::sendBack(TestRequest& arTestRequest) {
  const unsigned long id = arTestRequest.id();
  try {
    switch (arTestRequest.beginSendBack()) {
      case TestRequest::SendBack::superseded:
        return false;
      case TestRequest::SendBack::reclaimWorker:
        mrExecutionManagerThread.removeExecThreadObject(id);
        break;
      case TestRequest::SendBack::noWorker:
        break;
    }
    // The pass thread may have been halted or aborted on its last steps.
    if (arTestRequest.isAbortedOrHalted()) {
      return drop(arTestRequest);
    }
    Diag::DiagnosticSettings& settings = arTestRequest.settings();
    settings.setPassCount(settings.getPassCount() + 1);
    mrTestRequestManager.pushBackTestRequestQueue(TestRequestManager::WAIT, &arTestRequest);
    conclude(arTestRequest);
  } catch (DiagCtrlMutexException& failure) {
    traceFailure("MonitorThread::requeueTestRequest", failure);
    mpDiagUtil->pushDiagCtrlEvent(DiagCtrlEvent::DROP_REQUEST_ON_COMPLETION_ERROR,
                                  Diag::DiagnosticEvent::ERROR_EVENT, eventId(arTestRequest));
    mrExecutionManagerThread.removeExecThreadObject(id);
    return true;
  }
  try {
    mrWaitCondVar.signal();
    if (arTestRequest.getAbortStatus()) {
      mrExecCondVar.signal();  // aborted just before the push, as monitored: to be finished here
    }
  } catch (DiagCtrlMutexException& failure) {
    traceFailure("MonitorThread::requeueTestRequest", failure);
  }
  return false;
}

// @return false if the verdict came too late: the request runs its next pass.
bool MonitorThread::drop(TestRequest& arTestRequest) {
  const unsigned long id = arTestRequest.id();
  switch (arTestRequest.complete()) {
    case TestRequest::Completion::superseded:
      return false;
    case TestRequest::Completion::completed:
      mpDiagUtil->pushDiagCtrlEvent(DiagCtrlEvent::DROP_REQUEST_ON_COMPLETION,
                                    Diag::DiagnosticEvent::INFORMATION_EVENT,
                                    eventId(arTestRequest));
      break;
    case TestRequest::Completion::aborted:
      mpDiagUtil->pushDiagCtrlEvent(DiagCtrlEvent::TEST_REQUEST_ABORTED,
                                    Diag::DiagnosticEvent::WARNING_EVENT, eventId(arTestRequest));
      break;
  }
  try {
    mrTestRequestManager.removeFromTestReqIdList(id);
  } catch (DiagCtrlObjectNotFound& failure) {
    // The ids were cleared meanwhile; the request itself is still there.
    traceFailure("MonitorThread::requeueTestRequest", failure);
  }
  // The next request may start only when this one's pass thread is gone.
  mrExecutionManagerThread.removeExecThreadObject(id);
  conclude(arTestRequest);
  return true;
}

// Frees a dispatcher that waits for the verdict on just this pass.
void MonitorThread::conclude(TestRequest& arTestRequest) {
  mrTestRequestManager.concludeTestExec(arTestRequest.id(), arTestRequest.reclaimedPass());
}

void MonitorThread::keepPolling(TestRequest& arTestRequest) {
  int& entries = mLocalEntries[arTestRequest.id()];
  if (entries < kMostLocalEntries) {
    ++entries;
    arTestRequest.addReference();
    mResultPendingTRQueue.push_back(&arTestRequest);
  }
}

RequestReference MonitorThread::takeLocalEntry() {
  RequestReference entry = RequestReference::adopt(mResultPendingTRQueue.front());
  mResultPendingTRQueue.pop_front();
  if (const auto entries = mLocalEntries.find(entry->id()); --entries->second == 0) {
    mLocalEntries.erase(entries);
  }
  return entry;
}

void MonitorThread::releaseResourceLock(TestRequest* apTestRequest) {
  const TraceScope trace(mpDiagTracer, "MonitorThread::releaseResourceLock");
  try {
    ResourceLockManager::getInstance()->releaseResourceLock(
        apTestRequest->getDiagDeviceRef().getIDevice()->getResourceTag());
  } catch (DiagCtrlMutexException& failure) {
    traceFailure("MonitorThread::releaseResourceLock", failure);
  } catch (DiagCtrlKeyNotExistException& failure) {
    traceFailure("MonitorThread::releaseResourceLock", failure);
  }
}

void MonitorThread::clearTestRequestQueue() {
  const TraceScope trace(mpDiagTracer, "MonitorThread::clearTestRequestQueue");
  for (TestRequest* request : mResultPendingTRQueue) {
    request->dropReference();
  }
  mResultPendingTRQueue.clear();
  mLocalEntries.clear();
}

void MonitorThread::traceFailure(const char* apcMethod, DiagCtrlBaseException& arFailure) {
  const std::string line = std::string(apcMethod) + " - Mutex Exception : " + arFailure.dump();
  mpDiagTracer->traceValue(DiagCtrlConstants::DIAG_ERROR, __FILE__, __LINE__, line.c_str());
}

}  // namespace TarvexDiags::DiagCtrl
