#pragma once

#include <optional>
#include <string>

#include "diagctl/command/RunCommand.h"
#include "diagctl/health/HealthText.h"

namespace TarvexDiags::FrontEnd {

struct HealthOptions {
  RunCommandOptions run;
  std::optional<unsigned long> mostSeconds;  ///< for all of it
  std::optional<unsigned long> cached;  ///< only tell the last result, at most so many seconds old
  HealthStyle style = HealthStyle::Plain;
  std::optional<VanishedAs> vanished;  ///< nothing: as the style has it
  bool drains = false;
  bool undrainsOwn = false;
  std::optional<std::string> slurmConfiguration;
  std::optional<std::string> textfiles;  ///< directory for metrics
  std::optional<std::string> state;      ///< directory of the results
};

/// The verb health: one check of this machine at a time, or the result of the last one, for whoever
/// asks often. @return the exit code in the style.
[[nodiscard]] int carryOutHealth(const HealthOptions& given);

}  // namespace TarvexDiags::FrontEnd
