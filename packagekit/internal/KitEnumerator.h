#pragma once

#include "DeviceEnum/IDeviceEnumerator.h"
#include "packagekit/Package.h"
#include "packagekit/internal/Module.h"

namespace TarvexDiags::PackageKit {

/// Finds the devices by way of the author's function, in a worker. Where that fails there is no
/// vector, so that the controller leaves the package out; the log and a client that wants it hear
/// why. Devices whose tags clash stay, as they only wait for each other; the log tells of them.
class KitEnumerator : public DeviceEnum::IDeviceEnumerator {
 public:
  KitEnumerator(Module& module, const Package& package, bool diagLog, DiagnosticMode mode);
  DeviceEnum::VirtualDeviceVector* getDeviceVector(const char* resourceString,
                                                   Uint deviceType) override;

 private:
  void reportFailure(const Discovered& found);
  void reportClashes();

  Module& m_module;
  const Package& m_package;
  DeviceEnum::VirtualDeviceVector m_devices;
};

}  // namespace TarvexDiags::PackageKit
