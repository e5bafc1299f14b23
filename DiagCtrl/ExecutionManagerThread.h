#pragma once

#include <atomic>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagThread.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/TestRequest.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

class DiagCtrlBaseException;
class DiagnosticController;
class DiagTracer;
class DiagUtil;
class ExecutionThread;
class LockScope;
class RequestReference;
class ResourceLockManager;
class TestRequestManager;

typedef std::map<unsigned long, ExecutionThread*> ExecutionThreadMap;

/// The dispatcher: moves requests from the WAIT to the PROCESS queue, decides for each whether it
/// may start now, and starts a worker for each that may. In `SERIAL` mode it waits for the verdict
/// on a pass before it looks at the next request.
///
/// Order of locks: TestRequestManager::mmtxTestReqChangeLock, the map of workers, the queues, the
/// request's own.
class TARVEXDIAGS_EXPORT ExecutionManagerThread : public DiagThread {
 public:
  ExecutionManagerThread(TestRequestManager& arTestRQMgr, GlobalSettings& arGlobalSetting,
                         DiagTracer& arDiagTracer);
  /// Stops, joins and deletes every worker still in the map.
  ~ExecutionManagerThread() override;

  void run(void* apVoid) override;

  /// Asks the thread to end and wakes it. @throws DiagCtrlMutexException
  void stop();

  /// Puts a refused request back: a new one to the front, one that ran before behind all others.
  void requeueTest(TestRequest* apTestRequest);
  /// Moves the WAIT queue to the PROCESS queue. @return whether there was anything.
  bool handleWaitQueue();

  /// [monitor] Joins and deletes the worker of a request, if there is one.
  void removeExecThreadObject(unsigned long aulTestRequestId);
  void clearExecThreadObjectMap();

  /// Set by the monitor when nothing is pending; nothing waits for it.
  bool getTRBatchCompletedFlag();
  void setTRBatchCompletedFlag(bool abTRBatchCompleted);

 private:
  enum class Outcome { started, refused, left };
  struct Pass;

  void fetchCompanions();
  void runPass();
  void dispatchBatch(Pass& arPass);
  Outcome dispatch(TestRequest& arTestRequest, Pass& arPass);
  void waitForSystemLock();
  void waitIfStalled(Pass& arPass);
  bool wasRefusedLastPass(const TestRequest* apTestRequest) const;
  void dropAborted(TestRequest& arTestRequest);
  bool takeLocks(TestRequest& arTestRequest);
  bool takeSystemLock(TestRequest& arTestRequest);
  void giveLocksBack(TestRequest& arTestRequest);
  void launch(TestRequest& arTestRequest);
  void holdWorkerMap(std::optional<LockScope>& arHold, unsigned long aulTestRequestId);
  void traceFailure(DiagCtrlBaseException& arFailure);
  GlobalSettings::runMode startThread(TestRequest& arTestRequest, ExecutionThread* apThread);
  void handleFailedStart(TestRequest& arTestRequest, ExecutionThread* apThread);
  void passToMonitor(TestRequest& arTestRequest);
  void abandon(TestRequest& arTestRequest);
  void waitForVerdict();
  void requeueRefused(std::vector<RequestReference>& arRefused);
  void pushError(unsigned int auiEventCode, TestRequest& arTestRequest);

  TestRequestManager& mrTestReqMgr;
  std::atomic<DiagCtrlConditionVar*> mpTReqWaitQueueCondVar{nullptr};
  std::atomic<DiagCtrlConditionVar*> mpTReqExecQueueCondVar{nullptr};
  std::atomic<DiagCtrlConditionVar*> mpTReqExecMgrThCondVar{nullptr};
  DiagCtrlConditionVar mConditionVar;
  DiagCtrlConditionVar mBatchConditionVar;
  DiagnosticController* mpDiagCtrl;
  DiagUtil* mpDiagUtil;
  ExecutionThreadMap mExecutionThreadMap;
  DiagTracer& mrDiagTracer;
  GlobalSettings& mrGlobalSetting;
  ResourceLockManager* mpResLockMgr;
  DiagCtrlLock mmtxDiagCtrlLock;
  bool mbTRBatchCompletedFlag;
  DiagCtrlLock mmtxTRBatchDiagCtrlLock;
  DiagCtrlLock mmtxExecThreadMapCtrlLock;

  // The dispatcher's own memory of its last pass.
  std::set<const TestRequest*> mRefusedLastPass;
  unsigned long mulLastPassTicket = 0;
};

}  // namespace TarvexDiags::DiagCtrl
