#pragma once

#include <memory>
#include <vector>

#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagThread.h"
#include "DiagCtrl/TestRequest.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

class DiagCtrlConditionVar;
class DiagnosticController;
class DiagnosticPackage;
class DiagTracer;
class DiagUtil;
class GlobalSettings;
class RequestReference;
class ResourceLockManager;
class TestRequestManager;
class TraceScope;

/// A pass thread: one pass of one request. Chooses test numbers and the open mode, calls into the
/// package, judges the result for halting, and gives back what the dispatcher took. `stop` has no
/// effect on it; only the package's return ends it.
class TARVEXDIAGS_EXPORT ExecutionThread : public DiagThread {
 public:
  ExecutionThread(TestRequestManager& arTestReqMgr, TestRequest& arTestRequest,
                  GlobalSettings& arGlobalSetting, DiagnosticController& arDiagCtrl,
                  DiagTracer& arDiagTracer, DiagUtil& arDiagUtil);
  ~ExecutionThread() override;

  /// The pass. The argument is not used.
  void run(void* apVoid) override;

  /// Gives the system lock back and wakes the dispatcher, as run mode and package call for.
  void relSysLockAndSignalExecMgrThread();
  void releaseResourceLock();

  TestRequest& getTestRequest() noexcept { return mrTestRequest; }

 private:
  template <class TellMonitor>
  void runPass(const TraceScope& arTrace, TellMonitor aTellMonitor);
  std::vector<int> chooseTests(const DiagIntList& arAsked, const TestIdMap& arEnabled);
  TestRequest::TestRequestStatus readStatus(TestRequest::TestRequestStatus aeFallback);
  bool isRefused(const std::vector<int>& arTests, TestRequest::TestRequestStatus aeStatus);
  unsigned int chooseOpenMode(const DiagIntList& arAsked);
  bool enterPackage();
  void reportEnd(const TraceScope& arTrace, TestRequest::TestRequestStatus aeStatus);
  bool mustHalt(int aiTestResult);
  void refuse();
  void giveLocksBack();
  void handleMutexFailure(const TraceScope& arTrace);
  void pushWarning(unsigned int auiEventCode);

  TestRequestManager& mrTestReqMgr;
  TestRequest& mrTestRequest;
  DiagTracer& mrDiagTracer;
  [[maybe_unused]] DiagnosticController& mrDiagCtrl;
  GlobalSettings& mrGlobalSetting;
  ResourceLockManager* mpResLockMgr;
  DiagnosticPackage* mpDiagPackage;
  DiagCtrlConditionVar* mpCondVarExecMgrThread;
  DiagUtil& mrDiagUtil;
  DiagCtrlLock m_resourceTagLock;
  std::unique_ptr<RequestReference> mpRequestReference;
  // This thread's own.
  bool mbSystemLockGivenBack = false;
  bool mbResourceGivenBack = false;
};

}  // namespace TarvexDiags::DiagCtrl
