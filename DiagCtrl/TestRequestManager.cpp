#include "DiagCtrl/TestRequestManager.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <memory>
#include <vector>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/foundation/GateScope.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr auto kMinorLock = DiagCtrlBaseException::LockNotAcquired;
constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;

int entriesOf(const TestRequestQueue& arQueue, const TestRequest* apTestRequest) {
  return static_cast<int>(std::count(arQueue.begin(), arQueue.end(), apTestRequest));
}

}  // namespace

std::atomic<unsigned long> TestRequestManager::mSulCurrentTestReqIdNumber{
    TestRequestManager::mSConUlstartNumberTestRequestId};

TestRequestManager::TestRequestManager()
    : mmtxTestReqChangeLock(kTimeOut),
      mmtxTestReqWaitLock(kTimeOut),
      mmtxTestReqProcessLock(kTimeOut),
      mmtxTestReqExecLock(kTimeOut),
      mmtxTestReqIdMapLock(kTimeOut),
      mmtxTestReqIdListLock(kTimeOut),
      mpCondVarTRWaitQueue(std::make_unique<DiagCtrlConditionVar>()),
      mpCondVarExecMgrThread(std::make_unique<DiagCtrlConditionVar>()),
      mpCondVarTRExecQueue(std::make_unique<DiagCtrlConditionVar>()),
      mmtxLock(kTimeOut),
      mmtxTestExecCompletedLock(kTimeOut),
      mbTestExecCompleted(false),
      mpDiagTracer(DiagTracer::getInstance()) {}

TestRequestManager::~TestRequestManager() {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::~TestRequestManager");
  deleteRetiredRequests();
  {
    const LockScope lock(mmtxTestReqIdMapLock, 0);
    for (const auto& entry : mTestRequestMap) {
      delete entry.second;
    }
    mTestRequestMap.clear();
  }
}

unsigned long TestRequestManager::queueTestRequest(TestRequest* apTestReqToAdd) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::queueTestRequest");
  constexpr const char* kText = "TestRequestManager::queueTestRequest()";
  unsigned long id = 0;
  {
    const LockScope waitLock(mmtxTestReqWaitLock, 0, kMinorLock, kText);
    const LockScope mapLock(mmtxTestReqIdMapLock, 0, kMinorLock, kText);
    const LockScope listLock(mmtxTestReqIdListLock, 0, kMinorLock, kText);
    // Into all three or, without memory, into none; the last step cannot fail.
    id = mSulCurrentTestReqIdNumber + 1;
    TestRequestIdList listed{id};
    const auto mapped = mTestRequestMap.emplace(id, apTestReqToAdd).first;
    try {
      mTestRequestWaitQueue.push_back(apTestReqToAdd);
    } catch (...) {
      mTestRequestMap.erase(mapped);
      throw;
    }
    mTestRequestIdList.splice(mTestRequestIdList.end(), listed);
    apTestReqToAdd->addReference();
    ++mSulCurrentTestReqIdNumber;
    apTestReqToAdd->setTestRequestId(id);
    apTestReqToAdd->setTestRequestStartTime(static_cast<unsigned long>(time(nullptr)));
    apTestReqToAdd->settings().setTestRequestId(static_cast<Uint>(id));
  }
  mpCondVarTRWaitQueue->signal();
  // The dispatcher may be slowing down the retries of refused requests: the new one need not wait.
  mpCondVarExecMgrThread->nudge();
  return id;
}

int TestRequestManager::getTestReqExecQueueSize() {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::getTestReqExecQueueSize");
  const LockScope lock(mmtxTestReqExecLock, 0, kMinorLock,
                       "TestRequestManager::getTestReqExecQueueSize()");
  return static_cast<int>(mTestRequestExecQueue.size());
}

int TestRequestManager::getTestReqWaitQueueSize() {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::getTestReqWaitQueueSize");
  const LockScope lock(mmtxTestReqWaitLock, 0, kMinorLock,
                       "TestRequestManager::getTestReqWaitQueueSize()");
  return static_cast<int>(mTestRequestWaitQueue.size());
}

int TestRequestManager::getTestReqProcessQueueSize() {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::getTestReqProcessQueueSize");
  return miProcessQueueSize;
}

// Only ties each queue to its lock; the queue is touched by the caller, under that lock.
TestRequestManager::LockedQueue TestRequestManager::queueOf(TestRequestQueueType aeQueueType) {
  switch (aeQueueType) {
    case WAIT:
      return {mmtxTestReqWaitLock, mTestRequestWaitQueue};
    case PROCESS:
      return {mmtxTestReqProcessLock, mTestRequestProcessQueue};
    case EXECUTION:
      break;
  }
  return {mmtxTestReqExecLock, mTestRequestExecQueue};
}

void TestRequestManager::prepareForQueue(TestRequestQueueType aeQueueType,
                                         TestRequest& arTestRequest) {
  if (aeQueueType == WAIT) {
    arTestRequest.returnToWait();
  } else if (aeQueueType == EXECUTION) {
    arTestRequest.setMonitored(true);
  }
  arTestRequest.addReference();
}

TestRequest* TestRequestManager::takeFront(TestRequestQueueType aeQueueType) {
  const LockedQueue queue = queueOf(aeQueueType);
  const LockScope lock(queue.lock, 0, kMinorLock, "TestRequestManager::frontTestRequestQueue()");
  if (queue.requests.empty()) {
    return nullptr;
  }
  TestRequest* front = queue.requests.front();
  queue.requests.pop_front();
  miProcessQueueSize -= aeQueueType == PROCESS ? 1 : 0;
  return front;
}

TestRequest* TestRequestManager::frontTestRequestQueue(TestRequestQueueType aeQueueType) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::frontTestRequestQueue");
  return RequestReference::adopt(takeFront(aeQueueType)).get();
}

RequestReference TestRequestManager::popTestRequestQueue(TestRequestQueueType aeQueueType) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::frontTestRequestQueue");
  return RequestReference::adopt(takeFront(aeQueueType));
}

void TestRequestManager::pushBackTestRequestQueue(TestRequestQueueType aeQueueType,
                                                  TestRequest* apTestRequest) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::pushBackTestRequestQueue");
  const LockedQueue queue = queueOf(aeQueueType);
  const LockScope lock(queue.lock, 0, kMinorLock, "TestRequestManager::pushBackTestRequestQueue()");
  prepareForQueue(aeQueueType, *apTestRequest);
  queue.requests.push_back(apTestRequest);
  miProcessQueueSize += aeQueueType == PROCESS ? 1 : 0;
}

void TestRequestManager::pushFrontTestRequestQueue(TestRequestQueueType aeQueueType,
                                                   TestRequest* apTestRequest) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::pushFrontTestRequestQueue");
  const LockedQueue queue = queueOf(aeQueueType);
  const LockScope lock(queue.lock, 0, kMinorLock,
                       "TestRequestManager::pushFrontTestRequestQueue()");
  prepareForQueue(aeQueueType, *apTestRequest);
  queue.requests.push_front(apTestRequest);
  miProcessQueueSize += aeQueueType == PROCESS ? 1 : 0;
}

int TestRequestManager::countQueuedEntries(const TestRequest* apTestRequest) {
  const GateScope waitLock(mmtxTestReqWaitLock);
  const GateScope processLock(mmtxTestReqProcessLock);
  return entriesOf(mTestRequestWaitQueue, apTestRequest) +
         entriesOf(mTestRequestProcessQueue, apTestRequest);
}

void TestRequestManager::ifNothingIsQueued(const std::function<void()>& arAction) {
  const LockScope lock(mmtxTestReqWaitLock, 0, kMinorLock,
                       "TestRequestManager::ifNothingIsQueued()");
  // A client pushes under the same lock and makes the controller active afterwards.
  if (mTestRequestWaitQueue.empty() && getTestReqProcessQueueSize() == 0 &&
      getTestReqExecQueueSize() == 0) {
    arAction();
  }
}

TestRequest* TestRequestManager::findTestRequest(unsigned long testReqId) {
  const auto entry = mTestRequestMap.find(testReqId);
  if (entry == mTestRequestMap.end()) {
    raise<DiagCtrlObjectNotFound>(DiagCtrlBaseException::ObjectNotFound,
                                  "TestRequestManager::getTestRequestObj()");
  }
  return entry->second;
}

TestRequest* TestRequestManager::getTestRequestObj(unsigned long testReqId, long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::getTestRequestObj");
  const LockScope lock(mmtxTestReqIdMapLock, lockTimeOut(alTimeOutValue), kMinorLock,
                       "TestRequestManager::getTestRequestObj()");
  return findTestRequest(testReqId);
}

RequestReference TestRequestManager::acquireTestRequest(unsigned long testReqId,
                                                        long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::getTestRequestObj");
  const LockScope lock(mmtxTestReqIdMapLock, lockTimeOut(alTimeOutValue), kMinorLock,
                       "TestRequestManager::getTestRequestObj()");
  return RequestReference(findTestRequest(testReqId));
}

void TestRequestManager::addInTestRequestIdMap(unsigned long aulTestRequestId,
                                               TestRequest* apTestRequest) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::addInTestRequestIdMap");
  const LockScope lock(mmtxTestReqIdMapLock, 0, kMinorLock,
                       "TestRequestManager::addInTestRequestIdMap()");
  mTestRequestMap.emplace(aulTestRequestId, apTestRequest);
}

TestRequestIdList TestRequestManager::getTestRequestIdList(long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::getTestRequestIdList");
  const LockScope lock(mmtxTestReqIdListLock, lockTimeOut(alTimeOutValue), kMinorLock,
                       "TestRequestManager::getTestRequestIdList()");
  return mTestRequestIdList;
}

void TestRequestManager::removeFromTestReqIdList(unsigned long aulTestRequestId) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::removeFromTestReqIdList");
  {
    const LockScope lock(mmtxTestReqIdListLock, 0, kMinorLock,
                         "TestRequestManager::removeFromTestReqIdList()");
    mTestRequestIdList.remove(aulTestRequestId);
  }
  acquireTestRequest(aulTestRequestId, kTimeOut)->setExecutedAll(true);
}

void TestRequestManager::clearTestRequestIdList(long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::clearTestRequestIdList");
  const LockScope lock(mmtxTestReqIdListLock, lockTimeOut(alTimeOutValue), kMinorLock,
                       "TestRequestManager::clearTestRequestIdList()");
  mTestRequestIdList.clear();
}

void TestRequestManager::clearTestRequestMap() {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::clearTestRequestMap");
  clearTestRequestIdList(kTimeOut);
  const LockScope lock(mmtxTestReqIdMapLock, 0, kMinorLock,
                       "TestRequestManager::clearTestRequestMap()");
  mRetiredRequests.reserve(mRetiredRequests.size() + mTestRequestMap.size());
  for (const auto& [id, request] : mTestRequestMap) {
    if (request->isReferenced()) {
      mRetiredRequests.push_back(request);
    } else {
      delete request;
    }
  }
  mTestRequestMap.clear();
}

void TestRequestManager::deleteRetiredRequests() {
  const GateScope lock(mmtxTestReqIdMapLock);
  for (TestRequest* request : mRetiredRequests) {
    delete request;
  }
  mRetiredRequests.clear();
}

RequestReference TestRequestManager::acquireUnfinishedAfter(unsigned long testReqId) {
  const GateScope mapLock(mmtxTestReqIdMapLock);
  const GateScope listLock(mmtxTestReqIdListLock);
  for (auto entry = mTestRequestMap.upper_bound(testReqId); entry != mTestRequestMap.end();
       ++entry) {
    const bool isListed = std::find(mTestRequestIdList.begin(), mTestRequestIdList.end(),
                                    entry->first) != mTestRequestIdList.end();
    if (isListed || entry->second->isInFlight()) {
      return RequestReference(entry->second);
    }
  }
  return RequestReference(nullptr);
}

std::vector<RequestReference> TestRequestManager::requestsInFlight() {
  const GateScope lock(mmtxTestReqIdMapLock);
  std::vector<RequestReference> found;
  const auto take = [&](TestRequest* apRequest) {
    if (apRequest->isInFlight()) {
      found.emplace_back(apRequest);
    }
  };
  for (const auto& entry : mTestRequestMap) {
    take(entry.second);
  }
  std::for_each(mRetiredRequests.begin(), mRetiredRequests.end(), take);
  return found;
}

bool TestRequestManager::isPackageInUse(const DiagnosticPackage& arDiagPackage) {
  const GateScope lock(mmtxTestReqIdMapLock);
  const auto isInUse = [&](TestRequest* apRequest) {
    return apRequest->isReferenced() && &apRequest->package() == &arDiagPackage;
  };
  return std::any_of(mTestRequestMap.begin(), mTestRequestMap.end(),
                     [&](const auto& arEntry) { return isInUse(arEntry.second); }) ||
         std::any_of(mRetiredRequests.begin(), mRetiredRequests.end(), isInUse);
}

DiagCtrlConditionVar& TestRequestManager::getCondVarTRWaitQueue() noexcept {
  return *mpCondVarTRWaitQueue;
}

DiagCtrlConditionVar& TestRequestManager::getCondVarTRExecQueue() noexcept {
  return *mpCondVarTRExecQueue;
}

DiagCtrlConditionVar& TestRequestManager::getCondVarExecMgrThread() noexcept {
  return *mpCondVarExecMgrThread;
}

bool TestRequestManager::getTestExecCompleted() {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::getTestExecCompleted");
  const LockScope lock(mmtxTestExecCompletedLock, 0, kMinorLock,
                       "TestRequestManager::getTestExecCompleted()");
  return mbTestExecCompleted;
}

void TestRequestManager::setTestExecCompleted(bool abTestExecCompleted) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::setTestExecCompleted");
  const LockScope lock(mmtxTestExecCompletedLock, 0, kMinorLock,
                       "TestRequestManager::setTestExecCompleted()");
  mbTestExecCompleted = abTestExecCompleted;
}

void TestRequestManager::awaitTestExecCompleted(unsigned long aulTestRequestId,
                                                unsigned long aulPass) {
  const TraceScope trace(mpDiagTracer, "TestRequestManager::setTestExecCompleted");
  const LockScope lock(mmtxTestExecCompletedLock, 0, kMinorLock,
                       "TestRequestManager::setTestExecCompleted()");
  mbTestExecCompleted = false;
  mulAwaitedTestRequestId = aulTestRequestId;
  mulAwaitedPass = aulPass;
}

void TestRequestManager::concludeTestExec(unsigned long aulTestRequestId, unsigned long aulPass) {
  {
    const TraceScope trace(mpDiagTracer, "TestRequestManager::setTestExecCompleted");
    const LockScope lock(mmtxTestExecCompletedLock, 0, kMinorLock,
                         "TestRequestManager::setTestExecCompleted()");
    // A late verdict must not end the wait for another request, nor that for the next pass.
    if (aulTestRequestId == mulAwaitedTestRequestId && aulPass == mulAwaitedPass) {
      mbTestExecCompleted = true;
    }
  }
  // The dispatcher may wait for a verdict or, with refused requests in hand, for new work.
  mpCondVarExecMgrThread->nudge();
  mpCondVarTRWaitQueue->nudge();
}

void TestRequestManager::resetRequestId() noexcept {
  mSulCurrentTestReqIdNumber = mSConUlstartNumberTestRequestId;
}

}  // namespace TarvexDiags::DiagCtrl
