// Queries on packages, devices and tests.

#include <list>
#include <memory>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/controller/Call.h"
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

DiagDevice* deviceOf(DiagnosticPackage& arPackage, int aiDeviceId) {
  return orFail({.onLock = kUnableToGetLock, .onMissing = kDeviceNotFound},
                [&] { return arPackage.getDevice(aiDeviceId); });
}

PackageTestInfo* testOf(DiagnosticPackage& arPackage, unsigned int auiTestId) {
  return orFail(kTestObjectNotFound,
                [&] { return arPackage.getTestInfoFromPackage(static_cast<int>(auiTestId)); });
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

/// A question about the catalogue.
class DiagnosticController::Query {
 public:
  /// @param apcMethod "Class::method", a literal.
  Query(DiagnosticController& arController, const char* apcMethod)
      : mCall(arController, apcMethod) {}

  /// @param aSteps is called with the way to the packages.
  template <class Steps>
  errorCode answer(Steps aSteps) {
    return mCall.answerInside(ClientCall::query, [&] {
      aSteps(mCall);
      return SUCCESS;
    });
  }

  // The client gets a vector whatever follows, and owns it.
  template <class Steps>
  errorCode answerIds(std::vector<int>*& arpIds, Steps aSteps) {
    return mCall.contain([&] {
      arpIds = new std::vector<int>;
      return answer([&](Call& arCall) { aSteps(arCall, *arpIds); });
    });
  }

  errorCode countPackages(int& ariNumberOfPackages);

 private:
  Call mCall;
};

DiagnosticController::errorCode DiagnosticController::Query::countPackages(
    int& ariNumberOfPackages) {
  return mCall.contain([&] {
    if (const auto refused = mCall.refusal(ClientCall::query)) {
      if (*refused == INCORRECT_PHASE) {
        ariNumberOfPackages = 0;
      }
      return *refused;
    }
    return mCall.answer([&] {
      orFail(kUnableToGetLock, [&] {
        DiagnosticController& controller = mCall.controller();
        const LockScope apiLock(controller.mmtxApiPhaseLock, 0);
        ariNumberOfPackages = 0;
        Call::requireManagers(controller);
        ariNumberOfPackages = static_cast<int>(controller.mvPackageNameVector.size());
      });
      return SUCCESS;
    });
  });
}

DiagnosticController::errorCode DiagnosticController::getNumberOfDiagPackages(
    int& ariNumberOfPackages) noexcept {
  return Query(*this, "DiagnosticController::getNumberOfDiagPackages")
      .countPackages(ariNumberOfPackages);
}

DiagnosticController::errorCode DiagnosticController::getDiagPackage(
    int packageIndex, DiagnosticPackage*& arpDiagPackage) noexcept {
  return Query(*this, "DiagnosticController::getDiagPackage").answer([&](Call& arCall) {
    arpDiagPackage = &arCall.packageOf(packageIndex);
  });
}

DiagnosticController::errorCode DiagnosticController::getDevice(
    int packageIndex, unsigned int deviceId, DiagDevice*& arpDiagDevice) noexcept {
  return Query(*this, "DiagnosticController::getDevice").answer([&](Call& arCall) {
    arpDiagDevice = deviceOf(arCall.packageOf(packageIndex), static_cast<int>(deviceId));
  });
}

DiagnosticController::errorCode DiagnosticController::getTest(
    int packageIndex, unsigned int testId, PackageTestInfo*& arpTestInfo) noexcept {
  return Query(*this, "DiagnosticController::getTest").answer([&](Call& arCall) {
    arpTestInfo = testOf(arCall.packageOf(packageIndex), testId);
  });
}

DiagnosticController::errorCode DiagnosticController::getDeviceIdList(
    int packageIndex, std::vector<int>*& arpDeviceIdVector) noexcept {
  return Query(*this, "DiagnosticController::getDeviceIdList")
      .answerIds(arpDeviceIdVector, [&](Call& /*arCall*/, std::vector<int>& arIds) {
        // Alone of all, this call returns the missing object also for its lock.
        DiagnosticPackage* package =
            orFail(kObjectNotFound, [&] { return getDiagPackagePtr(packageIndex); });
        append(arIds, orFail(kUnableToGetLock, [&] { return package->getDeviceIdList(); }));
      });
}

DiagnosticController::errorCode DiagnosticController::getValidDeviceIdList(
    int packageIndex, unsigned int testId, std::vector<int>*& arpDeviceIdVector) noexcept {
  return Query(*this, "DiagnosticController::getValidDeviceIdList")
      .answerIds(arpDeviceIdVector, [&](Call& arCall, std::vector<int>& arIds) {
        PackageTestInfo* test = testOf(arCall.packageOf(packageIndex), testId);
        append(arIds, orFail(kUnableToGetLock, [&] { return test->getEnableDeviceList(); }));
      });
}

DiagnosticController::errorCode DiagnosticController::getTestIdList(
    int packageIndex, std::vector<int>*& arpTestIdVector) noexcept {
  return Query(*this, "DiagnosticController::getTestIdList")
      .answerIds(arpTestIdVector, [&](Call& arCall, std::vector<int>& arIds) {
        DiagnosticPackage& package = arCall.packageOf(packageIndex);
        append(arIds, orFail(kPackageLockFailed, [&] { return package.getTestIdMap(); }));
      });
}

DiagnosticController::errorCode DiagnosticController::getValidTestIdList(
    int packageIndex, unsigned int deviceId, std::vector<int>*& arpTestIdVector) noexcept {
  return Query(*this, "DiagnosticController::getValidTestIdList")
      .answerIds(arpTestIdVector, [&](Call& arCall, std::vector<int>& arIds) {
        DiagDevice* device = deviceOf(arCall.packageOf(packageIndex), static_cast<int>(deviceId));
        append(arIds, orFail(kUnableToGetLock, [&] { return device->getEnableTestIdMap(); }));
      });
}

DiagnosticController::errorCode DiagnosticController::getDisablePackageList(
    PackageList*& arpPackageList) noexcept {
  return Query(*this, "DiagnosticController::getDisablePackageList").answer([&](Call& /*arCall*/) {
    orFail(kUnableToGetLock, [&] {
      const LockScope lock(mmtxDisPackageListLock, 0);
      arpPackageList = std::make_unique<PackageList>(mDisablePackageList).release();
    });
  });
}

DiagnosticController::errorCode DiagnosticController::getDisableTestList(
    int packageIndex, std::vector<int>*& arpTestIdVector) noexcept {
  return Query(*this, "DiagnosticController::getDisableTestList")
      .answerIds(arpTestIdVector, [&](Call& arCall, std::vector<int>& arIds) {
        append(arIds, arCall.packageOf(packageIndex).getDisableTestList());
      });
}

DiagnosticController::errorCode DiagnosticController::getDisableDeviceList(
    int packageIndex, unsigned int testId, std::vector<int>*& arpDeviceIdVector) noexcept {
  return Query(*this, "DiagnosticController::getDisableDeviceList")
      .answerIds(arpDeviceIdVector, [&](Call& arCall, std::vector<int>& arIds) {
        PackageTestInfo* test = testOf(arCall.packageOf(packageIndex), testId);
        append(arIds, orFail(kPackageLockFailed, [&] { return test->getDisableDeviceList(); }));
      });
}

DiagnosticController::errorCode DiagnosticController::getDeviceStatus(
    int packageIndex, int deviceId, unsigned int& aruiDeviceStatus) {
  return Query(*this, "DiagnosticController::getDeviceStatus").answer([&](Call& arCall) {
    DiagDevice* device = deviceOf(arCall.packageOf(packageIndex), deviceId);
    orFail(kUnableToGetLock, [&] {
      const LockScope lock(mmtxDeviceStatusLock, 0);
      aruiDeviceStatus = orPackageFailed(kDeviceNotFound, [&] {
        return device->getVirtualDeviceRef().getDevice()->getDeviceStatus();
      });
    });
  });
}

}  // namespace TarvexDiags::DiagCtrl
