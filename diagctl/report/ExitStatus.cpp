#include "diagctl/report/ExitStatus.h"

namespace TarvexDiags::FrontEnd {

int exitCodeOf(const RunSummary& summary, const RunConditions& conditions) {
  if (summary.failed > 0) {
    return ExitCode::kHardwareFailure;
  }
  if (summary.troubled > 0 || summary.aborted > 0 || conditions.failedPackages > 0) {
    return ExitCode::kNoVerdict;
  }
  if (summary.ran() == 0) {
    return ExitCode::kNothingRan;
  }
  const bool isSpoilt =
      conditions.hasUnmatchedPattern || (conditions.isStrict && summary.warned > 0);
  return isSpoilt ? ExitCode::kNoVerdict : ExitCode::kPassed;
}

int translate(int code, const RunSummary& summary, ExitStyle style) {
  constexpr int nagiosWarning = 1;
  constexpr int nagiosCritical = 2;
  constexpr int nagiosUnknown = 3;
  if (style == ExitStyle::Plain) {
    return code;
  }
  if (style == ExitStyle::Npd) {
    // One problem daemon asks one question: is there a problem, or can it not be told?
    return code == ExitCode::kPassed || code == ExitCode::kHardwareFailure ? code
                                                                           : ExitCode::kNoVerdict;
  }
  switch (code) {
    case ExitCode::kPassed:
      return summary.warned > 0 ? nagiosWarning : 0;
    case ExitCode::kHardwareFailure:
      return nagiosCritical;
    default:
      return nagiosUnknown;
  }
}

}  // namespace TarvexDiags::FrontEnd
