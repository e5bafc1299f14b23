#pragma once

#include <filesystem>
#include <string>

namespace TarvexDiags::Watching {

/// @brief The file in which the kernel shows how firmware names the machine, its board, its chassis
/// and itself.
/// @param name "sys_vendor", "product_name", "bios_version"
inline std::filesystem::path firmwareFile(const std::string& name) {
  return std::filesystem::path("sys/class/dmi/id") / name;
}

}  // namespace TarvexDiags::Watching
