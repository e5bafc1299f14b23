// The four forms of queueTest.

#include <cxxabi.h>

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Diag/DiagnosticSettings.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlFunctionNotFoundInDll.h"
#include "DiagCtrl/DiagCtrlLoadLibraryFailed.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/Call.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/PackageFiles.h"
#include "DiagCtrl/internal/foundation/Swallow.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using Code = DiagnosticController;
using Settings = Diag::DiagnosticSettings;

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr ClientFailure kDeviceObjectNotFound{DiagCtrlEvent::DEVICE_OBJECT_NOT_FOUND,
                                              Code::DEVICE_OBJECT_NOT_FOUND};
constexpr ClientFailure kUnableToAdd{DiagCtrlEvent::UNABLE_TO_ADD_TEST_REQUEST,
                                     Code::UNABLE_TO_ADD_TEST_REQUEST};
constexpr ClientFailure kUnableToSetPhase{DiagCtrlEvent::UNABLE_TO_SET_CTRL_PHASE,
                                          Code::UNABLE_TO_SET_CTRL_PHASE};
constexpr ClientFailure kUnableToSetPhaseOfAll{DiagCtrlEvent::UNABLE_TO_ADD_TEST_REQUEST,
                                               Code::UNABLE_TO_SET_CTRL_PHASE};

/// One check of a client's settings.
struct SettingCheck {
  bool (*isBad)(Settings&);
  const char* text;
  ClientFailure failure;
};

// A bool is read as the byte that it is: a client may have filled it with anything.
bool isNoBool(int aiByte) {
  return aiByte != 0 && aiByte != 1;
}

const SettingCheck kChecks[] = {
    {[](Settings& arSettings) { return arSettings.getRequestedPassCount() == 0; },
     "INCORRECT PASS COUNT:",
     {DiagCtrlEvent::INVALID_PASS_COUNT, Code::INVALID_PASS_COUNT}},
    {[](Settings& arSettings) { return arSettings.getRunTime() == 0; },
     "INCORRECT RUN TIME:",
     {DiagCtrlEvent::INVALID_RUN_TIME, Code::INVALID_RUN_TIME}},
    {[](Settings& arSettings) { return isNoBool(arSettings.getHaltOnError()); },
     "INVALID HALT ON ERROR:",
     {DiagCtrlEvent::INVALID_HALT_ON_EEROR, Code::INVALID_HALT_ON_EEROR}},
    {[](Settings& arSettings) { return isNoBool(arSettings.getQuickTestMode()); },
     "INVALID QIUCK TEST MODE:",
     {DiagCtrlEvent::INVALID_QIUCK_TEST_MODE, Code::INVALID_QIUCK_TEST_MODE}},
    {[](Settings& arSettings) { return isNoBool(arSettings.getStressMode()); },
     "INVALID STRESS MODE:",
     {DiagCtrlEvent::INVALID_STRESS_MODE, Code::INVALID_STRESS_MODE}},
};

/// A library that was loaded for a request, given back unless it is kept.
class LoadedLibrary {
 public:
  LoadedLibrary(const TraceScope& arTrace, DiagnosticPackageInterface& arLoader,
                const std::string& arPath)
      : mrTrace(arTrace), mrLoader(arLoader), mHandle(arLoader.loadPackage(arPath.c_str())) {}
  ~LoadedLibrary() {
    if (mHandle != nullptr) {
      swallowAll(
          false, [&] { return mrLoader.releaseLibrary(mHandle, kTimeOut), true; },
          [&](const std::string& arReason) {
            mrTrace.error(std::string(mrTrace.method()) + " - " + arReason);
          });
    }
  }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;

  pDllHandle handle() const { return mHandle; }
  void keep() { mHandle = nullptr; }

 private:
  const TraceScope& mrTrace;
  DiagnosticPackageInterface& mrLoader;
  pDllHandle mHandle;
};

/// Runs a step that calls into a library. Only failures whose code lies elsewhere leave it, so that
/// the library may be given back behind them: copies of those that have an answer of their own, and
/// `aOnForeign` for all others.
template <class Step>
auto withoutItsCode(ClientFailure aOnForeign, Step aStep) {
  try {
    return aStep();
  } catch (const DiagCtrlFunctionNotFoundInDll& failure) {
    throw DiagCtrlFunctionNotFoundInDll(failure);
  } catch (const DiagCtrlMutexException& failure) {
    throw DiagCtrlMutexException(failure);
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    throw aOnForeign;
  }
}

}  // namespace

/// One call of `queueTest`.
class DiagnosticController::Queueing {
 public:
  /// What is queued, in one request or several.
  struct Order {
    int packageIndex;
    const std::vector<int>* tests = nullptr;             ///< null: all that are enabled
    std::optional<bool> haltLoopOnError = std::nullopt;  ///< none: as the run-wide setting says
    Diag::DiagnosticSettings& settings;
  };

  Queueing(DiagnosticController& arController, const Order& arOrder)
      : mrController(arController),
        mOrder(arOrder),
        mCall(arController, "DiagnosticController::queueTest") {}

  errorCode onDevice(unsigned int auiDeviceId, unsigned long& arulTestRequestId);
  errorCode onAllDevices(VectorTestReqId*& arpTestRequestIds);

 private:
  /// @return the id of the request; 0 if the package gave nothing to run it with.
  unsigned long queue(DiagnosticPackage& arPackage, int aiDeviceId);
  unsigned long loadAndQueue(const char* apcPackageName, TestRequest& arTestRequest);
  bool haltsLoopOnError();
  void becomeActive(const ClientFailure& arFailure);

  DiagnosticController& mrController;
  const Order mOrder;
  Call mCall;
};

bool DiagnosticController::validateDiagSettings(Diag::DiagnosticSettings& arDiagSettings,
                                                errorCode& arErorCode) {
  Call call(*this, "DiagnosticController::validateDiagSettings");
  for (const SettingCheck& check : kChecks) {
    if (check.isBad(arDiagSettings)) {
      call.trace().error(check.text);
      arErorCode = call.fail(check.failure);
      return false;
    }
  }
  return true;
}

// Loads the library once more: each request has a reference and a diagnostics object of its own.
unsigned long DiagnosticController::queueRequest(const char* apcPackageName,
                                                 TestRequest* apTestRequest) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::queueRequest");
  kClientsAtRest.mayRead();
  const std::string config = packageConfiguration(mpcPackDirPath, apcPackageName);
  const std::string library = std::string(mpcPackDirPath) + DiagCtrlConstants::mSconpcDoubleSlash +
                              packageLibrary(apcPackageName);
  const bool diagLog = mpGlobalSettings->getDiagLogMode();
  const GlobalSettings::diagMode diagMode = mpGlobalSettings->getDiagnosticMode();
  DiagnosticPackageInterface& loader = *mpDiagPackInterface;
  LoadedLibrary loaded(trace, loader, library);
  std::unique_ptr<Diag::IDiagnostics> pIDiagnostics(withoutItsCode(kUnableToAdd, [&] {
    return loader.getIDiagnostics(loaded.handle(), config.c_str(), diagLog, diagMode);
  }));
  if (pIDiagnostics == nullptr) {
    loaded.keep();  // open for good: a package that gave nothing may have kept something running
    return 0;
  }
  apTestRequest->setHandle(loaded.handle());
  loaded.keep();
  apTestRequest->setIDiagnostics(pIDiagnostics.get());
  static_cast<void>(pIDiagnostics.release());
  apTestRequest->setTestRequestStatus(TestRequest::WAIT);
  return mpTestRequestManager->queueTestRequest(apTestRequest);
}

DiagnosticController::errorCode DiagnosticController::queueTest(
    int packageIndex, unsigned int deviceId, std::vector<int>& testVector,
    Diag::DiagnosticSettings& arDiagSettings, bool abHaltLoopOnError,
    unsigned long& rulTestRequestId) {
  return Queueing(*this, {.packageIndex = packageIndex,
                          .tests = &testVector,
                          .haltLoopOnError = abHaltLoopOnError,
                          .settings = arDiagSettings})
      .onDevice(deviceId, rulTestRequestId);
}

DiagnosticController::errorCode DiagnosticController::queueTest(
    int packageIndex, unsigned int deviceId, std::vector<int>& testVector,
    Diag::DiagnosticSettings& arDiagSettings, unsigned long& rulTestRequestId) {
  return Queueing(*this,
                  {.packageIndex = packageIndex, .tests = &testVector, .settings = arDiagSettings})
      .onDevice(deviceId, rulTestRequestId);
}

DiagnosticController::errorCode DiagnosticController::queueTest(
    int packageIndex, unsigned int deviceId, Diag::DiagnosticSettings& arDiagSettings,
    unsigned long& rulTestRequestId) {
  return Queueing(*this, {.packageIndex = packageIndex, .settings = arDiagSettings})
      .onDevice(deviceId, rulTestRequestId);
}

DiagnosticController::errorCode DiagnosticController::queueTest(
    int packageIndex, Diag::DiagnosticSettings& arDiagSettings,
    VectorTestReqId*& aVectorTestReqId) {
  return Queueing(*this, {.packageIndex = packageIndex, .settings = arDiagSettings})
      .onAllDevices(aVectorTestReqId);
}

DiagnosticController::errorCode DiagnosticController::Queueing::onDevice(
    unsigned int auiDeviceId, unsigned long& arulTestRequestId) {
  return mCall.answerBehind(ClientCall::queue, [&] {
    if (mOrder.tests != nullptr && mOrder.tests->empty()) {
      return TEST_VECTOR_IS_EMPTY;
    }
    errorCode invalid = SUCCESS;
    if (!mrController.validateDiagSettings(mOrder.settings, invalid)) {
      return invalid;
    }
    const LockScope apiLock(mrController.mmtxApiPhaseLock, 0, kUnableToGetLock);
    Call::requireManagers(mrController);
    DiagnosticPackage& package = mCall.packageOf(mOrder.packageIndex);
    arulTestRequestId = queue(package, static_cast<int>(auiDeviceId));
    if (arulTestRequestId == 0) {
      throw kUnableToAdd;
    }
    becomeActive(kUnableToSetPhase);
    return SUCCESS;
  });
}

// The requests of earlier devices stay queued when a later one fails.
DiagnosticController::errorCode DiagnosticController::Queueing::onAllDevices(
    VectorTestReqId*& arpTestRequestIds) {
  return mCall.answerBehind(ClientCall::queue, [&] {
    errorCode invalid = SUCCESS;
    if (!mrController.validateDiagSettings(mOrder.settings, invalid)) {
      return invalid;
    }
    const LockScope apiLock(mrController.mmtxApiPhaseLock, 0, kUnableToGetLock);
    Call::requireManagers(mrController);
    DiagnosticPackage& package = mCall.packageOf(mOrder.packageIndex);
    const std::list<int> devices =
        orFail(kUnableToGetLock, [&] { return package.getDeviceIdList(); });
    if (devices.empty()) {
      throw kDeviceObjectNotFound;
    }
    auto made = std::make_unique<VectorTestReqId>();
    made->reserve(devices.size());  // the id of a request that was queued is not lost
    arpTestRequestIds = made.release();
    for (const int device : devices) {
      const unsigned long id = queue(package, device);
      if (id == 0) {
        throw kUnableToAdd;
      }
      arpTestRequestIds->push_back(id);
    }
    becomeActive(kUnableToSetPhaseOfAll);
    return SUCCESS;
  });
}

// Only now: the request already stands in the queue, and the monitor polls nothing before.
void DiagnosticController::Queueing::becomeActive(const ClientFailure& arFailure) {
  orFail(arFailure, [&] {
    mrController.mpDiagCtrlStatus->setDiagCtrlPhase(DiagControllerStatus::ACTIVE, kTimeOut);
  });
}

unsigned long DiagnosticController::Queueing::queue(DiagnosticPackage& arPackage, int aiDeviceId) {
  const QuietScope quiet;
  kClientsAtRest.mayRead();
  auto settings = std::make_unique<Diag::DiagnosticSettings>(mOrder.settings);
  DiagDevice* device = orFail({.onLock = kUnableToGetLock, .onMissing = kDeviceObjectNotFound},
                              [&] { return arPackage.getDevice(aiDeviceId); });
  DiagIntList tests;
  if (mOrder.tests != nullptr) {
    tests.assign(mOrder.tests->begin(), mOrder.tests->end());
  }
  auto request = std::make_unique<TestRequest>(arPackage, *device, tests, settings.get());
  static_cast<void>(settings.release());  // the request's now
  if (mrController.mpGlobalSettings == nullptr || mrController.mpcPackDirPath == nullptr) {
    throw kUnableToAdd;  // lost to a second initialize with a bad file
  }
  request->setHaltLoopOnError(orFail(kUnableToGetLock, [&] { return haltsLoopOnError(); }));
  const auto name = mrController.mPackageMap.find(mOrder.packageIndex);
  if (name == mrController.mPackageMap.end()) {
    throw kPackageNotFound;
  }
  const unsigned long id =
      orFail(kUnableToAdd, [&] { return loadAndQueue(name->second, *request); });
  if (id != 0) {
    static_cast<void>(request.release());  // the manager's now
  }
  return id;
}

bool DiagnosticController::Queueing::haltsLoopOnError() {
  kClientsAtRest.mayRead();
  return mOrder.haltLoopOnError.has_value() ? *mOrder.haltLoopOnError
                                            : mrController.mpGlobalSettings->getHaltOnError();
}

unsigned long DiagnosticController::Queueing::loadAndQueue(const char* apcPackageName,
                                                           TestRequest& arTestRequest) {
  try {
    return mrController.queueRequest(apcPackageName, &arTestRequest);
  } catch (const DiagCtrlFunctionNotFoundInDll&) {
    throw ClientFailure{DiagCtrlEvent::FUNCTION_NOT_FOUND_IN_DLL, FUNCTION_NOT_FOUND_IN_DLL};
  } catch (const DiagCtrlLoadLibraryFailed&) {
    throw ClientFailure{DiagCtrlEvent::LOAD_LIBRARY_FAILED, LOAD_LIBRARY_FAILED};
  }
}

}  // namespace TarvexDiags::DiagCtrl
