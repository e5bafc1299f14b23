#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::DiagCtl {

struct ReportCommandOptions {
  std::string log;  ///< a file that run wrote in the format jsonl
  std::string format = "text";
  std::vector<std::string> outputs;  ///< FORMAT=FILE
};

/// The verb report. @return the exit code of the last run in the log.
int carryOutReport(const ReportCommandOptions& options);

}  // namespace TarvexDiags::DiagCtl
