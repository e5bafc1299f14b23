#include "diagctl/report/ExitStatus.h"

namespace TarvexDiags::FrontEnd {

int exitCodeOf(const RunSummary& summary, const RunConditions& conditions) {
  if (summary.failed > 0) {
    return ExitCode::hardwareFailure;
  }
  if (summary.troubled > 0 || summary.aborted > 0 || conditions.failedPackages > 0) {
    return ExitCode::noVerdict;
  }
  if (summary.ran() == 0) {
    return ExitCode::nothingRan;
  }
  const bool isSpoilt =
      conditions.hasUnmatchedPattern || (conditions.isStrict && summary.warned > 0);
  return isSpoilt ? ExitCode::noVerdict : ExitCode::passed;
}

int translate(int code, const RunSummary& summary, ExitStyle style) {
  constexpr int nagiosWarning = 1;
  constexpr int nagiosCritical = 2;
  constexpr int nagiosUnknown = 3;
  if (style == ExitStyle::plain) {
    return code;
  }
  if (style == ExitStyle::npd) {
    // One problem daemon asks one question: is there a problem, or can it not be told?
    return code == ExitCode::passed || code == ExitCode::hardwareFailure ? code
                                                                         : ExitCode::noVerdict;
  }
  switch (code) {
    case ExitCode::passed:
      return summary.warned > 0 ? nagiosWarning : 0;
    case ExitCode::hardwareFailure:
      return nagiosCritical;
    default:
      return nagiosUnknown;
  }
}

}  // namespace TarvexDiags::FrontEnd
