#pragma once

#include <optional>
#include <string>

#include "diagctl/command/OpenSession.h"
#include "diagctl/command/WatchOptions.h"

namespace TarvexDiags::FrontEnd {

struct WatchCommandOptions {
  std::optional<std::string> config;
  std::string language;
  std::string commandLine;
  bool isSecure = true;  ///< refuse a control file that others than root could change
  PackageWishes wishes;
  std::optional<std::string> duration;  ///< nothing: until a signal comes
  std::string format;
  std::optional<std::string> textfiles;  ///< directory for metrics
  WatchOptions watch;
};

/// The verb watch: watches the machine without a test, and tells what is found as it comes, until
/// the time is over or a signal ends it. @return the exit code, which follows from what was found.
[[nodiscard]] int carryOutWatch(const WatchCommandOptions& options);

}  // namespace TarvexDiags::FrontEnd
