#include "packagekit/internal/KitDevice.h"

#include <utility>

#include "packagekit/KitEvents.h"
#include "packagekit/internal/Guard.h"

namespace TarvexDiags::PackageKit {

KitDevice::KitDevice(Module& module, const Package& package, Device device)
    : IDevice(device.resourceTag, device.name,
              device.disableName.empty() ? device.name : device.disableName),
      m_module(module),
      m_package(package),
      m_device(std::move(device)) {}

unsigned int KitDevice::getDeviceStatus() {
  if (m_module.hungWorker(getResourceTag())) {
    return DEVICE_STATUS_HUNG;
  }
  unsigned int status = 0;
  const auto failure = failureOf([&] { status = m_package.statusOf(m_device); });
  return failure ? DEVICE_STATUS_UNKNOWN : status;
}

}  // namespace TarvexDiags::PackageKit
