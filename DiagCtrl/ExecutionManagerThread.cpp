#include "DiagCtrl/ExecutionManagerThread.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlUnsupportedOperation.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/ExecutionThread.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr auto kMinorLock = DiagCtrlBaseException::LockNotAcquired;
constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr long kWaitMs = 2000;
constexpr unsigned long kWorkerStackBytes = 2'000'000;
constexpr unsigned short kWorkerPriority = 98;
constexpr int kMostEntriesOfRefused = 2;
constexpr std::chrono::milliseconds kBetweenTwoRefusals{kWaitMs};

std::string tagOf(TestRequest& arTestRequest) {
  return arTestRequest.device().getIDevice()->getResourceTag();
}

/// Runs an action; both families of exceptions lead to the handler.
template <class Action, class Handler>
void handlingFailures(Action aAction, Handler aHandler) {
  try {
    aAction();
  } catch (const std::exception&) {
    aHandler();
  } catch (const DiagCtrlBaseException&) {
    aHandler();
  }
}

}  // namespace

/// What one pass over the PROCESS queue carries along.
struct ExecutionManagerThread::Pass {
  struct Returning {
    RequestReference request;
    Outcome outcome;
  };

  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
  std::vector<RequestReference> batch;
  std::vector<Returning> returning;
  /// Everything was refused in the last pass as well, and this one has not waited yet.
  bool isStalled = false;
};

ExecutionManagerThread::ExecutionManagerThread(TestRequestManager& arTestRQMgr,
                                               GlobalSettings& arGlobalSetting,
                                               DiagTracer& arDiagTracer)
    : mrTestReqMgr(arTestRQMgr),
      mpDiagCtrl(nullptr),
      mpDiagUtil(nullptr),
      mrDiagTracer(arDiagTracer),
      mrGlobalSetting(arGlobalSetting),
      mpResLockMgr(nullptr),
      mmtxDiagCtrlLock(kTimeOut),
      mbTRBatchCompletedFlag(true),
      mmtxTRBatchDiagCtrlLock(kTimeOut),
      mmtxExecThreadMapCtrlLock(kTimeOut) {}

ExecutionManagerThread::~ExecutionManagerThread() {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::~ExecutionManagerThread");
  clearExecThreadObjectMap();
}

void ExecutionManagerThread::stop() {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::stop");
  try {
    DiagThread::stop();
    for (DiagCtrlConditionVar* variable : {mpTReqWaitQueueCondVar.load(), &mBatchConditionVar,
                                           mpTReqExecMgrThCondVar.load(), &mConditionVar}) {
      if (variable != nullptr) {
        variable->signal();
      }
    }
  } catch (const DiagCtrlMutexException&) {
    raise<DiagCtrlMutexException>(kMinorLock, "ExecutionManagerThread::stop()");
  }
}

void ExecutionManagerThread::fetchCompanions() {
  mpDiagCtrl = DiagnosticController::getInstance();
  mpDiagUtil = DiagUtil::getInstance();
  mpResLockMgr = ResourceLockManager::getInstance();
  mpTReqWaitQueueCondVar = &mrTestReqMgr.getCondVarTRWaitQueue();
  mpTReqExecQueueCondVar = &mrTestReqMgr.getCondVarTRExecQueue();
  mpTReqExecMgrThCondVar = &mrTestReqMgr.getCondVarExecMgrThread();
  mulLastPassTicket = mpTReqExecMgrThCondVar.load()->ticket();
}

void ExecutionManagerThread::run(void* /*apVoid*/) {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::run");
  const QuietScope quiet;
  fetchCompanions();
  // Before each look at the state, so that no signal is missed between the look and the wait.
  unsigned long waitTicket = mpTReqWaitQueueCondVar.load()->ticket();
  while (getState()) {
    try {
      runPass();
      if (!handleWaitQueue()) {
        mpTReqWaitQueueCondVar.load()->timedWaitSince(kWaitMs, waitTicket);
        updateTimeStamp();
      }
    } catch (DiagCtrlBaseException& failure) {
      traceFailure(failure);
    }
    waitTicket = mpTReqWaitQueueCondVar.load()->ticket();
  }
}

void ExecutionManagerThread::traceFailure(DiagCtrlBaseException& arFailure) {
  const std::string line = "ExecutionManagerThread::run - Mutex Exception : " + arFailure.dump();
  mrDiagTracer.traceValue(DiagCtrlConstants::DIAG_ERROR, __FILE__, __LINE__, line.c_str());
}

void ExecutionManagerThread::runPass() {
  Pass pass;
  const int queueSize = mrTestReqMgr.getTestReqProcessQueueSize();
  const unsigned long ticket = mpTReqExecMgrThCondVar.load()->ticket();
  // Held while requests are in this thread's hands: the monitor must not find all queues empty.
  const LockScope changeLock(mrTestReqMgr.mmtxTestReqChangeLock, 0, kMinorLock,
                             "ExecutionManagerThread::run()");
  takeBatch(pass, queueSize);
  for (RequestReference& request : pass.batch) {
    const Outcome outcome = tryToDispatch(*request, pass);
    request->refusal().inLastPass = outcome != Outcome::left;
    if (outcome != Outcome::left) {
      pass.returning.push_back({std::move(request), outcome});
    }
  }
  putBack(pass);
  mulLastPassTicket = ticket;
}

void ExecutionManagerThread::takeBatch(Pass& arPass, int aiQueueSize) {
  for (int i = 0; i < aiQueueSize; ++i) {
    if (RequestReference request = mrTestReqMgr.popTestRequestQueue(TestRequestManager::PROCESS)) {
      arPass.batch.push_back(std::move(request));
    }
  }
  arPass.isStalled = std::all_of(
      arPass.batch.begin(), arPass.batch.end(),
      [](const RequestReference& arRequest) { return arRequest->refusal().inLastPass; });
}

// A request whose dispatch fails keeps its place and is tried again, as are those that are left
// when the thread is told to stop.
ExecutionManagerThread::Outcome ExecutionManagerThread::tryToDispatch(TestRequest& arTestRequest,
                                                                      Pass& arPass) {
  try {
    return isWanted() ? dispatch(arTestRequest, arPass) : Outcome::refused;
  } catch (DiagCtrlBaseException& failure) {
    traceFailure(failure);
    return Outcome::refused;
  }
}

ExecutionManagerThread::Outcome ExecutionManagerThread::dispatch(TestRequest& arTestRequest,
                                                                 Pass& arPass) {
  if (arTestRequest.isStaleEntry()) {
    return Outcome::left;
  }
  try {
    waitForSystemLock();
    waitIfStalled(arPass);
  } catch (const DiagCtrlMutexException&) {
    return Outcome::refused;
  }
  if (!isWanted()) {
    return Outcome::refused;  // nothing is started any more
  }
  try {
    if (arTestRequest.getAbortStatus()) {
      dropAborted(arTestRequest);
      return Outcome::left;
    }
    if (const std::optional<Outcome> refusal = takeLocks(arTestRequest, arPass)) {
      return *refusal;
    }
  } catch (const DiagCtrlKeyNotExistException&) {
    mpResLockMgr->setSystemLockFlag(false);
    return Outcome::refused;
  } catch (const DiagCtrlMutexException&) {
    mpResLockMgr->setSystemLockFlag(false);
    return Outcome::refused;
  }
  claimAndLaunch(arTestRequest);
  return Outcome::left;
}

void ExecutionManagerThread::claimAndLaunch(TestRequest& arTestRequest) {
  const TestRequest::Claim claim = arTestRequest.claimForDispatch();
  if (claim == TestRequest::Claim::granted) {
    mrTestReqMgr.workerClaimed();
    launch(arTestRequest);
    return;
  }
  giveLocksBack(arTestRequest);
  if (claim == TestRequest::Claim::aborted) {
    dropAborted(arTestRequest);
  }
}

void ExecutionManagerThread::waitForSystemLock() {
  DiagCtrlConditionVar& variable = *mpTReqExecMgrThCondVar.load();
  for (unsigned long ticket = variable.ticket(); mpResLockMgr->getSystemLockFlag();
       ticket = variable.ticket()) {
    variable.timedWaitSince(kWaitMs, ticket);
  }
}

// Slows down the retries of refused requests: all of a pass share one wait, which ends early as
// soon as anything was given back, judged or queued since they were refused. A request that was not
// refused never waits for those that were.
void ExecutionManagerThread::waitIfStalled(Pass& arPass) {
  if (std::exchange(arPass.isStalled, false)) {
    mpTReqExecMgrThCondVar.load()->timedWaitSince(kWaitMs, mulLastPassTicket);
  }
}

void ExecutionManagerThread::dropAborted(TestRequest& arTestRequest) {
  mpDiagUtil->pushDiagCtrlEvent(DiagCtrlEvent::TEST_REQUEST_ABORTED,
                                Diag::DiagnosticEvent::WARNING_EVENT,
                                static_cast<unsigned int>(arTestRequest.id()));
  arTestRequest.setToBeDroppedFlag(true);
}

// Nothing if the locks were taken.
std::optional<ExecutionManagerThread::Outcome> ExecutionManagerThread::takeLocks(
    TestRequest& arTestRequest, Pass& arPass) {
  if (arTestRequest.package().checkSystemLock()) {
    // The machine belongs to one test only when no other is left, the last statement of its thread
    // included.
    if (mrTestReqMgr.getTestReqExecQueueSize() > 0 || mrTestReqMgr.isAnyWorkerAlive()) {
      return refuseSystemLock(arTestRequest, arPass);
    }
    mpResLockMgr->setSystemLockFlag(true);
    return std::nullopt;
  }
  if (mpResLockMgr->getResourceLock(tagOf(arTestRequest))) {
    return std::nullopt;
  }
  mpResLockMgr->setSystemLockFlag(false);
  return Outcome::refused;
}

// Beside a stream of short requests this is looked at hundreds of times a second: clients hear of
// it at once and then no more often than the dispatcher would look by itself. A pass tells for each
// of the request's entries or for none, so the time of its begin decides: were one entry told of
// and the other not, there would be three of them in the end.
ExecutionManagerThread::Outcome ExecutionManagerThread::refuseSystemLock(TestRequest& arTestRequest,
                                                                         Pass& arPass) {
  auto& told = arTestRequest.refusal().told;
  const bool isToldBefore = told && *told < arPass.begin;
  if (isToldBefore && arPass.begin - *told < kBetweenTwoRefusals) {
    return Outcome::deferred;
  }
  told = std::chrono::steady_clock::now();
  requeueTest(&arTestRequest);  // and once more at the end of the pass: it then stands twice
  pushError(DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST, arTestRequest);
  return Outcome::refused;
}

void ExecutionManagerThread::giveLocksBack(TestRequest& arTestRequest) {
  if (arTestRequest.package().takesMachine()) {
    mpResLockMgr->setSystemLockFlag(false);
    return;
  }
  try {
    mpResLockMgr->releaseResourceLock(tagOf(arTestRequest));
  } catch (const DiagCtrlKeyNotExistException&) {
    // The tag was removed meanwhile, and its hold with it.
  }
}

void ExecutionManagerThread::launch(TestRequest& arTestRequest) {
  auto* worker = new ExecutionThread(mrTestReqMgr, arTestRequest, mrGlobalSetting, *mpDiagCtrl,
                                     mrDiagTracer, *mpDiagUtil);
  GlobalSettings::runMode mode = GlobalSettings::PARALLEL;
  bool isPassedOn = false;
  try {
    // One hold, so that the monitor never finds a thread that was not started.
    const LockScope mapLock(mmtxExecThreadMapCtrlLock, -1);
    mode = startWorker(arTestRequest, worker);
    isPassedOn = passToMonitor(arTestRequest);
  } catch (const DiagCtrlMutexException&) {
    mrDiagTracer.traceValue(
        DiagCtrlConstants::DIAG_ERROR, __FILE__, __LINE__,
        "ExecutionManagerThread::run - Not able to insert thread object in map for TR id: ",
        arTestRequest.id());
    giveUpStart(arTestRequest, worker);
    isPassedOn = passToMonitor(arTestRequest);
  }
  if (!isPassedOn) {
    return;
  }
  mpTReqExecQueueCondVar.load()->signal();
  if (mode == GlobalSettings::SERIAL) {
    waitForVerdict();
  }
}

GlobalSettings::runMode ExecutionManagerThread::startWorker(TestRequest& arTestRequest,
                                                            ExecutionThread* apWorker) {
  const unsigned long id = arTestRequest.id();
  mExecutionThreadMap[id] = apWorker;
  apWorker->initialize(DiagThread::sched_Other, kWorkerStackBytes, kWorkerPriority);
  GlobalSettings::runMode mode = GlobalSettings::PARALLEL;
  bool isStarted = false;
  handlingFailures(
      [&] {
        mode = mrGlobalSetting.getRunMode();
        if (mode == GlobalSettings::SERIAL) {
          mrTestReqMgr.awaitTestExecCompleted(id, arTestRequest.claimedPass());
        }
        apWorker->start(nullptr);
        isStarted = true;
      },
      [] {});
  if (!isStarted) {
    mExecutionThreadMap.erase(id);
    giveUpStart(arTestRequest, apWorker);
  }
  return mode;
}

// The request goes on to the monitor all the same, which finds it aborted and drops it.
void ExecutionManagerThread::giveUpStart(TestRequest& arTestRequest, ExecutionThread* apWorker) {
  giveLocksBack(arTestRequest);
  mpResLockMgr->setSystemLockFlag(false);
  arTestRequest.setAbortStatus(true, kTimeOut);
  arTestRequest.setToBeDroppedFlag(true);
  delete apWorker;
  mrTestReqMgr.workerEnded();
  arTestRequest.landFromFlight();
  mrTestReqMgr.setTestExecCompleted(true);
  pushError(DiagCtrlEvent::UNABLE_TO_INIT_EXE_THREAD, arTestRequest);
}

// @return false if the request could not be handed over, and is lost to the monitor.
bool ExecutionManagerThread::passToMonitor(TestRequest& arTestRequest) {
  bool isPassedOn = false;
  handlingFailures(
      [&] {
        arTestRequest.setExecutedOnce(true);
        mrTestReqMgr.pushBackTestRequestQueue(TestRequestManager::EXECUTION, &arTestRequest);
        isPassedOn = true;
      },
      [&] {
        mpResLockMgr->setSystemLockFlag(false);
        arTestRequest.setAbortStatus(true, kTimeOut);
        arTestRequest.setToBeDroppedFlag(true);
        mrTestReqMgr.setTestExecCompleted(true);
        pushError(DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED, arTestRequest);
      });
  return isPassedOn;
}

// Nothing is started any more once the thread was told to stop.
void ExecutionManagerThread::waitForVerdict() {
  DiagCtrlConditionVar& variable = *mpTReqExecMgrThCondVar.load();
  for (unsigned long ticket = variable.ticket(); !mrTestReqMgr.getTestExecCompleted() && isWanted();
       ticket = variable.ticket()) {
    variable.timedWaitSince(kWaitMs, ticket);
  }
}

// A request that cannot be put back has left the queues.
template <class Push>
void ExecutionManagerThread::orAbort(TestRequest& arTestRequest, Push aPush) {
  try {
    aPush();
  } catch (const DiagCtrlMutexException&) {
    arTestRequest.setAbortStatus(true, kTimeOut);
    pushError(DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED, arTestRequest);
  }
}

// Backwards, with pushes to the front, which keeps the order of the queue.
void ExecutionManagerThread::putBack(Pass& arPass) {
  for (auto entry = arPass.returning.rbegin(); entry != arPass.returning.rend(); ++entry) {
    TestRequest& request = *entry->request;
    if (request.isStaleEntry()) {
      continue;
    }
    if (request.getAbortStatus()) {
      dropAborted(request);  // since it was looked at
    } else if (entry->outcome == Outcome::deferred) {
      orAbort(request, [&] {
        mrTestReqMgr.pushFrontTestRequestQueue(TestRequestManager::PROCESS, &request);
      });
    } else {
      requeueTest(&request);
    }
  }
}

void ExecutionManagerThread::requeueTest(TestRequest* apTestRequest) {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::requeueTest");
  orAbort(*apTestRequest, [&] {
    // Only a request that wants the whole machine can stand in the queues more than once.
    if (apTestRequest->package().takesMachine() &&
        mrTestReqMgr.countQueuedEntries(apTestRequest) >= kMostEntriesOfRefused) {
      return;
    }
    if (apTestRequest->getExecutedOnce()) {
      mrTestReqMgr.pushBackTestRequestQueue(TestRequestManager::WAIT, apTestRequest);
    } else {
      mrTestReqMgr.pushFrontTestRequestQueue(TestRequestManager::PROCESS, apTestRequest);
    }
  });
}

bool ExecutionManagerThread::handleWaitQueue() {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::handleWaitQueue");
  bool bNewTestReq = false;
  try {
    const LockScope changeLock(mrTestReqMgr.mmtxTestReqChangeLock, 0);
    while (RequestReference request = mrTestReqMgr.popTestRequestQueue(TestRequestManager::WAIT)) {
      bNewTestReq = true;
      try {
        mrTestReqMgr.pushBackTestRequestQueue(TestRequestManager::PROCESS, request.get());
      } catch (const DiagCtrlMutexException&) {
        handlingFailures(
            [&] { mrTestReqMgr.pushBackTestRequestQueue(TestRequestManager::WAIT, request.get()); },
            [&] { pushError(DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST, *request); });
      }
    }
  } catch (const DiagCtrlMutexException&) {
    // Ends the walk with what has been moved so far.
  }
  return bNewTestReq;
}

void ExecutionManagerThread::removeExecThreadObject(unsigned long aulTestRequestId) {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::removeExecThreadObject");
  const LockScope mapLock(mmtxExecThreadMapCtrlLock, 0, kMinorLock,
                          "ExecutionManagerThread::removeExecThreadObject()");
  const auto entry = mExecutionThreadMap.find(aulTestRequestId);
  if (entry == mExecutionThreadMap.end()) {
    return;
  }
  ExecutionThread* thread = entry->second;
  mExecutionThreadMap.erase(entry);
  const auto traceJoinFailure = [&](DiagCtrlBaseException& arFailure) {
    trace.error("ExecutionManagerThread::removeExecThreadObject - Join Exception : " +
                arFailure.dump());
  };
  try {
    thread->join();
    thread->getTestRequest().landFromFlight();
    delete thread;
  } catch (DiagCtrlMutexException& failure) {
    traceJoinFailure(failure);
  } catch (DiagCtrlUnsupportedOperation& failure) {
    traceJoinFailure(failure);
  }
}

void ExecutionManagerThread::clearExecThreadObjectMap() {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::clearExecThreadObjectMap");
  const LockScope mapLock(mmtxExecThreadMapCtrlLock, -1);
  if (static_cast<std::uint16_t>(mExecutionThreadMap.size()) == 0) {
    return;
  }
  for (const auto& [id, thread] : mExecutionThreadMap) {
    try {
      thread->stop();
      thread->join();
      thread->getTestRequest().landFromFlight();
      delete thread;
    } catch (const DiagCtrlMutexException&) {
    } catch (const DiagCtrlUnsupportedOperation&) {
      // The walk goes on with the next thread.
    }
  }
  mExecutionThreadMap.clear();
}

bool ExecutionManagerThread::getTRBatchCompletedFlag() {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::getTRBatchCompletedFlag");
  const LockScope lock(mmtxTRBatchDiagCtrlLock, 0, kMinorLock,
                       "ExecutionManagerThread::getTRBatchCompletedFlag()");
  return mbTRBatchCompletedFlag;
}

void ExecutionManagerThread::setTRBatchCompletedFlag(bool abTRBatchCompleted) {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::setTRBatchCompletedFlag");
  {
    const LockScope lock(mmtxTRBatchDiagCtrlLock, 0, kMinorLock,
                         "ExecutionManagerThread::setTRBatchCompletedFlag()");
    mbTRBatchCompletedFlag = abTRBatchCompleted;
  }
  if (abTRBatchCompleted) {
    mBatchConditionVar.signal();
  }
}

void ExecutionManagerThread::pushError(unsigned int auiEventCode, TestRequest& arTestRequest) {
  DiagUtil::getInstance()->pushDiagCtrlEvent(static_cast<DiagCtrlEvent::eventCode>(auiEventCode),
                                             Diag::DiagnosticEvent::ERROR_EVENT,
                                             static_cast<unsigned int>(arTestRequest.id()));
}

}  // namespace TarvexDiags::DiagCtrl
