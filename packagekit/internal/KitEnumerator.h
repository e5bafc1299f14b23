#pragma once

#include "DeviceEnum/IDeviceEnumerator.h"
#include "packagekit/Package.h"
#include "packagekit/internal/Module.h"

namespace TarvexDiags::PackageKit {

/// Finds the devices by way of the author's function. Devices without a name or a tag are left out;
/// those whose tags clash stay, as they only wait for each other. The log tells of both.
class KitEnumerator : public DeviceEnum::IDeviceEnumerator {
 public:
  KitEnumerator(Module& module, const Package& package, bool diagLog, DiagnosticMode mode);
  DeviceEnum::VirtualDeviceVector* getDeviceVector(const char* resourceString,
                                                   Uint deviceType) override;

 private:
  std::vector<Device> findDevices(const char* resourceString, Uint deviceType);
  void reportClashes();

  Module& m_module;
  const Package& m_package;
  DeviceEnum::VirtualDeviceVector m_devices;
};

}  // namespace TarvexDiags::PackageKit
