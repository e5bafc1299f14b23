#pragma once

#include <cstddef>
#include <string>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/StepRecord.h"

namespace TarvexDiags::FrontEnd {

/// A line for the system's log.
struct SystemLogLine {
  static constexpr std::size_t kLongest = 1000;

  int priority;      ///< of syslog(3)
  std::string text;  ///< printable, at most kLongest bytes
};

/// A run that is over, with the tests that failed.
/// @param verb that it belongs to.
SystemLogLine systemLogLineOf(const std::string& verb, const RunRecord& record,
                              const RunConditions& conditions);

/// Hands a line to the system's log, where there is one.
void tellSystemLog(const SystemLogLine& line);

}  // namespace TarvexDiags::FrontEnd
