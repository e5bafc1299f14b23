#pragma once

#include <optional>
#include <string>

#include "diagctl/command/Reporting.h"

namespace TarvexDiags::FrontEnd {

struct InventoryCheckOptions {
  std::string against;               ///< a file, or a folder with one for each kind of machine
  std::optional<std::string> rules;  ///< that come before those that come along
  std::string root = "/";            ///< below which the machine's /proc and /sys lie
  std::string commandLine;
  ReportingOptions reporting;
};

/// The verb "inventory check": holds this machine against what it should be, and reports that as a
/// run of one step. @return the exit code, which follows from what was found.
[[nodiscard]] int carryOutInventoryCheck(const InventoryCheckOptions& options);

}  // namespace TarvexDiags::FrontEnd
