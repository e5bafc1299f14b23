#pragma once

#include <optional>
#include <string>

#include "DiagCtrl/GlobalSettings.h"
#include "diagctl/command/OpenSession.h"
#include "diagctl/command/Reporting.h"
#include "diagctl/command/WatchOptions.h"
#include "diagctl/run/RunPlan.h"
#include "diagctl/session/Selection.h"

namespace TarvexDiags::FrontEnd {

struct RunCommandOptions {
  std::optional<std::string> config;
  std::string language;
  std::string commandLine;
  PackageWishes wishes;
  SelectionPatterns patterns;
  RunOptions run;
  bool serial = false;
  bool parallel = false;
  std::optional<DiagCtrl::GlobalSettings::diagMode> mode;
  std::optional<std::size_t> expectedDevices;
  bool isDryRun = false;
  ReportingOptions reporting;
  std::optional<std::string> textfiles;  ///< directory for metrics
  bool isTheVerb = true;                 ///< else whoever asked for it tells the system's log
  bool isQuiet = false;
  bool allowsInsecure = false;
  bool allowsDisruptive = false;
  WatchOptions watch;
};

/// The verb run. @return the exit code.
[[nodiscard]] int carryOutRun(const RunCommandOptions& options);

}  // namespace TarvexDiags::FrontEnd
