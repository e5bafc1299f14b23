#pragma once

#include <list>
#include <map>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DeviceEnum/VirtualDevice.h"
#include "DiagCtrl/ClientsAtRest.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

typedef std::map<int, int> TestIdMap;  ///< test id to 0

/// One device of a package, with the tests that can run on it and those that are disabled on it.
/// A test that the package does not support on the device is in neither.
///
/// Thread-safety: the updates run during enumeration only; the getters at any time.
class TARVEXDIAGS_EXPORT DiagDevice {
 public:
  /// @param aVDevice copied; the copy stands for the same device.
  explicit DiagDevice(const DeviceEnum::VirtualDevice& aVDevice);
  DiagDevice(const DiagDevice&) = delete;
  DiagDevice& operator=(const DiagDevice&) = delete;
  virtual ~DiagDevice();

  /// The object's own device, by which a test reaches the hardware.
  DeviceEnum::VirtualDevice& getVirtualDeviceRef() noexcept;
  const DeviceEnum::IDevice* getIDevice() noexcept;

  void updateTestIdMap(int iTestId) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  /// The enabled tests, by id. @throws DiagCtrlMutexException
  TestIdMap getEnableTestIdMap();
  void updateDisableTestList(int aiTestId) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  /// Makes a new vector of the disabled tests' ids, which the caller owns.
  void getDisbleTestList(std::vector<int>*& arexpTestVector);

 private:
  TestIdMap mTestIdMap TARVEXDIAGS_GUARDED_BY(mmtxTestIdMapLock);
  std::list<int> mDisableTestList TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  DiagCtrlLock mmtxTestIdMapLock;
  DiagTracer* mpDiagTracer;
  DeviceEnum::VirtualDevice mVDevice;
};

}  // namespace TarvexDiags::DiagCtrl
