#pragma once

#include "packages/common/Reason.h"

namespace TarvexDiags::Platform::Reasons {

/// @brief Why a test of the package is not possible.
inline constexpr Common::Reason kNoLinks{"NO_PCIE_LINKS"};
inline constexpr Common::Reason kLinksUnknown{"PCIE_LINKS_UNKNOWN"};
inline constexpr Common::Reason kOneProcessor{"ONE_PROCESSOR_ALONE"};
inline constexpr Common::Reason kProcessorsNotTold{"PROCESSORS_NOT_TOLD"};
inline constexpr Common::Reason kModulesNotTold{"MODULES_NOT_TOLD"};
inline constexpr Common::Reason kModulesWithheld{"MODULES_NEED_PRIVILEGE"};
inline constexpr Common::Reason kNoLikeDisks{"NO_LIKE_DISKS"};
inline constexpr Common::Reason kTaintsNotTold{"TAINTS_NOT_TOLD"};
inline constexpr Common::Reason kNoClock{"NO_CLOCK"};
inline constexpr Common::Reason kMachineSlept{"MACHINE_SLEPT"};

}  // namespace TarvexDiags::Platform::Reasons
