#pragma once

#include "packages/common/Reason.h"

namespace TarvexDiags::Memory::Reasons {

/// @brief Why a test of the package is not possible. A comment names the detail, where there is
/// one.
inline constexpr Common::Reason kAvailableUnknown{"AVAILABLE_MEMORY_UNKNOWN"};
inline constexpr Common::Reason kTooLittleAvailable{"TOO_LITTLE_AVAILABLE"};
inline constexpr Common::Reason kNoCpuAllowed{"NO_CPU_ALLOWED"};
inline constexpr Common::Reason kNotMapped{"MEMORY_NOT_MAPPED"};  ///< the system's message

/// @brief What a region could not have as wished. The test is possible all the same.
inline constexpr Common::Reason kNoHugePages{"NO_HUGE_PAGES"};    ///< the system's message
inline constexpr Common::Reason kNotBound{"MEMORY_NOT_BOUND"};    ///< node, the message
inline constexpr Common::Reason kNotAllLocked{"NOT_ALL_LOCKED"};  ///< KiB of how many, the message
inline constexpr Common::Reason kThreadNotPinned{"THREAD_NOT_PINNED"};  ///< the CPU

}  // namespace TarvexDiags::Memory::Reasons
