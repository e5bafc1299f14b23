#include "DiagCtrl/DiagDevice.h"

#include <vector>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

DiagDevice::DiagDevice(const DeviceEnum::VirtualDevice& aVDevice)
    : mmtxTestIdMapLock(DiagCtrlConstants::mSconlDefaultLockTimeOut),
      mpDiagTracer(DiagTracer::getInstance()),
      mVDevice(aVDevice) {}

DiagDevice::~DiagDevice() = default;

DeviceEnum::VirtualDevice& DiagDevice::getVirtualDeviceRef() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagDevice::getVirtualDeviceRef");
  return mVDevice;
}

const DeviceEnum::IDevice* DiagDevice::getIDevice() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagDevice::getIDevice");
  return mVDevice.getDevice();
}

void DiagDevice::updateTestIdMap(int iTestId) {
  const TraceScope trace(mpDiagTracer, "DiagDevice::updateTestIdMap");
  kClientsAtRest.standsFor(mmtxTestIdMapLock);
  mTestIdMap.emplace(iTestId, 0);
}

TestIdMap DiagDevice::getEnableTestIdMap() {
  const TraceScope trace(mpDiagTracer, "DiagDevice::getEnableTestIdMap");
  const LockScope lock(mmtxTestIdMapLock, 0, DiagCtrlBaseException::MutexException,
                       "DiagDevice::getEnableTestIdMap()");
  return mTestIdMap;
}

void DiagDevice::updateDisableTestList(int aiTestId) {
  const TraceScope trace(mpDiagTracer, "DiagDevice::updateDisableTestList");
  mDisableTestList.push_back(aiTestId);
}

void DiagDevice::getDisbleTestList(std::vector<int>*& arexpTestVector) {
  const TraceScope trace(mpDiagTracer, "DiagDevice::getDisbleTestList");
  kClientsAtRest.mayRead();
  arexpTestVector = new std::vector<int>(mDisableTestList.begin(), mDisableTestList.end());
}

}  // namespace TarvexDiags::DiagCtrl
