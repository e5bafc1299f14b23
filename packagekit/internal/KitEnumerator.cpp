#include "packagekit/internal/KitEnumerator.h"

#include <utility>

#include "packagekit/ResourceTags.h"
#include "packagekit/contract/DiscoveryLines.h"
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
  Discovered found;
  auto failure = failureOf([&] {
    found =
        m_module.discover(m_diagMode, resourceString == nullptr ? "" : resourceString, deviceType);
    for (FoundDevice& device : found.devices) {
      m_devices.emplace_back(new KitDevice(m_module, m_package, std::move(device)));
    }
    reportClashes();
  });
  if (failure) {
    found.failure = std::move(failure);
  }
  if (found.failure) {
    failureOf([&] { reportFailure(found); });
    return nullptr;
  }
  return &m_devices;
}

void KitEnumerator::reportFailure(const Discovered& found) {
  m_module.log("no devices, as looking for them failed: " + *found.failure +
               (found.lastLines.empty() ? "" : "; last output: " + found.lastLines));
  Contract::sendDiscoveryLine({Contract::DiscoveryLine::Kind::Failed, m_module.baseName(),
                               *found.failure, found.lastLines});
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
