#pragma once

#include <string>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// Writes the line of a monitor: the state that an exit code in plain style stands for, and a text.
void writeMonitorLine(Printer& out, int code, const RunSummary& summary, const std::string& text);

/// One line for monitors that read no more: the state, the sums, and what was found first. Of
/// several runs it tells the last.
class SummaryReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param conditions as for the exit code.
  /// @param mostHeld bytes of a run.
  explicit SummaryReporter(Printer& out, const RunConditions& conditions = {},
                           std::size_t mostHeld = RunRecord::kUnbounded)
      : m_out(out), m_conditions(conditions), m_record(RunRecord::Ended::Held, mostHeld) {}

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  Printer& m_out;
  const RunConditions m_conditions;
  RunRecord m_record;
};

}  // namespace TarvexDiags::FrontEnd
