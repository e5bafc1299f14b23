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
#include "DiagCtrl/internal/ground/CancellationHeld.h"
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

/// What the controller is built of: how it is started and taken down.
class DiagnosticController::Machinery {
 public:
  Machinery(DiagnosticController& arController, const TraceScope& arTrace)
      : mrController(arController), mrTrace(arTrace) {}

  errorCode initialize(const char* apcFileName);
  /// Before the lock is taken, so that an enumeration in progress ends between two packages.
  void setShutDownRequest(bool abShutDownRequest);
  errorCode shutDown();

 private:
  bool readControlFile(const char* apcFileName) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void openTraceFile() TARVEXDIAGS_REQUIRES(kClientsAtRest);
  bool isStarted();
  errorCode start() TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock, kClientsAtRest);
  errorCode build() TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock, kClientsAtRest);
  void readMessageFilePath() TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void undoStart(ExecutionManagerThread* apDispatcher) TARVEXDIAGS_REQUIRES(kClientsAtRest);

  errorCode takeDown() TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock);
  void stopTests() TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock);
  void stopThreads() TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock);
  void dropRequestsAndRegistrations();
  void dropCatalogue() TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock, kClientsAtRest);
  void dropManagersAndSettings() TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void dropSettings() TARVEXDIAGS_REQUIRES(kClientsAtRest);

  template <class Thread>
  void endThread(Thread* apThread);
  void publishThread(ExecutionManagerThread* apThread);
  void publishThread(MonitorThread* apThread);
  template <class Thread>
  void deleteThread(Thread* apThread);

  DiagnosticController& mrController;
  const TraceScope& mrTrace;
};

/// A reset by the calling thread, which holds the big lock over it.
class DiagnosticController::Reset {
 public:
  explicit Reset(DiagnosticController& arController) : mrController(arController) { set(true); }
  ~Reset() { set(false); }
  Reset(const Reset&) = delete;
  Reset& operator=(const Reset&) = delete;

  static bool isUnderWayHere(const DiagnosticController& arController) {
    return arController.mbResetRequest &&
           arController.mResettingThread.load() == std::this_thread::get_id();
  }

 private:
  // The flag changes also where its lock cannot be had: it must not stay behind.
  void set(bool abResetRequest) {
    try {
      const LockScope lock(mrController.mmtxResetLock, 0);
      change(abResetRequest);
    } catch (const DiagCtrlMutexException&) {
      change(abResetRequest);
    }
  }
  void change(bool abResetRequest) {
    mrController.mResettingThread = abResetRequest ? std::this_thread::get_id() : std::thread::id();
    mrController.mbResetRequest = abResetRequest;
  }

  DiagnosticController& mrController;
};

DiagnosticController::errorCode DiagnosticController::initialize(const char* apcFileName) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::initialize");
  if (apcFileName == nullptr) {
    return INVALID_FILE_NAME_PASSED;
  }
  return Machinery(*this, trace).initialize(apcFileName);
}

DiagnosticController::errorCode DiagnosticController::Machinery::initialize(
    const char* apcFileName) {
  const AtRestScope rest;  // the client's part: a controller that runs is not initialised again
  if (!readControlFile(apcFileName)) {
    return INITIALISATION_FAILED;
  }
  openTraceFile();
  if (isStarted()) {
    return INCORRECT_PHASE;
  }
  if (Reset::isUnderWayHere(mrController)) {
    Call::holdsApiPhaseLock(mrController);
    return start();
  }
  const LockScope apiLock(mrController.mmtxApiPhaseLock, -1);
  return isStarted() ? INCORRECT_PHASE : start();
}

bool DiagnosticController::Machinery::isStarted() {
  const diagCtrlPhase phase = mrController.getDiagCtrlPhase(-1);
  if (phase == DiagControllerStatus::UNINITIALISED) {
    return false;
  }
  mrTrace.errorValue("INCORRECT PHASE:", phase);
  return true;
}

// What an earlier initialize read stays allocated: its threads go on with it.
bool DiagnosticController::Machinery::readControlFile(const char* apcFileName) {
  // Copied first: a reset passes the very path that is freed next.
  std::unique_ptr<char, void (*)(void*)> path(strdup(apcFileName), std::free);
  if (path == nullptr) {
    throw std::bad_alloc();
  }
  auto config = std::make_unique<DiagControlConfig>(path.get());
  std::free(mrController.mpcCtrlConfigFilePath);
  mrController.mpcCtrlConfigFilePath = path.release();
  mrController.mpDiagCtrlConfig = config.release();
  try {
    mrController.mpcPackDirPath = mrController.mpDiagCtrlConfig->readPackageDirPath();
    mrController.mpGlobalSettings = mrController.mpDiagCtrlConfig->readGlobalSettings();
  } catch (const DiagCtrlInvalidKey&) {
    deleteAndNull(mrController.mpDiagCtrlConfig);
    deleteTextAndNull(mrController.mpcPackDirPath);
    std::free(mrController.mpcCtrlConfigFilePath);
    mrController.mpcCtrlConfigFilePath = nullptr;
    mrController.mpGlobalSettings = nullptr;
    mrTrace.error("INITIALISATION_FAILED: Read CFG file failed");
    return false;
  }
  return true;
}

void DiagnosticController::Machinery::openTraceFile() {
  try {
    mrController.mpcLogDirPath = mrController.mpDiagCtrlConfig->readLogDirPath();
  } catch (const DiagCtrlInvalidKey&) {
    deleteTextAndNull(mrController.mpcLogDirPath);
    mrTrace.warning("WARNING: No LogDirPath specified");
  }
  try {
    mrController.mpDiagTracer->openTraceFile(
        mrController.mpcLogDirPath, static_cast<int>(mrController.mpGlobalSettings->getDebugLog()));
  } catch (const DiagCtrlFileOpenException&) {
    mrTrace.warning("WARNING: Opening trace-file failed");
  }
}

/// Stores the pointer to a thread where a client's question about its health finds it.
void DiagnosticController::Machinery::publishThread(ExecutionManagerThread* apThread) {
  const System::LockHold hold(mrController.mThreadPointersMutex);
  mrController.mpExecMgrThread = apThread;
}
void DiagnosticController::Machinery::publishThread(MonitorThread* apThread) {
  const System::LockHold hold(mrController.mThreadPointersMutex);
  mrController.mpMoniThread = apThread;
}

// The object is out of reach before it goes: its destructor may join the threads that it owns, and
// a client's question does not wait for those.
template <class Thread>
void DiagnosticController::Machinery::deleteThread(Thread* apThread) {
  publishThread(static_cast<Thread*>(nullptr));
  delete apThread;
}

/// Stops a thread, waits for its end and deletes it.
template <class Thread>
void DiagnosticController::Machinery::endThread(Thread* apThread) {
  if (apThread == nullptr) {
    return;
  }
  try {
    apThread->stop();
    apThread->join();
  } catch (const DiagCtrlUnsupportedOperation&) {
    tell(mrTrace, "WARNING: DiagCtrlUnsupportedOperation");
  } catch (const DiagCtrlMutexException&) {
    tell(mrTrace, "WARNING: DiagCtrlMutexException");
  }
  deleteThread(apThread);
}

// What lets an exception out takes back what it has begun, threads included: it can be tried again.
DiagnosticController::errorCode DiagnosticController::Machinery::start() {
  try {
    return build();
  } catch (...) {
    stopThreads();
    deleteAndNull(mrController.mpDiagPackInterface);
    undoStart(nullptr);
    throw;
  }
}

// The order of creation is what all subsystems rely on.
DiagnosticController::errorCode DiagnosticController::Machinery::build() {
  mrController.mpClientCalls->beginLife();
  kClientsAtRest.standsFor(mrController.mmtxProgressLock);
  mrController.mProgressEnumeration = 0;
  mrController.mOs = System::SysUtil::getOs();
  if (mrController.mOs.empty()) {
    mrTrace.error("UNABLE_TO_GET_OS: ");
    return UNABLE_TO_GET_OS;
  }
  readMessageFilePath();
  mrController.mpEventManager = EventManager::getInstance();
  mrController.mpTestRequestManager = new TestRequestManager;
  mrController.mpResourceLockManager = ResourceLockManager::getInstance();
  auto* dispatcher =
      new ExecutionManagerThread(*mrController.mpTestRequestManager, *mrController.mpGlobalSettings,
                                 *mrController.mpDiagTracer);
  publishThread(dispatcher);
  if (!startThread(*dispatcher, mrTrace)) {
    undoStart(dispatcher);
    mrTrace.error("UNABLE_TO_INIT_MONI_THREAD: ");
    return UNABLE_TO_INIT_MONI_THREAD;
  }
  mrController.mpDiagPackInterface = new DiagnosticPackageInterface;
  auto* monitor =
      new MonitorThread(*mrController.mpEventManager, *mrController.mpTestRequestManager,
                        *dispatcher, mrController, *mrController.mpDiagPackInterface);
  publishThread(monitor);
  if (!startThread(*monitor, mrTrace)) {
    deleteThread(monitor);
    deleteAndNull(mrController.mpDiagPackInterface);
    dispatcher->stop();
    dispatcher->join();
    undoStart(dispatcher);
    mrTrace.error("UNABLE_TO_INIT_MONI_THREAD: ");
    return UNABLE_TO_INIT_MONI_THREAD;
  }
  mrController.setDiagCtrlPhase(DiagControllerStatus::INITIALIZE, -1);
  return SUCCESS;
}

void DiagnosticController::Machinery::readMessageFilePath() {
  deleteTextAndNull(mrController.mpcMsgFilePath);  // of an earlier run
  mrController.mpcMsgFilePath = mrController.mpDiagCtrlConfig->readMessageFilePath();
  if (stringcmp1(mrController.mpcMsgFilePath, DiagCtrlConstants::mSconNull) == 0) {
    mrController.mbMsgFilePathFound = false;
  }
}

void DiagnosticController::Machinery::undoStart(ExecutionManagerThread* apDispatcher) {
  deleteThread(apDispatcher);
  deleteAndNull(mrController.mpResourceLockManager);
  deleteAndNull(mrController.mpTestRequestManager);
  deleteAndNull(mrController.mpEventManager);
  dropSettings();
  std::free(mrController.mpcCtrlConfigFilePath);
  mrController.mpcCtrlConfigFilePath = nullptr;
}

DiagnosticController::errorCode DiagnosticController::shutDown() {
  Call call(*this, "DiagnosticController::shutDown");
  struct Requested {
    Machinery& machinery;
    explicit Requested(Machinery& arMachinery) : machinery(arMachinery) {
      machinery.setShutDownRequest(true);
    }
    ~Requested() { machinery.setShutDownRequest(false); }
    Requested(const Requested&) = delete;
    Requested& operator=(const Requested&) = delete;
  };
  Machinery machinery(*this, call.trace());
  const Requested requested(machinery);
  return call.contain([&] { return machinery.shutDown(); });
}

DiagnosticController::errorCode DiagnosticController::Machinery::shutDown() {
  if (Reset::isUnderWayHere(mrController)) {
    Call::holdsApiPhaseLock(mrController);
    return takeDown();
  }
  const LockScope apiLock(mrController.mmtxApiPhaseLock, -1);
  return takeDown();
}

// Each step goes on where the one before could not end its work: without memory, say.
DiagnosticController::errorCode DiagnosticController::Machinery::takeDown() {
  attempt([&] {
    Call::holdsApiPhaseLock(mrController);
    stopTests();
  });
  attempt([&] {
    Call::holdsApiPhaseLock(mrController);
    stopThreads();
  });
  // A thread that is cancelled may leave while it waits, but nothing half torn down.
  const CancellationHeld held;
  // Opened again only in the new phase, at which the gate refuses by itself.
  const ClientCallClosure closure(*mrController.mpClientCalls);
  attempt([&] { dropRequestsAndRegistrations(); });
  attempt([&] {
    Call::holdsApiPhaseLock(mrController);
    const AtRestScope rest;
    dropCatalogue();
  });
  attempt([&] {
    const AtRestScope rest;
    dropManagersAndSettings();
  });
  TestRequestManager::resetRequestId();
  mrController.mpDiagCtrlStatus->restoreDiagCtrlPhase(DiagControllerStatus::UNINITIALISED);
  return SUCCESS;
}

// The flag changes also where its lock cannot be had: it must not stay behind.
void DiagnosticController::Machinery::setShutDownRequest(bool abShutDownRequest) {
  try {
    const LockScope lock(mrController.mmtxShutDownLock, 0);
    mrController.mbShutDownRequest = abShutDownRequest;
  } catch (const DiagCtrlMutexException&) {
    mrController.mbShutDownRequest = abShutDownRequest;
  }
}

void DiagnosticController::Machinery::stopTests() {
  kClientsAtRest.mayRead();
  TestRequestManager* requests = mrController.mpTestRequestManager;
  ResourceLockManager* resourceLocks = mrController.mpResourceLockManager;
  const bool isActive = swallowAll(requests != nullptr, [&] {
    return mrController.mpDiagCtrlStatus->getDiagCtrlPhase(-1) == DiagControllerStatus::ACTIVE;
  });
  if (!isActive) {
    return;
  }
  errorCode result = UNABLE_TO_GET_LOCK;
  try {
    TraceScope abortTrace(mrController.mpDiagTracer, "DiagnosticController::abortAllTest");
    result = Abort::all(mrController, abortTrace);
    Abort::workersLeft(mrController);
  } catch (const DiagCtrlMutexException&) {
    // Counts as an abort that failed.
  } catch (const ClientFailure& failure) {
    Call::pushError(mrController, failure.event);
    result = failure.result;
  } catch (const std::bad_alloc&) {
    Abort::oneByOne(mrController);
  }
  if (result != SUCCESS) {
    attempt([&] { mrTrace.error("UNABLE_TO_ABORT_TESTS: "); });
    Call::pushError(mrController, DiagCtrlEvent::UNABLE_TO_ABORT_TESTS);
  }
  attempt([&] { resourceLocks->resetResourceLockMap(-1); });
  attempt([&] { requests->clearTestRequestIdList(-1); });
}

// The monitor first: its end frees a dispatcher that waits for a verdict.
void DiagnosticController::Machinery::stopThreads() {
  MonitorThread* monitor = nullptr;
  ExecutionManagerThread* dispatcher = nullptr;
  {
    const System::LockHold hold(mrController.mThreadPointersMutex);
    monitor = mrController.mpMoniThread;
    dispatcher = mrController.mpExecMgrThread;
  }
  endThread(monitor);
  endThread(dispatcher);
  mrController.mbAbortAllFlag = false;
}

void DiagnosticController::Machinery::dropRequestsAndRegistrations() {
  kClientsAtRest.mayRead();
  if (TestRequestManager* requests = mrController.mpTestRequestManager; requests != nullptr) {
    try {
      requests->clearTestRequestMap();
      requests->deleteRetiredRequests();
    } catch (const DiagCtrlMutexException&) {
      tell(mrTrace, "WARNING: DiagCtrlMutexException");
    } catch (const std::bad_alloc&) {
      // They go with the manager.
    }
  }
  if (EventManager* messages = mrController.mpEventManager; messages != nullptr) {
    attempt([&] { messages->clearCtrlEventQueues(); });
    attempt([&] { messages->clearResultQueues(); });
    attempt([&] { messages->clearEventQueues(); });
  }
  for (const CallBackList& list :
       {CallBackList::ofEvents(mrController), CallBackList::ofResults(mrController),
        CallBackList::ofCtrlEvents(mrController)}) {
    attempt([&] {
      const LockScope lock(list.lock, 0);
      list.objects.clear();  // the objects are the clients'
    });
  }
}

// Each description goes before its library: the devices' code lies there.
void DiagnosticController::Machinery::dropCatalogue() {
  kClientsAtRest.standsFor(mrController.mmtxDisPackageListLock);
  kClientsAtRest.standsFor(mrController.mmtxPackageVectorLock);
  mrController.mDisablePackageList.clear();
  deleteAndNull(mrController.mpResourceLockManager);
  DiagnosticPackageInterface* loader = mrController.mpDiagPackInterface;
  const auto releaseLibrary = [&](void* apHandle) {
    try {
      loader->releaseLibrary(apHandle, kTimeOut);
    } catch (const DiagCtrlReleaseLibraryFailed&) {
      tell(mrTrace, "WARNING: DiagCtrlReleaseLibraryFailed");
    }
  };
  for (const auto& [index, package] : mrController.mPackageObjectMap) {
    void* handle = package->getPackageHandle();
    delete package;
    assertInvariant(loader != nullptr, "mpDiagPackInterface != 0");
    if (handle != nullptr) {
      attempt([&] { releaseLibrary(handle); });
    }
  }
  for (DiagnosticPackage* package : mrController.mLostPackages) {
    attempt([&] {
      const AtRestScope atRest;
      package->clearPackageData();  // an enumeration that broke off left it, and its library open
      package->deleteRetiredData();
    });
  }
  mrController.mLostPackages.clear();
  for (void* handle : mrController.mRetiredHandles) {
    attempt([&] { releaseLibrary(handle); });
  }
  mrController.mRetiredHandles.clear();
  mrController.mPackageObjectMap.clear();
  mrController.mPackageMap.clear();
  mrController.mvPackageNameVector.clear();
}

void DiagnosticController::Machinery::dropManagersAndSettings() {
  deleteAndNull(mrController.mpTestRequestManager);
  deleteAndNull(mrController.mpEventManager);
  dropSettings();
  deleteAndNull(mrController.mpDiagPackInterface);
}

void DiagnosticController::Machinery::dropSettings() {
  deleteAndNull(mrController.mpGlobalSettings);
  deleteTextAndNull(mrController.mpcPackDirPath);
  deleteTextAndNull(mrController.mpcLogDirPath);
  deleteAndNull(mrController.mpDiagCtrlConfig);
}

DiagnosticController::errorCode DiagnosticController::resetDiagController() {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::resetDiagController");
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
  const Reset reset(*this);
  kClientsAtRest.mayRead();
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

DiagnosticController::errorCode DiagnosticController::getDiagControllerStatus(
    DiagControllerStatus*& arDiagControllerStatus) noexcept {
  Call call(*this, "DiagnosticController::getDiagControllerStatus");
  return call.answerBehind(ClientCall::readHealth, [&] {
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
      return call.fail({DiagCtrlEvent::UNABLE_TO_SET_CTRL_PHASE, UNABLE_TO_SET_CTRL_PHASE});
    }
    arDiagControllerStatus = status.release();
    return SUCCESS;
  });
}

}  // namespace TarvexDiags::DiagCtrl
