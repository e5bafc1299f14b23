#pragma once

#include <ostream>
#include <string>

#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"

namespace TarvexDiags::FrontEnd {

/// The report that a technician reads: the machine, a line for each test with its verdict, what was
/// found and what to do about it, and the sum.
class TextReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param colour whether verdicts are coloured.
  TextReporter(std::ostream& out, bool colour);

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  void writeStep(const StepRecord& step);
  void closeRun();
  std::string verdictOf(const StepRecord& step) const;
  std::string paint(const char* text, const char* colour) const;

  std::ostream& m_out;
  bool m_colour;
  bool m_hasBegun = false;
  RunRecord m_record;
};

}  // namespace TarvexDiags::FrontEnd
