// Queries on packages, devices and tests.

#include <list>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/controller/Answer.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using Code = DiagnosticController;

constexpr auto kMinorLock = DiagCtrlBaseException::MutexException;
constexpr ClientFailure kDeviceNotFound{DiagCtrlEvent::DEVICE_NOT_FOUND, Code::DEVICE_NOT_FOUND};
// A lock failure on the way to a package, to the tests on offer and to the disabled devices raises
// the event of a missing object, but returns the code of the lock.
constexpr ClientFailure kPackageLockFailed{DiagCtrlEvent::OBJECT_NOT_FOUND,
                                           Code::UNABLE_TO_GET_LOCK};

DiagDevice* deviceOf(DiagnosticPackage& arPackage, int aiDeviceId) {
  return orFail(kUnableToGetLock, kDeviceNotFound, [&] { return arPackage.getDevice(aiDeviceId); });
}

PackageTestInfo* testOf(DiagnosticPackage& arPackage, unsigned int auiTestId) {
  return orFail(kTestObjectNotFound, kTestObjectNotFound,
                [&] { return arPackage.getTestInfoFromPackage(static_cast<int>(auiTestId)); });
}

/// A step that nothing but a lock can spoil.
template <class Step>
auto locking(ClientFailure aOnMutex, Step aStep) {
  return orFail(aOnMutex, aOnMutex, aStep);
}

void append(std::vector<int>& arIds, const std::list<int>& arList) {
  arIds.insert(arIds.end(), arList.begin(), arList.end());
}

void append(std::vector<int>& arIds, const std::map<int, int>& arMap) {
  for (const auto& entry : arMap) {
    arIds.push_back(entry.first);
  }
}

}  // namespace

DiagnosticPackage* DiagnosticController::getDiagPackagePtr(int iPackIndex) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::getDiagPackagePtr");
  const LockScope lock(mmtxPackageVectorLock, 0, kMinorLock,
                       "DiagnosticController::getDiagPackagePtr()");
  const auto entry = mPackageObjectMap.find(iPackIndex);
  if (entry == mPackageObjectMap.end()) {
    raise<DiagCtrlObjectNotFound>(DiagCtrlBaseException::ObjectNotFound,
                                  "DiagnosticController::getDiagPackagePtr()");
  }
  return entry->second;
}

template <class Steps>
DiagnosticController::errorCode DiagnosticController::query(const char* apcMethod, Steps aSteps) {
  TraceScope trace(mpDiagTracer, apcMethod);
  return answerInside(ClientCall::query, trace, [&] {
    aSteps();
    return SUCCESS;
  });
}

// The client gets a vector whatever follows, and owns it.
template <class Steps>
DiagnosticController::errorCode DiagnosticController::queryIds(const char* apcMethod,
                                                               std::vector<int>*& arpIds,
                                                               Steps aSteps) {
  return contain([&] {
    arpIds = new std::vector<int>;
    return query(apcMethod, [&] { aSteps(*arpIds); });
  });
}

DiagnosticPackage& DiagnosticController::packageOf(int aiPackageIndex) {
  return *orFail(kPackageLockFailed, kObjectNotFound,
                 [&] { return getDiagPackagePtr(aiPackageIndex); });
}

DiagnosticController::errorCode DiagnosticController::getNumberOfDiagPackages(
    int& ariNumberOfPackages) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getNumberOfDiagPackages");
  return contain([&] {
    if (const auto refused = refusal(ClientCall::query, trace)) {
      if (*refused == INCORRECT_PHASE) {
        ariNumberOfPackages = 0;
      }
      return *refused;
    }
    return countPackages(trace, ariNumberOfPackages);
  });
}

DiagnosticController::errorCode DiagnosticController::countPackages(TraceScope& arTrace,
                                                                    int& ariNumberOfPackages) {
  return answer(arTrace, [&] {
    locking(kUnableToGetLock, [&] {
      const LockScope apiLock(mmtxApiPhaseLock, 0);
      ariNumberOfPackages = 0;
      requireManagers();
      ariNumberOfPackages = static_cast<int>(mvPackageNameVector.size());
    });
    return SUCCESS;
  });
}

DiagnosticController::errorCode DiagnosticController::getDiagPackage(
    int packageIndex, DiagnosticPackage*& arpDiagPackage) {
  return query("DiagnosticController::getDiagPackage",
               [&] { arpDiagPackage = &packageOf(packageIndex); });
}

DiagnosticController::errorCode DiagnosticController::getDevice(int packageIndex,
                                                                unsigned int deviceId,
                                                                DiagDevice*& arpDiagDevice) {
  return query("DiagnosticController::getDevice", [&] {
    arpDiagDevice = deviceOf(packageOf(packageIndex), static_cast<int>(deviceId));
  });
}

DiagnosticController::errorCode DiagnosticController::getTest(int packageIndex, unsigned int testId,
                                                              PackageTestInfo*& arpTestInfo) {
  return query("DiagnosticController::getTest",
               [&] { arpTestInfo = testOf(packageOf(packageIndex), testId); });
}

DiagnosticController::errorCode DiagnosticController::getDeviceIdList(
    int packageIndex, std::vector<int>*& arpDeviceIdVector) {
  return queryIds(
      "DiagnosticController::getDeviceIdList", arpDeviceIdVector, [&](std::vector<int>& arIds) {
        // Alone of all, this call returns the missing object also for its lock.
        DiagnosticPackage* package = orFail(kObjectNotFound, kObjectNotFound,
                                            [&] { return getDiagPackagePtr(packageIndex); });
        append(arIds, locking(kUnableToGetLock, [&] { return package->getDeviceIdList(); }));
      });
}

DiagnosticController::errorCode DiagnosticController::getValidDeviceIdList(
    int packageIndex, unsigned int testId, std::vector<int>*& arpDeviceIdVector) {
  return queryIds("DiagnosticController::getValidDeviceIdList", arpDeviceIdVector,
                  [&](std::vector<int>& arIds) {
                    PackageTestInfo* test = testOf(packageOf(packageIndex), testId);
                    append(arIds,
                           locking(kUnableToGetLock, [&] { return test->getEnableDeviceList(); }));
                  });
}

DiagnosticController::errorCode DiagnosticController::getTestIdList(
    int packageIndex, std::vector<int>*& arpTestIdVector) {
  return queryIds(
      "DiagnosticController::getTestIdList", arpTestIdVector, [&](std::vector<int>& arIds) {
        DiagnosticPackage& package = packageOf(packageIndex);
        append(arIds, locking(kPackageLockFailed, [&] { return package.getTestIdMap(); }));
      });
}

DiagnosticController::errorCode DiagnosticController::getValidTestIdList(
    int packageIndex, unsigned int deviceId, std::vector<int>*& arpTestIdVector) {
  return queryIds(
      "DiagnosticController::getValidTestIdList", arpTestIdVector, [&](std::vector<int>& arIds) {
        DiagDevice* device = deviceOf(packageOf(packageIndex), static_cast<int>(deviceId));
        append(arIds, locking(kUnableToGetLock, [&] { return device->getEnableTestIdMap(); }));
      });
}

DiagnosticController::errorCode DiagnosticController::getDisablePackageList(
    PackageList*& arpPackageList) {
  return query("DiagnosticController::getDisablePackageList", [&] {
    locking(kUnableToGetLock, [&] {
      const LockScope lock(mmtxDisPackageListLock, 0);
      arpPackageList = new PackageList(mDisablePackageList);
    });
  });
}

DiagnosticController::errorCode DiagnosticController::getDisableTestList(
    int packageIndex, std::vector<int>*& arpTestIdVector) {
  return queryIds("DiagnosticController::getDisableTestList", arpTestIdVector,
                  [&](std::vector<int>& arIds) {
                    append(arIds, packageOf(packageIndex).getDisableTestList());
                  });
}

DiagnosticController::errorCode DiagnosticController::getDisableDeviceList(
    int packageIndex, unsigned int testId, std::vector<int>*& arpDeviceIdVector) {
  return queryIds(
      "DiagnosticController::getDisableDeviceList", arpDeviceIdVector,
      [&](std::vector<int>& arIds) {
        PackageTestInfo* test = testOf(packageOf(packageIndex), testId);
        append(arIds, locking(kPackageLockFailed, [&] { return test->getDisableDeviceList(); }));
      });
}

DiagnosticController::errorCode DiagnosticController::getDeviceStatus(
    int packageIndex, int deviceId, unsigned int& aruiDeviceStatus) {
  return query("DiagnosticController::getDeviceStatus", [&] {
    DiagDevice* device = deviceOf(packageOf(packageIndex), deviceId);
    locking(kUnableToGetLock, [&] {
      const LockScope lock(mmtxDeviceStatusLock, 0);
      aruiDeviceStatus = orPackageFailed(kDeviceNotFound, [&] {
        return device->getVirtualDeviceRef().getDevice()->getDeviceStatus();
      });
    });
  });
}

}  // namespace TarvexDiags::DiagCtrl
