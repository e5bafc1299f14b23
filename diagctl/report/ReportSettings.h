#pragma once

#include <cstddef>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/StepRecord.h"

namespace TarvexDiags::FrontEnd {

/// What a report is told besides the run.
struct ReportSettings {
  bool isColoured = false;        ///< whether verdicts may be
  RunConditions conditions = {};  ///< by which the run is judged, where the report judges it whole
  std::size_t mostHeld = RunRecord::kUnbounded;  ///< bytes that a report may hold of a run
  std::size_t lineWidth = 0;  ///< columns at which the text breaks its lines; 0: nowhere
  bool onlyProblems = false;  ///< no line for what passed or was skipped, in the text
  /// In the text, behind each step: 1 all its information and figures, 2 the package's log as well.
  int verbosity = 0;
};

}  // namespace TarvexDiags::FrontEnd
