#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>

#include "packages/storage/Health.h"

namespace TarvexDiags::Storage {

/// @brief NVMe disks: the health and error logs, through the driver's passthrough. Throws as the
/// reader when the disk cannot be opened.
/// @param now tells how long a command has taken
/// @param sysfs where the kernel shows whether the disk is still there
std::unique_ptr<HealthReader> makeNvmeReader(
    const Disk& disk,
    std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now,
    const std::filesystem::path& sysfs = "/sys");

}  // namespace TarvexDiags::Storage
