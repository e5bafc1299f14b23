#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "packages/storage/Health.h"

namespace TarvexDiags::Storage {

/// @brief For a disk that is described as ATA: asks it so, and by SCSI's own means where it turns
/// out to be none. Some bridges and emulations describe an ATA disk and pass no command on. An ATA
/// disk that refuses, as in standby, is asked no further: what the kernel counts is told instead of
/// its log, where there is that.
/// @param ata, scsi readers of the disk of the name
/// @param sysfs where the kernel counts failed commands
std::unique_ptr<HealthReader> makeBridgedReader(std::unique_ptr<HealthReader> ata,
                                                std::unique_ptr<HealthReader> scsi,
                                                const std::string& disk,
                                                const std::filesystem::path& sysfs = "/sys");

}  // namespace TarvexDiags::Storage
