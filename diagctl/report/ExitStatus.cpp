#include "diagctl/report/ExitStatus.h"

namespace TarvexDiags::FrontEnd {

int exitCodeOf(const RunSummary& summary, const RunConditions& conditions) {
  const bool misses = conditions.failsOnSkip && summary.skipped > 0;
  switch (verdictOf(summary, conditions.failedPackages)) {
    case RunVerdict::Failed:
      return ExitCode::kHardwareFailure;
    case RunVerdict::Troubled:
    case RunVerdict::Aborted:
      return ExitCode::kNoVerdict;
    case RunVerdict::NothingRan:
      return misses ? ExitCode::kNoVerdict : ExitCode::kNothingRan;
    case RunVerdict::Warned:
      if (conditions.isStrict) {
        return ExitCode::kNoVerdict;
      }
      break;
    case RunVerdict::Passed:
      break;
  }
  return misses ? ExitCode::kNoVerdict : ExitCode::kPassed;
}

// A run that ended without a result for all, or did not end, has no verdict on what it left out.
int exitCodeOf(const RunRecord& record, RunConditions conditions) {
  conditions.failedPackages = record.troubleCount();
  const int code = exitCodeOf(summaryOf(record), conditions);
  const bool isWhole = record.hasEnded() && record.end().status == RunStatus::Complete;
  return code == ExitCode::kPassed && !isWhole ? ExitCode::kNoVerdict : code;
}

int translate(int code, const RunSummary& summary, ExitStyle style) {
  constexpr int nagiosWarning = 1;
  constexpr int nagiosCritical = 2;
  constexpr int nagiosUnknown = 3;
  if (style == ExitStyle::Plain || code == ExitCode::kUsage) {
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
