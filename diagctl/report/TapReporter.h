#pragma once

#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// The Test Anything Protocol, version 13: a line for each test as it ends, the plan at the end.
/// Trouble of the tool is "not ok" with a TODO directive, so that a harness does not count it as a
/// hardware failure; an aborted test is skipped.
class TapReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param mostHeld bytes of a run.
  TapReporter(Printer& out, std::size_t mostHeld)
      : m_out(out), m_record(RunRecord::Ended::Dropped, mostHeld) {}

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  void writeStep(const StepRecord& step);
  void writeTexts(const char* indent, const BoundedTexts& texts);
  void closeRun();

  Printer& m_out;
  RunRecord m_record;
  bool m_hasBegun = false;
  int m_number = 0;  ///< of the points, over all runs
};

}  // namespace TarvexDiags::FrontEnd
