#include "DiagCtrl/ExecutionManagerThread.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <optional>
#include <set>
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
#include "DiagCtrl/internal/LockScope.h"
#include "DiagCtrl/internal/Raise.h"
#include "DiagCtrl/internal/RequestReference.h"
#include "DiagCtrl/internal/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr auto kMinorLock = DiagCtrlBaseException::LockNotAcquired;
constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr long kWaitMs = 2000;
constexpr unsigned long kWorkerStackBytes = 2'000'000;
constexpr unsigned short kWorkerPriority = 98;
constexpr int kMostEntriesOfRefused = 2;

std::string tagOf(TestRequest& arTestRequest) {
  return arTestRequest.getDiagDeviceRef().getIDevice()->getResourceTag();
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
  int queueSize = 0;
  unsigned long ticket = 0;  ///< of the variable that refused requests wait on, from the start
  bool isStalled = false;    ///< every request was refused in the last pass as well
  bool hasWaited = false;
  std::vector<RequestReference> batch;
  std::vector<RequestReference> refused;
  std::set<const TestRequest*> refusedRequests;
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
  pass.queueSize = mrTestReqMgr.getTestReqProcessQueueSize();
  pass.ticket = mpTReqExecMgrThCondVar.load()->ticket();
  // Held while requests are in this thread's hands: the monitor must not find all queues empty.
  const LockScope changeLock(mrTestReqMgr.mmtxTestReqChangeLock, 0, kMinorLock,
                             "ExecutionManagerThread::run()");
  dispatchBatch(pass);
  requeueRefused(pass.refused);
  mRefusedLastPass = std::move(pass.refusedRequests);
  mulLastPassTicket = pass.ticket;
}

void ExecutionManagerThread::dispatchBatch(Pass& arPass) {
  for (int i = 0; i < arPass.queueSize; ++i) {
    if (RequestReference request = mrTestReqMgr.popTestRequestQueue(TestRequestManager::PROCESS)) {
      arPass.batch.push_back(std::move(request));
    }
  }
  arPass.isStalled = std::all_of(
      arPass.batch.begin(), arPass.batch.end(),
      [this](const RequestReference& arRequest) { return wasRefusedLastPass(arRequest.get()); });
  for (RequestReference& request : arPass.batch) {
    if (!getState()) {
      arPass.refused.push_back(std::move(request));
      continue;
    }
    Outcome outcome = Outcome::refused;
    try {
      outcome = dispatch(*request, arPass);
    } catch (DiagCtrlBaseException& failure) {
      traceFailure(failure);  // the request keeps its place and is tried again
    }
    if (outcome == Outcome::refused) {
      arPass.refusedRequests.insert(request.get());
      arPass.refused.push_back(std::move(request));
    }
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
  if (!getState()) {
    return Outcome::refused;  // nothing is started any more
  }
  try {
    if (arTestRequest.getAbortStatus()) {
      dropAborted(arTestRequest);
      return Outcome::left;
    }
    if (!takeLocks(arTestRequest)) {
      return Outcome::refused;
    }
  } catch (const DiagCtrlKeyNotExistException&) {
    mpResLockMgr->setSystemLockFlag(false);
    return Outcome::refused;
  } catch (const DiagCtrlMutexException&) {
    mpResLockMgr->setSystemLockFlag(false);
    return Outcome::refused;
  }
  const TestRequest::Claim claim = arTestRequest.claimForDispatch();
  if (claim == TestRequest::Claim::granted) {
    mrTestReqMgr.workerClaimed();
    launch(arTestRequest);
    return Outcome::started;
  }
  giveLocksBack(arTestRequest);
  if (claim == TestRequest::Claim::aborted) {
    dropAborted(arTestRequest);
  }
  return Outcome::left;
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
  if (arPass.isStalled && !arPass.hasWaited) {
    mpTReqExecMgrThCondVar.load()->timedWaitSince(kWaitMs, mulLastPassTicket);
    arPass.hasWaited = true;
  }
}

bool ExecutionManagerThread::wasRefusedLastPass(const TestRequest* apTestRequest) const {
  return mRefusedLastPass.contains(apTestRequest);
}

void ExecutionManagerThread::dropAborted(TestRequest& arTestRequest) {
  mpDiagUtil->pushDiagCtrlEvent(DiagCtrlEvent::TEST_REQUEST_ABORTED,
                                Diag::DiagnosticEvent::WARNING_EVENT,
                                static_cast<unsigned int>(arTestRequest.getTestRequestId()));
  arTestRequest.setToBeDroppedFlag(true);
}

bool ExecutionManagerThread::takeLocks(TestRequest& arTestRequest) {
  if (arTestRequest.getDiagPackageRef().checkSystemLock()) {
    return takeSystemLock(arTestRequest);
  }
  if (mpResLockMgr->getResourceLock(tagOf(arTestRequest))) {
    return true;
  }
  mpResLockMgr->setSystemLockFlag(false);
  return false;
}

// The machine belongs to one test only when no other is left, the last statement of its worker
// included.
bool ExecutionManagerThread::takeSystemLock(TestRequest& arTestRequest) {
  if (mrTestReqMgr.getTestReqExecQueueSize() > 0 || mrTestReqMgr.isAnyWorkerAlive()) {
    requeueTest(&arTestRequest);  // and once more at the end of the pass: it then stands twice
    pushError(DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST, arTestRequest);
    return false;
  }
  mpResLockMgr->setSystemLockFlag(true);
  return true;
}

void ExecutionManagerThread::giveLocksBack(TestRequest& arTestRequest) {
  if (arTestRequest.getDiagPackageRef().checkSystemLock()) {
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
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::launch");
  auto* thread = new ExecutionThread(mrTestReqMgr, arTestRequest, mrGlobalSetting, *mpDiagCtrl,
                                     mrDiagTracer, *mpDiagUtil);
  GlobalSettings::runMode mode = GlobalSettings::PARALLEL;
  bool passedOn = false;
  {
    // One hold, so that the monitor never finds a worker that was not started.
    std::optional<LockScope> mapLock;
    holdWorkerMap(mapLock, arTestRequest.getTestRequestId());
    mExecutionThreadMap[arTestRequest.getTestRequestId()] = thread;
    mode = startThread(arTestRequest, thread);
    handlingFailures(
        [&] {
          passToMonitor(arTestRequest);
          passedOn = true;
        },
        [&] { abandon(arTestRequest); });
  }
  if (!passedOn) {
    return;
  }
  mpTReqExecQueueCondVar.load()->signal();
  if (mode == GlobalSettings::SERIAL) {
    waitForVerdict();
  }
}

void ExecutionManagerThread::holdWorkerMap(std::optional<LockScope>& arHold,
                                           unsigned long aulTestRequestId) {
  for (const long timeOut : {0L, -1L}) {
    try {
      arHold.emplace(mmtxExecThreadMapCtrlLock, timeOut);
      return;
    } catch (const DiagCtrlMutexException&) {
      // Once more without a limit, then without the lock.
    }
  }
  mrDiagTracer.traceValue(
      DiagCtrlConstants::DIAG_ERROR, __FILE__, __LINE__,
      "ExecutionManagerThread::run - Not able to insert thread object in map for TR id: ",
      aulTestRequestId);
}

GlobalSettings::runMode ExecutionManagerThread::startThread(TestRequest& arTestRequest,
                                                            ExecutionThread* apThread) {
  apThread->initialize(DiagThread::sched_Other, kWorkerStackBytes, kWorkerPriority);
  GlobalSettings::runMode mode = GlobalSettings::PARALLEL;
  handlingFailures(
      [&] {
        mode = mrGlobalSetting.getRunMode();
        if (mode == GlobalSettings::SERIAL) {
          mrTestReqMgr.awaitTestExecCompleted(arTestRequest.getTestRequestId());
        }
        apThread->start(nullptr);
      },
      [&] { handleFailedStart(arTestRequest, apThread); });
  return mode;
}

// The request goes on to the monitor all the same, which finds it aborted and drops it.
void ExecutionManagerThread::handleFailedStart(TestRequest& arTestRequest,
                                               ExecutionThread* apThread) {
  giveLocksBack(arTestRequest);
  mpResLockMgr->setSystemLockFlag(false);
  arTestRequest.setAbortStatus(true, kTimeOut);
  arTestRequest.setToBeDroppedFlag(true);
  mExecutionThreadMap.erase(arTestRequest.getTestRequestId());
  delete apThread;
  mrTestReqMgr.workerEnded();
  arTestRequest.landFromFlight();
  mrTestReqMgr.setTestExecCompleted(true);
  pushError(DiagCtrlEvent::UNABLE_TO_INIT_EXE_THREAD, arTestRequest);
}

void ExecutionManagerThread::passToMonitor(TestRequest& arTestRequest) {
  arTestRequest.setExecutedOnce(true);
  mrTestReqMgr.pushBackTestRequestQueue(TestRequestManager::EXECUTION, &arTestRequest);
}

void ExecutionManagerThread::abandon(TestRequest& arTestRequest) {
  mpResLockMgr->setSystemLockFlag(false);
  arTestRequest.setAbortStatus(true, kTimeOut);
  arTestRequest.setToBeDroppedFlag(true);
  mrTestReqMgr.setTestExecCompleted(true);
  pushError(DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED, arTestRequest);
}

// Nothing is started any more once the thread was told to stop.
void ExecutionManagerThread::waitForVerdict() {
  DiagCtrlConditionVar& variable = *mpTReqExecMgrThCondVar.load();
  for (unsigned long ticket = variable.ticket(); !mrTestReqMgr.getTestExecCompleted() && getState();
       ticket = variable.ticket()) {
    variable.timedWaitSince(kWaitMs, ticket);
  }
}

// Backwards, with pushes to the front, which keeps the order of the queue.
void ExecutionManagerThread::requeueRefused(std::vector<RequestReference>& arRefused) {
  for (auto request = arRefused.rbegin(); request != arRefused.rend(); ++request) {
    TestRequest& refused = **request;
    if (refused.isStaleEntry()) {
      continue;
    }
    if (refused.getAbortStatus()) {
      dropAborted(refused);  // since it was looked at
    } else {
      requeueTest(&refused);
    }
  }
}

void ExecutionManagerThread::requeueTest(TestRequest* apTestRequest) {
  const TraceScope trace(&mrDiagTracer, "ExecutionManagerThread::requeueTest");
  try {
    // Only a request that wants the whole machine can stand in the queues more than once.
    if (apTestRequest->getDiagPackageRef().checkSystemLock() &&
        mrTestReqMgr.countQueuedEntries(apTestRequest) >= kMostEntriesOfRefused) {
      return;
    }
    if (apTestRequest->getExecutedOnce()) {
      mrTestReqMgr.pushBackTestRequestQueue(TestRequestManager::WAIT, apTestRequest);
    } else {
      mrTestReqMgr.pushFrontTestRequestQueue(TestRequestManager::PROCESS, apTestRequest);
    }
  } catch (const DiagCtrlMutexException&) {
    apTestRequest->setAbortStatus(true, kTimeOut);
    pushError(DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED, *apTestRequest);
  }
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
      // The walk goes on with the next worker.
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
  DiagUtil::getInstance()->pushDiagCtrlEvent(
      static_cast<DiagCtrlEvent::eventCode>(auiEventCode), Diag::DiagnosticEvent::ERROR_EVENT,
      static_cast<unsigned int>(arTestRequest.getTestRequestId()));
}

}  // namespace TarvexDiags::DiagCtrl
