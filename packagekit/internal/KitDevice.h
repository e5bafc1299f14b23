#pragma once

#include "DeviceEnum/IDevice.h"
#include "packagekit/Device.h"
#include "packagekit/Package.h"
#include "packagekit/internal/Module.h"

namespace TarvexDiags::PackageKit {

/// A device of the package, as the controller sees it.
class KitDevice : public DeviceEnum::IDevice {
 public:
  KitDevice(Module& module, const Package& package, Device device);
  unsigned int getDeviceStatus() override;

  const Device& description() const { return m_device; }

 private:
  Module& m_module;
  const Package& m_package;
  const Device m_device;
};

}  // namespace TarvexDiags::PackageKit
