#pragma once

#include "packages/common/Reason.h"

namespace TarvexDiags::Processor::Reasons {

/// @brief Why a test of the package is not possible. A comment names the detail, where there is
/// one.
inline constexpr Common::Reason kCoreTakenAway{"CORE_TAKEN_AWAY"};
inline constexpr Common::Reason kPartnerTakenAway{"PARTNER_TAKEN_AWAY"};
inline constexpr Common::Reason kCoreForbidden{"CORE_FORBIDDEN"};
inline constexpr Common::Reason kNoInstructions{"NO_SUCH_INSTRUCTIONS"};
inline constexpr Common::Reason kNoOtherCore{"NO_OTHER_CORE"};
inline constexpr Common::Reason kNoCounters{"CORE_WITHOUT_COUNTERS"};

}  // namespace TarvexDiags::Processor::Reasons
