#include "diagctl/report/ExitStatus.h"

namespace TarvexDiags::FrontEnd {

bool isTrouble(StepRecord::Outcome outcome, const RunConditions& conditions) {
  using Outcome = StepRecord::Outcome;
  switch (outcome) {
    case Outcome::Passed:
      return false;
    case Outcome::Warning:
      return conditions.isStrict;
    case Outcome::SkippedForPrivilege:
      return conditions.failOnSkip != FailOnSkip::Nothing;
    case Outcome::Skipped:
    case Outcome::SkippedForMode:
      return conditions.failOnSkip == FailOnSkip::Everything;
    case Outcome::Failed:
    case Outcome::Trouble:
    case Outcome::Aborted:
    case Outcome::NotRun:
      break;
  }
  return true;
}

namespace {

bool missesSomething(const RunSummary& summary, FailOnSkip failOnSkip) {
  switch (failOnSkip) {
    case FailOnSkip::Nothing:
      return false;
    case FailOnSkip::Privilege:
      return summary.skippedForPrivilege > 0;
    case FailOnSkip::Everything:
      break;
  }
  return summary.skipped > 0;
}

}  // namespace

int exitCodeOf(const RunSummary& summary, const RunConditions& conditions) {
  const bool misses = missesSomething(summary, conditions.failOnSkip);
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

int worseOf(int one, int other) {
  for (const int code : {ExitCode::kHardwareFailure, ExitCode::kNoVerdict, ExitCode::kNothingRan}) {
    if (one == code || other == code) {
      return code;
    }
  }
  return ExitCode::kPassed;
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
