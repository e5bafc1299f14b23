// Start, stop and health of the controller: the one place where the subsystems are put together.

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <thread>

#include "DiagCtrl/DiagControlConfig.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlFileOpenException.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagCtrlInvalidParameter.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlReleaseLibraryFailed.h"
#include "DiagCtrl/DiagCtrlUnsupportedOperation.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/ExecutionManagerThread.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/MonitorThread.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/Abort.h"
#include "DiagCtrl/internal/controller/Call.h"
#include "DiagCtrl/internal/controller/CallBackList.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/AtRestScope.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Swallow.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/ClientCallCount.h"
#include "DiagCtrl/internal/ground/Invariant.h"
#include "System/SysUtil.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr unsigned long kThreadStackBytes = 2'000'000;
constexpr unsigned short kThreadPriority = 98;

int (*const stringcmp1)(const char*, const char*) = strcasecmp;

template <class T>
void deleteAndNull(T*& arpObject) {
  delete arpObject;
  arpObject = nullptr;
}

void deleteTextAndNull(char*& arpcText) {
  delete[] arpcText;
  arpcText = nullptr;
}

// With the pointers' lock held, or the thread could be gone in between.
bool isFresh(DiagThread* apThread, time_t aNow) {
  return apThread != nullptr && aNow - static_cast<time_t>(apThread->getLastUpdatedTime()) <
                                    DiagCtrlConstants::mSconlTimeOut;
}

/// A step of a shut-down, which goes on whatever becomes of it.
template <class Step>
void attempt(Step aStep) {
  swallowAll(false, [&] { return aStep(), true; });
}

/// A warning that may be lost: a shut-down goes on without memory.
void tell(const TraceScope& arTrace, const char* apcText) {
  attempt([&] { arTrace.warning(apcText); });
}

/// Sets a thread up and starts it. @return false if the platform refuses.
template <class Thread>
bool startThread(Thread& arThread, const TraceScope& arTrace) {
  try {
    arThread.initialize(DiagThread::sched_Other, kThreadStackBytes, kThreadPriority);
    arThread.start(nullptr);
  } catch (const DiagCtrlInvalidParameter&) {
    return false;
  } catch (const DiagCtrlUnsupportedOperation&) {
    return false;
  } catch (const DiagCtrlMutexException&) {
    arTrace.warning("WARNING: DiagCtrlMutexException");
  }
  return true;
}

}  // namespace

DiagnosticController::errorCode DiagnosticController::initialize(const char* apcFileName) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::initialize");
  if (apcFileName == nullptr) {
    return INVALID_FILE_NAME_PASSED;
  }
  if (!readControlFile(trace, apcFileName)) {
    return INITIALISATION_FAILED;
  }
  openTraceFile(trace);
  const auto isWrongPhase = [&] {
    const diagCtrlPhase phase = getDiagCtrlPhase(-1);
    if (phase == DiagControllerStatus::UNINITIALISED) {
      return false;
    }
    trace.errorValue("INCORRECT PHASE:", phase);
    return true;
  };
  if (isWrongPhase()) {
    return INCORRECT_PHASE;
  }
  if (isResetting()) {
    holdsApiPhaseLock();
    return startMachinery(trace);
  }
  const LockScope apiLock(mmtxApiPhaseLock, -1);
  return isWrongPhase() ? INCORRECT_PHASE : startMachinery(trace);
}

// What an earlier initialize read stays allocated: its threads go on with it.
bool DiagnosticController::readControlFile(const TraceScope& arTrace, const char* apcFileName) {
  // Copied first: a reset passes the very path that is freed next.
  std::unique_ptr<char, void (*)(void*)> path(strdup(apcFileName), std::free);
  if (path == nullptr) {
    throw std::bad_alloc();
  }
  auto config = std::make_unique<DiagControlConfig>(path.get());
  std::free(mpcCtrlConfigFilePath);
  mpcCtrlConfigFilePath = path.release();
  mpDiagCtrlConfig = config.release();
  try {
    mpcPackDirPath = mpDiagCtrlConfig->readPackageDirPath();
    mpGlobalSettings = mpDiagCtrlConfig->readGlobalSettings();
  } catch (const DiagCtrlInvalidKey&) {
    deleteAndNull(mpDiagCtrlConfig);
    deleteTextAndNull(mpcPackDirPath);
    std::free(mpcCtrlConfigFilePath);
    mpcCtrlConfigFilePath = nullptr;
    mpGlobalSettings = nullptr;
    arTrace.error("INITIALISATION_FAILED: Read CFG file failed");
    return false;
  }
  return true;
}

void DiagnosticController::openTraceFile(TraceScope& arTrace) {
  try {
    mpcLogDirPath = mpDiagCtrlConfig->readLogDirPath();
  } catch (const DiagCtrlInvalidKey&) {
    deleteTextAndNull(mpcLogDirPath);
    arTrace.warning("WARNING: No LogDirPath specified");
  }
  try {
    mpDiagTracer->openTraceFile(mpcLogDirPath, static_cast<int>(mpGlobalSettings->getDebugLog()));
  } catch (const DiagCtrlFileOpenException&) {
    arTrace.warning("WARNING: Opening trace-file failed");
  }
}

/// Stores the pointer to a thread where a client's question about its health finds it.
void DiagnosticController::publishThread(ExecutionManagerThread* apThread) {
  const System::LockHold hold(mThreadPointersMutex);
  mpExecMgrThread = apThread;
}
void DiagnosticController::publishThread(MonitorThread* apThread) {
  const System::LockHold hold(mThreadPointersMutex);
  mpMoniThread = apThread;
}

// The object is out of reach before it goes: its destructor may join the threads that it owns, and
// a client's question does not wait for those.
template <class Thread>
void DiagnosticController::deleteThread(Thread* apThread) {
  publishThread(static_cast<Thread*>(nullptr));
  delete apThread;
}

/// Stops a thread, waits for its end and deletes it.
template <class Thread>
void DiagnosticController::endThread(Thread* apThread, const TraceScope& arTrace) {
  if (apThread == nullptr) {
    return;
  }
  try {
    apThread->stop();
    apThread->join();
  } catch (const DiagCtrlUnsupportedOperation&) {
    tell(arTrace, "WARNING: DiagCtrlUnsupportedOperation");
  } catch (const DiagCtrlMutexException&) {
    tell(arTrace, "WARNING: DiagCtrlMutexException");
  }
  deleteThread(apThread);
}

// What lets an exception out takes back what it has begun, threads included: it can be tried again.
DiagnosticController::errorCode DiagnosticController::startMachinery(TraceScope& arTrace) {
  try {
    return buildMachinery(arTrace);
  } catch (...) {
    stopThreads(arTrace);
    deleteAndNull(mpDiagPackInterface);
    undoStart(nullptr);
    throw;
  }
}

// The order of creation is what all subsystems rely on.
DiagnosticController::errorCode DiagnosticController::buildMachinery(TraceScope& arTrace) {
  mpClientCalls->beginLife();
  {
    const AtRestScope rest;
    kClientsAtRest.standsFor(mmtxProgressLock);
    mProgressEnumeration = 0;
  }
  mOs = System::SysUtil::getOs();
  if (mOs.empty()) {
    arTrace.error("UNABLE_TO_GET_OS: ");
    return UNABLE_TO_GET_OS;
  }
  readMessageFilePath();
  mpEventManager = EventManager::getInstance();
  mpTestRequestManager = new TestRequestManager;
  mpResourceLockManager = ResourceLockManager::getInstance();
  auto* dispatcher =
      new ExecutionManagerThread(*mpTestRequestManager, *mpGlobalSettings, *mpDiagTracer);
  publishThread(dispatcher);
  if (!startThread(*dispatcher, arTrace)) {
    undoStart(dispatcher);
    arTrace.error("UNABLE_TO_INIT_MONI_THREAD: ");
    return UNABLE_TO_INIT_MONI_THREAD;
  }
  mpDiagPackInterface = new DiagnosticPackageInterface;
  auto* monitor = new MonitorThread(*mpEventManager, *mpTestRequestManager, *dispatcher, *this,
                                    *mpDiagPackInterface);
  publishThread(monitor);
  if (!startThread(*monitor, arTrace)) {
    deleteThread(monitor);
    deleteAndNull(mpDiagPackInterface);
    dispatcher->stop();
    dispatcher->join();
    undoStart(dispatcher);
    arTrace.error("UNABLE_TO_INIT_MONI_THREAD: ");
    return UNABLE_TO_INIT_MONI_THREAD;
  }
  setDiagCtrlPhase(DiagControllerStatus::INITIALIZE, -1);
  return SUCCESS;
}

void DiagnosticController::readMessageFilePath() {
  deleteTextAndNull(mpcMsgFilePath);  // of an earlier run
  mpcMsgFilePath = mpDiagCtrlConfig->readMessageFilePath();
  if (stringcmp1(mpcMsgFilePath, DiagCtrlConstants::mSconNull) == 0) {
    mbMsgFilePathFound = false;
  }
}

void DiagnosticController::undoStart(ExecutionManagerThread* apDispatcher) {
  deleteThread(apDispatcher);
  deleteAndNull(mpResourceLockManager);
  deleteAndNull(mpTestRequestManager);
  deleteAndNull(mpEventManager);
  dropSettings();
  std::free(mpcCtrlConfigFilePath);
  mpcCtrlConfigFilePath = nullptr;
}

DiagnosticController::errorCode DiagnosticController::shutDown() {
  Call call(*this, "DiagnosticController::shutDown");
  // Before the lock, so that an enumeration in progress ends between two packages.
  setShutDownRequest(true);
  const errorCode result = call.contain([&] {
    if (isResetting()) {
      holdsApiPhaseLock();
      return takeDown(call.trace());
    }
    const LockScope apiLock(mmtxApiPhaseLock, -1);
    return takeDown(call.trace());
  });
  setShutDownRequest(false);
  return result;
}

// Each step goes on where the one before could not end its work: without memory, say.
DiagnosticController::errorCode DiagnosticController::takeDown(const TraceScope& arTrace) {
  attempt([&] {
    holdsApiPhaseLock();
    stopTests(arTrace);
  });
  attempt([&] {
    holdsApiPhaseLock();
    stopThreads(arTrace);
  });
  // Opened again only in the new phase, at which the gate refuses by itself.
  const ClientCallClosure closure(*mpClientCalls);
  attempt([&] { dropRequestsAndRegistrations(arTrace); });
  attempt([&] { dropCatalogue(arTrace); });
  attempt([&] { dropManagersAndSettings(); });
  TestRequestManager::resetRequestId();
  mpDiagCtrlStatus->restoreDiagCtrlPhase(DiagControllerStatus::UNINITIALISED);
  return SUCCESS;
}

// The flag changes also where its lock cannot be had: it must not stay behind.
void DiagnosticController::setShutDownRequest(bool abShutDownRequest) {
  try {
    const LockScope lock(mmtxShutDownLock, 0);
    mbShutDownRequest = abShutDownRequest;
  } catch (const DiagCtrlMutexException&) {
    mbShutDownRequest = abShutDownRequest;
  }
}

void DiagnosticController::stopTests(const TraceScope& arTrace) {
  const bool isActive = swallowAll(mpTestRequestManager != nullptr, [&] {
    return mpDiagCtrlStatus->getDiagCtrlPhase(-1) == DiagControllerStatus::ACTIVE;
  });
  if (!isActive) {
    return;
  }
  errorCode result = UNABLE_TO_GET_LOCK;
  try {
    TraceScope abortTrace(mpDiagTracer, "DiagnosticController::abortAllTest");
    result = Abort::all(*this, abortTrace);
    Abort::workersLeft(*this);
  } catch (const DiagCtrlMutexException&) {
    // Counts as an abort that failed.
  } catch (const ClientFailure& failure) {
    Call::pushError(*this, failure.event);
    result = failure.result;
  } catch (const std::bad_alloc&) {
    Abort::oneByOne(*this);
  }
  if (result != SUCCESS) {
    attempt([&] { arTrace.error("UNABLE_TO_ABORT_TESTS: "); });
    Call::pushError(*this, DiagCtrlEvent::UNABLE_TO_ABORT_TESTS);
  }
  attempt([&] { mpResourceLockManager->resetResourceLockMap(-1); });
  attempt([&] { mpTestRequestManager->clearTestRequestIdList(-1); });
}

// The monitor first: its end frees a dispatcher that waits for a verdict.
void DiagnosticController::stopThreads(const TraceScope& arTrace) {
  MonitorThread* monitor = nullptr;
  ExecutionManagerThread* dispatcher = nullptr;
  {
    const System::LockHold hold(mThreadPointersMutex);
    monitor = mpMoniThread;
    dispatcher = mpExecMgrThread;
  }
  endThread(monitor, arTrace);
  endThread(dispatcher, arTrace);
  mbAbortAllFlag = false;
}

void DiagnosticController::dropRequestsAndRegistrations(const TraceScope& arTrace) {
  if (mpTestRequestManager != nullptr) {
    try {
      mpTestRequestManager->clearTestRequestMap();
      mpTestRequestManager->deleteRetiredRequests();
    } catch (const DiagCtrlMutexException&) {
      tell(arTrace, "WARNING: DiagCtrlMutexException");
    } catch (const std::bad_alloc&) {
      // They go with the manager.
    }
  }
  if (mpEventManager != nullptr) {
    attempt([&] { mpEventManager->clearCtrlEventQueues(); });
    attempt([&] { mpEventManager->clearResultQueues(); });
    attempt([&] { mpEventManager->clearEventQueues(); });
  }
  for (const CallBackList& list : {CallBackList::ofEvents(*this), CallBackList::ofResults(*this),
                                   CallBackList::ofCtrlEvents(*this)}) {
    attempt([&] {
      const LockScope lock(list.lock, 0);
      list.objects.clear();  // the objects are the clients'
    });
  }
}

// Each description goes before its library: the devices' code lies there.
void DiagnosticController::dropCatalogue(const TraceScope& arTrace) {
  const AtRestScope rest;
  kClientsAtRest.standsFor(mmtxDisPackageListLock);
  kClientsAtRest.standsFor(mmtxPackageVectorLock);
  mDisablePackageList.clear();
  deleteAndNull(mpResourceLockManager);
  const auto releaseLibrary = [&](void* apHandle) {
    try {
      mpDiagPackInterface->releaseLibrary(apHandle, kTimeOut);
    } catch (const DiagCtrlReleaseLibraryFailed&) {
      tell(arTrace, "WARNING: DiagCtrlReleaseLibraryFailed");
    }
  };
  for (const auto& [index, package] : mPackageObjectMap) {
    void* handle = package->getPackageHandle();
    delete package;
    assertInvariant(mpDiagPackInterface != nullptr, "mpDiagPackInterface != 0");
    if (handle != nullptr) {
      attempt([&] { releaseLibrary(handle); });
    }
  }
  for (DiagnosticPackage* package : mLostPackages) {
    attempt([&] {
      const AtRestScope atRest;
      package->clearPackageData();  // an enumeration that broke off left it, and its library open
      package->deleteRetiredData();
    });
  }
  mLostPackages.clear();
  for (void* handle : mRetiredHandles) {
    attempt([&] { releaseLibrary(handle); });
  }
  mRetiredHandles.clear();
  mPackageObjectMap.clear();
  mPackageMap.clear();
  mvPackageNameVector.clear();
}

void DiagnosticController::dropManagersAndSettings() {
  deleteAndNull(mpTestRequestManager);
  deleteAndNull(mpEventManager);
  dropSettings();
  deleteAndNull(mpDiagPackInterface);
}

void DiagnosticController::dropSettings() {
  deleteAndNull(mpGlobalSettings);
  deleteTextAndNull(mpcPackDirPath);
  deleteTextAndNull(mpcLogDirPath);
  deleteAndNull(mpDiagCtrlConfig);
}

DiagnosticController::errorCode DiagnosticController::resetDiagController() {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::resetDiagController");
  struct ResetFlag {
    DiagnosticController& controller;
    explicit ResetFlag(DiagnosticController& arController) : controller(arController) {
      controller.setResetRequest(true);
    }
    ~ResetFlag() { controller.setResetRequest(false); }
    ResetFlag(const ResetFlag&) = delete;
    ResetFlag& operator=(const ResetFlag&) = delete;
  };
  const auto isWrongPhase = [&] {
    const bool isWrong = getDiagCtrlPhase(-1) == DiagControllerStatus::UNINITIALISED;
    if (isWrong) {
      trace.errorValue("INCORRECT_PHASE: ", DiagControllerStatus::UNINITIALISED);
    }
    return isWrong;
  };
  if (isWrongPhase()) {
    return INCORRECT_PHASE;
  }
  // The flag is set and cleared under the lock: it speaks for one thread.
  const LockScope apiLock(mmtxApiPhaseLock, -1);
  const ResetFlag flag(*this);
  if (isWrongPhase()) {
    return INCORRECT_PHASE;
  }
  if (const errorCode result = shutDown(); result != SUCCESS) {
    trace.errorValue("SHUTDOWN: ", result);
    return result;
  }
  if (const errorCode result = initialize(mpcCtrlConfigFilePath); result != SUCCESS) {
    trace.errorValue("INITIALIZE: ", result);
    return result;
  }
  return SUCCESS;
}

void DiagnosticController::setResetRequest(bool abResetRequest) {
  const LockScope lock(mmtxResetLock, 0);
  mResettingThread = abResetRequest ? std::this_thread::get_id() : std::thread::id();
  mbResetRequest = abResetRequest;
}

DiagnosticController::errorCode DiagnosticController::getDiagControllerStatus(
    DiagControllerStatus*& arDiagControllerStatus) {
  Call call(*this, "DiagnosticController::getDiagControllerStatus");
  return call.answerBehind(ClientCall::readHealth,
                           [&] { return readHealth(call, arDiagControllerStatus); });
}

DiagnosticController::errorCode DiagnosticController::readHealth(Call& arCall,
                                                                 DiagControllerStatus*& arpStatus) {
  auto status = std::make_unique<DiagControllerStatus>();
  const time_t now = time(nullptr);
  {
    const System::LockHold hold(mThreadPointersMutex);
    status->setExecMgrThrHealth(isFresh(mpExecMgrThread, now));
    status->setMonThrHealth(isFresh(mpMoniThread, now));
  }
  try {
    status->setDiagCtrlPhase(getDiagCtrlPhase(kTimeOut), kTimeOut);
  } catch (const DiagCtrlMutexException&) {
    return arCall.fail({DiagCtrlEvent::UNABLE_TO_SET_CTRL_PHASE, UNABLE_TO_SET_CTRL_PHASE});
  }
  arpStatus = status.release();
  return SUCCESS;
}

}  // namespace TarvexDiags::DiagCtrl
