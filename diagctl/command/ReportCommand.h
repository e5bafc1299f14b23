#pragma once

#include <string>

#include "diagctl/command/Reporting.h"

namespace TarvexDiags::FrontEnd {

struct ReportCommandOptions {
  std::string log;  ///< a file that run wrote in the format jsonl
  ReportingOptions reporting;
};

/// The verb report: tells each run of the log. @return the exit code of the last one.
int carryOutReport(const ReportCommandOptions& options);

}  // namespace TarvexDiags::FrontEnd
