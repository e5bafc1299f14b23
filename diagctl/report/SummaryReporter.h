#pragma once

#include <ostream>

#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"

namespace TarvexDiags::FrontEnd {

/// One line for monitors that read no more: the state, the sums, and what was found first. Of
/// several runs it tells the last.
class SummaryReporter : public Reporter {
 public:
  /// @param out kept alive by the caller.
  explicit SummaryReporter(std::ostream& out) : m_out(out) {}

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  std::ostream& m_out;
  RunRecord m_record;
};

}  // namespace TarvexDiags::FrontEnd
