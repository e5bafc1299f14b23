#pragma once

#include <unordered_map>

#include "Diag/DiagnosticStatus.h"
#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagThread.h"
#include "DiagCtrl/TestRequestManager.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

class DiagCtrlBaseException;
class DiagnosticController;
class DiagnosticPackageInterface;
class DiagTracer;
class DiagUtil;
class EventManager;
class ExecutionManagerThread;
class RequestReference;

/// The monitor: polls the requests that have a pass thread, hands their events and results to the
/// clients, decides after each pass whether a request runs again or is finished, and turns the
/// controller idle when nothing is left. Polls only while the controller is `ACTIVE`.
class TARVEXDIAGS_EXPORT MonitorThread : public DiagThread {
 public:
  /// The verdict on a request whose package reports completion.
  enum queueStatus : unsigned int {
    EXEC = 0,   ///< declared, never given
    WAIT = 1,   ///< another pass
    DROP = 2,   ///< finished
    LOCAL = 3,  ///< aborted or halted, and its pass thread is still in the package
  };

  MonitorThread(EventManager& arEventManager, TestRequestManager& arTestRequestManager,
                ExecutionManagerThread& arExecutionManagerThread,
                DiagnosticController& arDiagnosticController,
                DiagnosticPackageInterface& arDiagnosticPackageInterface);
  ~MonitorThread() override;

  void run(void* apRunArgument) override;

  /// Asks the thread to end and wakes it. @throws DiagCtrlMutexException
  void stop();

  /// Forgets the requests that still owe results.
  void clearTestRequestQueue();

 private:
  void runOnce();
  DiagCtrlConditionVar::WaitRetStatus waitForWork();
  void reportNothingPending();
  void endRun();
  void becomeIdleIfNothingIsLeft();
  void handleTimedOut();
  void handleReceivedSignal();
  void processExecQueue();
  void processLocalTRQueue();
  void pollEntry(RequestReference& arEntry);
  void getEventsResults(TestRequest* apTestRequest);
  void collectEvents(TestRequest& arTestRequest);
  Diag::DiagnosticStatus readStatus(TestRequest& arTestRequest);
  void collectResults(TestRequest& arTestRequest);
  void getResults(TestRequest* apTestRequest);
  void finish(TestRequest& arTestRequest);
  bool requeueTestRequest(TestRequest* apTestRequest);
  queueStatus judge(TestRequest& arTestRequest);
  static bool mayRunAgain(TestRequest& arTestRequest);
  bool sendBack(TestRequest& arTestRequest);
  bool drop(TestRequest& arTestRequest);
  void conclude(TestRequest& arTestRequest);
  void keepPolling(TestRequest& arTestRequest);
  RequestReference takeLocalEntry();
  void releaseResourceLock(TestRequest* apTestRequest);
  void traceFailure(const char* apcMethod, DiagCtrlBaseException& arFailure);

  TestRequestQueue mResultPendingTRQueue;
  EventManager& mrEventManager;
  TestRequestManager& mrTestRequestManager;
  ExecutionManagerThread& mrExecutionManagerThread;
  DiagnosticController& mrDiagCtrl;
  DiagnosticPackageInterface& mrDiagPkgIntf;
  DiagCtrlConditionVar& mrWaitCondVar;
  DiagCtrlConditionVar& mrExecCondVar;
  DiagUtil* mpDiagUtil;

  unsigned long mulSignalsSeen = 0;
  // How often each request, by its id, stands in the local queue.
  std::unordered_map<unsigned long, int> mLocalEntries;
};

}  // namespace TarvexDiags::DiagCtrl
