#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <vector>

#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/TestRequest.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;
class RequestReference;

typedef std::deque<TestRequest*> TestRequestQueue;
typedef std::map<unsigned long, TestRequest*> TestRequestMap;
typedef std::list<unsigned long> TestRequestIdList;

/// Owns all requests and the three queues through which they travel, hands out their ids, and owns
/// the condition variables by which the threads of the pipeline wake each other. Makes no
/// decisions.
///
/// Thread-safety: any thread may call any operation. Operations that lock may throw
/// DiagCtrlMutexException.
class TARVEXDIAGS_EXPORT TestRequestManager {
 public:
  enum TestRequestQueueType : unsigned int {
    WAIT = 0,       ///< new requests, and requests sent back for another pass
    PROCESS = 1,    ///< requests that the dispatcher is to start
    EXECUTION = 2,  ///< requests with a pass thread, which the monitor takes over
  };

  TestRequestManager();
  TestRequestManager(const TestRequestManager&) = delete;
  TestRequestManager& operator=(const TestRequestManager&) = delete;
  /// Deletes all requests.
  virtual ~TestRequestManager();

  /// Held by the dispatcher while it has requests in its hands, and tried by the monitor before it
  /// decides that nothing is left. The manager's own operations do not take it.
  DiagCtrlLock mmtxTestReqChangeLock;

  /// Makes a request visible to the pipeline: at the back of the WAIT queue, under a new id,
  /// counted from 1. The manager takes the request over. @return the id.
  unsigned long queueTestRequest(TestRequest* apTestReqToAdd);

  int getTestReqExecQueueSize();
  int getTestReqWaitQueueSize();
  int getTestReqProcessQueueSize();

  /// Removes and returns the front of a queue; null if it is empty.
  TestRequest* frontTestRequestQueue(TestRequestQueueType aeQueueType);
  /// A push to WAIT makes the request wait and unmonitored, one to EXECUTION makes it monitored.
  void pushBackTestRequestQueue(TestRequestQueueType aeQueueType, TestRequest* apTestRequest);
  void pushFrontTestRequestQueue(TestRequestQueueType aeQueueType, TestRequest* apTestRequest);

  /// The manager's own object. @throws DiagCtrlObjectNotFound if the id is not known.
  TestRequest* getTestRequestObj(unsigned long testReqId, long alTimeOutValue);
  void addInTestRequestIdMap(unsigned long aulTestRequestId, TestRequest* apTestRequest);

  /// Ids of the requests that have not finished, oldest first.
  TestRequestIdList getTestRequestIdList(long alTimeOutValue);
  /// @throws DiagCtrlObjectNotFound if the id is not known; the list has lost it all the same.
  void removeFromTestReqIdList(unsigned long aulTestRequestId);
  void clearTestRequestIdList(long alTimeOutValue);
  /// Forgets all requests. Those that no thread can reach any more are deleted at once, the others
  /// are kept aside for `deleteRetiredRequests`.
  void clearTestRequestMap();

  /// Work stands in the WAIT queue; the dispatcher waits on it.
  DiagCtrlConditionVar& getCondVarTRWaitQueue() noexcept;
  /// A request stands in the EXECUTION queue or a pass thread has ended; the monitor waits on it.
  DiagCtrlConditionVar& getCondVarTRExecQueue() noexcept;
  /// Something was given back or judged; the dispatcher waits on it.
  DiagCtrlConditionVar& getCondVarExecMgrThread() noexcept;

  bool getTestExecCompleted();
  void setTestExecCompleted(bool abTestExecCompleted);

  /// The next request numbers from 1 again.
  static void resetRequestId() noexcept;

  // For the threads of the pipeline. ---------------------------------------------------------

  /// As `frontTestRequestQueue`; the caller takes the queue's reference over.
  RequestReference popTestRequestQueue(TestRequestQueueType aeQueueType);
  /// As `getTestRequestObj`; the request stays while the reference does.
  RequestReference acquireTestRequest(unsigned long testReqId, long alTimeOutValue);
  /// How often the request stands in the WAIT and PROCESS queues together.
  int countQueuedEntries(const TestRequest* apTestRequest);
  /// Runs the action if all three queues are empty, in one step with that test: nobody can queue a
  /// request meanwhile.
  void ifNothingIsQueued(const std::function<void()>& arAction);

  /// [dispatcher] Begins the wait for the verdict on this pass of this request.
  void awaitTestExecCompleted(unsigned long aulTestRequestId, unsigned long aulPass);
  /// [monitor] Ends that wait, unless it is for another request or another pass of it, and wakes
  /// the dispatcher. @param aulPass the last one whose thread was reclaimed.
  void concludeTestExec(unsigned long aulTestRequestId, unsigned long aulPass);

  /// Counts the pass threads from their claim to their last statement.
  void workerClaimed() noexcept { ++miWorkers; }
  void workerEnded() noexcept { --miWorkers; }
  bool isAnyWorkerAlive() const noexcept { return miWorkers > 0; }

  /// The first request behind this id that is on the list of ids or in flight; none after the
  /// last. Needs no memory.
  RequestReference acquireUnfinishedAfter(unsigned long testReqId);
  /// The requests with a pass thread that nobody has joined yet, also if their ids are unknown.
  std::vector<RequestReference> requestsInFlight();
  /// Whether a thread can still reach a request of this package.
  bool isPackageInUse(const DiagnosticPackage& arDiagPackage);
  /// Deletes the requests that `clearTestRequestMap` kept aside. No thread may be left.
  void deleteRetiredRequests();

 private:
  /// A queue with its lock.
  struct LockedQueue {
    DiagCtrlLock& lock;
    TestRequestQueue& requests TARVEXDIAGS_GUARDED_BY(lock);
  };
  LockedQueue queueOf(TestRequestQueueType aeQueueType);
  void prepareForQueue(TestRequestQueueType aeQueueType, TestRequest& arTestRequest);
  TestRequest* takeFront(TestRequestQueueType aeQueueType);
  TestRequest* findTestRequest(unsigned long testReqId) TARVEXDIAGS_REQUIRES(mmtxTestReqIdMapLock);

  static std::atomic<unsigned long> mSulCurrentTestReqIdNumber;
  static constexpr unsigned long mSConUlstartNumberTestRequestId = 0;
  TestRequestQueue mTestRequestWaitQueue TARVEXDIAGS_GUARDED_BY(mmtxTestReqWaitLock);
  TestRequestQueue mTestRequestProcessQueue TARVEXDIAGS_GUARDED_BY(mmtxTestReqProcessLock);
  TestRequestQueue mTestRequestExecQueue TARVEXDIAGS_GUARDED_BY(mmtxTestReqExecLock);
  TestRequestMap mTestRequestMap TARVEXDIAGS_GUARDED_BY(mmtxTestReqIdMapLock);
  TestRequestIdList mTestRequestIdList TARVEXDIAGS_GUARDED_BY(mmtxTestReqIdListLock);
  DiagCtrlLock mmtxTestReqWaitLock;
  DiagCtrlLock mmtxTestReqProcessLock;
  DiagCtrlLock mmtxTestReqExecLock;
  DiagCtrlLock mmtxTestReqIdMapLock;
  DiagCtrlLock mmtxTestReqIdListLock;
  std::unique_ptr<DiagCtrlConditionVar> mpCondVarTRWaitQueue;
  std::unique_ptr<DiagCtrlConditionVar> mpCondVarExecMgrThread;
  std::unique_ptr<DiagCtrlConditionVar> mpCondVarTRExecQueue;
  DiagCtrlLock mmtxLock;
  DiagCtrlLock mmtxTestExecCompletedLock;
  bool mbTestExecCompleted TARVEXDIAGS_GUARDED_BY(mmtxTestExecCompletedLock);
  DiagTracer* mpDiagTracer;

  std::atomic<int> miProcessQueueSize{0};  // read without the queue's lock
  unsigned long mulAwaitedTestRequestId TARVEXDIAGS_GUARDED_BY(mmtxTestExecCompletedLock) = 0;
  unsigned long mulAwaitedPass TARVEXDIAGS_GUARDED_BY(mmtxTestExecCompletedLock) = 0;
  std::vector<TestRequest*> mRetiredRequests TARVEXDIAGS_GUARDED_BY(mmtxTestReqIdMapLock);
  std::atomic<int> miWorkers{0};
};

}  // namespace TarvexDiags::DiagCtrl
