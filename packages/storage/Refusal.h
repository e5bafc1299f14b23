#pragma once

#include <filesystem>
#include <string>

namespace TarvexDiags::Storage {

/// @brief Whether the kernel has the disk; also true where it shows none.
bool isThere(const std::string& disk, const std::filesystem::path& sysfs = "/sys");

/// @brief Throws why the disk does not answer: NotSupported, or std::system_error with ENODEV when
/// it has left.
[[noreturn]] void refuse(const std::string& disk, const std::string& what, int error,
                         const std::filesystem::path& sysfs = "/sys");

}  // namespace TarvexDiags::Storage
