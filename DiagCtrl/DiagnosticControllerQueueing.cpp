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
#include "DiagCtrl/internal/controller/Answer.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Swallow.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using Code = DiagnosticController;
using Settings = Diag::DiagnosticSettings;

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr ClientFailure kDeviceObjectNotFound{DiagCtrlEvent::DEVICE_OBJECT_NOT_FOUND,
                                              Code::DEVICE_OBJECT_NOT_FOUND};
constexpr ClientFailure kPackageNotFound{DiagCtrlEvent::PACKAGE_NOT_FOUND, Code::PACKAGE_NOT_FOUND};
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

bool DiagnosticController::validateDiagSettings(Diag::DiagnosticSettings& arDiagSettings,
                                                errorCode& arErorCode) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::validateDiagSettings");
  for (const SettingCheck& check : kChecks) {
    if (check.isBad(arDiagSettings)) {
      trace.error(check.text);
      arErorCode = fail(trace, check.failure.event, check.failure.result);
      return false;
    }
  }
  return true;
}

// Loads the library once more: each request has a reference and a diagnostics object of its own.
unsigned long DiagnosticController::queueRequest(const char* apcPackageName,
                                                 TestRequest* apTestRequest) {
  using C = DiagCtrlConstants;
  const TraceScope trace(mpDiagTracer, "DiagnosticController::queueRequest");
  const std::string directory = std::string(mpcPackDirPath) + C::mSconpcDoubleSlash;
  const std::string config = directory + apcPackageName + C::mSconpcIni;
  const std::string library = directory + C::mSconpcLib + apcPackageName + C::mSconpcDll;
  const bool diagLog = mpGlobalSettings->getDiagLogMode();
  const GlobalSettings::diagMode diagMode = mpGlobalSettings->getDiagnosticMode();
  LoadedLibrary loaded(trace, *mpDiagPackInterface, library);
  std::unique_ptr<Diag::IDiagnostics> pIDiagnostics(withoutItsCode(kUnableToAdd, [&] {
    return mpDiagPackInterface->getIDiagnostics(loaded.handle(), config.c_str(), diagLog, diagMode);
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
  TraceScope trace(mpDiagTracer, "DiagnosticController::queueTest");
  return queueOnDevice(trace, packageIndex, deviceId, &testVector, abHaltLoopOnError,
                       arDiagSettings, rulTestRequestId);
}

DiagnosticController::errorCode DiagnosticController::queueTest(
    int packageIndex, unsigned int deviceId, std::vector<int>& testVector,
    Diag::DiagnosticSettings& arDiagSettings, unsigned long& rulTestRequestId) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::queueTest");
  return queueOnDevice(trace, packageIndex, deviceId, &testVector, std::nullopt, arDiagSettings,
                       rulTestRequestId);
}

DiagnosticController::errorCode DiagnosticController::queueTest(
    int packageIndex, unsigned int deviceId, Diag::DiagnosticSettings& arDiagSettings,
    unsigned long& rulTestRequestId) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::queueTest");
  return queueOnDevice(trace, packageIndex, deviceId, nullptr, std::nullopt, arDiagSettings,
                       rulTestRequestId);
}

DiagnosticController::errorCode DiagnosticController::queueOnDevice(
    TraceScope& arTrace, int packageIndex, unsigned int deviceId, const std::vector<int>* apTests,
    std::optional<bool> aHaltLoopOnError, Diag::DiagnosticSettings& arDiagSettings,
    unsigned long& rulTestRequestId) {
  return answerBehind(ClientCall::queue, arTrace, [&] {
    if (apTests != nullptr && apTests->empty()) {
      return TEST_VECTOR_IS_EMPTY;
    }
    errorCode invalid = SUCCESS;
    if (!validateDiagSettings(arDiagSettings, invalid)) {
      return invalid;
    }
    const LockScope apiLock(mmtxApiPhaseLock, 0, kUnableToGetLock);
    requireManagers();
    DiagnosticPackage& package = packageOf(packageIndex);
    rulTestRequestId = queueForDevice(package, packageIndex, static_cast<int>(deviceId), apTests,
                                      aHaltLoopOnError, arDiagSettings);
    if (rulTestRequestId == 0) {
      throw kUnableToAdd;
    }
    becomeActive(kUnableToSetPhase);
    return SUCCESS;
  });
}

// The requests of earlier devices stay queued when a later one fails.
DiagnosticController::errorCode DiagnosticController::queueTest(
    int packageIndex, Diag::DiagnosticSettings& arDiagSettings,
    VectorTestReqId*& aVectorTestReqId) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::queueTest");
  return answerBehind(ClientCall::queue, trace, [&] {
    errorCode invalid = SUCCESS;
    if (!validateDiagSettings(arDiagSettings, invalid)) {
      return invalid;
    }
    const LockScope apiLock(mmtxApiPhaseLock, 0, kUnableToGetLock);
    requireManagers();
    DiagnosticPackage& package = packageOf(packageIndex);
    const std::list<int> devices =
        orFail(kUnableToGetLock, kUnableToGetLock, [&] { return package.getDeviceIdList(); });
    if (devices.empty()) {
      throw kDeviceObjectNotFound;
    }
    auto made = std::make_unique<VectorTestReqId>();
    made->reserve(devices.size());  // the id of a request that was queued is not lost
    aVectorTestReqId = made.release();
    for (const int device : devices) {
      const unsigned long id =
          queueForDevice(package, packageIndex, device, nullptr, std::nullopt, arDiagSettings);
      if (id == 0) {
        throw kUnableToAdd;
      }
      aVectorTestReqId->push_back(id);
    }
    becomeActive(kUnableToSetPhaseOfAll);
    return SUCCESS;
  });
}

// Only now: the request already stands in the queue, and the monitor polls nothing before.
template <class Failure>
void DiagnosticController::becomeActive(Failure aFailure) {
  orFail(aFailure, aFailure,
         [&] { mpDiagCtrlStatus->setDiagCtrlPhase(DiagControllerStatus::ACTIVE, kTimeOut); });
}

unsigned long DiagnosticController::queueForDevice(DiagnosticPackage& arPackage, int packageIndex,
                                                   int deviceId, const std::vector<int>* apTests,
                                                   std::optional<bool> aHaltLoopOnError,
                                                   Diag::DiagnosticSettings& arDiagSettings) {
  auto settings = std::make_unique<Diag::DiagnosticSettings>(arDiagSettings);
  DiagDevice* device = orFail(kUnableToGetLock, kDeviceObjectNotFound,
                              [&] { return arPackage.getDevice(deviceId); });
  DiagIntList tests;
  if (apTests != nullptr) {
    tests.assign(apTests->begin(), apTests->end());
  }
  auto request = std::make_unique<TestRequest>(arPackage, *device, tests, settings.get());
  static_cast<void>(settings.release());  // the request's now
  if (mpGlobalSettings == nullptr || mpcPackDirPath == nullptr) {
    throw kUnableToAdd;  // lost to a second initialize with a bad file
  }
  request->setHaltLoopOnError(orFail(kUnableToGetLock, kUnableToGetLock, [&] {
    return aHaltLoopOnError.has_value() ? *aHaltLoopOnError : mpGlobalSettings->getHaltOnError();
  }));
  const auto name = mPackageMap.find(packageIndex);
  if (name == mPackageMap.end()) {
    throw kPackageNotFound;
  }
  const unsigned long id =
      orFail(kUnableToAdd, kUnableToAdd, [&] { return loadAndQueue(name->second, *request); });
  if (id != 0) {
    static_cast<void>(request.release());  // the manager's now
  }
  return id;
}

unsigned long DiagnosticController::loadAndQueue(const char* apcPackageName,
                                                 TestRequest& arTestRequest) {
  try {
    return queueRequest(apcPackageName, &arTestRequest);
  } catch (const DiagCtrlFunctionNotFoundInDll&) {
    throw ClientFailure{DiagCtrlEvent::FUNCTION_NOT_FOUND_IN_DLL, FUNCTION_NOT_FOUND_IN_DLL};
  } catch (const DiagCtrlLoadLibraryFailed&) {
    throw ClientFailure{DiagCtrlEvent::LOAD_LIBRARY_FAILED, LOAD_LIBRARY_FAILED};
  }
}

}  // namespace TarvexDiags::DiagCtrl
