#pragma once

#include "packages/common/Reason.h"

namespace TarvexDiags::Storage::Reasons {

/// @brief Why a test of the package is not possible. A comment names the detail, where there is
/// one.
inline constexpr Common::Reason kDiskTooSmall{"DISK_TOO_SMALL"};
inline constexpr Common::Reason kNoMemoryForBuffers{"NO_MEMORY_FOR_BUFFERS"};
inline constexpr Common::Reason kCannotBeRead{"DISK_CANNOT_BE_READ"};     ///< the path, the message
inline constexpr Common::Reason kNeedsPrivilege{"DISK_NEEDS_PRIVILEGE"};  ///< the same
inline constexpr Common::Reason kCannotBeAsked{"DISK_CANNOT_BE_ASKED"};   ///< the system's message
inline constexpr Common::Reason kCommandRefused{"COMMAND_REFUSED"};  ///< the command, the message
inline constexpr Common::Reason kCardWithoutHealth{"CARD_WITHOUT_HEALTH"};
inline constexpr Common::Reason kVirtualWithoutHealth{"VIRTUAL_DISK_WITHOUT_HEALTH"};
inline constexpr Common::Reason kFileWithoutHealth{"FILE_WITHOUT_HEALTH"};
inline constexpr Common::Reason kNoSmart{"DISK_WITHOUT_SMART"};
inline constexpr Common::Reason kSmartOff{"SMART_SWITCHED_OFF"};
inline constexpr Common::Reason kSmartRefused{"SMART_REFUSED"};
inline constexpr Common::Reason kInStandby{"DISK_IN_STANDBY"};
inline constexpr Common::Reason kAtaRefused{"ATA_REFUSED"};
inline constexpr Common::Reason kNoAtaDisk{"NO_ATA_DISK"};
inline constexpr Common::Reason kNoHealthTold{"NO_HEALTH_TOLD"};
inline constexpr Common::Reason kNoErrorLog{"NO_ERROR_LOG"};
inline constexpr Common::Reason kNoKernelCounters{"NO_KERNEL_COUNTERS"};
inline constexpr Common::Reason kNoFileSystem{"NO_FILE_SYSTEM"};
inline constexpr Common::Reason kTooLittleSpace{
    "TOO_LITTLE_SPACE"};                                            ///< places, what each has free
inline constexpr Common::Reason kNotWritable{"NO_WRITABLE_PLACE"};  ///< places, the messages
inline constexpr Common::Reason kNoTemporaryFile{"NO_TEMPORARY_FILE"};  ///< the place, the message
inline constexpr Common::Reason kNothingWritten{"NOTHING_WRITTEN"};     ///< the message

/// @brief How a disk is known to have vanished while it was tested.
inline constexpr Common::Reason kReadsNothing{"VANISHED_READS_NOTHING"};
inline constexpr Common::Reason kNoBlocksLeft{"VANISHED_WITHOUT_BLOCKS"};
inline constexpr Common::Reason kNoConnection{"VANISHED_WITHOUT_CONNECTION"};
inline constexpr Common::Reason kFileSystemGone{"VANISHED_WITH_FILE_SYSTEM"};
inline constexpr Common::Reason kDiskGone{"VANISHED_DISK"};
inline constexpr Common::Reason kMediumGone{"VANISHED_WITHOUT_MEDIUM"};

}  // namespace TarvexDiags::Storage::Reasons
