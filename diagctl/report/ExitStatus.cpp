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

// Beside what is worse anyway, it leaves no verdict.
RunVerdict under(const RunConditions& conditions, const RunSummary& summary, RunVerdict verdict) {
  const bool isSpoiled = missesSomething(summary, conditions.failOnSkip) ||
                         (conditions.isStrict && verdict == RunVerdict::Warned);
  return isSpoiled && verdict != RunVerdict::Failed && verdict != RunVerdict::Aborted
             ? RunVerdict::Troubled
             : verdict;
}

}  // namespace

RunVerdict verdictOf(const RunRecord& record, const RunConditions& conditions) {
  return under(conditions, summaryOf(record), verdictOf(record));
}

int exitCodeOf(RunVerdict verdict) {
  switch (verdict) {
    case RunVerdict::Failed:
      return ExitCode::kHardwareFailure;
    case RunVerdict::Troubled:
    case RunVerdict::Aborted:
      return ExitCode::kNoVerdict;
    case RunVerdict::NothingRan:
      return ExitCode::kNothingRan;
    case RunVerdict::Warned:
    case RunVerdict::Passed:
      break;
  }
  return ExitCode::kPassed;
}

int exitCodeOf(const RunSummary& summary, const RunConditions& conditions) {
  return exitCodeOf(under(conditions, summary, verdictOf(summary, conditions.failedPackages)));
}

int exitCodeOf(const RunRecord& record, const RunConditions& conditions) {
  return exitCodeOf(verdictOf(record, conditions));
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
