#pragma once

#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// One line for monitors that read no more: the state, the sums, and what was found first. Of
/// several runs it tells the last.
class SummaryReporter : public Reporter {
 public:
  /// @param out kept alive by the caller.
  explicit SummaryReporter(Printer& out) : m_out(out) {}

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  Printer& m_out;
  RunRecord m_record;
};

}  // namespace TarvexDiags::FrontEnd
