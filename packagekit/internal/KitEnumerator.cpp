#include "packagekit/internal/KitEnumerator.h"

#include <utility>

#include "packagekit/ResourceTags.h"
#include "packagekit/internal/Guard.h"
#include "packagekit/internal/KitDevice.h"

namespace TarvexDiags::PackageKit {

KitEnumerator::KitEnumerator(Module& module, const Package& package, bool diagLog,
                             DiagnosticMode mode)
    : IDeviceEnumerator(diagLog, mode), m_module(module), m_package(package) {}

DeviceEnum::VirtualDeviceVector* KitEnumerator::getDeviceVector(const char* resourceString,
                                                                Uint deviceType) {
  m_devices.clear();
  // What was found hanging before gets a new chance.
  m_module.forgetHung();
  for (Device& device : findDevices(resourceString, deviceType)) {
    if (device.name.empty() || device.resourceTag.empty()) {
      m_module.log("a device without a name or a resource tag is left out: '" + device.name +
                   "', '" + device.resourceTag + "'");
      continue;
    }
    m_devices.emplace_back(new KitDevice(m_module, m_package, std::move(device)));
  }
  reportClashes();
  return &m_devices;
}

std::vector<Device> KitEnumerator::findDevices(const char* resourceString, Uint deviceType) {
  std::vector<Device> found;
  const auto failure = failureOf([&] {
    Environment environment = m_module.environment(m_diagMode);
    environment.resourceString = resourceString == nullptr ? "" : resourceString;
    environment.deviceType = deviceType;
    found = m_package.findDevices(environment);
  });
  if (failure) {
    m_module.log("no devices, as looking for them failed: " + *failure);
  }
  return found;
}

void KitEnumerator::reportClashes() {
  std::vector<std::string> tags;
  for (auto& device : m_devices) {
    tags.push_back(device.getDevice()->getResourceTag());
  }
  for (const std::string& clash : findTagClashes(tags)) {
    m_module.log("resource tags clash: " + clash);
  }
}

}  // namespace TarvexDiags::PackageKit
