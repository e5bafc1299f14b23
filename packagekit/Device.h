#pragma once

#include <map>
#include <string>

namespace TarvexDiags::PackageKit {

/// @brief One device, as a package describes it to the kit.
///
/// A plain value, which is all that goes from process to process: whatever a test must know about
/// its device stands in `properties`.
struct Device {
  /// Name for people, such as "Samsung SSD 990 PRO (nvme0n1)". Never empty.
  std::string name;

  /// Path of components with "/" between them, such as "host/nvme0n1". The **last component** is
  /// what locks go by, so it must be the name of a real component and unique in the machine:
  /// "cpu3", "node0", "nvme0n1", "eth0". Never empty.
  std::string resourceTag;

  /// Name that configuration files use to leave the device out; empty: the same as `name`.
  std::string disableName = {};

  /// What discovery found out and the tests need: paths, numbers, capabilities.
  std::map<std::string, std::string> properties = {};

  /// @brief A property, or the fallback when there is none of that name.
  std::string property(const std::string& key, const std::string& fallback = {}) const {
    const auto found = properties.find(key);
    return found == properties.end() ? fallback : found->second;
  }
};

}  // namespace TarvexDiags::PackageKit
