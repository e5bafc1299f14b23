#pragma once

#include <optional>
#include <string>
#include <vector>

#include "DiagCtrl/GlobalSettings.h"
#include "diagctl/ExitStatus.h"
#include "diagctl/RunPlan.h"
#include "diagctl/Selection.h"

namespace TarvexDiags::DiagCtl {

struct RunCommandOptions {
  std::optional<std::string> config;
  std::string language;
  std::string commandLine;
  SelectionPatterns patterns;
  RunOptions run;
  bool serial = false;
  bool parallel = false;
  std::optional<DiagCtrl::GlobalSettings::diagMode> mode;
  std::optional<std::size_t> expectedDevices;
  bool isDryRun = false;
  std::string format;                ///< of standard output; empty: as the exit style has it
  std::vector<std::string> outputs;  ///< FORMAT=FILE
  bool isQuiet = false;
  bool isStrict = false;
  bool allowsInsecure = false;
  ExitStyle exitStyle = ExitStyle::plain;
};

/// The verb run. @return the exit code.
int carryOutRun(const RunCommandOptions& options);

}  // namespace TarvexDiags::DiagCtl
