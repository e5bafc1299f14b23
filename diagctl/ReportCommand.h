#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::DiagCtl {

struct ReportCommandOptions {
  std::string log;  ///< a file that run wrote in the format jsonl
  std::string format = "text";
  std::vector<std::string> outputs;  ///< FORMAT=FILE
};

/// The verb report: tells each run of the log. @return the exit code of the last one.
int carryOutReport(const ReportCommandOptions& options);

}  // namespace TarvexDiags::DiagCtl
