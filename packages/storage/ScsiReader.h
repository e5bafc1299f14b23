#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "packages/storage/CommandChannel.h"
#include "packages/storage/Health.h"

namespace TarvexDiags::Storage {

/// @brief SCSI disks: what they warn of, their counters of errors, temperature and wear, the end of
/// their last self-test, and what the kernel counts. Only pages that the disk says it has are read.
/// @param open the channel to the disk of the name, asked for at each reading: a user who may not
/// open the disk may still read what the kernel counts
/// @param sysfs where the kernel counts failed commands
std::unique_ptr<HealthReader> makeScsiReader(const ChannelOpener& open, const std::string& disk,
                                             const std::filesystem::path& sysfs = "/sys");

}  // namespace TarvexDiags::Storage
