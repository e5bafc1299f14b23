#pragma once

#include <functional>
#include <string>

#include "DeviceEnum/IDeviceEnumerator.h"
#include "packagekit/Settings.h"

namespace TarvexDiags::PackageKit {

using DiagnosticMode = DeviceEnum::IDeviceEnumerator::DiagnosticMode;

/// @brief What discovery and predicates, which run in a worker process of their own, can ask and
/// tell; and estimates, which run in the host process.
struct Environment {
  /// For whom the tests run: CUSTOMER, FACTORY or BRINGUP.
  DiagnosticMode diagnosticMode;

  /// The package's configuration file.
  Settings settings;

  /// `ResourceLockProperty` of the configuration file; empty when absent or not enumerating.
  std::string resourceString;

  /// `DeviceType` of the configuration file; 0 when absent or not enumerating.
  unsigned int deviceType;

  /// Writes a line to the package's log. Never null.
  std::function<void(const std::string&)> log;

  /// Of an estimate: whether the short form of the test is meant.
  bool isQuick = false;

  /// @brief The tag below which the package's devices lie: `resourceString`, or "host".
  std::string parentTag() const { return resourceString.empty() ? "host" : resourceString; }
};

}  // namespace TarvexDiags::PackageKit
