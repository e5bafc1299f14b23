#pragma once

#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// What a watch over the machine finds, for people: a line for each finding when it comes, what to
/// do about it below, and in the end how many there were.
class FindingReporter : public Reporter {
 public:
  /// @param out kept alive by the caller.
  explicit FindingReporter(Printer& out) : m_out(out) {}

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  void tell(const RunEvent& event, const char* word, const std::string& message,
            const std::string& action);

  Printer& m_out;
  std::size_t m_failures = 0;
  std::size_t m_warnings = 0;
  std::size_t m_troubles = 0;
};

}  // namespace TarvexDiags::FrontEnd
