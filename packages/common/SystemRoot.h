#pragma once

#include <string>

#include "packagekit/PackageKit.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Common {

/// @brief Where /sys and /proc lie for a package, unless it is "/".
inline constexpr auto kSystemRoot = PackageKit::optionalSetting<std::string>("SystemRoot");

/// @brief The property of a device that hands it on to its tests.
inline constexpr const char* kSystemRootProperty = "systemRoot";

inline std::string systemRootOf(const PackageKit::Environment& environment) {
  return environment.settings.value(kSystemRoot).value_or("/");
}

inline Watching::SystemFiles filesOf(const PackageKit::Device& device) {
  return Watching::SystemFiles(device.property(kSystemRootProperty, "/"));
}

}  // namespace TarvexDiags::Common
