#pragma once

#include <cstddef>

#include "diagctl/report/Reporter.h"
#include "diagctl/report/Spool.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// JUnit's XML as continuous integration servers read it: a suite for each package, a case for each
/// test on a device. A hardware failure is a `failure`, trouble of the tool and an aborted test an
/// `error`, and `skipped` what is not possible here. Written whole at the end, as its first
/// line counts what is in it; the suites of several runs follow each other.
class JunitReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param mostHeld bytes of a run, all of which is held
  /// until
  ///   its end; of the steps beyond, their sum is written.
  JunitReporter(Printer& out, std::size_t mostHeld);

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  void closeRun();

  Printer& m_out;
  RunRecord m_run;
  Spool m_spool;  ///< what stands below the first line
  OutcomeSums m_sums;
  double m_seconds = 0;
  bool m_hasRun = false;
};

}  // namespace TarvexDiags::FrontEnd
