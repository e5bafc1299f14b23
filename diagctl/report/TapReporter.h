#pragma once

#include <cstddef>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// The Test Anything Protocol, version 13: a line for each test as it ends, the plan at the end.
/// What keeps a run from ending with 0 is "not ok", so that a harness fails whenever the run does,
/// and a block of YAML tells what became of it. Only what is not possible here is skipped.
class TapReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param conditions as for the exit code.
  /// @param mostHeld bytes of a run.
  TapReporter(Printer& out, const RunConditions& conditions, std::size_t mostHeld)
      : m_out(out), m_conditions(conditions), m_record(RunRecord::Ended::Dropped, mostHeld) {}

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  void writeStep(const StepRecord& step);
  void writeAccount(const StepRecord& step);
  void writeList(const char* key, const BoundedTexts& texts);
  void writeRemarks(const char* mark, const BoundedTexts& texts);
  void writeTroubles();
  void closeRun();

  Printer& m_out;
  const RunConditions m_conditions;
  RunRecord m_record;
  bool m_hasBegun = false;
  bool m_hasFailed = false;  ///< a point of the present run
  int m_number = 0;          ///< of the points, over all runs
};

}  // namespace TarvexDiags::FrontEnd
