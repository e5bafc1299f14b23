#pragma once

#include <filesystem>
#include <string>

#include "packages/common/Reason.h"

namespace TarvexDiags::Storage {

/// @brief Whether the kernel has the disk; also true where it shows none.
bool isThere(const std::string& disk, const std::filesystem::path& sysfs = "/sys");

/// @brief Throws why the disk does not answer: NotSupported, or std::system_error with ENODEV when
/// it has left.
/// @param command that was refused, if it was one, by its name in no language
[[noreturn]] void refuse(const std::string& disk, Common::Reason reason, int error,
                         const std::string& command = {},
                         const std::filesystem::path& sysfs = "/sys");

}  // namespace TarvexDiags::Storage
