#pragma once

#include <optional>
#include <string>
#include <vector>

#include "diagctl/command/RedactionKey.h"
#include "diagctl/command/Reporting.h"

namespace TarvexDiags::FrontEnd {

struct ReportCommandOptions {
  std::vector<std::string> logs;  ///< files that run wrote in the format jsonl
  ReportingOptions reporting;
  RedactionWishes redaction = {};
  std::optional<std::string> pages;  ///< a directory for a page of all and one for each machine
};

/// What is wrong with where pages are to go, for people; empty for nothing.
std::string findPagesFault(const ReportCommandOptions& options);

/// The verb report: tells each run of the logs, and of several logs or machines what they came to
/// together.
/// @return the exit code of the last run of one log of one machine; else the worst of all.
[[nodiscard]] int carryOutReport(const ReportCommandOptions& options);

}  // namespace TarvexDiags::FrontEnd
