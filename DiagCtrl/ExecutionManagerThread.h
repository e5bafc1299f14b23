#pragma once

#include <atomic>
#include <map>
#include <optional>

#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagThread.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/TestRequest.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagCtrlBaseException;
class DiagnosticController;
class DiagTracer;
class DiagUtil;
class ExecutionThread;
class ResourceLockManager;
class TestRequestManager;

typedef std::map<unsigned long, ExecutionThread*> ExecutionThreadMap;

/// The dispatcher: moves requests from the WAIT to the PROCESS queue, decides for each whether it
/// may start now, and starts a pass thread for each that may. In `SERIAL` mode it waits for
/// the verdict on a pass before it looks at the next request.
///
/// Order of locks: TestRequestManager::mmtxTestReqChangeLock, the map of pass threads, the
/// queues, the request's own.
class TARVEXDIAGS_EXPORT ExecutionManagerThread : public DiagThread {
 public:
  ExecutionManagerThread(TestRequestManager& arTestRQMgr, GlobalSettings& arGlobalSetting,
                         DiagTracer& arDiagTracer);
  /// Stops, joins and deletes every pass thread still in the map.
  ~ExecutionManagerThread() override;

  void run(void* apVoid) override;

  /// Asks the thread to end and wakes it. @throws DiagCtrlMutexException
  void stop();

  /// Puts a refused request back: a new one to the front, one that ran before behind all others.
  void requeueTest(TestRequest* apTestRequest);
  /// Moves the WAIT queue to the PROCESS queue. @return whether there was anything.
  bool handleWaitQueue();

  /// [monitor] Joins and deletes the pass thread of a request, if there is one.
  void removeExecThreadObject(unsigned long aulTestRequestId);
  void clearExecThreadObjectMap();

  /// Set by the monitor when nothing is pending; nothing waits for it.
  bool getTRBatchCompletedFlag();
  void setTRBatchCompletedFlag(bool abTRBatchCompleted);

 private:
  enum class Outcome {
    left,      ///< started, or fallen out of the queues
    refused,   ///< goes back as a refused request does
    deferred,  ///< stays in its place, and nobody is told once more
  };
  struct Pass;

  void fetchCompanions();
  void runPass();
  void takeBatch(Pass& arPass, int aiQueueSize);
  Outcome tryToDispatch(TestRequest& arTestRequest, Pass& arPass);
  Outcome dispatch(TestRequest& arTestRequest, Pass& arPass);
  void waitForSystemLock();
  void waitIfStalled(Pass& arPass);
  void dropAborted(TestRequest& arTestRequest);
  std::optional<Outcome> takeLocks(TestRequest& arTestRequest, Pass& arPass);
  Outcome refuseSystemLock(TestRequest& arTestRequest, Pass& arPass);
  void giveLocksBack(TestRequest& arTestRequest);
  void claimAndLaunch(TestRequest& arTestRequest);
  void launch(TestRequest& arTestRequest);
  GlobalSettings::runMode startWorker(TestRequest& arTestRequest, ExecutionThread* apWorker)
      TARVEXDIAGS_REQUIRES(mmtxExecThreadMapCtrlLock);
  void giveUpStart(TestRequest& arTestRequest, ExecutionThread* apWorker);
  bool passToMonitor(TestRequest& arTestRequest);
  void waitForVerdict();
  template <class Push>
  void orAbort(TestRequest& arTestRequest, Push aPush);
  void putBack(Pass& arPass);
  void traceFailure(DiagCtrlBaseException& arFailure);
  void pushError(unsigned int auiEventCode, TestRequest& arTestRequest);

  TestRequestManager& mrTestReqMgr;
  std::atomic<DiagCtrlConditionVar*> mpTReqWaitQueueCondVar{nullptr};
  std::atomic<DiagCtrlConditionVar*> mpTReqExecQueueCondVar{nullptr};
  std::atomic<DiagCtrlConditionVar*> mpTReqExecMgrThCondVar{nullptr};
  DiagCtrlConditionVar mConditionVar;
  DiagCtrlConditionVar mBatchConditionVar;
  DiagnosticController* mpDiagCtrl;
  DiagUtil* mpDiagUtil;
  ExecutionThreadMap mExecutionThreadMap TARVEXDIAGS_GUARDED_BY(mmtxExecThreadMapCtrlLock);
  DiagTracer& mrDiagTracer;
  GlobalSettings& mrGlobalSetting;
  ResourceLockManager* mpResLockMgr;
  DiagCtrlLock mmtxDiagCtrlLock;
  bool mbTRBatchCompletedFlag TARVEXDIAGS_GUARDED_BY(mmtxTRBatchDiagCtrlLock);
  DiagCtrlLock mmtxTRBatchDiagCtrlLock;
  DiagCtrlLock mmtxExecThreadMapCtrlLock;

  // Of the variable that refused requests wait on, from before the last pass.
  unsigned long mulLastPassTicket = 0;
};

}  // namespace TarvexDiags::DiagCtrl
