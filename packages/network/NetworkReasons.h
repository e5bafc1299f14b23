#pragma once

#include "packages/common/Reason.h"

namespace TarvexDiags::Network::Reasons {

/// @brief Why a test of the package is not possible. A comment names the detail, where there is
/// one.
inline constexpr Common::Reason kNoSelfTest{"NO_SELF_TEST"};
inline constexpr Common::Reason kInterfaceOff{"INTERFACE_OFF"};
inline constexpr Common::Reason kSwitchedOff{"SWITCHED_OFF_MEANWHILE"};
inline constexpr Common::Reason kDriverRefuses{"DRIVER_REFUSES"};  ///< the call, the message
inline constexpr Common::Reason kOwnAddressInside{"OWN_ADDRESS_STAYS_INSIDE"};
inline constexpr Common::Reason kLoopbackAlone{"LOOPBACK_WITHOUT_PARTNER"};
inline constexpr Common::Reason kSelfTestNeedsRight{"SELF_TEST_NEEDS_PRIVILEGE"};
inline constexpr Common::Reason kNoPairNamed{"NO_PAIR_CONFIGURED"};
inline constexpr Common::Reason kTestedAtFirst{"PAIR_TESTED_AT_FIRST"};
inline constexpr Common::Reason kNamespacesNeedRight{"NAMESPACES_NEED_PRIVILEGE"};
inline constexpr Common::Reason kNoNamespace{"NAMESPACE_REFUSED"};      ///< the system's message
inline constexpr Common::Reason kPartOfAnother{"PART_OF_ANOTHER"};      ///< the interface
inline constexpr Common::Reason kCarriesAddress{"CARRIES_AN_ADDRESS"};  ///< the interface
inline constexpr Common::Reason kCarriesAnother{"CARRIES_ANOTHER"};  ///< the interface, the other
inline constexpr Common::Reason kCannotBeMoved{"INTERFACE_NOT_MOVED"};  ///< the interface
inline constexpr Common::Reason kNoRecord{"NO_RECORD_KEPT"};            ///< the file, the message

}  // namespace TarvexDiags::Network::Reasons
