#pragma once

#include <set>
#include <string>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief Which part of the machine hangs on which, as the kernel's device tree shows it.
class Topology {
 public:
  explicit Topology(SystemFiles files) : m_files(std::move(files)) {}

  /// @brief The resource and all that it hangs on: a disk's controller, the PCI bridges above it; a
  /// core's processor; a memory node's controllers. As it is now: ask while the device is there.
  /// @param resource as in Finding::device; "memory" and "memory:0" (a node) besides
  std::set<std::string> lineage(const std::string& resource) const;

 private:
  void addPath(const std::filesystem::path& device, std::set<std::string>& lineage) const;

  SystemFiles m_files;
};

}  // namespace TarvexDiags::Watching
