#include "DiagCtrl/ExecutionThread.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Swallow.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;

/// The end of a pass thread on every way out: the monitor looks at once, and only with the last
/// statement it no longer counts as alive.
class WorkerEnd {
 public:
  explicit WorkerEnd(TestRequestManager& arTestReqMgr) : mrTestReqMgr(arTestReqMgr) {}
  ~WorkerEnd() {
    tellMonitor();
    mrTestReqMgr.workerEnded();
  }
  WorkerEnd(const WorkerEnd&) = delete;
  WorkerEnd& operator=(const WorkerEnd&) = delete;

  /// Once: a package may go on reporting the end of its pass, and each look would count it again.
  void tellMonitor() {
    if (!std::exchange(mbTold, true)) {
      mrTestReqMgr.getCondVarTRExecQueue().nudge();
    }
  }

 private:
  TestRequestManager& mrTestReqMgr;
  bool mbTold = false;
};

unsigned int openModeOf(const std::string& arDeclared) {
  using DeviceEnum::IDevice;
  struct Word {
    const char* text;
    IDevice::AccessMode mode;
  };
  static constexpr Word kWords[] = {{"READ_ONLY", IDevice::READ_ONLY},
                                    {"WRITE_ONLY", IDevice::WRITE_ONLY},
                                    {"QUERY", IDevice::QUERY}};
  const auto* word = std::find_if(std::begin(kWords), std::end(kWords), [&](const Word& arWord) {
    return arDeclared.find(arWord.text) != std::string::npos;
  });
  return word != std::end(kWords) ? word->mode : IDevice::READ_WRITE;
}

}  // namespace

ExecutionThread::ExecutionThread(TestRequestManager& arTestReqMgr, TestRequest& arTestRequest,
                                 GlobalSettings& arGlobalSetting, DiagnosticController& arDiagCtrl,
                                 DiagTracer& arDiagTracer, DiagUtil& arDiagUtil)
    : mrTestReqMgr(arTestReqMgr),
      mrTestRequest(arTestRequest),
      mrDiagTracer(arDiagTracer),
      mrDiagCtrl(arDiagCtrl),
      mrGlobalSetting(arGlobalSetting),
      mpResLockMgr(ResourceLockManager::getInstance()),
      mpDiagPackage(&arTestRequest.getDiagPackageRef()),
      mpCondVarExecMgrThread(&arTestReqMgr.getCondVarExecMgrThread()),
      mrDiagUtil(arDiagUtil),
      m_resourceTagLock(kTimeOut),
      mpRequestReference(std::make_unique<RequestReference>(&arTestRequest)) {}

ExecutionThread::~ExecutionThread() = default;

template <class TellMonitor>
void ExecutionThread::runPass(const TraceScope& arTrace, TellMonitor aTellMonitor) {
  Diag::IDiagnostics* diagnostics = mrTestRequest.getIDiagnosticsPtr();
  Diag::DiagnosticSettings* settings = mrTestRequest.getDiagnosticSettings();
  const DiagIntList asked = mrTestRequest.getTestIdList();
  DiagDevice& device = mrTestRequest.getDiagDeviceRef();
  const std::vector<int> tests = chooseTests(asked, device.getEnableTestIdMap());
  const auto before = readStatus(TestRequest::WAIT);
  if (isRefused(tests, before)) {
    refuse();
    return;
  }
  settings->setTestNumberVector(tests);
  settings->setTestRequestId(static_cast<Uint>(mrTestRequest.id()));
  settings->setOpenMode(chooseOpenMode(asked));
  if (!enterPackage()) {
    return;
  }
  Diag::DiagnosticResult* result =
      diagnostics->runDiagnostic(device.getVirtualDeviceRef(), settings);
  mrTestRequest.setToBeDroppedFlag(true);
  reportEnd(arTrace, readStatus(before));
  if (!mustHalt(result->getTestResult())) {
    // It polls while this thread gives its locks back, and then waits for its end.
    aTellMonitor();
    giveLocksBack();
    return;
  }
  mrDiagUtil.pushDiagCtrlEvent(DiagCtrlEvent::ERROR_RECVD_AND_HALT_ON_ERROR,
                               Diag::DiagnosticEvent::ERROR_EVENT,
                               static_cast<unsigned int>(mrTestRequest.id()));
  mrTestRequest.setHaltedStatus(true);
  giveLocksBack();
  arTrace.warningValue("TestRequest Execution Failed. Halting. TestRequestID : ",
                       mrTestRequest.id());
}

void ExecutionThread::run(void* /*apVoid*/) {
  WorkerEnd end(mrTestReqMgr);
  const TraceScope trace(&mrDiagTracer, "ExecutionThread::run");
  const QuietScope quiet;
  try {
    runPass(trace, [&end] { end.tellMonitor(); });
  } catch (const DiagCtrlMutexException&) {
    handleMutexFailure(trace);
  }
}

// A disabled test is skipped here, at every pass, and the request goes on with the rest.
std::vector<int> ExecutionThread::chooseTests(const DiagIntList& arAsked,
                                              const TestIdMap& arEnabled) {
  std::vector<int> tests;
  if (arAsked.empty()) {
    std::transform(arEnabled.begin(), arEnabled.end(), std::back_inserter(tests),
                   [](const auto& arEntry) { return arEntry.first; });
    return tests;
  }
  for (const int test : arAsked) {
    if (arEnabled.contains(test)) {
      tests.push_back(test);
    } else {
      pushWarning(DiagCtrlEvent::DISABLE_TEST);
    }
  }
  return tests;
}

TestRequest::TestRequestStatus ExecutionThread::readStatus(
    TestRequest::TestRequestStatus aeFallback) {
  try {
    return mrTestRequest.getTestRequestStatus(kTimeOut);
  } catch (const DiagCtrlMutexException&) {
    return aeFallback;
  }
}

bool ExecutionThread::isRefused(const std::vector<int>& arTests,
                                TestRequest::TestRequestStatus aeStatus) {
  if (aeStatus == TestRequest::ABORTED) {
    pushWarning(DiagCtrlEvent::TEST_REQUEST_ABORTED);
    return true;
  }
  if (arTests.empty()) {
    pushWarning(DiagCtrlEvent::NO_TEST_ENABLE_TO_EXECUTE);
    return true;
  }
  return false;
}

// The request's own list decides, not the tests that are left of it.
unsigned int ExecutionThread::chooseOpenMode(const DiagIntList& arAsked) {
  if (arAsked.size() != 1) {
    return DeviceEnum::IDevice::READ_WRITE;
  }
  return swallowAll(static_cast<unsigned int>(DeviceEnum::IDevice::READ_WRITE), [&] {
    return openModeOf(mpDiagPackage->getTestInfoFromPackage(arAsked.front())->getTestOpenMode());
  });
}

// The last look and the entry are one step, so that an abort either is seen here or finds the
// request running and tells the package.
bool ExecutionThread::enterPackage() {
  switch (mrTestRequest.enterPackage()) {
    case TestRequest::Claim::granted:
      return true;
    case TestRequest::Claim::aborted:
      pushWarning(DiagCtrlEvent::TEST_REQUEST_ABORTED);
      refuse();
      return false;
    case TestRequest::Claim::stale:
      break;
  }
  mrTestRequest.setToBeDroppedFlag(true);
  giveLocksBack();
  return false;
}

void ExecutionThread::reportEnd(const TraceScope& arTrace,
                                TestRequest::TestRequestStatus aeStatus) {
  const unsigned long id = mrTestRequest.id();
  if (aeStatus == TestRequest::ABORTED) {
    arTrace.infoValue("TestRequestAborted TestRequestID : ", id);
    pushWarning(DiagCtrlEvent::TEST_REQUEST_ABORTED);
    mrTestRequest.setToBeDroppedFlag(true);
  } else {
    mrTestRequest.setTestRequestStatus(TestRequest::REQUEUED);
    arTrace.infoValue("TestRequest Execution Completed TestRequestID : ", id);
  }
}

bool ExecutionThread::mustHalt(int aiTestResult) {
  const bool isBad = aiTestResult == Diag::DiagnosticResult::UNUSUAL_STATUS ||
                     aiTestResult == Diag::DiagnosticResult::FAILED;
  return isBad && mrTestRequest.settings().getRequestedPassCount() > 1 &&
         mrTestRequest.getHaltLoopOnError();
}

void ExecutionThread::refuse() {
  mrTestRequest.setAbortStatus(true, kTimeOut);
  mrTestRequest.setToBeDroppedFlag(true);
  giveLocksBack();
}

// What was given back already is not given back again: by then it can be another's. One that
// had the machine never took its tag but releases it all the same, so it does that before it gives
// the machine back, or it would free what the next one took.
void ExecutionThread::giveLocksBack() {
  const bool takesMachine = mpDiagPackage->takesMachine();
  if (!takesMachine) {
    relSysLockAndSignalExecMgrThread();
  }
  if (!mbResourceGivenBack) {
    releaseResourceLock();
  }
  if (takesMachine && !mbSystemLockGivenBack) {
    relSysLockAndSignalExecMgrThread();
  }
}

void ExecutionThread::handleMutexFailure(const TraceScope& arTrace) {
  const unsigned long id = mrTestRequest.id();
  try {
    mrDiagUtil.pushDiagCtrlEvent(DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED,
                                 Diag::DiagnosticEvent::ERROR_EVENT, static_cast<unsigned int>(id));
    refuse();
  } catch (const DiagCtrlMutexException&) {
    arTrace.errorValue("TestRequest Execution::run Failed in reset locks TestRequestID : ", id);
  }
}

void ExecutionThread::pushWarning(unsigned int auiEventCode) {
  mrDiagUtil.pushDiagCtrlEvent(static_cast<DiagCtrlEvent::eventCode>(auiEventCode),
                               Diag::DiagnosticEvent::WARNING_EVENT,
                               static_cast<unsigned int>(mrTestRequest.id()));
}

void ExecutionThread::relSysLockAndSignalExecMgrThread() {
  const TraceScope trace(&mrDiagTracer, "ExecutionThread::relSysLockAndSignalExecMgrThread");
  LockScope lock(m_resourceTagLock, -1);
  const GlobalSettings::runMode mode = mrGlobalSetting.getRunMode();
  const bool takesMachine = mpDiagPackage->checkSystemLock();
  lock.release();
  if (takesMachine) {
    if (mpResLockMgr->getSystemLockFlag()) {
      mpResLockMgr->setSystemLockFlag(false);
      mbSystemLockGivenBack = true;
      mpCondVarExecMgrThread->signal();
    }
  } else if (mode == GlobalSettings::SERIAL) {
    mpCondVarExecMgrThread->signal();
  }
}

// Given back whether or not this pass took it: a request with the system lock did not.
void ExecutionThread::releaseResourceLock() {
  const TraceScope trace(&mrDiagTracer, "ExecutionThread::releaseResourceLock");
  try {
    LockScope lock(m_resourceTagLock, -1);
    const std::string tag = mrTestRequest.device().getIDevice()->getResourceTag();
    lock.release();
    mpResLockMgr->releaseResourceLock(tag);
    mbResourceGivenBack = true;
  } catch (DiagCtrlKeyNotExistException& failure) {
    mbResourceGivenBack = true;  // the tag was removed meanwhile, and its hold with it
    trace.error("ExecutionThread::releaseResourceLock - Key not found Exception : " +
                failure.dump());
  } catch (DiagCtrlMutexException& failure) {
    trace.error("ExecutionThread::releaseResourceLock - Mutex Exception : " + failure.dump());
  }
}

}  // namespace TarvexDiags::DiagCtrl
