#include "packagekit/internal/KitDevice.h"

#include <utility>

#include "packagekit/KitEvents.h"
#include "packagekit/internal/Guard.h"

namespace TarvexDiags::PackageKit {

KitDevice::KitDevice(Module& module, const Package& package, FoundDevice found)
    : IDevice(found.device.resourceTag, found.device.name,
              found.device.disableName.empty() ? found.device.name : found.device.disableName),
      m_module(module),
      m_package(package),
      m_found(std::move(found)) {}

unsigned int KitDevice::getDeviceStatus() {
  if (m_module.hungWorker(getResourceTag())) {
    return DEVICE_STATUS_HUNG;
  }
  unsigned int status = 0;
  const auto failure = failureOf([&] { status = m_package.statusOf(m_found.device); });
  return failure ? DEVICE_STATUS_UNKNOWN : status;
}

Support KitDevice::supports(int testId) const {
  const auto answer = m_found.support.find(testId);
  return answer == m_found.support.end() ? Support::no(Contract::kNoSuchTest) : answer->second;
}

}  // namespace TarvexDiags::PackageKit
