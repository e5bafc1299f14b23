#pragma once

#include "packages/common/Reason.h"

namespace TarvexDiags::Errors::Reasons {

/// @brief Why a test of the package is not possible.
inline constexpr Common::Reason kNoMemoryCounters{"NO_MEMORY_COUNTERS"};
inline constexpr Common::Reason kNoPcieCounters{"NO_PCIE_COUNTERS"};
inline constexpr Common::Reason kNoDiskCounters{"NO_DISK_COUNTERS"};
inline constexpr Common::Reason kNoInterface{"NO_INTERFACE_OF_HARDWARE"};
inline constexpr Common::Reason kRecordsNotMounted{"RECORDS_NOT_MOUNTED"};
inline constexpr Common::Reason kNoPlaceForRecords{"NO_PLACE_FOR_RECORDS"};
inline constexpr Common::Reason kRecordsNeedPrivilege{"RECORDS_NEED_PRIVILEGE"};

}  // namespace TarvexDiags::Errors::Reasons
