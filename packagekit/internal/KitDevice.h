#pragma once

#include "DeviceEnum/IDevice.h"
#include "packagekit/Device.h"
#include "packagekit/Package.h"
#include "packagekit/internal/DiscoveryFrames.h"
#include "packagekit/internal/Module.h"

namespace TarvexDiags::PackageKit {

/// A device of the package, as the controller sees it.
class KitDevice : public DeviceEnum::IDevice {
 public:
  KitDevice(Module& module, const Package& package, FoundDevice found);
  unsigned int getDeviceStatus() override;

  const Device& description() const { return m_found.device; }

  /// What discovery has found out of a test.
  Support supports(int testId) const;

 private:
  Module& m_module;
  const Package& m_package;
  const FoundDevice m_found;
};

}  // namespace TarvexDiags::PackageKit
