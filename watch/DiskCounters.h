#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief The kernel's counters of a disk's commands, for disks that it drives as SCSI or ATA.
struct DiskCounters {
  /// Commands that ended with sense data: failed ones, and those that the disk does not know.
  std::uint64_t failed = 0;
  std::uint64_t timedOut = 0;

  /// @param device the folder of the disk's device, such as "sys/block/sda/device"
  /// @return nothing where the kernel keeps none
  static std::optional<DiskCounters> read(const SystemFiles& files,
                                          const std::filesystem::path& device);
};

}  // namespace TarvexDiags::Watching
