#pragma once

#include <string>

#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// The report that a technician reads: the machine, a line for each test with its verdict, what was
/// found and what to do about it, and the sum.
class TextReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param colour whether verdicts are coloured.
  /// @param mostHeld bytes of a run.
  TextReporter(Printer& out, bool colour, std::size_t mostHeld);

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  void writeStep(const StepRecord& step);
  void writeTexts(const char* indent, const BoundedTexts& texts);
  void closeRun();
  void writeVerdict(StepRecord::Outcome outcome);
  void paint(Colour colour, const std::string& text);

  Printer& m_out;
  bool m_colour;
  bool m_hasBegun = false;
  RunRecord m_record;
};

}  // namespace TarvexDiags::FrontEnd
