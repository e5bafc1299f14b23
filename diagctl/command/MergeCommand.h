#pragma once

#include <optional>
#include <string>
#include <vector>

#include "diagctl/command/RedactionKey.h"
#include "diagctl/command/Reporting.h"

namespace TarvexDiags::FrontEnd {

struct MergeCommandOptions {
  std::vector<std::string> logs;      ///< files that run wrote in the format jsonl
  std::optional<std::string> output;  ///< nothing: standard output
  ReportingOptions reporting;         ///< of what it tells, without formats and outputs
  RedactionWishes redaction = {};
};

/// The verb merge: writes the runs of the logs into one, which stands there whole or not at all,
/// and tells what they came to: on standard error where standard output takes the log. Lines stay
/// as they stand in the logs, unless what identifies machines is to be hidden: then the runs are
/// written anew.
/// @return the exit code of the worst run.
[[nodiscard]] int carryOutMerge(const MergeCommandOptions& options);

}  // namespace TarvexDiags::FrontEnd
