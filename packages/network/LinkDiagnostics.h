#pragma once

#include <string>

#include "packages/network/LinkControl.h"
#include "packages/network/Links.h"

namespace TarvexDiags::Network {

struct LinkLimits {
  std::uint64_t minimumMegabits = 0;  ///< slower is an error; 0: any speed
};

/// @brief Tells state, speed, duplex and driver. No carrier, or less than the minimum, is an error;
/// half duplex, or a slower mode than both ends offer, is a warning: mostly a bad cable.
void judgeLink(const Link& link, LinkControl& control, const LinkLimits& limits,
               RunJournal& journal);

/// @brief Runs the driver's self-test and names the parts that failed.
void runSelfTest(const std::string& interface, LinkControl& control, bool offline,
                 RunJournal& journal);

}  // namespace TarvexDiags::Network
